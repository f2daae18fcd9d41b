// address.cpp - conversions and validators for IPv4 addresses and masks,
// MAC addresses, IPv6 prefixes, vnet names and network identifiers.
//
// Every layer that reads or writes an address goes through these, so what
// they accept is what the whole library accepts. They are pure: no state,
// nothing read from the database; a rejection is only logged, as every
// layer logs. IPv4 addresses in integer form are host-order words whose top
// byte is the first dotted component.
#include "base/address.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <array>
#include <cstddef>

#include "base/str_util.h"
#include "base/text_sizes.h"
#include "nexcfg_internal.h"

static_assert(sizeof(NXC_NetID) == 28);
static_assert(offsetof(NXC_NetID, version) == 0);
static_assert(offsetof(NXC_NetID, type) == 4);
static_assert(offsetof(NXC_NetID, vnet) == 8);

using nxc::kIPTextSize;
using nxc::kMACTextSize;
using nxc::kVnetNameSize;

namespace {

constexpr char kVnetPrefix[] = "zynet";
constexpr uint32_t kMaxVnet = NXC_NUM_VNETS - 1;
constexpr uint32_t kSmallestMask = 0xFFFFFFF8u;  // a /29: 8 addresses
constexpr long kMinPrefixBits = 32;
constexpr long kMaxPrefixBits = 96;

// The value of each character as a hex digit, -1 for a non-digit.
constexpr auto kHexValues = [] {
  std::array<int8_t, 256> values{};
  for (int c = 0; c < 256; ++c) {
    values[c] = static_cast<int8_t>(c >= '0' && c <= '9'   ? c - '0'
                                    : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                    : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                           : -1);
  }
  return values;
}();

int HexDigit(char c) { return kHexValues[static_cast<unsigned char>(c)]; }

// The form every writer gives a MAC, six octets of two digits: true, with
// the octets, for exactly that text. Anything else is for ScanMACOctets.
bool ScanWrittenMAC(const char *p, unsigned (&octets)[6]) {
  for (int i = 0; i < 6; ++i, p += 3) {
    const int high = HexDigit(p[0]);
    if (high < 0) return false;
    const int low = HexDigit(p[1]);
    if (low < 0 || p[2] != (i < 5 ? ':' : '\0')) return false;
    octets[i] = static_cast<unsigned>(high * 16 + low);
  }
  return true;
}

// Reads six colon-separated octets of one or two hex digits each, and
// nothing else: no blank, sign or "0x" gets in. Returns the count the way a
// scan with a trailing "%c" counts: the octets read before the first
// mismatch, 7 when text follows the sixth, -1 for an empty text.
int ScanMACOctets(const char *p, unsigned (&octets)[6]) {
  if (*p == '\0') return -1;
  for (int count = 0; count < 6; ++count) {
    if (count > 0 && *p++ != ':') return count;
    unsigned value = 0;
    int digits = 0;
    for (int d; digits < 2 && (d = HexDigit(*p)) >= 0; ++digits, ++p)
      value = value * 16 + static_cast<unsigned>(d);
    if (digits == 0) return count;
    octets[count] = value;
  }
  return *p == '\0' ? 6 : 7;
}

// Reads "A.B.C.D" the way a scan of "%3u.%3u.%3u.%3u" with a trailing
// "%c" accepts it: each number may follow blanks and carry a sign, takes at
// most three characters sign included, and nothing may follow the fourth.
// A negative number wraps as an unsigned conversion does (and is then out
// of range). False when the text does not have that form.
bool ScanDottedQuad(const char *p, unsigned (&octets)[4]) {
  for (int i = 0; i < 4; ++i) {
    if (i > 0 && *p++ != '.') return false;
    while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
    int width = 3;
    bool negative = false;
    if (*p == '+' || *p == '-') {
      negative = *p++ == '-';
      --width;
    }
    unsigned value = 0;
    int digits = 0;
    for (; digits < width && *p >= '0' && *p <= '9'; ++digits) value = value * 10 + unsigned(*p++ - '0');
    if (digits == 0) return false;
    octets[i] = negative ? 0u - value : value;
  }
  return *p == '\0';
}

// The form every writer gives an address, "A.B.C.D" of one to three digits
// each and nothing else: true, with the numbers, for exactly that text.
// Anything else is for ScanDottedQuad, which takes this form the same way.
bool ScanWrittenDottedQuad(const char *p, unsigned (&octets)[4]) {
  auto digit = [](char c) { return static_cast<unsigned>(static_cast<unsigned char>(c)) - '0'; };
  for (int i = 0; i < 4; ++i) {
    unsigned value = digit(*p);
    if (value > 9) return false;
    for (int digits = 1; digits < 3 && digit(p[1]) <= 9; ++digits) value = value * 10 + digit(*++p);
    if (*++p != (i < 3 ? '.' : '\0')) return false;
    ++p;
    octets[i] = value;
  }
  return true;
}

}  // namespace

