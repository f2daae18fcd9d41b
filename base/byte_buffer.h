// byte_buffer.h - a growable byte buffer, always NUL-terminated.
#pragma once

#include <stddef.h>
#include <stdint.h>

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
  // A number in decimal, without printf.
  [[nodiscard]] bool AppendUnsigned(uint64_t value) noexcept;
  // Appends the texts one after the other, all or nothing. Each is a C
  // string, or a number in decimal when given as an unsigned integer.
  template <class... Parts>
  [[nodiscard]] bool AppendAll(const Parts &...parts) noexcept {
    size_t before = size_;
    if ((AppendPart(parts) && ...)) return true;
    Truncate(before);
    return false;
  }
  // Cuts the bytes back to the first size ones (no-op when shorter).
  void Truncate(size_t size) noexcept {
    if (size < size_) {
      size_ = size;
      data_[size_] = '\0';
    }
  }
  [[nodiscard]]
  bool AppendPrintf(const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

  // The bytes so far, followed by a NUL (a valid empty string when empty).
  const char *Data() const noexcept;
  size_t Size() const noexcept { return size_; }
  void Clear() noexcept { size_ = 0; if (data_) data_[0] = '\0'; }
  // Hands the malloc'd, NUL-terminated bytes to the caller (never null
  // unless memory runs out) and leaves the buffer empty.
  char *Release(size_t *size) noexcept;

 private:
  [[nodiscard]] bool Reserve(size_t extra) noexcept;
  [[nodiscard]] bool AppendPart(const char *text) noexcept { return AppendString(text); }
  [[nodiscard]] bool AppendPart(std::string_view text) noexcept {
    return Append(text.data(), text.size());
  }
  [[nodiscard]] bool AppendPart(char c) noexcept { return Append(&c, 1); }
  [[nodiscard]] bool AppendPart(unsigned value) noexcept { return AppendUnsigned(value); }
  char *data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace nxc
