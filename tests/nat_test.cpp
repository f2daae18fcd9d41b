// nat_test.cpp - NAT parameters with their defaults, the generated nat.conf
// (golden files, backup, removal) and the reader the NAT daemon uses, over
// hand-written files (the daemon tests run it on the writer's own).
//
// Runs in the private sandbox (/etc/zymtra, /var/log and /tmp are private).
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <functional>
#include <string>
#include <string_view>

#include "netcfg/netcfg_priv.h"
#include "nexcfg_internal.h"
#include "support/db_fixture.h"

namespace nxc::test {
namespace {

constexpr char kConf[] = "/etc/zymtra/zynet8/nat/nat.conf";
constexpr char kBak[] = "/etc/zymtra/zynet8/nat/nat.conf.bak";
constexpr char kVnet8[] =
    "answer VNET_8_HOSTONLY_SUBNET 192.168.40.0\n"
    "answer VNET_8_HOSTONLY_NETMASK 255.255.255.0\n"
    "answer VNET_8_NAT yes\n";

std::string Get(uint32_t vnet, uint32_t id, bool useDefault, size_t size = 300) {
  char buf[300] = "";
  if (!NXCNATGetParameter(vnet, id, useDefault, buf, size)) return "<fail>";
  return buf;
}

// Takes a malloc'd string from the reader; "<null>" for none.
std::string Take(char *text) {
  if (!text) return "<null>";
  std::string s = text;
  free(text);
  return s;
}

// The reader's section names, each followed by ",".
std::string Sections() {
  NatCfgIterator *it = NatCfgListSectionsInit();
  if (!it) return "<none>";
  std::string out;
  for (char *name; (name = NatCfgListSections(it));) out += Take(name) + ",";
  EXPECT_EQ(NatCfgListSections(it), nullptr) << "an ended listing stays ended";
  NatCfgListSectionsDestroy(it);
  return out;
}

// The reader's items of section as "key=value|comment;".
std::string Items(const char *section) {
  NatCfgIterator *it = NatCfgListItemsInit(section);
  if (!it) return "<none>";
  std::string out;
  char *value = nullptr, *comment = nullptr;
  for (char *key; (key = NatCfgListItems(it, &value, &comment));)
    out += Take(key) + "=" + Take(value) + "|" + Take(comment) + ";";
  NatCfgListItemsDestroy(it);
  return out;
}

class NatTest : public DbTest {
 protected:
  void TearDown() override {
    globalConfig = nullptr;
    DbTest::TearDown();
  }
};

// ---- Parameters ------------------------------------------------------------

TEST_F(NatTest, SetParameterChecksEachRule) {
  LoadWith(kVnet8);
  const struct {
    const char *name;
    uint32_t id;
    const char *value;
    bool ok;
    const char *logLine;
  } kCases[] = {
      {"gateway", 13859, "192.168.40.3", true, ""},
      // The rejection lines print the parameter id after "on vnet:".
      {"bad gateway", 13859, "192.168.40", false,
       "Invalid IP address value: 192.168.40 for NAT parameter: \"gateway ip\" on vnet: 13859"},
      {"port 65535", 13862, "65535", true, ""},
      {"port 0", 13862, "0", false,
       "Invalid config port value: 0 for NAT parameter: \"configport\" on vnet: 13862 "},
      {"port 65536", 13862, "65536", false, "Invalid config port value: 65536"},
      {"port 80x", 13862, "80x", false, "Invalid config port value: 80x"},
      {"active FTP 0", 13863, "0", true, ""},
      {"active FTP 01", 13863, "01", false,
       "Invalid value: 01 for NAT parameter: \"activeFTP\" on vnet: 13863"},
      {"active FTP 2", 13863, "2", false, "Invalid value: 2 for NAT parameter: \"activeFTP\""},
      {"any OUI empty", 13864, "", false, "Invalid value:  for NAT parameter: \"allowAnyOUI\""},
      {"NAT66 on", 13868, "1", true, ""},
      {"timeout 0", 13866, "0", true, ""},
      {"timeout -1", 13866, "-1", false, "Invalid value: -1 for NAT parameter: \"timeout\""},
      {"prefix unchecked", 13869, "not a prefix", true, ""},
      {"netmask", 13860, "255.255.0.0", false, "Unrecognized NAT parameter ID: 13860"},
      {"not supported", 13867, "1", false, "Unrecognized NAT parameter ID: 13867"},
      {"base", 13858, "1", false, "Unrecognized NAT parameter ID: 13858"},
      {"past the end", 13870, "1", false, "Unrecognized NAT parameter ID: 13870"},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    ClearLog();
    EXPECT_EQ(NXCNATSetParameter(8, c.id, c.value), c.ok);
    if (c.ok) {
      std::string key = std::string("VNET_8_") + NXCNATParamIDToConfigOption[c.id - 13858];
      EXPECT_EQ(Answer(key.c_str()), c.value);
    } else {
      EXPECT_TRUE(LogHas(std::string("NXCNATSetParameter - ") + c.logLine)) << LogText();
    }
  }
}

// The fixed defaults and those of vnet 8 are in the golden files.
TEST_F(NatTest, DefaultsComeFromTheVnetAndNeedRoomForTheirTerminator) {
  LoadWith("answer VNET_8_HOSTONLY_SUBNET 192.168.40.0\nanswer VNET_8_HOSTONLY_NETMASK 255.255.255.0\n");
  const struct { const char *name; uint32_t vnet, id; size_t size; const char *expected; } kCases[] = {
      {"gateway fits exactly", 8, 13859, 13, "192.168.40.2"},
      {"gateway one byte short", 8, 13859, 12, "<fail>"},
      {"config port fits exactly", 8, 13862, 6, "33445"},
      {"config port one byte short", 8, 13862, 5, "<fail>"},
      {"prefix of vnet 255", 255, 13869, 46, "fd15:4ba5:5a2b:10ff::/64"},
      {"base", 8, 13858, 46, "<fail>"},
      {"not supported", 8, 13867, 46, "<fail>"},
  };
  auto defaultOf = [](uint32_t vnet, uint32_t id, size_t size) {
    char buf[300] = "";
    return NXCNATGetParamDefault(vnet, id, buf, size) ? std::string(buf) : "<fail>";
  };
  for (const auto &c : kCases) EXPECT_EQ(defaultOf(c.vnet, c.id, c.size), c.expected) << c.name;
  // The gateway is computed from the stored subnet as it is, host bits too.
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "VNET_8_HOSTONLY_SUBNET", "192.168.40.5"));
  EXPECT_EQ(defaultOf(8, 13859, 16), "192.168.40.7");
  EXPECT_TRUE(LogHas("NXCNATGetParamDefault - Insufficient space to store NAT param 13862."));
  EXPECT_TRUE(LogHas("NXCNATGetParamDefault - Unrecognized NAT parameter ID: 13867"));

