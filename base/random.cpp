// random.cpp - cryptographically strong random numbers from the kernel.
#include "base/random.h"

#include <errno.h>
#include <sys/random.h>

namespace nxc {

[[nodiscard]] bool RandomBytes(void *buf, size_t size) noexcept {
  unsigned char *out = static_cast<unsigned char *>(buf);
  size_t done = 0;
  while (done < size) {
    ssize_t n = getrandom(out + done, size - done, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

[[nodiscard]] bool RandomBelow(uint32_t bound, uint32_t *out) noexcept {
  if (bound == 0) {
    errno = EINVAL;
    return false;
  }
  // Values below threshold (2^32 mod bound of them) would make the low
  // results more likely than the others, so they are drawn again.
  uint32_t threshold = static_cast<uint32_t>(-bound) % bound;
  for (;;) {
    uint32_t value = 0;
    if (!RandomBytes(&value, sizeof value)) return false;
    if (value < threshold) continue;
    *out = value % bound;
    return true;
  }
}

}  // namespace nxc
