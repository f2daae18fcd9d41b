// The management calls through the public header, as a caller makes them:
// services by public type, device nodes, removing a vnet, the database file
// (create, delete, export, import) and merging a changed configuration
// while daemons run.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>

#include "nexcfg.h"
#include "support/daemons.h"

namespace nxc::test {
namespace {

// Vnet 8: NAT with DHCP on 192.168.8.0/24; vnet 0: the default bridge.
constexpr char kTwoVnets[] =
    "answer VNET_8_HOSTONLY_SUBNET 192.168.8.0\nanswer VNET_8_HOSTONLY_NETMASK 255.255.255.0\n"
    "answer VNET_8_DHCP yes\nanswer VNET_8_NAT yes\n"
    "answer VNET_3_HOSTONLY_SUBNET 192.168.3.0\nanswer VNET_3_HOSTONLY_NETMASK 255.255.255.0\n"
    "answer VNET_3_DHCP yes\n";

constexpr char kNat8[] = "/var/run/zynet-natd-8.pid";
constexpr char kDhcp8[] = "/var/run/zynet-dhcpd-zynet8.pid";
constexpr char kDhcp3[] = "/var/run/zynet-dhcpd-zynet3.pid";
constexpr char kBridge0[] = "/var/run/zynet-bridge-0.pid";

class ManageTest : public DaemonTest {
 protected:
  // Loads kTwoVnets and writes the daemons' configuration files.
  void LoadTwoVnets() {
    WriteDb(kTwoVnets);
    ASSERT_TRUE(Load());
    for (uint32_t vnet : {3u, 8u}) {
      ASSERT_TRUE(NXCDHCPUpdateFromConfig(vnet));
      ASSERT_TRUE(NXCNATUpdateFromConfig(vnet));
    }
  }
  static pid_t Pid(const char *file) { return PidInFile(file); }
  void ExpectPids(pid_t nat8, pid_t dhcp8, pid_t dhcp3, pid_t bridge0) {
    EXPECT_EQ(Pid(kNat8), nat8);
    EXPECT_EQ(Pid(kDhcp8), dhcp8);
    EXPECT_EQ(Pid(kDhcp3), dhcp3);
    EXPECT_EQ(Pid(kBridge0), bridge0);
  }
};

TEST_F(ManageTest, ServicesByPublicType) {
  LoadTwoVnets();
  EXPECT_EQ(NXC_GetServiceStatus("zynet8", 0x8805), NXC_SERVICE_STATUS_UNKNOWN);
  EXPECT_EQ(NXC_GetServiceStatus("eth0", NXC_SERVICE_TYPE_NAT), NXC_SERVICE_STATUS_UNKNOWN);
  EXPECT_TRUE(LogHas("Invalid vnet name: eth0"));
  EXPECT_EQ(NXC_GetServiceStatus("zynet8", NXC_SERVICE_TYPE_NAT), NXC_SERVICE_NOT_RUNNING);
  EXPECT_TRUE(LogHas("\"NAT\" service is currently stopped on vnet: zynet8"));

  ASSERT_TRUE(NXC_StartService("zynet8", NXC_SERVICE_TYPE_NAT));
  EXPECT_TRUE(LogHas("Started \"NAT\" service for vnet: zynet8"));
  struct stat st;
  ASSERT_EQ(stat("/dev/zynet8", &st), 0);  // the device node comes first
  EXPECT_TRUE(S_ISCHR(st.st_mode));
  EXPECT_EQ(NXC_GetServiceStatus("zynet8", NXC_SERVICE_TYPE_NAT), NXC_SERVICE_RUNNING);
  EXPECT_TRUE(NXC_StartService("zynet8", NXC_SERVICE_TYPE_NAT));
  EXPECT_TRUE(LogHas("\"NAT\" Service is already running on the vnet: zynet8"));

  ClearLog();
  ASSERT_TRUE(NXC_StopService("zynet8", NXC_SERVICE_TYPE_NAT));
  EXPECT_TRUE(LogHas("Stopped \"NAT\" service on vnet: zynet8"));
  // Stop writes its entry banner and no exit banner.
  EXPECT_TRUE(LogHas("Entering API Function, NXC_StopService:"));
  EXPECT_FALSE(LogHas("Exiting API Function, NXC_StopService:"));
  EXPECT_EQ(NXC_GetServiceStatus("zynet8", NXC_SERVICE_TYPE_NAT), NXC_SERVICE_NOT_RUNNING);
}

TEST_F(ManageTest, StartRefusesWhatTheVnetIsNotSetUpFor) {
  LoadWith(kTwoVnets);
  struct Case { const char *vnet; uint32_t type; const char *line; } cases[] = {
      {"zynet3", NXC_SERVICE_TYPE_NAT, "\"NAT\" service is not configured for this vnet"},
      {"zynet8", NXC_SERVICE_TYPE_NAT, "NAT configuration file needed for the service does not exist"},
      {"zynet8", NXC_SERVICE_TYPE_DHCP,
       "DHCP configuration file needed for the service does not exist"},
      {"zynet9", NXC_SERVICE_TYPE_NETIFUP, "\"Netifup\" service is not configured for this vnet"},
      {nullptr, NXC_SERVICE_TYPE_NAT, "Invalid argument - vnet: (nil), serviceType: 34819"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.line);
    ClearLog();
    EXPECT_FALSE(NXC_StartService(c.vnet, c.type));
    EXPECT_TRUE(LogHas(c.line)) << LogText();
    EXPECT_FALSE(LogHas("Database file locking success"));  // refused before the lock
  }
  ASSERT_TRUE(NXC_VnetCfgAddAnswer("VNET_9_VIRTUAL_ADAPTER", "yes"));
  EXPECT_FALSE(NXC_StartService("zynet9", NXC_SERVICE_TYPE_NETIFUP));
  EXPECT_TRUE(LogHas("Subnet is not assigned, so service \"Netifup\" is invalid"));
}

TEST_F(ManageTest, DeviceNodesByName) {
  WriteDb("");
  ASSERT_TRUE(Load());
  ASSERT_TRUE(NXC_CreateZynetDevice("zynet5"));
  ASSERT_TRUE(NXC_DeleteZynetDevice("zynet5"));
  EXPECT_FALSE(FileExists("/dev/zynet5"));
  // A bad name is logged, and the file layer still gets the number.
  EXPECT_FALSE(NXC_DeleteZynetDevice("zynet300"));
  EXPECT_TRUE(LogHas("NXCCreateDeleteZynetDevice - Invalid vnet name: zynet300"));
  EXPECT_TRUE(LogHas("Failed to delete zynet device for zyet: zynet300"));
  UnloadAll();
  EXPECT_FALSE(NXC_CreateZynetDevice("zynet5"));  // refused while not loaded
  EXPECT_FALSE(FileExists("/dev/zynet5"));
}

TEST_F(ManageTest, DeletingAVnetIsRefusedWhileItRuns) {
  LoadTwoVnets();
  ASSERT_TRUE(NXC_StartService("zynet8", NXC_SERVICE_TYPE_NAT));
  ASSERT_TRUE(NXC_StartService("zynet8", NXC_SERVICE_TYPE_DHCP));
  ClearLog();
  EXPECT_FALSE(NXC_DeleteVnetFromDatabase("zynet8"));
  EXPECT_TRUE(LogHas("DHCP service is still running on this vnet Cannot delete config information"));
  EXPECT_TRUE(LogHas("NAT service is still running on this vnet Cannot delete config information"));
  EXPECT_TRUE(LogHas("NETIFUP service is not running on vnet: zynet8"));  // all are tested
  EXPECT_EQ(Answer("VNET_8_NAT"), "yes");

  ASSERT_TRUE(NXC_StopService("zynet8", NXC_SERVICE_TYPE_NAT));
  ASSERT_TRUE(NXC_StopService("zynet8", NXC_SERVICE_TYPE_DHCP));
  ASSERT_TRUE(NXC_CreateZynetDevice("zynet8"));
  ASSERT_TRUE(NXC_DeleteVnetFromDatabase("zynet8"));
  EXPECT_TRUE(LogHas("Vnet: zynet8 is successfully unconfigured"));
  for (const char *key : {"VNET_8_NAT", "VNET_8_DHCP"}) EXPECT_NE(Answer(key), "yes") << key;
  for (const char *key : {"VNET_8_HOSTONLY_SUBNET", "VNET_8_HOSTONLY_NETMASK"})
    EXPECT_EQ(Answer(key), "<absent>") << key;
  EXPECT_FALSE(FileExists("/etc/zymtra/zynet8/nat/nat.conf"));
  EXPECT_FALSE(FileExists("/etc/zymtra/zynet8/dhcpd/dhcpd.conf"));
  EXPECT_FALSE(FileExists("/dev/zynet8"));
  EXPECT_EQ(Answer("VNET_3_DHCP"), "yes");  // other vnets stay
}

TEST_F(ManageTest, CreateWithOverwriteKeepsTheOldDatabaseUnderTheNextFreeName) {
  WriteRawDb("VERSION=1,0\nanswer OLD 1\n");
  ASSERT_TRUE(WriteFile("/etc/zymtra/networking.bak.0", "x"));
  ASSERT_TRUE(WriteFile("/etc/zymtra/networking.bak.1", "y"));
  EXPECT_FALSE(NXC_CreateNetworkingDB(false));
  EXPECT_TRUE(LogHas("Existing networking configuration database must be deleted before creating new one"));
  ASSERT_TRUE(NXC_CreateNetworkingDB(true));
  EXPECT_EQ(DbText(), "VERSION=1,0\n");
  EXPECT_EQ(ReadFile("/etc/zymtra/networking.bak.2"), "VERSION=1,0\nanswer OLD 1\n");
  EXPECT_EQ(ReadFile("/etc/zymtra/networking.bak.1"), "y");
  EXPECT_TRUE(NXC_NetworkingDBExists());
  EXPECT_TRUE(NXC_CanReadNetworkingDB());

  ASSERT_TRUE(Load());
  EXPECT_FALSE(NXC_CreateNetworkingDB(true));
  EXPECT_FALSE(NXC_DeleteNetworkingDB());
  UnloadAll();
  ClearLog();
  ASSERT_TRUE(NXC_DeleteNetworkingDB());
  EXPECT_FALSE(NXC_NetworkingDBExists());
}

TEST_F(ManageTest, ExportAndImportThroughThePublicCalls) {
  WriteDb("answer VNET_1_DHCP yes\nadd_bridge_mapping eth0 1\n");
  ASSERT_TRUE(Load());
  char *text = NXC_ExportDatabaseToBuffer();
  ASSERT_NE(text, nullptr);
  std::string exported = text;
  free(text);
  EXPECT_NE(exported.find("answer VNET_1_DHCP yes\n"), std::string::npos);
  ASSERT_TRUE(NXC_ExportDatabaseToFile(nullptr));
  EXPECT_EQ(ReadFile("/tmp/networking_export"), "VERSION=1,0\n" + exported);

  ASSERT_TRUE(NXC_VnetCfgAddAnswer("VNET_1_DHCP", "no"));
  ASSERT_TRUE(NXC_ImportDatabaseFromFile(nullptr));
  EXPECT_TRUE(LogHas("Imported configration data from backup file: /tmp/networking_export"));
  EXPECT_EQ(Answer("VNET_1_DHCP"), "yes");

  // While not loaded, import works on the file alone.
  UnloadAll();
  ASSERT_TRUE(WriteFile("/tmp/other", "BACKUP_VERSION=1,0\nanswer VNET_2_NAT yes\n"));
  ASSERT_TRUE(NXC_ImportDatabaseFromFile("/tmp/other"));
  EXPECT_EQ(DbText(), "VERSION=1,0\nanswer VNET_2_NAT yes\n");
  EXPECT_FALSE(NXC_ImportDatabaseFromFile("/tmp/none"));
  EXPECT_TRUE(LogHas("Import file does not exist"));
}

TEST_F(ManageTest, MergeRestartsExactlyTheChangedVnetsDaemons) {
  LoadTwoVnets();
  ASSERT_TRUE(NXC_StartService("zynet8", NXC_SERVICE_TYPE_NAT));
  ASSERT_TRUE(NXC_StartService("zynet8", NXC_SERVICE_TYPE_DHCP));
  ASSERT_TRUE(NXC_StartService("zynet3", NXC_SERVICE_TYPE_DHCP));
  ASSERT_TRUE(NXC_StartService("zynet0", NXC_SERVICE_TYPE_BRIDGE));
  pid_t nat8 = Pid(kNat8), dhcp8 = Pid(kDhcp8), dhcp3 = Pid(kDhcp3), bridge0 = Pid(kBridge0);
  ASSERT_TRUE(nat8 && dhcp8 && dhcp3 && bridge0);

  // The same configuration: nothing is stopped or started.
  ASSERT_TRUE(NXC_ExportDatabaseToFile("/tmp/same"));
  ASSERT_TRUE(NXC_MergeDatabaseFromFile("/tmp/same"));
  ExpectPids(nat8, dhcp8, dhcp3, bridge0);

  // A port forward of vnet 8 changes: only vnet 8's daemons restart.
  std::string changed = ReadFile("/tmp/same") + "add_nat_portfwd 8 tcp 2222 192.168.8.20 22\n";
  ASSERT_TRUE(WriteFile("/tmp/changed", changed));
  ASSERT_TRUE(NXC_MergeDatabaseFromFile("/tmp/changed"));
  EXPECT_TRUE(WaitGone(nat8, 2000));
  EXPECT_TRUE(WaitGone(dhcp8, 2000));
  ExpectPids(Pid(kNat8), Pid(kDhcp8), dhcp3, bridge0);
  EXPECT_TRUE(Alive(Pid(kDhcp8)));
  EXPECT_EQ(NXC_GetServiceStatus("zynet8", NXC_SERVICE_TYPE_NAT), NXC_SERVICE_RUNNING);
  EXPECT_NE(ReadFile("/etc/zymtra/zynet8/nat/nat.conf").find("2222"), std::string::npos);
  EXPECT_NE(DbText().find("add_nat_portfwd 8 tcp 2222 192.168.8.20 22\n"), std::string::npos);
}

}  // namespace
}  // namespace nxc::test
