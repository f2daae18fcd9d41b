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

}  // namespace nxc
