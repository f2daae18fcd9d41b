// dhcp_test.cpp - DHCP parameters with their defaults, and the generated
// dhcpd.conf: golden files, the user's text around the protected block, the
// hash that detects edits, and the real DHCP server's own configuration check
// on every shape of file the writer produces.
//
// Runs in the private sandbox (/etc/zymtra, /var/log and /tmp are private).
#include <ctype.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>

#include <functional>
#include <string>

#include "base/scope_guard.h"
#include "base/sha1.h"
#include "base/text_sizes.h"
#include "nexcfg_internal.h"
#include "support/db_fixture.h"

namespace nxc::test {
namespace {

constexpr char kConf[] = "/etc/zymtra/zynet8/dhcpd/dhcpd.conf";
constexpr char kBak[] = "/etc/zymtra/zynet8/dhcpd/dhcpd.conf.bak";
constexpr char kLeases[] = "/etc/zymtra/zynet8/dhcpd/dhcpd.leases";
constexpr char kStartMarker[] =
    "###### ZYNET DHCP Configuration. Start of \"DO NOT MODIFY SECTION\" #####\n";
constexpr char kEndMarker[] =
    "####### ZYNET DHCP Configuration. End of \"DO NOT MODIFY SECTION\" #######\n";

constexpr char kVnet8Subnet[] =
    "answer VNET_8_HOSTONLY_SUBNET 192.168.40.0\n"
    "answer VNET_8_HOSTONLY_NETMASK 255.255.255.0\n";
constexpr char kVnet8Dhcp[] = "answer VNET_8_DHCP yes\n";
constexpr char kVnet8Nat[] = "answer VNET_8_NAT yes\n";

// The one line that differs between runs.
std::string MaskStamp(std::string text) {
  static const std::string kStamp = "# Written at: ";
  for (size_t at = text.find(kStamp); at != std::string::npos; at = text.find(kStamp, at + 1)) {
    size_t from = at + kStamp.size();
    text.replace(from, text.find('\n', from) - from, "MASKED");
  }
  return text;
}

// The protected block of a file's text, markers included.
std::string BlockOf(const std::string &text) {
  size_t start = text.rfind(kStartMarker, text.find(kEndMarker));
  size_t end = text.find(kEndMarker) + strlen(kEndMarker);
  return text.substr(start, end - start);
}

std::string Sha1Upper(const std::string &data) {
  uint8_t digest[kSha1DigestSize];
  Sha1Digest(data.data(), data.size(), digest);
  char hex[2 * kSha1DigestSize + 1];
  Sha1Hex(digest, hex);
  for (char &c : hex) c = static_cast<char>(toupper(c));
  return hex;
}

// The hash text with the hex digit at i changed.
std::string FlipDigit(std::string hash, size_t i) {
  if (i < hash.size()) hash.replace(i, 1, hash.compare(i, 1, "0") == 0 ? "1" : "0");
  return hash;
}

std::string Get(uint32_t vnet, uint32_t id, bool useDefault) {
  char buf[128] = "";
  if (!NXCDHCPGetParameter(vnet, id, useDefault, buf, sizeof buf)) return "<fail>";
  return buf;
}

// The exit status of the DHCP server's configuration check on path. The
// server must be installed (scripts/install-deps does it); it is never
// skipped.
int DhcpdCheck(const std::string &path) {
  constexpr char kDhcpd[] = "/usr/sbin/dhcpd";
  if (!FileExists(kDhcpd)) {
    ADD_FAILURE() << kDhcpd
                  << " is missing: install the isc-dhcp-server package (scripts/install-deps)";
    return -1;
  }
  if (!WriteFile("/tmp/dhcpd-check.leases", "")) return -1;
  return Shell(std::string(kDhcpd) + " -t -cf '" + path +
               "' -lf /tmp/dhcpd-check.leases -pf /tmp/dhcpd-check.pid"
               " > /tmp/dhcpd-check.out 2>&1");
}

void ExpectDhcpdAccepts(const std::string &path) {
  EXPECT_EQ(DhcpdCheck(path), 0) << ReadFile("/tmp/dhcpd-check.out") << "\n--- " << path
                                 << ":\n"
                                 << ReadFile(path);
}

class DhcpTest : public DbTest {
 protected:
  // A fresh load of records with no vnet 8 files yet.
  void Fresh(const std::string &records) {
    UnloadAll(false);
    (void)Shell("rm -rf /etc/zymtra/zynet*");
    LoadWith(records);
  }
};

// ---- Parameters ------------------------------------------------------------

TEST_F(DhcpTest, SetParameterChecksEachKindOfValue) {
  LoadWith(kVnet8Subnet);
  const std::string k63(63, 'd'), k64(64, 'd');
  const struct {
    const char *name;
    uint32_t id;
    std::string value;
    bool ok;
    std::string logLine;
  } kCases[] = {
      {"address", 9542, "192.168.40.10", true, ""},
      {"octet too long", 9542, "192.168.1.1000", false,
       "Invalid IP address: 192.168.1.1000 for parameter: \"Lease Begin IP\""},
      {"16 characters fail on length first", 9542, "192.168.100.1000", false,
       "Invalid value length: 16, value: 192.168.100.1000 for parameter: \"Lease Begin IP\""},
      {"netbios address", 9554, "10.0.0.300", false,
       "Invalid IP address: 10.0.0.300 for parameter: \"Netbios\""},
      {"lease time zero", 9546, "0", true, ""},
      {"negative lease time", 9547, "-1", false, "Invalid argument for time"},
      {"lease time with unit", 9552, "10m", false, "Invalid argument for time"},
      {"63-character domain", 9551, k63, true, ""},
      {"64-character domain", 9551, k64, false,
       "Invalid value length: 64, value: " + k64 + " for parameter: \"Domain Name\""},
      {"unused id", 9544, "1.2.3.4", false, "Invalid DHCP Param Name 9544"},
      {"below the block", 9541, "1.2.3.4", false, "Invalid DHCP Param Name 9541"},
      {"invalid marker", 9555, "1.2.3.4", false, "Invalid DHCP Param Name 9555"},
      {"one past the tables", 9556, "1.2.3.4", false, "Invalid DHCP Param Name 9556"},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    ClearLog();
    EXPECT_EQ(NXCDHCPSetParameter(8, c.id, c.value.c_str()), c.ok);
    if (c.ok) {
      std::string key = std::string("VNET_8_") + NXCDHCPParamIDToConfigOption[c.id - 9538];
      EXPECT_EQ(Answer(key.c_str()), c.value);
      EXPECT_TRUE(LogHas("Successfully set value of DHCP parameter"));
    } else {
      EXPECT_TRUE(LogHas("NXCDHCPSetParameter - " + c.logLine)) << LogText();
    }
  }
  // Nothing rejected reached the database file.
  EXPECT_EQ(DbText().find("1000"), std::string::npos);
}

// The /24 defaults, with and without NAT, are in the golden files.
TEST_F(DhcpTest, DefaultsFollowTheSubnetMaskAndNat) {
  const struct {
    const char *name, *subnetAndMask;
    uint32_t id;
    const char *expected, *logLine = nullptr;
  } kCases[] = {
      {"routers even without nat", "192.168.40.0/255.255.255.0", 9550, "192.168.40.2"},
      {"host bits in the subnet are masked", "192.168.40.77/255.255.255.0", 9542,
       "192.168.40.128"},
      // The first address of the upper half: net + 4 for a /29.
      {"/29 begin", "10.1.2.8/255.255.255.248", 9542, "10.1.2.12"},
      {"/29 end", "10.1.2.8/255.255.255.248", 9543, "10.1.2.14"},
      {"/29 broadcast", "10.1.2.8/255.255.255.248", 9548, "10.1.2.15"},
      {"/16 begin", "172.20.0.0/255.255.0.0", 9542, "172.20.128.0"},
      {"/30 is too small", "10.1.2.8/255.255.255.252", 9548, "<fail>",
       "The subnet: 10.1.2.8, mask: 255.255.255.252 is too small, we need atleast 8 hosts"},
      {"unused id", "10.1.2.0/255.255.255.0", 9545, "<fail>",
       "NXCDHCPGetParameterDefault - Invalid DHCP Param Name 9545"},
      {"one past the tables", "10.1.2.0/255.255.255.0", 9556, "<fail>"},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    const std::string net = c.subnetAndMask;
    const size_t slash = net.find('/');
    Reload("answer VNET_3_HOSTONLY_SUBNET " + net.substr(0, slash) +
           "\nanswer VNET_3_HOSTONLY_NETMASK " + net.substr(slash + 1) + "\n");
    char buf[128] = "";
    EXPECT_EQ(NXCDHCPGetParameterDefault(3, c.id, buf, sizeof buf) ? buf : "<fail>",
              std::string(c.expected));
    EXPECT_TRUE(!c.logLine || LogHas(c.logLine)) << LogText();
  }
}

TEST_F(DhcpTest, GetterPrefersTheStoredValueAndDefaultsNeedRoomButLeaseTimesSucceedWithout) {
  LoadWith(std::string(kVnet8Subnet) + "answer VNET_8_DHCP_PARAM_DNS_ADDR 8.8.8.8\n");
  // copied: what the buffer holds afterwards.
  const struct { const char *name; uint32_t id; size_t size; bool ok; const char *copied; }
      kCases[] = {
      {"lease time fits exactly", 9546, 5, true, "1800"},
      {"lease time short buffer still succeeds", 9546, 4, true, "xxx"},
      {"domain fits exactly", 9551, 12, true, "localdomain"},
      {"domain one short", 9551, 11, false, "xxx"},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    char buf[32] = "xxx";
    EXPECT_EQ(NXCDHCPGetParameterDefault(8, c.id, buf, c.size), c.ok);
    EXPECT_STREQ(buf, c.copied);
  }
  EXPECT_TRUE(LogHas("Insufficient buffer size: 4 for DHCP parameter: \"Default Lease Duration\" "
                     "required: 5"));
  EXPECT_TRUE(LogHas("Insufficient buffer size: 11 for DHCP parameter: \"Domain Name\" required: 12"));

  EXPECT_EQ(Get(8, 9549, false), "8.8.8.8");
  EXPECT_TRUE(LogHas("Value of DHCP parameter: \"DNS Address\" is: 8.8.8.8 for vnet: 8"));

  EXPECT_EQ(Get(8, 9543, false), "<fail>");
  EXPECT_TRUE(LogHas("Value for DHCP parameter: \"Lease End IP\" not found in configuration for "
                     "vnet: 8"));
  EXPECT_EQ(Get(8, 9543, true), "192.168.40.254");
  EXPECT_TRUE(LogHas("Reverting to getting default value"));
  // The not-found line is an error line even when the default follows.
  nxcContext.logMask = LOG_ERR;
  ClearLog();
  EXPECT_EQ(Get(8, 9543, true), "192.168.40.254");
  EXPECT_TRUE(LogHas("Value for DHCP parameter: \"Lease End IP\" not found"));
  EXPECT_FALSE(LogHas("Reverting to getting default value"));
  nxcContext.logMask = 0x7f;

  // A stored value that does not fit fails without trying the default.
  char small[4] = "xxx";
  ClearLog();
  EXPECT_FALSE(NXCDHCPGetParameter(8, 9549, true, small, sizeof small));
  EXPECT_STREQ(small, "xxx");
  EXPECT_TRUE(LogHas("Insufficient space 4 to store value of DHCP parameter: \"DNS Address\", "
                     "required: 8"));
  EXPECT_FALSE(LogHas("Reverting to getting default value"));

  // The unreachable external parameter is refused everywhere.
  uint32_t id = NXCDHCPMapIntParamID(13356);
  EXPECT_EQ(Get(8, id, true), "<fail>");
  EXPECT_TRUE(LogHas("Value for DHCP parameter: Invalid DHCP Parameter not found in configuration "
                     "for vnet: 8"));
  EXPECT_TRUE(LogHas("Failure in getting default value of parameter"));
  EXPECT_FALSE(NXCDHCPRemoveParameter(8, id));
  EXPECT_TRUE(LogHas("NXCDHCPRemoveParameter - Invalid DHCP parameter: 9556"));
  // The base id is outside what the remover accepts; the unused ones inside
  // go through with their empty storage word.
  EXPECT_FALSE(NXCDHCPRemoveParameter(8, 9538));
  EXPECT_TRUE(NXCDHCPRemoveParameter(8, 9540));
}

TEST_F(DhcpTest, RemovingTheConfigurationTakesTheMappingsAndLeavesRoutersAndNetbiosWithoutNat) {
  for (bool nat : {false, true}) {
    SCOPED_TRACE(nat ? "with NAT" : "without NAT");
    Reload(std::string(kVnet8Subnet) + (nat ? kVnet8Nat : "") +
             "answer VNET_8_DHCP_PARAM_LEASE_START_IP 192.168.40.20\n"
             "answer VNET_8_DHCP_PARAM_DOMAIN_NAME lab\n"
             "answer VNET_8_DHCP_PARAM_SUB_MAX_LEASE_TIME 60\n"
             "answer VNET_8_DHCP_PARAM_ROUTERS 192.168.40.3\n"
             "answer VNET_8_DHCP_PARAM_NETBIOS 192.168.40.4\n"
             "answer VNET_8_DHCP_CFG_HASH ABCDEF\n"
             "answer VNET_9_DHCP_PARAM_DOMAIN_NAME other\n");
    ASSERT_TRUE(NXCDHCPSetIPToMAC(8, "192.168.40.30", "00:50:56:00:00:01"));
    EXPECT_TRUE(NXCDHCPRemoveDHCPConfig(8));
    std::string left;
    for (const char *key : {"DHCP_PARAM_LEASE_START_IP", "DHCP_PARAM_DOMAIN_NAME", "DHCP_CFG_HASH",
                            "DHCP_PARAM_SUB_MAX_LEASE_TIME", "DHCP_PARAM_ROUTERS", "DHCP_PARAM_NETBIOS"})
      left += Answer(std::string("VNET_8_") + key) + " ";
    EXPECT_EQ(left, std::string("<absent> <absent> <absent> <absent> ") +
                        (nat ? "<absent> <absent> " : "192.168.40.3 192.168.40.4 "));
    EXPECT_EQ(Answer("VNET_9_DHCP_PARAM_DOMAIN_NAME"), "other");
    char ip[16] = "";
    EXPECT_FALSE(NXCDHCPGetIPToMAC(8, ip, sizeof ip, "00:50:56:00:00:01"));
    EXPECT_TRUE(LogHas("Failure while getting the value of DHCP IP to MAC in vnet config"));
    // The removals reached the database file.
    EXPECT_TRUE(DbHas("remove_dhcp_mac_to_ip 8 00:50:56:00:00:01"));
  }
}

// ---- dhcpd.conf --------------------------------------------------------------

TEST_F(DhcpTest, FreshFilesMatchTheGoldenFiles) {
  const struct {
    const char *name;
    const char *records;
    std::function<void()> setUp;
    uint32_t vnet;
    const char *path;
    const char *golden;
  } kCases[] = {
      {"NAT and a static mapping",
       "answer VNET_8_HOSTONLY_SUBNET 192.168.40.0\nanswer VNET_8_HOSTONLY_NETMASK 255.255.255.0\n"
       "answer VNET_8_DHCP yes\nanswer VNET_8_NAT yes\n",
       [] { ASSERT_TRUE(NXCDHCPSetIPToMAC(8, "192.168.40.10", "00:50:56:AA:BB:CC")); }, 8, kConf,
       "dhcpd_nat_mapping.conf"},
      {"host-only with stored lease times and a static mapping",
       "answer VNET_3_HOSTONLY_SUBNET 172.16.5.0\nanswer VNET_3_HOSTONLY_NETMASK 255.255.255.0\n"
       "answer VNET_3_DHCP yes\nanswer VNET_3_DHCP_PARAM_DEFAULT_LEASE_TIME 3600\n"
       "answer VNET_3_DHCP_PARAM_SUB_MAX_LEASE_TIME 600\n",
       [] { ASSERT_TRUE(NXCDHCPSetIPToMAC(3, "172.16.5.10", "00:50:56:AA:BB:CD")); }, 3,
       "/etc/zymtra/zynet3/dhcpd/dhcpd.conf", "dhcpd_hostonly.conf"},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    Fresh(c.records);
    c.setUp();
    ASSERT_TRUE(NXCDHCPUpdateFromConfig(c.vnet));
    std::string golden = Golden(c.golden);
    ASSERT_FALSE(golden.empty());
    EXPECT_EQ(MaskStamp(ReadFile(c.path)), golden);
    ExpectDhcpdAccepts(c.path);
    EXPECT_TRUE(FileExists(std::string(c.path).substr(0, strlen(c.path) - 5) + ".leases"));
    EXPECT_FALSE(FileExists(std::string(c.path) + ".bak"));  // nothing to back up yet
  }
  EXPECT_TRUE(LogHas("DHCP Config /etc/zymtra/zynet3/dhcpd/dhcpd.conf does not exist yet, "
                     "Creating new"));
}

TEST_F(DhcpTest, UserTextAroundAnUntouchedBlockIsKeptByteForByte) {
  LoadWith(std::string(kVnet8Subnet) + kVnet8Dhcp);
  ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
  std::string first = ReadFile(kConf);
  size_t blockAt = first.find(kStartMarker);
  // The user adds a statement and a stray start marker before the block (the
  // last start marker before the end counts) and more after it, the last
  // line without its newline. The block's own marker then follows 255 bytes
  // of a line, where a 256-byte line buffer starts a new piece.
  const std::string prefix = first.substr(0, blockAt) + "# mine\r\nddns-update-style none;\n\n" +
                             kStartMarker + "# a stray marker above\n#" + std::string(254, 'x');
  const std::string suffix = "\n# after the block\tend\nlog-facility local7;";
  std::string edited = prefix + first.substr(blockAt) + suffix;
  ASSERT_TRUE(WriteFile(kConf, edited));
  ASSERT_TRUE(NXCSetVnetCfg(8, "DHCP_PARAM_DOMAIN_NAME", "lab"));

  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    std::string before = ReadFile(kConf);
    ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
    std::string now = ReadFile(kConf);
    EXPECT_EQ(now.substr(0, prefix.size()), prefix);
    EXPECT_EQ(now.substr(now.size() - suffix.size()), suffix);
    EXPECT_EQ(now.find("# Configuration file for ISC"), now.rfind("# Configuration file for ISC"));
    EXPECT_NE(BlockOf(now).find("option domain-name lab;"), std::string::npos);
    EXPECT_EQ(Answer("VNET_8_DHCP_CFG_HASH"), Sha1Upper(BlockOf(now)));
    EXPECT_NE(DbText().find("answer VNET_8_DHCP_CFG_HASH " + Sha1Upper(BlockOf(now))),
              std::string::npos);
    // Every regeneration backs the previous file up.
    EXPECT_EQ(ReadFile(kBak), before);
  }
  EXPECT_TRUE(LogHas("DHCP config block is not modified"));
  EXPECT_TRUE(LogHas("Backing up DHCP config into \"" + std::string(kBak) +
                     "\" before modification"));
  ExpectDhcpdAccepts(kConf);
}

TEST_F(DhcpTest, HashComparisonLooksAtTwentyDigitsIgnoringCase) {
  const struct { const char *name; std::function<std::string(std::string)> mutate; bool kept; } kCases[] = {
      {"lower case", [](std::string h) {
         for (char &ch : h) ch = static_cast<char>(tolower(ch));
         return h;
       }, true},
      {"21st digit changed", [](std::string h) { return FlipDigit(h, 20); }, true},
      {"only 20 digits stored", [](std::string h) { return h.substr(0, 20); }, true},
      {"20th digit changed", [](std::string h) { return FlipDigit(h, 19); }, false},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    Fresh(std::string(kVnet8Subnet) + kVnet8Dhcp);
    ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
    ASSERT_TRUE(WriteFile(kConf, "# user line\n" + ReadFile(kConf)));
    ASSERT_TRUE(NXCSetVnetCfg(8, "DHCP_CFG_HASH",
                              c.mutate(Answer("VNET_8_DHCP_CFG_HASH")).c_str()));
    ClearLog();
    ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
    EXPECT_EQ(ReadFile(kConf).rfind("# user line\n", 0) == 0, c.kept);
    EXPECT_EQ(LogHas("DHCP config modified by user, creating a new config file and backing up "
                     "existing file"),
              !c.kept);
  }
}

TEST_F(DhcpTest, EditedMissingOrUnrecognisedBlocksGiveAFreshFileAndABackup) {
  auto replace = [](std::string text, const std::string &from, const std::string &to) {
    size_t at = text.find(from);
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
  };
  const std::string startNoNewline(kStartMarker, strlen(kStartMarker) - 1);
  const std::string endNoNewline(kEndMarker, strlen(kEndMarker) - 1);
  const struct {
    const char *name;
    std::function<std::string(const std::string &)> edit;
    bool dropHash;
    const char *logLine;
  } kCases[] = {
      {"edit inside the block",
       [&](const std::string &t) { return replace(t, "range 192.168.40.128", "range 192.168.40.100"); },
       false, "DHCP config modified by user, creating a new config file and backing up existing file"},
      {"no stored hash", [](const std::string &t) { return t; }, true,
       "DHCP config hash not found in vnet config, creating a new config file and backing up "
       "existing file"},
      {"start marker with a trailing blank",
       [&](const std::string &t) { return replace(t, kStartMarker, startNoNewline + " \n"); },
       false, "Could not locate zynet DHCP config block"},
      {"end marker missing",
       [&](const std::string &t) { return replace(t, kEndMarker, ""); }, false,
       "Could not locate zynet DHCP config block"},
      {"end marker without its newline",
       [&](const std::string &t) { return replace(t, kEndMarker, endNoNewline); }, false,
       "Could not locate zynet DHCP config block"},
      {"start marker 254 bytes into a line",
       [&](const std::string &t) {
         return replace(t, kStartMarker, "#" + std::string(253, 'x') + kStartMarker);
       },
       false, "Could not locate zynet DHCP config block"},
      {"end marker before the start marker",
       [&](const std::string &t) { return std::string(kEndMarker) + replace(t, kEndMarker, ""); },
       false, "Could not locate zynet DHCP config block"},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    Fresh(std::string(kVnet8Subnet) + kVnet8Dhcp + kVnet8Nat);
    ASSERT_TRUE(NXCDHCPSetIPToMAC(8, "192.168.40.10", "00:50:56:AA:BB:CC"));
    ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
    std::string old = c.edit("# user prefix\n" + ReadFile(kConf) + "# user suffix\n");
    ASSERT_TRUE(WriteFile(kConf, old));
    if (c.dropHash) {
      ASSERT_TRUE(NXCRemoveVnetCfg(8, "DHCP_CFG_HASH"));
    }
    ClearLog();
    ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
    EXPECT_TRUE(LogHas(c.logLine)) << LogText();
    // The whole old file went to the backup; the new one is only header and block.
    EXPECT_EQ(ReadFile(kBak), old);
    EXPECT_EQ(MaskStamp(ReadFile(kConf)), Golden("dhcpd_nat_mapping.conf"));
  }
}

TEST_F(DhcpTest, WithoutDhcpTheFilesAndDirectoriesGo) {
  LoadWith(std::string(kVnet8Subnet) + kVnet8Dhcp);
  ASSERT_TRUE(NXCDHCPUpdateFromConfig(8));
  ASSERT_TRUE(NXCDHCPUpdateFromConfig(8));  // now with a backup as well
  ASSERT_TRUE(FileExists(kBak));
  ASSERT_TRUE(WriteFile("/etc/zymtra/zynet8/dhcpd/dhcpd.leases~", ""));
  ASSERT_TRUE(NXCSetVnetUseDHCP(8, false, false));
  EXPECT_TRUE(NXCDHCPUpdateFromConfig(8));
  EXPECT_FALSE(FileExists("/etc/zymtra/zynet8"));
  EXPECT_TRUE(LogHas("Removed all traces of DHCP configuration for vnet: 8"));
  // Nothing left to remove is no failure.
  EXPECT_TRUE(NXCDHCPUpdateFromConfig(8));
}

TEST_F(DhcpTest, AFailedFirstWriteLeavesNoFileButAFailedRewriteKeepsTheBackup) {
  // DHCP on, but the vnet has no subnet to serve.
  LoadWith(kVnet8Dhcp);
  EXPECT_FALSE(NXCDHCPWriteDHCPCfg(8));
  EXPECT_TRUE(LogHas("Getting Subnet address failed"));
  EXPECT_FALSE(FileExists(kConf));

  ASSERT_TRUE(NXCSetVnetSubnetAddr(8, "192.168.40.0"));
  ASSERT_TRUE(NXCSetVnetSubnetMask(8, "255.255.255.0"));
  ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
  std::string good = ReadFile(kConf);
  ASSERT_TRUE(NXCRemoveVnetSubnetMask(8));
  EXPECT_FALSE(NXCDHCPWriteDHCPCfg(8));
  EXPECT_EQ(ReadFile(kBak), good);
  EXPECT_TRUE(FileExists(kConf));
  EXPECT_EQ(Answer("VNET_8_DHCP_CFG_HASH"), Sha1Upper(BlockOf(good)));
}

// The log with what differs between runs masked: the time stamps, the
// source lines in the trace banners and the hashes.
std::string StableLog(const std::string &log) {
  std::string out;
  for (const std::string &line : SplitLines(log)) {
    std::string text = line.substr(std::min<size_t>(16, line.size()));
    if (text.find(" Function, ") != std::string::npos) text.erase(text.rfind(':'));
    for (size_t at = 0; at + 40 <= text.size(); ++at) {
      if (strspn(text.c_str() + at, "0123456789ABCDEF") >= 40) text.replace(at, 40, "<hash>");
    }
    out += text + "\n";
  }
  return out;
}

// The whole trace of the writer over its paths, as the writer that works
// strictly step by step wrote it: a first file; an untouched block kept
// with the user's text around it; an edited block; a backup that cannot be
// made; a getter that fails after the backup and the kept prefix.
TEST_F(DhcpTest, EveryPathLogsItsStepsInTheirOrder) {
  LoadWith(std::string(kVnet8Subnet) + kVnet8Dhcp + kVnet8Nat);
  ASSERT_TRUE(NXCDHCPSetIPToMAC(8, "192.168.40.10", "00:50:56:AA:BB:CC"));
  ASSERT_TRUE(NXC_SetCurrentLogLevel(0x7F));
  ClearLog();
  EXPECT_TRUE(NXCDHCPWriteDHCPCfg(8));
  ASSERT_TRUE(WriteFile(kConf, "# mine\n" + ReadFile(kConf) + "# after\n"));
  EXPECT_TRUE(NXCDHCPWriteDHCPCfg(8));
  std::string edited = ReadFile(kConf);
  edited.replace(edited.find("fixed-address"), 5, "FIXED");
  ASSERT_TRUE(WriteFile(kConf, edited));
  EXPECT_TRUE(NXCDHCPWriteDHCPCfg(8));
  // A directory that is not empty takes neither a rename nor a copy.
  ASSERT_EQ(Shell(std::string("rm -f ") + kBak + " && mkdir -p " + kBak + "/d"), 0);
  EXPECT_FALSE(NXCDHCPWriteDHCPCfg(8));
  ASSERT_EQ(Shell(std::string("rm -rf ") + kBak), 0);
  ASSERT_TRUE(NXCRemoveVnetSubnetMask(8));
  EXPECT_FALSE(NXCDHCPWriteDHCPCfg(8));
  EXPECT_EQ(StableLog(LogText()), Golden("dhcpd_writer.log"));
}

// The host entries come in the public enumeration's order, with its lines
// logged, and leave its state as its own loop of calls would.
TEST_F(DhcpTest, StaticEntriesAreThoseOfThePublicEnumeration) {
  LoadWith(std::string(kVnet8Subnet) + kVnet8Dhcp);  // no mappings at all
  ASSERT_TRUE(NXC_SetCurrentLogLevel(0x7F));
  ClearLog();
  ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
  EXPECT_TRUE(LogHas("NXCNetCfgEnumDHCPMACToIP - List of mappings is empty")) << LogText();

  // Addresses of 7 to 15 characters; a replaced and a removed mapping put
  // the listing out of the order of adding.
  Reload(std::string(kVnet8Subnet) + kVnet8Dhcp +
         "add_dhcp_mac_to_ip 8 00:50:56:00:00:01 192.168.40.10\n"
         "add_dhcp_mac_to_ip 8 00:50:56:00:00:02 1.2.3.4\n"
         "add_dhcp_mac_to_ip 8 00:50:56:00:00:03 192.168.140.200\n"
         "add_dhcp_mac_to_ip 8 00:50:56:00:00:04 10.0.0.1\n"
         "remove_dhcp_mac_to_ip 8 00:50:56:00:00:02\n"
         "add_dhcp_mac_to_ip 8 00:50:56:00:00:01 192.168.40.99\n");
  ASSERT_TRUE(NXC_SetCurrentLogLevel(0x7F));
  ClearLog();
  ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
  EXPECT_TRUE(LogHas("NXCNetCfgEnumDHCPMACToIP - Created array of DHCP mappings"));
  EXPECT_TRUE(LogHas("NXCNetCfgEnumDHCPMACToIP - No mappings to enumerate"));
  ClearLog();
  const std::string file = ReadFile(kConf);
  size_t at = 0;
  uint32_t cookie = 0;
  char ip[kIPTextSize], mac[kMACTextSize];
  while (NXCDHCPEnumIPToMAC(8, &cookie, ip, sizeof ip, mac, sizeof mac)) {
    const std::string host = std::string("host ") + ip + " {\n\thardware ethernet " + mac +
                             ";\n\tfixed-address " + ip + ";\n";
    at = file.find(host, at);
    ASSERT_NE(at, std::string::npos) << host;
  }
  EXPECT_EQ(cookie, 3u);
  EXPECT_FALSE(LogHas("Created array of DHCP mappings"));  // the writer's walk started it
}

// A kept prefix that cannot be copied (its directory's disk is full) drops
// the new block with the lines of its making, and the walk over the
// mappings with them: the next enumeration starts afresh and says so, as
// it does when no block was made.
TEST_F(DhcpTest, AFailedPrefixCopyLeavesTheEnumerationAsItWas) {
  LoadWith(std::string(kVnet8Subnet) + kVnet8Dhcp);
  ASSERT_TRUE(NXCDHCPSetIPToMAC(8, "192.168.40.10", "00:50:56:AA:BB:CC"));
  ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
  // Larger than the output stream's buffer, so the copy reaches the disk.
  std::string text;
  while (text.size() < 3 * 4096) text += "# a line of the user's own\n";
  text += ReadFile(kConf);
  // A change starts the next enumeration afresh.
  ASSERT_TRUE(NXCDHCPSetIPToMAC(8, "192.168.40.11", "00:50:56:AA:BB:CD"));
  constexpr char kDir[] = "/etc/zymtra/zynet8/dhcpd";
  ASSERT_EQ(mount("tmpfs", kDir, "tmpfs", 0, "size=64k"), 0);
  ScopeGuard unmount([&] { EXPECT_EQ(umount2(kDir, MNT_DETACH), 0); });
  ASSERT_TRUE(WriteFile(kConf, text));
  (void)Shell(std::string("dd if=/dev/zero of=") + kDir + "/filler bs=4096 >/dev/null 2>&1");
  ASSERT_TRUE(NXC_SetCurrentLogLevel(0x7F));
  ClearLog();
  EXPECT_FALSE(NXCDHCPWriteDHCPCfg(8));
  ASSERT_TRUE(LogHas("Copying data failed")) << LogText();
  EXPECT_FALSE(LogHas("Created array of DHCP mappings"));
  uint32_t cookie = 0;
  char ip[kIPTextSize], mac[kMACTextSize];
  ASSERT_TRUE(NXCDHCPEnumIPToMAC(8, &cookie, ip, sizeof ip, mac, sizeof mac));
  EXPECT_TRUE(LogHas("Created array of DHCP mappings")) << LogText();
}

// The golden shapes and user text around the block are checked where they
// are made; these are the rest.
TEST_F(DhcpTest, DhcpdAcceptsSeveralMappingsAndStoredValues) {
  // The check itself must be able to fail here.
  ASSERT_TRUE(WriteFile("/tmp/broken.conf", "subnet 10.0.0.0 netmask 255.255.255.0 {\n"));
  ASSERT_GT(DhcpdCheck("/tmp/broken.conf"), 0);
  const struct { const char *name, *records; int mappings; } kCases[] = {
      {"static mappings", "", 3},
      {"stored values, quoted domain name",
       "answer VNET_8_NAT yes\n"
       "answer VNET_8_DHCP_PARAM_DOMAIN_NAME \"example.com\"\n"
       "answer VNET_8_DHCP_PARAM_DNS_ADDR 1.1.1.1\n"
       "answer VNET_8_DHCP_PARAM_LEASE_START_IP 192.168.40.50\n"
       "answer VNET_8_DHCP_PARAM_MAX_LEASE_TIME 0\n"
       "answer VNET_8_VIRTUAL_ADAPTER_NAME hostnet8\n",
       1},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    Fresh(std::string(kVnet8Subnet) + kVnet8Dhcp + c.records);
    for (int i = 0; i < c.mappings; ++i) {
      std::string n = std::to_string(10 + i);
      ASSERT_TRUE(NXCDHCPSetIPToMAC(8, ("192.168.40." + n).c_str(),
                                    ("00:50:56:00:01:" + n).c_str()));
    }
    ASSERT_TRUE(NXCDHCPWriteDHCPCfg(8));
    ExpectDhcpdAccepts(kConf);
  }
}

TEST_F(DhcpTest, BlockHashAndCopyTakeTheirByteRangesAndKeepThePosition) {
  LoadWith("");
  ASSERT_TRUE(WriteFile("/tmp/hash-input", "xxabcyy"));
  FILE *f = fopen("/tmp/hash-input", "r");
  ASSERT_NE(f, nullptr);
  ASSERT_EQ(fseek(f, 5, SEEK_SET), 0);
  char *hash = NXCCalculateHashStrForBlock(f, 2, 5);
  ASSERT_NE(hash, nullptr);
  EXPECT_STREQ(hash, "A9993E364706816ABA3E25717850C26C9CD0D89D");  // SHA-1 of "abc"
  free(hash);
  EXPECT_EQ(ftell(f), 5);
  const struct { int64_t start, end; const char *logLine; } kBad[] = {
      {3, 3, "posEnd:3 must be greater than posStart:3"},
      {4, 2, "posEnd:2 must be greater than posStart:4"},
      {-1, 2, "Invalid argument"},
      {2, 50, "fread: failed while reading"},
  };
  for (const auto &c : kBad) {
    SCOPED_TRACE(c.logLine);
    EXPECT_EQ(NXCCalculateHashStrForBlock(f, c.start, c.end), nullptr);
    EXPECT_TRUE(LogHas(std::string("NXCCalculateHashStrForBlock - ") + c.logLine));
    EXPECT_EQ(ftell(f), 5);
  }
  fclose(f);

  // The copy appends a range of another file.
  std::string source;
  for (int i = 0; i < 100; ++i) source += "line " + std::to_string(i) + "\n";
  ASSERT_TRUE(WriteFile("/tmp/copy-source", source));
  const struct { const char *name; int64_t start, end; bool ok; std::string appended; } kCases[] = {
      {"middle range over several chunks", 7, 700, true, source.substr(7, 693)},
      {"to the end", 10, 0, true, source.substr(10)},
      {"empty range", 20, 20, true, ""},
      {"past the end of the source", 690, 5000, true, source.substr(690)},
      {"end before start", 30, 20, false, ""},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    FILE *dst = fopen("/tmp/copy-dest", "w+");
    ASSERT_NE(dst, nullptr);
    fputs("head:", dst);
    EXPECT_EQ(NXCCopyFileData(c.start, c.end, "/tmp/copy-source", dst), c.ok);
    fclose(dst);
    EXPECT_EQ(ReadFile("/tmp/copy-dest"), "head:" + c.appended);
  }
  EXPECT_TRUE(LogHas("endPos: 20 cannot be less than startPos: 30"));
  FILE *dst = fopen("/tmp/copy-dest", "w");
  ASSERT_NE(dst, nullptr);
  EXPECT_FALSE(NXCCopyFileData(0, 0, "/tmp/no-such-file", dst));
  fclose(dst);
  EXPECT_TRUE(LogHas("Cannot open file: /tmp/no-such-file for reading"));
}

}  // namespace
}  // namespace nxc::test
