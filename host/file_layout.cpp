// file_layout.cpp - the names of every file, directory and device node the
// library makes on the host, and the operations that act on those names.
//
// A host path is always named by a file type and a vnet number; this is the
// only place that knows the directory layout. Configuration files live
// under the CONFIGDIR answer (default /etc/zymtra), read afresh on every
// call; the vnet device nodes live in /dev whatever CONFIGDIR says.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <string_view>

#include "base/scope_guard.h"
#include "base/str_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "core/api_frame.h"
#include "host/file_copy.h"
#include "nexcfg_internal.h"

namespace {

using nxc::kPathSize;
using nxc::kVnetNameSize;
constexpr char kDefaultConfigDir[] = "/etc/zymtra";
constexpr char kDefaultRunDir[] = "/var/run";
constexpr unsigned kZynetMajor = 241;  // the zynet driver's character devices
constexpr mode_t kCreationMask = 022;
constexpr mode_t kDirMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr mode_t kDeviceMode = 0600;
constexpr size_t kCopyBlock = 1024;

// The answer key, or fallback when the answer is absent.
const char *AnswerOr(const char *key, const char *fallback) {
  const char *value = nullptr;
  if (!NXCNetCfgGetAnswerString(nullptr, key, &value) || !value) return fallback;
  return value;
}

[[nodiscard]] bool IsDirType(uint32_t type) {
  return type == NXC_FILE_VNET_DIR || type == NXC_FILE_DHCPD_DIR || type == NXC_FILE_NAT_DIR;
}

// The types kept as regular files under a vnet directory and made by
// NXCCreateFile (nat.mac is made by the NAT daemon, not here).
[[nodiscard]] bool IsPlainFileType(uint32_t type) {
  return (type >= NXC_FILE_DHCPD_CONF && type <= NXC_FILE_DHCPD_LEASES_OLD) ||
         type == NXC_FILE_NAT_CONF || type == NXC_FILE_NAT_CONF_BAK;
}

// The path of a vnet-relative file type below CONFIGDIR, or null.
const char *VnetFileFormat(uint32_t type) {
  switch (type) {
    case NXC_FILE_VNET_DIR: return "%s/zynet%d";
    case NXC_FILE_DHCPD_DIR: return "%s/zynet%d/dhcpd";
    case NXC_FILE_NAT_DIR: return "%s/zynet%d/nat";
    case NXC_FILE_DHCPD_CONF: return "%s/zynet%d/dhcpd/dhcpd.conf";
    case NXC_FILE_DHCPD_CONF_BAK: return "%s/zynet%d/dhcpd/dhcpd.conf.bak";
    case NXC_FILE_DHCPD_LEASES: return "%s/zynet%d/dhcpd/dhcpd.leases";
    case NXC_FILE_DHCPD_LEASES_OLD: return "%s/zynet%d/dhcpd/dhcpd.leases~";
    case NXC_FILE_NAT_MAC: return "%s/zynet%d/nat.mac";
    case NXC_FILE_NAT_CONF: return "%s/zynet%d/nat/nat.conf";
    case NXC_FILE_NAT_CONF_BAK: return "%s/zynet%d/nat/nat.conf.bak";
    default: return nullptr;
  }
}

// Copies a caller's custom path; false (logged) when it does not fit.
// Creation names the refused name; removal and the existence test show the
// path buffer as it was before the copy, which is empty.
[[nodiscard]]
bool TakeCustomName(const char *fn, const char *customName, char (&path)[kPathSize],
                    bool showName) {
  if (!customName) {
    NXCLog(LOG_ERR, fn, "Invalid arguments");
    return false;
  }
  if (strlen(customName) >= kPathSize) {
    NXCLog(LOG_ERR, fn, "Custom file name %s is longer than allowed %zu characters",
           showName ? customName : path, kPathSize);
    return false;
  }
  (void)nxc::BoundedCopy(path, kPathSize, customName);
  return true;
}

// The result of recording a creation, logged when it failed.
[[nodiscard]] bool RecordCreation(const char *fn, const char *path, bool recorded) {
  if (!recorded)
    NXCLog(LOG_ERR, fn, "Error adding configuration record for creation of file: %s", path);
  return recorded;
}

// Makes the device node of a vnet; one that exists already is kept.
[[nodiscard]] bool CreateDevice(const char *fn, int32_t vnet, const char *path) {
  if (mknod(path, S_IFCHR | kDeviceMode, makedev(kZynetMajor, (unsigned)vnet)) != 0 &&
      errno != EEXIST) {
    NXCLog(LOG_ERR, fn, "Creating zynet device failed, error: %s", strerror(errno));
    return false;
  }
  return RecordCreation(fn, path, NXCRecordFileCreation(path, nullptr));
}

[[nodiscard]] bool CreateDirectory(const char *fn, const char *path) {
  if (mkdir(path, kDirMode) == 0) {
    NXCLog(LOG_INFO2, fn, "Directory: %s created", path);
  } else if (errno == EEXIST) {
    NXCLog(LOG_WRN, fn, "Directory: %s already exists", path);
  } else {
    NXCLog(LOG_ERR, fn, "Cannot create Directory: %s because of: %s", path, strerror(errno));
    return false;
  }
  return RecordCreation(fn, path, NXCRecordDirectoryCreation(path));
}

// Creates an empty file, never truncating one that exists, and records it
// with its modification time when that can be read.
[[nodiscard]] bool CreatePlainFile(const char *fn, const char *path) {
  nxc::UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode));
  if (fd) {
    fd.reset();
    NXCLog(LOG_INFO2, fn, "File: %s created", path);
  } else if (errno == EEXIST) {
    NXCLog(LOG_WRN, fn, "File: %s already exists", path);
  } else {
    NXCLog(LOG_ERR, fn, "Cannot create File: %s because of: %s", path, strerror(errno));
    return false;
  }
  struct stat st;
  if (stat(path, &st) != 0) return RecordCreation(fn, path, NXCRecordFileCreation(path, nullptr));
  nxc::CPtr<char> mtime(nxc::AllocPrint("%ld", (long)st.st_mtime));
  if (!mtime) {
    NXCLog(LOG_ERR, fn, "Failed to allocate memory for mtime, error: %s", strerror(errno));
    return false;
  }
  return RecordCreation(fn, path, NXCRecordFileCreation(path, mtime.get()));
}

