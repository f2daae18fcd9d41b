// address.h - the forms nexcfg accepts for addresses, masks, subnets, MAC
// addresses, NAT66 prefixes and free text, checked strictly before anything
// reaches the library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace nexcfg {

// An IPv4 address in its one canonical text: four decimal numbers 0-255
// without leading zeros or blanks ("192.168.56.0").
std::optional<uint32_t> ParseIPv4(const std::string &text);
std::string IPv4Text(uint32_t address);
// What a text that is not canonical was probably meant to be ("010.3.0.0"
// and " 10.2.0.0" give "10.3.0.0" and "10.2.0.0"), or "" when nothing.
std::string IPv4Suggestion(const std::string &text);

// A mask as the library takes it: contiguous ones, from /1 to /29 (at
// least 8 addresses).
constexpr int kLongestPrefix = 29;
std::optional<uint32_t> ParseMask(const std::string &text);
uint32_t MaskOfLength(int bits);
int MaskLength(uint32_t mask);

// An IPv4 network: its address and mask.
struct Subnet {
  uint32_t address = 0;
  uint32_t mask = 0;
  bool operator==(const Subnet &) const = default;
  uint32_t Network() const { return address & mask; }
  uint32_t Broadcast() const { return Network() | ~mask; }
  bool HasHostBits() const { return (address & ~mask) != 0; }
  bool Contains(uint32_t a) const { return (a & mask) == Network(); }
  // Inside and neither the network nor the broadcast address.
  bool IsHost(uint32_t a) const { return Contains(a) && a != Network() && a != Broadcast(); }
  bool Overlaps(const Subnet &other) const;
  // "192.168.56.0/24"
  std::string Text() const;
  // "192.168.56.1 to 192.168.56.254"
  std::string HostRange() const;
};
// "A.B.C.D/N" with N from 1 to 29.
std::optional<Subnet> ParseCidr(const std::string &text);

// An IPv6 prefix as the NAT66 service takes it: a canonical-enough IPv6
// address, "/" and a length from 32 to 96, with no bits set past the
// length.
constexpr int kShortestNat66Prefix = 32;
constexpr int kLongestNat66Prefix = 96;
bool IsNat66Prefix(const std::string &text, std::string *why);

// A MAC address: six bytes of one or two hex digits joined by colons, as
// "00:0C:29:0A:0B:01"; "" when the text is not one.
std::string CanonicalMac(const std::string &text);

// The reason text cannot be stored as it is (a line break or another
// control character, or more bytes than allowed), or "".
std::string TextProblem(const std::string &text, size_t maxBytes);

}  // namespace nexcfg
