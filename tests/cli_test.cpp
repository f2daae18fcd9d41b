// cli_test.cpp - the nexcfg tool run as a program on real command lines,
// inside the test sandbox: exit statuses and usage errors, failure reports
// with the library's log lines, --json shapes, set-then-show round trips,
// and a whole session with stand-in daemons.
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
  bool Has(const std::string &key) const { return members.count(key) != 0; }
};

class JReader {
 public:
  explicit JReader(const std::string &text) : t_(text) {}
  bool Read(JValue *out) {
    bool ok = Value(out);
    Blank();
    return ok && i_ == t_.size();
  }

 private:
  void Blank() {
    while (i_ < t_.size() && isspace(static_cast<unsigned char>(t_[i_]))) ++i_;
  }
  bool Take(char c) {
    Blank();
    if (i_ < t_.size() && t_[i_] == c) {
      ++i_;
      return true;
    }
    return false;
  }
  bool Word(const char *w, JValue *out, JValue::Kind kind, bool b) {
    size_t len = strlen(w);
    if (t_.compare(i_, len, w) != 0) return false;
    i_ += len;
    out->kind = kind;
    out->b = b;
    return true;
  }
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
    Blank();
    if (i_ >= t_.size()) return false;
    char c = t_[i_];
    if (c == '"') {
      out->kind = JValue::kString;
      return String(&out->s);
    }
    if (c == '[') {
      ++i_;
      out->kind = JValue::kArray;
      if (Take(']')) return true;
      do {
        out->items.emplace_back();
        if (!Value(&out->items.back())) return false;
      } while (Take(','));
      return Take(']');
    }
    if (c == '{') {
      ++i_;
      out->kind = JValue::kObject;
      if (Take('}')) return true;
      do {
        std::string key;
        if (!String(&key) || !Take(':') || !Value(&out->members[key])) return false;
      } while (Take(','));
      return Take('}');
    }
    if (c == '-' || isdigit(static_cast<unsigned char>(c))) {
      size_t used = 0;
      out->kind = JValue::kNumber;
      out->n = std::stoll(t_.substr(i_), &used);
      i_ += used;
      return true;
    }
    return Word("true", out, JValue::kBool, true) || Word("false", out, JValue::kBool, false) ||
           Word("null", out, JValue::kNull, false);
  }

  const std::string &t_;
  size_t i_ = 0;
};

// ---- Running the tool ----------------------------------------------------------

struct Result {
  int status = -1;
  std::string out, err;
  JValue Json() const {
    JValue v;
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

class CliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(InSandbox()) << "this test must run inside the private namespaces";
    (void)Shell("rm -rf /etc/zymtra/* /var/log/*.log");
    ClearLog();
    ASSERT_TRUE(InstallStandinDaemonsAndPing());
  }
  void TearDown() override { KillAllDaemons(); }

  void CreateDb() { Ok({"db", "create"}); }
  std::string DbText() const { return ReadFile("/etc/zymtra/networking"); }
};

// ---- Command lines -------------------------------------------------------------

