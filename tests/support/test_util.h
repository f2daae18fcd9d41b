// test_util.h - small helpers shared by the test programs.
#pragma once

#include <string>

namespace nxc::test {

// A fresh directory under /tmp, removed with its contents at scope exit.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  const std::string &path() const { return path_; }
  std::string File(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Whole-file helpers; ReadFile gives "" for a missing file.
std::string ReadFile(const std::string &path);
bool WriteFile(const std::string &path, const std::string &text);
bool FileExists(const std::string &path);
// Runs a shell command; returns its exit status (-1 when it did not exit).
int Shell(const std::string &command);

// The library's log as the tests see it: the default log file. Tests run in
// the sandbox, so this is the private /var/log/nexcfg.
constexpr char kLogPath[] = "/var/log/nexcfg";
std::string LogText();
// True when some log line contains text.
bool LogHas(const std::string &text);
// Empties the log file.
void ClearLog();
// Number of log lines containing text.
int LogCount(const std::string &text);

}  // namespace nxc::test
