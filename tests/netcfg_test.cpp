// Networking configuration database: loading and its rejections, answers
// with write-through and rollback on real write failures, the compact
// rewrite, the file lock across processes, and the record families.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "base/byte_buffer.h"
#include "base/file_lock.h"
#include "netcfg/netcfg_priv.h"
#include "support/db_fixture.h"

namespace nxc::test {
namespace {

class NetCfgTest : public DbTest {
 protected:
  // Runs fn in a forked child and returns its exit status.
  template <class F>
  int InChild(F fn) {
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) _exit(fn());
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // Whether another process can lock the database file within 100 ms.
  bool OtherProcessCanLock() {
    return InChild([] {
             int err = 0;
             FileLock *lock = FileLockAcquire(kDbPath, 100, &err);
             if (!lock) return 1;
             (void)FileLockRelease(lock, &err);
             return 0;
           }) == 0;
  }
  // A full file system under /etc/zymtra holding the current database,
  // padded to a whole page so that every later append needs a new block and
  // fails with ENOSPC.
  void FillDatabaseFileSystem() {
    constexpr size_t kPage = 4096;
    constexpr size_t kPadOverhead = sizeof("answer PAD \n") - 1;
    std::string db = DbText();
    size_t room = kPage - db.size() % kPage;
    if (room <= kPadOverhead) room += kPage;
    db += "answer PAD " + std::string(room - kPadOverhead, 'p') + "\n";
    ASSERT_EQ(mount("tmpfs", "/etc/zymtra", "tmpfs", 0, "size=16k"), 0);
    ASSERT_TRUE(WriteFile(kDbPath, db));
    ASSERT_EQ(Shell("dd if=/dev/zero of=/etc/zymtra/filler bs=1k count=64 2>/dev/null"), 1);
  }
  std::string Records() {
    ByteBuffer buffer;
    EXPECT_FALSE(NetCfgWriteDatabaseToBuffer(gDefaultCache, &buffer));
    return buffer.Data();
  }
};

TEST_F(NetCfgTest, BadVersionLinesFailTheLoad) {
  struct Case {
    const char *content;
    const char *message;
  } cases[] = {
      {"", "NXCNetCfgLoad - Database file cannot be empty, aborting"},
      {"version=1,0\n", "Database file must have version number, aborting"},
      {"answer K v\n", "Database file must have version number, aborting"},
      {"VERSION=2,0\n", "Unsupported major version, supported: 1, actual: 2"},
      {"VERSION=1\n", "Cannot parse major version of database file, aborting parsing"},
      {"VERSION=-1,0\n", "Cannot parse major version of database file, aborting parsing"},
      {"VERSION=1,x\n", "Cannot parse or invalid minor version of database file, aborting parsing"},
      {"VERSION=1,-3\n", "Cannot parse or invalid minor version of database file, aborting parsing"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.content);
    ClearLog();
    WriteRawDb(c.content);
    EXPECT_FALSE(Load());
    EXPECT_TRUE(LogHas(c.message)) << LogText();
    EXPECT_TRUE(
        LogHas("Failed to load database cache with contents of file: /etc/zymtra/networking"));
    EXPECT_EQ(gDefaultCache, nullptr);
    if (nxcContext.logStream) fclose(nxcContext.logStream);
    nxcContext.logStream = nullptr;
  }
}

TEST_F(NetCfgTest, AnyMinorVersionAndMajorZeroLoad) {
  for (const char *version : {"VERSION=1,0\n", "VERSION=0,0\n", "VERSION=1,42\n", "VERSION=0x1,7\n"}) {
    SCOPED_TRACE(version);
    WriteRawDb(version);
    EXPECT_TRUE(Load());
    UnloadAll(false);
  }
}

TEST_F(NetCfgTest, MalformedRecordsAreSkippedWithTheirReasons) {
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
      "add_nat_prefix 3 fd00::/31\n");
  ASSERT_TRUE(Load());
  struct Expect {
    const char *line;
    const char *reason;
  } expected[] = {
      {"line #: 3, data: answer KEY", "Empty value for key"},
      {"line #: 5, data: remove_answer NEVER", "Failed to remove from hash table"},
      {"line #: 8, data: \n", nullptr},
      {"line #: 10, data: add_nat_portfwd 256", "Failed to extract vnet number or invalid vnet number"},
      {"line #: 11, data: add_nat_portfwd 8 sctp", "Failed to parse tcp/udp"},
      {"line #: 12, data: add_nat_portfwd 8 tcp 0", "Failed to parse host port"},
      {"line #: 13, data: add_nat_portfwd 8 tcp 80 10.0.0.256",
       "Failed to parse VM IP address or invalid address"},
      {"line #: 14, data: add_nat_portfwd 8 tcp 80 10.0.0.2 65536", "Failed to parse host port"},
      {"line #: 16, data: add_dhcp_mac_to_ip 1 00:0c:29:zz",
       "Failed to parse MAC address or invalid MAC address"},
      {"line #: 17, data: add_dhcp_mac_to_ip 1 0:c:29:a:b:1 10.0.0.9 ",
       "Failed to parse IP address or invalid IP address"},
      {"line #: 19, data: add_bridge_mapping eth0 -2",
       "Failed to parse vnet number or invalid vnet number"},
      {"line #: 21, data: add_nat_prefix 3 fd00::/31", "Failed to parse prefix or invalid prefix"},
  };
  for (const Expect &e : expected) {
    SCOPED_TRACE(e.line);
    EXPECT_TRUE(LogHas(std::string("NXCNetCfgLoad - Failed to parse record at ") + e.line));
    if (e.reason) EXPECT_TRUE(LogHas(e.reason));
  }
  EXPECT_EQ(LogCount("Failed to parse record at line"), static_cast<int>(std::size(expected)));
  EXPECT_TRUE(LogHas("Discarding description since it is too long"));
  EXPECT_EQ(Answer("KEY"), "<absent>");
  EXPECT_EQ(Answer("SPACED"), "a b");
  EXPECT_EQ(Answer("UPPER"), "v");
  EXPECT_EQ(Answer("IGNORED"), "<absent>");
  EXPECT_EQ(Records(),
            "answer NXC_LOGLEVEL 0x7f\nanswer SPACED a b\nanswer UPPER v\n"
            "add_nat_portfwd 8 udp 53 10.0.0.2 5353\n"
            "add_dhcp_mac_to_ip 1 00:0C:29:0A:0B:01 10.0.0.9\n"
            "add_bridge_mapping eth1 -1\n");
}

TEST_F(NetCfgTest, JournalReplaysAddsAndRemovesInOrder) {
  WriteDb(
      "answer A 1\nanswer A 2\nremove_answer B\nanswer B x\nremove_answer B\n"
      "add_nat_portfwd 8 tcp 8080 192.168.56.10 80 web server\n"
      "add_nat_portfwd 8 tcp 8081 192.168.56.11 81\n"
      "remove_nat_portfwd 8 tcp 8081\n"
      "add_bridge_mapping eth0 2\nremove_bridge_mapping eth0\nadd_bridge_mapping eth0 3\n"
      "add_nat_prefix 4 fd00::/64\nadd_nat_prefix 4 fd01::/64\nremove_nat_prefix 4 fd00::/64\n");
  ASSERT_TRUE(Load());
  EXPECT_EQ(Answer("A"), "2");
  EXPECT_EQ(Answer("B"), "<absent>");
  char ip[16];
  char desc[128];
  uint16_t port = 0;
  ASSERT_TRUE(NXCNetCfgLookupNATPortFwd(nullptr, 8, true, 8080, ip, sizeof ip, &port, desc,
                                        sizeof desc));
  EXPECT_STREQ(ip, "192.168.56.10");
  EXPECT_EQ(port, 80);
  EXPECT_STREQ(desc, "web server");
  EXPECT_FALSE(NXCNetCfgLookupNATPortFwd(nullptr, 8, true, 8081, ip, sizeof ip, &port, nullptr, 0));
  int32_t vnet = 0;
  ASSERT_TRUE(NXCNetCfgLookupVnetForHostAdapter(nullptr, "eth0", &vnet));
  EXPECT_EQ(vnet, 3);
  EXPECT_FALSE(NXCNetCfgLookupNATPrefix(nullptr, 4, "fd00::/64"));
  EXPECT_TRUE(NXCNetCfgLookupNATPrefix(nullptr, 4, "fd01::/64"));
}

TEST_F(NetCfgTest, LegacyBackupIsReadFromItsFirstLine) {
  TempDir dir;
  std::string path = dir.File("legacy");
  ASSERT_TRUE(WriteFile(path, "answer FIRST 1\nanswer SECOND 2\n"));
  NXCNetworkConfigurationDB *db = nullptr;
  ASSERT_TRUE(NXCNetCfgLoad(path.c_str(), &db, /*backup=*/true, /*readOnly=*/true));
  const char *value = nullptr;
  ASSERT_TRUE(NXCNetCfgGetAnswerString(db, "FIRST", &value));
  EXPECT_STREQ(value, "1");
  EXPECT_EQ(db->major, 0u);
  EXPECT_TRUE(NXCNetCfgIsReadOnly(db));
  EXPECT_TRUE(NXCNetCfgUnload(&db, false));
  EXPECT_EQ(db, nullptr);

  ASSERT_TRUE(WriteFile(path, "BACKUP_VERSION=1,3\nanswer K v\n"));
  ASSERT_TRUE(NXCNetCfgLoad(path.c_str(), &db, true, true));
  EXPECT_EQ(db->minor, 3u);
  EXPECT_TRUE(db->backup);
  (void)NXCNetCfgUnload(&db, false);
}

TEST_F(NetCfgTest, CheckVersionAcceptsOnlyDatabaseFiles) {
  TempDir dir;
  struct Case {
    const char *content;
    bool valid;
  } cases[] = {{"VERSION=1,0\n", true},
               {"VERSION=1,9\nanswer K v\n", true},
               {"BACKUP_VERSION=1,0\n", false},
               {"VERSION=3,0\n", false},
               {"", false}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.content);
    ASSERT_TRUE(WriteFile(dir.File("db"), c.content));
    EXPECT_EQ(NXCNetCfgCheckVersion(dir.File("db").c_str()), c.valid);
  }
  EXPECT_FALSE(NXCNetCfgCheckVersion(dir.File("missing").c_str()));
}

