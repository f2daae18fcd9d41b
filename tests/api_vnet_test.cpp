// api_vnet_test.cpp - the public calls on a vnet's attributes, driven as a
// caller drives them: through nexcfg.h on a database written by the test.
//
// Runs in the private sandbox. Calls that build the process-wide subnet
// tables (assignment, probing, removing a subnet) run in a forked child,
// which starts from empty tables and reports back through a file.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "nexcfg.h"
#include "support/daemons.h"
#include "support/db_fixture.h"

namespace nxc::test {
namespace {

using V = std::vector<std::string>;

// True when nobody, this process included, holds the database lock.
bool LockIsFree() { return LockFromOtherProcess(kDbPath, 0) == 0; }

using ApiVnetTest = DaemonTest;

// ---- Getters ---------------------------------------------------------------

using Getter = bool (*)(const char *, char *, uint32_t *);
bool AdapterAddr(const char *v, char *b, uint32_t *l) { return NXC_GetVnetAdapterAddr(v, b, l, false); }
bool AdapterAddrComputed(const char *v, char *b, uint32_t *l) {
  return NXC_GetVnetAdapterAddr(v, b, l, true);
}

TEST_F(ApiVnetTest, GettersCheckCapacityFirstAndLeaveTheLengthAloneOnFailure) {
  const std::string name127(127, 'n');
  LoadWith("answer VNET_1_DISPLAY_NAME abc\nanswer VNET_2_DISPLAY_NAME " + name127 +
           "\nanswer VNET_3_DISPLAY_NAME " + name127 + "x\n"
           "answer VNET_1_HOSTONLY_SUBNET 192.168.1.0\nanswer VNET_2_HOSTONLY_SUBNET "
           "192.168.100.100\nanswer VNET_1_HOSTONLY_NETMASK 255.255.255.0\n"
           "answer VNET_1_VIRTUAL_ADAPTER_ADDR 10.20.30.1\n");
  struct Case {
    const char *name;
    Getter get;
    const char *vnet;
    uint32_t capacity;
    const char *value;  // nullptr: the call fails
    uint32_t length;    // after the call
    const char *logLine;
  } const cases[] = {
      {"name: the length leaves the NUL out", NXC_GetVnetDisplayName, "zynet1", 128, "abc", 3,
       "Retrieved display name: abc, len: 3"},
      {"name: 127 bytes need the minimum", NXC_GetVnetDisplayName, "zynet2", 128, name127.c_str(),
       127, "len: 127"},
      {"name: too long for the buffer", NXC_GetVnetDisplayName, "zynet3", 128, nullptr, 128,
       "Failure in getting display name"},
      {"name: below the minimum", NXC_GetVnetDisplayName, "zynet1", 127, nullptr, 127,
       "Invalid argument - vnet: "},
      {"subnet: the length counts the NUL", NXC_GetVnetSubnetAddr, "zynet1", 16, "192.168.1.0", 12,
       "Retrieved subnet address: 192.168.1.0, len: 12"},
      {"subnet: 15 characters fill the minimum", NXC_GetVnetSubnetAddr, "ZYNET2", 16,
       "192.168.100.100", 16, "len: 16"},
      {"subnet: below the minimum", NXC_GetVnetSubnetAddr, "zynet1", 15, nullptr, 15,
       "Invalid argument - vnet: "},
      {"subnet: not a vnet", NXC_GetVnetSubnetAddr, "zynet256", 16, nullptr, 16,
       "Invalid vnet name: zynet256"},
      {"mask: below the minimum", NXC_GetVnetSubnetMask, "zynet1", 8, nullptr, 8,
       "Invalid argument - vnet: "},
      {"adapter: stored", AdapterAddr, "zynet1", 16, "10.20.30.1", 11,
       "Retrieved adapter address: 10.20.30.1, len: 11"},
      {"adapter: computed from the subnet", AdapterAddrComputed, "zynet2", 16, "192.168.100.101",
       16, "len: 16"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    ClearLog();
    char buf[300] = "untouched";
    uint32_t length = c.capacity;
    EXPECT_EQ(c.get(c.vnet, buf, &length), c.value != nullptr);
    EXPECT_STREQ(buf, c.value ? c.value : "untouched");
    EXPECT_EQ(length, c.length);
    EXPECT_TRUE(LogHas(c.logLine)) << LogText();
  }
  // A NULL count is traced and refused as 0.
  char buf[16];
  EXPECT_FALSE(NXC_GetVnetSubnetAddr("zynet1", buf, nullptr));
  EXPECT_TRUE(LogHas(", sz:(nil),0"));
  EXPECT_TRUE(LogHas(", addrLen:(nil),0"));
}

// ---- Setters ---------------------------------------------------------------

TEST_F(ApiVnetTest, SettersRefuseBadValuesBeforeTheLockAndWaitForAValidOne) {
  LoadWith("answer VNET_1_HOSTONLY_SUBNET 10.1.0.0\n");
  const std::string before = DbText();
  LockHolder other(kDbPath);
  ASSERT_TRUE(other.held());
  struct Case { const char *name; std::function<bool()> call; const char *logLine; } const cases[] = {
      {"subnet", [] { return NXC_SetVnetSubnetAddr("zynet1", "10.1.0"); },
       "NXC_SetVnetSubnetAddr - Subnet address is not valid: 10.1.0"},
      {"mask", [] { return NXC_SetVnetSubnetMask("zynet1", "255.0.255.0"); },
       "NXC_SetVnetSubnetMask - Specified mask is not valid"},
      {"adapter", [] { return NXC_SetVnetAdapterAddr("zynet1", "10.1.0.256"); },
       "NXC_SetVnetAdapterAddr - Invalid adapter IP address: 10.1.0.256"},
      {"vnet name", [] { return NXC_SetVnetMTU("zynet", 1500); },
       "NXC_SetVnetMTU - Invalid vnet name: zynet"},
      {"null vnet", [] { return NXC_RemoveMTU(nullptr); },
       "NXC_RemoveMTU - Invalid argument - vnet: (nil)"},
      {"prefix without length", [] { return NXC_SetNATPrefix("zynet1", "fd00::", nullptr, 0); },
       "NXC_SetNATPrefix - Invalid prefix: fd00::"},
      {"description of 128 bytes", [] { return NXC_SetNATPrefix("zynet1", "fd00::/64", "d", 128); },
       "Description is too long, allowed is: 128 bytes"},
      {"negative description length",
       [] { return NXC_SetNATPrefix("zynet1", "fd00::/64", "d", -1); },
       "Description is too long, allowed is: 128 bytes"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    ClearLog();
    EXPECT_FALSE(c.call());
    EXPECT_TRUE(LogHas(c.logLine)) << LogText();
    EXPECT_FALSE(LogHas("lock")) << LogText();
  }
  // A valid value waits for the lock, gives up and changes nothing.
  ClearLog();
  EXPECT_FALSE(NXC_SetVnetSubnetAddr("zynet1", "10.2.0.0"));
  EXPECT_TRUE(LogHas("Failed to lock config file, file: /etc/zymtra/networking, error: timed out"));
  EXPECT_TRUE(LogHas("NXC_SetVnetSubnetAddr - Failed to obtain lock on vnet config"));
  EXPECT_FALSE(LogHas("Successfully"));
  EXPECT_EQ(Answer("VNET_1_HOSTONLY_SUBNET"), "10.1.0.0");
  EXPECT_EQ(DbText(), before);
}

TEST_F(ApiVnetTest, NullRemovesExceptForTheDisplayName) {
  LoadWith("answer VNET_2_HOSTONLY_NETMASK 255.255.0.0\nanswer VNET_2_VIRTUAL_ADAPTER_ADDR "
           "10.0.0.1\nanswer VNET_2_MTU 1400\nanswer VNET_2_DISPLAY_NAME two\n");
  struct Case {
    const char *name;
    std::function<bool()> call;
    bool ok;
    const char *key;
    const char *answer;
    const char *logLine;
  } const cases[] = {
      {"mask", [] { return NXC_SetVnetSubnetMask("zynet2", nullptr); }, true,
       "VNET_2_HOSTONLY_NETMASK", "<absent>", "Successfully removed the mask for vnet: zynet2"},
      {"adapter", [] { return NXC_SetVnetAdapterAddr("zynet2", nullptr); }, true,
       "VNET_2_VIRTUAL_ADAPTER_ADDR", "<absent>",
       "Successfully removed adapter address for vnet: zynet2"},
      {"mtu", [] { return NXC_RemoveMTU("zynet2"); }, true, "VNET_2_MTU", "<absent>",
       "Removing MTU setting succeeded for vnet: zynet2"},
      {"display name", [] { return NXC_SetVnetDisplayName("zynet2", nullptr); }, false,
       "VNET_2_DISPLAY_NAME", "two", "Error setting display name for vnet: zynet2"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    ClearLog();
    EXPECT_EQ(c.call(), c.ok);
    EXPECT_EQ(Answer(c.key), c.answer);
    EXPECT_TRUE(LogHas(c.logLine)) << LogText();
    // Success or failure, the lock taken for the change is given back.
    EXPECT_EQ(LogCount("Database file locking success"), 1);
    EXPECT_EQ(LogCount("Config file unlocking success"), 1);
    EXPECT_TRUE(LockIsFree());
  }
  const std::string db = DbText();
  EXPECT_NE(db.find("remove_answer VNET_2_MTU\n"), std::string::npos);
}

TEST_F(ApiVnetTest, MtuIsStoredAsGivenAndReadBackUnchecked) {
  LoadWith("answer VNET_7_MTU jumbo\n");
  uint32_t got = 42;
  EXPECT_TRUE(NXC_GetVnetMTU("zynet7", &got));
  EXPECT_EQ(got, 0u);
  ASSERT_TRUE(NXC_SetVnetMTU("zynet7", 0));
  EXPECT_EQ(Answer("VNET_7_MTU"), "0");
  ASSERT_TRUE(NXC_RemoveMTU("zynet7"));
  got = 42;
  EXPECT_FALSE(NXC_GetVnetMTU("zynet7", &got));
  EXPECT_EQ(got, 42u);
  EXPECT_TRUE(LogHas("NXC_GetVnetMTU - Failure in getting MTU"));
}

// ---- NAT66 prefixes --------------------------------------------------------

TEST_F(ApiVnetTest, NatPrefixesAreStoredAndFoundByText) {
  LoadWith("");
  const std::string desc127(127, 'd');
  struct Case {
    const char *prefix;
    const char *desc;
    int32_t descLen;
    const char *logLine;
  } const cases[] = {
      {"fd00:1::/64", desc127.c_str(), 127, "prefix: fd00:1::/64 \n"},  // trailing blank kept
      {"fd00:2::/64", "ignored", 0, "Using a NULL description since, length is 0"},
      {"fd00:3::/48", nullptr, 500, "prefix: fd00:3::/48 \n"},  // no description, no limit
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.prefix);
    ClearLog();
    EXPECT_TRUE(NXC_SetNATPrefix("zynet2", c.prefix, c.desc, c.descLen));
    EXPECT_TRUE(LogHas(c.logLine)) << LogText();
    EXPECT_TRUE(LockIsFree());
  }
  // The prefixes survive a reload; the description is never handed back.
  UnloadAll(/*writeBack=*/false);
  ASSERT_TRUE(Load());
  char desc[8] = "keep";
  uint32_t descLen = 8;
  EXPECT_TRUE(NXC_GetNATPrefix("zynet2", "fd00:1::/64", desc, &descLen));
  EXPECT_STREQ(desc, "keep");
  EXPECT_EQ(descLen, 8u);
  EXPECT_TRUE(NXC_GetNATPrefix("zynet2", "fd00:3::/48", nullptr, nullptr));
  EXPECT_FALSE(NXC_GetNATPrefix("zynet3", "fd00:1::/64", nullptr, nullptr));
  EXPECT_TRUE(LogHas("NXC_GetNATPrefix - Getting NAT prefix failed on vnet: zynet3"));
  ClearLog();
  EXPECT_FALSE(NXC_GetNATPrefix("zynet2", "fd00:1::/64", desc, nullptr));
  EXPECT_TRUE(LogHas("NXC_GetNATPrefix - Invalid argument - zynet: "));
}

// ---- Subnets ---------------------------------------------------------------

TEST_F(ApiVnetTest, SubnetAvailabilityIsAnsweredThroughTheFlag) {
  LoadWith("answer VNET_3_HOSTONLY_SUBNET 10.3.0.0\n");
  const std::string ping = std::string(kStandinBinDir) + "/zymtra-ping -q -b ";
  // The tool's check-subnet sees both answers; here the arguments go through.
  ASSERT_TRUE(SetPingExitCodes("1 1"));
  bool available = false;
  EXPECT_TRUE(NXC_CheckSubnetAvailability("zynet3", true, 2, 5, &available));
  EXPECT_TRUE(available);
  EXPECT_EQ(PingCalls(), (V{ping + "10.3.0.0 -t 2 -i 5", ping + "10.3.0.1 -t 2 -i 5"}));
  EXPECT_TRUE(LogHas("Subnet: 10.3.0.0 on vnet: zynet3 is available"));
  EXPECT_FALSE(NXC_CheckSubnetAvailability("zynet4", true, 1, 1, &available));
  EXPECT_TRUE(LogHas("NXC_CheckSubnetAvailability - Failure in getting subnet address"));
}

TEST_F(ApiVnetTest, VnetIsNamedAddressedAndResubnetted) {
  WriteDb("answer VNET_9_HOSTONLY_SUBNET 172.16.9.0\n");
  ASSERT_TRUE(SetPingExitCodes("0 1 1"));  // the first candidate answers, then silence
  V report = ReportFromChild([](V *out) {
    auto say = [out](bool ok, const std::string &what) { out->push_back(ok ? what : "!" + what); };
    if (!NXC_Load(0)) return out->push_back("load failed");
    say(NXC_SetVnetDisplayName("zynet4", "Lab net"), "named");
    say(NXC_SetVnetSubnetAddr("zynet4", "10.77.0.0"), "addressed");
    say(NXC_SetVnetSubnetMask("zynet4", "255.255.0.0"), "masked");
    say(NXC_AssignSubnetAddressToVnet("zynet4", false), "kept");
    say(NXC_AssignSubnetAddressToVnet("zynet4", true), "resubnetted");
    char name[128], subnet[16], mask[16], adapter[16];
    uint32_t nameLen = sizeof name, subnetLen = 16, maskLen = 16, adapterLen = 16;
    if (NXC_GetVnetDisplayName("zynet4", name, &nameLen) &&
        NXC_GetVnetSubnetAddr("zynet4", subnet, &subnetLen) &&
        NXC_GetVnetSubnetMask("zynet4", mask, &maskLen) &&
        NXC_GetVnetAdapterAddr("zynet4", adapter, &adapterLen, true))
      out->push_back(std::string(name) + "|" + subnet + "|" + mask + "|" + adapter);
    char freeSubnet[16], freeMask[16];
    const bool found = NXC_GetUnusedSubnet(freeSubnet, 16, freeMask, 16);
    say(found, std::string("unused ") + (found ? freeSubnet : ""));
    say(NXC_SetVnetSubnetAddr("zynet4", nullptr), "removed");
    say(!NXC_GetVnetSubnetAddr("zynet4", subnet, &subnetLen), "gone");
    NXC_Unload();
  });
  const V pinged = PingedAddresses();
  ASSERT_EQ(pinged.size(), 5u);  // answered broadcast; silent broadcast and host twice
  const std::string chosen = pinged[1];
  const std::string unused = pinged[3];
  std::string adapter = chosen.substr(0, chosen.rfind('.')) + ".1";
  EXPECT_EQ(report, (V{"named", "addressed", "masked", "kept",
                                              "resubnetted",
                                              "Lab net|" + chosen + "|255.255.255.0|" + adapter,
                                              "unused " + unused, "removed", "gone"}));
  for (const std::string &s : {pinged[0], chosen, unused}) {
    EXPECT_TRUE(s.ends_with(".0")) << s;
    EXPECT_NE(s, "172.16.9.0");
  }
  EXPECT_TRUE(LogHas("Not overwriting existing subnet"));
  EXPECT_TRUE(LogHas("Overwriting existing subnet"));
  EXPECT_TRUE(LogHas("New subnet configured for vnet: zynet4"));
  EXPECT_TRUE(LogHas("Success: vnet 4 assigned subnet " + chosen + "."));
  EXPECT_TRUE(LogHas("Subnet address: " + chosen + "\n"));
  EXPECT_TRUE(LogHas("Obtained unused subnet: " + unused + ", mask: 255.255.255.0"));
  EXPECT_TRUE(LogHas("Successfully removed the subnet address for vnet: zynet4"));
  EXPECT_TRUE(LogHas("Marking subnet: " + chosen + " as unused"));
  // Only the assignment is stored, with its mask.
  const std::string db = DbText();
  EXPECT_NE(db.find("answer VNET_4_DISPLAY_NAME Lab net\n"), std::string::npos);
  EXPECT_NE(db.find("answer VNET_4_HOSTONLY_NETMASK 255.255.255.0\n"), std::string::npos);
  EXPECT_EQ(db.find(" " + unused + "\n"), std::string::npos);
}

// ---- Call frame ------------------------------------------------------------

TEST_F(ApiVnetTest, CallsRefuseWhileNotLoadedAndCountsWorkAnyway) {
  ASSERT_FALSE(Load());  // no database: the log stays open, nothing is loaded
  ASSERT_TRUE(NXC_SetCurrentLogLevel(0x7f));
  char buf[200];
  uint32_t len = sizeof buf;
  bool flag = false;
  const std::pair<const char *, std::function<bool()>> calls[] = {
      {"NXC_GetVnetSubnetAddr", [&] { return NXC_GetVnetSubnetAddr("zynet1", buf, &len); }},
      {"NXC_SetVnetMTU", [] { return NXC_SetVnetMTU("zynet1", 1); }},
      {"NXC_GetUnusedSubnet", [&] { return NXC_GetUnusedSubnet(buf, 16, buf + 16, 16); }},
      {"NXC_CheckSubnetAvailability",
       [&] { return NXC_CheckSubnetAvailability("zynet1", 1, 1, 1, &flag); }},
      {"NXC_SetNATPrefix", [] { return NXC_SetNATPrefix("zynet1", "fd00::/64", nullptr, 0); }},
  };
  for (const auto &[fn, call] : calls) {
    SCOPED_TRACE(fn);
    ClearLog();
    EXPECT_FALSE(call());
    const std::string name(fn);
    EXPECT_EQ(LogCount("Entering API Function, " + name + ":"), 1);
    EXPECT_TRUE(LogHas(name + " - Nexcfg Un-Initialized. Aborting API Function: " + name));
    EXPECT_FALSE(LogHas("Exiting API Function")) << "the refusal writes no exit banner";
    EXPECT_FALSE(LogHas("Arguments - "));
  }
  ClearLog();
  EXPECT_EQ(NXC_GetNumberOfVnets(), 256u);
  EXPECT_FALSE(NXC_IsMacosVirtApiEnabled());
  EXPECT_EQ(LogText(), "");
  fclose(nxcContext.logStream);
  nxcContext.logStream = nullptr;
}

}  // namespace
}  // namespace nxc::test
