// journal.cpp - the database file as a journal shared by processes:
// appending one change at a time, durably and whole, and knowing whether the
// file still holds only what a cache has read or written.
//
// Every append happens under the database lock in a single write() on a
// descriptor opened with O_APPEND and O_DSYNC, so the write returns only
// once the change is on the disk, and the change counts as made then. So a killed writer leaves either its whole change or nothing
// that a later append could glue onto, and no two processes interleave
// their bytes. Before appending, a process looks at the file as it is under
// the lock: a file another process renamed over the path is opened afresh,
// a line that a dying writer left unfinished is cut, and records of others
// that this cache has not read are noted, so that the last unload rewrites
// the database from the file rather than from a stale cache.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <string_view>

#include "base/str_util.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {

constexpr char kRewriteSuffix[] = "XXXXXX";
constexpr size_t kTailChunk = 4096;
// The journal's descriptor: every write lands at the end and is synced
// before it returns, as a write followed by fdatasync() would be, in one
// system call less per change.
constexpr int kAppendFlags = O_RDWR | O_APPEND | O_DSYNC | O_CLOEXEC;

[[nodiscard]] bool SameFile(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The directory and the file name of path ("." for a bare name).
void SplitPath(const char *path, std::string_view *dir, std::string_view *name) {
  std::string_view p(path);
  size_t slash = p.rfind('/');
  if (slash == std::string_view::npos) {
    *dir = ".";
    *name = p;
    return;
  }
  *dir = slash == 0 ? std::string_view("/") : p.substr(0, slash);
  *name = p.substr(slash + 1);
}

// Where the last complete line of the file ends, at most end; -1 when no
// line in it is complete.
off_t EndOfLastLine(int fd, off_t end, int *error) {
  char chunk[kTailChunk];
  while (end > 0) {
    off_t from = end > static_cast<off_t>(sizeof chunk) ? end - static_cast<off_t>(sizeof chunk) : 0;
    ssize_t n = pread(fd, chunk, static_cast<size_t>(end - from), from);
    if (n != end - from) {
      *error = n < 0 ? errno : EIO;
      return -2;
    }
    for (ssize_t i = n; i > 0; --i)
      if (chunk[i - 1] == '\n') return from + i;
    end = from;
  }
  return -1;
}

// Looks at the file under the lock before an append: follows a file renamed
// over the path, notes records this cache has not read, and cuts a line a
// dying writer left unfinished. *end gets where the append will start;
// *newline whether the file's only line (its version line) lacks its end.
[[nodiscard]]
bool CatchUp(NXCNetworkConfigurationDB *db, off_t *end, bool *newline, int *error,
             const char *fn) {
  *newline = false;
  if (db->journal.locked) {
    // Under the cache's own lock the path names the open file, and only
    // this cache has appended since it looked.
    *end = db->journal.size;
  } else {
    struct stat open, named;
    if (fstat(db->fd, &open) != 0) {
      *error = errno;
      return false;
    }
    if (stat(db->path, &named) == 0 && !SameFile(open, named)) {
      // Another process rewrote the database: what this cache appends now
      // belongs in the new file, and that file holds changes it never read.
      int fd = ::open(db->path, kAppendFlags);
      if (fd < 0 || fstat(fd, &open) != 0) {
        *error = errno;
        if (fd >= 0) (void)close(fd);
        return false;
      }
      (void)close(db->fd);
      db->fd = fd;
      db->journal.behind = true;
      db->journal.endsLine = false;
    }
    db->journal.dev = open.st_dev;
    db->journal.ino = open.st_ino;
    *end = open.st_size;
  }
  if (*end != db->journal.known) {
    db->journal.behind = true;
    db->journal.endsLine = false;
  }
  if (*end == 0 || db->journal.endsLine) return true;
  off_t lineEnd = EndOfLastLine(db->fd, *end, error);
  if (lineEnd == -2) return false;
  if (lineEnd == *end) return true;
  if (lineEnd == -1) {
    *newline = true;  // never cut the version line
    return true;
  }
  if (ftruncate(db->fd, lineEnd) != 0) {
    *error = errno;
    return false;
  }
  NXCLog(LOG_WRN, fn, "Removed an unfinished last line from database file: %s", db->path);
  *end = lineEnd;
  if (db->journal.locked) db->journal.size = lineEnd;
  return true;
}

}  // namespace

NXCNetworkConfigurationDB *NewCache(const char *fn) {
  auto *db = static_cast<NXCNetworkConfigurationDB *>(calloc(1, sizeof(NXCNetworkConfigurationDB)));
  if (!db) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "Failed to allocate memory for NXCNetworkConfigurationDB, error: %s",
           strerror(err));
    return nullptr;
  }
  db->fd = -1;
  return db;
}

[[nodiscard]]
bool JournalOpen(NXCNetworkConfigurationDB *db, const char *path, bool append, bool create,
                 int *error) {
  int flags = append ? kAppendFlags : O_RDONLY | O_CLOEXEC;
  int fd = open(path, flags | (create ? O_CREAT : 0), 0666);
  if (fd < 0) {
    *error = errno;
    return false;
  }
  JournalClose(db);
  db->fd = fd;
  return true;
}