TEST_F(NetCfgTest, BindirComesFromTheProductConfigAndIsNeverWritten) {
  ASSERT_TRUE(WriteFile("/etc/zymtra/config", "bindir = \"/opt/zymtra/bin\"\n"));
  WriteDb("answer BINDIR /stale\n");
  ASSERT_TRUE(Load());
  EXPECT_EQ(Answer("BINDIR"), "/opt/zymtra/bin");
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "OTHER", "x"));
  UnloadAll(true);
  EXPECT_EQ(DbText(), "VERSION=1,0\nanswer NXC_LOGLEVEL 0x7f\nanswer OTHER x\n");
}

TEST_F(NetCfgTest, MissingProductConfigOnlyWarns) {
  WriteDb("");
  ASSERT_TRUE(Load());
  EXPECT_TRUE(LogHas("Failed to load product config file: /etc/zymtra/config, error:"));
  ASSERT_TRUE(WriteFile("/etc/zymtra/config", "other = \"1\"\n"));
  UnloadAll(false);
  ASSERT_TRUE(Load());
  EXPECT_TRUE(LogHas("Value not found for bindir"));
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
  EXPECT_EQ(DbText(), base +
                          "remove_answer K\nanswer K old\n"
                          "answer N -5\n"
                          "answer FLAG yes\n"
                          "answer k lower\n"
                          "remove_answer K\n");
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

TEST_F(NetCfgTest, FailedAppendKeepsTheOldValueAndFile) {
  WriteDb("answer K old\n");
  FillDatabaseFileSystem();
  ASSERT_TRUE(Load());
  std::string before = DbText();
  EXPECT_FALSE(NXCNetCfgAddAnswerString(nullptr, "K", "new"));
  EXPECT_EQ(Answer("K"), "old");
  EXPECT_TRUE(LogHas("Failed to remove: K from database file, error: No space left on device"));
  EXPECT_TRUE(LogHas("Failed to restore previous values K:old"));
  EXPECT_FALSE(NXCNetCfgRemoveAnswer(nullptr, "K"));
  EXPECT_EQ(Answer("K"), "old");
  EXPECT_TRUE(LogHas("Failed to remove \"K\" in database file"));
  EXPECT_EQ(DbText(), before);
}

TEST_F(NetCfgTest, FailedAppendUndoesRecordChanges) {
  WriteDb("add_nat_portfwd 1 tcp 80 10.0.0.2 8080 old\nadd_dhcp_mac_to_ip 1 00:00:00:00:00:01 10.0.0.5\n"
          "add_bridge_mapping eth0 2\n");
  FillDatabaseFileSystem();
  ASSERT_TRUE(Load());
  std::string before = Records();
  EXPECT_FALSE(NXCNetCfgAddNATPortFwd(nullptr, 1, true, 80, "10.0.0.3", 22, nullptr, false));
  EXPECT_TRUE(LogHas("Failed to remove port forward record for tcp port 80"));
  EXPECT_FALSE(NXCNetCfgAddNATPortFwd(nullptr, 1, false, 53, "10.0.0.3", 53, nullptr, false));
  EXPECT_TRUE(LogHas("Failed to add port forward record for udp port 53"));
  EXPECT_FALSE(NXCNetCfgRemoveNATPortFwd(nullptr, 1, true, 80));
  EXPECT_FALSE(NXCNetCfgAddDHCPMACToIP(nullptr, 1, "00:00:00:00:00:01", "10.0.0.6", false));
  EXPECT_FALSE(NXCNetCfgAddDHCPMACToIP(nullptr, 1, "00:00:00:00:00:02", "10.0.0.7", false));
  EXPECT_FALSE(NXCNetCfgRemoveDHCPMACToIP(nullptr, 1, "00:00:00:00:00:01"));
  EXPECT_FALSE(NXCNetCfgAddHostAdapterMapping(nullptr, "eth0", 3, false));
  EXPECT_FALSE(NXCNetCfgAddHostAdapterMapping(nullptr, "eth9", 3, false));
  EXPECT_FALSE(NXCNetCfgRemoveHostAdapterMapping(nullptr, "eth0"));
  EXPECT_EQ(Records(), before);
  char desc[128];
  char ip[16];
  uint16_t port = 0;
  ASSERT_TRUE(NXCNetCfgLookupNATPortFwd(nullptr, 1, true, 80, ip, sizeof ip, &port, desc, sizeof desc));
  EXPECT_STREQ(desc, "old");
}

TEST_F(NetCfgTest, FailedPrefixAppendKeepsThePrefixInTheCache) {
  WriteDb("add_nat_prefix 2 fd00::/64\n");
  FillDatabaseFileSystem();
  ASSERT_TRUE(Load());
  EXPECT_FALSE(NXCNetCfgAddNATPrefix(nullptr, 2, "fd01::/64", nullptr, 0));
  EXPECT_TRUE(LogHas("Failed to add prefix record"));
  EXPECT_TRUE(NXCNetCfgLookupNATPrefix(nullptr, 2, "fd01::/64"));
  EXPECT_FALSE(NXCNetCfgRemoveNATPrefix(nullptr, 2, "fd00::/64"));
  EXPECT_TRUE(LogHas("Failed to remove NAT prefix for fd00::/64 from database file, error: No space left on device"));
  EXPECT_TRUE(NXCNetCfgLookupNATPrefix(nullptr, 2, "fd00::/64"));
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
}

TEST_F(NetCfgTest, UnchangedDatabaseIsNotRewritten) {
  WriteDb("answer B 1\nremove_answer B\n");
  std::string before = DbText();
  ASSERT_TRUE(Load());
  UnloadAll(true);
  EXPECT_EQ(DbText(), before);
}

TEST_F(NetCfgTest, ChangedDatabaseReloadsToTheSameContents) {
  WriteDb("answer A 1\nadd_nat_portfwd 3 udp 5000 10.1.1.1 5001 d e s c\n");
  ASSERT_TRUE(Load());
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "VNET_3_DHCP", "yes"));
  ASSERT_TRUE(NXCNetCfgAddDHCPMACToIP(nullptr, 3, "02:00:00:00:00:01", "10.1.1.7", false));
  ASSERT_TRUE(NXCNetCfgAddHostAdapterMapping(nullptr, "eth0", 3, false));
  std::string records = Records();
  UnloadAll(true);
  ASSERT_TRUE(Load());
  EXPECT_EQ(Records(), records);
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
  int err = 0;
  EXPECT_EQ(FileLockAcquire(kDbPath, 50, &err), nullptr);  // in-process too
  EXPECT_EQ(err, 0);
  ASSERT_TRUE(NXCNetCfgUnlockConfig(nullptr));
  EXPECT_TRUE(LogHas("Config file unlocking success"));
  EXPECT_TRUE(OtherProcessCanLock());
  EXPECT_TRUE(NXCNetCfgUnlockConfig(nullptr));
  EXPECT_TRUE(LogHas("Config file is not currently locked"));
}

