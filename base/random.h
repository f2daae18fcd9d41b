// random.h - cryptographically strong random numbers from the kernel.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace nxc {

// Fills buf; false (with errno set) when the kernel source fails.
[[nodiscard]] bool RandomBytes(void *buf, size_t size) noexcept;
// A uniform value in [0, bound) without modulo bias; bound > 0.
[[nodiscard]] bool RandomBelow(uint32_t bound, uint32_t *out) noexcept;

}  // namespace nxc