// Removes a directory or a file; a missing one is fine. Each returns the
// result of recording the deletion.
[[nodiscard]] bool RemoveDirectory(const char *fn, const char *path) {
  if (rmdir(path) == 0) {
    NXCLog(LOG_INFO2, fn, "Directory: %s deleted", path);
  } else if (errno == ENOENT) {
    NXCLog(LOG_INFO, fn, "Directory %s does not exist", path);
  } else {
    NXCLog(LOG_ERR, fn, "Cannot delete Directory: %s because of: %s", path, strerror(errno));
    return false;
  }
  return NXCRecordDirectoryDeletion(path);
}

[[nodiscard]] bool RemovePlainFile(const char *fn, const char *path) {
  if (unlink(path) == 0) {
    NXCLog(LOG_INFO2, fn, "File: %s deleted", path);
  } else if (errno == ENOENT) {
    NXCLog(LOG_INFO, fn, "File %s does not exist", path);
  } else {
    NXCLog(LOG_ERR, fn, "Cannot delete File: %s because of: %s", path, strerror(errno));
    return false;
  }
  return NXCRecordFileDeletion(path);
}

// Whether a stat'ed path is of the kind the type needs. Device nodes are
// tested with the mask 0xb000 against 0x2000, which a block device passes
// as well.
[[nodiscard]] bool IsValidKind(uint32_t type, mode_t mode) {
  if (type == NXC_FILE_CUSTOM) return true;
  if (type == NXC_FILE_VNET_DEVICE) return (mode & 0xb000) == 0x2000;
  if (IsDirType(type)) return S_ISDIR(mode);
  return S_ISREG(mode);
}

}  // namespace

