// zynet-standin.cpp - stand-in for the four per-vnet daemons.
//
// Tests link it under the daemons' names (zynet-bridge, zynet-netifup,
// zynet-dhcpd, zynet-natd) in the folder they give as BINDIR; it plays the
// daemon named by argv[0]. Each run writes its arguments, one per line, to
// /run/zynet-standin/<name>.argv, and then behaves as the word in
// /run/zynet-standin/<name>.mode says:
//
//   (no file)     detach: the first process exits, the second one writes its
//                 pid to the pid file ("-d" or "-pf"), reports the 2-byte
//                 status 0 over the "-s" descriptor, closes it and waits for
//                 a signal
//   ignore-term   the same, with the terminate signal ignored
//   silent        the same, but it closes the "-s" descriptor without
//                 reporting
//   exit          exits with status 1 at once, reporting nothing
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

namespace {

constexpr char kStateDir[] = "/run/zynet-standin";

std::string Name(const char *argv0) {
  const char *slash = strrchr(argv0, '/');
  return slash ? slash + 1 : argv0;
}

std::string ReadMode(const std::string &name) {
  std::string path = std::string(kStateDir) + "/" + name + ".mode";
  FILE *in = fopen(path.c_str(), "re");
  if (!in) return "";
  char word[64] = "";
  if (fscanf(in, "%63s", word) != 1) word[0] = '\0';
  fclose(in);
  return word;
}

bool RecordArgs(const std::string &name, int argc, char **argv) {
  std::string path = std::string(kStateDir) + "/" + name + ".argv";
  FILE *out = fopen(path.c_str(), "we");
  if (!out) return false;
  for (int i = 0; i < argc; ++i) fprintf(out, "%s\n", argv[i]);
  return fclose(out) == 0;
}

// The argument after option, or null.
const char *After(int argc, char **argv, const char *option) {
  for (int i = 1; i + 1 < argc; ++i)
    if (strcmp(argv[i], option) == 0) return argv[i + 1];
  return nullptr;
}

bool WritePidFile(const char *path) {
  FILE *out = fopen(path, "we");
  if (!out) return false;
  fprintf(out, "%d\n", static_cast<int>(getpid()));
  return fclose(out) == 0;
}

}  // namespace

int main(int argc, char **argv) {
  std::string name = Name(argv[0]);
  if (!RecordArgs(name, argc, argv)) return 2;
  std::string mode = ReadMode(name);
  if (mode == "exit") return 1;

  const char *statusArg = After(argc, argv, "-s");
  const char *pidFile = After(argc, argv, "-pf");
  if (!pidFile) pidFile = After(argc, argv, "-d");
  if (!statusArg || !pidFile) return 3;
  int statusFd = atoi(statusArg);

  pid_t pid = fork();
  if (pid < 0) return 4;
  if (pid > 0) {
    close(statusFd);
    _exit(0);
  }
  setsid();
  if (mode == "ignore-term") signal(SIGTERM, SIG_IGN);
  if (!WritePidFile(pidFile)) _exit(5);
  if (mode != "silent") {
    uint16_t status = 0;
    if (write(statusFd, &status, sizeof status) != sizeof status) _exit(6);
  }
  close(statusFd);
  for (;;) pause();
}