  Reload("");
  EXPECT_EQ(Get(8, 13859, true), "<fail>");
  EXPECT_TRUE(LogHas("Could not get subnet address for vnet: 8"));
  EXPECT_EQ(Get(8, 13860, true), "<fail>");
  EXPECT_TRUE(LogHas("Could not get subnet netmask for vnet: 8"));
}

TEST_F(NatTest, GetterUsesTheStoredValueOrTheDefaultAndTracesOnlyItsExit) {
  LoadWith(std::string(kVnet8) + "answer VNET_8_NAT_PARAM_UDP_TIMEOUT 120\n");
  EXPECT_EQ(Get(8, 13866, false), "120");
  EXPECT_EQ(Get(8, 13866, true, 3), "<fail>");  // stored, but no room
  EXPECT_TRUE(LogHas("Insufficient space to store NAT param 13866."));
  EXPECT_EQ(Get(8, 13863, false), "<fail>");
  EXPECT_TRUE(LogHas("Value of NAT parameter: \"activeFTP\" not found in configuration for vnet: 8"));
  EXPECT_EQ(Get(8, 13863, true), "1");
  EXPECT_TRUE(LogHas("Reverting to default value"));
  EXPECT_EQ(Get(8, 13870, true), "<fail>");
  EXPECT_TRUE(LogHas("NXCNATGetParameter - Unrecognized NAT parameter ID: 13870"));
  EXPECT_EQ(Get(8, 13867, true), "<fail>");
  EXPECT_TRUE(LogHas("NXCNATGetParameter - Failure in getting default value of parameter"));
  EXPECT_TRUE(LogHas("NXCNATGetParameter -  Exiting Function, NXCNATGetParameter:"));
  EXPECT_FALSE(LogHas("Entering Function, NXCNATGetParameter:"));
  // A missing NAT parameter is no error: with only errors logged, no line.
  nxcContext.logMask = LOG_ERR;
  ClearLog();
  EXPECT_EQ(Get(8, 13864, true), "1");
  EXPECT_EQ(LogText(), "");
}

