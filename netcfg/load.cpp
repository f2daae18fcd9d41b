// load.cpp - reading the database file into a cache.
//
// The file is a journal: a version line, then one record per line. Loading
// replays it into the cache's tables: each line goes to the parse function
// of the record family its first word names. A record that cannot be
// parsed is logged and skipped, while a bad version line or a read error
// fails the whole load.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "base/config_file.h"
#include "base/line_reader.h"
#include "base/scope_guard.h"
#include "base/str_util.h"
#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

NXCNetworkConfigurationDB *gDefaultCache = nullptr;

namespace {

constexpr size_t kMaxLineLength = 1024;  // of the version line
constexpr uint32_t kSupportedMajor = 1;
constexpr char kProductConfigPath[] = "/etc/zymtra/config";

// A record line split off the block, its keyword looked up.
struct RecordLine {
  const char *text;  // NUL-terminated where the line ended
  bool hasWord;
  const RecordFamily *family;  // null when the first word is no keyword
  uint32_t type;
  std::string_view rest;  // after the keyword and its blank
};

// The keyword of the line before, as its family spells it. Records of one
// family mostly come in a run, and a word equal to it byte for byte needs
// no lookup among all the keywords.
struct LastKeyword {
  std::string_view keyword;
  const RecordFamily *family = nullptr;
  uint32_t type = 0;
};

// Looks up the keyword of a line whose text is its first length bytes, and
// (when prefetch) has its family fetch what replaying the line will read.
RecordLine TakeRecordLine(NXCNetworkConfigurationDB *db, const char *text, size_t length,
                          bool prefetch, LastKeyword *last) {
  RecordLine line{text, false, nullptr, 0, std::string_view(text, length)};
  std::string_view word;
  line.hasWord = NextToken(&line.rest, &word);
  if (line.hasWord && last->family && word == last->keyword) {
    line.family = last->family;
    line.type = last->type;
  } else if (line.hasWord) {
    line.family = FamilyOfKeyword(word, &line.type);
    if (line.family) {
      const bool add = line.type == line.family->addType;
      *last = {add ? line.family->addKeyword : line.family->removeKeyword, line.family, line.type};
    }
  }
  if (prefetch && line.family && line.family->prefetch) line.family->prefetch(db, line.rest);
  return line;
}

// Replays one record line. Lines whose first word is no keyword are
// ignored without a message; the file has no other kind of comment.
void ReplayRecordLine(NXCNetworkConfigurationDB *db, const RecordLine &line, uint32_t lineNumber) {
  if (!line.hasWord || (line.family && !line.family->parse(db, line.type, line.rest)))
    NXCLog(LOG_ERR, "NXCNetCfgLoad", "Failed to parse record at line #: %u, data: %s", lineNumber,
           line.text);
}

// ---- The version line --------------------------------------------------------

enum class VersionLine { kOk, kFailed, kLegacy };

// Reads and checks the first line. A backup file without a version line is
// a legacy backup: version 0.0, and its first line is a record.
VersionLine ReadVersionLine(NXCNetworkConfigurationDB *db, FILE *reader, const char *fn) {
  int err = 0;
  CPtr<char> line(ReadNextLine(reader, kMaxLineLength, &err));
  if (!line && err != 0) {
    NXCLog(LOG_ERR, fn, "Failed to read version number, error: %s", strerror(err));
    return VersionLine::kFailed;
  }
  if (!line) {
    if (!db->backup) {
      NXCLog(LOG_ERR, fn, "Database file cannot be empty, aborting");
      return VersionLine::kFailed;
    }
    return VersionLine::kLegacy;
  }
  std::string_view text(line.get());
  size_t eq = text.find('=');
  std::string_view name = text.substr(0, eq);
  if (!db->backup && name != "VERSION") {
    NXCLog(LOG_ERR, fn, "Database file must have version number, aborting");
    return VersionLine::kFailed;
  }
  if (db->backup && name != "BACKUP_VERSION") {
    NXCLog(LOG_INFO, fn, "Version line not found in database file, defaulting to legacy version");
    if (fseek(reader, 0, SEEK_SET) != 0) {
      err = errno;
      NXCLog(LOG_ERR, fn, "fseek: failed, error: %s", strerror(err));
      return VersionLine::kFailed;
    }
    return VersionLine::kLegacy;
  }
  // The numbers are the rest of the line after the "="; a line without one
  // has none.
  const char *numbers = eq == std::string_view::npos ? "" : line.get() + eq + 1;
  if (!ParseVersionString(numbers, &db->major, &db->minor)) return VersionLine::kFailed;
  return VersionLine::kOk;
}

// The bytes a record block has beyond its capacity: room for the NUL after
// an unfinished last line, and for FindLineEnd to read a word past the data.
constexpr size_t kBlockSlack = 16;

// How many record lines are taken ahead of the one being replayed, in a
// file large enough for its tables to outgrow the processor's caches; a
// smaller file's lines are replayed as they are taken.
constexpr size_t kLinesAhead = 4;
constexpr off_t kPrefetchFileSize = 2 << 20;

// The first '\n' in [p, end), or null when there is none; *textEnd is the
// first NUL or '\n' from p on, where the line's text ends (end when neither
// comes before it). Reads a word at a time, and so up to kBlockSlack - 1
// bytes past end, which must be NULs.
char *FindLineEnd(char *p, char *end, char **textEnd) {
  *textEnd = nullptr;
  for (;;) {
    // The first NUL or '\n' in the word at p, as an offset; kStep when none.
    size_t offset;
#ifdef __SSE2__
    constexpr size_t kStep = 16;
    const __m128i word = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
    const unsigned marks = static_cast<unsigned>(_mm_movemask_epi8(
        _mm_or_si128(_mm_cmpeq_epi8(word, _mm_setzero_si128()), _mm_cmpeq_epi8(word, _mm_set1_epi8('\n')))));
    offset = marks ? static_cast<size_t>(__builtin_ctz(marks)) : kStep;
#else
    constexpr size_t kStep = 8;
    constexpr uint64_t kLows = 0x7f7f7f7f7f7f7f7full, kNewlines = 0x0a0a0a0a0a0a0a0aull;
    // The high bit of each byte of w that is NUL, and of no other: the sum
    // of a byte's low seven bits and 0x7f carries into its high bit, and
    // never into the next byte, unless they are all zero.
    auto nuls = [](uint64_t w) { return ~(((w & kLows) + kLows) | w | kLows); };
    uint64_t word;
    memcpy(&word, p, sizeof word);
    const uint64_t marks = nuls(word) | nuls(word ^ kNewlines);
    offset = !marks                                       ? kStep
             : std::endian::native == std::endian::little ? __builtin_ctzll(marks) / 8
                                                          : __builtin_clzll(marks) / 8;
#endif
    static_assert(kStep <= kBlockSlack);
    if (offset == kStep) {
      p += kStep;
      continue;
    }
    char *hit = p + offset;
    if (!*textEnd) *textEnd = hit < end ? hit : end;
    if (hit >= end) return nullptr;
    if (*hit == '\n') return hit;
    p = hit + 1;
  }
}

// Reads every record after the version line; false on a read error. Lines
// are read whole, however long, in large blocks split in place. A last
// line without its end is what a writer that died while appending leaves:
// it is reported like any other line that cannot be parsed.
// *endsLine tells whether the file was seen to end with a whole record line.
[[nodiscard]]
bool ReadRecords(NXCNetworkConfigurationDB *db, FILE *reader, uint32_t firstLineNumber,
                 const char *fn, bool *endsLine) {
  // Small enough to come from the heap, whose pages the entries reuse
  // afterwards, instead of a mapping of its own to fault in and drop again.
  constexpr size_t kBlock = 64 * 1024;
  size_t capacity = kBlock, held = 0;
  char *block = static_cast<char *>(malloc(capacity + kBlockSlack));
  ScopeGuard freeBlock([&] { free(block); });
  uint32_t lineNumber = firstLineNumber;
  struct stat st;
  const bool prefetch = fstat(fileno(reader), &st) == 0 && st.st_size >= kPrefetchFileSize;
  const size_t linesAhead = prefetch ? kLinesAhead : 1;
  LastKeyword lastKeyword;
  for (;;) {
    if (!block) {
      NXCLog(LOG_ERR, fn, "Error while reading database file, error: %s", strerror(ENOMEM));
      return false;
    }
    size_t got = fread(block + held, 1, capacity - held, reader);
    if (got == 0) {
      if (ferror(reader)) {
        int err = errno;
        NXCLog(LOG_ERR, fn, "Error while reading database file, error: %s",
               strerror(err ? err : EIO));
        return false;
      }
      if (held > 0) {
        block[held] = '\0';
        NXCLog(LOG_ERR, "NXCNetCfgLoad", "Failed to parse record at line #: %u, data: %s",
               lineNumber, block);
      }
      *endsLine = held == 0 && lineNumber > firstLineNumber;
      return true;
    }
    char *end = block + held + got;
    memset(end, 0, kBlockSlack);
    // The lines are taken a few ahead of their replay, so that what a
    // line's replay reads is on its way while the lines before it replay.
    char *line = block;
    RecordLine ahead[kLinesAhead];
    size_t first = 0, count = 0;
    for (bool more = true; more || count > 0;) {
      char *textEnd = nullptr, *newline = more ? FindLineEnd(line, end, &textEnd) : nullptr;
      more = newline != nullptr;
      if (more) {
        *newline = '\0';
        ahead[(first + count++) % kLinesAhead] =
            TakeRecordLine(db, line, static_cast<size_t>(textEnd - line), prefetch, &lastKeyword);
        line = newline + 1;
        if (count < linesAhead) continue;
      }
      if (count == 0) break;
      ReplayRecordLine(db, ahead[first], lineNumber++);
      first = (first + 1) % kLinesAhead;
      --count;
    }
    // The unfinished line moves to the front; a line longer than the block
    // makes it grow.
    held = static_cast<size_t>(end - line);
    memmove(block, line, held);
    if (held == capacity) {
      capacity *= 2;
      char *grown = static_cast<char *>(realloc(block, capacity + kBlockSlack));
      if (!grown) {
        NXCLog(LOG_ERR, fn, "Error while reading database file, error: %s", strerror(ENOMEM));
        return false;
      }
      block = grown;
    }
  }
}

// Takes "bindir" from the product configuration file as the in-memory
// answer BINDIR. Only a failure to store it fails the load.
[[nodiscard]] bool LoadProductConfig(NXCNetworkConfigurationDB *db, const char *fn) {
  char why[256] = "";
  KeyValueFile *config = KeyValueFileLoad(kProductConfigPath, why, sizeof why);
  if (!config) {
    NXCLog(LOG_WRN, fn, "Failed to load product config file: %s, error: %s", kProductConfigPath,
           why);
    return true;
  }
  const char *bindir = KeyValueFileGet(config, "bindir");
  bool ok = true;
  if (!bindir) {
    NXCLog(LOG_WRN, fn, "Value not found for bindir");
  } else if (!NetCfgHashAddAnswer(&db->answers, "BINDIR", bindir)) {
    NXCLog(LOG_ERR, fn, "Failed to insert value of bindir");
    ok = false;
  }
  KeyValueFileFree(config);
  return ok;
}

// Reads the version line and the records of the file at path into db.
// *endsLine (optional) as ReadRecords gives it.
[[nodiscard]] bool ReadJournal(NXCNetworkConfigurationDB *db, const char *path, const char *fn,
                               bool *endsLine = nullptr) {
  UniqueFile reader(fopen(path, "re"));
  if (!reader) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "Unable to open network configuration database file, error: %s",
           strerror(err));
    return false;
  }
  VersionLine version = ReadVersionLine(db, reader.get(), fn);
  if (version == VersionLine::kFailed) return false;
  if (version == VersionLine::kLegacy) db->major = db->minor = 0;
  NXCLog(LOG_INFO2, fn, "Database file, Major version: %u, Minor version: %u", db->major,
         db->minor);
  // The version line is line 1; a legacy backup's first line is a record.
  bool ignored = false;
  return ReadRecords(db, reader.get(), version == VersionLine::kLegacy ? 1 : 2, fn,
                     endsLine ? endsLine : &ignored);
}

