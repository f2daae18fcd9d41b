// file_copy.h - the backup a generated file gets before it is written anew,
// made as the file copy (NXCCopyFile) makes one, for the writers that hold
// the old file open or in memory.
#pragma once

#include "base/whole_file.h"

namespace nxc {

// Opens the file a backup is to be made of, as OpenFileText does; when it
// cannot, logs as the file copy does.
[[nodiscard]] bool OpenBackupSource(const char *path, FileText *text) noexcept;

// Backs up the file that text was read (or opened, see OpenFileText) from,
// path, as backup, before path is written anew: by renaming it when that
// keeps all a copy would (a plain file with a single link), else by a copy
// from memory, reading the content first when it is still to be read. The
// destination is made if missing and truncated. Logs as the file copy.
[[nodiscard]]
bool BackUpBeforeRewrite(FileText *text, const char *path, const char *backup) noexcept;

}  // namespace nxc