TEST_F(NatTest, RemovingTheConfigurationTakesParametersAndForwards) {
  LoadWith(std::string(kVnet8) +
           "answer VNET_8_NAT_PARAM_GATEWAY_IP 192.168.40.3\n"
           "answer VNET_8_NAT_PARAM_INT_GATEWAY_IPSUBNETMASK 255.255.0.0\n"
           "answer VNET_8_NAT_PARAM_DEVICE /dev/other\n"
           "answer VNET_8_NAT_PARAM_UDP_TIMEOUT 5\n"
           "answer VNET_8_NAT_PARAM_NAT6_PREFIX fd00::/64\n"
           "answer VNET_9_NAT_PARAM_UDP_TIMEOUT 7\n");
  ASSERT_TRUE(NXCNATSetPortForward(8, 1, 8080, "192.168.40.128", 80, nullptr));
  ASSERT_TRUE(NXCNATSetPortForward(8, 0, 6000, "192.168.40.129", 6001, nullptr));
  EXPECT_TRUE(NXCNATRemoveConfig(8));
  for (const char *key : {"VNET_8_NAT_PARAM_GATEWAY_IP", "VNET_8_NAT_PARAM_INT_GATEWAY_IPSUBNETMASK",
                          "VNET_8_NAT_PARAM_DEVICE", "VNET_8_NAT_PARAM_UDP_TIMEOUT",
                          "VNET_8_NAT_PARAM_NAT6_PREFIX"}) {
    EXPECT_EQ(Answer(key), "<absent>") << key;
  }
  EXPECT_EQ(Answer("VNET_9_NAT_PARAM_UDP_TIMEOUT"), "7");
  char ip[16] = "";
  uint16_t port = 0;
  EXPECT_FALSE(NXCNATGetPortForward(8, 1, 8080, ip, sizeof ip, &port, nullptr, nullptr));
  EXPECT_FALSE(NXCNATGetPortForward(8, 0, 6000, ip, sizeof ip, &port, nullptr, nullptr));
  EXPECT_NE(DbText().find("remove_nat_portfwd 8"), std::string::npos);
  // Nothing stored is nothing to fail on.
  EXPECT_TRUE(NXCNATRemoveConfig(8));
  EXPECT_TRUE(NXCNATRemoveParam(8, 13866));
  EXPECT_FALSE(NXCNATRemoveParam(8, 13858));
  EXPECT_TRUE(LogHas("NXCNATRemoveParam - Unrecognized NAT parameter ID: 13858"));
}

// ---- nat.conf ----------------------------------------------------------------