extern "C" bool NXCGetFileName(int32_t vnet, uint32_t type, char *buffer, size_t size) noexcept {
  static constexpr char kFn[] = "NXCGetFileName";
  if (!buffer || size == 0) return false;
  const char *configDir = AnswerOr("CONFIGDIR", kDefaultConfigDir);
  (void)AnswerOr("RUNDIR", kDefaultRunDir);  // the pid files' directory; no type uses it
  int printed = -1;
  if (type == NXC_FILE_NETWORKING_DB) {
    printed = nxc::BoundedPrint(buffer, size, "%s/%s", configDir, "networking");
  } else if (type == NXC_FILE_PRODUCT_CONFIG) {
    printed = nxc::BoundedPrint(buffer, size, "%s/config", configDir);
  } else if (type == NXC_FILE_VNET_DEVICE) {
    char name[kVnetNameSize];
    if (!NXCConvVnetNumToName((uint32_t)vnet, name)) return false;
    printed = nxc::BoundedPrint(buffer, size, "/dev/%s", name);
  } else if (const char *format = VnetFileFormat(type)) {
    printed = nxc::BoundedPrint(buffer, size, format, configDir, vnet);
  } else {
    return false;  // custom files have no name of their own; unknown types
  }
  if (printed < 0) {
    NXCLog(LOG_ERR, kFn, "Error formatting the file name for file type: %ufrom cD: %s, vnet: %d",
           type, configDir, vnet);  // sic: no blank before "from"
    return false;
  }
  return true;
}

extern "C" bool NXCCreateFile(int32_t vnet, uint32_t type, const char *customName) noexcept {
  static constexpr char kFn[] = "NXCCreateFile";
  char path[kPathSize] = "";
  // Whatever failed, nothing half-made stays behind under the path.
  nxc::ScopeGuard cleanUp([&] {
    (void)unlink(path);
    (void)rmdir(path);
  });
  if (type == NXC_FILE_CUSTOM) {
    if (!TakeCustomName(kFn, customName, path, true)) return false;
  } else if (IsDirType(type) || IsPlainFileType(type) || type == NXC_FILE_VNET_DEVICE) {
    if (customName) {
      NXCLog(LOG_ERR, kFn, "Invalid arguments");
      return false;
    }
    if (!NXCGetFileName(vnet, type, path, sizeof path)) {
      NXCLog(LOG_ERR, kFn, "Cannot construct file name");
      return false;
    }
  }
  mode_t oldMask = umask(kCreationMask);
  nxc::ScopeGuard restoreMask([&] { (void)umask(oldMask); });

  bool made = false;
  if (type == NXC_FILE_VNET_DEVICE) {
    made = CreateDevice(kFn, vnet, path);
  } else if (IsDirType(type)) {
    made = CreateDirectory(kFn, path);
  } else if (type == NXC_FILE_CUSTOM || IsPlainFileType(type)) {
    made = CreatePlainFile(kFn, path);
  } else {
    return false;  // the database, nat.mac, the product file: not made here
  }
  if (!made) return false;
  cleanUp.dismiss();
  return true;
}

extern "C" bool NXCRemoveFile(int32_t vnet, uint32_t type, const char *customName) noexcept {
  static constexpr char kFn[] = "NXCRemoveFile";
  char path[kPathSize] = "";
  if (type == NXC_FILE_CUSTOM) {
    if (!TakeCustomName(kFn, customName, path, false)) return false;
    return RemovePlainFile(kFn, path);
  }
  bool isDir = IsDirType(type);
  if (!isDir && !IsPlainFileType(type) && type != NXC_FILE_NAT_MAC &&
      type != NXC_FILE_VNET_DEVICE)
    return false;  // the database and the product file are never removed here
  if (!NXCGetFileName(vnet, type, path, sizeof path)) {
    NXCLog(LOG_ERR, kFn, "Cannot construct file name");
    return false;
  }
  return isDir ? RemoveDirectory(kFn, path) : RemovePlainFile(kFn, path);
}

extern "C" bool NXCFileExists(int32_t vnet, uint32_t type, const char *customName) noexcept {
  static constexpr char kFn[] = "NXCFileExists";
  char path[kPathSize] = "";
  if (type == NXC_FILE_CUSTOM) {
    if (!TakeCustomName(kFn, customName, path, false)) return false;
  } else if (IsDirType(type) || IsPlainFileType(type) || type == NXC_FILE_VNET_DEVICE) {
    if (!NXCGetFileName(vnet, type, path, sizeof path)) {
      NXCLog(LOG_ERR, kFn, "Cannot construct file name");
      return false;
    }
  } else {
    return false;  // the database, nat.mac, the product file, unknown types
  }
  struct stat st;
  if (stat(path, &st) != 0) {
    NXCLog(LOG_ERR, kFn, "Cannot check for file or directory: %s , error: %s", path,
           strerror(errno));
    return false;
  }
  if (!IsValidKind(type, st.st_mode)) {
    NXCLog(LOG_ERR, kFn,
           "File/Directory/device of type: %u and name: %s is found but is not of valid type",
           type, path);
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "File/Directory/Device: %s exists", path);
  return true;
}

