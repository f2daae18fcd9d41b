// text_sizes.h - the sizes of the texts the layers hand each other, each
// with its NUL. A buffer for one of these texts has exactly this size.
#pragma once

#include <stddef.h>

#include "nexcfg.h"

namespace nxc {

// A dotted IPv4 address, "255.255.255.255".
inline constexpr size_t kIPTextSize = 16;
// A canonical MAC address, "00:0C:29:0A:0B:01".
inline constexpr size_t kMACTextSize = 18;
// A vnet name, "zynet255".
inline constexpr size_t kVnetNameSize = 20;
// A host file's path as the file layout names it (NXCGetFileName).
inline constexpr size_t kPathSize = 256;
// A host-only adapter's interface name (the kernel's IFNAMSIZ).
inline constexpr size_t kAdapterNameSize = 16;
// A host adapter's name in a bridge mapping and in an adapter list entry.
inline constexpr size_t kHostAdapterNameSize = NXC_ADAPTER_NAME_LEN;

}  // namespace nxc
