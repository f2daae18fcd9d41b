// sha1.cpp - SHA-1 (FIPS 180).
#include "base/sha1.h"

#include <string.h>

#include <atomic>
#include <utility>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

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

// The portable rounds, one 64-byte block after the other.
void PortableBlocks(uint32_t h[5], const uint8_t *data, size_t count) noexcept {
  for (; count > 0; --count, data += kBlockSize) {
    uint32_t w[80];
    for (int t = 0; t < 16; ++t) w[t] = LoadBig32(data + 4 * t);
    for (int t = 16; t < 80; ++t) w[t] = Rotl(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1);

    uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
    // The four rounds of twenty steps each, as separate loops so that no
    // step chooses its function.
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
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
    h[4] += e;
  }
}

#if defined(__x86_64__)

#define NXC_SHA_TARGET __attribute__((target("sha,sse4.1")))

// Four of the eighty steps with the CPU's SHA instructions. Each group
// consumes the four schedule words in m[G % 4] and, while they are in
// flight, advances the schedule words of the groups G + 1 to G + 3 that
// share the other three registers.
template <int G>
NXC_SHA_TARGET inline void ShaNiGroup(__m128i &abcd, __m128i (&e)[2], __m128i (&m)[4],
                                      const uint8_t *data) noexcept {
  const __m128i kByteSwap = _mm_set_epi64x(0x0001020304050607LL, 0x08090a0b0c0d0e0fLL);
  if constexpr (G < 4) {
    m[G] = _mm_shuffle_epi8(
        _mm_loadu_si128(reinterpret_cast<const __m128i *>(data + 16 * G)), kByteSwap);
  }
  __m128i &current = e[G % 2];
  if constexpr (G == 0) {
    current = _mm_add_epi32(current, m[0]);
  } else {
    current = _mm_sha1nexte_epu32(current, m[G % 4]);
  }
  e[(G + 1) % 2] = abcd;
  if constexpr (G >= 3 && G <= 18) m[(G + 1) % 4] = _mm_sha1msg2_epu32(m[(G + 1) % 4], m[G % 4]);
  abcd = _mm_sha1rnds4_epu32(abcd, current, G / 5);
  if constexpr (G >= 1 && G <= 16) m[(G + 3) % 4] = _mm_sha1msg1_epu32(m[(G + 3) % 4], m[G % 4]);
  if constexpr (G >= 2 && G <= 17) m[(G + 2) % 4] = _mm_xor_si128(m[(G + 2) % 4], m[G % 4]);
}

// The state of one message as the instructions keep it: a, b, c, d in one
// register, a in the top lane, and e in the top lane of another.
struct ShaNiState {
  __m128i abcd, e0;
};

NXC_SHA_TARGET inline ShaNiState ShaNiLoad(const uint32_t h[5]) noexcept {
  return {_mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(h)), 0x1B),
          _mm_set_epi32(static_cast<int>(h[4]), 0, 0, 0)};
}

NXC_SHA_TARGET inline void ShaNiStore(const ShaNiState &s, uint32_t h[5]) noexcept {
  _mm_storeu_si128(reinterpret_cast<__m128i *>(h), _mm_shuffle_epi32(s.abcd, 0x1B));
  h[4] = static_cast<uint32_t>(_mm_extract_epi32(s.e0, 3));
}

// The lanes of N messages: the state between blocks and the schedule
// registers within one.
template <size_t N>
struct ShaNiLanes {
  ShaNiState s[N];
  __m128i e[N][2], m[N][4];
  const uint8_t *in[N];
};

// Group G of the steps of the current block, message after message.
template <int G, size_t N>
NXC_SHA_TARGET inline void ShaNiGroupEach(ShaNiLanes<N> &l) noexcept {
#pragma GCC unroll 2
  for (size_t i = 0; i < N; ++i) ShaNiGroup<G>(l.s[i].abcd, l.e[i], l.m[i], l.in[i]);
}

// The eighty steps of one block of each message, the two interleaved group
// by group so that each fills the other's waits.
template <size_t N, int... G>
NXC_SHA_TARGET inline void ShaNiBlock(ShaNiLanes<N> &l, std::integer_sequence<int, G...>) noexcept {
  ShaNiState before[N];
#pragma GCC unroll 2
  for (size_t i = 0; i < N; ++i) {
    before[i] = l.s[i];
    l.e[i][0] = l.s[i].e0;
    l.e[i][1] = _mm_setzero_si128();
  }
  (ShaNiGroupEach<G>(l), ...);
#pragma GCC unroll 2
  for (size_t i = 0; i < N; ++i) {
    // Group 19 left the last a in e[0]; it becomes e of the next block.
    l.s[i].e0 = _mm_sha1nexte_epu32(l.e[i][0], before[i].e0);
    l.s[i].abcd = _mm_add_epi32(l.s[i].abcd, before[i].abcd);
  }
}

NXC_SHA_TARGET void ShaNiBlocks(uint32_t h[5], const uint8_t *data, size_t count) noexcept {
  ShaNiLanes<1> l;
  l.s[0] = ShaNiLoad(h);
  for (l.in[0] = data; count > 0; --count, l.in[0] += kBlockSize)
    ShaNiBlock(l, std::make_integer_sequence<int, 20>());
  ShaNiStore(l.s[0], h);
}

