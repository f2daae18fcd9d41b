// cli_test.cpp - the nexcfg tool run as a program on real command lines,
// inside the test sandbox: usage errors, values refused before they reach
// the library, `nexcfg check` on problems planted into the database and
// the host, safe import and merge, failures told in plain words, the one
// JSON contract, completion, and whole sessions with stand-in daemons.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/daemons.h"
#include "support/sandbox.h"
#include "support/test_util.h"

namespace nxc::test {
namespace {

// ---- A small JSON reader for the tool's output -------------------------------

struct JValue {
  enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } kind = kNull;
  bool b = false;
  long long n = 0;
  std::string s;
  std::vector<JValue> items;
  std::map<std::string, JValue> members;

  const JValue &operator[](const std::string &key) const {
    static const JValue missing;
    auto it = members.find(key);
    return it == members.end() ? missing : it->second;
  }
  const JValue &operator[](size_t i) const { return items.at(i); }
};

// A recursive-descent reader of one JSON text; Read is false on anything
// else (trailing bytes included).
class JReader {
 public:
  explicit JReader(const std::string &text) : t_(text) {}
  bool Read(JValue *out) { return Value(out) && !Blank(); }

 private:
  // Skips white space; true when a byte follows.
  bool Blank() {
    while (i_ < t_.size() && isspace(static_cast<unsigned char>(t_[i_]))) ++i_;
    return i_ < t_.size();
  }
  bool Take(char c) { return Blank() && t_[i_] == c && ++i_; }
  bool String(std::string *out) {
    if (!Take('"')) return false;
    while (i_ < t_.size() && t_[i_] != '"') {
      char c = t_[i_++];
      if (c == '\\' && i_ < t_.size()) {
        char e = t_[i_++];
        c = e == 'n' ? '\n' : e == 't' ? '\t' : e == 'r' ? '\r' : e;
        if (e == 'u') {
          c = static_cast<char>(std::stoi(t_.substr(i_, 4), nullptr, 16));
          i_ += 4;
        }
      }
      out->push_back(c);
    }
    return Take('"');
  }
  bool Value(JValue *out) {
    if (!Blank()) return false;
    if (t_[i_] == '"') {
      out->kind = JValue::kString;
      return String(&out->s);
    }
    if (Take('[')) {
      out->kind = JValue::kArray;
      if (Take(']')) return true;
      while (Value(&out->items.emplace_back()))
        if (!Take(',')) return Take(']');
      return false;
    }
    if (Take('{')) {
      out->kind = JValue::kObject;
      if (Take('}')) return true;
      for (std::string key; String(&key) && Take(':') && Value(&out->members[key]); key.clear())
        if (!Take(',')) return Take('}');
      return false;
    }
    if (t_[i_] == '-' || isdigit(static_cast<unsigned char>(t_[i_]))) {
      size_t used = 0;
      out->kind = JValue::kNumber;
      out->n = std::stoll(t_.substr(i_), &used);
      i_ += used;
      return true;
    }
    for (const char *word : {"true", "false", "null"}) {
      if (t_.compare(i_, strlen(word), word) != 0) continue;
      i_ += strlen(word);
      out->kind = word[0] == 'n' ? JValue::kNull : JValue::kBool;
      out->b = word[0] == 't';
      return true;
    }
    return false;
  }

