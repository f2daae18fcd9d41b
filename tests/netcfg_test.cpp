// Networking configuration database: loading and its rejections, answers
// written through at once, the compact rewrite, the file lock across
// processes, and the record families. Failed writes on a full disk are in
// journal_test.cpp.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "base/byte_buffer.h"
#include "netcfg/netcfg_priv.h"
#include "support/db_fixture.h"

namespace nxc::test {
namespace {

class NetCfgTest : public DbTest {
 protected:
  static bool OtherProcessCanLock() { return LockFromOtherProcess(kDbPath) == 0; }
  // The records as the compact rewrite would write them.
  static std::string Records() {
    ByteBuffer buffer;
    EXPECT_FALSE(NetCfgWriteDatabaseToBuffer(gDefaultCache, &buffer));
    return buffer.Data();
  }
  // True when text was appended to the database file since base.
  bool Appended(const std::string &base, const std::string &text) const {
    return DbText() == base + text;
  }
};

TEST_F(NetCfgTest, VersionLineDecidesWhetherTheDatabaseLoads) {
  constexpr char kMajor[] = "Cannot parse major version of database file, aborting parsing";
  constexpr char kMinor[] =
      "Cannot parse or invalid minor version of database file, aborting parsing";
  constexpr char kNone[] = "Database file must have version number, aborting";
  struct Case {
    const char *content;
    const char *message;  // null: loads
  } cases[] = {
      {"VERSION=1,0\n", nullptr},  {"VERSION=0,0\n", nullptr},
      {"VERSION=1,42\n", nullptr}, {"VERSION=0x1,7\n", nullptr},
      {"", "NXCNetCfgLoad - Database file cannot be empty, aborting"},
      {"version=1,0\n", kNone},    {"answer K v\n", kNone},
      {"VERSION=2,0\n", "Unsupported major version, supported: 1, actual: 2"},
      {"VERSION=1\n", kMajor},     {"VERSION=-1,0\n", kMajor},
      {"VERSION=1,x\n", kMinor},   {"VERSION=1,-3\n", kMinor},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.content);
    ClearLog();
    WriteRawDb(c.content);
    EXPECT_EQ(Load(), c.message == nullptr);
    if (c.message) {
      EXPECT_TRUE(LogHas(c.message)) << LogText();
      EXPECT_TRUE(
          LogHas("Failed to load database cache with contents of file: /etc/zymtra/networking"));
      EXPECT_EQ(gDefaultCache, nullptr);
      if (nxcContext.logStream) fclose(nxcContext.logStream);
      nxcContext.logStream = nullptr;
    }
    UnloadAll(false);
  }

