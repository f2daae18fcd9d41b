// dhcp_priv.h - the locator of dhcpd.conf's protected block, shared by the
// writer and the fuzz target that checks what the writer keeps around it.
#pragma once

#include <stdint.h>

#include <string_view>

namespace nxc {

// Offsets of the protected block: start at the first byte of the start
// marker, end just after the end marker's newline. {0, 0} means no usable
// block, so no user text is carried over.
struct DhcpBlockPos {
  int64_t start = 0;
  int64_t end = 0;
};

// Takes text in lines of at most 255 bytes and finds the markers: a later start marker replaces an earlier one, the
// first end marker ends the search. Logs and returns false (pos unchanged)
// when either is missing or the end comes first.
[[nodiscard]] bool LocateDhcpBlock(std::string_view text, DhcpBlockPos *pos);

}  // namespace nxc
