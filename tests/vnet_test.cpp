// vnet_test.cpp - the vnet configuration model: per-vnet settings stored as
// answers, automatic subnets probed with the (stand-in) ping program, and the
// host adapters each vnet bridges.
//
// Runs in the private sandbox. The subnet tables live for the whole process,
// so every test that builds them runs in a forked child, which starts from
// empty tables, loads the library itself and reports back.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "nexcfg_internal.h"
#include "support/daemons.h"
#include "support/db_fixture.h"
#include "vnet/subnet_priv.h"

namespace nxc::test {
namespace {

using V = std::vector<std::string>;

class VnetModelTest : public DaemonTest {
 protected:
  // The answers of keys, joined with blanks.
  std::string Answers(std::initializer_list<const char *> keys) const {
    std::string out;
    for (const char *key : keys) out += (out.empty() ? "" : " ") + Answer(key);
    return out;
  }
};

// ---- Settings stored as answers ------------------------------------------

TEST_F(VnetModelTest, CopyNeedsRoomForTheTerminatorAndReportsTheNeededSize) {
  LoadWith("answer VNET_3_NOTE abcdef\n");
  for (size_t capacity : {7, 100, 6, 1}) {
    SCOPED_TRACE(capacity);
    const bool fits = capacity >= 7;
    ClearLog();
    char buf[100] = "untouched";
    size_t size = capacity;
    EXPECT_EQ(NXCGetVnetCfgCpy(3, "NOTE", buf, &size), fits);
    EXPECT_EQ(size, 7u);
    EXPECT_STREQ(buf, fits ? "abcdef" : "untouched");
    EXPECT_EQ(LogHas("Insufficient space provided for host configuration entry: \"NOTE\"."), !fits);
  }
  // An absent field leaves the size alone; it is only a trace line.
  size_t size = 33;
  char buf[33];
  ASSERT_TRUE(NXC_SetCurrentLogLevel(NXC_LOG_INFO2));
  EXPECT_FALSE(NXCGetVnetCfgCpy(3, "OTHER", buf, &size));
  EXPECT_EQ(size, 33u);
  EXPECT_TRUE(LogHas("Unable to find host configuration entry : \"OTHER\" for Vnet: 3"));
  ASSERT_TRUE(NXC_SetCurrentLogLevel(0x7f & ~NXC_LOG_INFO2));
  EXPECT_FALSE(NXCGetVnetDisplayName(3, buf, sizeof buf));
  EXPECT_EQ(LogCount("Unable to find host configuration entry"), 1);
}

TEST_F(VnetModelTest, FailedCleanUpOnAFullDiskFailsDhcpAndAdapterButNatOnlyLogs) {
  WriteDb(
      "answer VNET_6_VIRTUAL_ADAPTER yes\nanswer VNET_6_VIRTUAL_ADAPTER_ADDR 10.0.6.1\n"
      "answer VNET_6_VIRTUAL_ADAPTER_NAME host6\n"
      "answer VNET_2_DHCP_PARAM_LEASE_START_IP 10.0.2.10\n"
      "answer VNET_3_NAT_PARAM_UDP_TIMEOUT 60\n");
  FillDatabaseDisk();
  ASSERT_TRUE(Load());
  // The switches stay as they are, so only the clean-up writes (and fails).
  // The adapter's address removal is undone and its name then left alone.
  EXPECT_FALSE(NXCSetVnetUseAdapter(6, true, true));
  EXPECT_TRUE(LogHas("Error removing Adapter address from vnet config"));
  EXPECT_FALSE(NXCSetVnetUseDHCP(2, false, true));
  EXPECT_TRUE(LogHas("Error removing DHCP configuration informtion"));  // sic
  EXPECT_TRUE(NXCSetVnetUseNAT(3, false, true));
  EXPECT_TRUE(LogHas("Error removing NAT coniguration information"));  // sic
  EXPECT_FALSE(LogHas("Error removing Adapter name from vnet config"));
  EXPECT_EQ(Answers({"VNET_6_VIRTUAL_ADAPTER_ADDR", "VNET_6_VIRTUAL_ADAPTER_NAME",
                     "VNET_2_DHCP_PARAM_LEASE_START_IP", "VNET_3_NAT_PARAM_UDP_TIMEOUT"}),
            "10.0.6.1 host6 10.0.2.10 60");
}

TEST_F(VnetModelTest, OptionsFollowTheirSettings) {
  LoadWith(
      "answer VNET_1_DHCP yes\nanswer VNET_1_NAT no\nanswer VNET_1_VIRTUAL_ADAPTER YES\n"
      "answer VNET_1_HOSTONLY_SUBNET 10.9.0.0\nanswer VNET_1_HOSTONLY_UUID 52-aa\n"
      "answer VNET_2_NAT yes\nadd_bridge_mapping eth7 2\n");
  // Options 0..7 of vnets 1 and 2; vnet 0 is the default bridge.
  const std::string expected[] = {"00101110", "01010000"};
  for (uint32_t vnet : {1u, 2u}) {
    std::string got;
    for (uint32_t option = 0; option <= 7; ++option)
      got += NXCVnetIsOptionConfigured(vnet, option) ? '1' : '0';
    EXPECT_EQ(got, expected[vnet - 1]) << "vnet " << vnet;
  }
  EXPECT_TRUE(NXCVnetIsOptionConfigured(0, NXC_VNET_OPTION_BRIDGE));
}

// ---- Automatic subnets ---------------------------------------------------

TEST(SubnetCandidates, FollowTheFixedOrderAndLeaveOutUsedSubnets) {
  static SubnetCandidate table[kSubnetCandidateSlots];
  ASSERT_EQ(FillSubnetCandidates([](uint32_t) { return false; }, table), 510u);
  const uint32_t order[] = {0xAC100000, 0xAC100100, 0xC0A80200, 0xAC100200, 0xC0A80300};
  for (size_t i = 0; i < std::size(order); ++i) EXPECT_EQ(table[i].subnet, order[i]) << i;
  EXPECT_EQ(table[508].subnet, 0xC0A8FF00u);
  EXPECT_EQ(table[509].subnet, 0xAC10FF00u);

  // 172.16.1.0 used: 192.168.2.0 moves up to its place.
  ASSERT_EQ(FillSubnetCandidates([](uint32_t s) { return s == 0xAC100100; }, table), 509u);
  EXPECT_EQ(table[1].subnet, 0xC0A80200u);
  EXPECT_EQ(table[2].subnet, 0xAC100200u);
}

TEST_F(VnetModelTest, PingCommandLineAndExitCodesDecideWhetherASubnetIsFree) {
  LoadWith("");
  const std::string ping = std::string(kStandinBinDir) + "/zymtra-ping";
  const std::string bcast = ping + " -q -b 10.1.2.0 -t 3 -i 7";
  const std::string host = ping + " -q -b 10.1.2.1 -t 3 -i 7";
  struct Case { const char *name, *codes; bool broadcast, free; V calls; } const cases[] = {
      {"no reply on either address", "1 1", true, true, {bcast, host}},
      {"exit code 2 on broadcast is free at once", "2", true, true, {bcast}},
      {"a reply on broadcast is used at once", "0", true, false, {bcast}},
      {"a reply from the first host is used", "1 0", true, false, {bcast, host}},
      {"exit code 2 from the first host is free", "1 2", true, true, {bcast, host}},
      {"without broadcast only the first host", "1", false, true, {host}},
      {"other exit codes mean used", "5", false, false, {host}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(SetPingExitCodes(c.codes));
    ClearLog();
    // The subnet is normalised before use.
    EXPECT_EQ(NXCPingAndCheckSubnet("010.1.002.0", c.broadcast, 3, 7), c.free);
    EXPECT_EQ(PingCalls(), c.calls);
    EXPECT_EQ(LogHas("Return value of zymtra-ping:"), !c.free);
  }

  // A ping program that is missing or too deep to name makes subnets used.
  ASSERT_TRUE(SetPingExitCodes("1"));
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "BINDIR", "/nonexistent"));
  EXPECT_FALSE(NXCPingAndCheckSubnet("10.1.2.0", true, 1, 1));
  EXPECT_TRUE(LogHas("Return value of zymtra-ping: 127"));
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "BINDIR", ("/" + std::string(255, 'b')).c_str()));
  EXPECT_FALSE(NXCPingAndCheckSubnet("10.1.2.0", true, 1, 1));
  EXPECT_TRUE(LogHas("Value of BINDIR is bigger than allowed 256 chracters"));  // sic
  EXPECT_TRUE(PingCalls().empty());
}