// Steps 4 to 14 of a load into the fresh cache db; on failure the caller
// frees db.
[[nodiscard]]
bool FillCache(NXCNetworkConfigurationDB *db, const char *path, bool backup, bool readOnly,
               const char *fn) {
  int err = 0;
  if (!readOnly) {
    db->lock = FileLockAcquire(path, kLockTimeoutMs, &err);
    if (!db->lock) {
      NXCLog(LOG_ERR, fn, "Failed to lock config database file, error: %s",
             err ? strerror(err) : "timed out");
      return false;
    }
    RemoveStaleRewrites(path, fn);
  }
  db->backup = backup;
  db->readOnly = readOnly;
  if (!JournalOpen(db, path, /*append=*/!readOnly, /*create=*/false, &err)) {
    NXCLog(LOG_ERR, fn, "Unable to open network configuration database file, error: %s",
           strerror(err));
    return false;
  }
  db->path = strdup(path);
  if (!db->path) {
    err = errno;
    NXCLog(LOG_ERR, fn, "strdup failed, error: %s", strerror(err));
    return false;
  }
  // The records are read through a buffered stream of their own; the
  // database descriptor only ever appends.
  bool endsLine = false;
  if (!ReadJournal(db, path, fn, &endsLine)) return false;
  // Under the lock nobody appended meanwhile: the cache holds the file.
  JournalMarkKnown(db);
  db->journal.endsLine = endsLine && !readOnly;
  if (db->lock) {
    FileLock *lock = db->lock;
    db->lock = nullptr;
    if (!FileLockRelease(lock, &err)) {
      NXCLog(LOG_ERR, fn, "Failed to unlock database file: %s, error: %s", path, strerror(err));
      return false;
    }
  }
  return LoadProductConfig(db, fn);
}

}  // namespace

