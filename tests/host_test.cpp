// host_test.cpp - the host layer: address and name utilities, the host file
// layout and file operations, the host adapter list and the virtual host
// adapter, against the sandbox's private files and network namespace.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <string>

#include "support/db_fixture.h"

namespace nxc::test {
namespace {

constexpr uint32_t kNoVnet = NXC_INVALID_VNET;

// True when fn logged a line holding message.
bool Logged(const std::string &fn, const std::string &message) {
  return LogHas(fn + " - " + message);
}

bool Has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

// Every test runs with a loaded database that logs all levels and a clean
// log; links a test makes go with it.
class HostTest : public DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (HasFatalFailure()) return;
    LoadWith("");
  }
  static void SetAnswer(const char *key, const char *value) {
    ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, key, value)) << key;
  }
  void MakeTap(const std::string &name) {
    ASSERT_TRUE(links_.Add(name, "tuntap add " + name + " mode tap"));
  }
  TestLinks links_;
};

// ---- Address and name utilities --------------------------------------------

using AddressTest = HostTest;

TEST_F(AddressTest, IPv4TextSubnetMasksAndMembership) {
  constexpr char kScan[] = "sscanf failed";
  struct Case { const char *text; uint32_t value; const char *log; };  // log null: valid
  const Case addresses[] = {
      {"192.168.1.2", 0xC0A80102u, nullptr}, {"255.255.255.255", 0xFFFFFFFFu, nullptr},
      {"10. 0.0.1", 0x0A000001u, nullptr},   {"192.168.1.1 ", 0, kScan},
      {"1.2.3", 0, kScan},                   {"1234.1.1.1", 0, kScan},
      {"256.1.1.1", 0, "Invalid values: 256, 1, 1, 1"},
  };
  for (const Case &c : addresses) {
    SCOPED_TRACE(c.text);
    ClearLog();
    uint32_t value = 0x5A5A5A5A;
    EXPECT_EQ(NXCIPStr2Int(c.text, &value), c.log == nullptr);
    EXPECT_EQ(value, c.log ? 0x5A5A5A5Au : c.value) << "written only on success";
    EXPECT_EQ(NXCIsValidIP(c.text), c.log == nullptr);
    EXPECT_TRUE(!c.log || Logged("NXCIPStr2Int", c.log)) << LogText();
  }

  constexpr char kSmall[] = "The subnet is too small, we need at least 8 hosts";
  const Case masks[] = {
      {"255.255.255.248", 0, nullptr},
      {"0.255.255.0", 0, nullptr},  // only the ones after the trailing zeros must be contiguous
      {"255.255.255.252", 0, kSmall},  {"0.0.0.0", 0, kSmall},
      {"255.0.255.0", 0, "Mask is not a contiguous string of 1s: ff00ff"},
      {"255.255.255", 0, "Could not convert mask to integer: 255.255.255"},
  };
  for (const Case &c : masks) {
    SCOPED_TRACE(c.text);
    ClearLog();
    EXPECT_EQ(NXCIsValidSubnetMask(c.text), c.log == nullptr);
    EXPECT_TRUE(!c.log || Logged("NXCIsValidSubnetMask", c.log)) << LogText();
  }

  // An address belongs to a vnet by its stored subnet and mask.
  SetAnswer("VNET_8_HOSTONLY_SUBNET", "192.168.10.0");
  SetAnswer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
  EXPECT_TRUE(NXCIPBelongsToSubnet(8, "192.168.10.255"));
  EXPECT_FALSE(NXCIPBelongsToSubnet(8, "192.168.11.1"));
  EXPECT_FALSE(NXCIPBelongsToSubnet(9, "192.168.10.1"));
  EXPECT_TRUE(Logged("NXCIPBelongsToSubnet", "Getting subnet address failed"));
}

