// journal_test.cpp - the database journal under real crashes, concurrent
// processes and threads, a full file system and hostile text: every
// acknowledged change is kept, and nothing else gets in.
//
// Writers are forked processes (the test process is not loaded when it
// forks) that report each acknowledged change through a pipe only after the
// call returned; the test then loads the database and compares.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/byte_buffer.h"
#include "netcfg/netcfg_priv.h"
#include "support/db_fixture.h"

namespace nxc::test {
namespace {

// ---- A writer killed at random moments ------------------------------------

constexpr uint32_t kSlots = 6;

// What a writer's changes built: "answer <key>", "forward <port>" and
// "mapping <mac>" to their values.
using State = std::map<std::string, std::string>;

std::string AnswerKey(uint32_t slot) { return "KILL_" + std::to_string(slot); }
uint16_t ForwardPort(uint32_t slot) { return static_cast<uint16_t>(2000 + slot); }
std::string MappingMac(uint32_t slot) { return "02:00:00:00:00:0" + std::to_string(slot); }

// The n-th change of round: a changed answer (a "remove_answer" and an
// "answer" record), a removed answer, a replaced port forward or a replaced
// DHCP mapping (a remove and an add record each), on a few slots so that
// almost every change replaces an earlier one.
struct Change { uint32_t kind; uint32_t slot; std::string value; };

Change NthChange(uint32_t round, uint32_t n) {
  Change c{n % 4, (n / 4 + round) % kSlots, ""};
  const std::string host = std::to_string(round % 250) + "." + std::to_string(n % 250 + 1);
  if (c.kind == 0) c.value = "r" + std::to_string(round) + " n" + std::to_string(n);
  if (c.kind == 2) c.value = "10.8." + host + ":" + std::to_string(n % 60000 + 1);
  if (c.kind == 3) c.value = "10.1." + host;
  return c;
}

void Apply(const Change &c, State *state) {
  switch (c.kind) {
    case 0: (*state)["answer " + AnswerKey(c.slot)] = c.value; break;
    case 1: state->erase("answer " + AnswerKey(c.slot)); break;
    case 2: (*state)["forward " + std::to_string(ForwardPort(c.slot))] = c.value; break;
    default: (*state)["mapping " + MappingMac(c.slot)] = c.value; break;
  }
}

bool Make(const Change &c) {
  const std::string key = AnswerKey(c.slot);
  switch (c.kind) {
    case 0: return NXCNetCfgAddAnswerString(nullptr, key.c_str(), c.value.c_str());
    case 1: return NXCNetCfgRemoveAnswer(nullptr, key.c_str());
    case 2: {
      const size_t colon = c.value.find(':');
      const std::string ip = c.value.substr(0, colon);
      const auto port = static_cast<uint16_t>(std::stoi(c.value.substr(colon + 1)));
      return NXCNetCfgAddNATPortFwd(nullptr, 8, true, ForwardPort(c.slot), ip.c_str(), port, "d",
                                    false);
    }
    default:
      return NXCNetCfgAddDHCPMACToIP(nullptr, 1, MappingMac(c.slot).c_str(), c.value.c_str(), false);
  }
}

// The slots' state in the loaded default cache.
State LoadedState() {
  State state;
  for (uint32_t slot = 0; slot < kSlots; ++slot) {
    const char *value = nullptr;
    if (NXCNetCfgGetAnswerString(nullptr, AnswerKey(slot).c_str(), &value))
      state["answer " + AnswerKey(slot)] = value;
    char ip[16];
    uint16_t port = 0;
    if (NXCNetCfgLookupNATPortFwd(nullptr, 8, true, ForwardPort(slot), ip, sizeof ip, &port,
                                  nullptr, 0))
      state["forward " + std::to_string(ForwardPort(slot))] =
          std::string(ip) + ":" + std::to_string(port);
    if (NXCNetCfgLookupDHCPMACToIP(nullptr, 1, MappingMac(slot).c_str(), ip, sizeof ip))
      state["mapping " + MappingMac(slot)] = ip;
  }
  return state;
}

// A forked writer: makes round's changes one after another, reporting the
// number of each acknowledged one on report, and unloads (a compact
// rewrite) and loads again every 40 changes. Runs until it is killed.
[[noreturn]] void KilledWriter(uint32_t round, int report) {
  if (!NXC_Load(0)) _exit(2);
  for (uint32_t n = 0;; ++n) {
    if (!Make(NthChange(round, n))) _exit(3);
    if (write(report, &n, sizeof n) != sizeof n) _exit(4);
    if (n % 40 == 39) {
      NXC_Unload();
      if (!NXC_Load(0)) _exit(2);
    }
  }
}

using JournalTest = DbTest;

TEST_F(JournalTest, KilledWritersLoseNoAcknowledgedChange) {
  WriteRawDb("VERSION=1,0\n");
  std::mt19937 random(13);
  State state;
  size_t acknowledged = 0, lost = 0;
  constexpr uint32_t kRounds = 60;
  for (uint32_t round = 0; round < kRounds; ++round) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    fflush(nullptr);
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      close(ends[0]);
      KilledWriter(round, ends[1]);
    }
    close(ends[1]);
    usleep(1000 + random() % 15000);
    ASSERT_EQ(kill(pid, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFSIGNALED(status)) << "writer ended by itself: " << WEXITSTATUS(status);
    uint32_t reported = 0, n = 0;
    while (read(ends[0], &n, sizeof n) == sizeof n) reported = n + 1;
    close(ends[0]);
    State expected = state;
    for (uint32_t i = 0; i < reported; ++i) Apply(NthChange(round, i), &expected);
    State inFlight = expected;
    Apply(NthChange(round, reported), &inFlight);
    acknowledged += reported;

    ASSERT_TRUE(Load(/*readOnly=*/true));
    state = LoadedState();
    UnloadAll(false);
    // Every acknowledged change is there; the one in flight may be too.
    const bool kept = state == expected || state == inFlight;
    EXPECT_TRUE(kept) << "round " << round << ": " << testing::PrintToString(state);
    lost += !kept;
  }
  ClearLog();
  ASSERT_TRUE(Load(true));
  EXPECT_EQ(LogCount("Failed to parse record"), 0) << LogText();
  printf("[ figures  ] %u kills: %zu acknowledged changes, %zu rounds lost a change\n", kRounds,
         acknowledged, lost);
}

// ---- Several writer processes ---------------------------------------------

// Runs procs forked writers at once, each setting n raw answers
// "P<p>_<i>", each one under the database lock when locked, and then
// unloading with or without the compact rewrite. Returns how many of those
// answers a fresh load finds.
int RunWriters(int procs, int n, bool locked, bool writeBack) {
  int start[2];
  if (pipe2(start, O_CLOEXEC) != 0) return -1;
  fflush(nullptr);
  std::vector<pid_t> pids;
  for (int p = 0; p < procs; ++p) {
    pid_t pid = fork();
    if (pid == 0) {
      close(start[1]);
      char c;
      (void)!read(start[0], &c, 1);  // all start together
      if (!NXC_Load(0)) _exit(2);
      for (int i = 0; i < n; ++i) {
        const std::string key = "P" + std::to_string(p) + "_" + std::to_string(i);
        if (locked && !NXCNetCfgLockConfig(nullptr)) _exit(3);
        if (!NXC_VnetCfgAddAnswer(key.c_str(), "v")) _exit(4);
        if (locked && !NXCNetCfgUnlockConfig(nullptr)) _exit(5);
      }
      NXC_Unload2(writeBack ? 1 : 0);
      _exit(0);
    }
    pids.push_back(pid);
  }
  close(start[0]);
  close(start[1]);
  bool allDone = true;
  for (pid_t pid : pids) {
    int status = 0;
    allDone = waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0 &&
              allDone;
  }
  if (!allDone || !NXC_Load(1)) return -1;
  int found = 0;
  for (int p = 0; p < procs; ++p) {
    for (int i = 0; i < n; ++i) {
      const std::string key = "P" + std::to_string(p) + "_" + std::to_string(i);
      const char *value = nullptr;
      found += NXCNetCfgGetAnswerString(nullptr, key.c_str(), &value) ? 1 : 0;
    }
  }
  NXC_Unload2(0);
  return found;
}

TEST_F(JournalTest, ConcurrentProcessesKeepEveryChange) {
  constexpr int kProcs = 8, kChanges = 1000;
  WriteRawDb("VERSION=1,0\n");
  int locked = RunWriters(kProcs, kChanges, /*locked=*/true, /*writeBack=*/true);
  EXPECT_EQ(locked, kProcs * kChanges);

  WriteRawDb("VERSION=1,0\n");
  ClearLog();
  int raw = RunWriters(kProcs, kChanges, /*locked=*/false, /*writeBack=*/false);
  EXPECT_EQ(raw, kProcs * kChanges);
  ClearLog();
  ASSERT_TRUE(Load(true));
  int torn = LogCount("Failed to parse record");
  EXPECT_EQ(torn, 0);
  printf("[ figures  ] %d processes x %d: %d kept with locked changes and unloads, %d kept and "
         "%d torn lines with unlocked appends\n",
         kProcs, kChanges, locked, raw, torn);
}

// ---- A full file system ----------------------------------------------------

// The records as the compact rewrite would write them.
std::string Records() {
  ByteBuffer buffer;
  EXPECT_FALSE(NetCfgWriteDatabaseToBuffer(gDefaultCache, &buffer));
  return buffer.Data();
}

TEST_F(JournalTest, FullDiskLeavesNoPartialRecordAndKeepsNoFailedChange) {
  // The last page of the database has 10 bytes left: every record written
  // there comes up short.
  WriteDb("answer K old\nadd_nat_portfwd 1 tcp 80 10.0.0.2 8080 old\n"
          "add_dhcp_mac_to_ip 1 00:00:00:00:00:01 10.0.0.5\nadd_bridge_mapping eth0 2\n"
          "add_nat_prefix 2 fd00::/64\n");
  FillDatabaseDisk(/*room=*/10);
  ASSERT_TRUE(Load());
  const std::string file = DbText(), records = Records();
  EXPECT_FALSE(NXCNetCfgAddAnswerString(nullptr, "K", "new"));
  EXPECT_TRUE(LogHas("Failed to remove: K from database file, error: No space left on device"));
  // The old value comes back in the cache alone: nothing of the change
  // reached the file, so nothing there needs undoing.
  EXPECT_FALSE(LogHas("Failed to restore previous values"));
  EXPECT_FALSE(NXCNetCfgAddAnswerString(nullptr, "NEW", "a value longer than ten bytes"));
  EXPECT_FALSE(NXCNetCfgRemoveAnswer(nullptr, "K"));
  EXPECT_TRUE(LogHas("Failed to remove \"K\" in database file"));
  EXPECT_EQ(Answer("K"), "old");

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
  EXPECT_EQ(Records(), records);
  char desc[128], ip[16];
  uint16_t port = 0;
  ASSERT_TRUE(NXCNetCfgLookupNATPortFwd(nullptr, 1, true, 80, ip, sizeof ip, &port, desc, sizeof desc));
  EXPECT_STREQ(desc, "old");

  // Prefixes are the exception: the cache keeps what could not be written.
  EXPECT_FALSE(NXCNetCfgAddNATPrefix(nullptr, 2, "fd01::/64", nullptr, 0));
  EXPECT_TRUE(LogHas("Failed to add prefix record"));
  EXPECT_TRUE(NXCNetCfgLookupNATPrefix(nullptr, 2, "fd01::/64"));
  EXPECT_FALSE(NXCNetCfgRemoveNATPrefix(nullptr, 2, "fd00::/64"));
  EXPECT_TRUE(LogHas("Failed to remove NAT prefix for fd00::/64 from database file, error: No "
                     "space left on device"));
  EXPECT_TRUE(NXCNetCfgLookupNATPrefix(nullptr, 2, "fd00::/64"));
  EXPECT_TRUE(DbText() == file);

  // With room again, the next record starts on a line of its own, and the
  // rewrite at unload saves none of the failed changes.
  ASSERT_EQ(unlink("/etc/zymtra/filler"), 0);
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "LATER", "x"));
  EXPECT_TRUE(DbText() == file + "answer LATER x\n");
  UnloadAll(true);
  ClearLog();
  ASSERT_TRUE(Load(true));
  EXPECT_EQ(LogCount("Failed to parse record"), 0);
  EXPECT_EQ(Answer("NEW") + Answer("K") + Answer("LATER"), "<absent>oldx");
  EXPECT_FALSE(NXCNetCfgLookupDHCPMACToIP(nullptr, 1, "00:00:00:00:00:02", ip, sizeof ip));
}