  // The check made before an import takes only current database files.
  TempDir dir;
  const std::pair<const char *, bool> checks[] = {{"VERSION=1,0\n", true},
                                                  {"VERSION=1,9\nanswer K v\n", true},
                                                  {"BACKUP_VERSION=1,0\n", false},
                                                  {"VERSION=3,0\n", false},
                                                  {"", false}};
  for (const auto &[content, valid] : checks) {
    ASSERT_TRUE(WriteFile(dir.File("db"), content));
    EXPECT_EQ(NXCNetCfgCheckVersion(dir.File("db").c_str()), valid) << content;
  }
  EXPECT_FALSE(NXCNetCfgCheckVersion(dir.File("missing").c_str()));
}

TEST_F(NetCfgTest, MalformedRecordsAreLeftOutWithTheirReasons) {
  WriteDb(
      "answer KEY\n"
      "answer SPACED a b\n"
      "remove_answer NEVER\n"
      "ANSWER UPPER v\n"
      "answers IGNORED v\n"
      "\n"
      "# not a comment\n"
      "add_nat_portfwd 256 tcp 80 10.0.0.2 80\n"
      "add_nat_portfwd 8 sctp 80 10.0.0.2 80\n"
      "add_nat_portfwd 8 tcp 0 10.0.0.2 80\n"
      "add_nat_portfwd 8 tcp 80 10.0.0.256 80\n"
      "add_nat_portfwd 8 tcp 80 10.0.0.2 65536\n"
      "add_nat_portfwd 8 UDP 53 10.0.0.2 5353 " + std::string(128, 'd') + "\n"
      "add_dhcp_mac_to_ip 1 00:0c:29:zz:00:01 10.0.0.9\n"
      "add_dhcp_mac_to_ip 1 0:c:29:a:b:1 10.0.0.9 \n"
      "add_dhcp_mac_to_ip 1 0:c:29:a:b:1 10.0.0.9\n"
      "add_bridge_mapping eth0 -2\n"
      "add_bridge_mapping eth1 -1\n"
      "add_nat_prefix 3 fd00::/31\n"
      "add_nat_portfwd 8 ucp 80 10.0.0.2 80\n");
  ASSERT_TRUE(Load());
  struct Expect { const char *line; const char *reason; } expected[] = {
      {"3, data: answer KEY", "Empty value for key"},
      {"5, data: remove_answer NEVER", "Failed to remove from hash table"},
      {"8, data: \n", nullptr},
      {"10, data: add_nat_portfwd 256", "Failed to extract vnet number or invalid vnet number"},
      {"11, data: add_nat_portfwd 8 sctp", "Failed to parse tcp/udp"},
      {"12, data: add_nat_portfwd 8 tcp 0", "Failed to parse host port"},
      {"13, data: add_nat_portfwd 8 tcp 80 10.0.0.256",
       "Failed to parse VM IP address or invalid address"},
      {"14, data: add_nat_portfwd 8 tcp 80 10.0.0.2 65536", "Failed to parse host port"},
      {"16, data: add_dhcp_mac_to_ip 1 00:0c:29:zz",
       "Failed to parse MAC address or invalid MAC address"},
      {"17, data: add_dhcp_mac_to_ip 1 0:c:29:a:b:1 10.0.0.9 ",
       "Failed to parse IP address or invalid IP address"},
      {"19, data: add_bridge_mapping eth0 -2", "Failed to parse vnet number or invalid vnet number"},
      {"21, data: add_nat_prefix 3 fd00::/31", "Failed to parse prefix or invalid prefix"},
      {"22, data: add_nat_portfwd 8 ucp", "Failed to parse tcp/udp"},
  };
  for (const Expect &e : expected) {
    SCOPED_TRACE(e.line);
    EXPECT_TRUE(LogHas(std::string("NXCNetCfgLoad - Failed to parse record at line #: ") + e.line));
    EXPECT_TRUE(!e.reason || LogHas(e.reason));
  }
  EXPECT_EQ(LogCount("Failed to parse record at line"), static_cast<int>(std::size(expected)));
  EXPECT_TRUE(LogHas("Discarding description since it is too long"));
  EXPECT_EQ(Records(),
            "answer NXC_LOGLEVEL 0x7f\nanswer SPACED a b\nanswer UPPER v\n"
            "add_dhcp_mac_to_ip 1 00:0C:29:0A:0B:01 10.0.0.9\n"
            "add_nat_portfwd 8 udp 53 10.0.0.2 5353\n"
            "add_bridge_mapping eth1 -1\n");
}

TEST_F(NetCfgTest, JournalReplaysAddsAndRemovesInOrder) {
  // A value longer than the blocks most entries share replaces another.
  const std::string longValue(6000, 'w');
  WriteDb(
      "answer L " + std::string(5000, 'v') + "\nanswer L " + longValue + "\n" +
      "answer A 1\nanswer A 2\nremove_answer B\nanswer B x\nremove_answer B\n"
      "add_nat_portfwd 8 tcp 8080 192.168.56.10 80 web server\n"
      "add_nat_portfwd 8 tcp 8081 192.168.56.11 81\n"
      "remove_nat_portfwd 8 tcp 8081\n"
      "add_bridge_mapping eth0 2\nremove_bridge_mapping eth0\nadd_bridge_mapping eth0 3\n"
      "add_nat_prefix 4 fd00::/64\nadd_nat_prefix 4 fd01::/64\nremove_nat_prefix 4 fd00::/64\n");
  ASSERT_TRUE(Load());
  EXPECT_EQ(Answer("A"), "2");
  EXPECT_EQ(Answer("B"), "<absent>");
  EXPECT_EQ(Answer("L"), longValue);
  char ip[16], desc[128];
  uint16_t port = 0;
  ASSERT_TRUE(NXCNetCfgLookupNATPortFwd(nullptr, 8, true, 8080, ip, sizeof ip, &port, desc,
                                        sizeof desc));
  EXPECT_EQ(std::string(ip) + ":" + std::to_string(port) + " " + desc, "192.168.56.10:80 web server");
  EXPECT_FALSE(NXCNetCfgLookupNATPortFwd(nullptr, 8, true, 8081, ip, sizeof ip, &port, nullptr, 0));
  int32_t vnet = 0;
  ASSERT_TRUE(NXCNetCfgLookupVnetForHostAdapter(nullptr, "eth0", &vnet));
  EXPECT_EQ(vnet, 3);
  EXPECT_FALSE(NXCNetCfgLookupNATPrefix(nullptr, 4, "fd00::/64"));
  EXPECT_TRUE(NXCNetCfgLookupNATPrefix(nullptr, 4, "fd01::/64"));
}

TEST_F(NetCfgTest, BindirComesFromTheProductConfigAndIsNeverWritten) {
  WriteDb("");
  ASSERT_TRUE(Load());
  EXPECT_TRUE(LogHas("Failed to load product config file: /etc/zymtra/config, error:"));
  UnloadAll(false);
  ASSERT_TRUE(WriteFile("/etc/zymtra/config", "other = \"1\"\n"));
  ASSERT_TRUE(Load());
  EXPECT_TRUE(LogHas("Value not found for bindir"));
  UnloadAll(false);

  ASSERT_TRUE(WriteFile("/etc/zymtra/config", "bindir = \"/opt/zymtra/bin\"\n"));
  WriteDb("answer BINDIR /stale\n");
  ASSERT_TRUE(Load());
  EXPECT_EQ(Answer("BINDIR"), "/opt/zymtra/bin");
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "OTHER", "x"));
  UnloadAll(true);
  EXPECT_EQ(DbText(), std::string(kDbHeader) + "answer OTHER x\n");
}