TEST_F(NetCfgTest, LockTimesOutWhileAnotherProcessHoldsIt) {
  WriteDb("");
  ASSERT_TRUE(Load());
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  fflush(nullptr);
  pid_t holder = fork();
  if (holder == 0) {
    int err = 0;
    FileLock *lock = FileLockAcquire(kDbPath, 100, &err);
    (void)!write(ready[1], lock ? "1" : "0", 1);
    sleep(10);
    _exit(0);
  }
  char c = 0;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  ASSERT_EQ(c, '1');
  EXPECT_FALSE(NXCNetCfgLockConfig(nullptr));  // waits the full 3.5 s
  EXPECT_TRUE(LogHas("Failed to lock config file, file: /etc/zymtra/networking, error: timed out"));
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  close(ready[0]);
  close(ready[1]);
}

TEST_F(NetCfgTest, UnlockAlwaysReleasesTheDefaultCachesLock) {
  WriteDb("");
  ASSERT_TRUE(Load());
  TempDir dir;
  std::string other = dir.File("other");
  ASSERT_TRUE(WriteFile(other, "VERSION=1,0\n"));
  NXCNetworkConfigurationDB *db = nullptr;
  ASSERT_TRUE(NXCNetCfgLoad(other.c_str(), &db, false, false));
  ASSERT_TRUE(NXCNetCfgLockConfig(nullptr));
  ASSERT_TRUE(NXCNetCfgLockConfig(db));
  // Unlocking the other cache releases the default cache's lock instead.
  ASSERT_TRUE(NXCNetCfgUnlockConfig(db));
  EXPECT_TRUE(OtherProcessCanLock());
  EXPECT_NE(db->lock, nullptr);
  (void)NXCNetCfgUnload(&db, false);
}

