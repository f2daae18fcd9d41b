// whole_file.cpp - a file read whole into memory, and the copy of a file
// whose content is already in memory.
#include "base/whole_file.h"

#include <errno.h>
#include <stdio.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "nexcfg_internal.h"

namespace nxc {

bool OpenFileText(const char *path, FileText *text) noexcept {
  *text = {};
  text->fd.reset(open(path, O_RDONLY | O_CLOEXEC));
  if (!text->fd) return false;
  if (fstat(text->fd.get(), &text->status) == 0) return true;
  text->status = {};
  text->fd.reset();
  return false;
}

bool ReadFileText(FileText *text) noexcept {
  UniqueFd fd(text->fd.release());
  // Read until the end, which need not be where the size said it was.
  size_t capacity = static_cast<size_t>(text->status.st_size) + 1;
  for (;;) {
    if (text->size == capacity) capacity *= 2;
    auto *grown = static_cast<char *>(realloc(text->data.get(), capacity));
    if (!grown) {
      errno = ENOMEM;
      return false;
    }
    (void)text->data.release();
    text->data.reset(grown);
    ssize_t n = read(fd.get(), grown + text->size, capacity - text->size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    text->size += static_cast<size_t>(n);
  }
}

bool ReadWholeFile(const char *path, FileText *text) noexcept {
  return OpenFileText(path, text) && ReadFileText(text);
}

namespace {

constexpr char kCopyFn[] = "NXCCopyFile";

}  // namespace

UniqueFd OpenCopyDestination(const char *destination) noexcept {
  UniqueFd out(open(destination, O_WRONLY | O_TRUNC | O_CLOEXEC));
  if (!out) {
    NXCLog(LOG_ERR, kCopyFn, "Could not open destination file: %s, error: %s", destination,
           strerror(errno));
  }
  return out;
}

void LogCopyWriteFailure(const char *destination, int err) noexcept {
  NXCLog(LOG_ERR, kCopyFn, "Writing to destination file: %s failed, error: %s", destination,
         strerror(err));
}

void LogCopyFinished(const char *source) noexcept {
  NXCLog(LOG_INFO2, kCopyFn, "Finished reading from source file: %s", source);
}

bool CopyFileFrom(std::string_view content, const char *source, const char *destination) noexcept {
  (void)NXCCreateFile(-1, NXC_FILE_CUSTOM, destination);
  UniqueFd out = OpenCopyDestination(destination);
  if (!out) return false;
  while (!content.empty()) {
    ssize_t written = write(out.get(), content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      LogCopyWriteFailure(destination, written < 0 ? errno : EIO);
      return false;
    }
    content.remove_prefix(static_cast<size_t>(written));
  }
  LogCopyFinished(source);
  return true;
}

bool BackUpBeforeRewrite(FileText *text, const char *path, const char *backup) noexcept {
  struct stat now;
  // The same file still (not replaced since it was opened), one link only.
  const bool movable = S_ISREG(text->status.st_mode) && text->status.st_nlink == 1 &&
                       lstat(path, &now) == 0 && now.st_dev == text->status.st_dev &&
                       now.st_ino == text->status.st_ino;
  if (movable && rename(path, backup) == 0) {
    text->fd.reset();
    LogCopyFinished(path);
    return true;
  }
  if (text->fd && !ReadFileText(text)) {
    NXCLog(LOG_ERR, kCopyFn, "Could not open source file: %s, error: %s", path,
           strerror(errno));
    return false;
  }
  return CopyFileFrom(text->View(), path, backup);
}

void TakeOverOwnerAndMode(int fd, const FileText &old) noexcept {
  struct stat st;
  // Nothing to take over from a file that was never opened, or that is
  // still the same one.
  if (old.status.st_mode == 0 || fstat(fd, &st) != 0 ||
      (st.st_dev == old.status.st_dev && st.st_ino == old.status.st_ino))
    return;
  // A caller that may not give the file to its old owner keeps it; the
  // set-id bits then stay behind, as they belong to that owner.
  mode_t mode = old.status.st_mode & 07777;
  if (fchown(fd, old.status.st_uid, old.status.st_gid) != 0) mode &= 0777;
  (void)fchmod(fd, mode);
}

}  // namespace nxc
