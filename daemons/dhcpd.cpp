// dhcpd.cpp - zynet-dhcpd, a vnet's DHCP server: the ISC DHCP server run on
// the vnet's bridge with the dhcpd.conf and leases file the library names.
//
// The server needs an address of the served subnet on its interface. A vnet
// with a host-only adapter has one; on a vnet without one (a NAT network,
// say) the daemon gives the bridge the address dhcpd.conf reserves for the
// host (the host entry named after the interface) for as long as it runs.
// The status is reported once the server says it serves; its output goes
// to the daemon's standard error line by line.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "base/unique_fd.h"
#include "daemons/daemon.h"
#include "daemons/rtnl.h"
#include "daemons/vnet_bridge.h"

namespace {

using namespace zynetd;

constexpr char kUsage[] = "zynet-dhcpd -s FD -cf CONF -lf LEASES -pf PIDFILE IFNAME";
constexpr char kServer[] = "/usr/sbin/dhcpd";
constexpr char kServing[] = "Server starting service.";
constexpr int kStartTimeoutSec = 30;

// What the daemon needs to know of dhcpd.conf.
struct ServedSubnet {
  uint32_t network = 0;  // host order
  uint32_t mask = 0;
  uint32_t hostAddress = 0;  // the host entry's fixed address, or 0
};

// The words of a dhcpd.conf, without comments; ';', '{' and '}' are words
// of their own.
std::vector<std::string> ConfWords(std::istream &in) {
  std::vector<std::string> words;
  for (std::string line; std::getline(in, line);) {
    line = line.substr(0, line.find('#'));
    for (char c : {';', '{', '}'})
      for (size_t at = line.find(c); at != std::string::npos; at = line.find(c, at + 3)) line.replace(at, 1, std::string(" ") + c + " ");
    std::istringstream wordsIn(line);
    for (std::string w; wordsIn >> w;) words.push_back(w);
  }
  return words;
}

// The first subnet declaration and the fixed address of the host entry
// called name. Logs and returns false when the file cannot be read or has
// no subnet.
[[nodiscard]]
bool ReadServedSubnet(const std::string &conf, const std::string &name, ServedSubnet *out) {
  std::ifstream in(conf);
  if (!in) {
    Log("cannot read %s: %s", conf.c_str(), strerror(errno));
    return false;
  }
  std::vector<std::string> w = ConfWords(in);
  ServedSubnet s;
  bool haveSubnet = false;
  for (size_t i = 0; i + 3 < w.size(); ++i) {
    if (!haveSubnet && w[i] == "subnet" && w[i + 2] == "netmask")
      haveSubnet = ParseIpv4(w[i + 1], &s.network) && ParseIpv4(w[i + 3], &s.mask);
    if (w[i] != "host" || w[i + 1] != name || w[i + 2] != "{") continue;
    for (size_t j = i + 3; j + 1 < w.size() && w[j] != "}"; ++j)
      if (w[j] == "fixed-address") (void)ParseIpv4(w[j + 1], &s.hostAddress);
  }
  if (!haveSubnet) {
    Log("%s declares no subnet", conf.c_str());
    return false;
  }
  *out = s;
  return true;
}

// Makes sure the bridge has an address in the served subnet (see above).
[[nodiscard]]
bool EnsureServerAddress(Rtnl *rtnl, const Link &bridge, const ServedSubnet &s, UndoList *undo) {
  std::vector<Address> present;
  if (int rc = rtnl->Addresses(bridge.index, AF_INET, &present)) {
    Log("cannot list the addresses of %s: %s", bridge.name.c_str(), strerror(-rc));
    return false;
  }
  for (const Address &a : present) {
    uint32_t addr = 0;
    memcpy(&addr, a.local.data(), sizeof addr);
    if ((ntohl(addr) & s.mask) == s.network) return true;
  }
  if (!s.hostAddress || (s.hostAddress & s.mask) != s.network) {
    Log("%s has no address in the served subnet, and dhcpd.conf reserves none for the host", bridge.name.c_str());
    return false;
  }
  return EnsureAddress(rtnl, bridge, Ipv4Address(s.hostAddress, s.mask), undo);
}

// The ISC DHCP server, run as a child with its output on a pipe.
class Server {
 public:
  ~Server() { Stop(); }