TEST_F(VnetModelTest, ProbeTriesEveryCandidateOnceAndThenFailsWithoutPinging) {
  WriteDb("answer VNET_1_HOSTONLY_SUBNET 172.16.5.0\nanswer VNET_2_HOSTONLY_SUBNET 192.168.7.0\n");
  ASSERT_TRUE(SetPingExitCodes("0"));  // every subnet answers
  V report = ReportFromChild([](V *out) {
    if (!NXC_Load(0)) return out->push_back("load failed");
    out->push_back(NXCAssignUnusedSubnetAddressToVNet(5) ? "assigned" : "failed");
    out->push_back(NXCGetVnetCfg(5, "HOSTONLY_SUBNET") ? "stored" : "nothing stored");
    out->push_back(std::to_string(PingCalls().size()));
    char subnet[16] = "", mask[16] = "";
    int found = 0;
    for (int i = 0; i < 50; ++i) found += NXCSubnetProbe(subnet, mask) ? 1 : 0;
    out->push_back(std::to_string(found) + " found, " + std::to_string(PingCalls().size()));
    // Out of candidates: the next probe fails without pinging.
    found += NXCSubnetProbe(subnet, mask) ? 1 : 0;
    out->push_back(std::to_string(found) + " found, " + std::to_string(PingCalls().size()));
    NXC_Unload();
  });
  EXPECT_EQ(report, (V{"failed", "nothing stored", "10", "0 found, 508", "0 found, 508"}));
  EXPECT_TRUE(LogHas("Failed to probe subnet for vnet 5."));
  // Each round of 10 answered pings is logged; running out is not.
  EXPECT_EQ(LogCount("Could not automatically determine available subnet."), 50);

  // 508 candidates, all tried once: index 0 is never offered and the empty
  // slot after the last candidate (0.0.0.0) is.
  V addresses = PingedAddresses();
  std::set<std::string> pinged(addresses.begin(), addresses.end());
  EXPECT_EQ(pinged.size(), 508u);
  EXPECT_EQ(pinged.count("0.0.0.0"), 1u);
  for (const char *never : {"172.16.5.0", "192.168.7.0", "192.168.0.0", "192.168.1.0"})
    EXPECT_EQ(pinged.count(never), 0u) << never;
}

