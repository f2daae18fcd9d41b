// daemons_test.cpp - the four per-vnet daemons at work on real networks,
// set up and started through the nexcfg tool inside the test sandbox.
// Guests are network namespaces on veth pairs attached to a vnet's bridge;
// "wan" and "lan" namespaces stand for the networks beyond the host. Guests
// take their addresses from the real ISC DHCP server with the real ISC DHCP
// client. Every scenario ends by stopping all services and checking that
// nothing of the daemons is left.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "support/daemons.h"
#include "support/sandbox.h"
#include "support/test_util.h"

namespace nxc::test {
namespace {

// Sets what the server gave: the address, the router as default route.
constexpr char kDhclientScript[] =
    "#!/bin/sh\n"
    "case \"$reason\" in\n"
    "  PREINIT) ip link set \"$interface\" up ;;\n"
    "  BOUND|RENEW|REBIND|REBOOT)\n"
    "    ip addr add \"$new_ip_address/$new_subnet_mask\" dev \"$interface\"\n"
    "    [ -z \"$new_routers\" ] || ip route replace default via \"${new_routers%% *}\" ;;\n"
    "esac\n";

// Runs the tool; a failure shows what it printed and the library's log.
void Tool(const std::string &args) {
  int status = Shell(std::string(NXC_TOOL_PATH) + " " + args + " >/tmp/tool.out 2>&1");
  EXPECT_EQ(status, 0) << "nexcfg " << args << "\n" << ReadFile("/tmp/tool.out") << "log:\n" << LogText();
}

// A namespace joined to the sandbox's network by a veth pair: hostEnd here,
// eth0 there; both up.
void MakeNamespace(const std::string &ns, const std::string &hostEnd) {
  ASSERT_EQ(0, Shell("ip netns add " + ns + " && ip link add " + hostEnd + " type veth peer name eth0 netns " +
                     ns + " && ip link set " + hostEnd + " up && ip -n " + ns + " link set lo up && ip -n " + ns +
                     " link set eth0 up"));
}

// A guest: a namespace whose veth is a port of the vnet's bridge.
void AddGuest(const std::string &ns, const std::string &bridge, const std::string &mac = "") {
  ASSERT_NO_FATAL_FAILURE(MakeNamespace(ns, ns + "-h"));
  if (!mac.empty()) {
    ASSERT_EQ(0, Shell("ip -n " + ns + " link set eth0 address " + mac));
  }
  ASSERT_EQ(0, Shell("ip link set " + ns + "-h master " + bridge));
}

// Runs the DHCP client in the guest until it has a lease; the guest's IPv4
// address then, or "".
std::string TakeLease(const std::string &ns) {
  (void)Shell("ip netns exec " + ns + " dhclient -1 -4 -cf /tmp/dhclient.conf -sf /tmp/dhclient-script -lf /tmp/" +
              ns + ".leases -pf /tmp/" + ns + ".pid eth0 >/dev/null 2>&1");
  std::string out = CommandOutput("ip -n " + ns + " -4 -o addr show eth0");
  size_t at = out.find("inet ");
  return at == std::string::npos ? "" : out.substr(at + 5, out.find('/', at) - at - 5);
}

int Ping(const std::string &ns, const std::string &address) {
  return Shell((ns.empty() ? "" : "ip netns exec " + ns + " ") + "ping -c1 -W3 " + address + " >/dev/null 2>&1");
}

void EnterNamespace(const std::string &ns) {
  if (ns.empty()) return;
  int fd = open(("/run/netns/" + ns).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0 || setns(fd, CLONE_NEWNET) != 0) _exit(1);
  close(fd);
}

// In namespace ns (the sandbox's own for ""), a server on TCP and UDP port
// port that answers every connection and datagram with the address it came
// from. It runs, a child of the sandbox's init like a daemon, until the
// test's end kills it.
void ServePeerAddress(const std::string &ns, int port) {
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  fflush(nullptr);
  pid_t first = fork();
  if (first == 0 && fork() != 0) _exit(0);
  if (first == 0) {
    EnterNamespace(ns);
    struct sockaddr_in any = {};
    any.sin_family = AF_INET;
    any.sin_port = htons(static_cast<uint16_t>(port));
    int tcp = socket(AF_INET, SOCK_STREAM, 0), udp = socket(AF_INET, SOCK_DGRAM, 0), on = 1;
    setsockopt(tcp, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(tcp, reinterpret_cast<sockaddr *>(&any), sizeof any) || listen(tcp, 8) ||
        bind(udp, reinterpret_cast<sockaddr *>(&any), sizeof any))
      _exit(1);
    (void)!write(ready[1], "r", 1);
    for (;;) {
      struct pollfd fds[] = {{tcp, POLLIN, 0}, {udp, POLLIN, 0}};
      (void)poll(fds, 2, -1);
      struct sockaddr_in peer = {};
      socklen_t len = sizeof peer;
      char buf[512];
      if (fds[0].revents) {
        int c = accept(tcp, reinterpret_cast<sockaddr *>(&peer), &len);
        const char *text = inet_ntoa(peer.sin_addr);
        (void)!write(c, text, strlen(text));
        close(c);
      }
      if (fds[1].revents && recvfrom(udp, buf, sizeof buf, 0, reinterpret_cast<sockaddr *>(&peer), &len) >= 0) {
        const char *text = inet_ntoa(peer.sin_addr);
        (void)sendto(udp, text, strlen(text), 0, reinterpret_cast<sockaddr *>(&peer), len);
      }
    }
  }
  ASSERT_EQ(first, waitpid(first, nullptr, 0));
  char c = 0;
  ASSERT_EQ(1, read(ready[0], &c, 1)) << "the server in " << ns << " did not start";
  close(ready[0]);
  close(ready[1]);
}

// From namespace ns, asks address:port over TCP or UDP; the answer, or ""
// when none came within 3 s.
std::string Ask(const std::string &ns, bool tcp, const std::string &address, int port) {
  std::vector<std::string> lines = ReportFromChild([&](std::vector<std::string> *out) {
    EnterNamespace(ns);
    int fd = socket(AF_INET, tcp ? SOCK_STREAM : SOCK_DGRAM, 0);
    struct timeval limit = {3, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    struct sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address.c_str(), &to.sin_addr);
    char buf[512] = "";
    if (connect(fd, reinterpret_cast<sockaddr *>(&to), sizeof to) != 0 || send(fd, "?", 1, 0) != 1) return;
    ssize_t n = recv(fd, buf, sizeof buf - 1, 0);
    out->push_back(n > 0 ? std::string(buf, static_cast<size_t>(n)) : "");
  });
  return lines.empty() ? "" : lines[0];
}

// What the daemons make on the host: none of it may outlive their stop.
// The vnet's addresses start with subnetPrefix (null: the vnet has none of
// its own).
void ExpectNothingLeft(const char *subnetPrefix) {
  std::string links = CommandOutput("ip -o link show");
  EXPECT_EQ(links.find("zynet"), std::string::npos) << links;
  std::string rules = CommandOutput("nft list ruleset");
  EXPECT_EQ(rules.find("zynet"), std::string::npos) << rules;
  std::string addresses = CommandOutput("ip -o addr show");
  if (subnetPrefix) {
    EXPECT_EQ(addresses.find(std::string("inet ") + subnetPrefix), std::string::npos) << addresses;
  }
  EXPECT_EQ(CommandOutput("ls /run | grep 'zynet.*pid'"), "");
  EXPECT_EQ(ReadFile("/proc/sys/net/ipv4/ip_forward"), "0\n");
  EXPECT_EQ(CommandOutput("cat /proc/[0-9]*/comm 2>/dev/null | grep -E '^(zynet-.*|dhcpd)$'"), "");
}

// The command line systemd runs for the unit's key (ExecStart, ExecStop):
// each ${NAME} is the value of the last Environment=NAME=... line, the
// drop-in's lines coming after the unit's; the tool the unit names is the
// one built here.
std::string UnitCommand(const std::string &key, const std::string &dropIn = "") {
  std::map<std::string, std::string> environment;
  std::string command;
  for (const std::string &line : SplitLines(ReadFile(NXC_UNIT_PATH) + dropIn)) {
    if (line.rfind("Environment=", 0) == 0) {
      size_t eq = line.find('=', strlen("Environment="));
      environment[line.substr(strlen("Environment="), eq - strlen("Environment="))] = line.substr(eq + 1);
    } else if (line.rfind(key + "=", 0) == 0) {
      command = line.substr(key.size() + 1);
    }
  }
  for (const auto &[name, value] : environment)
    for (size_t at; (at = command.find("${" + name + "}")) != std::string::npos;)
      command.replace(at, name.size() + 3, value);
  EXPECT_EQ(command.find("${"), std::string::npos) << key << " uses an unset variable: " << command;
  size_t space = command.find(' ');
  EXPECT_TRUE(command.substr(0, space).ends_with("/nexcfg")) << key << "=" << command;
  return NXC_TOOL_PATH + (space == std::string::npos ? "" : command.substr(space));
}

class DaemonsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(InSandbox()) << "this test must run inside the private namespaces";
    (void)Shell("rm -rf /etc/zymtra/*");
    ClearLog();
    ASSERT_TRUE(WriteFile("/etc/zymtra/config", std::string("bindir = \"") + NXC_DAEMON_DIR + "\"\n"));
    ASSERT_TRUE(WriteFile("/tmp/dhclient-script", kDhclientScript));
    ASSERT_EQ(0, chmod("/tmp/dhclient-script", 0755));
    ASSERT_TRUE(WriteFile("/tmp/dhclient.conf", "timeout 15;\nretry 1;\ninitial-interval 1;\n"));
    Tool("db create");
  }
  void TearDown() override {
    KillAllDaemons();
    (void)Shell("ip -all netns delete");
  }
};

