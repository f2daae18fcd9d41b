// address.h - what the address helpers (NXCIPStr2Int and the other
// conversions declared in nexcfg_internal.h) offer the layers besides their
// exported functions.
#pragma once

#include <stdint.h>

namespace nxc {

// Text to integer for callers that do not check the conversion: a text that
// does not convert (NXCIPStr2Int logs why) counts as 0.
uint32_t IPOrZero(const char *text) noexcept;

}  // namespace nxc
