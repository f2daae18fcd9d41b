// byte_buffer.h - a growable byte buffer, always NUL-terminated.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string_view>

namespace nxc {

class ByteBuffer {
 public:
  ByteBuffer() = default;
  ByteBuffer(const ByteBuffer &) = delete;
  ByteBuffer &operator=(const ByteBuffer &) = delete;
  ~ByteBuffer();

  // Appends bytes; false (buffer unchanged) when memory runs out.
  [[nodiscard]] bool Append(const void *data, size_t size) noexcept;
  [[nodiscard]] bool AppendString(const char *text) noexcept;
  [[nodiscard]]
  bool AppendPrintf(const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));
  // The same with the arguments in a va_list, which it leaves unread (it
  // works on copies).
  [[nodiscard]]
  bool AppendVPrintf(const char *format, va_list args) noexcept __attribute__((format(printf, 2, 0)));
  // Appends the parts one after the other, without printf, all or
  // nothing: C strings, string views, characters, and unsigned numbers in
  // decimal.
  template <class... Parts>
  [[nodiscard]] bool AppendAll(const Parts &...parts) noexcept {
    return AppendParts(AsPart(parts)...);
  }
  // The bytes so far, followed by a NUL (a valid empty string when empty).
  const char *Data() const noexcept;
  size_t Size() const noexcept { return size_; }
  void Clear() noexcept { size_ = 0; if (data_) data_[0] = '\0'; }
  // Hands the malloc'd, NUL-terminated bytes to the caller (never null
  // unless memory runs out) and leaves the buffer empty.
  char *Release(size_t *size) noexcept;
  // Makes room for extra more bytes; false when memory runs out.
  [[nodiscard]] bool Reserve(size_t extra) noexcept;

 private:
  // A C string is measured once, as a view.
  static std::string_view AsPart(const char *text) noexcept { return text; }
  static std::string_view AsPart(std::string_view text) noexcept { return text; }
  static char AsPart(char c) noexcept { return c; }
  static unsigned AsPart(unsigned value) noexcept { return value; }
  template <class... Parts>
  [[nodiscard]] bool AppendParts(Parts... parts) noexcept {
    // Room for all of them at once: a number takes at most 10 digits.
    if (!Reserve((PartLength(parts) + ...))) return false;
    (PutPart(parts), ...);
    data_[size_] = '\0';
    return true;
  }
  static size_t PartLength(std::string_view text) noexcept { return text.size(); }
  static size_t PartLength(char) noexcept { return 1; }
  static size_t PartLength(unsigned) noexcept { return 10; }
  // Each puts its part at the end; the room is reserved.
  void PutPart(std::string_view text) noexcept {
    if (!text.empty()) memcpy(data_ + size_, text.data(), text.size());
    size_ += text.size();
  }
  void PutPart(char c) noexcept { data_[size_++] = c; }
  // The digits go straight to their place, two at a time from the last: copied
  // from a scratch array written a byte at a time, they would make the
  // copy's wider loads wait for those stores.
  void PutPart(unsigned value) noexcept {
    size_ += DigitCount(value);
    char *digit = data_ + size_;
    for (; value >= 100; value /= 100) {
      digit -= 2;
      memcpy(digit, kDigitPairs + 2 * (value % 100), 2);
    }
    if (value >= 10) {
      memcpy(digit - 2, kDigitPairs + 2 * value, 2);
    } else {
      digit[-1] = static_cast<char>('0' + value);
    }
  }
  static size_t DigitCount(unsigned value) noexcept {
    size_t n = 1;
    for (unsigned power = 10; n < 10 && value >= power; power *= 10) ++n;
    return n;
  }
  // "00" to "99", one after the other.
  static constexpr char kDigitPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  char *data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace nxc