// ---- Bridging ------------------------------------------------------------

TEST_F(VnetModelTest, DefaultBridgeAcceptsOnlyZeroOrMinusOneFromTheDatabase) {
  struct Case { const char *records; bool ok; int32_t vnet; } const cases[] = {
      {"", true, 0},
      {"answer NXC_DEFAULT_BRIDGE_VNET 0\n", true, 0},
      {"answer NXC_DEFAULT_BRIDGE_VNET -1\n", true, -1},
      {"answer NXC_DEFAULT_BRIDGE_VNET 3\n", false, 0},
      {"answer NXC_DEFAULT_BRIDGE_VNET none\n", false, 0},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.records);
    Reload(c.records);
    int32_t vnet = 42;
    EXPECT_EQ(NXCGetDefaultBridgeVnet(&vnet), c.ok);
    EXPECT_EQ(vnet, c.ok ? c.vnet : 42);
    EXPECT_EQ(LogHas("Invalid value of defaultBridge in config"), !c.ok);
    UnloadAll(false);
    EXPECT_EQ(nxcDefaultBridgeVnet, -100) << "the unload forgets the cached value";
  }

  // Any value can be set, and is then read from the cache.
  LoadWith("");
  EXPECT_TRUE(NXCSetDefaultBridgeVnet(3));
  int32_t vnet = 0;
  EXPECT_TRUE(NXCGetDefaultBridgeVnet(&vnet));
  EXPECT_EQ(vnet, 3);
  EXPECT_EQ(Answer("NXC_DEFAULT_BRIDGE_VNET"), "3");
}

// Veth pairs in the test's own network namespace stand for host adapters.
class BridgeTest : public VnetModelTest {
 protected:
  void SetUp() override {
    VnetModelTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_TRUE(links_.AddHostAdapters());
  }
  TestLinks links_;

  // The bridge list of vnet as sorted "name:vnet" texts.
  static V Bridged(int32_t vnet) {
    uint32_t count = 1234;
    NXC_HostAdapter *list = nullptr;
    EXPECT_TRUE(NXCGetVnetBridge(vnet, &count, &list));
    V names;
    for (NXC_HostAdapter *a = list; a; a = a->next) {
      names.push_back(std::string(a->mappingName) + ":" +
                      std::to_string(static_cast<int32_t>(a->netId.vnet)));
      EXPECT_TRUE(a->netId.version == 1 && a->netId.type == 1) << a->mappingName;
    }
    NXCFreeHostAdapList(&list);
    EXPECT_EQ(count, names.size());
    std::sort(names.begin(), names.end());
    return names;
  }