namespace {

constexpr char kCopyFn[] = "NXCCopyFile";

// The destination side of the file copy, shared by the copy of a file and
// the copy from memory: the destination (made by the caller) opened
// truncated for writing, and the log lines of a failed write and of the
// end of the copy.
nxc::UniqueFd OpenCopyDestination(const char *destination) {
  nxc::UniqueFd out(open(destination, O_WRONLY | O_TRUNC | O_CLOEXEC));
  if (!out) {
    NXCLog(LOG_ERR, kCopyFn, "Could not open destination file: %s, error: %s", destination,
           strerror(errno));
  }
  return out;
}

void LogCopySourceFailure(const char *source) {
  NXCLog(LOG_ERR, kCopyFn, "Could not open source file: %s, error: %s", source, strerror(errno));
}

void LogCopyWriteFailure(const char *destination, int err) {
  NXCLog(LOG_ERR, kCopyFn, "Writing to destination file: %s failed, error: %s", destination,
         strerror(err));
}

void LogCopyFinished(const char *source) {
  NXCLog(LOG_INFO2, kCopyFn, "Finished reading from source file: %s", source);
}

// The file copy of source to destination for a caller that already holds
// source's content: the content goes to the destination in one write.
[[nodiscard]]
bool CopyFileFrom(std::string_view content, const char *source, const char *destination) {
  (void)NXCCreateFile(-1, NXC_FILE_CUSTOM, destination);
  nxc::UniqueFd out = OpenCopyDestination(destination);
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

}  // namespace

extern "C" bool NXCCopyFile(const char *source, const char *destination) noexcept {
  static constexpr const char *kFn = kCopyFn;
  if (!source || !destination) {
    NXCLog(LOG_ERR, kFn, "Invalid arguments");
    return false;
  }
  (void)NXCCreateFile(-1, NXC_FILE_CUSTOM, destination);
  nxc::UniqueFd in(open(source, O_RDONLY | O_CLOEXEC));
  if (!in) {
    LogCopySourceFailure(source);
    return false;
  }
  nxc::UniqueFd out = OpenCopyDestination(destination);
  if (!out) return false;
  char block[kCopyBlock];
  for (;;) {
    ssize_t n = read(in.get(), block, sizeof block);
    if (n < 0) {
      NXCLog(LOG_ERR, kFn, "Reading from source file: %s failed, error: %s", source,
             strerror(errno));
      return false;
    }
    if (n == 0) break;
    // A short write fails the copy as well.
    ssize_t written = write(out.get(), block, (size_t)n);
    if (written != n) {
      LogCopyWriteFailure(destination, written < 0 ? errno : EIO);
      return false;
    }
  }
  LogCopyFinished(source);
  return true;
}

bool nxc::BackUpBeforeRewrite(FileText *text, const char *path, const char *backup) noexcept {
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
    LogCopySourceFailure(path);
    return false;
  }
  return CopyFileFrom(text->View(), path, backup);
}

bool nxc::OpenBackupSource(const char *path, FileText *text) noexcept {
  if (OpenFileText(path, text)) return true;
  LogCopySourceFailure(path);
  return false;
}

// Record keeping of host files is not kept; the hooks stay so that the
// operations above report their result through them.
extern "C" bool NXCFileDirBookkeepingDBLoad(void) noexcept { return true; }
extern "C" bool NXCFileDirBookkeepingDBUnload(void) noexcept { return true; }
extern "C" bool NXCRecordFileCreation(const char *, const char *) noexcept { return true; }
extern "C" bool NXCRecordDirectoryCreation(const char *) noexcept { return true; }
extern "C" bool NXCRecordFileDeletion(const char *) noexcept { return true; }
extern "C" bool NXCRecordDirectoryDeletion(const char *) noexcept { return true; }

// The zynet driver is loaded by the host's own service scripts.
extern "C" bool NXCLoadZynetDriver(void) noexcept { return false; }
extern "C" bool NXCUnloadZynetDriver(void) noexcept { return false; }
