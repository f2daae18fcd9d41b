// str_util.cpp - whole-string integer conversion, bounded and allocating
// formatted print, bounded copy.
#include "base/str_util.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace nxc {

namespace {

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 16;
}

// Reads the unsigned part: decimal digits, or "0x"/"0X" and hexadecimal
// digits, up to the end of text. False when a character is not a digit of
// the base, when there are no digits, or when the value exceeds limit.
[[nodiscard]] bool ParseMagnitude(std::string_view text, uint64_t limit, uint64_t *out) {
  unsigned base = 10;
  if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty()) return false;
  uint64_t value = 0;
  for (char c : text) {
    unsigned digit = static_cast<unsigned>(DigitValue(c));
    if (digit >= base) return false;
    // Overflow is checked by the multiplication itself: a division per
    // digit made this the costliest step of reading a number.
    if (__builtin_mul_overflow(value, base, &value) || __builtin_add_overflow(value, digit, &value) ||
        value > limit)
      return false;
  }
  *out = value;
  return true;
}

// A signed conversion within [-negLimit, posLimit]; negLimit is the
// magnitude of the type's minimum.
[[nodiscard]]
bool ParseSigned(std::string_view text, uint64_t posLimit, uint64_t negLimit, int64_t *out) {
  bool negative = false;
  if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
    negative = text[0] == '-';
    text.remove_prefix(1);
  }
  uint64_t magnitude = 0;
  if (!ParseMagnitude(text, negative ? negLimit : posLimit, &magnitude)) return false;
  if (!negative) {
    *out = static_cast<int64_t>(magnitude);
    return true;
  }
  // -(2^63) has no positive counterpart: negate in unsigned arithmetic.
  *out = static_cast<int64_t>(0 - magnitude);
  return true;
}

}  // namespace

[[nodiscard]] bool StrToInt32(std::string_view text, int32_t *out) noexcept {
  int64_t value = 0;
  if (!ParseSigned(text, INT32_MAX, uint64_t{1} << 31, &value)) return false;
  *out = static_cast<int32_t>(value);
  return true;
}

[[nodiscard]] bool StrToUint32(std::string_view text, uint32_t *out) noexcept {
  // Nine decimal digits or fewer, the usual case, cannot exceed the limit:
  // read without the checks per digit. Anything else takes the full way.
  if (!text.empty() && text.size() <= 9) {
    uint32_t decimal = 0;
    size_t i = 0;
    for (unsigned digit; i < text.size() && (digit = static_cast<unsigned char>(text[i]) - unsigned{'0'}) <= 9; ++i)
      decimal = decimal * 10 + digit;
    if (i == text.size()) {
      *out = decimal;
      return true;
    }
  }
  uint64_t value = 0;
  if (!ParseMagnitude(text, UINT32_MAX, &value)) return false;
  *out = static_cast<uint32_t>(value);
  return true;
}

int BoundedPrint(char *buf, size_t size, const char *format, ...) noexcept {
  va_list args;
  va_start(args, format);
  int n = vsnprintf(buf, size, format, args);
  va_end(args);
  if (n < 0) {
    if (size > 0) buf[0] = '\0';
    return -1;
  }
  if (static_cast<size_t>(n) >= size) return -1;
  return n;
}

char *AllocPrint(const char *format, ...) noexcept {
  va_list args;
  va_start(args, format);
  char *text = nullptr;
  int n = vasprintf(&text, format, args);
  va_end(args);
  if (n < 0) return nullptr;
  return text;
}

[[nodiscard]] bool HasControlChar(std::string_view text) noexcept {
  for (char c : text) {
    auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) return true;
  }
  return false;
}

size_t BoundedCopy(char *dst, size_t size, const char *src) noexcept {
  size_t length = strlen(src);
  if (size == 0) return length;
  size_t copied = length < size ? length : size - 1;
  memcpy(dst, src, copied);
  dst[copied] = '\0';
  return length;
}

}  // namespace nxc