TEST_F(AddressTest, MACAddresses) {
  struct Case { const char *text, *canonical; int scanned; };  // canonical null: refused
  const Case cases[] = {
      {"aa:bb:cc:dd:ee:ff", "AA:BB:CC:DD:EE:FF", 6}, {"0:c:29:a:b:1", "00:0C:29:0A:0B:01", 6},
      {"aa-bb-cc-dd-ee-ff", nullptr, 1},             {"aa:bb:cc:dd:ee:ff:00", nullptr, 7},
      {"aa:bb:cc:dd:ee:ff ", nullptr, 7},            {"aa:bb:cc:dd:ee", nullptr, 5},
      {"aab:bb:cc:dd:ee:ff", nullptr, 1},
      // An octet is one or two hex digits and nothing else.
      {"0:-2:2:3:4:3", nullptr, 1},                  {"0:+2:2:3:4:3", nullptr, 1},
      {"0x1:2:3:4:5:6", nullptr, 1},                 {" aa:bb:cc:dd:ee:ff", nullptr, 0},
      {"aa: b:cc:dd:ee:ff", nullptr, 1},             {"", nullptr, -1},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.text);
    ClearLog();
    char out[18] = "unchanged";
    EXPECT_EQ(NXCMACStandardizeFormat(c.text, out), c.canonical != nullptr);
    EXPECT_EQ(NXCIsValidMACAddr(c.text), c.canonical != nullptr);
    EXPECT_STREQ(out, c.canonical ? c.canonical : "unchanged");
    EXPECT_TRUE(c.canonical || Logged("NXCMACStandardizeFormat", "sscanf failed, scanned " +
                                                                     std::to_string(c.scanned) +
                                                                     " elements"));
  }
}

TEST_F(AddressTest, IPv6Prefixes) {
  struct Case { const char *prefix; bool ok, logged; };
  const Case cases[] = {{"fd00::/64", true, false}, {"fd00::/32", true, false},
                        {"fd00::/96", true, false}, {"fd00::/31", false, true},
                        {"fd00::/97", false, true}, {"fd00::", false, false}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.prefix);
    ClearLog();
    EXPECT_EQ(NXCIsValidPrefix(c.prefix), c.ok);
    EXPECT_EQ(Logged("NXCIsValidPrefix", "Non valid prefix"), c.logged);
  }

  // Only the top bits of a partial byte count.
  const uint8_t a[16] = {0xfd, 0x00, 0x12, 0x34}, b[16] = {0xfd, 0x00, 0x12, 0x3f},
                c[16] = {0xfd, 0x00, 0x12, 0x44};
  struct Match { const uint8_t *other; uint32_t bitsA, bitsB; bool ok; };
  const Match matches[] = {
      {b, 28, 28, true}, {c, 28, 28, false}, {b, 32, 32, false}, {c, 24, 24, true}, {a, 64, 48, false}};
  for (const Match &m : matches) {
    SCOPED_TRACE(testing::Message() << m.bitsA << "/" << m.bitsB << " " << +m.other[3]);
    ClearLog();
    EXPECT_EQ(NXCIsPrefixMatch(a, m.bitsA, m.other, m.bitsB), m.ok);
    EXPECT_EQ(Logged("NXCIsPrefixMatch", "Prefix not match"), !m.ok);
  }
}

TEST_F(AddressTest, NetworkIdentifiersAndVnetNames) {
  const std::pair<NXC_NetID, const char *> ids[] = {  // null: valid
      {{1, 1, 255, {}}, nullptr},
      {{1, 1, 0xFFFFFFFFu, {}}, nullptr},
      {{1, 1, 256, {}}, "Invalid vnet number: 256"},
      {{2, 1, 0, {}}, "Unsupported network ID version: 2"},
      {{1, 2, 0, {}}, "Non vnet network not supported"}};
  for (const auto &[id, log] : ids) {
    SCOPED_TRACE(testing::Message() << id.version << "/" << id.type << "/" << id.vnet);
    ClearLog();
    EXPECT_EQ(NXCValidateNetIDStruct(&id), log == nullptr);
    EXPECT_TRUE(!log || Logged("NXCValidateNetIDStruct", log)) << LogText();
  }

  const std::pair<const char *, uint32_t> names[] = {
      {"zynet0", 0},        {"zynet255", 255},   {"ZyNet1", 1},       {"zynet007", 7},
      {"zynet", kNoVnet},   {"zynet256", kNoVnet}, {"zynet1a", kNoVnet}, {"zynet-1", kNoVnet},
      {"eth0", kNoVnet},    {"zynet99999999999999999999", kNoVnet}};
  ClearLog();
  for (const auto &[name, vnet] : names) EXPECT_EQ(NXCConvVnetNameToNum(name), vnet) << name;
  EXPECT_EQ(LogText(), "") << "name conversion never logs";
  char name[20];
  EXPECT_TRUE(NXCConvVnetNumToName(255, name));
  EXPECT_STREQ(name, "zynet255");
  EXPECT_FALSE(NXCConvVnetNumToName(256, name));
}