TEST_F(CliTest, UsageErrorsExitWithTwoAndNameTheProblem) {
  CreateDb();
  struct Case {
    std::vector<std::string> args;
    const char *says;
  } cases[] = {
      {{}, "usage: nexcfg"},
      {{"frobnicate"}, "no command \"frobnicate\""},
      {{"dhcp"}, "the dhcp commands are"},
      {{"dhcp", "lease", "bogus"}, "dhcp lease add"},
      {{"vnet", "set", "zynet1", "subnet"}, "missing arguments"},
      {{"vnet", "set", "zynet1", "subnet", "10.0.0.0", "more"}, "too many arguments"},
      {{"vnet", "set", "zynet256", "mtu", "1"}, "\"zynet256\" is not a vnet"},
      {{"vnet", "set", "zynet01", "mtu", "1"}, "is not a vnet"},
      {{"vnet", "set", "eth0", "mtu", "1"}, "is not a vnet"},
      {{"vnet", "set", "1", "mtu", "12x"}, "the MTU must be a number"},
      {{"vnet", "set", "1", "mtu", "4294967296"}, "the MTU must be a number"},
      {{"vnet", "set", "1", "colour", "red"}, "unknown field \"colour\""},
      {{"vnet", "unset", "1", "name"}, "can be changed but not removed"},
      {{"dhcp", "on", "1", "--bogus"}, "unknown option --bogus"},
      {{"dhcp", "on", "1", "--cleanup=yes"}, "takes no value"},
      {{"find", "--nat"}, "option --nat needs a value"},
      {{"find", "--nat", "maybe"}, "must be on or off"},
      {{"dhcp", "set", "1", "colour", "x"}, "unknown DHCP parameter \"colour\""},
      {{"nat", "unset", "1", "lease-start"}, "unknown NAT parameter"},
      {{"nat", "forward", "add", "1", "icmp", "80", "10.0.0.1", "80"}, "tcp or udp"},
      {{"nat", "forward", "add", "1", "tcp", "0", "10.0.0.1", "80"}, "the host port must be"},
      {{"nat", "forward", "rm", "1", "udp", "65536"}, "the host port must be"},
      {{"service", "start", "1", "ftp"}, "unknown service \"ftp\""},
      {{"bridge", "default", "set", "zynet3"}, "only zynet0 or none"},
      {{"log", "set-default", "loud"}, "unknown log level \"loud\""},
      {{"help", "nosuch"}, "no command \"nosuch\""},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(Joined(c.args));
    Result r = Nexcfg(c.args);
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
    if (c.args.size() > 1) {
      EXPECT_EQ(r.out, "");
    }
  }
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
    for (std::string w; words >> w && islower(static_cast<unsigned char>(w[0])) && w.find('|') == std::string::npos;)
      name += (name.empty() ? "" : " ") + w;
    names.push_back(name);
  }
  ASSERT_GE(names.size(), 50u) << overview.out;
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
  Result family = Ok({"help", "nat", "forward"});
  EXPECT_NE(family.out.find("nat forward list"), std::string::npos);
  EXPECT_NE(Ok({"dhcp", "set", "--help"}).out.find("lease-start"), std::string::npos);
  EXPECT_NE(Ok({"--version"}).out.find("interface version 1.0"), std::string::npos);
}

// ---- Failures --------------------------------------------------------------------

