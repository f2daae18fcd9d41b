// The feature calls through the public header, as a caller makes them:
// switching NAT, DHCP and the host-only adapter on and off (with a subnet
// found by the stand-in ping program), DHCP and NAT parameters, the daemons'
// files regenerated only while the daemon is stopped, the adapter's state,
// and searches over vnets by their features.
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "nexcfg.h"
#include "support/daemons.h"
#include "support/db_fixture.h"

namespace nxc::test {
namespace {

constexpr char kNatConf5[] = "/etc/zymtra/zynet5/nat/nat.conf";

class FeaturesTest : public DaemonTest {
 protected:
  static void EveryPingAnswered() { ASSERT_TRUE(SetPingExitCodes("0")); }
  static bool PingRan() { return !PingCalls().empty(); }
  // Every call releases the lock it took: the next one can take it.
  static void ExpectUnlocked() {
    EXPECT_TRUE(NXCNetCfgLockConfig(nullptr)) << "a call kept the database lock";
    (void)NXCNetCfgUnlockConfig(nullptr);
  }
  std::string Subnet(int vnet) const {
    return Answer(("VNET_" + std::to_string(vnet) + "_HOSTONLY_SUBNET").c_str());
  }
};

bool IsCandidateSubnet(const std::string &s) {
  return s.rfind("172.16.", 0) == 0 || s.rfind("192.168.", 0) == 0;
}

std::string GetParam(bool nat, const char *vnet, uint32_t id, bool useDefault,
                     uint32_t capacity = 64) {
  char value[64] = "";
  uint32_t len = capacity;
  bool ok = nat ? NXC_GetNATParam(vnet, id, useDefault, value, &len)
                : NXC_GetDHCPParam(vnet, id, useDefault, value, &len);
  if (!ok) return "<failed>";
  EXPECT_EQ(len, strlen(value) + 1);
  return value;
}

// ---- Switches ----------------------------------------------------------

TEST_F(FeaturesTest, NatOnAFreshVnetGetsASubnetAndItsFileIsWrittenOnlyWhileNatIsStopped) {
  WriteDb("");
  ASSERT_TRUE(Load());
  ASSERT_TRUE(NXC_SetVnetUseNAT("zynet5", true, false));
  EXPECT_TRUE(PingRan());
  const std::string subnet = Subnet(5);
  EXPECT_TRUE(IsCandidateSubnet(subnet)) << subnet;
  EXPECT_EQ(Answer("VNET_5_HOSTONLY_NETMASK"), "255.255.255.0");
  EXPECT_TRUE(LogHas("New subnet configured for vnet: zynet5"));
  EXPECT_TRUE(LogHas("Success in configuring NAT for vnet: zynet5"));
  EXPECT_TRUE(DbHas("answer VNET_5_NAT yes\n"));

  // The defaults follow the new subnet: DHCP hands out NAT's gateway.
  const std::string gateway = subnet.substr(0, subnet.size() - 1) + "2";
  EXPECT_EQ(GetParam(true, "zynet5", NXC_PARAM_NAT_GATEWAY_IP, true), gateway);
  EXPECT_EQ(GetParam(false, "zynet5", NXC_PARAM_DHCP_DNS_ADDR, true), gateway);
  ASSERT_TRUE(NXC_SetNATParam("zynet5", NXC_PARAM_NAT_UDP_TIMEOUT, "90", 2));

  ASSERT_TRUE(NXC_UpdateNATFromConfig("zynet5"));
  EXPECT_TRUE(LogHas("Writing NAT configuration file succeeded for vnet: zynet5"));
  EXPECT_NE(ReadFile(kNatConf5).find("timeout = 90\n"), std::string::npos);

  // A running daemon's file is left alone.
  ASSERT_TRUE(NXC_StartService("zynet5", NXC_SERVICE_TYPE_NAT));
  ASSERT_TRUE(NXC_SetNATParam("zynet5", NXC_PARAM_NAT_UDP_TIMEOUT, "120", 3));
  ClearLog();
  EXPECT_FALSE(NXC_UpdateNATFromConfig("zynet5"));
  EXPECT_TRUE(LogHas(
      "NAT service is not in stopped state on this vnet,Cannot update config information"));
  EXPECT_NE(ReadFile(kNatConf5).find("timeout = 90\n"), std::string::npos);
  ExpectUnlocked();
  ASSERT_TRUE(NXC_StopService("zynet5", NXC_SERVICE_TYPE_NAT));

  // Off with clean-up: the parameters go, the subnet stays, and the next
  // update removes the file.
  ASSERT_TRUE(NXC_SetVnetUseNAT("zynet5", false, true));
  EXPECT_TRUE(LogHas("Success in unconfiguring NAT on vnet: zynet5"));
  EXPECT_EQ(Answer("VNET_5_NAT_PARAM_UDP_TIMEOUT"), "<absent>");
  EXPECT_EQ(Subnet(5), subnet);
  ASSERT_TRUE(NXC_UpdateNATFromConfig("zynet5"));
  EXPECT_TRUE(LogHas("Removing NAT configuration file succeeded for vnet: zynet5"));
  EXPECT_FALSE(FileExists(kNatConf5));
}

struct SwitchCase {
  const char *name;
  bool (*set)(const char *, bool, bool);
  const char *key;        // the switch's answer for vnet 4
  const char *derived;    // a stored setting its clean-up removes
  const char *same;
  const char *cleaned;
};

const SwitchCase kSwitches[] = {
    {"adapter", NXC_SetVnetUseAdapter, "VNET_4_VIRTUAL_ADAPTER", "VNET_4_VIRTUAL_ADAPTER_ADDR",
     "Current Adapter status and requested status are same",
     "Cleaned up existing adapter configuration values for vnet: zynet4"},
    {"dhcp", NXC_SetVnetUseDHCP, "VNET_4_DHCP", "VNET_4_DHCP_PARAM_DNS_ADDR",
     "Current DHCP status and requested status are same",
     "Cleaned up existing DHCP configuration for vnet: zynet4"},
    {"nat", NXC_SetVnetUseNAT, "VNET_4_NAT", "VNET_4_NAT_PARAM_UDP_TIMEOUT",
     "Current NAT status and requested status are same",
     "Cleaned up existing NAT configuration for vnet: zynet4"},
};

TEST_F(FeaturesTest, TheCurrentStateChangesNothingUnlessCleanUpIsAsked) {
  for (const SwitchCase &c : kSwitches) {
    SCOPED_TRACE(c.name);
    WriteDb(std::string("answer VNET_4_HOSTONLY_SUBNET 10.4.0.0\nanswer ") + c.key + " yes\n" +
            "answer " + c.derived + " 10.4.0.9\nanswer VNET_4_VIRTUAL_ADAPTER_NAME host4\n");
    ASSERT_TRUE(Load());
    ClearLog();
    const std::string before = DbText();
    EXPECT_TRUE(c.set("zynet4", true, false));
    EXPECT_TRUE(LogHas(c.same));
    EXPECT_EQ(DbText(), before);
    EXPECT_TRUE(c.set("zynet4", true, true));
    EXPECT_TRUE(LogHas(c.cleaned));
    EXPECT_EQ(Answer(c.key), "yes");
    EXPECT_EQ(Answer(c.derived), "<absent>");
    EXPECT_EQ(Answer("VNET_4_VIRTUAL_ADAPTER_NAME"),
              c.set == NXC_SetVnetUseAdapter ? "<absent>" : "host4");
    EXPECT_FALSE(PingRan());
    UnloadAll(false);
  }
}

TEST_F(FeaturesTest, AFailedSubnetAssignmentLeavesTheSwitchOff) {
  EveryPingAnswered();  // every candidate subnet is in use
  LoadWith("");
  for (const SwitchCase &c : kSwitches) {
    SCOPED_TRACE(c.name);
    ClearLog();
    EXPECT_FALSE(c.set("zynet4", true, false));
    EXPECT_TRUE(LogHas("Failed to assign subnet to vnet"));
    // Only NAT says so when it takes back the subnet it did not get.
    EXPECT_EQ(LogHas("Removing assigned subnet for vnet: zynet4 because of error"),
              c.set == NXC_SetVnetUseNAT);
    EXPECT_EQ(Answer(c.key), "<absent>");
    EXPECT_EQ(Subnet(4), "<absent>");
    ExpectUnlocked();
  }
}

TEST_F(FeaturesTest, ASwitchThatFailsAfterItsSubnetWasAssignedTakesTheSubnetBack) {
  // Room for the subnet and mask records of the longest candidate subnet
  // ("192.168.255.0"), not for the NAT record after them.
  WriteDb("");
  FillDatabaseDisk(strlen("answer VNET_7_HOSTONLY_SUBNET 192.168.255.0\n") +
                   strlen("answer VNET_7_HOSTONLY_NETMASK 255.255.255.0\n"));
  ASSERT_TRUE(Load());
  EXPECT_FALSE(NXC_SetVnetUseNAT("zynet7", true, false));
  EXPECT_TRUE(LogHas("New subnet configured for vnet: zynet7"));
  EXPECT_TRUE(LogHas("Configuring NAT failed on vnet: zynet7"));
  EXPECT_EQ(LogCount("Removing assigned subnet for vnet: zynet7 because of error"), 1);
  // The removal was made; on this full disk it cannot be written either,
  // and that second failure is not reported by the switch.
  EXPECT_TRUE(LogHas("Marking subnet: "));
  EXPECT_TRUE(LogHas("Failed to remove \"VNET_7_HOSTONLY_SUBNET\" in database file"));
  ExpectUnlocked();
}

TEST_F(FeaturesTest, ASwitchThatFailsKeepsASubnetTheVnetAlreadyHad) {
  WriteDb("answer VNET_9_HOSTONLY_SUBNET 10.9.0.0\nanswer VNET_9_HOSTONLY_NETMASK 255.0.0.0\n");
  FillDatabaseDisk();
  ASSERT_TRUE(Load());
  EXPECT_FALSE(NXC_SetVnetUseDHCP("zynet9", true, false));
  EXPECT_TRUE(LogHas("Configuring DHCP failed on vnet: zynet9, current status unknown"));
  EXPECT_FALSE(LogHas("Marking subnet: "));
  EXPECT_FALSE(PingRan());
  EXPECT_EQ(Subnet(9), "10.9.0.0");
  ExpectUnlocked();
}

// ---- Parameters --------------------------------------------------------

TEST_F(FeaturesTest, UnsupportedParametersAreRefusedBeforeTheLock) {
  WriteDb("answer VNET_1_HOSTONLY_SUBNET 10.1.0.0\nanswer VNET_1_HOSTONLY_NETMASK 255.255.0.0\n");
  ASSERT_TRUE(Load());
  ASSERT_TRUE(NXCNetCfgLockConfig(nullptr));  // held, so a locking call fails at the lock
  const struct { const char *name; std::function<bool()> call; const char *line; bool triedLock; } cases[] = {
      {"dhcp unmapped", [] { return NXC_SetDHCPParam("zynet1", 13352, "1", 1); },
       "Unsupported DHCP Parameter", false},
      {"nat unmapped", [] { return NXC_SetNATParam("zynet1", 9028, "1", 1); },
       "Unsupported NAT parameter: 9028", false},
      {"dhcp supported", [] { return NXC_SetDHCPParam("zynet1", NXC_PARAM_DHCP_DNS_ADDR, "", 0); },
       "Failed to obtain lock on vnet config", true},
      {"nat supported", [] { return NXC_SetNATParam("zynet1", NXC_PARAM_NAT6, "1", 1); },
       "Failed to obtain lock on vnet config", true},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    ClearLog();
    EXPECT_FALSE(c.call());
    EXPECT_TRUE(LogHas(c.line));
    EXPECT_EQ(LogHas("Database file is already locked"), c.triedLock);
  }
  (void)NXCNetCfgUnlockConfig(nullptr);
}

TEST_F(FeaturesTest, ParameterValuesAndBuffers) {
  WriteDb("answer VNET_1_HOSTONLY_SUBNET 10.1.0.0\nanswer VNET_1_HOSTONLY_NETMASK 255.255.0.0\n");
  ASSERT_TRUE(Load());
  // Both setters read the value up to its length or its first NUL, whichever
  // comes first: never past the caller's bytes (ASan watches the reads).
  ASSERT_TRUE(NXC_SetDHCPParam("zynet1", NXC_PARAM_DHCP_DNS_ADDR, "10.1.0.53 and more", 9));
  EXPECT_EQ(Answer("VNET_1_DHCP_PARAM_DNS_ADDR"), "10.1.0.53");
  const char unterminated[] = {'0', 'x'};
  ASSERT_TRUE(NXC_SetNATParam("zynet1", NXC_PARAM_NAT_ACTIVE_FTP, unterminated, 1));
  EXPECT_EQ(Answer("VNET_1_NAT_PARAM_ACTIVE_FTP"), "0");
  ASSERT_TRUE(NXC_SetNATParam("zynet1", NXC_PARAM_NAT_UDP_TIMEOUT, "90", 4096));
  EXPECT_EQ(Answer("VNET_1_NAT_PARAM_UDP_TIMEOUT"), "90");
  // External 13356 maps to a number the DHCP layer refuses.
  EXPECT_FALSE(NXC_SetDHCPParam("zynet1", 13356, "60", 2));
  EXPECT_TRUE(LogHas("Setting value for DHCP Parameter failed, vnet: zynet1, paramID: 9556"));
  ExpectUnlocked();

  // Capacity in, length + 1 out.
  EXPECT_EQ(GetParam(false, "zynet1", NXC_PARAM_DHCP_DNS_ADDR, false, 10), "10.1.0.53");
  EXPECT_EQ(GetParam(false, "zynet1", NXC_PARAM_DHCP_DNS_ADDR, false, 9), "<failed>");
  EXPECT_EQ(GetParam(false, "zynet1", NXC_PARAM_DHCP_DNS_ADDR, false, 0), "<failed>");
  EXPECT_TRUE(LogHas("Invalid argument - v: "));
  EXPECT_EQ(GetParam(true, "zynet1", 9028, true), "<failed>");
  EXPECT_TRUE(LogHas("Unsupported NAT parameter ID: 9028"));

  // A null value removes.
  ASSERT_TRUE(NXC_SetDHCPParam("zynet1", NXC_PARAM_DHCP_DNS_ADDR, nullptr, 0));
  EXPECT_EQ(Answer("VNET_1_DHCP_PARAM_DNS_ADDR"), "<absent>");
  ASSERT_TRUE(NXC_SetNATParam("zynet1", NXC_PARAM_NAT6, "1", 1));
  ASSERT_TRUE(NXC_SetNATParam("zynet1", NXC_PARAM_NAT6, nullptr, 0));
  EXPECT_EQ(Answer("VNET_1_NAT_PARAM_NAT6"), "<absent>");
}

TEST_F(FeaturesTest, UpdatesLockEvenAReadOnlyDatabaseWhileChangesDoNot) {
  LoadWith("answer VNET_1_HOSTONLY_SUBNET 10.1.0.0\nanswer VNET_1_HOSTONLY_NETMASK 255.255.0.0\n",
           /*readOnly=*/true);
  // A change stays in memory, without the lock; the unlock is still made.
  const std::string before = DbText();
  EXPECT_TRUE(NXC_SetVnetUseDHCP("zynet1", true, false));
  EXPECT_TRUE(NXC_GetVnetUseDHCP("zynet1"));
  EXPECT_EQ(DbText(), before);
  EXPECT_FALSE(LogHas("Database file locking success"));
  EXPECT_TRUE(LogHas("Config file is not currently locked"));
  ASSERT_TRUE(NXCNetCfgLockConfig(nullptr));
  for (auto update : {NXC_UpdateDHCPFromConfig, NXC_UpdateNATFromConfig,
                      NXC_UpdateAdapterFromConfig}) {
    ClearLog();
    EXPECT_FALSE(update("zynet1"));
    EXPECT_TRUE(LogHas("Failed to obtain lock on vnet config"));
  }
  (void)NXCNetCfgUnlockConfig(nullptr);
}

// ---- Host-only adapter -------------------------------------------------

TEST_F(FeaturesTest, AdapterStatusAndUpdate) {
  WriteDb("answer VNET_3_VIRTUAL_ADAPTER yes\nanswer VNET_3_HOSTONLY_SUBNET 10.3.3.0\n"
          "answer VNET_3_HOSTONLY_NETMASK 255.255.255.0\n"
          "answer VNET_4_VIRTUAL_ADAPTER yes\nanswer VNET_4_VIRTUAL_ADAPTER_NAME abcdefghijklmnop\n");
  ASSERT_TRUE(Load());
  auto status = [](const char *vnet) {
    bool installed = false, enabled = false;
    if (!NXC_GetVnetAdapterStatus(vnet, &installed, &enabled)) return std::string("failed");
    return std::string(installed ? "installed" : "-") + (enabled ? ",up" : ",down");
  };
  EXPECT_EQ(status("zynet2"), "-,down");
  EXPECT_TRUE(LogHas("Hostonly virtual adapter is not configured on vnet: zynet2"));
  EXPECT_EQ(status("zynet4"), "failed");  // its name does not fit
  EXPECT_TRUE(LogHas("Failed to get the name of hostonly adapter for vnet: zynet4"));

  TestLinks links;
  ASSERT_TRUE(links.Add("zynet3", "link add zynet3 type veth peer name zypeer3"));
  EXPECT_EQ(status("zynet3"), "installed,down");
  EXPECT_TRUE(NXC_UpdateAdapterFromConfig("zynet3"));
  EXPECT_TRUE(LogHas("Adapter is currently disabled, nothing to update on vnet: zynet3"));
  EXPECT_EQ(status("zynet3"), "installed,down");

  ASSERT_EQ(Shell("ip link set zynet3 up"), 0);
  EXPECT_EQ(status("zynet3"), "installed,up");
  ClearLog();
  EXPECT_TRUE(NXC_UpdateAdapterFromConfig("zynet3"));
  EXPECT_TRUE(LogHas("Successfully disabled hostonly adapter: zynet3 for vnet: zynet3"));
  EXPECT_TRUE(LogHas("Successfully updated adapter from config on vnet: zynet3"));
  EXPECT_EQ(status("zynet3"), "installed,up");
  EXPECT_EQ(Shell("ip -4 addr show zynet3 | grep -q 'inet 10.3.3.1/24 brd 10.3.3.255'"), 0);

  // A vnet without a host-only adapter loses its netifup daemon.
  ASSERT_TRUE(NXCServiceStart(2, NXC_SERVICE_NETIFUP));
  pid_t netifup = PidInFile("/var/run/zynet-netifup-zynet2.pid");
  ASSERT_GT(netifup, 0);
  EXPECT_TRUE(NXC_UpdateAdapterFromConfig("zynet2"));
  EXPECT_TRUE(LogHas("Hostonly adapter not configured for vnet: zynet2"));
  EXPECT_TRUE(WaitGone(netifup, 2000));
  ExpectUnlocked();
}

// ---- Feature queries -----------------------------------------------------

// A record's nine feature bytes as "subnet|DHCP NAT bridge adapter|same at
// run time", e.g. "1|1101|1001".
std::string Features(const NXC_VnetFeatures &f) {
  std::string s = std::to_string(f.subnet) + "|";
  for (int i = 0; i < 4; ++i) s += std::to_string(f.configFeatures[i]);
  s += "|";
  for (int i = 0; i < 4; ++i) s += std::to_string(f.runtimeFeatures[i]);
  return s;
}

// A record for vnet with the feature bytes of text (in the form above) and
// reserved bytes 0xEE.
NXC_VnetFeatures Record(uint32_t vnet, const std::string &text) {
  NXC_VnetFeatures f;
  memset(&f, 0xEE, sizeof f);
  f.version = NXC_VNET_FEATURES_VERSION;
  f.netId.type = NXC_NETID_TYPE_VNET;
  f.netId.vnet = vnet;
  f.subnet = static_cast<uint8_t>(text[0] - '0');
  for (int i = 0; i < 4; ++i) {
    f.configFeatures[i] = static_cast<uint8_t>(text[2 + i] - '0');
    f.runtimeFeatures[i] = static_cast<uint8_t>(text[7 + i] - '0');
  }
  return f;
}

// Vnet 0 is the default bridge; 2 has NAT, 5 NAT and DHCP, 7 DHCP with its
// daemon running and its host-only adapter (lo) up; 9's adapter name does
// not fit.
class FeatureQueryTest : public FeaturesTest {
 protected:
  void SetUp() override {
    FeaturesTest::SetUp();
    if (HasFatalFailure()) return;
    WriteDb(
        "answer VNET_2_HOSTONLY_SUBNET 10.2.0.0\nanswer VNET_2_NAT yes\n"
        "answer VNET_5_HOSTONLY_SUBNET 10.5.0.0\nanswer VNET_5_NAT yes\nanswer VNET_5_DHCP yes\n"
        "answer VNET_7_HOSTONLY_SUBNET 10.7.0.0\nanswer VNET_7_HOSTONLY_NETMASK 255.255.255.0\n"
        "answer VNET_7_DHCP yes\nanswer VNET_7_VIRTUAL_ADAPTER yes\n"
        "answer VNET_7_VIRTUAL_ADAPTER_NAME lo\n"
        "answer VNET_9_VIRTUAL_ADAPTER_NAME abcdefghijklmnop\n");
    ASSERT_TRUE(Load());
    ASSERT_TRUE(NXC_UpdateDHCPFromConfig("zynet7"));
    ASSERT_TRUE(NXC_StartService("zynet7", NXC_SERVICE_TYPE_DHCP));
  }
};

TEST_F(FeatureQueryTest, GetVnetFeaturesFillsConfigAndRuntimeFeatures) {
  const struct {
    uint32_t vnet;
    const char *features;
  } cases[] = {{0, "0|0010|0000"}, {2, "1|0100|0000"}, {5, "1|1100|0000"}, {7, "1|1001|1001"}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.vnet);
    NXC_VnetFeatures f = Record(c.vnet, "3|3333|3333");
    ASSERT_TRUE(NXC_GetVnetFeatures(&f));
    EXPECT_EQ(Features(f), c.features);
    EXPECT_EQ(f.configFeatures[4] | f.configFeatures[31] | f.runtimeFeatures[31], 0);
  }

