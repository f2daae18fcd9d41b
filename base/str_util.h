// str_util.h - whole-string integer conversion, bounded and allocating
// formatted print, bounded copy, and the printable form of a null text.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string_view>

namespace nxc {

// Converts the whole text: optional '+' or '-' (signed forms only), then
// decimal digits or "0x"/"0X" and hexadecimal digits. No blanks, no
// trailing text, no overflow. On failure *out is untouched.
[[nodiscard]] bool StrToInt32(std::string_view text, int32_t *out) noexcept;
[[nodiscard]] bool StrToUint32(std::string_view text, uint32_t *out) noexcept;

// True when text holds a control character (a line break, a tab, any byte
// below 0x20, or DEL): text that cannot stay within one line of a file.
[[nodiscard]] bool HasControlChar(std::string_view text) noexcept;

// snprintf into buf; returns the length written, or -1 when the text did not
// fit (buf then holds a truncated, terminated text) or formatting failed.
int BoundedPrint(char *buf, size_t size, const char *format, ...) noexcept
    __attribute__((format(printf, 3, 4)));
// A malloc'd formatted text, or null when memory runs out.
char *AllocPrint(const char *format, ...) noexcept __attribute__((format(printf, 1, 2)));

// True when both texts are null or both hold the same bytes.
[[nodiscard]] inline bool SameText(const char *a, const char *b) noexcept {
  return a && b ? strcmp(a, b) == 0 : a == b;
}

// The text for a "%s" of a log line, "null" for a null pointer.
inline const char *OrNull(const char *text) noexcept { return text ? text : "null"; }

// Copies src into dst (size > 0), truncating and always terminating. Returns
// strlen(src): the copy was whole when the result is below size.
size_t BoundedCopy(char *dst, size_t size, const char *src) noexcept;

}  // namespace nxc