TEST_F(NatTest, WrittenFilesMatchTheGoldenFiles) {
  const struct { const char *name, *records; std::function<void()> setUp; const char *golden; } kCases[] = {
      {"defaults, no adapter, no forwards", "", [] {}, "nat_basic.conf"},
      {"host adapter, stored values and forwards",
       "answer VNET_8_VIRTUAL_ADAPTER yes\n"
       "answer VNET_8_NAT_PARAM_ACTIVE_FTP 0\n"
       "answer VNET_8_NAT_PARAM_UDP_TIMEOUT 120\n"
       "answer VNET_8_NAT_PARAM_NAT6 1\n"
       "answer VNET_8_NAT_PARAM_NAT6_PREFIX fd00:1:2:3::/64\n",
       [] {
         // The description stays in the database.
         ASSERT_TRUE(NXCNATSetPortForward(8, 1, 8080, "192.168.40.128", 80, "web server"));
         ASSERT_TRUE(NXCNATSetPortForward(8, 0, 6000, "192.168.40.129", 6001, nullptr));
       },
       "nat_adapter_forwards.conf"},
      // The answer store refuses an empty value, so the empty address is
      // put into the cache's table directly.
      {"adapter with an empty address: no host ip", "answer VNET_8_VIRTUAL_ADAPTER yes\n",
       [] {
         ASSERT_TRUE(NetCfgHashAddAnswer(&gDefaultCache->answers, "VNET_8_VIRTUAL_ADAPTER_ADDR", ""));
       },
       "nat_basic.conf"},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    (void)Shell("rm -rf /etc/zymtra/zynet8");
    Reload(std::string(kVnet8) + c.records);
    c.setUp();
    ASSERT_TRUE(NXCNATUpdateFromConfig(8));
    std::string golden = Golden(c.golden);
    ASSERT_FALSE(golden.empty());
    EXPECT_EQ(ReadFile(kConf), golden);
    EXPECT_FALSE(FileExists(kBak));
  }
  EXPECT_TRUE(LogHas("Retrieved adapter address: , len: 0"));
}

TEST_F(NatTest, RegenerationBacksUpAndWithoutNatTheFilesGo) {
  LoadWith("answer VNET_8_NAT yes\n");  // no subnet: no gateway, nothing written
  EXPECT_FALSE(NXCNATUpdateFromConfig(8));
  EXPECT_TRUE(LogHas("NXCNATUpdateFromConfig - Failure in looking up NAT gateway address"));
  EXPECT_FALSE(FileExists("/etc/zymtra/zynet8"));

  Reload(kVnet8);
  ASSERT_TRUE(NXCNATUpdateFromConfig(8));
  std::string first = ReadFile(kConf);
  ASSERT_TRUE(NXCNATSetParameter(8, 13866, "90"));
  ASSERT_TRUE(NXCNATUpdateFromConfig(8));
  EXPECT_EQ(ReadFile(kBak), first);
  EXPECT_NE(ReadFile(kConf).find("\ntimeout = 90\n"), std::string::npos);
  // A file with a second name is backed up by a copy, not by a rename.
  const char kLink[] = "/etc/zymtra/zynet8/nat/linked";
  ASSERT_EQ(link(kConf, kLink), 0);
  std::string second = ReadFile(kConf);
  ASSERT_TRUE(NXCNATSetParameter(8, 13866, "91"));
  ASSERT_TRUE(NXCNATUpdateFromConfig(8));
  EXPECT_EQ(ReadFile(kBak), second);
  EXPECT_EQ(ReadFile(kLink), ReadFile(kConf));
  ASSERT_EQ(unlink(kLink), 0);

  ASSERT_TRUE(WriteFile("/etc/zymtra/zynet8/nat.mac", "00:50:56:00:00:01\n"));
  ASSERT_TRUE(NXCSetVnetUseNAT(8, false, false));
  EXPECT_TRUE(NXCNATUpdateFromConfig(8));
  EXPECT_FALSE(FileExists("/etc/zymtra/zynet8"));
  EXPECT_TRUE(NXCNATUpdateFromConfig(8));  // nothing left is no failure
}

// The lines the port-forward enumeration logged since the log was cleared,
// each without its time and function name.
std::string EnumerationLog() {
  constexpr std::string_view kPrefix = "NXCNetCfgEnumNATPortFwd - ";
  std::string out;
  for (const std::string &line : SplitLines(LogText())) {
    size_t at = line.find(kPrefix);
    if (at != std::string::npos) out += line.substr(at + kPrefix.size()) + "\n";
  }
  return out;
}