// ---- What a crash leaves, and another process's rewrite ----------------------

TEST_F(JournalTest, LoadCopesWithWhatACrashLeft) {
  const std::string longValue(5000, 'x');
  const std::string records = "VERSION=1,0\nanswer A 1\nanswer LONG " + longValue + "\n";
  WriteRawDb(records + "answer B 2");  // a writer died before the line's end
  ASSERT_TRUE(WriteFile("/etc/zymtra/.networking.Ab12Cd", "VERSION=1,0\n"));
  ASSERT_TRUE(WriteFile("/etc/zymtra/.networking.keep", "mine"));
  ASSERT_TRUE(Load());
  EXPECT_EQ(Answer("A"), "1");
  EXPECT_EQ(Answer("LONG"), longValue);  // read whole, however long
  EXPECT_EQ(Answer("B"), "<absent>");
  EXPECT_TRUE(LogHas("Failed to parse record at line #: 4, data: answer B 2"));
  EXPECT_FALSE(FileExists("/etc/zymtra/.networking.Ab12Cd"));  // an interrupted rewrite's
  EXPECT_TRUE(FileExists("/etc/zymtra/.networking.keep"));

  // The next change cuts the unfinished line instead of gluing onto it.
  ASSERT_TRUE(NXC_VnetCfgAddAnswer("C", "3"));
  EXPECT_TRUE(DbText() == records + "answer C 3\n");
}

