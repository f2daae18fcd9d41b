// The calls on a vnet's record tables and on bridging, through the public
// header as a caller makes them: static DHCP leases and port forwards with
// their lengths and descriptions, the host adapter list over veth pairs of
// the test's own network namespace, moving adapters and switching the
// default bridge with their undo forced by a failing bridge daemon, and a
// vnet's host-only adapter (a tap device) with its netifup daemon.
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <map>
#include <string>

#include "nexcfg.h"
#include "support/daemons.h"
#include "support/db_fixture.h"

namespace nxc::test {
namespace {

constexpr char kVnet8[] =
    "answer VNET_8_HOSTONLY_SUBNET 192.168.8.0\nanswer VNET_8_HOSTONLY_NETMASK 255.255.255.0\n"
    "answer VNET_8_DHCP yes\nanswer VNET_8_NAT yes\nanswer VNET_8_VIRTUAL_ADAPTER yes\n";
constexpr char kLocked[] = "Database file locking success";
constexpr char kUnlocked[] = "Config file unlocking success";

class MappingTest : public DaemonTest {
 protected:
  static int32_t VnetOf(const char *adapter) {
    int32_t vnet = 42;
    return NXCGetBridgeMappingForAdapter(adapter, &vnet) ? vnet : 42;
  }
  TestLinks links_;
};

// ---- Static DHCP leases and port forwards -------------------------------------

TEST_F(MappingTest, DhcpLeasesAreStoredCanonicallyAndANullAddressRemovesOne) {
  WriteDb(kVnet8);
  ASSERT_TRUE(Load());
  ASSERT_TRUE(NXC_SetDHCPIPToMAC("zynet8", "192.168.8.50", "0:1a:2b:3c:4d:5e"));
  ASSERT_TRUE(NXC_SetDHCPIPToMAC("zynet8", "192.168.8.51", "AA:BB:CC:DD:EE:FF"));
  EXPECT_TRUE(DbHas("add_dhcp_mac_to_ip 8 00:1A:2B:3C:4D:5E 192.168.8.50\n"));

  char ip[16] = "", mac[18] = "";
  uint32_t ipLen = sizeof ip, macLen = sizeof mac, cursor = 0;
  ASSERT_TRUE(NXC_GetDHCPIPToMAC("zynet8", ip, &ipLen, "00:1a:2B:3c:4d:5e"));
  EXPECT_EQ(std::string(ip) + "/" + std::to_string(ipLen), "192.168.8.50/13");
  std::map<std::string, std::string> leases;
  for (ipLen = 16; NXC_EnumDHCPIPToMAC("zynet8", &cursor, ip, &ipLen, mac, &macLen);
       ipLen = 16, macLen = 18)
    leases[mac] = ip + std::string("/") + std::to_string(ipLen) + "/" + std::to_string(macLen);
  EXPECT_EQ(leases,
            (std::map<std::string, std::string>{{"00:1A:2B:3C:4D:5E", "192.168.8.50/13/18"},
                                                {"AA:BB:CC:DD:EE:FF", "192.168.8.51/13/18"}}));

  // A null IP removes the lease; the success line says so.
  ASSERT_TRUE(NXC_SetDHCPIPToMAC("zynet8", nullptr, "00:1a:2b:3c:4d:5e"));
  EXPECT_TRUE(
      LogHas("static mapping succeeded for vnet: zynet8, ip: null, mac: 00:1a:2b:3c:4d:5e"));
  EXPECT_FALSE(NXC_GetDHCPIPToMAC("zynet8", ip, &ipLen, "00:1A:2B:3C:4D:5E"));
  EXPECT_EQ(ipLen, 16u) << "a failed lookup leaves the count";
  EXPECT_TRUE(DbHas("remove_dhcp_mac_to_ip 8 00:1A:2B:3C:4D:5E\n"));
}

TEST_F(MappingTest, BadArgumentsAreRefusedBeforeTheLock) {
  WriteDb(kVnet8);
  ASSERT_TRUE(Load());
  char ip[16] = "", mac[18] = "", desc[8] = "";
  uint32_t n15 = 15, n16 = 16, n17 = 17, cursor = 0;
  uint16_t port = 0;
  std::string tooLong(128, 'd');
  const char *good = "00:00:00:00:00:01";
  struct Case { const char *line; std::function<bool()> call; } cases[] = {
      {"Invalid argument - vnet: (nil), mac: ",
       [&] { return NXC_SetDHCPIPToMAC(nullptr, "192.168.8.5", good); }},
      {"IP address is not valid: 192.168.8.256",
       [&] { return NXC_SetDHCPIPToMAC("zynet8", "192.168.8.256", good); }},
      {"MAC address is not valid: 00-00-00-00-00-01",
       [&] { return NXC_SetDHCPIPToMAC("zynet8", "192.168.8.5", "00-00-00-00-00-01"); }},
      {"Invalid argument - zynet: ", [&] { return NXC_GetDHCPIPToMAC("zynet8", ip, &n15, good); }},
      {"Invalid argument: vnet: ",
       [&] { return NXC_EnumDHCPIPToMAC("zynet8", &cursor, ip, &n16, mac, &n17); }},
      // Host port 0 is refused before the address is looked at.
      {", hostPort: 0", [&] { return NXC_SetNATPortForward("zynet8", 1, 0, "x", 0, nullptr, 0); }},
      {"Invalid VM IP: 192.168.8.10 or port: 0",
       [&] { return NXC_SetNATPortForward("zynet8", 1, 80, "192.168.8.10", 0, nullptr, 0); }},
      {"Description is too long, allowed is: 128 bytes",
       [&] {
         return NXC_SetNATPortForward("zynet8", 1, 80, "192.168.8.10", 80, tooLong.c_str(), 128);
       }},
      {"Invalid argument - vnet: ",
       [&] { return NXC_GetNATPortForward("zynet8", 1, 80, ip, &n16, &port, desc, nullptr); }},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.line);
    ClearLog();
    EXPECT_FALSE(c.call());
    EXPECT_TRUE(LogHas(c.line)) << LogText();
    EXPECT_FALSE(LogHas(kLocked));
  }
  EXPECT_EQ(n15 + n17, 32u) << "counts are left alone";
}

TEST_F(MappingTest, PortForwardsKeepTheirDescriptionsAndReportTheirLengths) {
  WriteDb(kVnet8);
  ASSERT_TRUE(Load());
  // Only descLen bytes of the description count; it needs no terminator.
  ASSERT_TRUE(NXC_SetNATPortForward("zynet8", true, 8080, "192.168.8.10", 80, "web serverXYZ", 10));
  std::string longest(127, 'd');
  ASSERT_TRUE(
      NXC_SetNATPortForward("zynet8", true, 2222, "192.168.8.11", 22, longest.c_str(), 127));
  ASSERT_TRUE(NXC_SetNATPortForward("zynet8", false, 53, "192.168.8.12", 5353, "unused", 0));
  EXPECT_TRUE(LogHas("vm IP: 192.168.8.12, vm port: 5353, description: null"));

  // The enumeration wants room for the longest description + 2.
  char ip[16] = "", desc[129] = "";
  uint32_t ipLen = sizeof ip, descLen = sizeof desc, cursor = 0;
  uint16_t vmPort = 0, hostPort = 0;
  ASSERT_TRUE(NXC_GetNATPortForward("zynet8", true, 8080, ip, &ipLen, &vmPort, desc, &descLen));
  EXPECT_EQ(std::string(ip) + ":" + std::to_string(vmPort) + " " + desc,
            "192.168.8.10:80 web server");
  EXPECT_EQ(ipLen + descLen, 13u + 129) << "the lookup leaves the description count";
  EXPECT_FALSE(NXC_GetNATPortForward("zynet8", false, 8080, ip, &ipLen, &vmPort, nullptr, nullptr));

  // A described forward reports its length + 2, an undescribed one 0.
  std::map<uint16_t, std::string> forwards;
  for (bool tcp : {true, false}) {
    for (cursor = 0, ipLen = sizeof ip, descLen = sizeof desc; NXC_EnumNATPortForward(
             "zynet8", tcp, &cursor, &hostPort, ip, &ipLen, &vmPort, desc, &descLen);
         ipLen = sizeof ip, descLen = sizeof desc)
      forwards[hostPort] = std::string(ip) + ":" + std::to_string(vmPort) + " " + desc + "/" +
                           std::to_string(descLen);
  }
  EXPECT_EQ(forwards,
            (std::map<uint16_t, std::string>{{53, "192.168.8.12:5353 /0"},
                                             {2222, "192.168.8.11:22 " + longest + "/129"},
                                             {8080, "192.168.8.10:80 web server/12"}}));
  EXPECT_TRUE(LogHas("No ports to enumerate for vnet: zynet8"));

  // Removing ignores the VM port.
  ASSERT_TRUE(NXC_SetNATPortForward("zynet8", true, 8080, nullptr, 0, nullptr, 0));
  EXPECT_TRUE(
      LogHas("Removing NAT Port Forward succeeded for vnet: zynet8, tcp: 1, hostPort: 8080"));
  EXPECT_TRUE(DbHas("remove_nat_portfwd 8 tcp 8080\n"));
}

// ---- Bridges and host adapters ------------------------------------------------

class BridgeApiTest : public MappingTest {
 protected:
  // ethA..ethD are host adapters; zynet1 and ZYNET8 are the system's own.
  void SetUpAdapters(const std::string &records) {
    ASSERT_TRUE(links_.AddHostAdapters());
    WriteDb(records);
    ASSERT_TRUE(Load());
  }
  // The entry of the public list named name, copied.
  static NXC_HostAdapter Entry(const char *name) {
    NXC_HostAdapterList *list = nullptr;
    NXC_HostAdapter found{};
    EXPECT_TRUE(NXC_GetHostAdapterList(1, &list));
    for (NXC_HostAdapter *a = list ? list->entries : nullptr; a; a = a->next)
      if (strcmp(a->mappingName, name) == 0) found = *a;
    NXC_FreeHostAdapterList(list);
    EXPECT_EQ(found.version, 1u) << name;
    return found;
  }
  static pid_t BridgePid(int vnet) {
    return PidInFile(("/var/run/zynet-bridge-" + std::to_string(vnet) + ".pid").c_str());
  }
};

TEST_F(BridgeApiTest, HostAdapterListIsOneLinkedBlockWithoutZynetAdaptersOrEmpty) {
  // A mapped zynet name is in the raw list and must be left out as well.
  SetUpAdapters("add_bridge_mapping ethC 2\nadd_bridge_mapping zynet5 3\n");
  NXC_HostAdapterList *list = nullptr;
  EXPECT_FALSE(NXC_GetHostAdapterList(2, &list));
  EXPECT_TRUE(LogHas("Unsupported version number: 2"));
  ASSERT_TRUE(NXC_GetHostAdapterList(1, &list));
  ASSERT_EQ(list->version + list->count, 1u + 4);
  // The entries follow the header in the same block, each linked to the next.
  auto *first = reinterpret_cast<NXC_HostAdapter *>(reinterpret_cast<char *>(list) + sizeof *list);
  NXC_HostAdapter *entries = list->entries;
  EXPECT_EQ(entries, first);
  std::map<std::string, int32_t> vnets;
  for (uint32_t i = 0; i < list->count; ++i) {
    const NXC_HostAdapter &a = first[i];
    NXC_HostAdapter *next = a.next;
    EXPECT_EQ(next, i + 1 < list->count ? &first[i + 1] : nullptr) << i;
    EXPECT_EQ(a.version + 2 * a.netId.version + 4 * a.netId.type, 7u) << "all three are 1";
    vnets[a.mappingName] = static_cast<int32_t>(a.netId.vnet);
  }
  EXPECT_EQ(vnets,
            (std::map<std::string, int32_t>{{"ethA", 0}, {"ethB", 0}, {"ethC", 2}, {"ethD", 0}}));
  EXPECT_TRUE(LogHas("Skipping zynet virtual adapter: zynet5"));
  NXC_FreeHostAdapterList(list);

  // With only zynet adapters left, and no mappings, the list is empty.
  ASSERT_EQ(Shell("ip link del ethA && ip link del ethC"), 0);
  Reload("");
  ASSERT_TRUE(NXC_GetHostAdapterList(1, &list));
  EXPECT_EQ(list->count, 0u);
  entries = list->entries;
  EXPECT_EQ(entries, nullptr);
  NXC_FreeHostAdapterList(list);
  UnloadAll();
  NXC_FreeHostAdapterList(nullptr);  // harmless, also while not loaded
}

TEST_F(BridgeApiTest, MovingAnAdapterDisplacesTheDestinationsAdaptersOrPutsBothBack) {
  SetUpAdapters("add_bridge_mapping ethC 2\n");
  ASSERT_TRUE(NXC_StartService("zynet2", NXC_SERVICE_TYPE_BRIDGE));
  NXC_HostAdapter ethA = Entry("ethA");
  NXC_NetID vnet2 = {1, 1, 2, {0}}, vnet5 = {1, 1, 5, {0}};
  EXPECT_FALSE(NXC_BridgeMoveAdapter(&ethA, &vnet5, &vnet2));
  EXPECT_TRUE(LogHas("Souce vnet: 5 is not bridged to specified host adapter: ethA"));
  ClearLog();
  EXPECT_TRUE(NXC_BridgeMoveAdapter(&ethA, nullptr, nullptr));  // to the default bridge: no-op
  EXPECT_TRUE(LogHas("Host adapter: ethA is already configured as bridge for vnet: 0"));
  EXPECT_FALSE(LogHas(kLocked));

  // The destination's daemon cannot come back: both moves are undone, in
  // the file as well.
  SetStandinMode("zynet-bridge", "exit");
  ClearLog();
  EXPECT_FALSE(NXC_BridgeMoveAdapter(&ethA, nullptr, &vnet2));
  EXPECT_TRUE(LogHas("Failed to restart bridge service on destination vnet: 2\n"));
  EXPECT_TRUE(LogHas("Failed to restart bridge service on destination vnet: 2, during cleanup"));
  EXPECT_TRUE(LogHas(kUnlocked));
  UnloadAll();
  ASSERT_TRUE(Load());
  EXPECT_EQ(VnetOf("ethA"), 0);
  EXPECT_EQ(VnetOf("ethC"), 2);

  SetStandinMode("zynet-bridge", "");
  ASSERT_TRUE(NXC_StartService("zynet0", NXC_SERVICE_TYPE_BRIDGE));
  ASSERT_TRUE(NXC_StartService("zynet2", NXC_SERVICE_TYPE_BRIDGE));
  const pid_t bridge0 = BridgePid(0), bridge2 = BridgePid(2);
  ASSERT_TRUE(NXC_BridgeMoveAdapter(&ethA, nullptr, &vnet2));
  EXPECT_EQ(VnetOf("ethA"), 2);
  EXPECT_EQ(VnetOf("ethC"), 0) << "the destination's adapter goes to the default bridge";
  EXPECT_NE(BridgePid(2), bridge2);
  EXPECT_NE(BridgePid(0), bridge0);
  // The last restart was the default bridge's: it now leaves out ethA and
  // takes ethC in.
  const std::string argv0 = ReadFile(std::string(kStandinStateDir) + "/zynet-bridge.argv");
  EXPECT_NE(argv0.find("-n\n0\n"), std::string::npos) << argv0;
  EXPECT_NE(argv0.find("-eethA\n"), std::string::npos) << argv0;
  EXPECT_EQ(argv0.find("ethC"), std::string::npos) << argv0;
}

TEST_F(BridgeApiTest, DefaultBridgeSwitchesOffAndOnAndUndoesAFailedSwitch) {
  SetUpAdapters("add_bridge_mapping ethC 2\n");
  NXC_NetID none = {1, 1, 0xFFFFFFFFu, {0}}, zero = {1, 1, 0, {0}}, one = {1, 1, 1, {0}};
  EXPECT_FALSE(NXC_SetBridgeDefaultNetwork(&one));
  EXPECT_TRUE(LogHas("Invalid vnet number for default bridge: 1"));
  EXPECT_TRUE(NXC_SetBridgeDefaultNetwork(&zero));
  EXPECT_TRUE(LogHas("Current and requested values of DefaultBridgeVnet are same. Nothing to do"));
  EXPECT_FALSE(LogHas(kLocked));

  // The old default's daemon cannot come back: everything is put back.
  ASSERT_TRUE(NXC_StartService("zynet0", NXC_SERVICE_TYPE_BRIDGE));
  SetStandinMode("zynet-bridge", "exit");
  EXPECT_FALSE(NXC_SetBridgeDefaultNetwork(&none));
  EXPECT_TRUE(LogHas("Failed to restart bridge service on old default bridge: 0\n"));
  EXPECT_TRUE(LogHas("Failed to restart bridge service on old default bridge: 0 during cleanup"));
  NXC_NetID got = {1, 0, 77, {0}};
  ASSERT_TRUE(NXC_GetBridgeDefaultNetwork(&got));
  EXPECT_EQ(got.vnet, 0u);
  EXPECT_EQ(got.type, 1u);
  EXPECT_EQ(Answer("NXC_DEFAULT_BRIDGE_VNET"), "0");
  EXPECT_TRUE(LogHas(kUnlocked));

  // With no daemon to restart the switch goes through; vnet 0 keeps its
  // adapters, and switching back on hands it those of no vnet.
  SetStandinMode("zynet-bridge", "");
  ASSERT_TRUE(NXC_SetBridgeDefaultNetwork(&none));
  ASSERT_TRUE(NXC_GetBridgeDefaultNetwork(&got));
  EXPECT_EQ(got.vnet, 0xFFFFFFFFu);
  for (const char *name : {"ethA", "ethB", "ethD"}) EXPECT_EQ(VnetOf(name), 0) << name;
  EXPECT_EQ(VnetOf("ethC"), 2);
  ASSERT_TRUE(NXCSetBridgeMappingForAdapter("ethB", -1));
  ASSERT_TRUE(NXC_SetBridgeDefaultNetwork(&zero));
  EXPECT_EQ(VnetOf("ethB"), 0);
  EXPECT_EQ(Answer("NXC_DEFAULT_BRIDGE_VNET"), "0");
}

// ---- The host-only adapter -------------------------------------------------

TEST_F(MappingTest, HostOnlyAdapterComesUpWithItsNetifupDaemon) {
  ASSERT_TRUE(links_.Add("zynet8", "tuntap add zynet8 mode tap"));
  WriteDb(std::string(kVnet8) +
          "answer VNET_7_VIRTUAL_ADAPTER yes\n"
          "answer VNET_7_HOSTONLY_SUBNET 192.168.7.0\n"
          "answer VNET_7_HOSTONLY_NETMASK 255.255.255.0\n");
  ASSERT_TRUE(Load());
  EXPECT_FALSE(NXC_EnableNetworkAdapter("zynet3"));
  EXPECT_TRUE(LogHas("Hostonly adapter not configured for vnet: zynet3"));

  ASSERT_TRUE(NXC_EnableNetworkAdapter("zynet8"));
  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_UP);
  EXPECT_EQ(NXC_GetServiceStatus("zynet8", NXC_SERVICE_TYPE_NETIFUP), NXC_SERVICE_RUNNING);
  EXPECT_TRUE(NXC_EnableNetworkAdapter("zynet8"));
  EXPECT_TRUE(LogHas("Adapter is already enabled"));