// ---- File layout and file operations ---------------------------------------

std::string Name(int32_t vnet, uint32_t type) {
  char path[256] = "";
  return NXCGetFileName(vnet, type, path, sizeof path) ? path : "<none>";
}

mode_t Mode(const std::string &path) {
  struct stat st = {};
  return lstat(path.c_str(), &st) == 0 ? st.st_mode : 0;
}

using FileTest = HostTest;

// The other types' names are checked where their files are made.
TEST_F(FileTest, NamesFollowConfigDirExceptTheDeviceAndUnnamedTypesFailSilently) {
  EXPECT_EQ(Name(-1, NXC_FILE_NETWORKING_DB), "/etc/zymtra/networking");
  SetAnswer("CONFIGDIR", "/tmp/c");
  EXPECT_EQ(Name(8, NXC_FILE_NAT_CONF), "/tmp/c/zynet8/nat/nat.conf");
  EXPECT_EQ(Name(8, NXC_FILE_VNET_DEVICE), "/dev/zynet8");
  EXPECT_EQ(Name(8, NXC_FILE_CUSTOM), "<none>");  // needs its own name
  EXPECT_EQ(Name(8, 14), "<none>");
  EXPECT_EQ(LogText(), "");

  char small[20];
  EXPECT_FALSE(NXCGetFileName(8, NXC_FILE_NAT_CONF, small, sizeof small));
  EXPECT_TRUE(Logged("NXCGetFileName",
                     "Error formatting the file name for file type: 10from cD: /tmp/c, vnet: 8"));
}

TEST_F(FileTest, DirectoriesAndPlainFiles) {
  const std::string dir = "/etc/zymtra/zynet8";
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_VNET_DIR, nullptr));
  EXPECT_EQ(Mode(dir), S_IFDIR | 0755);
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_VNET_DIR, nullptr));
  EXPECT_TRUE(Logged("NXCCreateFile", "Directory: " + dir + " already exists"));
  EXPECT_TRUE(NXCFileExists(8, NXC_FILE_VNET_DIR, nullptr));

  ASSERT_TRUE(NXCCreateFile(8, NXC_FILE_NAT_DIR, nullptr));
  EXPECT_FALSE(NXCRemoveFile(8, NXC_FILE_VNET_DIR, nullptr));
  EXPECT_TRUE(Logged("NXCRemoveFile",
                     "Cannot delete Directory: " + dir + " because of: Directory not empty"));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_NAT_DIR, nullptr));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_VNET_DIR, nullptr));
  EXPECT_FALSE(FileExists(dir));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_VNET_DIR, nullptr));
  EXPECT_TRUE(Logged("NXCRemoveFile", "Directory " + dir + " does not exist"));

  EXPECT_FALSE(NXCCreateFile(8, NXC_FILE_VNET_DIR, "/tmp/x"));
  EXPECT_TRUE(Logged("NXCCreateFile", "Invalid arguments"));

  const std::string conf = "/etc/zymtra/zynet8/nat/nat.conf";
  EXPECT_FALSE(NXCCreateFile(8, NXC_FILE_NAT_CONF, nullptr));
  EXPECT_TRUE(Logged("NXCCreateFile",
                     "Cannot create File: " + conf + " because of: No such file or directory"));
  ASSERT_TRUE(NXCCreateFile(8, NXC_FILE_VNET_DIR, nullptr));
  ASSERT_TRUE(NXCCreateFile(8, NXC_FILE_NAT_DIR, nullptr));

  mode_t callerMask = umask(077);
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_NAT_CONF, nullptr));
  EXPECT_EQ(umask(callerMask), 077u) << "the caller's mask is given back";
  EXPECT_EQ(Mode(conf), S_IFREG | 0644);

  ASSERT_TRUE(WriteFile(conf, "keep me\n"));
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_NAT_CONF, nullptr));
  EXPECT_TRUE(Logged("NXCCreateFile", "File: " + conf + " already exists"));
  EXPECT_EQ(ReadFile(conf), "keep me\n") << "never truncated";
  EXPECT_TRUE(NXCFileExists(8, NXC_FILE_NAT_CONF, nullptr));

  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_NAT_CONF, nullptr));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_NAT_CONF, nullptr)) << "already gone is fine";
  EXPECT_TRUE(Logged("NXCRemoveFile", "File " + conf + " does not exist"));
  EXPECT_FALSE(NXCFileExists(8, NXC_FILE_NAT_CONF, nullptr));
  EXPECT_TRUE(Logged("NXCFileExists", "Cannot check for file or directory: " + conf +
                                          " , error: No such file or directory"));
}