NXC_SHA_TARGET void ShaNiBlocksBoth(uint32_t ha[5], const uint8_t *a, uint32_t hb[5],
                                    const uint8_t *b, size_t count) noexcept {
  ShaNiLanes<2> l;
  l.s[0] = ShaNiLoad(ha);
  l.s[1] = ShaNiLoad(hb);
  l.in[0] = a;
  l.in[1] = b;
  for (; count > 0; --count, l.in[0] += kBlockSize, l.in[1] += kBlockSize)
    ShaNiBlock(l, std::make_integer_sequence<int, 20>());
  ShaNiStore(l.s[0], ha);
  ShaNiStore(l.s[1], hb);
}

// SHA instructions (leaf 7, EBX bit 29) with the SSSE3 and SSE4.1 that the
// rounds above use besides them (leaf 1, ECX bits 9 and 19).
bool CpuHasSha() noexcept {
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
  if (!(c & (1u << 9)) || !(c & (1u << 19))) return false;
  if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return false;
  return (b & (1u << 29)) != 0;
}

#else

bool CpuHasSha() noexcept { return false; }
void ShaNiBlocks(uint32_t h[5], const uint8_t *data, size_t count) noexcept {
  PortableBlocks(h, data, count);
}
void ShaNiBlocksBoth(uint32_t ha[5], const uint8_t *a, uint32_t hb[5], const uint8_t *b,
                     size_t count) noexcept {
  PortableBlocks(ha, a, count);
  PortableBlocks(hb, b, count);
}

#endif

using BlocksFunction = void (*)(uint32_t h[5], const uint8_t *data, size_t count) noexcept;

// The processor is asked once, on first use and not when the library
// loads: most processes that load it never compute a digest.
bool HasSha() noexcept {
  static const bool has = CpuHasSha();
  return has;
}

// The block function in use; null until the first use decides it.
std::atomic<BlocksFunction> gBlocks{nullptr};

BlocksFunction CurrentBlocks() noexcept {
  BlocksFunction blocks = gBlocks.load(std::memory_order_relaxed);
  if (blocks) return blocks;
  // A choice made meanwhile by Sha1UseCpuInstructions stands.
  BlocksFunction detected = HasSha() ? ShaNiBlocks : PortableBlocks;
  return gBlocks.compare_exchange_strong(blocks, detected, std::memory_order_relaxed) ? detected
                                                                                     : blocks;
}

}  // namespace

bool Sha1UseCpuInstructions(bool use) noexcept {
  gBlocks.store(use && HasSha() ? ShaNiBlocks : PortableBlocks, std::memory_order_relaxed);
  return Sha1UsesCpuInstructions();
}

bool Sha1UsesCpuInstructions() noexcept { return CurrentBlocks() == ShaNiBlocks; }

Sha1::Sha1() noexcept : h_{0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u} {}

void Sha1::Blocks(const uint8_t *data, size_t count) noexcept {
  CurrentBlocks()(h_, data, count);
}

void Sha1UpdateBoth(Sha1 *a, const void *aData, Sha1 *b, const void *bData, size_t size) noexcept {
  // Side by side only from block boundaries on; the rest goes one by one.
  const size_t together = a->used_ == 0 && b->used_ == 0 ? size / kBlockSize * kBlockSize : 0;
  const uint8_t *aIn = static_cast<const uint8_t *>(aData);
  const uint8_t *bIn = static_cast<const uint8_t *>(bData);
  if (together > 0) {
    if (Sha1UsesCpuInstructions()) {
      ShaNiBlocksBoth(a->h_, aIn, b->h_, bIn, together / kBlockSize);
    } else {
      PortableBlocks(a->h_, aIn, together / kBlockSize);
      PortableBlocks(b->h_, bIn, together / kBlockSize);
    }
    a->length_ += together;
    b->length_ += together;
  }
  if (size == together) return;
  a->Update(aIn + together, size - together);
  b->Update(bIn + together, size - together);
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
    Blocks(buffer_, 1);
    used_ = 0;
  }
  const size_t whole = size / kBlockSize;
  if (whole > 0) Blocks(in, whole);
  in += whole * kBlockSize;
  size -= whole * kBlockSize;
  if (size > 0) memcpy(buffer_, in, size);
  used_ = size;
}

void Sha1::Final(uint8_t digest[kSha1DigestSize]) noexcept {
  uint64_t bitLength = length_ * 8;
  // Padding: a 1 bit, zeros up to 56 bytes into a block, the bit length.
  buffer_[used_++] = 0x80;
  if (used_ > kBlockSize - 8) {
    memset(buffer_ + used_, 0, kBlockSize - used_);
    Blocks(buffer_, 1);
    used_ = 0;
  }
  memset(buffer_ + used_, 0, kBlockSize - 8 - used_);
  StoreBig32(buffer_ + 56, static_cast<uint32_t>(bitLength >> 32));
  StoreBig32(buffer_ + 60, static_cast<uint32_t>(bitLength));
  Blocks(buffer_, 1);
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
