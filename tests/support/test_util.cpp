#include "support/test_util.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "base/file_lock.h"

namespace nxc::test {

TempDir::TempDir() {
  char pattern[] = "/tmp/nxc-test-XXXXXX";
  const char *made = mkdtemp(pattern);
  path_ = made ? made : "/tmp";
}

TempDir::~TempDir() {
  if (path_ != "/tmp") (void)Shell("rm -rf '" + path_ + "'");
}

std::string ReadFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

bool WriteFile(const std::string &path, const std::string &text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  return static_cast<bool>(out);
}

bool FileExists(const std::string &path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

int Shell(const std::string &command) {
  int status = system(command.c_str());
  if (status == -1 || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

std::string CommandOutput(const std::string &command) {
  std::string out;
  FILE *pipe = popen(command.c_str(), "r");
  if (!pipe) return out;
  char chunk[512];
  for (size_t n; (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;) out.append(chunk, n);
  pclose(pipe);
  return out;
}

std::vector<std::string> SplitLines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

int RunInChild(const std::function<int()> &body) {
  fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) _exit(body());
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

std::vector<std::string> ReportFromChild(
    const std::function<void(std::vector<std::string> *)> &body) {
  TempDir dir;
  const std::string report = dir.File("report");
  int status = RunInChild([&] {
    std::vector<std::string> lines;
    body(&lines);
    std::string text;
    for (const auto &line : lines) text += line + "\n";
    return WriteFile(report, text) ? 0 : 1;
  });
  if (status != 0) return {"child failed"};
  return SplitLines(ReadFile(report));
}

int LockFromOtherProcess(const std::string &path, int timeoutMs) {
  return RunInChild([&] {
    int error = -1;
    FileLock *lock = FileLockAcquire(path.c_str(), timeoutMs, &error);
    if (lock) return 0;
    return error == 0 ? 1 : 2;
  });
}

LockHolder::LockHolder(const std::string &path) {
  int ready[2];
  if (pipe(ready) != 0) return;
  fflush(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    int error = 0;
    char c = FileLockAcquire(path.c_str(), 1000, &error) ? '1' : '0';
    (void)!write(ready[1], &c, 1);
    for (;;) pause();  // until the parent kills it
  }
  char c = '0';
  held_ = pid_ > 0 && read(ready[0], &c, 1) == 1 && c == '1';
  close(ready[0]);
  close(ready[1]);
}

LockHolder::~LockHolder() {
  if (pid_ <= 0) return;
  (void)kill(pid_, SIGKILL);
  (void)waitpid(pid_, nullptr, 0);
}

TestLinks::~TestLinks() {
  for (const std::string &name : names_) (void)Shell("ip link del " + name + " 2>/dev/null");
}

bool TestLinks::Add(const std::string &name, const std::string &command) {
  names_.push_back(name);
  return Shell("ip " + command) == 0;
}

bool TestLinks::AddHostAdapters() {
  return Add("ethA", "link add ethA type veth peer name ethB") &&
         Add("ethC", "link add ethC type veth peer name ethD") &&
         Add("zynet1", "link add zynet1 type veth peer name ZYNET8");
}

std::string LogText() { return ReadFile(kLogPath); }

bool LogHas(const std::string &text) { return LogText().find(text) != std::string::npos; }

// A log that cannot be cleared would let old lines answer later checks.
void ClearLog() {
  if (truncate(kLogPath, 0) != 0 && errno != ENOENT) {
    perror("truncating the library's log");
    abort();
  }
}

int LogCount(const std::string &text) {
  std::istringstream in(LogText());
  std::string line;
  int n = 0;
  while (std::getline(in, line))
    if (line.find(text) != std::string::npos) ++n;
  return n;
}

}  // namespace nxc::test
