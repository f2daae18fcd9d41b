#include "api/api_util.h"

namespace nxc {

[[nodiscard]] bool ApiVnetNumber(const char *name, const char *fn, uint32_t *vnet) {
  uint32_t num = NXCConvVnetNameToNum(name);
  if (num >= NXC_NUM_VNETS) {
    NXCLog(LOG_ERR, fn, "Invalid vnet name: %s", OrNull(name));
    return false;
  }
  *vnet = num;
  return true;
}

[[nodiscard]] bool ApiVnetArgument(const char *name, const char *fn, uint32_t *vnet) {
  if (!name) {
    NXCLog(LOG_ERR, fn, "Invalid argument - vnet: %p", (const void *)name);
    return false;
  }
  return ApiVnetNumber(name, fn, vnet);
}

}  // namespace nxc
