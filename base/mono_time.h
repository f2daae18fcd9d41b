// mono_time.h - a monotonic nanosecond clock.
#pragma once

#include <stdint.h>

namespace nxc {

uint64_t MonotonicNanos() noexcept;

}  // namespace nxc