// vnet 8's forward section of one protocol as read through the public
// enumeration.
std::string EnumeratedSection(int8_t tcp) {
  std::string out = tcp ? std::string(NXCNATConfigFileIncomingTCPSectionHeader) +
                              NXCNATConfigFileIncomingTCPDesc
                        : std::string(NXCNATConfigFileIncomingUDPSectionHeader) +
                              NXCNATConfigFileIncomingUDPDesc;
  uint32_t cookie = 0;
  uint16_t hostPort = 0, vmPort = 0;
  char ip[16], line[64];
  while (NXCNATEnumPortForward(8, tcp, &cookie, &hostPort, ip, sizeof ip, &vmPort, nullptr, nullptr)) {
    snprintf(line, sizeof line, "%u = %s:%u\n", hostPort, ip, vmPort);
    out += line;
  }
  return out;
}

TEST_F(NatTest, ForwardSectionsAndEnumerationLinesAreThoseOfThePublicEnumeration) {
  LoadWith(kVnet8);  // no forwards at all
  ASSERT_TRUE(NXCNATUpdateFromConfig(8));
  EXPECT_EQ(EnumerationLog(), "List of forwarded ports is empty\nList of forwarded ports is empty\n");

  // Ports of one to five digits, addresses of 7 to 15 characters; the
  // replaced and removed forwards put the listing out of port order.
  Reload(std::string(kVnet8) +
           "add_nat_portfwd 8 tcp 80 192.168.40.10 8080\n"
           "add_nat_portfwd 8 tcp 22 192.168.40.2 22 ssh\n"
           "add_nat_portfwd 8 tcp 65535 1.2.3.4 1\n"
           "add_nat_portfwd 8 tcp 9 192.168.140.200 10000\n"
           "add_nat_portfwd 8 tcp 100 10.0.0.1 1000\n"
           "remove_nat_portfwd 8 tcp 22\n"
           "add_nat_portfwd 8 tcp 80 192.168.40.11 99 web\n");
  // The file ends with what the public enumeration gives after the writer,
  // whose state that enumeration goes on with (enumerationLog).
  auto expectSections = [](const char *enumerationLog) {
    ClearLog();
    std::string sections = EnumeratedSection(1);
    sections += EnumeratedSection(0) + "\n";
    EXPECT_EQ(EnumerationLog(), enumerationLog);
    std::string file = ReadFile(kConf);
    ASSERT_GE(file.size(), sections.size());
    EXPECT_EQ(file.substr(file.size() - sections.size()), sections);
  };
  // A caller's enumeration is under way: the writer's goes on with its
  // state, as a caller's loop would, and finds no UDP table.
  uint32_t cookie = 1;
  uint16_t port = 0;
  char ip[16];
  ASSERT_TRUE(NXCNATEnumPortForward(8, 1, &cookie, &port, ip, sizeof ip, &port, nullptr, nullptr));
  ClearLog();
  ASSERT_TRUE(NXCNATUpdateFromConfig(8));
  EXPECT_EQ(EnumerationLog(), "No ports to enumerate\nList of forwarded ports is empty\n");
  expectSections("No ports to enumerate\nList of forwarded ports is empty\n");

  // Changed tables start their enumerations afresh.
  ASSERT_TRUE(NXCNATSetPortForward(8, 1, 9, "192.168.40.9", 9, nullptr));
  ASSERT_TRUE(NXCNATSetPortForward(8, 0, 53, "192.168.40.53", 5353, nullptr));
  ClearLog();
  ASSERT_TRUE(NXCNATUpdateFromConfig(8));
  EXPECT_EQ(EnumerationLog(),
            "Created array of forwarded ports\nNo ports to enumerate\n"
            "Created array of forwarded ports\nNo ports to enumerate\n");
  expectSections("No ports to enumerate\nNo ports to enumerate\n");
}

// ---- Reader --------------------------------------------------------------------