void JournalMarkKnown(NXCNetworkConfigurationDB *db) {
  struct stat st;
  if (db->fd < 0 || fstat(db->fd, &st) != 0) {
    db->journal.behind = true;
    return;
  }
  db->journal = {st.st_dev, st.st_ino, st.st_size, /*behind=*/false, /*endsLine=*/false,
                 /*locked=*/false, 0};
}

[[nodiscard]] bool JournalInSync(NXCNetworkConfigurationDB *db) {
  struct stat open, named;
  return !db->journal.behind && db->fd >= 0 && fstat(db->fd, &open) == 0 &&
         stat(db->path, &named) == 0 && SameFile(open, named) &&
         open.st_size == db->journal.known;
}

void JournalClose(NXCNetworkConfigurationDB *db) {
  if (db->fd >= 0) (void)close(db->fd);
  db->fd = -1;
}

[[nodiscard]]
bool AppendChange(NXCNetworkConfigurationDB *db, const char *text, size_t length, int *error) {
  static constexpr char kFn[] = "AppendChange";
  if (db->fd < 0) {
    *error = EBADF;
    return false;
  }
  DatabaseLockScope lock(db);
  if (!lock.held()) {
    *error = lock.error() ? lock.error() : ETIMEDOUT;
    return false;
  }
  off_t start = 0;
  bool newline = false;
  if (!CatchUp(db, &start, &newline, error, kFn)) return false;
  struct iovec parts[2] = {{const_cast<char *>("\n"), newline ? 1u : 0u},
                           {const_cast<char *>(text), length}};
  const size_t total = parts[0].iov_len + length;
  ssize_t written;
  do {
    written = writev(db->fd, parts, 2);
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(total)) {
    db->journal.known = start + static_cast<off_t>(total);
    db->journal.size = db->journal.known;
    db->journal.endsLine = true;  // a change is whole lines
    return true;
  }
  // A short write means the disk filled up on the way; a failed one may
  // have left part of the change behind, or all of it unsynced.
  *error = written >= 0 && written < static_cast<ssize_t>(total) ? ENOSPC : errno;
  if (ftruncate(db->fd, start) != 0) {
    int err = errno;
    NXCLog(LOG_ERR, kFn, "Failed to cut back database file: %s, error: %s", db->path,
           strerror(err));
    db->journal.behind = true;
    // The file's end is not known any more: look at it next time.
    db->journal.locked = false;
    db->journal.endsLine = false;
  }
  return false;
}

[[nodiscard]] bool RewritePattern(const char *path, char *pattern, size_t size) {
  std::string_view dir, name;
  SplitPath(path, &dir, &name);
  return BoundedPrint(pattern, size, "%.*s/.%.*s.%s", static_cast<int>(dir.size()), dir.data(),
                      static_cast<int>(name.size()), name.data(), kRewriteSuffix) >= 0;
}

void RemoveStaleRewrites(const char *path, const char *fn) {
  std::string_view dirName, name;
  SplitPath(path, &dirName, &name);
  char dirPath[PATH_MAX];
  if (BoundedPrint(dirPath, sizeof dirPath, "%.*s", static_cast<int>(dirName.size()),
                   dirName.data()) < 0)
    return;
  DIR *dir = opendir(dirPath);
  if (!dir) return;
  const size_t stemLength = name.size() + 2;  // "." name "."
  while (const dirent *entry = readdir(dir)) {
    std::string_view entryName(entry->d_name);
    if (entryName.size() != stemLength + sizeof kRewriteSuffix - 1 || entryName[0] != '.' ||
        entryName.substr(1, name.size()) != name || entryName[stemLength - 1] != '.')
      continue;
    if (unlinkat(dirfd(dir), entry->d_name, 0) == 0)
      NXCLog(LOG_WRN, fn, "Removed temporary file of an interrupted rewrite: %s/%s", dirPath,
             entry->d_name);
  }
  (void)closedir(dir);
}

FileLock *JournalLock(NXCNetworkConfigurationDB *db, int *error) {
  db->journal.locked = false;
  if (db->fd < 0 || db->readOnly) return FileLockAcquire(db->path, kLockTimeoutMs, error);
  FileLock *lock = FileLockAcquireOn(db->fd, kLockTimeoutMs, error);
  if (!lock) return nullptr;
  struct stat named;
  if (stat(db->path, &named) == 0 && named.st_dev == db->journal.dev &&
      named.st_ino == db->journal.ino) {
    db->journal.locked = true;
    db->journal.size = named.st_size;
    return lock;
  }
  // The path names another file now (or cannot be looked at): lock that
  // one, and the next append follows it there.
  int ignored = 0;
  (void)FileLockRelease(lock, &ignored);
  return FileLockAcquire(db->path, kLockTimeoutMs, error);
}

[[nodiscard]] bool JournalUnlock(NXCNetworkConfigurationDB *db, FileLock *lock, int *error) {
  db->journal.locked = false;
  return FileLockRelease(lock, error);
}

DatabaseLockScope::DatabaseLockScope(NXCNetworkConfigurationDB *db) : db_(db) {
  if (db->lock) {
    held_ = true;
    return;
  }
  own_ = JournalLock(db, &error_);
  held_ = own_ != nullptr;
}

DatabaseLockScope::~DatabaseLockScope() {
  int ignored = 0;
  if (own_) (void)JournalUnlock(db_, own_, &ignored);
}

}  // namespace nxc