TEST_F(FileTest, WrongKindsAndTypesWithoutOperations) {
  ASSERT_EQ(Shell("mkdir -p /etc/zymtra/zynet8/dhcpd/dhcpd.conf"), 0);
  EXPECT_FALSE(NXCFileExists(8, NXC_FILE_DHCPD_CONF, nullptr));
  EXPECT_TRUE(Logged("NXCFileExists",
                     "File/Directory/device of type: 5 and name: "
                     "/etc/zymtra/zynet8/dhcpd/dhcpd.conf is found but is not of valid type"));
  ASSERT_TRUE(WriteFile("/dev/zynet9", ""));
  EXPECT_TRUE(NXCCreateFile(9, NXC_FILE_VNET_DEVICE, nullptr)) << "not examined on creation";
  EXPECT_FALSE(NXCFileExists(9, NXC_FILE_VNET_DEVICE, nullptr));

  // nat.mac is only ever removed here; the database and the product file
  // are neither made nor removed, silently.
  ASSERT_TRUE(WriteFile("/etc/zymtra/zynet8/nat.mac", "x"));
  ASSERT_TRUE(WriteFile("/etc/zymtra/config", "x"));
  ClearLog();
  EXPECT_FALSE(NXCCreateFile(7, NXC_FILE_NAT_MAC, nullptr));
  EXPECT_FALSE(NXCFileExists(8, NXC_FILE_NAT_MAC, nullptr));
  for (uint32_t type : {NXC_FILE_NETWORKING_DB, NXC_FILE_PRODUCT_CONFIG}) {
    EXPECT_FALSE(NXCCreateFile(-1, type, nullptr));
    EXPECT_FALSE(NXCRemoveFile(-1, type, nullptr));
  }
  EXPECT_FALSE(NXCCreateFile(8, 14, nullptr));
  EXPECT_EQ(LogText(), "");
  EXPECT_FALSE(FileExists("/etc/zymtra/zynet7/nat.mac"));
  EXPECT_TRUE(FileExists("/etc/zymtra/config") && FileExists("/etc/zymtra/networking"));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_NAT_MAC, nullptr));
  EXPECT_FALSE(FileExists("/etc/zymtra/zynet8/nat.mac"));
}

