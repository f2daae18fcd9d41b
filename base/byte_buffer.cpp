// byte_buffer.cpp - a growable byte buffer, always NUL-terminated.
#include "base/byte_buffer.h"

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace nxc {

namespace {

// Enough for a change's records and most lines in one allocation.
constexpr size_t kMinCapacity = 256;

}  // namespace

ByteBuffer::~ByteBuffer() { free(data_); }

// Makes room for extra more bytes plus the terminating NUL.
bool ByteBuffer::Reserve(size_t extra) noexcept {
  if (extra > SIZE_MAX - size_ - 1) return false;
  size_t needed = size_ + extra + 1;
  if (needed <= capacity_) return true;
  size_t capacity = capacity_ ? capacity_ : kMinCapacity;
  while (capacity < needed) capacity = capacity > SIZE_MAX / 2 ? needed : capacity * 2;
  char *data = static_cast<char *>(realloc(data_, capacity));
  if (!data) return false;
  data_ = data;
  capacity_ = capacity;
  return true;
}

bool ByteBuffer::Append(const void *data, size_t size) noexcept {
  if (!Reserve(size)) return false;
  if (size > 0) memcpy(data_ + size_, data, size);
  size_ += size;
  data_[size_] = '\0';
  return true;
}

bool ByteBuffer::AppendString(const char *text) noexcept { return Append(text, strlen(text)); }

bool ByteBuffer::AppendPrintf(const char *format, ...) noexcept {
  va_list args;
  va_start(args, format);
  const bool ok = AppendVPrintf(format, args);
  va_end(args);
  return ok;
}

bool ByteBuffer::AppendVPrintf(const char *format, va_list args) noexcept {
  va_list first, again;
  va_copy(first, args);
  va_copy(again, args);
  // Straight into the spare room when the text fits there; measured and
  // formatted again into a larger buffer when it does not.
  size_t room = capacity_ - size_;
  int n = vsnprintf(data_ ? data_ + size_ : nullptr, data_ ? room : 0, format, first);
  va_end(first);
  bool ok = n >= 0;
  if (ok && (!data_ || static_cast<size_t>(n) >= room)) {
    ok = Reserve(static_cast<size_t>(n)) &&
         vsnprintf(data_ + size_, capacity_ - size_, format, again) == n;
  }
  va_end(again);
  if (ok) size_ += static_cast<size_t>(n);
  if (data_) data_[size_] = '\0';
  return ok;
}

const char *ByteBuffer::Data() const noexcept { return data_ ? data_ : ""; }

char *ByteBuffer::Release(size_t *size) noexcept {
  if (!data_ && !Reserve(0)) return nullptr;
  data_[size_] = '\0';
  char *data = data_;
  if (size) *size = size_;
  data_ = nullptr;
  size_ = 0;
  capacity_ = 0;
  return data;
}

}  // namespace nxc