  // An adapter name that cannot be formed fails the query after the
  // config-time features were filled.
  NXC_VnetFeatures f = Record(9, "3|3333|3333");
  EXPECT_FALSE(NXC_GetVnetFeatures(&f));
  EXPECT_TRUE(LogHas("Getting virtual adapter name failed"));
  EXPECT_EQ(Features(f).substr(0, 6), "0|0000");
}

TEST_F(FeatureQueryTest, FindSearchesUpwardForTheFirstVnetThatMatchesThePattern) {
  const struct {
    uint32_t start;
    const char *pattern;
    int found;  // -1: none
  } cases[] = {
      {0, "0|0000|0000", 0},     // anything: the starting vnet itself
      {0, "1|0100|0000", 2},     // subnet and NAT
      {3, "1|0100|0000", 5},
      {0, "1|2100|0000", 2},     // NAT without DHCP
      {3, "1|2100|0000", -1},
      {0, "2|0020|0000", 1},     // neither subnet nor bridge
      {0, "0|0000|1000", 7},     // the DHCP daemon runs
      {0, "0|1000|2000", 5},     // DHCP configured, its daemon not running
      {0, "0|0000|0001", 7},     // the host-only adapter is up
      {0, "3|0000|0000", -1},    // 3 never matches
      {255, "0|0000|0000", 255},
      {255, "1|0000|0000", -1},  // the search ends at 255, never wraps
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(std::to_string(c.start) + " " + c.pattern);
    NXC_VnetFeatures f = Record(c.start, c.pattern);
    const NXC_VnetFeatures before = f;
    ClearLog();
    bool found = NXC_FindVnetWithFeatures(&f);
    EXPECT_EQ(found, c.found >= 0);
    if (!found) {
      EXPECT_EQ(memcmp(&f, &before, sizeof f), 0) << "a failed search changed the record";
      EXPECT_TRUE(LogHas("Could not find any matching vnet"));
      continue;
    }
    EXPECT_EQ(f.netId.vnet, static_cast<uint32_t>(c.found));
    EXPECT_EQ(f.netId.version, NXC_NETID_VERSION);
    EXPECT_EQ(f.configFeatures[4], 0xEE);  // reserved bytes are the caller's
    NXC_VnetFeatures same = Record(f.netId.vnet, "0|0000|0000");
    ASSERT_TRUE(NXC_GetVnetFeatures(&same));
    EXPECT_EQ(Features(f), Features(same));
  }
  // A found record fed back reads its 0s as "any": vnet 2 has no DHCP, and
  // that does not exclude vnet 5's.
  NXC_VnetFeatures f = Record(0, "1|0100|0000");
  ASSERT_TRUE(NXC_FindVnetWithFeatures(&f));
  ASSERT_EQ(Features(f), "1|0100|0000");
  f.netId.vnet = 3;
  ASSERT_TRUE(NXC_FindVnetWithFeatures(&f));
  EXPECT_EQ(f.netId.vnet, 5u);
}

TEST_F(FeatureQueryTest, AnAdapterStateThatCannotBeReadEndsTheSearch) {
  NXC_VnetFeatures f = Record(9, "0|0000|0000");
  const NXC_VnetFeatures before = f;
  EXPECT_FALSE(NXC_FindVnetWithFeatures(&f));
  EXPECT_TRUE(LogHas("Getting virtual adapter name failed"));
  EXPECT_FALSE(LogHas("Looking at vnet: 10 "));
  EXPECT_EQ(memcmp(&f, &before, sizeof f), 0);
  // A vnet whose config-time features do not match is passed over without
  // asking for its adapter.
  ClearLog();
  f = Record(9, "0|0001|0000");
  EXPECT_FALSE(NXC_FindVnetWithFeatures(&f));
  EXPECT_TRUE(LogHas("Looking at vnet: 255 "));
  EXPECT_FALSE(LogHas("Getting virtual adapter name failed"));
}

TEST_F(FeatureQueryTest, BadRecordsAreRefusedByBothCalls) {
  const struct {
    const char *name;
    std::function<void(NXC_VnetFeatures *)> spoil;
    const char *getLine;
    const char *findLine;
  } cases[] = {
      {"version", [](NXC_VnetFeatures *f) { f->version = 2; },
       "Unsupported feature struct version: 2", "Unsupported feature struct version: 2"},
      {"type", [](NXC_VnetFeatures *f) { f->netId.type = 2; }, "Query unsupported for non-vnets",
       "Query unsupported for non-vnets"},
      {"vnet", [](NXC_VnetFeatures *f) { f->netId.vnet = 256; }, "Invalid vnet number: 256",
       "Invalid index of starting vnet: 256"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    NXC_VnetFeatures f = Record(0, "3|3333|3333");
    c.spoil(&f);
    const NXC_VnetFeatures before = f;
    ClearLog();
    EXPECT_FALSE(NXC_GetVnetFeatures(&f));
    EXPECT_TRUE(LogHas(c.getLine));
    EXPECT_TRUE(LogHas("Failed to return vnet features"));
    EXPECT_FALSE(NXC_FindVnetWithFeatures(&f));
    EXPECT_TRUE(LogHas(c.findLine));
    EXPECT_FALSE(LogHas("Looking at vnet"));
    EXPECT_EQ(memcmp(&f, &before, sizeof f), 0);
  }
  EXPECT_FALSE(NXC_FindVnetWithFeatures(nullptr));
  EXPECT_FALSE(NXC_GetVnetFeatures(nullptr));
  EXPECT_EQ(LogCount("Invalid argument - ft: (nil)"), 2);
}

}  // namespace
}  // namespace nxc::test