TEST_F(FileTest, CustomFilesAndCopies) {
  TempDir tmp;
  const std::string src = tmp.File("src"), dst = tmp.File("dst");
  std::string data;
  for (int i = 0; i < 3000; ++i) data += (char)('a' + i % 26);  // blocks, the last one partial
  ASSERT_TRUE(WriteFile(src, data));
  EXPECT_TRUE(NXCCopyFile(src.c_str(), dst.c_str()));
  EXPECT_EQ(ReadFile(dst), data);
  EXPECT_EQ(Mode(dst), S_IFREG | 0644) << "made as a custom file";
  ASSERT_TRUE(WriteFile(src, "short\n"));
  EXPECT_TRUE(NXCCopyFile(src.c_str(), dst.c_str()));
  EXPECT_EQ(ReadFile(dst), "short\n") << "the destination is truncated";
  EXPECT_FALSE(NXCCopyFile(tmp.File("missing").c_str(), dst.c_str()));
  EXPECT_TRUE(Logged("NXCCopyFile", "Could not open source file: " + tmp.File("missing") +
                                        ", error: No such file or directory"));

  EXPECT_TRUE(NXCFileExists(-1, NXC_FILE_CUSTOM, tmp.path().c_str())) << "any kind will do";
  EXPECT_TRUE(NXCRemoveFile(-1, NXC_FILE_CUSTOM, dst.c_str()));
  EXPECT_FALSE(FileExists(dst));
  const std::string longName = tmp.path() + "/" + std::string(255 - tmp.path().size(), 'n');
  ASSERT_EQ(longName.size(), 256u);
  EXPECT_FALSE(NXCCreateFile(-1, NXC_FILE_CUSTOM, longName.c_str()));
  EXPECT_TRUE(Logged("NXCCreateFile",
                     "Custom file name " + longName + " is longer than allowed 256 characters"));
  EXPECT_FALSE(NXCRemoveFile(-1, NXC_FILE_CUSTOM, longName.c_str()));
  EXPECT_TRUE(Logged("NXCRemoveFile", "Custom file name  is longer than allowed 256 characters"));
  EXPECT_TRUE(NXCCreateFile(-1, NXC_FILE_CUSTOM, longName.substr(0, 255).c_str()));
}

TEST_F(FileTest, VnetDeviceNodes) {
  mode_t callerMask = umask(0);
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_VNET_DEVICE, nullptr));
  umask(callerMask);
  struct stat st = {};
  ASSERT_EQ(stat("/dev/zynet8", &st), 0);
  EXPECT_EQ(st.st_mode, S_IFCHR | 0600);
  EXPECT_EQ(st.st_rdev, makedev(241, 8));
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_VNET_DEVICE, nullptr)) << "an existing node is kept";
  EXPECT_TRUE(NXCFileExists(8, NXC_FILE_VNET_DEVICE, nullptr));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_VNET_DEVICE, nullptr));
  EXPECT_FALSE(FileExists("/dev/zynet8"));
  EXPECT_FALSE(NXCCreateFile(256, NXC_FILE_VNET_DEVICE, nullptr));
  EXPECT_TRUE(Logged("NXCCreateFile", "Cannot construct file name"));
}

// ---- Host adapters and the virtual adapter, on the sandbox's own links ------

using AdapterTest = HostTest;

TEST_F(AdapterTest, ListsNamedEthernetLinksWithTheirDrivers) {
  ASSERT_TRUE(links_.Add("hv-veth0", "link add hv-veth0 type veth peer name hv-veth1"));
  MakeTap("hv-tap0");
  ASSERT_TRUE(links_.Add("hv-tun0", "tuntap add hv-tun0 mode tun"));  // not Ethernet
  ASSERT_TRUE(links_.Add("abcdefghijklmno", "link add abcdefghijklmno type veth peer name hv-p"));
  ASSERT_EQ(Shell("ip link set hv-veth0 up && ip link set hv-veth1 up"), 0);
  // The kernel marks the pair running a moment after both ends are up.
  ASSERT_EQ(Shell("for i in $(seq 200); do ip link show hv-veth0 | grep -q LOWER_UP && exit 0; "
                  "sleep 0.01; done; exit 1"),
            0);

  uint32_t count = 0;
  NXC_HostAdapter *head = nullptr;
  ASSERT_TRUE(NXCCreateHostAdapList(&count, &head));
  std::string listed, drivers;
  uint32_t entries = 0;
  for (NXC_HostAdapter *a = head; a; a = a->next, ++entries) {
    listed += std::string(a->name) + "\n";
    EXPECT_EQ(a->version, 1u) << a->name;
    EXPECT_STREQ(a->mappingName, a->name);
    if (a->name == std::string("hv-tap0") || a->name == std::string("hv-veth0"))
      drivers += std::string(a->name) + "=" + a->driver + "/" + std::to_string(a->flags) + " ";
  }
  EXPECT_EQ(count, entries);
  EXPECT_EQ(drivers, "hv-veth0=veth/1 hv-tap0=tun/2 ");
  // The kernel's order, Ethernet links only: never lo, never the tun link.
  EXPECT_EQ(listed, CommandOutput("ip -o link show | awk -F': ' '/link\\/ether/ "
                                  "{sub(/@.*/, \"\", $2); print $2}'"));
  for (const char *name : {"hv-veth0\n", "hv-veth1\n", "hv-tap0\n", "abcdefghijklmno\n", "hv-p\n"})
    EXPECT_TRUE(Has(listed, name)) << name;
  EXPECT_TRUE(Logged("NXCCreateHostAdapList", "Skipping non-ethernet interface: ifi_type: 772"));

  NXCFreeHostAdapList(&head);
  EXPECT_EQ(head, nullptr);
  NXCFreeHostAdapList(&head);  // an empty list is fine
}

