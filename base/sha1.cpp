// sha1.cpp - SHA-1 (FIPS 180).
#include "base/sha1.h"

#include <string.h>

namespace nxc {

namespace {

constexpr size_t kBlockSize = 64;

inline uint32_t Rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t LoadBig32(const uint8_t *p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
}

inline void StoreBig32(uint8_t *p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

}  // namespace

Sha1::Sha1() noexcept : h_{0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u} {}

void Sha1::Block(const uint8_t *block) noexcept {
  uint32_t w[80];
  for (int t = 0; t < 16; ++t) w[t] = LoadBig32(block + 4 * t);
  for (int t = 16; t < 80; ++t) w[t] = Rotl(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1);

  uint32_t a = h_[0], b = h_[1], c = h_[2], d = h_[3], e = h_[4];
  // The four rounds of twenty steps each, as separate loops so that no step
  // chooses its function.
  auto step = [&](uint32_t f, uint32_t k, uint32_t word) {
    uint32_t temp = Rotl(a, 5) + f + e + k + word;
    e = d;
    d = c;
    c = Rotl(b, 30);
    b = a;
    a = temp;
  };
  for (int t = 0; t < 20; ++t) step((b & c) | (~b & d), 0x5A827999u, w[t]);
  for (int t = 20; t < 40; ++t) step(b ^ c ^ d, 0x6ED9EBA1u, w[t]);
  for (int t = 40; t < 60; ++t) step((b & c) | (b & d) | (c & d), 0x8F1BBCDCu, w[t]);
  for (int t = 60; t < 80; ++t) step(b ^ c ^ d, 0xCA62C1D6u, w[t]);
  h_[0] += a;
  h_[1] += b;
  h_[2] += c;
  h_[3] += d;
  h_[4] += e;
}

void Sha1::Update(const void *data, size_t size) noexcept {
  const uint8_t *in = static_cast<const uint8_t *>(data);
  length_ += size;
  if (used_ > 0) {
    size_t take = kBlockSize - used_ < size ? kBlockSize - used_ : size;
    memcpy(buffer_ + used_, in, take);
    used_ += take;
    in += take;
    size -= take;
    if (used_ < kBlockSize) return;
    Block(buffer_);
    used_ = 0;
  }
  for (; size >= kBlockSize; in += kBlockSize, size -= kBlockSize) Block(in);
  if (size > 0) memcpy(buffer_, in, size);
  used_ = size;
}

void Sha1::Final(uint8_t digest[kSha1DigestSize]) noexcept {
  uint64_t bitLength = length_ * 8;
  // Padding: a 1 bit, zeros up to 56 bytes into a block, the bit length.
  buffer_[used_++] = 0x80;
  if (used_ > kBlockSize - 8) {
    memset(buffer_ + used_, 0, kBlockSize - used_);
    Block(buffer_);
    used_ = 0;
  }
  memset(buffer_ + used_, 0, kBlockSize - 8 - used_);
  StoreBig32(buffer_ + 56, static_cast<uint32_t>(bitLength >> 32));
  StoreBig32(buffer_ + 60, static_cast<uint32_t>(bitLength));
  Block(buffer_);
  for (int i = 0; i < 5; ++i) StoreBig32(digest + 4 * i, h_[i]);
  // Ready for a new message.
  *this = Sha1();
}

void Sha1Digest(const void *data, size_t size, uint8_t digest[kSha1DigestSize]) noexcept {
  Sha1 sha;
  sha.Update(data, size);
  sha.Final(digest);
}

void Sha1Hex(const uint8_t digest[kSha1DigestSize], char out[2 * kSha1DigestSize + 1]) noexcept {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (size_t i = 0; i < kSha1DigestSize; ++i) {
    out[2 * i] = kDigits[digest[i] >> 4];
    out[2 * i + 1] = kDigits[digest[i] & 0xf];
  }
  out[2 * kSha1DigestSize] = '\0';
}

}  // namespace nxc