TEST_F(NatTest, ReaderParsesHandWrittenFilesAndGivesNothingWithoutAFile) {
  const std::string file =
      "# leading comment\n"
      "top = before any section\n"
      "[Host]\n"
      "  nbnsTimeout: 2\n"
      "quoted = \"a b\"  # the comment \r\n"
      "single='it''s'\n"
      "bare = a b\n"
      "escapes = \"x\\ty\\nz\\\\w\\q\"\n"
      "cr = \"one\rtwo\"\n"
      "crEscape = \"one\\\rtwo\"\n"
      "empty =\n"
      "blank =    \n"
      "unclosed = \"runs to the end\n"
      "time = 7\n"
      "\t\n"
      "noSeparator here\n"
      "=value without key\n"
      "[hostx]\n"
      "hidden = 1\n"
      "[host ]\n"
      "hidden = 2\n"
      "[]\n"
      "[host]\n"
      "late = 9\n"
      "timeout = 11\n"
      "big = 4294967296x\n";
  ASSERT_TRUE(WriteFile("/tmp/hand.conf", file));
  globalConfig = "/tmp/hand.conf";

  const struct { const char *section, *key, *expected; } kGets[] = {
      {"host", "nbnsTimeout", "2"},      {"HOST", "NBNSTIMEOUT", "2"}, {"host", "quoted", "a b"},
      {"host", "single", "it"},          {"host", "bare", "a"},        {"host", "escapes", "x\ty\nz\\wq"},
      {"host", "crEscape", "one\rtwo"},  {"host", "empty", ""},        {"host", "blank", ""},
      {"host", "unclosed", "runs to the end"},
      {"host", "cr", "one\rtwo"},  // a quoted value runs over a carriage return here
      {"host", "late", "9"},        // a second section of the same name is searched too
      {"host", "time", "7"},
      {"host", "timeout", "11"},  // "time = 7" does not answer for "timeout"
      {"host", "top", "<null>"},         {"host", "hidden", "<null>"}, {"hostx", "hidden", "1"},
      {"host", "noSeparator", "<null>"}, {"udp", "timeout", "<null>"},
  };
  for (const auto &c : kGets) {
    SCOPED_TRACE(std::string(c.section) + "/" + c.key);
    EXPECT_EQ(Take(NatCfgGetItem(c.section, c.key)), c.expected);
  }

  // The lister ends a value at a carriage return and gives comments.
  EXPECT_EQ(Items("host"),
            "nbnsTimeout=2|;quoted=a b|the comment ;single=it|;bare=a|;escapes=x\ty\nz\\wq|;"
            "cr=one|;crEscape=one|;empty=|;blank=|;unclosed=runs to the end|;time=7|;");
  EXPECT_EQ(Sections(), "Host,hostx,host ,,host,");
  EXPECT_EQ(NatCfgGetItemLong("host", "empty", 5), 0ul);
  EXPECT_EQ(NatCfgGetItemLong("host", "missing", 5), 5ul);
  EXPECT_EQ(NatCfgGetItemLong("host", "big", 5), 5ul);
  EXPECT_EQ(NatCfgGetItemLong("host", "late", 5), 9ul);
  // Every call reads the file anew.
  ASSERT_TRUE(WriteFile("/tmp/hand.conf", file + "[udp]\ntimeout = 60\n"));
  EXPECT_EQ(NatCfgGetItemLong("udp", "timeout", 5), 60ul);

  // Without a file there is nothing.
  for (const char *path : {static_cast<const char *>(nullptr), "/tmp/no-such.conf"}) {
    SCOPED_TRACE(path ? path : "null");
    globalConfig = path;
    EXPECT_EQ(Sections(), "<none>");
    EXPECT_EQ(Items("host"), "<none>");
    EXPECT_EQ(NatCfgGetItem("host", "ip"), nullptr);
    EXPECT_EQ(NatCfgGetItemLong("host", "ip", 42), 42ul);
  }
  EXPECT_EQ(NatCfgListSections(nullptr), nullptr);
  EXPECT_EQ(NatCfgListItems(nullptr, nullptr, nullptr), nullptr);
  NatCfgListSectionsDestroy(nullptr);
  NatCfgListItemsDestroy(nullptr);
}

}  // namespace
}  // namespace nxc::test
