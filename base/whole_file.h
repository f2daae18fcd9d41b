// whole_file.h - a file read whole into memory, and the owner and mode
// a file that replaces it takes over.
#pragma once

#include <stddef.h>
#include <sys/stat.h>

#include <string_view>

#include "base/unique_fd.h"

namespace nxc {

// A file's whole content, and its status as it was opened. While fd is
// open the content is still to be read (see OpenFileText).
struct FileText {
  CPtr<char> data;
  size_t size = 0;
  struct stat status = {};
  UniqueFd fd;
  std::string_view View() const noexcept { return {data.get(), size}; }
};

// Reads the file at path whole into *text (replacing what it held). False,
// with errno set, when it cannot be opened or read or memory runs out.
[[nodiscard]] bool ReadWholeFile(const char *path, FileText *text) noexcept;
// The two halves of it: opening the file with its status (fd stays open),
// and reading its content (which closes fd).
[[nodiscard]] bool OpenFileText(const char *path, FileText *text) noexcept;
[[nodiscard]] bool ReadFileText(FileText *text) noexcept;

// Gives a file that replaced a renamed one the old one's owner and mode; a
// no-op when old was never opened or fd is still old's file.
void TakeOverOwnerAndMode(int fd, const FileText &old) noexcept;

}  // namespace nxc
