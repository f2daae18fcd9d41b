// random.h - cryptographically strong random numbers from the kernel.
#pragma once

#include <stddef.h>

namespace nxc {

// Fills buf; false (with errno set) when the kernel source fails.
[[nodiscard]] bool RandomBytes(void *buf, size_t size) noexcept;

}  // namespace nxc