TEST_F(DaemonsTest, NatGuestReachesOutAndIsReachedThroughForwards) {
  ASSERT_NO_FATAL_FAILURE(MakeNamespace("wan", "wan0"));
  ASSERT_EQ(0, Shell("ip addr add 203.0.113.1/24 dev wan0 && ip -n wan addr add 203.0.113.2/24 dev eth0"));
  ASSERT_NO_FATAL_FAILURE(ServePeerAddress("wan", 7000));
  ASSERT_NO_FATAL_FAILURE(ServePeerAddress("wan", 53));
  // The host's resolver is in "wan" (a file of the private /etc, never the
  // machine's own).
  (void)umount2("/etc/resolv.conf", MNT_DETACH);
  ASSERT_TRUE(unlink("/etc/resolv.conf") == 0 || errno == ENOENT);
  ASSERT_TRUE(WriteFile("/etc/resolv.conf", "nameserver 203.0.113.2\n"));

  Tool("vnet set 8 subnet 192.168.8.0");
  Tool("vnet set 8 mask 255.255.255.0");
  Tool("nat on 8");
  Tool("dhcp on 8");
  Tool("dhcp lease add 8 02:00:00:00:00:80 192.168.8.10");
  Tool("nat forward add 8 tcp 8080 192.168.8.10 7000");
  Tool("nat forward add 8 udp 8081 192.168.8.10 7000");
  Tool("dhcp update 8");
  Tool("nat update 8");
  Tool("service start 8");
  ASSERT_FALSE(HasFailure());

  AddGuest("g", "zynet8", "02:00:00:00:00:80");
  ASSERT_EQ(TakeLease("g"), "192.168.8.10") << LogText();
  ASSERT_NO_FATAL_FAILURE(ServePeerAddress("g", 7000));
  // Out: the server in "wan" sees the host's address.
  EXPECT_EQ(Ask("g", true, "203.0.113.2", 7000), "203.0.113.1");
  EXPECT_EQ(Ask("g", false, "203.0.113.2", 7000), "203.0.113.1");
  // The gateway relays DNS to the host's resolver.
  EXPECT_EQ(Ask("g", false, "192.168.8.2", 53), "203.0.113.1");
  EXPECT_EQ(Ask("g", true, "192.168.8.2", 53), "203.0.113.1");
  // In: the forwards reach the guest from outside, from the host and from
  // another guest (which the gateway stands in for).
  EXPECT_EQ(Ask("wan", true, "203.0.113.1", 8080), "203.0.113.2");
  EXPECT_EQ(Ask("wan", false, "203.0.113.1", 8081), "203.0.113.2");
  EXPECT_EQ(Ask("", true, "203.0.113.1", 8080), "203.0.113.1");
  AddGuest("other", "zynet8");
  ASSERT_EQ(0, Shell("ip -n other addr add 192.168.8.20/24 dev eth0 && ip -n other route add default via 192.168.8.2"));
  EXPECT_EQ(Ask("other", true, "192.168.8.2", 8080), "192.168.8.2");

  Tool("service stop 8 nat");
  EXPECT_EQ(CommandOutput("nft list ruleset"), "");
  EXPECT_EQ(Ask("wan", true, "203.0.113.1", 8080), "");
  Tool("service stop 8");
  ExpectNothingLeft("192.168.8.");
}