TEST_F(NetCfgTest, EveryAnswerChangeIsAppendedAtOnce) {
  WriteDb("answer K old\n");
  ASSERT_TRUE(Load());
  std::string base = DbText();
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "K", "old"));  // same value: still written
  ASSERT_TRUE(NXCNetCfgAddAnswerInt32(nullptr, "N", -5));
  ASSERT_TRUE(NXCNetCfgRemoveAnswer(nullptr, "ABSENT"));
  ASSERT_TRUE(NXCNetCfgAddAnswerBool(nullptr, "FLAG", false));  // absent counts as "no"
  ASSERT_TRUE(NXCNetCfgAddAnswerBool(nullptr, "FLAG", true));
  ASSERT_TRUE(NXCNetCfgAddAnswerBool(nullptr, "FLAG", true));
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "k", "lower"));
  ASSERT_TRUE(NXCNetCfgRemoveAnswer(nullptr, "K"));
  EXPECT_TRUE(Appended(base, "remove_answer K\nanswer K old\nanswer N -5\nanswer FLAG yes\n"
                             "answer k lower\nremove_answer K\n"))
      << DbText();
  int32_t n = 0;
  bool flag = false;
  EXPECT_TRUE(NXCNetCfgGetAnswerInt32(nullptr, "N", &n));
  EXPECT_EQ(n, -5);
  EXPECT_TRUE(NXCNetCfgGetAnswerBool(nullptr, "FLAG", &flag));
  EXPECT_TRUE(flag);
  EXPECT_FALSE(NXCNetCfgGetAnswerInt32(nullptr, "k", &n));
  EXPECT_TRUE(LogHas("Failed to convert value to integer: k = lower"));
  EXPECT_FALSE(NXCNetCfgGetAnswerInt32(nullptr, "K", &n));
  EXPECT_TRUE(LogHas("Value not found for key: K"));
}