TEST_F(NetCfgTest, PortForwardReplaceEnumerateAndRemove) {
  WriteDb("");
  ASSERT_TRUE(Load());
  std::string base = DbText();
  ASSERT_TRUE(NXCNetCfgAddNATPortFwd(nullptr, 5, true, 80, "10.0.5.2", 8080, "a", false));
  ASSERT_TRUE(NXCNetCfgAddNATPortFwd(nullptr, 5, true, 80, "10.0.5.3", 8081, nullptr, false));
  EXPECT_EQ(DbText(), base +
                          "add_nat_portfwd 5 tcp 80 10.0.5.2 8080 a\n"
                          "remove_nat_portfwd 5 tcp 80\n"
                          "add_nat_portfwd 5 tcp 80 10.0.5.3 8081\n");
  ASSERT_TRUE(NXCNetCfgAddNATPortFwd(nullptr, 5, true, 81, "10.0.5.4", 81, "abcd", false));

  uint32_t index = 0;
  uint16_t hostPort = 0;
  uint16_t vmPort = 0;
  char ip[16];
  char desc[8];
  size_t descSize = sizeof desc;
  ASSERT_TRUE(NXCNetCfgEnumNATPortFwd(nullptr, 5, true, &index, &hostPort, ip, sizeof ip, &vmPort,
                                      desc, &descSize));
  EXPECT_EQ(hostPort, 80);
  EXPECT_EQ(descSize, 0u);  // no description
  descSize = 5;             // "abcd" needs more than its length + 1
  EXPECT_FALSE(NXCNetCfgEnumNATPortFwd(nullptr, 5, true, &index, &hostPort, ip, sizeof ip, &vmPort,
                                       desc, &descSize));
  EXPECT_TRUE(LogHas("Insufficient buffer length for description"));
  EXPECT_EQ(index, 1u);
  descSize = 6;
  ASSERT_TRUE(NXCNetCfgEnumNATPortFwd(nullptr, 5, true, &index, &hostPort, ip, sizeof ip, &vmPort,
                                      desc, &descSize));
  EXPECT_STREQ(desc, "abcd");
  EXPECT_EQ(descSize, 6u);
  EXPECT_FALSE(NXCNetCfgEnumNATPortFwd(nullptr, 5, true, &index, &hostPort, ip, sizeof ip, &vmPort,
                                       nullptr, nullptr));
  EXPECT_TRUE(LogHas("No ports to enumerate"));

  // A change rebuilds the array.
  ASSERT_TRUE(NXCNetCfgRemoveNATPortFwd(nullptr, 5, true, 81));
  index = 0;
  ASSERT_TRUE(NXCNetCfgEnumNATPortFwd(nullptr, 5, true, &index, &hostPort, ip, sizeof ip, &vmPort,
                                      nullptr, nullptr));
  EXPECT_EQ(hostPort, 80);
  EXPECT_STREQ(ip, "10.0.5.3");
  EXPECT_FALSE(NXCNetCfgEnumNATPortFwd(nullptr, 5, true, &index, &hostPort, ip, sizeof ip, &vmPort,
                                       nullptr, nullptr));
  EXPECT_FALSE(NXCNetCfgEnumNATPortFwd(nullptr, 5, false, &index, &hostPort, ip, sizeof ip, &vmPort,
                                       nullptr, nullptr));
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
  ASSERT_TRUE(NXCNetCfgAddDHCPMACToIP(nullptr, 7, "0:c:29:a:b:1", "10.7.0.10", false));
  char ip[16];
  ASSERT_TRUE(NXCNetCfgLookupDHCPMACToIP(nullptr, 7, "00:0C:29:0A:0B:01", ip, sizeof ip));
  EXPECT_STREQ(ip, "10.7.0.10");
  ASSERT_TRUE(NXCNetCfgAddDHCPMACToIP(nullptr, 7, "00:0c:29:0a:0b:01", "10.7.0.11", false));
  EXPECT_TRUE(LogHas("DHCP entry already exists, deleting existing entry"));
  uint32_t index = 0;
  char mac[18];
  ASSERT_TRUE(NXCNetCfgEnumDHCPMACToIP(nullptr, 7, &index, mac, sizeof mac, ip, sizeof ip));
  EXPECT_STREQ(mac, "00:0C:29:0A:0B:01");
  EXPECT_STREQ(ip, "10.7.0.11");
  EXPECT_FALSE(NXCNetCfgEnumDHCPMACToIP(nullptr, 7, &index, mac, sizeof mac, ip, sizeof ip));
  EXPECT_TRUE(LogHas("No mappings to enumerate"));
  ASSERT_TRUE(NXCNetCfgRemoveDHCPMACToIP(nullptr, 7, "00:0C:29:0A:0B:01"));
  EXPECT_FALSE(NXCNetCfgLookupDHCPMACToIP(nullptr, 7, "00:0C:29:0A:0B:01", ip, sizeof ip));
  EXPECT_TRUE(LogHas("Cannot find mapping for MAC: 00:0C:29:0A:0B:01 in hash:"));
  EXPECT_NE(DbText().find("add_dhcp_mac_to_ip 7 00:0C:29:0A:0B:01 10.7.0.10\n"
                          "remove_dhcp_mac_to_ip 7 00:0C:29:0A:0B:01\n"
                          "add_dhcp_mac_to_ip 7 00:0C:29:0A:0B:01 10.7.0.11\n"
                          "remove_dhcp_mac_to_ip 7 00:0C:29:0A:0B:01\n"),
            std::string::npos);
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
    uint32_t count = 99;
    NXC_HostAdapter *list = nullptr;
    ASSERT_TRUE(NXCNetCfgLookupHostAdaptersForVnet(nullptr, c.vnet, &count, &list, c.exclude));
    std::string names;
    uint32_t n = 0;
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
  ASSERT_TRUE(NXCNetCfgAddNATPrefix(nullptr, 1, "fd00::/64", "desc", 4));
  std::string after = DbText();
  ASSERT_TRUE(NXCNetCfgAddNATPrefix(nullptr, 1, "fd00::/64", nullptr, 0));
  EXPECT_EQ(DbText(), after);
  ClearLog();
  EXPECT_FALSE(NXCNetCfgRemoveNATPrefix(nullptr, 1, "fd99::/64"));
  EXPECT_EQ(LogText(), "");
  ASSERT_TRUE(NXCNetCfgRemoveNATPrefix(nullptr, 1, "fd00::/64"));
  EXPECT_NE(DbText().find("add_nat_prefix 1 fd00::/64\nremove_nat_prefix 1 fd00::/64\n"),
            std::string::npos);
}

TEST_F(NetCfgTest, LibraryDescriptorsAreNotInheritedByPrograms) {
  WriteDb("");
  ASSERT_TRUE(Load());
  ASSERT_TRUE(NXCNetCfgLockConfig(nullptr));
  ASSERT_EQ(Shell("ls -l /proc/self/fd/ > /tmp/fds"), 0);
  std::string fds = ReadFile("/tmp/fds");
  EXPECT_EQ(fds.find("networking"), std::string::npos) << fds;
  EXPECT_EQ(fds.find("nexcfg"), std::string::npos) << fds;
  ASSERT_TRUE(NXCNetCfgUnlockConfig(nullptr));
}

}  // namespace
}  // namespace nxc::test