namespace nxc {

uint32_t IPOrZero(const char *text) noexcept {
  uint32_t address = 0;
  (void)NXCIPStr2Int(text, &address);
  return address;
}

}  // namespace nxc

using nxc::IPOrZero;

extern "C" bool NXCIPStr2Int(const char *text, uint32_t *address) noexcept {
  static constexpr char kFn[] = "NXCIPStr2Int";
  unsigned octets[4] = {};
  if (!text || !(ScanWrittenDottedQuad(text, octets) || ScanDottedQuad(text, octets))) {
    NXCLog(LOG_ERR, kFn, "sscanf failed");
    return false;
  }
  const unsigned a = octets[0], b = octets[1], c = octets[2], d = octets[3];
  if (a > 255 || b > 255 || c > 255 || d > 255) {
    NXCLog(LOG_ERR, kFn, "Invalid values: %u, %u, %u, %u", a, b, c, d);
    return false;
  }
  if (address) *address = a << 24 | b << 16 | c << 8 | d;
  return true;
}

extern "C" bool NXCIPInt2Str(uint32_t address, char *buffer) noexcept {
  if (!buffer) return true;
  (void)snprintf(buffer, kIPTextSize, "%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFF,
                 (address >> 8) & 0xFF, address & 0xFF);
  return true;
}

extern "C" bool NXCIsValidIP(const char *text) noexcept {
  uint32_t scratch = 0;
  return NXCIPStr2Int(text, &scratch);
}

extern "C" bool NXCIsValidSubnetMask(const char *mask) noexcept {
  static constexpr char kFn[] = "NXCIsValidSubnetMask";
  uint32_t value = 0;
  if (!NXCIPStr2Int(mask, &value)) {
    NXCLog(LOG_ERR, kFn, "Could not convert mask to integer: %s", nxc::OrNull(mask));
    return false;
  }
  if (value == 0 || value > kSmallestMask) {
    NXCLog(LOG_ERR, kFn, "The subnet is too small, we need at least 8 hosts");
    return false;
  }
  for (int shifts = 0; shifts < 32 && (value & 1) == 0; ++shifts) value >>= 1;
  if (((value + 1) & value) != 0) {
    NXCLog(LOG_ERR, kFn, "Mask is not a contiguous string of 1s: %x", value);
    return false;
  }
  return true;
}

extern "C" bool NXCMACStandardizeFormat(const char *text, char *buffer) noexcept {
  static constexpr char kFn[] = "NXCMACStandardizeFormat";
  unsigned b[6] = {};
  int scanned = !text ? -1 : ScanWrittenMAC(text, b) ? 6 : ScanMACOctets(text, b);
  if (scanned != 6) {
    NXCLog(LOG_ERR, kFn, "sscanf failed, scanned %d elements", scanned);
    return false;
  }
  if (buffer) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    for (int i = 0; i < 6; ++i) {
      buffer[3 * i] = kHex[b[i] >> 4];
      buffer[3 * i + 1] = kHex[b[i] & 0xF];
      buffer[3 * i + 2] = i < 5 ? ':' : '\0';
    }
  }
  return true;
}

