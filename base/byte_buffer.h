// byte_buffer.h - a growable byte buffer, always NUL-terminated.
#pragma once

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
  // Appends the parts one after the other, without printf, all or
  // nothing: C strings, string views, characters, and unsigned numbers in
  // decimal.
  template <class... Parts>
  [[nodiscard]] bool AppendAll(const Parts &...parts) noexcept {
    // Room for all of them at once: a number takes at most 10 digits.
    if (!Reserve((PartLength(parts) + ...))) return false;
    (PutPart(parts), ...);
    data_[size_] = '\0';
    return true;
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
  static size_t PartLength(const char *text) noexcept { return strlen(text); }
  static size_t PartLength(std::string_view text) noexcept { return text.size(); }
  static size_t PartLength(char) noexcept { return 1; }
  static size_t PartLength(unsigned) noexcept { return 10; }
  // Each puts its part at the end; the room is reserved.
  void PutPart(const char *text) noexcept { PutPart(std::string_view(text)); }
  void PutPart(std::string_view text) noexcept {
    if (!text.empty()) memcpy(data_ + size_, text.data(), text.size());
    size_ += text.size();
  }
  void PutPart(char c) noexcept { data_[size_++] = c; }
  // The digits go straight to their place: copied from a scratch array
  // written a byte at a time, they would make the copy's wider loads wait
  // for those stores.
  void PutPart(unsigned value) noexcept {
    size_t n = 1;
    for (unsigned rest = value; rest >= 10; rest /= 10) ++n;
    size_ += n;
    char *digit = data_ + size_;
    do {
      *--digit = static_cast<char>('0' + value % 10);
      value /= 10;
    } while (value != 0);
  }
  char *data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace nxc
