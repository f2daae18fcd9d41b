// Database export and import: the round trip, cleaning of unknown answers,
// the upgrade of legacy backups, and imports that are refused or fail
// half-way.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "netcfg/netcfg_priv.h"
#include "support/db_fixture.h"

namespace nxc::test {
namespace {

constexpr char kBackupPath[] = "/tmp/networking_export";

class ImportTest : public DbTest {
 protected:
  std::string Records() {
    char *text = nullptr;
    size_t length = 0;
    EXPECT_TRUE(NXCNetCfgExportConfigToBuffer(nullptr, &text, &length, true));
    std::string out(text ? text : "");
    EXPECT_EQ(out.size(), length);
    free(text);
    return out;
  }
  bool Import(const std::string &backupText) {
    EXPECT_TRUE(WriteFile(kBackupPath, backupText));
    return NXCNetCfgImportConfig(kBackupPath, kDbPath);
  }
};

TEST_F(ImportTest, ExportThenImportRoundTrips) {
  WriteDb("answer VNET_1_DHCP yes\nadd_nat_portfwd 1 tcp 80 10.0.1.2 8080 web\n"
          "add_dhcp_mac_to_ip 1 02:00:00:00:00:01 10.0.1.9\nadd_bridge_mapping eth0 -1\n");
  ASSERT_TRUE(Load());
  std::string exported = Records();
  ASSERT_TRUE(NXCNetCfgExportConfig(nullptr, kBackupPath, /*backup=*/true));
  EXPECT_EQ(ReadFile(kBackupPath), "BACKUP_VERSION=1,0\n" + exported);
  std::string before = DbText();

  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "VNET_1_DHCP", "no"));
  ASSERT_TRUE(NXCNetCfgRemoveNATPortFwd(nullptr, 1, true, 80));
  ASSERT_TRUE(NXCNetCfgImportConfig(kBackupPath, kDbPath));
  EXPECT_TRUE(LogHas("Source and destination database versions are same"));
  EXPECT_TRUE(LogHas("Renamed database file: /etc/zymtra/networking to: /etc/zymtra/networking.bak.0"));
  // The live cache is loaded again and matches the imported file.
  EXPECT_EQ(Records(), exported);
  EXPECT_EQ(DbText(), "VERSION=1,0\n" + exported);
  std::string kept = ReadFile("/etc/zymtra/networking.bak.0");
  EXPECT_EQ(kept.substr(0, before.size()), before);
  EXPECT_NE(kept.find("answer VNET_1_DHCP no\n"), std::string::npos);
}

TEST_F(ImportTest, ExportPutsAnswersInTheByteOrderOfTheirKeys) {
  // Keys alike in their first 24 bytes and more, one the start of another,
  // bytes above 0x7f, and enough of them that the sort splits them into
  // groups by their bytes before it compares.
  std::vector<std::string> keys = {"A", "AB", "B\xc3\xa9", "B~", "Bz"};
  for (int i = 0; i < 60; ++i) {
    keys.push_back("VNET_" + std::to_string(i % 12) + "_DHCP_PARAM_LEASE_" + std::to_string(i));
    keys.push_back("VNET_" + std::to_string(i % 12) + "_DHCP_PARAM_LEASE_" + std::to_string(i) + "X");
  }
  keys.push_back("VNET_1_DHCP_PARAM_LEASE_START_IP");
  keys.push_back("VNET_1_DHCP_PARAM_LEASE_END_IP");
  std::string records;
  for (size_t i = 0; i < keys.size(); ++i)
    records += "answer " + keys[(i * 7) % keys.size()] + " v\n";  // 7 is prime to the count
  WriteDb(records);
  ASSERT_TRUE(Load());
  std::sort(keys.begin(), keys.end());  // byte-wise, as unsigned bytes
  std::string expected;
  for (const std::string &key : keys) expected += "answer " + key + " v\n";
  std::string exported = Records();
  const size_t level = exported.find("answer NXC_LOGLEVEL ");  // the fixture's own
  if (level != std::string::npos) exported.erase(level, exported.find('\n', level) + 1 - level);
  EXPECT_EQ(exported, expected);
}

