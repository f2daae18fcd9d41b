// test_util.h - small helpers shared by the test programs.
#pragma once

#include <functional>
#include <string>
#include <vector>

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
// What a shell command printed on its standard output.
std::string CommandOutput(const std::string &command);
// The lines of text, without their newlines.
std::vector<std::string> SplitLines(const std::string &text);

// Runs body in a forked child (which leaves with _exit) and returns the
// child's exit status, or -1 when it did not exit.
int RunInChild(const std::function<int()> &body);
// Runs body in a forked child, which starts from this process's state as it
// is now (process-wide tables the child builds die with it), and returns the
// lines the child reported, or {"child failed"}.
std::vector<std::string> ReportFromChild(
    const std::function<void(std::vector<std::string> *)> &body);

// Tries the file lock on path from another process for timeoutMs: 0 when it
// got the lock, 1 when it timed out, 2 on another failure.
int LockFromOtherProcess(const std::string &path, int timeoutMs = 100);
// Holds the file lock on path from another process while it lives.
class LockHolder {
 public:
  explicit LockHolder(const std::string &path);
  ~LockHolder();
  LockHolder(const LockHolder &) = delete;
  LockHolder &operator=(const LockHolder &) = delete;
  bool held() const { return held_; }

 private:
  int pid_ = -1;
  bool held_ = false;
};

// Network links a test makes in its own namespace, deleted at scope exit.
class TestLinks {
 public:
  TestLinks() = default;
  ~TestLinks();
  TestLinks(const TestLinks &) = delete;
  TestLinks &operator=(const TestLinks &) = delete;
  // Runs `ip <command>`, which makes the link called name; true when it did.
  bool Add(const std::string &name, const std::string &command);
  // The host adapters of the bridging tests: the veth pairs ethA/ethB and
  // ethC/ethD, and zynet1/ZYNET8, which are the system's own by their names.
  bool AddHostAdapters();

 private:
  std::vector<std::string> names_;
};

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
