// sha1.h - SHA-1 (FIPS 180).
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace nxc {

constexpr size_t kSha1DigestSize = 20;
// The piece of a message that the rounds take at a time.
constexpr size_t kSha1BlockSize = 64;

class Sha1 {
 public:
  Sha1() noexcept;
  void Update(const void *data, size_t size) noexcept;
  void Final(uint8_t digest[kSha1DigestSize]) noexcept;

  // Adds size bytes of one message to a and as many of another to b. The
  // rounds of the two run side by side where both are at a block boundary:
  // a single message's rounds each wait for the one before, so a second
  // one fills the time between them at little extra cost.
  friend void Sha1UpdateBoth(Sha1 *a, const void *aData, Sha1 *b, const void *bData,
                             size_t size) noexcept;

 private:
  void Blocks(const uint8_t *data, size_t count) noexcept;
  uint32_t h_[5];
  uint64_t length_ = 0;  // bytes so far
  uint8_t buffer_[64];
  size_t used_ = 0;
};

// Whether the CPU's SHA instructions do the work. They are used whenever
// the CPU has them; turning them off (tests do, to check the portable
// rounds as well) or on again only has an effect on such a CPU. The result
// tells whether they are in use afterwards.
bool Sha1UseCpuInstructions(bool use) noexcept;
bool Sha1UsesCpuInstructions() noexcept;

void Sha1UpdateBoth(Sha1 *a, const void *aData, Sha1 *b, const void *bData, size_t size) noexcept;

void Sha1Digest(const void *data, size_t size, uint8_t digest[kSha1DigestSize]) noexcept;
// Lower-case hex of a digest into out (41 bytes).
void Sha1Hex(const uint8_t digest[kSha1DigestSize], char out[2 * kSha1DigestSize + 1]) noexcept;

}  // namespace nxc
