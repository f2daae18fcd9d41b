// api_util.h - steps that many public calls share, besides the call frame
// of core/api_frame.h.
#pragma once

#include "base/str_util.h"
#include "nexcfg_internal.h"

namespace nxc {

// The number of the vnet named name ("zynet<n>"); false, after logging
// "Invalid vnet name: %s" under fn, when the name is not one of a vnet
// 0..255.
[[nodiscard]] bool ApiVnetNumber(const char *name, const char *fn, uint32_t *vnet);

// The same for a caller's required vnet argument: NULL first logs
// "Invalid argument - vnet: %p".
[[nodiscard]] bool ApiVnetArgument(const char *name, const char *fn, uint32_t *vnet);

}  // namespace nxc
