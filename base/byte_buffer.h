// byte_buffer.h - a growable byte buffer, always NUL-terminated.
#pragma once

#include <stddef.h>

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

  // The bytes so far, followed by a NUL (a valid empty string when empty).
  const char *Data() const noexcept;
  size_t Size() const noexcept { return size_; }
  void Clear() noexcept { size_ = 0; if (data_) data_[0] = '\0'; }
  // Hands the malloc'd, NUL-terminated bytes to the caller (never null
  // unless memory runs out) and leaves the buffer empty.
  char *Release(size_t *size) noexcept;

 private:
  [[nodiscard]] bool Reserve(size_t extra) noexcept;
  char *data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace nxc
