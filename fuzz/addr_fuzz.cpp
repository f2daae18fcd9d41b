// Fuzz target: the address, mask, MAC, IPv6 prefix, network identifier and
// vnet name parsers over any text, with the properties the rest of the
// library relies on:
//   - a standardized MAC is canonical and standardizes to itself;
//   - an address printed and parsed again is the same number, whichever
//     way round;
//   - an accepted mask is one contiguous run of ones leaving room for 8
//     hosts;
//   - a vnet name and its number convert into each other;
//   - a prefix always matches itself, and matching is symmetric.
// The text is the input up to its first NUL; the first bytes also serve as
// numbers.
#include <ctype.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "fuzz_util.h"
#include "nexcfg_internal.h"

namespace {

uint32_t Word(const uint8_t *data, size_t size, size_t at) {
  uint32_t w = 0;
  for (size_t i = 0; i < 4; ++i) w = w << 8 | (at + i < size ? data[at + i] : 0);
  return w;
}

bool IsCanonicalMAC(const char *mac) {
  if (strlen(mac) != 17) return false;
  for (size_t i = 0; i < 17; ++i) {
    bool ok = i % 3 == 2 ? mac[i] == ':' : isxdigit(static_cast<unsigned char>(mac[i])) &&
                                               !islower(static_cast<unsigned char>(mac[i]));
    if (!ok) return false;
  }
  return true;
}

void CheckMAC(const char *text) {
  char mac[18];
  if (!NXCMACStandardizeFormat(text, mac)) {
    FUZZ_CHECK(!NXCIsValidMACAddr(text));
    return;
  }
  FUZZ_CHECK(NXCIsValidMACAddr(text));
  FUZZ_CHECK(IsCanonicalMAC(mac));
  char again[18];
  FUZZ_CHECK(NXCMACStandardizeFormat(mac, again));
  FUZZ_CHECK(strcmp(mac, again) == 0);
}

void CheckAddress(const char *text, uint32_t number) {
  char printed[16];
  uint32_t parsed = 0;
  FUZZ_CHECK(NXCIPInt2Str(number, printed));
  FUZZ_CHECK(NXCIPStr2Int(printed, &parsed) && parsed == number);

  uint32_t value = 0;
  if (!NXCIPStr2Int(text, &value)) {
    FUZZ_CHECK(!NXCIsValidIP(text) && !NXCIsValidSubnetMask(text));
    return;
  }
  FUZZ_CHECK(NXCIsValidIP(text));
  FUZZ_CHECK(NXCIPInt2Str(value, printed));
  FUZZ_CHECK(NXCIPStr2Int(printed, &parsed) && parsed == value);
  if (NXCIsValidSubnetMask(text)) {
    FUZZ_CHECK(value != 0 && value <= 0xFFFFFFF8u);
    uint32_t ones = value >> __builtin_ctz(value);
    FUZZ_CHECK((ones & (ones + 1)) == 0);
  }
  char derived[16];
  FUZZ_CHECK(NXCCalcVirtAdapAddr(text, derived) && NXCIsValidIP(derived));
  FUZZ_CHECK(NXCGetBcastAddr(text, printed, derived) && NXCIsValidIP(derived));
}

void CheckVnetName(const char *text, uint32_t number) {
  char name[20];
  uint32_t vnet = NXCConvVnetNameToNum(text);
  if (vnet != NXC_INVALID_VNET) {
    FUZZ_CHECK(vnet < NXC_NUM_VNETS);
    FUZZ_CHECK(NXCConvVnetNumToName(vnet, name) && NXCConvVnetNameToNum(name) == vnet);
  }
  bool named = NXCConvVnetNumToName(number, name);
  FUZZ_CHECK(named == (number < NXC_NUM_VNETS));
  FUZZ_CHECK(!named || NXCConvVnetNameToNum(name) == number);
}

void CheckPrefixes(const char *text, const uint8_t *data, size_t size) {
  (void)NXCIsValidPrefix(text);
  uint8_t a[16] = {}, b[16] = {};
  memcpy(a, data, size < 16 ? size : 16);
  if (size > 16) memcpy(b, data + 16, size - 16 < 16 ? size - 16 : 16);
  uint32_t bits = size > 0 ? data[0] % 129 : 0;
  FUZZ_CHECK(NXCIsPrefixMatch(a, bits, a, bits));
  FUZZ_CHECK(NXCIsPrefixMatch(a, bits, b, bits) == NXCIsPrefixMatch(b, bits, a, bits));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string text(reinterpret_cast<const char *>(data), size);
  const char *t = text.c_str();  // up to the first NUL
  uint32_t number = Word(data, size, 0);
  CheckMAC(t);
  CheckAddress(t, number);
  CheckVnetName(t, number);
  CheckPrefixes(t, data, size);
  NXC_NetID id = {Word(data, size, 0), Word(data, size, 4), Word(data, size, 8), {}};
  (void)NXCValidateNetIDStruct(&id);
  return 0;
}