TEST_F(ImportTest, UnknownAnswersAreDropped) {
  WriteDb("");
  ASSERT_TRUE(Load());
  ASSERT_TRUE(Import("BACKUP_VERSION=1,0\n"
                     "answer FOO bar\nanswer VNET_1_BOGUS x\nanswer VNET_300_DHCP yes\n"
                     "answer VNET_x_DHCP yes\nanswer vnet_1_dhcp yes\nanswer VNET_1_DHCP yes\n"
                     "answer VNET_2_NAT_PARAM_NAT6_PREFIX fd00::/64\n"
                     "answer NXC_DEFAULT_BRIDGE_VNET -1\nanswer NXC_LOGLEVELS 1\n"));
  EXPECT_EQ(Records(),
            "answer NXC_DEFAULT_BRIDGE_VNET -1\nanswer VNET_1_DHCP yes\n"
            "answer VNET_2_NAT_PARAM_NAT6_PREFIX fd00::/64\n");
  EXPECT_TRUE(LogHas("Deleting record - FOO:bar from backup cache"));
  EXPECT_TRUE(LogHas("Failed to parse vnet number in record: VNET_300_DHCP, deleting record"));
  EXPECT_TRUE(LogHas("Failed to parse vnet number in record: VNET_x_DHCP, deleting record"));
}

TEST_F(ImportTest, LegacyBackupIsUpgraded) {
  WriteDb("");
  ASSERT_TRUE(Load());
  ASSERT_TRUE(Import("answer VNET_2_HOSTONLY_HOSTADDR 192.168.5.7\n"
                     "answer VNET_2_HOSTONLY_NETMASK 255.255.255.192\n"
                     "answer VNET_3_HOSTONLY_HOSTADDR 10.1.2.3\n"
                     "answer VNET_4_HOSTONLY_HOSTADDR not-an-address\n"
                     "answer VNET_2_INTERFACE eth0\n"
                     "answer VNET_02_DISPLAY_NAME Legacy two\n"
                     "answer VNET_5_DISPLAY_NAME lost\n"));
  EXPECT_TRUE(LogHas("Version line not found in database file, defaulting to legacy version"));
  EXPECT_TRUE(LogHas("Updated database fields"));
  EXPECT_EQ(Records(),
            "answer VNET_2_DISPLAY_NAME Legacy two\n"
            "answer VNET_2_HOSTONLY_NETMASK 255.255.255.192\n"
            "answer VNET_2_HOSTONLY_SUBNET 192.168.5.0\n"
            "answer VNET_2_VIRTUAL_ADAPTER yes\n"
            "answer VNET_2_VIRTUAL_ADAPTER_ADDR 192.168.5.7\n"
            "answer VNET_3_HOSTONLY_SUBNET 10.1.2.0\n"
            "answer VNET_3_VIRTUAL_ADAPTER yes\n"
            "answer VNET_3_VIRTUAL_ADAPTER_ADDR 10.1.2.3\n"
            "answer VNET_4_VIRTUAL_ADAPTER yes\n"
            "answer VNET_4_VIRTUAL_ADAPTER_ADDR not-an-address\n"
            "add_bridge_mapping eth0 2\n");
}

TEST_F(ImportTest, RefusedOrFailedImportKeepsThePreviousDatabaseAndCache) {
  WriteDb("answer VNET_1_DHCP yes\n");
  ASSERT_TRUE(Load());
  std::string before = DbText();
  EXPECT_FALSE(NXCNetCfgImportConfig("/tmp/missing", kDbPath));
  EXPECT_TRUE(LogHas("Failed to parse and load configuration data from backup file: /tmp/missing"));
  EXPECT_FALSE(Import("BACKUP_VERSION=2,0\nanswer VNET_1_DHCP no\n"));
  EXPECT_EQ(DbText(), before);
  EXPECT_EQ(Answer("VNET_1_DHCP"), "yes");

  // A full file system: moving the database aside works, writing the new
  // one does not.
  UnloadAll(false);
  FillDatabaseDisk();
  ASSERT_TRUE(Load());
  before = DbText();
  std::string records = Records();
  EXPECT_FALSE(Import("BACKUP_VERSION=1,0\nanswer VNET_1_DHCP no\n"));
  EXPECT_TRUE(LogHas("Failed to write to database file: /etc/zymtra/networking"));
  EXPECT_TRUE(LogHas("Restored database file during error handling"));
  EXPECT_EQ(DbText(), before);
  EXPECT_EQ(Records(), records);
  EXPECT_FALSE(FileExists("/etc/zymtra/networking.bak.0"));
}

}  // namespace
}  // namespace nxc::test
