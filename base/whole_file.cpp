// whole_file.cpp - a file read whole into memory, and the owner and mode
// a file that replaces it takes over.
#include "base/whole_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

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