extern "C" bool NXCIsValidMACAddr(const char *text) noexcept {
  char scratch[kMACTextSize];
  return NXCMACStandardizeFormat(text, scratch);
}

extern "C" bool NXCIsValidPrefix(const char *prefix) noexcept {
  static constexpr char kFn[] = "NXCIsValidPrefix";
  const char *slash = prefix ? strchr(prefix, '/') : nullptr;
  if (!slash) return false;
  // Only the length is checked; the address before the slash is not.
  long bits = strtol(slash + 1, nullptr, 10);
  if (bits < kMinPrefixBits || bits > kMaxPrefixBits) {
    NXCLog(LOG_ERR, kFn, "Non valid prefix");
    return false;
  }
  return true;
}

extern "C" bool NXCIsPrefixMatch(const uint8_t *prefixA, uint32_t bitsA, const uint8_t *prefixB,
                                 uint32_t bitsB) noexcept {
  static constexpr char kFn[] = "NXCIsPrefixMatch";
  bool match = bitsA == bitsB && prefixA && prefixB;
  if (match) {
    uint32_t whole = bitsA / 8;
    uint32_t rest = bitsA % 8;
    match = memcmp(prefixA, prefixB, whole) == 0;
    if (match && rest != 0)
      match = (prefixA[whole] >> (8 - rest)) == (prefixB[whole] >> (8 - rest));
  }
  if (!match) NXCLog(LOG_ERR, kFn, "Prefix not match");
  return match;
}

extern "C" bool NXCValidateNetIDStruct(const NXC_NetID *netId) noexcept {
  static constexpr char kFn[] = "NXCValidateNetIDStruct";
  if (!netId) return false;
  if (netId->version != NXC_NETID_VERSION) {
    NXCLog(LOG_ERR, kFn, "Unsupported network ID version: %u", netId->version);
    return false;
  }
  if (netId->type != NXC_NETID_TYPE_VNET) {
    NXCLog(LOG_ERR, kFn, "Non vnet network not supported");
    return false;
  }
  // All ones is accepted; each caller gives it its own meaning.
  if (netId->vnet > kMaxVnet && netId->vnet != NXC_INVALID_VNET) {
    NXCLog(LOG_ERR, kFn, "Invalid vnet number: %d", (int)netId->vnet);
    return false;
  }
  return true;
}

extern "C" uint32_t NXCConvVnetNameToNum(const char *name) noexcept {
  constexpr size_t kPrefixLen = sizeof kVnetPrefix - 1;
  if (!name || strncasecmp(name, kVnetPrefix, kPrefixLen) != 0) return NXC_INVALID_VNET;
  const char *p = name + kPrefixLen;
  uint32_t value = 0;
  bool anyDigit = false;
  // Stops once the value is out of range, so long digit runs cannot wrap.
  for (; *p >= '0' && *p <= '9' && value <= kMaxVnet; ++p) {
    value = value * 10 + (uint32_t)(*p - '0');
    anyDigit = true;
  }
  if (!anyDigit || *p != '\0' || value > kMaxVnet) return NXC_INVALID_VNET;
  return value;
}

extern "C" bool NXCConvVnetNumToName(uint32_t vnet, char *buffer) noexcept {
  if (vnet > kMaxVnet || !buffer) return false;
  return nxc::BoundedPrint(buffer, kVnetNameSize, "%s%d", kVnetPrefix, (int)vnet) >= 0;
}

extern "C" bool NXCGetBcastAddr(const char *subnet, const char *mask, char *buffer) noexcept {
  static constexpr char kFn[] = "NXCGetBcastAddr";
  if (!subnet || !mask || !buffer) {
    NXCLog(LOG_ERR, kFn, "Invalid arguments");
    return false;
  }
  return NXCIPInt2Str(IPOrZero(subnet) | ~IPOrZero(mask), buffer);
}

extern "C" bool NXCCalcVirtAdapAddr(const char *subnet, char *buffer) noexcept {
  if (!buffer) return false;
  return NXCIPInt2Str(IPOrZero(subnet) + 1, buffer);
}