// Vnet 1 is host-only with DHCP, vnet 8 has NAT and DHCP.
TEST_F(DaemonsTest, BootUnitBringsTheConfiguredVnetsUpAndDown) {
  Tool("vnet set 1 subnet 192.168.56.0/24");
  Tool("adapter on 1");
  Tool("dhcp on 1");
  Tool("dhcp lease add 1 02:00:00:00:00:10 192.168.56.10");
  Tool("dhcp update 1");
  Tool("vnet set 8 subnet 192.168.8.0/24");
  Tool("nat on 8");
  Tool("dhcp on 8");
  Tool("dhcp update 8");
  Tool("nat update 8");
  ASSERT_FALSE(HasFailure());
  const char *const kPidFiles[] = {"/run/zynet-netifup-zynet1.pid", "/run/zynet-dhcpd-zynet1.pid",
                                   "/run/zynet-dhcpd-zynet8.pid", "/run/zynet-natd-8.pid"};

  std::string start = UnitCommand("ExecStart"), stop = UnitCommand("ExecStop");
  ASSERT_EQ(0, Shell(start + " >/tmp/up.out 2>&1")) << ReadFile("/tmp/up.out") << LogText();
  for (const char *pidFile : kPidFiles) {
    EXPECT_TRUE(Alive(PidInFile(pidFile))) << pidFile;
  }
  EXPECT_NE(CommandOutput("nft list ruleset").find("zynet-nat-8"), std::string::npos);
  // Host-only guests take the static lease and one from the default range,
  // and reach the host's adapter.
  AddGuest("g1", "zynet1", "02:00:00:00:00:10");
  AddGuest("g2", "zynet1");
  EXPECT_EQ(TakeLease("g1"), "192.168.56.10") << LogText();
  std::string ranged = TakeLease("g2");
  EXPECT_EQ(ranged.rfind("192.168.56.", 0), 0u) << LogText();
  EXPECT_GE(atoi(ranged.substr(strlen("192.168.56.")).c_str()), 128);
  EXPECT_EQ(0, Ping("g2", "192.168.56.1"));
  // The default bridge, zynet0, would take the host's uplink: not unasked.
  EXPECT_FALSE(FileExists("/run/zynet-bridge-0.pid"));
  ASSERT_EQ(0, Shell(stop + " >/tmp/down.out 2>&1")) << ReadFile("/tmp/down.out") << LogText();
  ExpectNothingLeft("192.168.56.");
  ExpectNothingLeft("192.168.8.");

  // Asked for in a drop-in, the default bridge comes up too, and goes.
  ASSERT_EQ(0, Shell(UnitCommand("ExecStart", "[Service]\nEnvironment=NEXCFG_DEFAULT_BRIDGE=yes\n") +
                     " >/tmp/up.out 2>&1"))
      << ReadFile("/tmp/up.out");
  EXPECT_TRUE(Alive(PidInFile("/run/zynet-bridge-0.pid")));
  EXPECT_TRUE(Alive(PidInFile(kPidFiles[3])));
  ASSERT_EQ(0, Shell(stop + " >/tmp/down.out 2>&1")) << ReadFile("/tmp/down.out");
  ExpectNothingLeft(nullptr);
}

