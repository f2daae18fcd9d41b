// check_files.cpp - the daemons' configuration files measured against the
// database: missing, older than it or edited by hand, or refused by the
// real DHCP server.
#include <fcntl.h>
#include <strings.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "check.h"
#include "params.h"
#include "text.h"

namespace nexcfg {
namespace {

constexpr char kBlockStart[] = "###### ZYNET DHCP Configuration. Start of \"DO NOT MODIFY SECTION\" #####\n";
constexpr char kBlockEnd[] = "####### ZYNET DHCP Configuration. End of \"DO NOT MODIFY SECTION\" #######\n";

bool Exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

// The first of the usual places of a program that holds it, or "".
std::string FindProgram(const std::string &name) {
  std::string path = "/usr/sbin:/sbin:/usr/bin:/bin";
  if (const char *env = getenv("PATH")) path += std::string(":") + env;
  for (const std::string &dir : SplitText(path, ':'))
    if (!dir.empty() && access((dir + "/" + name).c_str(), X_OK) == 0) return dir + "/" + name;
  return "";
}

// Runs a program with its standard input empty; what it printed on its
// standard output and error, and its exit status (-1 when it did not run).
int RunProgram(const std::vector<std::string> &argv, std::string *output) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return -1;
  pid_t pid = fork();
  if (pid == 0) {
    int null = open("/dev/null", O_RDONLY);
    if (null < 0 || dup2(null, 0) < 0 || dup2(fds[1], 1) < 0 || dup2(fds[1], 2) < 0) _exit(127);
    std::vector<char *> args;
    for (const auto &a : argv) args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  close(fds[1]);
  char buffer[4096];
  for (ssize_t n; pid > 0 && (n = read(fds[0], buffer, sizeof buffer)) != 0;)
    if (n > 0) output->append(buffer, static_cast<size_t>(n));
  close(fds[0]);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

// The SHA-1 of text as 40 hex digits (by the system's sha1sum), or "".
std::string Sha1(const std::string &text) {
  std::string program = FindProgram("sha1sum");
  char path[] = "/tmp/nexcfg-block-XXXXXX";
  int fd = program.empty() ? -1 : mkstemp(path);
  if (fd < 0) return "";
  bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  std::string output;
  int status = written ? RunProgram({program, path}, &output) : -1;
  unlink(path);
  return status == 0 && output.size() >= 40 ? output.substr(0, 40) : "";
}

// The DHCP server's first complaint about a file, or "" when it takes it
// (or is not installed).
std::string DhcpdComplaint(const std::string &conf) {
  std::string dhcpd = FindProgram("dhcpd"), output;
  if (dhcpd.empty() || RunProgram({dhcpd, "-t", "-cf", conf, "-lf", "/dev/null"}, &output) == 0) return "";
  for (const std::string &line : SplitText(output, '\n')) {
    static const char *const kBanner[] = {"Internet Systems Consortium", "Copyright", "All rights reserved",
                                          "For info", "ldap_gssapi_principal"};
    bool banner = std::any_of(std::begin(kBanner), std::end(kBanner),
                              [&](const char *b) { return line.rfind(b, 0) == 0; });
    if (!line.empty() && !banner) return line;
  }
  return "it exits with an error";
}

Problem FileProblem(const VnetConfig &v, bool error, const std::string &code, const std::string &message,
                    const std::string &fix) {
  return {v.name, error, code, message, fix};
}

// The path of a vnet's file of a feature ("DHCP" or "NAT") when there is
// one to examine, else "": a file left while the feature is off (a daemon
// started by hand would read it) and one missing while it is on are
// problems of their own.
std::string FileToExamine(const VnetConfig &v, const char *feature, const char *relative,
                          const std::string &code, Problems *out) {
  std::string path = VnetFile(v.name, relative), command = feature == std::string(kNatField) ? "nat" : "dhcp";
  std::string update = "nexcfg " + command + " update " + v.name;
  bool on = v.Flag(feature), exists = Exists(path);
  if (!on && exists)
    out->push_back(FileProblem(v, false, code + "-left",
                               path + " remains though " + feature + " is off on " + v.name,
                               update + " removes it"));
  if (on && !exists)
    out->push_back(
        FileProblem(v, false, code + "-missing", v.name + " has " + feature + " on but no " + path, update));
  return on && exists ? path : "";
}

}  // namespace

void CheckDhcpFile(const VnetConfig &v, Problems *out) {
  std::string path = FileToExamine(v, kDhcpField, "dhcpd/dhcpd.conf", "dhcpd-conf", out);
  if (path.empty()) return;
  std::string update = "nexcfg dhcp update " + v.name;
  if (std::string complaint = DhcpdComplaint(path); !complaint.empty())
    out->push_back(FileProblem(v, true, "dhcpd-rejects", "the DHCP server rejects " + path + ": " + complaint,
                               "fix what nexcfg check reports for " + v.name + ", then " + update));
  std::string text = ReadText(path);
  size_t start = text.rfind(kBlockStart, text.find(kBlockEnd));
  size_t end = text.find(kBlockEnd);
  std::string stored = AskAnswer("VNET_" + v.name.substr(5) + "_DHCP_CFG_HASH");
  if (start == std::string::npos || end == std::string::npos || end < start ||
      strcasecmp(Sha1(text.substr(start, end + sizeof kBlockEnd - 1 - start)).c_str(), stored.c_str()) != 0) {
    out->push_back(FileProblem(v, false, "dhcpd-conf-edited",
                               "the generated part of " + path + " was edited by hand",
                               "move your changes out of it: the next `" + update +
                                   "` moves the file to dhcpd.conf.bak and writes a fresh one"));
    return;
  }
  // What the block must say, as the library would write it now.
  std::string block = text.substr(start, end - start);
  const ParamFamily &dhcp = DhcpParams();
  auto value = [&](const char *name) { return EffectiveValue(dhcp, v.name, name); };
  std::vector<std::string> expected = {
      "subnet " + (v.Field(kSubnetField) ? *v.Field(kSubnetField) : "") + " netmask " +
          (v.Field(kMaskField) ? *v.Field(kMaskField) : "") + " {\n",
      "\trange " + value("lease-start") + " " + value("lease-end") + ";\n",
      "\toption domain-name-servers " + value("dns") + ";\n",
      "\tdefault-lease-time " + value("default-lease-time") + ";",
      "\tmax-lease-time " + value("max-lease-time") + ";",
  };
  if (v.Flag(kNatField)) expected.push_back("\toption routers " + value("router") + ";\n");
  for (const Lease &l : v.leases)
    expected.push_back("\thardware ethernet " + l.mac + ";\n\tfixed-address " + l.ip + ";\n");
  std::string missing;
  for (const auto &e : expected)
    if (block.find(e) == std::string::npos) missing = e;
  // One host entry for the host's own adapter, one per static lease.
  size_t hosts = 0;
  for (size_t at = 0; (at = block.find("\tfixed-address ", at)) != std::string::npos; ++at) ++hosts;
  if (missing.empty() && hosts != v.leases.size() + 1) missing = "its static leases";
  if (!missing.empty()) {
    missing.erase(std::remove(missing.begin(), missing.end(), '\n'), missing.end());
    std::replace(missing.begin(), missing.end(), '\t', ' ');
    out->push_back(FileProblem(v, false, "dhcpd-conf-stale",
                               path + " is older than the database (it lacks \"" +
                                   missing.substr(missing.find_first_not_of(' ')) + "\")",
                               "stop the vnet's DHCP service, then " + update));
  }
}

void CheckNatFile(const VnetConfig &v, Problems *out) {
  std::string path = FileToExamine(v, kNatField, "nat/nat.conf", "nat-conf", out);
  if (path.empty()) return;
  std::string update = "nexcfg nat update " + v.name;
  // The file's "key = value" lines by section.
  std::map<std::string, std::map<std::string, std::string>> file;
  std::string section;
  for (const std::string &line : SplitText(ReadText(path), '\n')) {
    if (line.size() > 2 && line[0] == '[' && line.back() == ']') section = line.substr(1, line.size() - 2);
    size_t eq = line.find(" = ");
    if (!line.empty() && line[0] != '#' && eq != std::string::npos)
      file[section][line.substr(0, eq)] = line.substr(eq + 3);
  }
  // What the library would write now.
  std::map<std::string, std::map<std::string, std::string>> expected;
  const ParamFamily &nat = NatParams();
  struct Key {
    const char *param, *section, *key;
  };
  constexpr Key kKeys[] = {{"gateway", "host", "ip"},
                           {"active-ftp", "host", "activeFTP"},
                           {"allow-any-oui", "host", "allowAnyOUI"},
                           {"nat66", "host", "natIp6Enable"},
                           {"nat66-prefix", "host", "natIp6Prefix"},
                           {"udp-timeout", "udp", "timeout"}};
  for (const Key &k : kKeys) expected[k.section][k.key] = EffectiveValue(nat, v.name, k.param);
  for (const Forward &f : v.forwards)
    expected[f.tcp ? "incomingtcp" : "incomingudp"][std::to_string(f.hostPort)] =
        f.vmIp + ":" + std::to_string(f.vmPort);
  std::string differs;
  for (const auto &[name, keys] : expected)
    for (const auto &[key, value] : keys)
      if (file[name][key] != value)
        differs = "[" + name + "] " + key + " = " + value +
                  (file[name][key].empty() ? " is missing" : " reads " + file[name][key]);
  for (const char *forwards : {"incomingtcp", "incomingudp"})
    for (const auto &[key, value] : file[forwards])
      if (!expected[forwards].count(key))
        differs = std::string("[") + forwards + "] " + key + " = " + value + " is not in the database";
  if (!differs.empty())
    out->push_back(
        FileProblem(v, false, "nat-conf-differs",
                    path + " differs from the database (older than it, or edited by hand): " + differs,
                    "stop the vnet's NAT service, then " + update + " (the library writes the whole file)"));
}

}  // namespace nexcfg