  static int32_t MappingOf(const char *adapter) {
    int32_t vnet = 42;
    return NXCNetCfgLookupVnetForHostAdapter(nullptr, adapter, &vnet) ? vnet : 42;
  }
};

TEST_F(BridgeTest, DefaultBridgeTakesEveryUnmappedEthernetAdapter) {
  // ethB is mapped elsewhere, ethD explicitly to the default bridge (and so
  // must not be listed twice), ghost0 is mapped but not on the host.
  LoadWith("add_bridge_mapping ethB 2\nadd_bridge_mapping ethD 0\nadd_bridge_mapping ghost0 0\n");
  const std::pair<int32_t, V> cases[] = {
      {0, V{"ethA:0", "ethC:0", "ethD:0", "ghost0:0"}},
      {2, V{"ethB:2"}},
      {3, V{}},
      {NXC_ALL_HOST_ADAPTERS, V{"ethA:0", "ethB:2", "ethC:0", "ethD:0", "ghost0:0"}},
  };
  for (const auto &[vnet, adapters] : cases) EXPECT_EQ(Bridged(vnet), adapters) << vnet;
  EXPECT_TRUE(LogHas("Skipping zynet virtual adapter: zynet1"));
  EXPECT_TRUE(LogHas("Skipping zynet virtual adapter: ZYNET8"));
  EXPECT_TRUE(LogHas("Removing duplicate adapter: ethD"));

  // Without a default bridge unmapped adapters belong to no vnet.
  ASSERT_TRUE(NXCSetDefaultBridgeVnet(-1));
  EXPECT_EQ(Bridged(0), (V{"ethD:0", "ghost0:0"}));
  EXPECT_EQ(Bridged(NXC_ALL_HOST_ADAPTERS), (V{"ethA:-1", "ethB:2", "ethC:-1", "ethD:0", "ghost0:0"}));
  EXPECT_EQ(Bridged(-1), (V{"ethA:-1", "ethC:-1"}));
}

TEST_F(BridgeTest, RemovingMappingsHandsAdaptersToTheDefaultBridgeAndRestartsIt) {
  LoadWith("add_bridge_mapping ethB 2\nadd_bridge_mapping ethC 2\n");
  // Not running: the restart leaves the default bridge stopped and succeeds.
  EXPECT_TRUE(NXCRemoveBridgeMappingsForVnet(2));
  EXPECT_EQ(MappingOf("ethB"), 0);
  EXPECT_EQ(MappingOf("ethC"), 0);
  EXPECT_FALSE(FileExists("/var/run/zynet-bridge-0.pid"));

  // Running: it runs anew without excluding the adapter it took over.
  ASSERT_TRUE(NXCSetBridgeMappingForAdapter("ethB", 2));
  ASSERT_TRUE(NXCServiceStart(0, NXC_SERVICE_BRIDGE));
  EXPECT_EQ(StandinArgv("zynet-bridge").back(), "-eethB");
  const pid_t before = PidInFile("/var/run/zynet-bridge-0.pid");
  EXPECT_TRUE(NXCRemoveBridgeMappingsForVnet(2));
  const pid_t after = PidInFile("/var/run/zynet-bridge-0.pid");
  EXPECT_NE(after, before);
  EXPECT_TRUE(Alive(after));
  EXPECT_EQ(StandinArgv("zynet-bridge").back(), "0") << "no adapter is excluded any more";
  EXPECT_FALSE(LogHas("Failed to restart bridge service"));
  KillAllDaemons();

  // The default bridge itself: the default is switched off and its adapters
  // belong to no vnet.
  ASSERT_TRUE(NXCSetBridgeMappingForAdapter("ethB", 2));
  EXPECT_TRUE(NXCRemoveBridgeMappingsForVnet(0));
  int32_t defaultBridge = 42;
  ASSERT_TRUE(NXCGetDefaultBridgeVnet(&defaultBridge));
  EXPECT_EQ(defaultBridge, -1);
  EXPECT_EQ(Answer("NXC_DEFAULT_BRIDGE_VNET"), "-1");
  for (const char *name : {"ethA", "ethC", "ethD"}) EXPECT_EQ(MappingOf(name), -1) << name;
  EXPECT_EQ(MappingOf("ethB"), 2);
  EXPECT_EQ(MappingOf("zynet1"), 42) << "zynet adapters are never mapped";
}

}  // namespace
}  // namespace nxc::test
