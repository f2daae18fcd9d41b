// unique_fd.h - owners for descriptors, streams and malloc'd memory.
//
// Ownership leaves an owner only through release(), on the success path;
// on failure the owner still closes or frees what it holds.
#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>

namespace nxc {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(const UniqueFd &) = delete;
  UniqueFd &operator=(const UniqueFd &) = delete;
  UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
  UniqueFd &operator=(UniqueFd &&other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~UniqueFd() { reset(); }

  int get() const { return fd_; }
  [[nodiscard]] bool valid() const { return fd_ >= 0; }
  explicit operator bool() const { return valid(); }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset(int fd = -1) {
    if (fd_ >= 0) (void)::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

struct FcloseDeleter {
  void operator()(FILE *f) const {
    if (f) (void)fclose(f);
  }
};
using UniqueFile = std::unique_ptr<FILE, FcloseDeleter>;

struct FreeDeleter {
  void operator()(void *p) const { free(p); }
};
template <class T>
using CPtr = std::unique_ptr<T, FreeDeleter>;

}  // namespace nxc
