// address.cpp - strict forms of addresses, masks, subnets, MAC addresses,
// NAT66 prefixes and free text.
#include "address.h"

#include <arpa/inet.h>

#include <cctype>
#include <cstdio>
#include <vector>

namespace nexcfg {
namespace {

// The words of text between separators, or nothing when a word is empty.
std::vector<std::string> Split(const std::string &text, char separator) {
  std::vector<std::string> words(1);
  for (char c : text) {
    if (c == separator)
      words.emplace_back();
    else
      words.back().push_back(c);
  }
  return words;
}

bool AllDigits(const std::string &word) {
  if (word.empty()) return false;
  for (char c : word)
    if (!isdigit(static_cast<unsigned char>(c))) return false;
  return true;
}

}  // namespace

std::optional<uint32_t> ParseIPv4(const std::string &text) {
  // Four parts of one to three digits, no leading zero, each at most 255.
  uint32_t address = 0;
  size_t at = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0 && (at >= text.size() || text[at++] != '.')) return std::nullopt;
    size_t start = at;
    uint32_t value = 0;
    while (at < text.size() && at - start < 4 && text[at] >= '0' && text[at] <= '9')
      value = value * 10 + static_cast<uint32_t>(text[at++] - '0');
    size_t digits = at - start;
    if (digits == 0 || digits > 3 || (digits > 1 && text[start] == '0') || value > 255) return std::nullopt;
    address = address << 8 | value;
  }
  if (at != text.size()) return std::nullopt;
  return address;
}

std::string IPv4Text(uint32_t a) {
  char text[16];
  snprintf(text, sizeof text, "%u.%u.%u.%u", a >> 24, (a >> 16) & 0xFF, (a >> 8) & 0xFF, a & 0xFF);
  return text;
}

std::string IPv4Suggestion(const std::string &text) {
  std::string trimmed;
  for (char c : text)
    if (!isspace(static_cast<unsigned char>(c))) trimmed.push_back(c);
  auto parts = Split(trimmed, '.');
  if (parts.size() != 4) return "";
  uint32_t address = 0;
  for (auto &part : parts) {
    size_t first = part.find_first_not_of('0');
    part = first == std::string::npos ? "0" : part.substr(first);
    if (!AllDigits(part) || part.size() > 3 || std::stoi(part) > 255) return "";
    address = address << 8 | static_cast<uint32_t>(std::stoi(part));
  }
  return IPv4Text(address);
}

uint32_t MaskOfLength(int bits) { return bits <= 0 ? 0 : ~0u << (32 - bits); }

int MaskLength(uint32_t mask) {
  int bits = 0;
  while (bits < 32 && (mask & (0x80000000u >> bits))) ++bits;
  return bits;
}

std::optional<uint32_t> ParseMask(const std::string &text) {
  auto mask = ParseIPv4(text);
  if (!mask) return std::nullopt;
  int bits = MaskLength(*mask);
  if (*mask != MaskOfLength(bits) || bits < 1 || bits > kLongestPrefix) return std::nullopt;
  return mask;
}

bool Subnet::Overlaps(const Subnet &other) const {
  uint32_t common = mask & other.mask;
  return (Network() & common) == (other.Network() & common);
}

std::string Subnet::Text() const { return IPv4Text(address) + "/" + std::to_string(MaskLength(mask)); }

std::string Subnet::HostRange() const { return IPv4Text(Network() + 1) + " to " + IPv4Text(Broadcast() - 1); }

std::optional<Subnet> ParseCidr(const std::string &text) {
  size_t slash = text.find('/');
  if (slash == std::string::npos) return std::nullopt;
  auto address = ParseIPv4(text.substr(0, slash));
  std::string length = text.substr(slash + 1);
  if (!address || !AllDigits(length) || length.size() > 2) return std::nullopt;
  int bits = std::stoi(length);
  if (bits < 1 || bits > kLongestPrefix) return std::nullopt;
  return Subnet{*address, MaskOfLength(bits)};
}

bool IsNat66Prefix(const std::string &text, std::string *why) {
  size_t slash = text.find('/');
  unsigned char bytes[16];
  std::string length = slash == std::string::npos ? "" : text.substr(slash + 1);
  if (slash == std::string::npos || inet_pton(AF_INET6, text.substr(0, slash).c_str(), bytes) != 1 ||
      !AllDigits(length) || length.size() > 3) {
    *why = "is not an IPv6 prefix (address/length)";
    return false;
  }
  int bits = std::stoi(length);
  if (bits < kShortestNat66Prefix || bits > kLongestNat66Prefix) {
    *why = "has a length outside " + std::to_string(kShortestNat66Prefix) + " to " +
           std::to_string(kLongestNat66Prefix);
    return false;
  }
  for (int bit = bits; bit < 128; ++bit) {
    if (bytes[bit / 8] & (0x80 >> (bit % 8))) {
      *why = "has address bits set past its length";
      return false;
    }
  }
  return true;
}

std::string CanonicalMac(const std::string &text) {
  auto parts = Split(text, ':');
  if (parts.size() != 6) return "";
  std::string mac;
  for (const auto &part : parts) {
    if (part.empty() || part.size() > 2) return "";
    for (char c : part)
      if (!isxdigit(static_cast<unsigned char>(c))) return "";
    char byte[4];
    snprintf(byte, sizeof byte, "%02X", static_cast<unsigned>(std::stoul(part, nullptr, 16)));
    mac += (mac.empty() ? "" : ":") + std::string(byte);
  }
  return mac;
}

std::string TextProblem(const std::string &text, size_t maxBytes) {
  for (unsigned char c : text)
    if (c < 0x20 || c == 0x7F) return "holds a line break or another control character";
  if (text.size() > maxBytes) return "is longer than " + std::to_string(maxBytes) + " bytes";
  return "";
}

}  // namespace nexcfg