  const std::string &t_;
  size_t i_ = 0;
};

// ---- Running the tool ----------------------------------------------------------

// True when text is well-formed UTF-8.
bool IsUtf8(const std::string &text) {
  for (size_t i = 0; i < text.size();) {
    auto c = static_cast<unsigned char>(text[i]);
    size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (n == 0 || i + n > text.size() || (n > 1 && c < 0xC2)) return false;
    for (size_t k = 1; k < n; ++k)
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
    i += n;
  }
  return true;
}

struct Result {
  int status = -1;
  std::string out, err;
  JValue Json() const {
    JValue v;
    EXPECT_TRUE(IsUtf8(out)) << out;
    EXPECT_TRUE(JReader(out).Read(&v)) << "not JSON:\n" << out;
    return v;
  }
};

std::string Joined(const std::vector<std::string> &args) {
  std::string line = "nexcfg";
  for (const auto &a : args) line += " " + a;
  return line;
}

Result Nexcfg(const std::vector<std::string> &args) {
  Result r;
  const char kOut[] = "/tmp/nexcfg.out", kErr[] = "/tmp/nexcfg.err";
  pid_t pid = fork();
  if (pid == 0) {
    int out = open(kOut, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open(kErr, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || err < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(126);
    std::vector<char *> argv{const_cast<char *>(NXC_TOOL_PATH)};
    for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execv(NXC_TOOL_PATH, argv.data());
    _exit(127);
  }
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) r.status = WEXITSTATUS(status);
  r.out = ReadFile(kOut);
  r.err = ReadFile(kErr);
  return r;
}

// Runs a command that must succeed.
Result Ok(const std::vector<std::string> &args) {
  Result r = Nexcfg(args);
  EXPECT_EQ(r.status, 0) << Joined(args) << "\nstdout:\n" << r.out << "stderr:\n" << r.err;
  return r;
}

// Runs a command with --json that must fail with the error code given; the
// error object.
JValue Fails(std::vector<std::string> args, const std::string &code) {
  args.insert(args.begin(), "--json");
  Result r = Nexcfg(args);
  JValue v = r.Json();
  EXPECT_EQ(r.status, code == "usage" ? 2 : 1) << Joined(args) << "\n" << r.err;
  EXPECT_EQ(v["error"]["code"].s, code) << Joined(args) << "\n" << r.out;
  EXPECT_EQ(v["log"].kind, JValue::kArray);
  return v;
}

bool Has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// Each test starts from an empty /etc/zymtra with the stand-in daemons and
// ping program as bindir; whatever it started is killed after it.
class CliTest : public DaemonTest {
 protected:
  void CreateDb() { Ok({"db", "create"}); }
  // Plants records straight into the database, behind the tool's back.
  void Plant(const std::string &records) { ASSERT_TRUE(WriteFile(kDbPath, DbText() + records)); }
  // The codes of `nexcfg --json check`'s problems.
  std::vector<std::string> CheckCodes(const std::vector<std::string> &vnets = {}) {
    std::vector<std::string> args{"--json", "check"};
    args.insert(args.end(), vnets.begin(), vnets.end());
    Result r = Nexcfg(args);
    std::vector<std::string> codes;
    for (const auto &p : r.Json().items) codes.push_back(p["vnet"].s + " " + p["code"].s);
    EXPECT_EQ(r.status, codes.empty() ? 0 : 1);
    return codes;
  }
};

// ---- Command lines -------------------------------------------------------------

TEST_F(CliTest, UsageErrorsExitWithTwoAndNameTheProblem) {
  CreateDb();
  struct Case { std::vector<std::string> args; const char *says; } cases[] = {
      {{}, "no command given"},
      {{"frobnicate"}, "no command \"frobnicate\""},
      {{"dhcp"}, "the dhcp commands are"},
      {{"dhcp", "lease", "bogus"}, "dhcp lease add"},
      {{"vnet", "set", "zynet1", "subnet"}, "missing VALUE"},
      {{"vnet", "set", "zynet1"}, "missing FIELD VALUE"},
      {{"vnet", "set", "zynet1", "subnet", "10.0.0.0", "more"}, "\"more\" and after it are not wanted"},
      {{"vnet", "set", "zynet256", "mtu", "1"}, "\"zynet256\" is not a vnet"},
      {{"vnet", "set", "zynet01", "mtu", "1"}, "is not a vnet"},
      {{"vnet", "set", "1", "mtu", "12x"}, "the MTU must be a number"},
      {{"vnet", "set", "1", "colour", "red"}, "unknown field \"colour\""},
      {{"vnet", "unset", "1", "name"}, "can be changed but not removed"},
      {{"dhcp", "on", "1", "--bogus"}, "unknown option --bogus"},
      {{"dhcp", "on", "1", "--cleanup=yes"}, "takes no value"},
      {{"find", "--nat"}, "option --nat needs a value"},
      {{"find", "--nat", "maybe"}, "must be on or off"},
      {{"nat", "unset", "1", "lease-start"}, "unknown NAT parameter"},
      {{"nat", "forward", "add", "1", "icmp", "80", "10.0.0.1", "80"}, "tcp or udp"},
      {{"nat", "forward", "rm", "1", "udp", "65536"}, "the host port must be"},
      {{"service", "start", "1", "ftp"}, "unknown service \"ftp\""},
      {{"bridge", "default", "set", "zynet3"}, "only zynet0 or none"},
      {{"help", "nosuch"}, "no command \"nosuch\""},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(Joined(c.args));
    Result r = Nexcfg(c.args);
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(Has(r.err, c.says)) << r.err;
    EXPECT_EQ(r.out, "");
  }
  // With --json each kind of usage error is the error object on stdout.
  for (const Case &c : {cases[0], cases[2], cases[5], cases[10], cases[14]})
    EXPECT_TRUE(Has(Fails(c.args, "usage")["error"]["message"].s, c.says)) << Joined(c.args);
  // No usage error reached the library as a change.
  EXPECT_EQ(Nexcfg({"answer", "get", "VNET_1_MTU"}).status, 1);
}

TEST_F(CliTest, HelpDescribesEveryCommandItLists) {
  Result overview = Ok({"--help"});
  // Listing lines: "  <command words> <ARGUMENTS> [options]  <summary>".
  std::vector<std::string> names;
  std::istringstream lines(overview.out);
  for (std::string line; std::getline(lines, line);) {
    if (line.size() < 3 || line.compare(0, 2, "  ") != 0 || !islower(static_cast<unsigned char>(line[2])))
      continue;
    std::istringstream words(line.substr(2, line.find("  ", 2) - 2));
    std::string name;
    for (std::string w;
         words >> w && islower(static_cast<unsigned char>(w[0])) && w.find('|') == std::string::npos;)
      name += (name.empty() ? "" : " ") + w;
    names.push_back(name);
  }
  ASSERT_GE(names.size(), 55u) << overview.out;
  for (const auto &name : names) {
    SCOPED_TRACE(name);
    std::vector<std::string> args{"help"};
    for (size_t s = 0, e; s < name.size(); s = e + 1) {
      e = name.find(' ', s);
      if (e == std::string::npos) e = name.size();
      args.push_back(name.substr(s, e - s));
    }
    Result help = Nexcfg(args);
    EXPECT_EQ(help.status, 0) << help.err;
    EXPECT_EQ(help.out.rfind("usage: nexcfg " + name, 0), 0u) << help.out;
  }
  EXPECT_TRUE(Has(Ok({"help", "nat", "forward"}).out, "nat forward list"));
  EXPECT_TRUE(Has(Ok({"dhcp", "set", "--help"}).out, "lease-start"));
  // --help and --version speak JSON too.
  EXPECT_EQ(Ok({"--json", "help", "dhcp", "set"}).Json()["command"].s, "dhcp set");
  EXPECT_EQ(Ok({"--json", "--help"}).Json()["text"].s, overview.out);
  EXPECT_EQ(Ok({"--json", "--version"}).Json()["interface"].s, "1.0");
}

// ---- Validation ------------------------------------------------------------------

TEST_F(CliTest, ValuesTheNetworkWouldRefuseAreRefusedUnlessForced) {
  CreateDb();
  Ok({"vnet", "set", "1", "subnet", "192.168.56.0/24"});
  Ok({"dhcp", "lease", "add", "1", "00:50:56:00:00:01", "192.168.56.10"});
  Ok({"vnet", "set", "8", "subnet", "10.8.0.0/24"});
  Ok({"nat", "on", "8"});
  Ok({"dhcp", "lease", "add", "8", "00:50:56:00:00:08", "10.8.0.8"});
  ASSERT_EQ(0, Shell("ip link add br-route type bridge && ip addr add 10.50.0.1/16 dev br-route && "
                     "ip link set br-route up"));
  struct Case { std::vector<std::string> args; const char *says, *fix = ""; } cases[] = {
      {{"dhcp", "set", "1", "lease-start", "10.0.0.5"},
       "lease-start \"10.0.0.5\" of zynet1 is outside the subnet 192.168.56.0/24",
       "192.168.56.1 to 192.168.56.254"},
      {{"dhcp", "lease", "add", "1", "00:50:56:00:00:02", "192.168.56.10"},
       "given to both 00:50:56:00:00:01 and"},
      {{"dhcp", "lease", "add", "1", "00:50:56:00:00:03", "192.168.56.255"}, "is the broadcast address of"},
      {{"dhcp", "lease", "add", "8", "00:50:56:00:00:01", "10.8.0.9"},
       "has static leases on both zynet1 and zynet8"},
      {{"dhcp", "lease", "add", "1", "00:50:56:00:00:08", "192.168.56.11"},
       "has static leases on both zynet1 and zynet8"},
      {{"vnet", "set", "1", "subnet", "192.168.4.77"},
       "has host bits set under the mask 255.255.255.0", "192.168.4.0/24"},
      {{"vnet", "set", "5", "subnet", "192.168.56.0/24"},
       "subnet 192.168.56.0/24 of zynet5 overlaps the subnet 192.168.56.0/24 of zynet1"},
      {{"vnet", "set", "4", "subnet", "10.50.3.0/24"},
       "overlaps the host's route to 10.50.0.0/16 on br-route"},
      {{"vnet", "set", "2", "subnet", " 10.2.0.0"},
       "is not an IPv4 address in its usual form", "subnet 10.2.0.0"},
      {{"vnet", "set", "3", "subnet", "010.3.0.0"},
       "is not an IPv4 address in its usual form", "subnet 10.3.0.0"},
      {{"vnet", "set", "1", "mask", "0.0.0.0"}, "is not a subnet mask from /1 to /29"},
      {{"vnet", "set", "1", "mtu", "0"}, "mtu \"0\" of zynet1 is not a number from 68 to 65535"},
      {{"vnet", "set", "1", "mtu", "99999999"}, "is not a number from 68 to 65535"},
      {{"vnet", "set", "1", "adapter-address", "192.168.57.1"},
       "adapter-address 192.168.57.1 of zynet1 is outside"},
      {{"dhcp", "set", "1", "lease-end", "192.168.56.100"},
       "lease-end 192.168.56.100 of zynet1 is below its lease-start 192.168.56.128"},
      {{"dhcp", "set", "1", "default-lease-time", "9000"},
       "default-lease-time 9000 of zynet1 is above its max-lease-time 7200"},
      {{"nat", "set", "8", "nat66-prefix", "notaprefix"}, "\"notaprefix\" of zynet8 is not an IPv6 prefix"},
      {{"nat", "set", "8", "config-port", "70000"}, "is not a port number"},
      {{"nat", "forward", "add", "8", "tcp", "8080", "192.168.8.128", "80"},
       "goes to 192.168.8.128, which is outside the subnet 10.8.0.0/24"},
      {{"nat", "forward", "add", "1", "tcp", "8080", "192.168.56.20", "80"},
       "zynet1 has 1 port forward(s) but NAT is off", "nexcfg nat on zynet1"},
      {{"nat", "prefix", "add", "8", "fd00::1/64"}, "has address bits set past its length"},
      {{"vnet", "set", "1", "name", "lab\nanswer VNET_1_NAT yes"}, "holds a line break"},
      {{"nat", "forward", "add", "8", "tcp", "81", "10.8.0.9", "80", std::string(128, 'd')},
       "longer than 127 bytes"},
      {{"dhcp", "lease", "add", "1", "0:-2:2:3:4:3", "192.168.56.11"}, "is not six bytes"},
      {{"answer", "set", "VNET_1_HOSTONLY_SUBNET", "192.168.56.9"}, "has host bits set"},
  };
  std::string before = DbText();
  for (const Case &c : cases) {
    SCOPED_TRACE(Joined(c.args));
    JValue e = Fails(c.args, "invalid");
    EXPECT_TRUE(Has(e["error"]["message"].s, c.says)) << e["error"]["message"].s;
    EXPECT_TRUE(Has(e["error"]["fix"].s, c.fix)) << e["error"]["fix"].s;
    EXPECT_EQ(DbText(), before);  // nothing stored
  }
  // A subnet given with its length sets the mask too; --force stores what
  // the rules refuse, with a warning.
  EXPECT_EQ(Ok({"--json", "vnet", "set", "6", "subnet", "10.6.0.0/16"}).Json()["value"].s, "10.6.0.0/16");
  EXPECT_EQ(Ok({"answer", "get", "VNET_6_HOSTONLY_NETMASK"}).out, "255.255.0.0\n");
  Ok({"vnet", "set", "6", "adapter-address", "10.6.0.9"});
  EXPECT_EQ(Ok({"--json", "show", "6"}).Json()[0]["adapter_address"].s, "10.6.0.9");
  Result forced = Ok({"--json", "dhcp", "set", "1", "lease-start", "10.0.0.5", "--force"});
  EXPECT_EQ(forced.Json()["warnings"][0]["code"].s, "param-invalid");
  EXPECT_TRUE(Has(forced.err, "warning: dhcp lease-start \"10.0.0.5\""));
  EXPECT_EQ(Ok({"answer", "get", "VNET_1_DHCP_PARAM_LEASE_START_IP"}).out, "10.0.0.5\n");
  // A problem the configuration has already does not block other changes.
  Ok({"vnet", "set", "1", "name", "still works"});
  // Forwards need NAT: switching it off keeps them only with --cleanup.
  Ok({"nat", "forward", "add", "8", "tcp", "2222", "10.8.0.9", "22"});
  EXPECT_TRUE(Has(Fails({"nat", "off", "8"}, "invalid")["error"]["message"].s, "but NAT is off"));
  Ok({"nat", "off", "8", "--cleanup"});
  EXPECT_EQ(Ok({"--json", "nat", "forward", "list", "8"}).Json()["forwards"].items.size(), 0u);
  // DHCP off keeps its settings; with --cleanup its parameters and leases go.
  Ok({"dhcp", "on", "1"});
  Ok({"dhcp", "off", "1"});
  EXPECT_EQ(Ok({"--json", "dhcp", "lease", "list", "1"}).Json()["leases"].items.size(), 1u);
  Ok({"dhcp", "off", "1", "--cleanup"});
  JValue dhcp = Ok({"--json", "dhcp", "show", "1"}).Json();
  EXPECT_TRUE(dhcp["leases"].items.empty());
  for (const auto &p : dhcp["parameters"].items) EXPECT_NE(p["source"].s, "set") << p["name"].s;
  (void)Shell("ip link del br-route");
}

// ---- nexcfg check ----------------------------------------------------------------

TEST_F(CliTest, CheckFindsEveryKindOfProblemPlantedIntoTheDatabaseAndTheHost) {
  CreateDb();
  Ok({"vnet", "set", "9", "subnet", "10.9.0.0/24"});
  EXPECT_EQ(CheckCodes(), std::vector<std::string>{});
  EXPECT_EQ(Ok({"check"}).out, "no problems found\n");

  // Files the library writes, then the database changed behind them.
  Plant(
      "answer VNET_1_HOSTONLY_SUBNET 192.168.56.0\nanswer VNET_1_HOSTONLY_NETMASK 255.255.255.0\n"
      "answer VNET_1_DHCP yes\nanswer VNET_1_DHCP_PARAM_LEASE_START_IP 10.0.0.5\n"
      "add_dhcp_mac_to_ip 1 00:50:56:00:00:01 192.168.56.10\n"
      "add_dhcp_mac_to_ip 1 00:50:56:00:00:02 192.168.56.10\nanswer VNET_2_HOSTONLY_SUBNET 10.2.0.0\n"
      "answer VNET_2_HOSTONLY_NETMASK 255.255.255.0\nanswer VNET_2_DHCP yes\n"
      "answer VNET_3_HOSTONLY_SUBNET 10.3.0.0\nanswer VNET_3_HOSTONLY_NETMASK 255.255.255.0\n"
      "answer VNET_3_DHCP yes\nanswer VNET_8_HOSTONLY_SUBNET 10.8.0.0\n"
      "answer VNET_8_HOSTONLY_NETMASK 255.255.255.0\nanswer VNET_8_NAT yes\n"
      "add_nat_portfwd 8 tcp 8080 10.8.0.128 80\nadd_nat_prefix 8 fd00:1:2:3::/64\n"
      "answer VNET_10_HOSTONLY_SUBNET 10.10.0.0\nanswer VNET_10_HOSTONLY_NETMASK 255.255.255.0\n"
      "answer VNET_10_NAT yes\n");
  for (const char *vnet : {"1", "2", "3"}) Ok({"dhcp", "update", vnet});
  for (const char *vnet : {"8", "10"}) {
    Ok({"nat", "update", vnet});
    Ok({"service", "start", vnet, "nat"});
  }
  ASSERT_EQ(0, Shell("cd /etc/zymtra && sed -i 's/allow unknown-/deny unknown-/' zynet2/dhcpd/dhcpd.conf && "
                     "sed -i 's/^8080 = /8081 = /' zynet8/nat/nat.conf && rm /dev/zynet8 && "
                     "touch /dev/zynet7 && echo 99999 > /var/run/zynet-dhcpd-zynet1.pid && "
                     "echo abc > /var/run/zynet-bridge-6.pid && ip link add br-route type bridge && "
                     "ip addr add 10.50.0.1/16 dev br-route && ip link set br-route up"));
  Plant(
      "add_dhcp_mac_to_ip 3 00:50:56:00:00:03 10.3.0.50\nanswer VNET_4_DHCP yes\n"
      "answer VNET_4_HOSTONLY_SUBNET 10.4.0.7\nanswer VNET_4_HOSTONLY_NETMASK 255.255.255.0\n"
      "answer VNET_4_MTU 99999999\nanswer VNET_5_HOSTONLY_SUBNET 010.5.0.0\n"
      "answer VNET_5_HOSTONLY_NETMASK 255.0.255.0\nanswer VNET_6_HOSTONLY_SUBNET 10.50.3.0\n"
      "answer VNET_6_HOSTONLY_NETMASK 255.255.255.0\nanswer VNET_6_DHCP_PARAM_LEASE_END_IP 10.50.3.20\n"
      "answer VNET_6_DHCP_PARAM_SUB_DEFAULT_LEASE_TIME 9000\n"
      "answer VNET_6_VIRTUAL_ADAPTER_ADDR 10.50.3.255\nadd_dhcp_mac_to_ip 6 00:50:56:00:00:01 10.50.3.99\n"
      "add_nat_portfwd 6 udp 53 10.51.0.1 53\nanswer VNET_10_NAT no\n"
      "answer VNET_9_HOSTONLY_SUBNET 10.2.0.0\n");
  ASSERT_TRUE(FileExists("/usr/sbin/dhcpd")) << "the DHCP server must be installed for `dhcpd -t`";
  std::vector<std::string> codes = CheckCodes();
  for (const char *expected :
       {"zynet1 param-invalid", "zynet1 lease-duplicate-ip", "zynet1 dhcpd-rejects",
        "zynet1 service-not-running", "zynet1 pid-file-stale", "zynet2 dhcpd-conf-edited",
        "zynet2 subnet-overlap", "zynet3 dhcpd-conf-stale", "zynet4 dhcpd-conf-missing",
        "zynet4 subnet-host-bits", "zynet4 mtu-range", "zynet5 subnet-invalid", "zynet5 mask-invalid",
        "zynet6 subnet-host-route", "zynet6 lease-range-order", "zynet6 lease-times",
        "zynet6 adapter-address", "zynet6 lease-duplicate-mac", "zynet6 forward-address",
        "zynet6 forward-without-nat", "zynet6 service-status", "zynet7 device-wrong",
        "zynet8 device-missing", "zynet8 nat-conf-differs", "zynet8 nat66-prefix-journal-only",
        "zynet9 subnet-overlap", "zynet10 service-not-configured", "zynet10 nat-conf-left"}) {
    EXPECT_NE(std::find(codes.begin(), codes.end(), expected), codes.end()) << expected;
  }
  // The real server's words, and a check of some vnets only.
  Result text = Nexcfg({"check", "zynet1"});
  EXPECT_TRUE(Has(text.out, "the DHCP server rejects /etc/zymtra/zynet1/dhcpd/dhcpd.conf: bad range"))
      << text.out;
  EXPECT_TRUE(Has(text.out, "fix: ")) << text.out;
  for (const auto &code : CheckCodes({"zynet7", "8"}))
    EXPECT_TRUE(code.rfind("zynet7 ", 0) == 0 || code.rfind("zynet8 ", 0) == 0) << code;
  (void)Shell("ip link del br-route");
}

// ---- Import and merge ------------------------------------------------------------

TEST_F(CliTest, ImportAndMergeShowTheChangeRefuseJunkAndKeepEveryBackup) {
  CreateDb();
  Ok({"vnet", "set", "1", "subnet", "192.168.56.0/24"});
  Ok({"vnet", "set", "1", "name", "Lab"});
  Ok({"db", "export", "/tmp/one"});
  Ok({"vnet", "set", "5", "subnet", "10.5.0.0/24"});
  ASSERT_TRUE(WriteFile("/tmp/empty", "") &&
              WriteFile("/tmp/binary", std::string("VERSION=1,0\n\0\x01\xff", 15)) &&
              WriteFile("/tmp/five", "BACKUP_VERSION=1,0\nanswer VNET_5_HOSTONLY_SUBNET 10.6.0.0\n") &&
              Shell("cp /etc/zymtra/networking /tmp/database") == 0);
  std::string before = DbText();
  for (const char *junk : {"/etc/passwd", "/tmp/empty", "/tmp/binary", "/tmp/database"}) {
    SCOPED_TRACE(junk);
    Fails({"db", "import", junk}, "refused");
    Fails({"db", "merge", junk}, "refused");
    EXPECT_EQ(DbText(), before);
  }
  // What changes is shown vnet by vnet; --dry-run does nothing else.
  JValue dry = Ok({"--json", "db", "import", "/tmp/one", "--dry-run"}).Json();
  ASSERT_EQ(dry["changes"].items.size(), 2u) << Ok({"db", "import", "/tmp/one", "--dry-run"}).out;
  EXPECT_EQ(dry["changes"][0]["vnet"].s, "zynet5");
  EXPECT_EQ(dry["changes"][1]["setting"].s, "HOSTONLY_SUBNET");
  EXPECT_EQ(dry["changes"][1]["before"].s, "10.5.0.0");
  EXPECT_EQ(dry["changes"][1]["after"].kind, JValue::kNull);
  EXPECT_EQ(DbText(), before);
  // Every import keeps the database it replaces; none overwrites another.
  for (int i = 0; i < 3; ++i) Ok({"db", "import", "/tmp/one"});
  EXPECT_TRUE(Has(ReadFile("/etc/zymtra/networking.bak.1"), "VNET_5_HOSTONLY_SUBNET 10.5.0.0"));
  EXPECT_TRUE(FileExists("/etc/zymtra/networking.bak.0") && FileExists("/etc/zymtra/networking.bak.2"));
  EXPECT_EQ(Ok({"--json", "show", "1"}).Json()[0]["name"].s, "Lab");  // the export is a backup
  // A merge replaces: a vnet the file does not name loses its settings.
  JValue merged = Ok({"--json", "db", "merge", "/tmp/five"}).Json();
  bool tellsLoss = false;
  for (const auto &c : merged["changes"].items)
    tellsLoss = tellsLoss || (c["vnet"].s == "zynet1" && c["after"].kind == JValue::kNull);
  EXPECT_TRUE(tellsLoss);
  EXPECT_EQ(merged["backup"].s, "/etc/zymtra/networking.bak.3");
  EXPECT_TRUE(Has(ReadFile("/etc/zymtra/networking.bak.3"), "VNET_1_DISPLAY_NAME Lab"));
  EXPECT_EQ(Ok({"--json", "show", "1"}).Json()[0]["subnet"].kind, JValue::kNull);
  // --force hands a file that is not a backup to the library anyway.
  EXPECT_EQ(Ok({"--json", "db", "import", "/tmp/database", "--force"}).Json()["warnings"][0]["code"].s,
            "not-a-database");
}

TEST_F(CliTest, DeletingTheDatabaseWaitsForItsDaemons) {
  CreateDb();
  Ok({"vnet", "set", "8", "subnet", "10.8.0.0/24"});
  Ok({"nat", "on", "8"});
  Ok({"nat", "update", "8"});
  Ok({"service", "start", "8", "nat"});
  pid_t natd = PidInFile("/var/run/zynet-natd-8.pid");
  ASSERT_GT(natd, 0);
  EXPECT_TRUE(Has(Fails({"db", "delete"}, "refused")["error"]["message"].s, "zynet8 nat"));
  EXPECT_TRUE(FileExists(kDbPath));
  JValue deleted = Ok({"--json", "db", "delete", "--stop-services"}).Json();
  EXPECT_EQ(deleted["stopped"][0]["service"].s, "nat");
  EXPECT_TRUE(WaitGone(natd, 3000));
  EXPECT_FALSE(FileExists(kDbPath));
}

// ---- Failures --------------------------------------------------------------------

TEST_F(CliTest, LibraryFailuresAreToldInPlainWordsWithTheLinesThatMatter) {
  CreateDb();
  Ok({"answer", "set", "NXC_LOG_FILE", "/var/log/other.log"});
  Ok({"vnet", "set", "1", "subnet", "192.168.56.0/24"});
  Ok({"dhcp", "on", "1"});
  Ok({"dhcp", "update", "1"});
  Ok({"service", "start", "1", "dhcp"});
  Result running = Nexcfg({"dhcp", "update", "1"});
  EXPECT_EQ(running.status, 1);
  EXPECT_EQ(running.err.rfind(
                "nexcfg: cannot write the DHCP configuration file of zynet1: the vnet's daemon is running\n"
                "  fix: stop it first",
                0),
            0u)
      << running.err;
  EXPECT_TRUE(Has(running.err, "library log (/var/log/other.log)"));
  EXPECT_TRUE(Has(running.err, "NXC_UpdateDHCPFromConfig - DHCP service is not in stopped state"))
      << running.err;
  EXPECT_FALSE(Has(running.err, "Successfully")) << running.err;  // lines of the load are not part of it

  // Ten pings that all get an answer: each library line once, at most five.
  ASSERT_TRUE(SetPingExitCodes("0"));
  JValue busy = Fails({"vnet", "assign-subnet", "10"}, "failed");
  EXPECT_TRUE(Has(busy["error"]["message"].s, "no free subnet was found")) << busy["error"]["message"].s;
  ASSERT_LE(busy["log"].items.size(), 5u);
  int answered = 0;
  for (const auto &line : busy["log"].items) answered += Has(line.s, "Return value of zymtra-ping: 0");
  EXPECT_EQ(answered, 1);
  Result all = Nexcfg({"-v", "vnet", "assign-subnet", "10"});
  size_t every = 0;
  for (size_t at = 0; (at = all.err.find("Return value of zymtra-ping: 0", at)) != std::string::npos; ++at)
    ++every;
  EXPECT_GE(every, 10u) << all.err;  // -v: every line
  // A value forced past the tool meets the library's own refusal.
  Result forced = Nexcfg({"nat", "set", "1", "config-port", "70000", "--force"});
  EXPECT_EQ(forced.status, 1);
  EXPECT_TRUE(Has(forced.err, "Invalid config port value: 70000")) << forced.err;
}

// ---- One JSON contract -------------------------------------------------------------

// A JSON scalar as text: "7200", "true", "10.0.0.1", "null".
std::string Scalar(const JValue &v) {
  switch (v.kind) {
    case JValue::kNumber:
      return std::to_string(v.n);
    case JValue::kBool:
      return v.b ? "true" : "false";
    case JValue::kString:
      return v.s;
    default:
      return "null";
  }
}

TEST_F(CliTest, EveryCommandSpeaksTheOneJsonContract) {
  CreateDb();
  Ok({"vnet", "set", "2", "subnet", "192.168.2.0/24"});
  Ok({"vnet", "set", "2", "name", "caf\xc3\xa9 \xff\xfe"});
  Ok({"nat", "on", "2"});
  Ok({"nat", "forward", "add", "2", "tcp", "8080", "192.168.2.20", "80", "web \"server\""});
  Ok({"dhcp", "lease", "add", "2", "0:50:56:c0:0:2", "192.168.2.20"});
  // Each command, the keys of its object (or of each element of its array),
  // all of them and no others.
  struct Case { std::vector<std::string> args; std::vector<std::string> keys; } cases[] = {
      {{"list"}, {"config", "has_subnet", "mask", "name", "runtime", "subnet", "vnet"}},
      {{"show", "2"},
       {"adapter_address", "adapter_address_computed", "bridged_adapters", "config", "default_bridge", "dhcp",
        "has_subnet", "mask", "mtu", "name", "nat", "runtime", "subnet", "vnet"}},
      {{"vnet", "set", "2", "mtu", "1400"}, {"field", "value", "vnet", "warnings"}},
      {{"vnet", "unset", "2", "mtu"}, {"field", "value", "vnet", "warnings"}},
      {{"dhcp", "show", "2"}, {"enabled", "leases", "parameters", "vnet"}},
      {{"dhcp", "update", "2"}, {"action", "file", "vnet"}},
      {{"dhcp", "lease", "list", "2"}, {"leases", "vnet"}},
      {{"dhcp", "lease", "get", "2", "00:50:56:c0:00:02"}, {"ip", "mac", "vnet"}},
      {{"nat", "show", "2"}, {"enabled", "forwards", "parameters", "prefixes", "vnet"}},
      {{"nat", "set", "2", "active-ftp", "off"}, {"name", "value", "vnet", "warnings"}},
      {{"nat", "forward", "get", "2", "tcp", "8080"},
       {"description", "host_port", "protocol", "vm_ip", "vm_port", "vnet"}},
      {{"nat", "update", "2"}, {"action", "file", "vnet"}},
      {{"service", "status", "2", "nat"}, {"service", "status", "vnet"}},
      {{"device", "create", "2"}, {"device", "exists", "vnet"}},
      {{"features", "2"}, {"config", "has_subnet", "runtime", "vnet"}},
      {{"find", "--nat", "yes"}, {"config", "has_subnet", "runtime", "vnet"}},
      {{"bridge", "default"}, {"vnet"}},
      {{"db", "export", "/tmp/saved"}, {"file", "text"}},
      {{"log", "show"}, {"current", "default", "file"}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(Joined(c.args));
    std::vector<std::string> args{"--json"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    JValue v = Ok(args).Json();
    std::vector<std::string> keys;
    for (const auto &[key, value] : (v.kind == JValue::kArray ? v[0] : v).members) keys.push_back(key);
    EXPECT_EQ(keys, c.keys);  // members are sorted by the reader
  }
  EXPECT_EQ(Shell("test -c /dev/zynet2"), 0);  // made by `device create`
  Ok({"device", "delete", "2"});
  EXPECT_FALSE(FileExists("/dev/zynet2"));
  // Numbers as numbers, switches as booleans, every string valid UTF-8.
  JValue nat = Ok({"--json", "nat", "show", "2"}).Json();
  EXPECT_EQ(nat["forwards"][0]["host_port"].kind, JValue::kNumber);
  EXPECT_EQ(nat["forwards"][0]["description"].s, "web \"server\"");
  std::map<std::string, JValue> parameters;
  for (const auto &p : nat["parameters"].items) parameters[p["name"].s] = p["value"];
  EXPECT_EQ(parameters["udp-timeout"].n, 60);
  EXPECT_EQ(parameters["active-ftp"].kind, JValue::kBool);
  EXPECT_EQ(Ok({"--json", "show", "2"}).Json()[0]["name"].s, "caf\xc3\xa9 \xef\xbf\xbd\xef\xbf\xbd");
  JValue lease = Ok({"--json", "dhcp", "lease", "add", "2", "00:50:56:c0:00:03", "192.168.2.30"}).Json();
  EXPECT_EQ(lease["warnings"].kind, JValue::kArray);
  // A question without an answer is a not-found error in the one shape.
  EXPECT_TRUE(
      Has(Fails({"nat", "forward", "get", "2", "udp", "53"}, "not-found")["error"]["fix"].s, "forward list"));
  Fails({"answer", "get", "NO_SUCH_KEY"}, "not-found");
  Fails({"dhcp", "lease", "rm", "2", "00:50:56:c0:00:09"}, "not-found");
}

// ---- Completion --------------------------------------------------------------------

TEST_F(CliTest, CompletionWorksInAPlainBashWithoutTouchingTheDatabase) {
  CreateDb();
  // A nexcfg on the path that tells when it runs.
  ASSERT_EQ(0, Shell("mkdir -p /tmp/spy && printf '#!/bin/sh\\ntouch /tmp/spy/ran\\n' > /tmp/spy/nexcfg && "
                     "chmod +x /tmp/spy/nexcfg && ip link add eth-comp type bridge"));
  std::string db = DbText();
  std::string script =
      std::string("source ") + SourceDir() +
      "/tools/nexcfg.bash-completion\n"
      "t() { COMP_WORDS=(\"$@\"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _nexcfg; echo \"${COMPREPLY[*]}\"; "
      "}\n"
      "t nexcfg dh\nt nexcfg dhcp set zynet1 ''\nt nexcfg nat forward add zynet25\n"
      "t nexcfg --json check zynet1 zynet200\nt nexcfg db import --d\nt nexcfg bridge move eth-c\n";
  ASSERT_TRUE(WriteFile("/tmp/complete.sh", script));
  std::string out = CommandOutput(
      "env -i PATH=/tmp/spy:/usr/sbin:/sbin /bin/bash --norc --noprofile /tmp/complete.sh 2>&1");
  EXPECT_EQ(out,
            "dhcp\n"
            "lease-start lease-end default-lease-time max-lease-time dns router netbios\n"
            "zynet25 zynet250 zynet251 zynet252 zynet253 zynet254 zynet255\n"
            "zynet200\n"
            "--dry-run\n"
            "eth-comp\n");
  EXPECT_FALSE(FileExists("/tmp/spy/ran"));
  EXPECT_EQ(DbText(), db);
  (void)Shell("ip link del eth-comp");
}

// ---- Round trips and sessions ------------------------------------------------------

TEST_F(CliTest, MissingDatabaseAndQueriesWithoutAnAnswer) {
  Result show = Nexcfg({"show"});
  EXPECT_EQ(show.status, 1);
  EXPECT_TRUE(
      Has(show.err, "cannot load the networking database: it does not exist\n  fix: nexcfg db create"));
  EXPECT_TRUE(Has(show.err, "NXC_Load - Error loading the vnet configuration"));
  Result check = Nexcfg({"--json", "db", "check"});
  EXPECT_EQ(check.status, 1);
  EXPECT_FALSE(check.Json()["exists"].b);

  CreateDb();
  EXPECT_TRUE(Ok({"--json", "db", "check"}).Json()["readable"].b);
  EXPECT_EQ(Ok({"--json", "db", "create", "--overwrite"}).Json()["backup"].s, "/etc/zymtra/networking.bak.0");
  EXPECT_TRUE(FileExists("/etc/zymtra/networking.bak.0"));
  EXPECT_EQ(Nexcfg({"find", "--nat", "yes"}).status, 1);  // nothing found
}

TEST_F(CliTest, ParametersShowTheirSource) {
  CreateDb();
  Ok({"vnet", "set", "3", "subnet", "192.168.40.0/24"});
  // A parameter as `FAMILY show` gives it: "value (source)".
  auto shown = [](const char *family, const char *param) {
    JValue json = Ok({"--json", family, "show", "3"}).Json();
    for (const auto &p : json["parameters"].items)
      if (p["name"].s == param) return Scalar(p["value"]) + " (" + p["source"].s + ")";
    return std::string("no parameter ") + param;
  };
  struct Case { const char *family, *param, *value, *defaultValue; } cases[] = {
      {"dhcp", "lease-start", "192.168.40.50", "192.168.40.128"}, {"dhcp", "max-lease-time", "9000", "7200"},
      {"nat", "udp-timeout", "0", "60"},                          {"nat", "active-ftp", "false", "true"},
      {"nat", "gateway", "192.168.40.9", "192.168.40.2"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(std::string(c.family) + " " + c.param);
    EXPECT_EQ(shown(c.family, c.param), c.defaultValue + std::string(" (default)"));
    Ok({c.family, "set", "3", c.param, c.value});
    EXPECT_EQ(shown(c.family, c.param), c.value + std::string(" (set)"));
    Ok({c.family, "unset", "3", c.param});
    EXPECT_EQ(shown(c.family, c.param), c.defaultValue + std::string(" (default)"));
  }
}

TEST_F(CliTest, LeasesForwardsAndPrefixesRoundTrip) {
  CreateDb();
  Ok({"vnet", "set", "2", "subnet", "192.168.2.0/24"});
  Ok({"nat", "on", "2"});
  Ok({"dhcp", "lease", "add", "2", "0:50:56:c0:0:2", "192.168.2.20"});
  JValue lease = Ok({"--json", "dhcp", "lease", "list", "2"}).Json()["leases"][0];
  EXPECT_EQ(lease["mac"].s + " " + lease["ip"].s, "00:50:56:C0:00:02 192.168.2.20");  // the standard form
  EXPECT_EQ(Ok({"dhcp", "lease", "get", "2", "00:50:56:c0:00:02"}).out, "192.168.2.20\n");
  Ok({"dhcp", "lease", "rm", "2", "00:50:56:c0:00:02"});
  EXPECT_EQ(Nexcfg({"dhcp", "lease", "get", "2", "00:50:56:c0:00:02"}).status, 1);

  Ok({"nat", "forward", "add", "2", "tcp", "8080", "192.168.2.20", "80", "web server"});
  Ok({"nat", "forward", "add", "2", "udp", "53", "192.168.2.20", "5353"});
  auto forwards = [](const std::vector<std::string> &args) {
    std::string listed;
    JValue json = Ok(args).Json();
    for (const auto &f : json["forwards"].items)
      listed += f["protocol"].s + " " + Scalar(f["host_port"]) + " " + f["vm_ip"].s + ":" +
                Scalar(f["vm_port"]) + " " + Scalar(f["description"]) + "\n";
    return listed;
  };
  EXPECT_EQ(forwards({"--json", "nat", "forward", "list", "2"}),
            "tcp 8080 192.168.2.20:80 web server\nudp 53 192.168.2.20:5353 null\n");  // TCP first
  EXPECT_EQ(forwards({"--json", "nat", "forward", "list", "2", "udp"}), "udp 53 192.168.2.20:5353 null\n");
  EXPECT_EQ(Ok({"--json", "nat", "forward", "get", "2", "udp", "53"}).Json()["vm_port"].n, 5353);
  Ok({"nat", "forward", "rm", "2", "tcp", "8080"});
  EXPECT_EQ(Nexcfg({"nat", "forward", "get", "2", "tcp", "8080"}).status, 1);
  // NAT66 prefixes: listed, and one removed while the others stay.
  Ok({"nat", "prefix", "add", "2", "fd00:1:2:3::/64", "lab"});
  Ok({"nat", "prefix", "add", "2", "fd00:1:2:4::/64"});
  Ok({"nat", "prefix", "add", "3", "fd00:3::/64"});
  Ok({"nat", "prefix", "rm", "2", "fd00:1:2:4::/64"});
  JValue prefixes = Ok({"--json", "nat", "prefix", "list", "2"}).Json()["prefixes"];
  ASSERT_EQ(prefixes.items.size(), 1u);
  EXPECT_EQ(prefixes[0].s, "fd00:1:2:3::/64");
  EXPECT_EQ(Ok({"--json", "show", "3"}).Json()[0]["nat"]["prefixes"][0].s, "fd00:3::/64");
  Fails({"nat", "prefix", "rm", "2", "fd00:1:2:4::/64"}, "not-found");
  // A compact rewrite keeps no NAT66 prefixes; without one the journal does.
  Ok({"answer", "set", "SOME_KEY", "1"});
  EXPECT_EQ(Nexcfg({"nat", "prefix", "check", "2", "fd00:1:2:3::/64"}).status, 0);
  Ok({"--compact", "answer", "set", "SOME_KEY", "2"});
  EXPECT_EQ(Nexcfg({"nat", "prefix", "check", "2", "fd00:1:2:3::/64"}).status, 1);
  EXPECT_EQ(DbText().find("add_nat_prefix"), std::string::npos);
}

TEST_F(CliTest, SessionConfiguresStartsFindsStopsAndDeletes) {
  CreateDb();
  Ok({"vnet", "set", "1", "subnet", "192.168.56.0/24"});
  EXPECT_FALSE(Ok({"--json", "adapter", "status", "1"}).Json()["configured"].b);
  Ok({"adapter", "on", "1"});
  Ok({"dhcp", "on", "1"});
  Ok({"dhcp", "update", "1"});
  Ok({"nat", "on", "8"});  // without a subnet: the library finds it one
  Ok({"nat", "update", "8"});

  // The stand-in netifup makes no interface; the tool gives this one (made
  // in the sandbox's network) the adapter's address.
  ASSERT_EQ(0, Shell("ip link add zynet1 type bridge"));
  JValue started = Ok({"--json", "service", "start", "1"}).Json();
  ASSERT_EQ(started["services"].items.size(), 2u);  // the configured ones, in order
  EXPECT_EQ(started["services"][0].s, "netifup");
  EXPECT_EQ(started["services"][1].s, "dhcp");
  EXPECT_EQ(0, Shell("ip -4 addr show zynet1 | grep -q 'inet 192.168.56.1/24'"));
  JValue up = Ok({"--json", "adapter", "status", "1"}).Json();
  EXPECT_TRUE(up["configured"].b && up["up"].b);
  EXPECT_EQ(Ok({"--json", "find", "--adapter-up", "yes"}).Json()[0]["vnet"].s, "zynet1");
  Ok({"adapter", "down", "1"});
  EXPECT_FALSE(Ok({"--json", "adapter", "status", "1"}).Json()["up"].b);
  // An adapter whose interface is gone still has its netifup stopped.
  Ok({"adapter", "up", "1"});
  ASSERT_EQ(0, Shell("ip link del zynet1"));
  Ok({"adapter", "down", "1"});
  EXPECT_EQ(Ok({"--json", "service", "status", "1", "netifup"}).Json()[0]["status"].s, "stopped");
  Ok({"service", "start", "8", "nat"});
  JValue running = Ok({"--json", "find", "--nat-running", "yes"}).Json();
  ASSERT_EQ(running.items.size(), 1u);
  EXPECT_EQ(running[0]["vnet"].s, "zynet8");
  JValue found = Ok({"--json", "find", "--all", "--subnet", "yes", "--bridge", "no"}).Json();
  ASSERT_EQ(found.items.size(), 2u);
  EXPECT_EQ(found[0]["vnet"].s, "zynet1");
  Ok({"service", "stop", "1"});
  Ok({"service", "stop", "8"});
  for (const auto &s : Ok({"--json", "service", "status", "8"}).Json().items)
    EXPECT_EQ(s["status"].s, "stopped");

  // The export to standard output, and the vnet deleted.
  EXPECT_NE(Ok({"db", "export", "-"}).out.find("VNET_8_NAT"), std::string::npos);
  Ok({"vnet", "delete", "8"});
  EXPECT_EQ(Ok({"--json", "show", "8"}).Json()[0]["subnet"].kind, JValue::kNull);
}

TEST_F(CliTest, UpGoesOnPastAFailingVnetAndDownStopsWhateverRuns) {
  CreateDb();
  Ok({"vnet", "set", "3", "subnet", "192.168.3.0/24"});
  Ok({"dhcp", "on", "3"});  // dhcpd.conf is never written: its start fails
  Ok({"vnet", "set", "4", "subnet", "192.168.4.0/24"});
  Ok({"nat", "on", "4"});
  Ok({"nat", "update", "4"});

  Result up = Nexcfg({"--json", "up"});
  EXPECT_EQ(up.status, 1);
  EXPECT_TRUE(Has(up.err, "cannot start the dhcp service of zynet3")) << up.err;
  JValue vnets = up.Json();
  ASSERT_EQ(vnets.items.size(), 3u) << up.out;
  EXPECT_EQ(vnets[0]["vnet"].s, "zynet0");  // the default bridge: not unasked
  EXPECT_EQ(vnets[0]["skipped"][0].s, "bridge");
  EXPECT_EQ(vnets[1]["error"]["code"].s, "failed");
  EXPECT_EQ(vnets[2]["services"][0].s, "nat");
  EXPECT_EQ(vnets[2]["error"].kind, JValue::kNull);

  // A daemon whose vnet is no longer configured for it still goes down.
  Plant("answer VNET_4_NAT no\n");
  JValue down = Ok({"--json", "down"}).Json();
  ASSERT_EQ(down.items.size(), 3u);
  EXPECT_EQ(down[0]["vnet"].s, "zynet4");
  EXPECT_EQ(down[0]["services"][0].s, "nat");
  EXPECT_EQ(Ok({"--json", "service", "status", "4", "nat"}).Json()[0]["status"].s, "stopped");
}

TEST_F(CliTest, BridgesMoveHostAdapters) {
  CreateDb();
  ASSERT_EQ(0, Shell("ip link add eth-test type bridge && ip link set eth-test up"));
  JValue adapters = Ok({"--json", "bridge", "list"}).Json();
  ASSERT_EQ(adapters.items.size(), 1u) << Ok({"bridge", "list"}).out;
  EXPECT_EQ(adapters[0]["adapter"].s, "eth-test");
  EXPECT_EQ(adapters[0]["vnet"].s, "zynet0");  // the default bridge
  EXPECT_EQ(Ok({"bridge", "default"}).out, "zynet0\n");

  Ok({"bridge", "move", "eth-test", "--to", "zynet2"});
  EXPECT_EQ(Ok({"--json", "bridge", "list"}).Json()[0]["vnet"].s, "zynet2");
  EXPECT_EQ(Ok({"--json", "show", "2"}).Json()[0]["bridged_adapters"].items.size(), 1u);
  EXPECT_TRUE(Has(Nexcfg({"bridge", "move", "eth-test", "--from", "zynet3"}).err,
                  "is not bridged to specified host adapter"));
  Ok({"bridge", "default", "set", "none"});
  EXPECT_EQ(Ok({"--json", "bridge", "default"}).Json()["vnet"].kind, JValue::kNull);
  Ok({"bridge", "move", "eth-test"});  // to the default bridge: none
  EXPECT_EQ(Ok({"--json", "bridge", "list"}).Json()[0]["vnet"].kind, JValue::kNull);
  (void)Shell("ip link del eth-test");
}

TEST_F(CliTest, SubnetChoiceFollowsThePingProgram) {
  CreateDb();
  // The ping stand-in answers "no reply" (1) unless told otherwise.
  EXPECT_EQ(Ok({"--json", "vnet", "unused-subnet"}).Json()["mask"].s, "255.255.255.0");
  JValue assigned = Ok({"--json", "vnet", "assign-subnet", "9"}).Json();
  ASSERT_EQ(assigned["subnet"].kind, JValue::kString);
  // A vnet with a subnet keeps it unless asked to overwrite.
  EXPECT_EQ(Ok({"--json", "vnet", "assign-subnet", "9"}).Json()["subnet"].s, assigned["subnet"].s);
  EXPECT_TRUE(Ok({"--json", "vnet", "check-subnet", "9"}).Json()["available"].b);
  ASSERT_TRUE(SetPingExitCodes("0"));  // somebody answers
  EXPECT_FALSE(Ok({"--json", "vnet", "check-subnet", "9", "--timeout", "2"}).Json()["available"].b);
  ASSERT_EQ(PingCalls().size(), 1u);
  EXPECT_NE(PingCalls()[0].find("-t 2"), std::string::npos);
}

TEST_F(CliTest, VerboseOutputShowsTheCallsOwnLogLines) {
  CreateDb();
  Ok({"log", "set-default", "err,ok"});
  // -v shows the calls' own log lines, banners and arguments included.
  Result verbose = Ok({"-v", "vnet", "set", "3", "mtu", "1400"});
  EXPECT_NE(verbose.err.find("log: "), std::string::npos);
  EXPECT_NE(verbose.err.find("Arguments - v:"), std::string::npos) << verbose.err;
  EXPECT_NE(verbose.err.find("Successfully set the mtu for vnet: zynet3"), std::string::npos);
  EXPECT_EQ(Ok({"vnet", "set", "3", "mtu", "1500"}).err, "");
  // The level raised for a call is not stored.
  EXPECT_EQ(Ok({"--json", "log", "show"}).Json()["default"]["value"].n, 0x11);
}

// A change on a journal grown far past its records compacts it: every
// record stays, the NAT66 prefixes (which the rewrite itself drops) too.
TEST_F(CliTest, AChangeCompactsALongJournalKeepingEveryRecord) {
  CreateDb();
  Ok({"vnet", "set", "2", "subnet", "192.168.2.0/24"});
  Ok({"nat", "on", "2"});
  Ok({"dhcp", "lease", "add", "2", "00:50:56:C0:00:02", "192.168.2.20"});
  Ok({"nat", "forward", "add", "2", "tcp", "8080", "192.168.2.20", "80", "web server"});
  Ok({"nat", "prefix", "add", "2", "fd00:1:2:3::/64"});
  std::string history;
  for (int i = 0; i < 2000; ++i) history += "remove_answer SOME_KEY\nanswer SOME_KEY " + std::to_string(i) + "\n";
  Plant(history);
  const std::string before = Ok({"db", "export", "-"}).out;
  ASSERT_TRUE(Has(before, "answer SOME_KEY 1999\n"));
  Ok({"answer", "set", "SOME_KEY", "last"});
  EXPECT_LT(DbText().size(), 4096u) << "compacted";
  std::string expected = before;
  expected.replace(expected.find("SOME_KEY 1999"), 13, "SOME_KEY last");
  EXPECT_EQ(Ok({"db", "export", "-"}).out, expected);
  EXPECT_EQ(Nexcfg({"nat", "prefix", "check", "2", "fd00:1:2:3::/64"}).status, 0);
}

// Another program that loads the database while the tool compacts it,
// round after round, finds the NAT66 prefix in it every time: the file
// renamed into place holds the prefixes already.
TEST_F(CliTest, ACompactionNeverShowsOtherProgramsADatabaseWithoutItsPrefixes) {
  CreateDb();
  Ok({"nat", "prefix", "add", "2", "fd00:1:2:3::/64"});
  int stop[2], counts[2];
  ASSERT_EQ(pipe(stop), 0);
  ASSERT_EQ(pipe(counts), 0);
  pid_t reader = fork();
  if (reader == 0) {
    close(stop[1]);
    fcntl(stop[0], F_SETFL, O_NONBLOCK);
    unsigned loads = 0, without = 0;
    char byte;
    while (read(stop[0], &byte, 1) < 0 && errno == EAGAIN) {
      NXCNetworkConfigurationDB *db = nullptr;
      bool loaded = NXCNetCfgLoad(kDbPath, &db, false, /*readOnly=*/true);
      without += !loaded || !NXCNetCfgLookupNATPrefix(db, 2, "fd00:1:2:3::/64");
      if (loaded) (void)NXCNetCfgUnload(&db, false);
      ++loads;
    }
    unsigned result[2] = {loads, without};
    _exit(write(counts[1], result, sizeof result) == sizeof result ? 0 : 1);
  }
  close(stop[0]);
  close(counts[1]);
  std::string history;
  for (int i = 0; i < 2000; ++i) history += "remove_answer SOME_KEY\nanswer SOME_KEY " + std::to_string(i) + "\n";
  // The reader stops when the write end closes, whatever fails here.
  for (int round = 0; round < 20; ++round) {
    int fd = open(kDbPath, O_WRONLY | O_APPEND);
    bool grown = write(fd, history.data(), history.size()) == static_cast<ssize_t>(history.size());
    close(fd);
    Ok({"answer", "set", "SOME_KEY", std::to_string(round)});
    size_t size = DbText().size();
    EXPECT_TRUE(grown && size < 4096u) << "not compacted in round " << round << ": " << size;
    if (!grown || size >= 4096u) break;
  }
  close(stop[1]);
  unsigned result[2] = {0, 0};
  EXPECT_EQ(read(counts[0], result, sizeof result), static_cast<ssize_t>(sizeof result));
  int status = -1;
  EXPECT_EQ(waitpid(reader, &status, 0), reader);
  EXPECT_GT(result[0], 20u) << "loads";
  EXPECT_EQ(result[1], 0u) << "loads without the prefix, of " << result[0];
}

}  // namespace
}  // namespace nxc::test