[[nodiscard]]
bool ReadDatabaseFile(const char *path, bool backup, NXCNetworkConfigurationDB **out,
                      const char *fn) {
  NXCNetworkConfigurationDB *db = NewCache(fn);
  if (!db) return false;
  db->backup = backup;
  db->readOnly = true;  // never appended to
  db->path = strdup(path);
  if (!db->path || !ReadJournal(db, path, fn)) {
    NXCLog(LOG_ERR, fn, "Failed to load database cache with contents of file: %s", path);
    FreeCache(db);
    return false;
  }
  *out = db;
  return true;
}

[[nodiscard]] bool ParseVersionString(const char *text, uint32_t *major, uint32_t *minor) {
  static constexpr char kFn[] = "ParseVersionString";
  std::string_view s(text ? text : "");
  size_t comma = s.find(',');
  int32_t majorValue = 0;
  if (comma == std::string_view::npos || !StrToInt32(s.substr(0, comma), &majorValue) ||
      majorValue < 0) {
    NXCLog(LOG_ERR, kFn, "Cannot parse major version of database file, aborting parsing");
    return false;
  }
  int32_t minorValue = 0;
  if (!StrToInt32(s.substr(comma + 1), &minorValue) || minorValue < 0) {
    NXCLog(LOG_ERR, kFn, "Cannot parse or invalid minor version of database file, aborting parsing");
    return false;
  }
  if (static_cast<uint32_t>(majorValue) > kSupportedMajor) {
    NXCLog(LOG_ERR, kFn, "Unsupported major version, supported: %u, actual: %d", kSupportedMajor,
           majorValue);
    return false;
  }
  *major = static_cast<uint32_t>(majorValue);
  *minor = static_cast<uint32_t>(minorValue);
  return true;
}

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgLoad(const char *path, NXCNetworkConfigurationDB **out, bool backup,
                              bool readOnly) noexcept {
  static constexpr char kFn[] = "NXCNetCfgLoad";
  if (!out && gDefaultCache) {
    NXCLog(LOG_WRN, kFn, "Network configuration database cache is already loaded");
    return true;
  }
  if (!path || !NXCFileExists(-1, NXC_FILE_CUSTOM, path)) {
    NXCLog(LOG_ERR, kFn, "Import file does not exist");
    return false;
  }
  NXCNetworkConfigurationDB *db = NewCache(kFn);
  if (!db) return false;
  if (!FillCache(db, path, backup, readOnly, kFn)) {
    NXCLog(LOG_ERR, kFn, "Failed to load database cache with contents of file: %s", path);
    (void)NXCNetCfgUnload(&db, /*writeBack=*/false);
    return false;
  }
  if (out)
    *out = db;
  else
    gDefaultCache = db;
  NXCLog(LOG_INFO, kFn, "Database cache loaded with contents of file: %s", path);
  return true;
}

extern "C" bool NXCNetCfgCheckVersion(const char *path) noexcept {
  static constexpr char kFn[] = "NXCNetCfgCheckVersion";
  UniqueFile stream(path ? fopen(path, "re") : nullptr);
  if (!stream) {
    int err = path ? errno : EINVAL;
    NXCLog(LOG_ERR, kFn, "Unable to open network configuration database file, error: %s",
           strerror(err));
    return false;
  }
  int err = 0;
  CPtr<char> line(ReadNextLine(stream.get(), kMaxLineLength, &err));
  if (!line) {
    NXCLog(LOG_ERR, kFn, "Failed to read version number, error: %s",
           strerror(err ? err : ENODATA));
    return false;
  }
  std::string_view text(line.get());
  size_t eq = text.find('=');
  if (eq == std::string_view::npos || text.substr(0, eq) != "VERSION") {
    NXCLog(LOG_ERR, kFn, "Cannot find version in database file");
    return false;
  }
  uint32_t major = 0;
  uint32_t minor = 0;
  return ParseVersionString(line.get() + eq + 1, &major, &minor);
}

extern "C" bool NXCNetCfgIsReadOnly(NXCNetworkConfigurationDB *cache) noexcept {
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  return db && db->readOnly;
}