TEST_F(JournalTest, AnotherProcessesRewriteIsFollowed) {
  WriteRawDb("VERSION=1,0\n");
  ASSERT_TRUE(Load());
  ASSERT_TRUE(NXC_VnetCfgAddAnswer("MINE1", "1"));
  struct stat before;
  ASSERT_EQ(stat(kDbPath, &before), 0);
  // The child starts from this process's state: it drops the inherited
  // cache and loads its own, changes it and unloads, renaming a new file in.
  EXPECT_EQ(RunInChild([] {
              NXC_Unload2(0);
              bool ok = NXC_Load(0) && NXC_VnetCfgAddAnswer("THEIRS", "2");
              NXC_Unload();
              return ok ? 0 : 1;
            }),
            0);
  struct stat after;
  ASSERT_EQ(stat(kDbPath, &after), 0);
  ASSERT_NE(before.st_ino, after.st_ino);
  ASSERT_TRUE(NXC_VnetCfgAddAnswer("MINE2", "3"));
  EXPECT_EQ(DbText(), "VERSION=1,0\nanswer MINE1 1\nanswer THEIRS 2\nanswer MINE2 3\n");
  UnloadAll(true);  // rewritten from the file, which holds both processes' changes
  EXPECT_EQ(DbText(), "VERSION=1,0\nanswer MINE1 1\nanswer MINE2 3\nanswer THEIRS 2\n");
}

