/* The public and internal headers compile as strict C11 on their own, and
 * the public records have their fixed layouts as C sees them. */
#include <stddef.h>
#include <stdio.h>

#include "nexcfg.h"
#include "nexcfg_internal.h"

_Static_assert(sizeof(NXC_NetID) == 28, "NXC_NetID size");
_Static_assert(offsetof(NXC_NetID, vnet) == 8, "NXC_NetID.vnet");
_Static_assert(offsetof(NXC_HostAdapter, next) == 4, "NXC_HostAdapter.next");
_Static_assert(offsetof(NXC_HostAdapter, netId) == 12, "NXC_HostAdapter.netId");
_Static_assert(offsetof(NXC_HostAdapter, flags) == 40, "NXC_HostAdapter.flags");
_Static_assert(offsetof(NXC_HostAdapter, name) == 44, "NXC_HostAdapter.name");
_Static_assert(offsetof(NXC_HostAdapter, driver) == 172, "NXC_HostAdapter.driver");
_Static_assert(offsetof(NXC_HostAdapter, mappingName) == 300, "NXC_HostAdapter.mappingName");
_Static_assert(sizeof(NXC_HostAdapter) == 428, "NXC_HostAdapter size");
_Static_assert(offsetof(NXC_HostAdapterList, entries) == 8, "NXC_HostAdapterList.entries");
_Static_assert(offsetof(NXC_VnetFeatures, netId) == 4, "NXC_VnetFeatures.netId");
_Static_assert(offsetof(NXC_VnetFeatures, subnet) == 32, "NXC_VnetFeatures.subnet");
_Static_assert(offsetof(NXC_VnetFeatures, configFeatures) == 33, "NXC_VnetFeatures.configFeatures");
_Static_assert(offsetof(NXC_VnetFeatures, runtimeFeatures) == 65, "NXC_VnetFeatures.runtimeFeatures");
_Static_assert(sizeof(bool) == 1, "one-byte bool");

int main(void) {
  /* Works without loading: a C caller links and calls the library. */
  if (NXC_Version() != 0x10000u) return 1;
  if (!NXC_SetCurrentLogLevel(NXC_LOG_ERR | NXC_LOG_OK)) return 1;
  if (NXC_GetCurrentLogLevel() != 0x11u) return 1;
  printf("nexcfg %#x\n", (unsigned)NXC_Version());
  return 0;
}
