// whole_file.h - a file read whole into memory, and the copy of a file
// whose content is already in memory.
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

// The destination side of the file copy (NXCCopyFile), which CopyFileFrom
// shares: opening destination (made by the caller) truncated for writing,
// and the log lines of a failed write and of the end of the copy.
[[nodiscard]] UniqueFd OpenCopyDestination(const char *destination) noexcept;
void LogCopyWriteFailure(const char *destination, int err) noexcept;
void LogCopyFinished(const char *source) noexcept;

// The file copy (NXCCopyFile) of source to destination for a caller that
// already holds source's content: the destination is made if missing,
// truncated, and gets content in one write. Logs as the file copy does.
[[nodiscard]]
bool CopyFileFrom(std::string_view content, const char *source, const char *destination) noexcept;

// Backs up the file that text was read (or opened, see OpenFileText) from,
// path, as backup, before path is written anew: by renaming it when that
// keeps all a copy would (a plain file with a single link), else with
// CopyFileFrom, reading the content first when it is still to be read.
// Logs as the file copy.
[[nodiscard]]
bool BackUpBeforeRewrite(FileText *text, const char *path, const char *backup) noexcept;

// Gives a file that replaced a renamed one the old one's owner and mode; a
// no-op when old was never opened or fd is still old's file.
void TakeOverOwnerAndMode(int fd, const FileText &old) noexcept;

}  // namespace nxc