  ASSERT_TRUE(NXC_DisableNetworkAdapter("zynet8"));
  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_DOWN);
  EXPECT_EQ(NXC_GetServiceStatus("zynet8", NXC_SERVICE_TYPE_NETIFUP), NXC_SERVICE_NOT_RUNNING);

  // Vnet 7 has no adapter: enabling starts the daemon, fails, and stops
  // it again; disabling is a success without the lock.
  ClearLog();
  EXPECT_FALSE(NXC_EnableNetworkAdapter("zynet7"));
  EXPECT_TRUE(LogHas("Failed to enable hostonly adapter on vnet: zynet7"));
  EXPECT_TRUE(LogHas("Stopped netifup service on vnet: zynet7 during cleanup"));
  EXPECT_EQ(NXC_GetServiceStatus("zynet7", NXC_SERVICE_TYPE_NETIFUP), NXC_SERVICE_NOT_RUNNING);
  EXPECT_TRUE(LogHas(kUnlocked));
  ClearLog();
  EXPECT_TRUE(NXC_DisableNetworkAdapter("zynet7"));
  EXPECT_TRUE(LogHas("Hostonly adapter: zynet7 does not exist"));
  EXPECT_FALSE(LogHas(kLocked));
}

}  // namespace
}  // namespace nxc::test