// ---- Text that would forge records ---------------------------------------------

TEST_F(JournalTest, TextWithALineBreakAddsNoRecord) {
  LoadWith("answer VNET_8_HOSTONLY_SUBNET 192.168.8.0\nanswer VNET_8_HOSTONLY_NETMASK "
           "255.255.255.0\nanswer VNET_8_NAT yes\n");
  const std::string file = DbText(), cache = Records();
  const std::string desc = "desc\nadd_nat_portfwd 8 tcp 2323 6.6.6.6 23 injected";
  const std::string nat6 = "fd00::/64\n[incomingtcp]\n2222 = 10.9.9.9:22";
  const struct { const char *what; std::function<bool()> call; } attempts[] = {
      {"answer key", [] { return NXC_VnetCfgAddAnswer("K\nanswer VNET_8_NAT no", "v"); }},
      {"answer key", [] { return NXC_VnetCfgAddAnswer("K J", "v"); }},
      {"answer key", [] { return NXC_VnetCfgAddAnswer("", "v"); }},
      {"value of answer K", [] { return NXC_VnetCfgAddAnswer("K", "v\nanswer VNET_8_NAT no"); }},
      {"value of answer K", [] { return NXC_VnetCfgAddAnswer("K", ""); }},
      {"value of answer VNET_8_DISPLAY_NAME",
       [] { return NXC_SetVnetDisplayName("zynet8", "net\nanswer VNET_8_NAT no"); }},
      {"port forward description",
       [&] {
         return NXC_SetNATPortForward("zynet8", true, 7001, "192.168.8.128", 80, desc.c_str(),
                                      static_cast<uint32_t>(desc.size()));
       }},
      {"VM IP address",
       [] { return NXC_SetNATPortForward("zynet8", true, 7002, " 192.168.8.128", 80, nullptr, 0); }},
      {"value of answer VNET_8_NAT_PARAM_NAT6_PREFIX",
       [&] {
         return NXC_SetNATParam("zynet8", 9051, nat6.c_str(), static_cast<uint32_t>(nat6.size()));
       }},
      {"NAT prefix",
       [] { return NXC_SetNATPrefix("zynet8", "fd00::/64\nadd_nat_portfwd 8 tcp 2424 6.6.6.6 23",
                                    nullptr, 0); }},
      {"value of answer VNET_8_DHCP_PARAM_DOMAIN_NAME",
       [] { return NXCDHCPSetParameter(8, NXC_DHCP_PARAM_DOMAIN_NAME, "x\nanswer VNET_8_NAT no"); }},
      {"host adapter name",
       [] { return NXCSetBridgeMappingForAdapter("eth0\nadd_bridge_mapping eth9", 3); }},
      {"DHCP mapping IP address",
       [] {
         return NXCNetCfgAddDHCPMACToIP(nullptr, 8, "02:00:00:00:00:01", "192.168.8.9\nanswer X y",
                                        false);
       }},
  };
  for (const auto &a : attempts) {
    SCOPED_TRACE(a.what);
    ClearLog();
    EXPECT_FALSE(a.call());
    EXPECT_EQ(LogCount("Refusing "), 1) << LogText();
    EXPECT_EQ(LogCount(std::string("Refusing ") + a.what + ":"), 1) << LogText();
    EXPECT_EQ(DbText(), file);
    EXPECT_EQ(Records(), cache);
  }
  ASSERT_TRUE(NXCNATUpdateFromConfig(8));
  const std::string conf = ReadFile("/etc/zymtra/zynet8/nat/nat.conf");
  EXPECT_EQ(conf.find("10.9.9.9"), std::string::npos);
  EXPECT_EQ(conf.find("6.6.6.6"), std::string::npos);

  // A control character that came in with a hand-edited database stops at
  // the writer of nat.conf.
  Reload("answer VNET_8_HOSTONLY_SUBNET 192.168.8.0\nanswer VNET_8_HOSTONLY_NETMASK "
         "255.255.255.0\nanswer VNET_8_NAT yes\nanswer VNET_8_NAT_PARAM_NAT6_PREFIX fd00::/64\r\n");
  ASSERT_EQ(unlink("/etc/zymtra/zynet8/nat/nat.conf"), 0);
  EXPECT_FALSE(NXCNATUpdateFromConfig(8));
  EXPECT_TRUE(LogHas("Refusing NAT parameter \"natIp6Prefix\": it holds a line break"));
  EXPECT_FALSE(FileExists("/etc/zymtra/zynet8/nat/nat.conf"));
}

