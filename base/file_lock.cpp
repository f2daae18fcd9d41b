// file_lock.cpp - advisory, exclusive lock on a file across processes.
//
// The lock is an OFD lock: it belongs to the open file description made
// here, so it conflicts with every other description of the file, including
// ones in this very process, and closing some unrelated descriptor of the
// file does not drop it. Classic fcntl locks have neither property.
#include "base/file_lock.h"

#include "base/mono_time.h"
#include "base/unique_fd.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <new>
#include <utility>

namespace nxc {

struct FileLock {
  int fd;
  bool ownsFd;  // opened for the lock, closed with it
};

namespace {

constexpr uint64_t kPollNanos = 10 * 1000 * 1000;  // 10 ms between attempts

// One attempt on the whole file. True when taken; otherwise *busy tells a
// lock held elsewhere (worth retrying) from a real failure (errno kept).
[[nodiscard]] bool TryLock(int fd, bool *busy) {
  struct flock fl = {};
  fl.l_type = F_WRLCK;
  fl.l_whence = SEEK_SET;
  fl.l_start = 0;
  fl.l_len = 0;  // to the end of the file, however long it grows
  for (;;) {
    if (fcntl(fd, F_OFD_SETLK, &fl) == 0) return true;
    if (errno == EINTR) continue;
    *busy = errno == EAGAIN || errno == EACCES;
    return false;
  }
}

// Whether path still names the file open on fd. A file replaced by a
// rename while this process waited for its lock is no longer the one
// others lock.
[[nodiscard]] bool StillNamed(int fd, const char *path) {
  struct stat open, named;
  if (fstat(fd, &open) != 0 || stat(path, &named) != 0) return true;  // nothing better to lock
  return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

UniqueFd OpenForLocking(const char *path) {
  UniqueFd fd(open(path, O_RDWR | O_CLOEXEC));
  if (!fd && (errno == EACCES || errno == EROFS)) {
    // A file this process may only read can still be opened; the write
    // lock on it then fails and that error is the one reported.
    fd.reset(open(path, O_RDONLY | O_CLOEXEC));
  }
  return fd;
}

void SleepNanos(uint64_t nanos) {
  struct timespec ts;
  ts.tv_sec = static_cast<time_t>(nanos / 1000000000u);
  ts.tv_nsec = static_cast<long>(nanos % 1000000000u);
  // An interrupted sleep only makes the next attempt come sooner.
  (void)nanosleep(&ts, nullptr);
}

}  // namespace

namespace {

// Takes the lock on fd, polling until the deadline. True when held; else
// *error has the errno, or 0 when the time ran out.
[[nodiscard]] bool LockUntil(int fd, uint64_t deadline, int *error) {
  for (;;) {
    bool busy = false;
    if (TryLock(fd, &busy)) return true;
    if (!busy) {
      *error = errno;
      return false;
    }
    uint64_t now = MonotonicNanos();
    if (now >= deadline) {
      *error = 0;
      return false;
    }
    uint64_t left = deadline - now;
    SleepNanos(left < kPollNanos ? left : kPollNanos);
  }
}

FileLock *NewLock(UniqueFd fd, bool ownsFd, int *error) {
  FileLock *lock = new (std::nothrow) FileLock;
  if (!lock) {
    *error = ENOMEM;
    if (!ownsFd) (void)fd.release();
    return nullptr;  // closing an owned fd drops the lock again
  }
  lock->fd = fd.release();
  lock->ownsFd = ownsFd;
  return lock;
}

}  // namespace

FileLock *FileLockAcquire(const char *path, uint32_t timeoutMs, int *error) noexcept {
  int ignored = 0;
  if (!error) error = &ignored;
  UniqueFd fd = OpenForLocking(path);
  if (!fd) {
    *error = errno;
    return nullptr;
  }
  uint64_t deadline = MonotonicNanos() + uint64_t{timeoutMs} * 1000000u;
  for (;;) {
    if (!LockUntil(fd.get(), deadline, error)) return nullptr;
    if (StillNamed(fd.get(), path)) break;
    // Locked a file that was replaced meanwhile: lock the new one.
    fd = OpenForLocking(path);
    if (!fd) {
      *error = errno;
      return nullptr;
    }
  }
  return NewLock(std::move(fd), /*ownsFd=*/true, error);
}

FileLock *FileLockAcquireOn(int fd, uint32_t timeoutMs, int *error) noexcept {
  int ignored = 0;
  if (!error) error = &ignored;
  uint64_t deadline = MonotonicNanos() + uint64_t{timeoutMs} * 1000000u;
  if (!LockUntil(fd, deadline, error)) return nullptr;
  FileLock *lock = NewLock(UniqueFd(fd), /*ownsFd=*/false, error);
  if (!lock) {
    struct flock fl = {};
    fl.l_type = F_UNLCK;
    fl.l_whence = SEEK_SET;
    (void)fcntl(fd, F_OFD_SETLK, &fl);
  }
  return lock;
}

[[nodiscard]] bool FileLockRelease(FileLock *lock, int *error) noexcept {
  if (!lock) return true;
  struct flock fl = {};
  fl.l_type = F_UNLCK;
  fl.l_whence = SEEK_SET;
  bool ok = fcntl(lock->fd, F_OFD_SETLK, &fl) == 0;
  int unlockError = errno;
  // Closing the last descriptor of the description drops the lock anyway.
  if (lock->ownsFd) (void)close(lock->fd);
  delete lock;
  if (!ok && error) *error = unlockError;
  return ok;
}

}  // namespace nxc