TEST_F(DaemonsTest, BridgedGuestSharesTheLinkOfAHostAdapter) {
  ASSERT_NO_FATAL_FAILURE(MakeNamespace("lan", "lan0"));
  ASSERT_EQ(0, Shell("ip addr add 10.9.0.2/24 dev lan0 && ip route add default via 10.9.0.1 && "
                     "ip -n lan addr add 10.9.0.1/24 dev eth0"));
  Tool("bridge move lan0 --to zynet2");
  Tool("service start 2");
  ASSERT_FALSE(HasFailure());

  AddGuest("g", "zynet2");
  ASSERT_EQ(0, Shell("ip -n g addr add 10.9.0.50/24 dev eth0"));
  EXPECT_EQ(0, Ping("g", "10.9.0.1"));
  // The host keeps its address, its route and its connectivity on the link.
  EXPECT_NE(CommandOutput("ip -4 -o addr show zynet2").find("10.9.0.2/24"), std::string::npos);
  EXPECT_NE(CommandOutput("ip route show default").find("dev zynet2"), std::string::npos);
  EXPECT_EQ(0, Ping("", "10.9.0.1"));

  Tool("service stop 2");
  ExpectNothingLeft(nullptr);
  EXPECT_NE(CommandOutput("ip -4 -o addr show lan0").find("10.9.0.2/24"), std::string::npos);
  EXPECT_NE(CommandOutput("ip route show default").find("dev lan0"), std::string::npos);
  EXPECT_EQ(0, Ping("", "10.9.0.1"));
}

}  // namespace
}  // namespace nxc::test