// ---- Threads -------------------------------------------------------------------

TEST_F(JournalTest, ThreadsMakeTheirCallsOneAtATime) {
  constexpr int kThreads = 4, kCalls = 400;
  WriteRawDb("VERSION=1,0\n");
  ASSERT_TRUE(Load());
  std::atomic<int> failed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failed] {
      for (int i = 0; i < kCalls; ++i) {
        const std::string key = "T" + std::to_string(t) + "_" + std::to_string(i);
        const auto port = static_cast<uint16_t>(1000 + t * kCalls + i);
        const char *value = nullptr;
        bool ok = NXC_Load(0) && NXC_VnetCfgAddAnswer(key.c_str(), "v") &&
                  NXC_SetNATPortForward("zynet8", true, port, "192.168.8.2", 80, nullptr, 0) &&
                  NXC_VnetCfgGetAnswer(key.c_str(), &value);
        NXC_Unload();
        if (!ok) ++failed;
      }
    });
  }
  for (std::thread &t : threads) t.join();
  EXPECT_EQ(failed, 0);
  UnloadAll(true);
  ASSERT_TRUE(Load(true));
  int answers = 0, forwards = 0;
  char ip[16];
  uint16_t vmPort = 0;
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kCalls; ++i) {
      answers += Answer("T" + std::to_string(t) + "_" + std::to_string(i)) == "v";
      const auto port = static_cast<uint16_t>(1000 + t * kCalls + i);
      forwards += NXCNetCfgLookupNATPortFwd(nullptr, 8, true, port, ip, sizeof ip, &vmPort, nullptr, 0);
    }
  }
  EXPECT_EQ(forwards, kThreads * kCalls);
  EXPECT_EQ(answers, kThreads * kCalls);
}

}  // namespace
}  // namespace nxc::test
