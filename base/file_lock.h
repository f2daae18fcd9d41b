// file_lock.h - advisory, exclusive lock on a file across processes.
//
// The lock belongs to its own open file description (an OFD lock), so it is
// not dropped when some other descriptor of the same file is closed, and two
// locks of one process on one file exclude each other like those of two
// processes do. The descriptor is close-on-exec: a child started by
// fork/exec never holds it.
#pragma once

#include <stdint.h>

namespace nxc {

struct FileLock;

// Locks path, retrying until timeoutMs milliseconds have passed. The lock
// is on the file that path names once it is held: when another file was
// renamed over path meanwhile, that one is locked instead. Returns
// null on failure with *error set to the errno of the failure, or 0 when the
// time ran out.
FileLock *FileLockAcquire(const char *path, uint32_t timeoutMs, int *error) noexcept;
// Locks the file open on fd, a descriptor that stays the caller's (it is
// not closed on release), retrying until timeoutMs milliseconds have
// passed. The lock is on that file whether or not a path still names it:
// the caller checks. Errors as FileLockAcquire.
FileLock *FileLockAcquireOn(int fd, uint32_t timeoutMs, int *error) noexcept;
// Unlocks and frees the lock (null is fine). False, with *error set, when
// the unlock failed; the lock is freed either way.
[[nodiscard]] bool FileLockRelease(FileLock *lock, int *error) noexcept;

}  // namespace nxc