// A vnet's static leases keep the order of its table through a rewrite,
// however many there are.
TEST_F(NetCfgTest, RewriteKeepsTheTableOrderOfManyLeases) {
  std::string leases;
  for (int i = 40; i > 20; --i)
    leases += "add_dhcp_mac_to_ip 3 00:00:00:00:00:" + std::to_string(i) + " 10.0.3." +
              std::to_string(i) + "\n";
  WriteDb(leases);
  ASSERT_TRUE(Load());
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "CHANGED", "yes"));
  UnloadAll(true);
  EXPECT_NE(DbText().find(leases), std::string::npos) << DbText();
}

TEST_F(NetCfgTest, UnloadRewritesCompactlyInFixedOrder) {
  WriteDb("answer ZETA z\nanswer ALPHA a\n");
  ASSERT_TRUE(WriteFile("/etc/zymtra/config", "bindir = \"/bin\"\n"));
  ASSERT_EQ(chmod(kDbPath, 0640), 0);
  ASSERT_TRUE(Load());
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "MID", "m m"));
  ASSERT_TRUE(NXCNetCfgRemoveAnswer(nullptr, "ZETA"));
  ASSERT_TRUE(NXCNetCfgAddNATPortFwd(nullptr, 9, false, 53, "10.0.9.2", 53, nullptr, false));
  ASSERT_TRUE(NXCNetCfgAddNATPortFwd(nullptr, 9, true, 443, "10.0.9.2", 8443, "tls", false));
  ASSERT_TRUE(NXCNetCfgAddNATPortFwd(nullptr, 9, true, 22, "10.0.9.3", 22, nullptr, false));
  ASSERT_TRUE(NXCNetCfgAddNATPortFwd(nullptr, 2, true, 80, "10.0.2.2", 80, nullptr, false));
  ASSERT_TRUE(NXCNetCfgAddDHCPMACToIP(nullptr, 9, "aa:bb:cc:dd:ee:ff", "10.0.9.50", false));
  ASSERT_TRUE(NXCNetCfgAddHostAdapterMapping(nullptr, "eth1", 4, false));
  ASSERT_TRUE(NXCNetCfgAddHostAdapterMapping(nullptr, "eth0", 4, false));
  ASSERT_TRUE(NXCNetCfgAddHostAdapterMapping(nullptr, "wlan0", -1, false));
  ASSERT_TRUE(NXCNetCfgAddNATPrefix(nullptr, 9, "fd00::/64", nullptr, 0));
  EXPECT_NE(DbText().find("add_nat_prefix 9 fd00::/64\n"), std::string::npos);
  UnloadAll(true);
  EXPECT_EQ(DbText(),
            "VERSION=1,0\n"
            "answer ALPHA a\nanswer MID m m\nanswer NXC_LOGLEVEL 0x7f\n"
            "add_nat_portfwd 2 tcp 80 10.0.2.2 80\n"
            "add_nat_portfwd 9 tcp 22 10.0.9.3 22\n"
            "add_nat_portfwd 9 tcp 443 10.0.9.2 8443 tls\n"
            "add_nat_portfwd 9 udp 53 10.0.9.2 53\n"
            "add_dhcp_mac_to_ip 9 AA:BB:CC:DD:EE:FF 10.0.9.50\n"
            "add_bridge_mapping wlan0 -1\n"
            "add_bridge_mapping eth0 4\nadd_bridge_mapping eth1 4\n");
  struct stat st;
  ASSERT_EQ(stat(kDbPath, &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_EQ(Shell("ls -A /etc/zymtra | grep -q networking."), 1);  // no temporary file left

  // What is rewritten loads to the same records; an unchanged journal is
  // left as it is.
  WriteDb("answer A 1\nadd_nat_portfwd 3 udp 5000 10.1.1.1 5001 d e s c\n");
  ASSERT_TRUE(Load());
  ASSERT_TRUE(NXCNetCfgAddDHCPMACToIP(nullptr, 3, "02:00:00:00:00:01", "10.1.1.7", false));
  std::string records = Records();
  UnloadAll(true);
  ASSERT_TRUE(Load());
  EXPECT_EQ(Records(), records);
  UnloadAll(true);
  WriteDb("answer B 1\nremove_answer B\n");
  std::string before = DbText();
  ASSERT_TRUE(Load());
  UnloadAll(true);
  EXPECT_EQ(DbText(), before);
}

TEST_F(NetCfgTest, LockExcludesOtherProcessesUntilUnlocked) {
  WriteDb("");
  ASSERT_TRUE(Load());
  EXPECT_TRUE(OtherProcessCanLock());  // the load released its lock
  ASSERT_TRUE(NXCNetCfgLockConfig(nullptr));
  EXPECT_TRUE(LogHas("Database file locking success"));
  EXPECT_FALSE(OtherProcessCanLock());
  EXPECT_FALSE(NXCNetCfgLockConfig(nullptr));
  EXPECT_TRUE(LogHas("NXCNetCfgLockConfig - Database file is already locked"));
  ASSERT_TRUE(NXCNetCfgUnlockConfig(nullptr));
  EXPECT_TRUE(LogHas("Config file unlocking success"));
  EXPECT_TRUE(OtherProcessCanLock());
  EXPECT_TRUE(NXCNetCfgUnlockConfig(nullptr));
  EXPECT_TRUE(LogHas("Config file is not currently locked"));

  // Unlocking another cache releases the default cache's lock instead.
  TempDir dir;
  ASSERT_TRUE(WriteFile(dir.File("other"), "VERSION=1,0\n"));
  NXCNetworkConfigurationDB *db = nullptr;
  ASSERT_TRUE(NXCNetCfgLoad(dir.File("other").c_str(), &db, false, false));
  ASSERT_TRUE(NXCNetCfgLockConfig(nullptr));
  ASSERT_TRUE(NXCNetCfgLockConfig(db));
  ASSERT_TRUE(NXCNetCfgUnlockConfig(db));
  EXPECT_TRUE(OtherProcessCanLock());
  EXPECT_NE(db->lock, nullptr);
  (void)NXCNetCfgUnload(&db, false);

  // Programs the library runs through the shell (the ping program) inherit
  // neither the database nor the log; daemons close every descriptor anyway.
  ASSERT_TRUE(NXCNetCfgLockConfig(nullptr));
  std::string fds = CommandOutput("ls -l /proc/self/fd/");
  EXPECT_EQ(fds.find("networking"), std::string::npos) << fds;
  EXPECT_EQ(fds.find("nexcfg"), std::string::npos) << fds;
  ASSERT_TRUE(NXCNetCfgUnlockConfig(nullptr));
}

TEST_F(NetCfgTest, PortForwardReplaceEnumerateAndRemove) {
  WriteDb("");
  ASSERT_TRUE(Load());
  std::string base = DbText();
  ASSERT_TRUE(NXCNetCfgAddNATPortFwd(nullptr, 5, true, 80, "10.0.5.2", 8080, "a", false));
  ASSERT_TRUE(NXCNetCfgAddNATPortFwd(nullptr, 5, true, 80, "10.0.5.3", 8081, nullptr, false));
  EXPECT_TRUE(Appended(base, "add_nat_portfwd 5 tcp 80 10.0.5.2 8080 a\nremove_nat_portfwd 5 tcp 80\n"
                             "add_nat_portfwd 5 tcp 80 10.0.5.3 8081\n"));
  ASSERT_TRUE(NXCNetCfgAddNATPortFwd(nullptr, 5, true, 81, "10.0.5.4", 81, "abcd", false));

  uint32_t index = 0;
  uint16_t hostPort = 0, vmPort = 0;
  char ip[16], desc[8];
  size_t descSize = sizeof desc;
  auto next = [&](bool tcp, bool withDesc) {
    return NXCNetCfgEnumNATPortFwd(nullptr, 5, tcp, &index, &hostPort, ip, sizeof ip, &vmPort,
                                   withDesc ? desc : nullptr, withDesc ? &descSize : nullptr);
  };
  ASSERT_TRUE(next(true, true));
  EXPECT_EQ(hostPort, 80);
  EXPECT_EQ(descSize, 0u);  // no description
  descSize = 5;             // "abcd" needs more than its length + 1
  EXPECT_FALSE(next(true, true));
  EXPECT_TRUE(LogHas("Insufficient buffer length for description"));
  EXPECT_EQ(index, 1u);
  descSize = 6;
  ASSERT_TRUE(next(true, true));
  EXPECT_STREQ(desc, "abcd");
  EXPECT_EQ(descSize, 6u);
  EXPECT_FALSE(next(true, false));
  EXPECT_TRUE(LogHas("No ports to enumerate"));

  // A change rebuilds the array.
  ASSERT_TRUE(NXCNetCfgRemoveNATPortFwd(nullptr, 5, true, 81));
  index = 0;
  ASSERT_TRUE(next(true, false));
  EXPECT_EQ(hostPort, 80);
  EXPECT_STREQ(ip, "10.0.5.3");
  EXPECT_FALSE(next(true, false));
  EXPECT_FALSE(next(false, false));
  EXPECT_TRUE(LogHas("List of forwarded ports is empty"));

  char small[8];
  EXPECT_FALSE(NXCNetCfgLookupNATPortFwd(nullptr, 5, true, 80, small, sizeof small, &vmPort,
                                         nullptr, 0));
  EXPECT_TRUE(LogHas("Insufficient buffer length: 8 for IP address: 10.0.5.3"));
  ASSERT_TRUE(NXCNetCfgRemoveAllNATPortFwd(nullptr, 5, true, true, true));
  EXPECT_NE(DbText().find("remove_nat_portfwd 5 tcp 81\nremove_nat_portfwd 5 tcp 80\n"),
            std::string::npos);
  EXPECT_FALSE(NXCNetCfgLookupNATPortFwd(nullptr, 5, true, 80, ip, sizeof ip, &vmPort, nullptr, 0));
  EXPECT_TRUE(LogHas("List of NAT forwarded ports is empty"));
}

TEST_F(NetCfgTest, DhcpMappingsUseCanonicalMacs) {
  WriteDb("");
  ASSERT_TRUE(Load());
  std::string base = DbText();
  ASSERT_TRUE(NXCNetCfgAddDHCPMACToIP(nullptr, 7, "0:c:29:a:b:1", "10.7.0.10", false));
  char ip[16], mac[18];
  ASSERT_TRUE(NXCNetCfgLookupDHCPMACToIP(nullptr, 7, "00:0C:29:0A:0B:01", ip, sizeof ip));
  EXPECT_STREQ(ip, "10.7.0.10");
  ASSERT_TRUE(NXCNetCfgAddDHCPMACToIP(nullptr, 7, "00:0c:29:0a:0b:01", "10.7.0.11", false));
  EXPECT_TRUE(LogHas("DHCP entry already exists, deleting existing entry"));
  uint32_t index = 0;
  ASSERT_TRUE(NXCNetCfgEnumDHCPMACToIP(nullptr, 7, &index, mac, sizeof mac, ip, sizeof ip));
  EXPECT_EQ(std::string(mac) + "=" + ip, "00:0C:29:0A:0B:01=10.7.0.11");
  EXPECT_FALSE(NXCNetCfgEnumDHCPMACToIP(nullptr, 7, &index, mac, sizeof mac, ip, sizeof ip));
  EXPECT_TRUE(LogHas("No mappings to enumerate"));
  ASSERT_TRUE(NXCNetCfgRemoveDHCPMACToIP(nullptr, 7, "00:0C:29:0A:0B:01"));
  EXPECT_FALSE(NXCNetCfgLookupDHCPMACToIP(nullptr, 7, "00:0C:29:0A:0B:01", ip, sizeof ip));
  EXPECT_TRUE(LogHas("Cannot find mapping for MAC: 00:0C:29:0A:0B:01 in hash:"));
  EXPECT_TRUE(Appended(base, "add_dhcp_mac_to_ip 7 00:0C:29:0A:0B:01 10.7.0.10\n"
                             "remove_dhcp_mac_to_ip 7 00:0C:29:0A:0B:01\n"
                             "add_dhcp_mac_to_ip 7 00:0C:29:0A:0B:01 10.7.0.11\n"
                             "remove_dhcp_mac_to_ip 7 00:0C:29:0A:0B:01\n"));
}

TEST_F(NetCfgTest, BridgeMappingsListByVnet) {
  WriteDb("add_bridge_mapping eth0 1\nadd_bridge_mapping eth1 2\nadd_bridge_mapping eth2 1\n");
  ASSERT_TRUE(Load());
  std::string base = DbText();
  ASSERT_TRUE(NXCNetCfgAddHostAdapterMapping(nullptr, "eth0", 1, false));
  EXPECT_EQ(DbText(), base);  // same vnet: nothing written
  EXPECT_TRUE(LogHas("New and old value vnet in the configuration are same: 1 for adapter: eth0"));

  struct Case {
    int32_t vnet;
    bool exclude;
    const char *names;
  } cases[] = {{1, false, "eth0,eth2,"}, {1, true, "eth1,"}, {-100, false, "eth0,eth1,eth2,"},
               {3, false, ""}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.vnet);
    uint32_t count = 99, n = 0;
    NXC_HostAdapter *list = nullptr;
    ASSERT_TRUE(NXCNetCfgLookupHostAdaptersForVnet(nullptr, c.vnet, &count, &list, c.exclude));
    std::string names;
    for (NXC_HostAdapter *a = list; a; a = a->next, ++n) {
      names += std::string(a->mappingName) + ",";
      EXPECT_STREQ(a->name, a->mappingName);
      EXPECT_EQ(a->version, 1u);
    }
    EXPECT_EQ(names, c.names);
    EXPECT_EQ(count, n);
    NXCFreeHostAdapList(&list);
  }
  ASSERT_TRUE(NXCNetCfgRemoveHostAdapterMapping(nullptr, "eth1"));
  int32_t vnet = 0;
  EXPECT_FALSE(NXCNetCfgLookupVnetForHostAdapter(nullptr, "eth1", &vnet));
  EXPECT_TRUE(LogHas("Cannot find mapping for adapter: eth1 in hash:"));
  EXPECT_FALSE(NXCNetCfgRemoveHostAdapterMapping(nullptr, "eth1"));
}

TEST_F(NetCfgTest, NatPrefixesAddOnceAndRemoveQuietly) {
  WriteDb("");
  ASSERT_TRUE(Load());
  std::string base = DbText();
  ASSERT_TRUE(NXCNetCfgAddNATPrefix(nullptr, 1, "fd00::/64", "desc", 4));
  ASSERT_TRUE(NXCNetCfgAddNATPrefix(nullptr, 1, "fd00::/64", nullptr, 0));
  ClearLog();
  EXPECT_FALSE(NXCNetCfgRemoveNATPrefix(nullptr, 1, "fd99::/64"));
  EXPECT_EQ(LogText(), "");
  ASSERT_TRUE(NXCNetCfgRemoveNATPrefix(nullptr, 1, "fd00::/64"));
  EXPECT_TRUE(Appended(base, "add_nat_prefix 1 fd00::/64\nremove_nat_prefix 1 fd00::/64\n"));
}

}  // namespace
}  // namespace nxc::test
