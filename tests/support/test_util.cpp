#include "support/test_util.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

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

std::string LogText() { return ReadFile(kLogPath); }

bool LogHas(const std::string &text) { return LogText().find(text) != std::string::npos; }

void ClearLog() { (void)truncate(kLogPath, 0); }

int LogCount(const std::string &text) {
  std::istringstream in(LogText());
  std::string line;
  int n = 0;
  while (std::getline(in, line))
    if (line.find(text) != std::string::npos) ++n;
  return n;
}

}  // namespace nxc::test