TEST_F(AdapterTest, StatusEnableAndDisable) {
  SetAnswer("VNET_8_HOSTONLY_SUBNET", "192.168.10.0");
  SetAnswer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
  EXPECT_TRUE(NXCVirtAdapterDisable(8)) << "no adapter: nothing to take down";
  EXPECT_FALSE(NXCVirtAdapterEnable(8));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable", "ioctl: SIOCAIFADDR failed, error: No such device"));

  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_ABSENT);
  EXPECT_TRUE(Logged("NXCAdapterStatus", "'zynet8' not in /proc/net/dev"));

  MakeTap("zynet8");
  EXPECT_EQ(NXCAdapterStatus("zynet"), NXC_ADAPTER_STATUS_ABSENT) << "names match whole";
  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_DOWN);
  EXPECT_TRUE(Logged("NXCAdapterStatus", "SIOCGIFFLAGS: 0x1002 for zynet8"));
  ASSERT_TRUE(NXCVirtAdapterEnable(8)) << LogText();
  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_UP);
  std::string addr = CommandOutput("ip -4 addr show zynet8");
  EXPECT_TRUE(Has(addr, "inet 192.168.10.1/24 brd 192.168.10.255 ")) << addr;
  EXPECT_TRUE(
      Logged("NXCVirtAdapterEnable",
             "ioctl: SIOCSIFADDR set interface address to: 010aa8c0 for interface: zynet8"));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable",
                     "ioctl: SIOCSIFFLAGS set interface flags to: 0x1003 for interface: zynet8"));

  // An adapter that is up is left alone, whatever the configuration says.
  SetAnswer("VNET_8_VIRTUAL_ADAPTER_ADDR", "192.168.10.7");
  EXPECT_TRUE(NXCVirtAdapterEnable(8));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable", "Virtual adapter is already enabled"));
  EXPECT_EQ(CommandOutput("ip -4 addr show zynet8"), addr);

  EXPECT_TRUE(NXCVirtAdapterDisable(8));
  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_DOWN);
  EXPECT_TRUE(Has(CommandOutput("ip -4 addr show zynet8"), "inet 192.168.10.1/24"));
  ClearLog();
  EXPECT_TRUE(NXCVirtAdapterDisable(8));
  EXPECT_TRUE(Logged("NXCVirtAdapterDisable", "Virtual adapter is already disabled"));

  // A configured adapter name is used; a vnet without a mask fails.
  MakeTap("hv-host9");
  SetAnswer("VNET_9_VIRTUAL_ADAPTER_NAME", "hv-host9");
  SetAnswer("VNET_9_HOSTONLY_SUBNET", "10.9.0.0");
  EXPECT_FALSE(NXCVirtAdapterEnable(9));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable", "Getting virtual adapter mask failed"));
  SetAnswer("VNET_9_HOSTONLY_NETMASK", "255.255.0.0");
  EXPECT_TRUE(NXCVirtAdapterEnable(9));
  EXPECT_TRUE(Has(CommandOutput("ip -4 addr show hv-host9"), "inet 10.9.0.1/16 brd 10.9.255.255 "));
}

}  // namespace
}  // namespace nxc::test
