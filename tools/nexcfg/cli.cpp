// cli.cpp - JSON values, output, command-line words and watched library
// calls shared by every nexcfg command.
#include "cli.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace nexcfg {

// ---- JSON values -----------------------------------------------------------

Json &Json::Push(Json value) {
  items_.push_back(std::move(value));
  return items_.back();
}

Json &Json::Set(const std::string &key, Json value) {
  for (auto &member : members_) {
    if (member.first == key) {
      member.second = std::move(value);
      return member.second;
    }
  }
  members_.emplace_back(key, std::move(value));
  return members_.back().second;
}

void Json::Merge(const Json &other) {
  for (const auto &[key, value] : other.members_) Set(key, value);
}

const Json *Json::Find(const std::string &key) const {
  for (const auto &member : members_)
    if (member.first == key) return &member.second;
  return nullptr;
}

namespace {

void Quote(const std::string &s, std::string *out) {
  out->push_back('"');
  for (unsigned char c : s) {
    switch (c) {
      case '"':
        *out += "\\\"";
        break;
      case '\\':
        *out += "\\\\";
        break;
      case '\n':
        *out += "\\n";
        break;
      case '\r':
        *out += "\\r";
        break;
      case '\t':
        *out += "\\t";
        break;
      default:
        if (c < 0x20) {
          char esc[8];
          snprintf(esc, sizeof esc, "\\u%04x", c);
          *out += esc;
        } else {
          out->push_back(static_cast<char>(c));
        }
    }
  }
  out->push_back('"');
}

void Indent(std::string *out, int indent) { out->append(static_cast<size_t>(indent) * 2, ' '); }

}  // namespace

void Json::DumpTo(std::string *out, int indent) const {
  switch (kind_) {
    case Kind::kNull:
      *out += "null";
      return;
    case Kind::kBool:
      *out += bool_ ? "true" : "false";
      return;
    case Kind::kInt:
      *out += std::to_string(int_);
      return;
    case Kind::kString:
      Quote(string_, out);
      return;
    case Kind::kArray:
      if (items_.empty()) {
        *out += "[]";
        return;
      }
      *out += "[\n";
      for (size_t i = 0; i < items_.size(); ++i) {
        Indent(out, indent + 1);
        items_[i].DumpTo(out, indent + 1);
        *out += i + 1 < items_.size() ? ",\n" : "\n";
      }
      Indent(out, indent);
      *out += "]";
      return;
    case Kind::kObject:
      if (members_.empty()) {
        *out += "{}";
        return;
      }
      *out += "{\n";
      for (size_t i = 0; i < members_.size(); ++i) {
        Indent(out, indent + 1);
        Quote(members_[i].first, out);
        *out += ": ";
        members_[i].second.DumpTo(out, indent + 1);
        *out += i + 1 < members_.size() ? ",\n" : "\n";
      }
      Indent(out, indent);
      *out += "}";
      return;
  }
}

std::string Json::Dump() const {
  std::string out;
  DumpTo(&out, 0);
  return out;
}

std::string Json::Text() const {
  switch (kind_) {
    case Kind::kBool:
      return bool_ ? "yes" : "no";
    case Kind::kInt:
      return std::to_string(int_);
    case Kind::kString:
      return string_.empty() ? "-" : string_;
    default:
      return "-";
  }
}

// ---- Output ----------------------------------------------------------------

namespace {
Options gOptions;
}  // namespace

const Options &Opts() { return gOptions; }
Options &MutableOpts() { return gOptions; }

void Table::Print(int indent) const {
  std::vector<size_t> width(header_.size(), 0);
  auto measure = [&](const std::vector<std::string> &row) {
    for (size_t i = 0; i < row.size() && i < width.size(); ++i)
      width[i] = std::max(width[i], row[i].size());
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
    printf("%s:%*s%s\n", key.c_str(), static_cast<int>(width - key.size() + 2), "",
           value.Text().c_str());
  }
}

void PrintJson(const Json &value) { printf("%s\n", value.Dump().c_str()); }

void PrintRecord(const Json &object) {
  if (Opts().json)
    PrintJson(object);
  else
    PrintFields(object);
}

void Say(const std::string &line) {
  if (!Opts().json) printf("%s\n", line.c_str());
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
  for (const char *p = digits; ok && *p; ++p) ok = hex ? isxdigit(*p) != 0 : isdigit(*p) != 0;
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
            std::all_of(digits.begin(), digits.end(), [](char c) { return isdigit(c) != 0; }) &&
            (digits.size() == 1 || digits[0] != '0') && atoi(digits.c_str()) < 256;
  if (!ok) throw UsageError("\"" + word + "\" is not a vnet: give zynet0 ... zynet255 (or 0 ... 255)");
  return "zynet" + digits;
}

uint32_t VnetNumber(const std::string &name) {
  return static_cast<uint32_t>(atoi(name.c_str() + 5));
}

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
std::string gLogPath = kDefaultLogPath;
bool gLoaded = false;

long FileSize(const std::string &path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : 0;
}

}  // namespace

std::string LogPath() { return gLogPath; }

void NoteLogPath(bool loaded) {
  gLogPath = kDefaultLogPath;
  gLoaded = loaded;
  if (!loaded) return;
  // The library keeps its default log when the configured one cannot be
  // opened or its name does not fit the library's 256-byte buffer.
  const char *configured = nullptr;
  uint32_t level = NXC_GetCurrentLogLevel();
  NXC_SetCurrentLogLevel(level & NXC_LOG_ERR);  // a missing answer is no news
  bool found = NXC_VnetCfgGetAnswer("NXC_LOG_FILE", &configured) && configured;
  NXC_SetCurrentLogLevel(level);
  if (!found || strlen(configured) >= 256) return;
  FILE *probe = fopen(configured, "ab+e");
  if (!probe) return;
  fclose(probe);
  gLogPath = configured;
}

LogWatch::LogWatch() : path_(LogPath()), start_(FileSize(path_)) {
  // Unloaded, the library sets its own level for the calls that work so.
  if (!gLoaded) return;
  // The API's own log lines of a failure are errors, information and
  // warnings; banners and argument traces only in verbose mode.
  constexpr uint32_t kFailureLevels = NXC_LOG_ERR | NXC_LOG_INFO | NXC_LOG_ERRCMN | NXC_LOG_WRN;
  constexpr uint32_t kAllLevels = 0x7f;
  savedLevel_ = NXC_GetCurrentLogLevel();
  uint32_t wanted = savedLevel_ | (Opts().verbose ? kAllLevels : kFailureLevels);
  if (wanted != savedLevel_) {
    NXC_SetCurrentLogLevel(wanted);
    raised_ = true;
  }
}

LogWatch::~LogWatch() {
  if (raised_) NXC_SetCurrentLogLevel(savedLevel_);
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

std::string AskText(bool (*getter)(const char *, char *, uint32_t *), const std::string &vnet,
                    uint32_t capacity) {
  std::vector<char> buffer(capacity, '\0');
  uint32_t length = capacity;
  if (!Ask([&] { return getter(vnet.c_str(), buffer.data(), &length); })) return "";
  return std::string(buffer.data());
}

}  // namespace nexcfg