  [[nodiscard]]
  bool Start(const EventLoop &loop, const std::string &conf, const std::string &leases, const std::string &name) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
      Log("cannot make a pipe: %s", strerror(errno));
      return false;
    }
    nxc::UniqueFd readEnd(fds[0]), writeEnd(fds[1]);
    pid_ = fork();
    if (pid_ < 0) {
      Log("cannot fork the DHCP server: %s", strerror(errno));
      return false;
    }
    if (pid_ == 0) {
      loop.RestoreSignalsInChild();
      if (dup2(writeEnd.get(), STDOUT_FILENO) < 0 || dup2(writeEnd.get(), STDERR_FILENO) < 0) _exit(127);
      const char *argv[] = {kServer, "-4", "-d", "-cf", conf.c_str(), "-lf", leases.c_str(), "--no-pid", name.c_str(),
                            nullptr};
      execv(kServer, const_cast<char **>(argv));
      fprintf(stderr, "cannot run %s: %s\n", kServer, strerror(errno));
      _exit(127);
    }
    output_ = std::move(readEnd);
    (void)fcntl(output_.get(), F_SETFL, O_NONBLOCK);
    return true;
  }

  int output() const { return output_.get(); }
  [[nodiscard]] bool serving() const { return serving_; }
  [[nodiscard]] bool running() const { return pid_ > 0; }

  // Passes the server's complete output lines on to the log, noting the
  // one that says it serves. False once the output has ended.
  [[nodiscard]] bool ReadOutput() {
    char buf[4096];
    ssize_t n;
    while ((n = read(output_.get(), buf, sizeof buf)) > 0) pending_.append(buf, static_cast<size_t>(n));
    for (size_t end; (end = pending_.find('\n')) != std::string::npos; pending_.erase(0, end + 1)) {
      std::string line = pending_.substr(0, end);
      if (line.empty()) continue;
      Log("dhcpd: %s", line.c_str());
      serving_ = serving_ || line == kServing;
    }
    return n != 0;
  }

  // Reaps the server if it has exited; true when it has.
  [[nodiscard]] bool Reap() {
    int status = 0;
    if (pid_ <= 0 || waitpid(pid_, &status, WNOHANG) != pid_) return false;
    if (WIFEXITED(status))
      Log("the DHCP server exited with status %d", WEXITSTATUS(status));
    else
      Log("the DHCP server was ended by signal %d", WTERMSIG(status));
    pid_ = -1;
    return true;
  }

  // Terminates the server, killing it when it does not end within a second.
  void Stop() {
    if (pid_ <= 0) return;
    (void)kill(pid_, SIGTERM);
    for (int i = 0; i < 100 && !Reap(); ++i) usleep(10000);
    if (pid_ <= 0) return;
    (void)kill(pid_, SIGKILL);
    (void)waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
  nxc::UniqueFd output_;
  std::string pending_;
  bool serving_ = false;
};

}  // namespace

int main(int argc, char **argv) {
  std::string statusArg, conf, leases, pidFile;
  std::vector<std::string> rest;
  ParseCommandLine(argc, argv,
                   {{"-s", &statusArg, true}, {"-cf", &conf, true}, {"-lf", &leases, true}, {"-pf", &pidFile, true}},
                   &rest, kUsage);
  if (rest.size() != 1 || rest[0][0] == '-') UsageExit(kUsage);
  int statusFd = StatusDescriptor(statusArg, kUsage);
  const std::string &name = rest[0];

  EventLoop loop;
  Rtnl rtnl;
  ServedSubnet subnet;
  if (!BeginDaemon(statusFd, &loop, &rtnl) || !ReadServedSubnet(conf, name, &subnet)) return 1;
  nxc::UniqueFd leasesFile(open(leases.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  if (!leasesFile) {
    Log("cannot create the leases file %s: %s", leases.c_str(), strerror(errno));
    return 1;
  }
  leasesFile.reset();
  UndoList undo;
  VnetBridge bridge;
  int vnet = TrailingNumber(name);
  if (!AcquireBridge(&rtnl, name, vnet >= 0 ? VnetAdapterMac(vnet) : "", &bridge, &undo) ||
      !EnsureUp(&rtnl, bridge, &undo) || !EnsureServerAddress(&rtnl, bridge.link, subnet, &undo))
    return 1;

  Server server;
  if (!server.Start(loop, conf, leases, name)) return 1;
  undo.Push([&server] { server.Stop(); });
  // Until it serves, and then for as long as it runs, the server's output
  // goes to the log and its end ends the daemon.
  bool starting = true;
  loop.Watch(server.output(), POLLIN, [&](short) {
    if (!server.ReadOutput()) loop.Unwatch(server.output());
    if (starting && server.serving()) loop.Stop();
  });
  loop.OnSignal(SIGCHLD, [&] {
    if (!server.Reap()) return;
    (void)server.ReadOutput();
    loop.Stop();
  });
  time_t deadline = time(nullptr) + kStartTimeoutSec;
  loop.OnTick([&] {
    if (starting && time(nullptr) > deadline) {
      Log("the DHCP server did not start serving within %d s", kStartTimeoutSec);
      loop.Stop();
    }
  });
  if (loop.Run() || !server.serving() || !server.running()) return 1;
  starting = false;
  return Serve(&loop, statusFd, pidFile, &undo);
}
