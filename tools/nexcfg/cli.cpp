// cli.cpp - output, command-line words and watched library calls shared by
// every nexcfg command.
#include "cli.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dbfile.h"
#include "nexcfg_internal.h"

namespace nexcfg {

// ---- Output ----------------------------------------------------------------

namespace {
Options gOptions;
}  // namespace

const Options &Opts() { return gOptions; }
Options &MutableOpts() { return gOptions; }

void Table::Print(int indent) const {
  std::vector<size_t> width(header_.size(), 0);
  auto measure = [&](const std::vector<std::string> &row) {
    for (size_t i = 0; i < row.size() && i < width.size(); ++i) width[i] = std::max(width[i], row[i].size());
  };
  measure(header_);
  for (const auto &row : rows_) measure(row);
  auto print = [&](const std::vector<std::string> &row) {
    std::string line(static_cast<size_t>(indent), ' ');
    for (size_t i = 0; i < row.size() && i < width.size(); ++i) {
      std::string cell = row[i].empty() ? "-" : row[i];
      line += cell;
      if (i + 1 < row.size()) line.append(width[i] - std::min(width[i], cell.size()) + 2, ' ');
    }
    printf("%s\n", line.c_str());
  };
  print(header_);
  for (const auto &row : rows_) print(row);
}

void PrintFields(const Json &object) {
  size_t width = 0;
  for (const auto &[key, value] : object.members())
    if (value.kind() != Json::Kind::kArray && value.kind() != Json::Kind::kObject)
      width = std::max(width, key.size());
  for (const auto &[key, value] : object.members()) {
    if (value.kind() == Json::Kind::kArray || value.kind() == Json::Kind::kObject) continue;
    printf("%s:%*s%s\n", key.c_str(), static_cast<int>(width - key.size() + 2), "", value.Text().c_str());
  }
}

void PrintJson(const Json &value) { printf("%s\n", value.Dump().c_str()); }

void PrintRecord(const Json &object) {
  if (Opts().json)
    PrintJson(object);
  else
    PrintFields(object);
}

void PrintErrorDetails(const Error &error) {
  if (!error.fix.empty()) fprintf(stderr, "  fix: %s\n", error.fix.c_str());
  if (!error.log.empty()) fprintf(stderr, "  library log (%s):\n", error.logPath.c_str());
  for (const auto &line : error.log) fprintf(stderr, "    %s\n", line.c_str());
}

Json ErrorJson(const Error &error) {
  Json body = Json::Object(), out = Json::Object(), log = Json::Array();
  body.Set("code", error.code);
  body.Set("message", error.what());
  body.Set("fix", error.fix);
  for (const auto &line : error.log) log.Push(line);
  out.Set("error", std::move(body));
  out.Set("log", std::move(log));
  return out;
}

void Say(const std::string &line) {
  if (!Opts().json) printf("%s\n", line.c_str());
}

void Report(const Json &value, const std::string &line) {
  if (Opts().json)
    PrintJson(value);
  else
    printf("%s\n", line.c_str());
}

void PrintVnetList(const std::string &vnet, const char *key, Json items, const std::string &none,
                   void (*print)(const Json &items)) {
  if (Opts().json) {
    Json out = Json::Object();
    out.Set("vnet", vnet);
    out.Set(key, std::move(items));
    PrintJson(out);
  } else if (items.items().empty()) {
    printf("%s\n", none.c_str());
  } else {
    print(items);
  }
}

const std::string *Invocation::Option(const char *name) const {
  auto it = options_.find(name);
  return it == options_.end() ? nullptr : &it->second;
}

// ---- Words -------------------------------------------------------------------

uint64_t Number(const std::string &word, const char *what, uint64_t min, uint64_t max) {
  const char *text = word.c_str();
  bool hex = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
  const char *digits = hex ? text + 2 : text;
  bool ok = *digits != '\0';
  for (const char *p = digits; ok && *p; ++p) {
    unsigned char c = static_cast<unsigned char>(*p);
    ok = hex ? isxdigit(c) != 0 : isdigit(c) != 0;
  }
  errno = 0;
  unsigned long long value = ok ? strtoull(digits, nullptr, hex ? 16 : 10) : 0;
  if (!ok || errno == ERANGE || value < min || value > max)
    throw UsageError(std::string(what) + " must be a number from " + std::to_string(min) + " to " +
                     std::to_string(max) + ", not \"" + word + "\"");
  return value;
}

std::string VnetName(const std::string &word) {
  std::string digits = word.rfind("zynet", 0) == 0 ? word.substr(5) : word;
  bool ok = !digits.empty() && digits.size() <= 3 &&
            std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
            (digits.size() == 1 || digits[0] != '0') && atoi(digits.c_str()) < 256;
  if (!ok) throw UsageError("\"" + word + "\" is not a vnet: give zynet0 ... zynet255 (or 0 ... 255)");
  return "zynet" + digits;
}

uint32_t VnetNumber(const std::string &name) { return static_cast<uint32_t>(atoi(name.c_str() + 5)); }

std::string VnetNameOf(uint32_t number) { return "zynet" + std::to_string(number); }

bool Switch(const std::string &word, const char *what) {
  static const char *const kOn[] = {"on", "yes", "true", "1"};
  static const char *const kOff[] = {"off", "no", "false", "0"};
  for (const char *w : kOn)
    if (word == w) return true;
  for (const char *w : kOff)
    if (word == w) return false;
  throw UsageError(std::string(what) + " must be on or off (yes or no), not \"" + word + "\"");
}

bool Protocol(const std::string &word) {
  if (word == "tcp" || word == "TCP") return true;
  if (word == "udp" || word == "UDP") return false;
  throw UsageError("the protocol must be tcp or udp, not \"" + word + "\"");
}

// ---- Library calls -----------------------------------------------------------

namespace {

constexpr char kDefaultLogPath[] = "/var/log/nexcfg";
constexpr uint32_t kAllLevels = 0x7f;
std::string gLogPath = kDefaultLogPath;
int gLoads = 0;

long FileSize(const std::string &path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : 0;
}

// The log file of the loaded library: the database names one, which the
// library keeps only when it can be opened and its name fits the library's
// 256-byte buffer.
std::string LoadedLogPath() {
  const char *configured = nullptr;
  uint32_t level = NXC_GetCurrentLogLevel();
  const bool quieted = NXC_SetCurrentLogLevel(0);  // a missing answer is no news
  bool found = NXC_VnetCfgGetAnswer("NXC_LOG_FILE", &configured) && configured;
  // A level that cannot be put back leaves the log quiet: nothing more to do.
  if (quieted) (void)NXC_SetCurrentLogLevel(level);
  if (!found || strlen(configured) >= 256) return kDefaultLogPath;
  FILE *probe = fopen(configured, "ab+e");
  if (!probe) return kDefaultLogPath;
  fclose(probe);
  return configured;
}

// A log line without the time in front of it ("Nov 22 03:37:16 ").
std::string Message(const std::string &line) {
  constexpr size_t kStamp = 16;
  bool stamped = line.size() > kStamp && line[kStamp - 1] == ' ' && line[9] == ':' && line[12] == ':';
  return stamped ? line.substr(kStamp) : line;
}

// Library texts that tell the reason of a failure, in the user's words.
struct Reason {
  const char *logText;
  const char *why;
  const char *fix;
};
constexpr Reason kReasons[] = {
    {"Failed to obtain lock on vnet config", "another program holds the networking database's lock",
     "try again when it is done"},
    {"not in stopped state", "the vnet's daemon is running",
     "stop it first (nexcfg service stop VNET dhcp|nat), then try again"},
    {"service is not configured for this vnet", "the service is not configured for this vnet",
     "switch its feature on first (nexcfg dhcp on VNET, nat on, adapter on)"},
    {"Subnet is not assigned", "the vnet has no subnet",
     "give it one (nexcfg vnet set VNET subnet A.B.C.0/24)"},
    {"configuration file needed for the service does not exist",
     "the service's configuration file has not been written",
     "write it (nexcfg dhcp update VNET, nat update)"},
    {"still running on this vnet Cannot delete", "a daemon of the vnet is running",
     "stop the vnet's services first (nexcfg service stop VNET)"},
    {"is still enabled on vnet", "the vnet's host-only adapter is up",
     "bring it down first (nexcfg adapter down VNET)"},
    {"Could not automatically determine available subnet",
     "no free subnet was found: every candidate answered the ping",
     "give one (nexcfg vnet set VNET subnet A.B.C.0/24)"},
    {"Daemon process did not report status", "the daemon did not start",
     "see the library log; is the daemon's program installed?"},
    {"Failed to enable hostonly adapter", "the host-only adapter could not be brought up",
     "is the vnet's interface there? (ip link show)"},
    {"Import file does not exist", "the file does not exist", "give the path of an exported database"},
    {"Failed to parse and load configuration data", "the file is not a database the library can read",
     "give a file written by nexcfg db export"},
};

}  // namespace

// ---- Keeping the database short ----------------------------------------------

namespace {

// The journal is compacted once it is this much longer than the records it
// holds, written compactly, and at least kSmallestJournal long: each load
// replays the whole journal, so every change the tool appends slows every
// later load until then.
constexpr long kSmallestJournal = 64 * 1024;

// A look at the journal's compact size takes a compact export of the whole
// cache, so it is made again only once the file has grown by this part of
// its size at the last look, or is another file. The last look is noted in
// a file under RUNDIR: the database file's device, inode and size.
constexpr long kLookAgainPart = 16;

std::string LookNotePath() {
  std::string dir = AskAnswer("RUNDIR");
  return (dir.empty() ? std::string("/var/run") : dir) + "/nexcfg-journal";
}

// The database file as the last look saw it; all 0 when no note is there
// (or two tools wrote it at once): then the next look is made now.
struct stat LastLook(const std::string &note) {
  struct stat seen = {};
  char text[96] = "";
  int fd = open(note.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return seen;
  ssize_t n = read(fd, text, sizeof text - 1);
  close(fd);
  unsigned long long dev = 0, ino = 0;
  long long size = 0;
  if (n > 0 && sscanf(text, "%llu %llu %lld\n", &dev, &ino, &size) == 3) {
    seen.st_dev = static_cast<dev_t>(dev);
    seen.st_ino = static_cast<ino_t>(ino);
    seen.st_size = static_cast<off_t>(size);
  }
  return seen;
}

// Notes the database file as a look saw it. A note that cannot be written,
// or only in part (its size cut short), only brings the next look sooner.
void NoteLook(const std::string &note, const struct stat &st) {
  char text[96];
  int length = snprintf(text, sizeof text, "%llu %llu %lld\n", static_cast<unsigned long long>(st.st_dev),
                        static_cast<unsigned long long>(st.st_ino), static_cast<long long>(st.st_size));
  int fd = open(note.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return;
  (void)!write(fd, text, static_cast<size_t>(length));
  close(fd);
}

// Whether a journal of this size is due for compaction, its records taking
// compactLength bytes written compactly.
bool Overdue(off_t size, size_t compactLength) {
  return size >= kSmallestJournal && size > static_cast<off_t>(compactLength + compactLength / 2);
}

// True when the journal has grown to half again the loaded cache written
// compactly, as far as the last look tells.
bool JournalOverdue(const std::string &note) {
  struct stat st;
  if (stat(kDatabasePath, &st) != 0 || st.st_size < kSmallestJournal) return false;
  struct stat last = LastLook(note);
  if (last.st_dev == st.st_dev && last.st_ino == st.st_ino && st.st_size >= last.st_size &&
      st.st_size - last.st_size < last.st_size / kLookAgainPart)
    return false;
  char *text = nullptr;
  size_t length = 0;
  if (!NXCNetCfgExportConfigToBuffer(nullptr, &text, &length, false)) return false;
  free(text);
  if (Overdue(st.st_size, length)) return true;
  NoteLook(note, st);
  return false;
}

// Puts text in place of the database the way the library's own rewrite
// does: a temporary file beside it (named so that the next load removes it
// when this process dies first) with the database's permissions, synced,
// renamed over the database, and the rename synced. 0, or the errno of the
// step that failed (the database then stays as it was).
int ReplaceDatabase(const std::string &text) {
  std::string path = kDatabasePath;
  size_t slash = path.rfind('/');
  std::string dir = path.substr(0, slash);
  std::string temporary = dir + "/." + path.substr(slash + 1) + ".XXXXXX";
  struct stat st;
  if (stat(kDatabasePath, &st) != 0) return errno;
  int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) return errno;
  int err = fchmod(fd, st.st_mode & 07777) == 0 ? 0 : errno;
  for (size_t done = 0; err == 0 && done < text.size();) {
    ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) err = n < 0 ? errno : ENOSPC;
    else done += static_cast<size_t>(n);
  }
  if (err == 0 && fsync(fd) != 0) err = errno;
  if (close(fd) != 0 && err == 0) err = errno;
  if (err == 0 && rename(temporary.c_str(), kDatabasePath) != 0) err = errno;
  if (err != 0) {
    unlink(temporary.c_str());
    return err;
  }
  int dirFd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  // The rename is made either way; only its surviving a power cut is at stake.
  if (dirFd >= 0) {
    (void)fsync(dirFd);
    close(dirFd);
  }
  return 0;
}

// The compact rewrite with the NAT66 prefixes in it, made under the
// database lock from the file as it is then (other programs may have
// appended to it since this one loaded it). The library's own rewrite
// leaves the prefixes out, so appending them after it would leave a moment
// in which the database has none; here the file that is renamed into place
// holds them already. The prefixes are those the library reads from the
// journal, in the records it writes for them.
void CompactKeepingPrefixes(const std::string &note) {
  if (!NXCNetCfgLockConfig(nullptr)) return;  // the journal only stays long
  NXCNetworkConfigurationDB *file = nullptr;
  char *records = nullptr;
  size_t length = 0;
  struct stat st;
  if (NXCNetCfgLoad(kDatabasePath, &file, false, /*readOnly=*/true) &&
      NXCNetCfgExportConfigToBuffer(file, &records, &length, false) && stat(kDatabasePath, &st) == 0) {
    // Another tool may have compacted it while this one waited for the lock.
    bool seen = true;  // st is the file as it stands now
    if (Overdue(st.st_size, length)) {
      std::string text = "VERSION=1,0\n";
      text.append(records, length);
      DbFile journal = ReadDbFile(kDatabasePath);
      for (uint32_t vnet = 0; vnet < NXC_NUM_VNETS; ++vnet)
        for (const std::string &p : PrefixesOf(journal, static_cast<int>(vnet)))
          if (NXCNetCfgLookupNATPrefix(file, vnet, p.c_str()))
            text += "add_nat_prefix " + std::to_string(vnet) + " " + p + "\n";
      int err = ReplaceDatabase(text);
      if (err) std::fprintf(stderr, "nexcfg: could not compact the database: %s\n", strerror(err));
      seen = err == 0 && stat(kDatabasePath, &st) == 0;
    }
    if (seen) NoteLook(note, st);
  }
  free(records);
  if (file) (void)NXCNetCfgUnload(&file, false);
  (void)NXCNetCfgUnlockConfig(nullptr);
}

}  // namespace

Library::Library(bool readOnly) : wasLoaded_(gLoads > 0), readOnly_(readOnly) {
  LogWatch watch;
  bool loaded = NXC_Load(readOnly ? 1 : 0);
  watch.Report();
  if (!loaded) {
    Error error = CallFailure("load the networking database", watch.Lines());
    if (!NXC_NetworkingDBExists()) {
      error = Error(kCodeFailed, "cannot load the networking database: it does not exist", "nexcfg db create",
                    error.log);
      error.logPath = LogPath();
    }
    throw error;
  }
  ++gLoads;
  if (!wasLoaded_) gLogPath = LoadedLogPath();
}

Library::~Library() {
  --gLoads;
  // Every change is in the database file already, appended by the call
  // that made it. The compact rewrite at the last unload is left to
  // --compact: it drops the NAT66 prefixes, which the library keeps only
  // as appended records. A journal grown far past its records is compacted
  // all the same, with the prefixes kept.
  if (Opts().compact && !wasLoaded_)
    NXC_Unload();
  else {
    if (!wasLoaded_ && !readOnly_) {
      std::string note = LookNotePath();
      if (JournalOverdue(note)) CompactKeepingPrefixes(note);
    }
    NXC_Unload2(0);
  }
  if (!wasLoaded_) gLogPath = kDefaultLogPath;
}

bool LibraryLoaded() { return gLoads > 0; }

std::string LogPath() { return gLogPath; }

LogWatch::LogWatch(bool quiet) : path_(LogPath()), start_(FileSize(path_)) {
  // Unloaded, the library sets its own level for the calls that work so.
  if (!LibraryLoaded()) return;
  savedLevel_ = NXC_GetCurrentLogLevel();
  uint32_t wanted = Opts().verbose ? savedLevel_ | kAllLevels : quiet ? 0 : savedLevel_ | NXC_LOG_ERR;
  if (wanted != savedLevel_) changed_ = NXC_SetCurrentLogLevel(wanted);
}

LogWatch::~LogWatch() {
  // Nothing more can be done when the level cannot be put back.
  if (changed_) (void)NXC_SetCurrentLogLevel(savedLevel_);
}

std::vector<std::string> LogWatch::Lines() const {
  std::vector<std::string> lines;
  FILE *in = fopen(path_.c_str(), "re");
  if (!in) return lines;
  long size = FileSize(path_);
  // A log that shrank was replaced during the call: all of it is new.
  if (fseek(in, size >= start_ ? start_ : 0, SEEK_SET) != 0) {
    fclose(in);
    return lines;
  }
  std::string line;
  for (int c; (c = fgetc(in)) != EOF;) {
    if (c != '\n') {
      line.push_back(static_cast<char>(c));
      continue;
    }
    if (!line.empty()) lines.push_back(line);
    line.clear();
  }
  if (!line.empty()) lines.push_back(line);
  fclose(in);
  return lines;
}

void LogWatch::Report() const {
  if (!Opts().verbose) return;
  for (const auto &line : Lines()) fprintf(stderr, "  log: %s\n", line.c_str());
}

Error CallFailure(const std::string &what, const std::vector<std::string> &lines) {
  std::string message = "cannot " + what, fix;
  for (const Reason &r : kReasons) {
    bool told = std::any_of(lines.begin(), lines.end(),
                            [&](const std::string &l) { return l.find(r.logText) != std::string::npos; });
    if (!told) continue;
    message += ": " + std::string(r.why);
    fix = r.fix;
    break;
  }
  Error error(kCodeFailed, message, fix, lines);
  error.logPath = LogPath();
  if (Opts().verbose) return error;
  // Each text once, the last few: the failing call's own summary comes last.
  constexpr size_t kMostLines = 5;
  std::vector<std::string> distinct;
  for (const auto &line : lines) {
    std::string text = Message(line);
    if (std::find(distinct.begin(), distinct.end(), text) == distinct.end()) distinct.push_back(text);
  }
  if (distinct.size() > kMostLines) distinct.erase(distinct.begin(), distinct.end() - kMostLines);
  error.log = distinct;
  return error;
}

std::string AskText(bool (*getter)(const char *, char *, uint32_t *), const std::string &vnet,
                    uint32_t capacity) {
  std::vector<char> buffer(capacity, '\0');
  uint32_t length = capacity;
  if (!Ask([&] { return getter(vnet.c_str(), buffer.data(), &length); })) return "";
  return std::string(buffer.data());
}

std::string AskAnswer(const std::string &key) {
  const char *value = nullptr;
  if (!Ask([&] { return NXC_VnetCfgGetAnswer(key.c_str(), &value); }) || !value) return "";
  return value;
}

}  // namespace nexcfg
