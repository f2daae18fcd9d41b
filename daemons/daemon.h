// daemon.h - what the four per-vnet daemons have in common: how they are
// started by the library and how they end.
//
// The library forks and execs a daemon with a fixed command line and waits
// for that first process to exit; then it reads a 2-byte status from the
// descriptor given after "-s". A daemon therefore:
//   1. parses its command line (a malformed one prints a usage line and
//      exits with status 2),
//   2. detaches: the first process exits at once, the second carries on in
//      a session of its own,
//   3. sets itself up, pushing the undo of every step onto an UndoList,
//   4. writes its pid file, reports the status once it really serves, and
//      closes the status descriptor (the library waits for end of file
//      otherwise),
//   5. serves until SIGTERM (or SIGINT), then undoes exactly what it made,
//      last step first, and removes its pid file.
// A daemon that cannot serve exits without reporting, after undoing what
// it made; the library then sees end of file and reports the failure.
// Every line a daemon writes goes to standard error, which the library
// points at its log.
#pragma once

#include <signal.h>

#include <functional>
#include <string>
#include <vector>

namespace zynetd {

// Writes one line "<time> <program>[<pid>]: <message>" to standard error.
void Log(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Prints "usage: <usage>" on standard error and exits with status 2.
[[noreturn]] void UsageExit(const char *usage);

// One option of a command line that takes the next argument as its value,
// such as "-s FD". Options match whole words.
struct ValueOption {
  const char *name;
  std::string *value;
  bool required;
};

// Parses argv[1..]: each word equal to an option's name takes the next word
// as its value; every other word is appended to rest, in order. Exits
// through UsageExit when an option lacks its value, comes twice, or a
// required one is missing.
void ParseCommandLine(int argc, char **argv, const std::vector<ValueOption> &options,
                      std::vector<std::string> *rest, const char *usage);

// The whole text as a decimal number in [min, max]; false otherwise.
[[nodiscard]] bool ParseNumber(const std::string &text, long min, long max, long *out);

// The number at the end of text ("zynet8" and "/dev/zynet8" give 8), or -1.
int TrailingNumber(const std::string &text);

// The status descriptor given after "-s", now close-on-exec: exits through
// UsageExit unless it is a number naming an open descriptor.
int StatusDescriptor(const std::string &text, const char *usage);

// Detaches from the library's call: the first process closes the status
// descriptor and exits with status 0; the second returns here, in a new
// session, with standard input on /dev/null. Returns false (logged) when
// the fork fails.
[[nodiscard]] bool Detach(int statusFd);

// Undo steps of a daemon's set-up, run last first by RunAll (once) or at
// destruction.
class UndoList {
 public:
  UndoList() = default;
  UndoList(const UndoList &) = delete;
  UndoList &operator=(const UndoList &) = delete;
  ~UndoList() { RunAll(); }
  void Push(std::function<void()> undo) { steps_.push_back(std::move(undo)); }
  void RunAll();

 private:
  std::vector<std::function<void()>> steps_;
};

// Writes "<pid>\n" to path and pushes its removal. Logs and returns false
// on failure.
[[nodiscard]] bool WritePidFile(const std::string &path, UndoList *undo);

// Reports the status 0 over fd and closes it. Logs and returns false when
// the write fails (the library would see end of file: a failed start).
[[nodiscard]] bool ReportReady(int statusFd);

class EventLoop;
// Steps 4 and 5 above: writes the pid file, reports the status, serves in
// the loop until a terminating signal. Returns the daemon's exit status;
// the caller's UndoList then undoes the set-up.
int Serve(EventLoop *loop, int statusFd, const std::string &pidFile, UndoList *undo);

// Reads and writes a kernel setting, a file under /proc/sys such as
// "net/ipv4/ip_forward" (the value without its newline). Log and return
// false on failure.
[[nodiscard]] bool ReadSysctl(const std::string &name, std::string *value);
[[nodiscard]] bool WriteSysctl(const std::string &name, const std::string &text);

// A poll loop over descriptors and the daemon's signals. SIGTERM and SIGINT
// stop it; other signals go to their handlers. Signals are blocked and
// read from a signalfd, so handlers run in the loop, never asynchronously.
class EventLoop {
 public:
  EventLoop() = default;
  EventLoop(const EventLoop &) = delete;
  EventLoop &operator=(const EventLoop &) = delete;
  ~EventLoop();

  // Blocks SIGTERM, SIGINT, SIGHUP and SIGCHLD and opens the signalfd.
  // Logs and returns false on failure.
  [[nodiscard]] bool Init();
  // Calls onEvent with the poll events whenever fd is ready for events.
  void Watch(int fd, short events, std::function<void(short)> onEvent);
  void Unwatch(int fd);
  void OnSignal(int signo, std::function<void()> handler);
  // Called about once a second.
  void OnTick(std::function<void()> tick) { tick_ = std::move(tick); }
  // Runs until Stop() or a terminating signal; true when a terminating
  // signal ended it.
  [[nodiscard]] bool Run();
  void Stop() { stopped_ = true; }
  // In a forked child: puts back the signal mask in force before Init, so
  // that a program it execs gets its signals.
  void RestoreSignalsInChild() const;

 private:
  struct Watched {
    int fd;
    short events;
    std::function<void(short)> onEvent;
  };
  struct Handler {
    int signo;
    std::function<void()> handler;
  };
  [[nodiscard]] bool HandleSignals();

  int signalFd_ = -1;
  bool stopped_ = false;
  std::vector<Watched> watched_;
  std::vector<Handler> handlers_;
  std::function<void()> tick_;
  sigset_t oldMask_{};
};

}  // namespace zynetd