TEST_F(CliTest, FailureShowsTheLibraryLogLinesOfThatCallOnly) {
  CreateDb();
  Ok({"vnet", "set", "1", "name", "first"});
  Result r = Nexcfg({"vnet", "set", "1", "subnet", "10.1.2.300"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("nexcfg: cannot set the subnet of zynet1 to 10.1.2.300"), std::string::npos);
  EXPECT_NE(r.err.find("library log (/var/log/nexcfg)"), std::string::npos);
  EXPECT_NE(r.err.find("NXC_SetVnetSubnetAddr - Subnet address is not valid: 10.1.2.300"),
            std::string::npos)
      << r.err;
  // Lines of the load and of the earlier command are not part of it.
  EXPECT_EQ(r.err.find("Successfully initialized"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("display name"), std::string::npos) << r.err;

  Result j = Nexcfg({"--json", "vnet", "set", "1", "mask", "255.0.255.0"});
  EXPECT_EQ(j.status, 1);
  JValue v = j.Json();
  EXPECT_EQ(v["error"].s, "cannot set the mask of zynet1 to 255.0.255.0");
  ASSERT_EQ(v["log"].kind, JValue::kArray);
  bool named = false;
  for (const auto &line : v["log"].items) named = named || line.s.find("Specified mask is not valid") != std::string::npos;
  EXPECT_TRUE(named) << j.out;
}

TEST_F(CliTest, FailureReadsTheConfiguredLogFile) {
  CreateDb();
  Ok({"answer", "set", "NXC_LOG_FILE", "/var/log/other.log"});
  Result r = Nexcfg({"nat", "set", "8", "config-port", "70000"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("library log (/var/log/other.log)"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Invalid config port value: 70000"), std::string::npos) << r.err;
  EXPECT_NE(Ok({"log", "show"}).out.find("/var/log/other.log"), std::string::npos);
}

TEST_F(CliTest, MissingDatabaseAndQueriesWithoutAnAnswer) {
  Result show = Nexcfg({"show"});
  EXPECT_EQ(show.status, 1);
  EXPECT_NE(show.err.find("cannot load the networking database (it does not exist"), std::string::npos);
  EXPECT_NE(show.err.find("NXC_Load - Error loading the vnet configuration"), std::string::npos);
  Result check = Nexcfg({"--json", "db", "check"});
  EXPECT_EQ(check.status, 1);
  EXPECT_FALSE(check.Json()["exists"].b);

  CreateDb();
  JValue ok = Ok({"--json", "db", "check"}).Json();
  EXPECT_TRUE(ok["exists"].b);
  EXPECT_TRUE(ok["readable"].b);
  Result again = Nexcfg({"db", "create"});
  EXPECT_EQ(again.status, 1);
  EXPECT_NE(again.err.find("must be deleted before creating new one"), std::string::npos);
  Ok({"db", "create", "--overwrite"});
  EXPECT_TRUE(FileExists("/etc/zymtra/networking.bak.0"));

  EXPECT_EQ(Nexcfg({"answer", "get", "NO_SUCH_KEY"}).status, 1);
  EXPECT_EQ(Nexcfg({"find", "--nat", "yes"}).status, 1);
  EXPECT_EQ(Nexcfg({"nat", "prefix", "check", "8", "fd00::/64"}).status, 1);
  Ok({"db", "delete"});
  EXPECT_FALSE(FileExists("/etc/zymtra/networking"));
}

// ---- Round trips ------------------------------------------------------------------

TEST_F(CliTest, VnetAttributesSetThenShow) {
  CreateDb();
  struct Case {
    const char *field, *value, *key;  // key in `show --json`
  } cases[] = {
      {"name", "Lab network", "name"},
      {"subnet", "10.20.30.0", "subnet"},
      {"mask", "255.255.255.0", "mask"},
      {"adapter-address", "10.20.30.7", "adapter_address"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.field);
    Ok({"vnet", "set", "zynet5", c.field, c.value});
    EXPECT_EQ(Ok({"--json", "show", "zynet5"}).Json()[c.key].s, c.value);
  }
  Ok({"vnet", "set", "5", "mtu", "4294967295"});
  JValue v = Ok({"--json", "show", "5"}).Json();
  EXPECT_EQ(v["mtu"].n, 4294967295LL);
  EXPECT_FALSE(v["adapter_address_computed"].b);
  EXPECT_TRUE(v["has_subnet"].b);

  Ok({"vnet", "unset", "5", "adapter-address"});
  Ok({"vnet", "unset", "5", "mtu"});
  v = Ok({"--json", "show", "5"}).Json();
  EXPECT_EQ(v["adapter_address"].s, "10.20.30.1");  // computed from the subnet
  EXPECT_TRUE(v["adapter_address_computed"].b);
  EXPECT_EQ(v["mtu"].kind, JValue::kNull);

  Ok({"answer", "set", "VNET_5_DISPLAY_NAME", "raw"});
  EXPECT_EQ(Ok({"answer", "get", "VNET_5_DISPLAY_NAME"}).out, "raw\n");
  Ok({"answer", "unset", "VNET_5_DISPLAY_NAME"});
  EXPECT_EQ(Nexcfg({"answer", "get", "VNET_5_DISPLAY_NAME"}).status, 1);

  Ok({"log", "set-default", "err,ok"});
  JValue level = Ok({"--json", "log", "show"}).Json();
  EXPECT_EQ(level["default"]["value"].n, 0x11);
  EXPECT_EQ(level["default"]["hex"].s, "0x11");
}

TEST_F(CliTest, ParametersShowTheirSource) {
  CreateDb();
  Ok({"vnet", "set", "3", "subnet", "192.168.40.0"});
  Ok({"vnet", "set", "3", "mask", "255.255.255.0"});
  struct Case {
    const char *family, *param, *value, *defaultValue;
  } cases[] = {
      {"dhcp", "lease-start", "192.168.40.50", "192.168.40.128"},
      {"dhcp", "max-lease-time", "600", "7200"},
      {"nat", "udp-timeout", "0", "60"},
      {"nat", "gateway", "192.168.40.9", "192.168.40.2"},
  };
  auto find = [](const JValue &shown, const char *param) {
    for (const auto &p : shown["parameters"].items)
      if (p["name"].s == param) return p;
    ADD_FAILURE() << "no parameter " << param;
    return JValue();
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(std::string(c.family) + " " + c.param);
    JValue p = find(Ok({"--json", c.family, "show", "3"}).Json(), c.param);
    EXPECT_EQ(p["value"].s, c.defaultValue);
    EXPECT_EQ(p["source"].s, "default");
    Ok({c.family, "set", "3", c.param, c.value});
    p = find(Ok({"--json", c.family, "show", "3"}).Json(), c.param);
    EXPECT_EQ(p["value"].s, c.value);
    EXPECT_EQ(p["source"].s, "set");
    Ok({c.family, "unset", "3", c.param});
    EXPECT_EQ(find(Ok({"--json", c.family, "show", "3"}).Json(), c.param)["source"].s, "default");
  }
}

TEST_F(CliTest, LeasesForwardsAndPrefixesRoundTrip) {
  CreateDb();
  Ok({"vnet", "set", "2", "subnet", "192.168.2.0"});
  Ok({"dhcp", "lease", "add", "2", "0:50:56:c0:0:2", "192.168.2.20"});
  Ok({"dhcp", "lease", "add", "2", "00:50:56:C0:00:03", "192.168.2.30"});
  JValue leases = Ok({"--json", "dhcp", "lease", "list", "2"}).Json();
  ASSERT_EQ(leases.items.size(), 2u);
  std::map<std::string, std::string> byMac;
  for (const auto &l : leases.items) byMac[l["mac"].s] = l["ip"].s;
  EXPECT_EQ(byMac["00:50:56:C0:00:02"], "192.168.2.20");  // stored in standard form
  EXPECT_EQ(Ok({"dhcp", "lease", "get", "2", "00:50:56:c0:00:03"}).out, "192.168.2.30\n");
  Ok({"dhcp", "lease", "rm", "2", "00:50:56:c0:00:02"});
  EXPECT_EQ(Ok({"--json", "dhcp", "lease", "list", "2"}).Json().items.size(), 1u);
  EXPECT_EQ(Nexcfg({"dhcp", "lease", "get", "2", "00:50:56:c0:00:02"}).status, 1);

  Ok({"nat", "forward", "add", "2", "tcp", "8080", "192.168.2.20", "80", "web server"});
  Ok({"nat", "forward", "add", "2", "udp", "53", "192.168.2.20", "5353"});
  JValue forwards = Ok({"--json", "nat", "forward", "list", "2"}).Json();
  ASSERT_EQ(forwards.items.size(), 2u);
  EXPECT_EQ(forwards[0]["protocol"].s, "tcp");  // TCP first
  EXPECT_EQ(forwards[0]["host_port"].n, 8080);
  EXPECT_EQ(forwards[0]["vm_ip"].s, "192.168.2.20");
  EXPECT_EQ(forwards[0]["vm_port"].n, 80);
  EXPECT_EQ(forwards[0]["description"].s, "web server");
  EXPECT_EQ(forwards[1]["description"].kind, JValue::kNull);
  JValue one = Ok({"--json", "nat", "forward", "get", "2", "udp", "53"}).Json();
  EXPECT_EQ(one["vm_port"].n, 5353);
  EXPECT_EQ(Ok({"--json", "nat", "forward", "list", "2", "udp"}).Json().items.size(), 1u);
  Ok({"nat", "forward", "rm", "2", "tcp", "8080"});
  EXPECT_EQ(Nexcfg({"nat", "forward", "get", "2", "tcp", "8080"}).status, 1);
  Result tooLong = Nexcfg({"nat", "forward", "add", "2", "tcp", "81", "192.168.2.20", "80", std::string(128, 'd')});
  EXPECT_EQ(tooLong.status, 1);
  EXPECT_NE(tooLong.err.find("Description is too long"), std::string::npos);

  Ok({"nat", "prefix", "add", "2", "fd00:1:2:3::/64", "lab"});
  EXPECT_TRUE(Ok({"--json", "nat", "prefix", "check", "2", "fd00:1:2:3::/64"}).Json()["present"].b);
  EXPECT_EQ(Nexcfg({"nat", "prefix", "add", "2", "not-a-prefix"}).status, 1);
  // A compact rewrite keeps no NAT66 prefixes; without one the journal does.
  Ok({"answer", "set", "SOME_KEY", "1"});
  EXPECT_EQ(Nexcfg({"nat", "prefix", "check", "2", "fd00:1:2:3::/64"}).status, 0);
  Ok({"--compact", "answer", "set", "SOME_KEY", "2"});
  EXPECT_EQ(Nexcfg({"nat", "prefix", "check", "2", "fd00:1:2:3::/64"}).status, 1);
  EXPECT_EQ(DbText().find("add_nat_prefix"), std::string::npos);
}

// ---- JSON shapes -------------------------------------------------------------------

TEST_F(CliTest, JsonShapesOfListsAndRecords) {
  CreateDb();
  Ok({"vnet", "set", "4", "subnet", "10.4.0.0"});
  JValue list = Ok({"--json", "list"}).Json();
  ASSERT_EQ(list.kind, JValue::kArray);
  const JValue *four = nullptr;
  for (const auto &v : list.items)
    if (v["vnet"].s == "zynet4") four = &v;
  ASSERT_NE(four, nullptr) << Ok({"list"}).out;
  for (const char *key : {"vnet", "name", "subnet", "mask", "has_subnet", "config", "runtime"})
    EXPECT_TRUE(four->Has(key)) << key;
  for (const char *key : {"dhcp", "nat", "bridge", "adapter"}) EXPECT_EQ((*four)["config"][key].kind, JValue::kBool);
  for (const char *key : {"dhcp", "nat", "bridge", "adapter_up"})
    EXPECT_EQ((*four)["runtime"][key].kind, JValue::kBool);
  EXPECT_EQ((*four)["name"].kind, JValue::kNull);

  JValue all = Ok({"--json", "list", "--all"}).Json();
  EXPECT_EQ(all.items.size(), 256u);
  JValue status = Ok({"--json", "service", "status", "4", "dhcp", "nat"}).Json();
  ASSERT_EQ(status.items.size(), 2u);
  EXPECT_EQ(status[1]["service"].s, "nat");
  EXPECT_EQ(status[1]["status"].s, "stopped");
  JValue version = Ok({"--json", "version"}).Json();
  EXPECT_EQ(version["vnets"].n, 256);
  EXPECT_EQ(version["interface"].s, "1.0");
  JValue shown = Ok({"--json", "show"}).Json();
  EXPECT_EQ(shown.kind, JValue::kArray);  // every configured vnet
  for (const char *key : {"dhcp", "nat", "bridged_adapters", "default_bridge", "mtu"})
    EXPECT_TRUE(Ok({"--json", "show", "4"}).Json().Has(key)) << key;
}

// ---- A whole session ----------------------------------------------------------------

TEST_F(CliTest, SessionConfiguresRegeneratesStartsAndStops) {
  CreateDb();
  Ok({"vnet", "set", "1", "subnet", "192.168.56.0"});
  Ok({"vnet", "set", "1", "mask", "255.255.255.0"});
  Ok({"adapter", "on", "1"});
  Ok({"dhcp", "on", "1"});
  Ok({"dhcp", "lease", "add", "1", "00:50:56:3f:00:10", "192.168.56.10"});
  // NAT on a vnet without a subnet: the library finds it one.
  JValue nat = Ok({"--json", "nat", "on", "8"}).Json();
  EXPECT_EQ(nat["subnet"].kind, JValue::kString);
  EXPECT_EQ(nat["mask"].s, "255.255.255.0");
  Ok({"nat", "forward", "add", "8", "tcp", "2222", "10.0.0.2", "22"});

  // A running daemon blocks the regeneration of its file.
  Ok({"dhcp", "update", "1"});
  Ok({"nat", "update", "8"});
  EXPECT_NE(ReadFile("/etc/zymtra/zynet1/dhcpd/dhcpd.conf").find("192.168.56.10"), std::string::npos);
  EXPECT_NE(ReadFile("/etc/zymtra/zynet8/nat/nat.conf").find("2222"), std::string::npos);
  ASSERT_EQ(0, Shell("touch /tmp/l && /usr/sbin/dhcpd -t -cf /etc/zymtra/zynet1/dhcpd/dhcpd.conf "
                     "-lf /tmp/l -pf /tmp/p >/dev/null 2>&1"));

  // The stand-in netifup makes no interface; the tool gives this one the
  // adapter's address.
  ASSERT_EQ(0, Shell("ip link add zynet1 type bridge"));
  JValue started = Ok({"--json", "service", "start", "1"}).Json();
  ASSERT_EQ(started["started"].items.size(), 2u);  // the configured ones, in order
  EXPECT_EQ(started["started"][0].s, "netifup");
  EXPECT_EQ(started["started"][1].s, "dhcp");
  Ok({"service", "start", "8", "nat"});
  Result blocked = Nexcfg({"dhcp", "update", "1"});
  EXPECT_EQ(blocked.status, 1);
  EXPECT_NE(blocked.err.find("not in stopped state"), std::string::npos) << blocked.err;

  JValue running = Ok({"--json", "find", "--nat-running", "yes"}).Json();
  ASSERT_EQ(running.items.size(), 1u);
  EXPECT_EQ(running[0]["vnet"].s, "zynet8");
  JValue found = Ok({"--json", "find", "--all", "--subnet", "yes", "--bridge", "no"}).Json();
  ASSERT_EQ(found.items.size(), 2u);
  EXPECT_EQ(found[0]["vnet"].s, "zynet1");
  Result refused = Nexcfg({"vnet", "delete", "8"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("NAT service is still running"), std::string::npos) << refused.err;

  EXPECT_EQ(0, Shell("ip -4 addr show zynet1 | grep -q 'inet 192.168.56.1/24'"));
  Ok({"service", "stop", "1"});
  Ok({"service", "stop", "8"});
  for (const auto &s : Ok({"--json", "service", "status", "8"}).Json().items) EXPECT_EQ(s["status"].s, "stopped");

  // Export, change, import: the exported configuration comes back.
  Ok({"db", "export", "/tmp/saved"});
  Ok({"vnet", "delete", "8"});
  EXPECT_EQ(Ok({"--json", "show", "8"}).Json()["subnet"].kind, JValue::kNull);
  Ok({"db", "import", "/tmp/saved"});
  EXPECT_TRUE(Ok({"--json", "features", "8"}).Json()["config"]["nat"].b);
  EXPECT_NE(Ok({"db", "export", "-"}).out.find("VNET_8_NAT"), std::string::npos);
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
  JValue two = Ok({"--json", "show", "2"}).Json();
  ASSERT_EQ(two["bridged_adapters"].items.size(), 1u);
  EXPECT_TRUE(two["config"]["bridge"].b);
  Result wrongSource = Nexcfg({"bridge", "move", "eth-test", "--from", "zynet3"});
  EXPECT_EQ(wrongSource.status, 1);
  EXPECT_NE(wrongSource.err.find("is not bridged to specified host adapter"), std::string::npos);
  EXPECT_EQ(Nexcfg({"bridge", "move", "eth-nope"}).status, 1);

  Ok({"bridge", "default", "set", "none"});
  EXPECT_EQ(Ok({"--json", "bridge", "default"}).Json()["default_bridge"].kind, JValue::kNull);
  Ok({"bridge", "move", "eth-test"});  // to the default bridge: none
  EXPECT_EQ(Ok({"--json", "bridge", "list"}).Json()[0]["vnet"].kind, JValue::kNull);
  (void)Shell("ip link del eth-test");
}

TEST_F(CliTest, HostOnlyAdapterComesUpAndGoesDown) {
  CreateDb();
  Ok({"vnet", "set", "6", "subnet", "10.6.0.0"});
  Ok({"vnet", "set", "6", "mask", "255.255.255.0"});
  JValue none = Ok({"--json", "adapter", "status", "6"}).Json();
  EXPECT_FALSE(none["configured"].b);
  Ok({"adapter", "on", "6"});
  // No interface zynet6 on the host: bringing it up fails, and the netifup
  // daemon started for it is stopped again.
  Result missing = Nexcfg({"adapter", "up", "6"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("Failed to enable hostonly adapter on vnet: zynet6"), std::string::npos)
      << missing.err;
  EXPECT_EQ(Ok({"--json", "service", "status", "6", "netifup"}).Json()[0]["status"].s, "stopped");

  // An interface of that name (made in the sandbox's network) comes up with
  // the vnet's address.
  ASSERT_EQ(0, Shell("ip link add zynet6 type bridge"));
  Ok({"adapter", "up", "6"});
  JValue up = Ok({"--json", "adapter", "status", "6"}).Json();
  EXPECT_TRUE(up["configured"].b);
  EXPECT_TRUE(up["up"].b);
  EXPECT_EQ(0, Shell("ip -4 addr show zynet6 | grep -q 'inet 10.6.0.1/24'"));
  EXPECT_TRUE(Ok({"--json", "features", "6"}).Json()["runtime"]["adapter_up"].b);
  EXPECT_EQ(Ok({"--json", "find", "--adapter-up", "yes"}).Json()[0]["vnet"].s, "zynet6");
  Ok({"adapter", "update", "6"});
  Ok({"adapter", "down", "6"});
  EXPECT_FALSE(Ok({"--json", "adapter", "status", "6"}).Json()["up"].b);
  // An adapter whose interface is gone still has its netifup stopped.
  Ok({"adapter", "up", "6"});
  ASSERT_EQ(0, Shell("ip link del zynet6"));
  Ok({"adapter", "down", "6"});
  EXPECT_EQ(Ok({"--json", "service", "status", "6", "netifup"}).Json()[0]["status"].s, "stopped");
  Ok({"adapter", "off", "6", "--cleanup"});
  EXPECT_FALSE(Ok({"--json", "adapter", "status", "6"}).Json()["configured"].b);
}

TEST_F(CliTest, SwitchingOffWithCleanupRemovesDerivedSettings) {
  CreateDb();
  Ok({"vnet", "set", "7", "subnet", "10.7.0.0"});
  Ok({"vnet", "set", "7", "mask", "255.255.255.0"});
  Ok({"dhcp", "on", "7"});
  Ok({"dhcp", "set", "7", "dns", "10.7.0.53"});
  Ok({"dhcp", "lease", "add", "7", "00:50:56:00:00:07", "10.7.0.7"});
  Ok({"nat", "on", "7"});
  Ok({"nat", "forward", "add", "7", "tcp", "2207", "10.7.0.7", "22"});
  // Off without clean-up keeps the settings; on again finds them.
  Ok({"dhcp", "off", "7"});
  Ok({"dhcp", "on", "7"});
  EXPECT_EQ(Ok({"--json", "dhcp", "lease", "list", "7"}).Json().items.size(), 1u);
  Ok({"dhcp", "off", "7", "--cleanup"});
  Ok({"nat", "off", "7", "--cleanup"});
  JValue dhcp = Ok({"--json", "dhcp", "show", "7"}).Json();
  EXPECT_FALSE(dhcp["enabled"].b);
  EXPECT_TRUE(dhcp["leases"].items.empty());
  for (const auto &p : dhcp["parameters"].items) EXPECT_NE(p["source"].s, "set") << p["name"].s;
  JValue nat = Ok({"--json", "nat", "show", "7"}).Json();
  EXPECT_FALSE(nat["enabled"].b);
  EXPECT_TRUE(nat["forwards"].items.empty());
  // The subnet stays: it belongs to the vnet, not to the feature.
  EXPECT_EQ(Ok({"--json", "show", "7"}).Json()["subnet"].s, "10.7.0.0");
}

TEST_F(CliTest, SubnetChoiceFollowsThePingProgram) {
  CreateDb();
  // The ping stand-in answers "no reply" (1) unless told otherwise.
  JValue unused = Ok({"--json", "vnet", "unused-subnet"}).Json();
  EXPECT_EQ(unused["mask"].s, "255.255.255.0");
  EXPECT_EQ(unused["subnet"].s.substr(unused["subnet"].s.size() - 2), ".0");
  JValue assigned = Ok({"--json", "vnet", "assign-subnet", "9"}).Json();
  ASSERT_EQ(assigned["subnet"].kind, JValue::kString);
  // A vnet with a subnet keeps it unless asked to overwrite.
  EXPECT_EQ(Ok({"--json", "vnet", "assign-subnet", "9"}).Json()["subnet"].s, assigned["subnet"].s);
  EXPECT_TRUE(Ok({"--json", "vnet", "check-subnet", "9"}).Json()["available"].b);
  ASSERT_TRUE(SetPingExitCodes("0"));  // somebody answers
  EXPECT_FALSE(Ok({"--json", "vnet", "check-subnet", "9", "--timeout", "2"}).Json()["available"].b);
  ASSERT_EQ(PingCalls().size(), 1u);
  EXPECT_NE(PingCalls()[0].find("-t 2"), std::string::npos);
  Result busy = Nexcfg({"vnet", "assign-subnet", "10"});
  EXPECT_EQ(busy.status, 1);
  EXPECT_NE(busy.err.find("Failed to assign subnet to vnet: zynet10"), std::string::npos) << busy.err;
  EXPECT_EQ(Nexcfg({"vnet", "check-subnet", "10"}).status, 1);  // no subnet to check
}

TEST_F(CliTest, DevicesMergeAndVerboseOutput) {
  CreateDb();
  Ok({"device", "create", "3"});
  struct stat st;
  ASSERT_EQ(0, stat("/dev/zynet3", &st));
  EXPECT_TRUE(S_ISCHR(st.st_mode));
  Ok({"device", "delete", "3"});
  EXPECT_FALSE(FileExists("/dev/zynet3"));

  Ok({"vnet", "set", "3", "name", "before"});
  Ok({"db", "export", "/tmp/merge-me"});
  Ok({"vnet", "set", "3", "name", "after"});
  Ok({"db", "merge", "/tmp/merge-me"});
  EXPECT_EQ(Ok({"--json", "show", "3"}).Json()["name"].s, "before");
  EXPECT_EQ(Nexcfg({"db", "merge", "/tmp/no-such-file"}).status, 1);

  // -v shows the calls' own log lines, banners and arguments included.
  Result verbose = Ok({"-v", "vnet", "set", "3", "mtu", "1400"});
  EXPECT_NE(verbose.err.find("log: "), std::string::npos);
  EXPECT_NE(verbose.err.find("Arguments - v:"), std::string::npos) << verbose.err;
  EXPECT_NE(verbose.err.find("Successfully set the mtu for vnet: zynet3"), std::string::npos);
  EXPECT_EQ(Ok({"vnet", "set", "3", "mtu", "1500"}).err, "");
  // The level raised for a call is not stored.
  EXPECT_EQ(Ok({"--json", "log", "show"}).Json()["default"]["value"].n, 0x19);

  Result notConfigured = Nexcfg({"service", "start", "3", "nat"});
  EXPECT_EQ(notConfigured.status, 1);
  EXPECT_NE(notConfigured.err.find("service is not configured for this vnet"), std::string::npos)
      << notConfigured.err;
}

}  // namespace
}  // namespace nxc::test
