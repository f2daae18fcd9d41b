// mono_time.cpp - a monotonic nanosecond clock.
#include "base/mono_time.h"

#include <time.h>

namespace nxc {

uint64_t MonotonicNanos() noexcept {
  struct timespec ts;
  // CLOCK_MONOTONIC cannot fail on Linux with a valid pointer.
  (void)clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

}  // namespace nxc
