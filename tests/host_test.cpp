// host_test.cpp - the host layer: address and name utilities, the host file
// layout and file operations, the host adapter list and the virtual host
// adapter, against the sandbox's private files and network namespace.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "nexcfg_internal.h"
#include "support/sandbox.h"
#include "support/test_util.h"

namespace {

using nxc::test::ClearLog;
using nxc::test::FileExists;
using nxc::test::LogHas;
using nxc::test::LogText;
using nxc::test::ReadFile;
using nxc::test::Shell;
using nxc::test::WriteFile;

constexpr uint32_t kNoVnet = NXC_INVALID_VNET;

// True when fn logged a line holding message.
bool Logged(const std::string &fn, const std::string &message) {
  return LogHas(fn + " - " + message);
}

// Every test runs with a loaded database that logs all levels, and a clean
// log. Answers a test needs are added through the answer store.
class HostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(nxc::test::InSandbox());
    ASSERT_TRUE(WriteFile("/etc/zymtra/networking", "VERSION=1,0\nanswer NXC_LOGLEVEL 0x7f\n"));
    ASSERT_TRUE(NXC_Load(0));
    loaded_ = true;
    ClearLog();
  }
  void TearDown() override {
    if (loaded_) NXC_Unload();
    if (nxc::test::InSandbox()) (void)Shell("rm -rf /etc/zymtra/zynet* /dev/zynet*");
  }
  static void SetAnswer(const char *key, const char *value) {
    ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, key, value)) << key;
  }

 private:
  bool loaded_ = false;
};

// ---- Address and name utilities --------------------------------------------

using AddressTest = HostTest;

TEST_F(AddressTest, IPv4TextToInteger) {
  struct Case {
    const char *text;
    bool ok;
    uint32_t value;
    const char *log;  // the line NXCIPStr2Int writes on failure
  } cases[] = {
      {"192.168.1.2", true, 0xC0A80102u, nullptr},
      {"0.0.0.0", true, 0, nullptr},
      {"255.255.255.255", true, 0xFFFFFFFFu, nullptr},
      {" 10.0.0.1", true, 0x0A000001u, nullptr},  // blanks before a number are skipped
      {"10. 0.0.1", true, 0x0A000001u, nullptr},
      {"192.168.1.1 ", false, 0, "sscanf failed"},  // anything after the last number
      {"192.168.1.1\n", false, 0, "sscanf failed"},
      {"192.168.1.1x", false, 0, "sscanf failed"},
      {"1.2.3", false, 0, "sscanf failed"},
      {"1234.1.1.1", false, 0, "sscanf failed"},  // at most three digits
      {"", false, 0, "sscanf failed"},
      {"256.1.1.1", false, 0, "Invalid values: 256, 1, 1, 1"},
      {"1.2.3.999", false, 0, "Invalid values: 1, 2, 3, 999"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.text);
    ClearLog();
    uint32_t value = 0x5A5A5A5A;
    EXPECT_EQ(NXCIPStr2Int(c.text, &value), c.ok);
    EXPECT_EQ(NXCIsValidIP(c.text), c.ok);
    EXPECT_EQ(value, c.ok ? c.value : 0x5A5A5A5Au) << "written only on success";
    if (c.log) {
      EXPECT_TRUE(Logged("NXCIPStr2Int", c.log)) << LogText();
    }
    if (c.ok) {
      EXPECT_EQ(LogText(), "");
    }
  }
}

TEST_F(AddressTest, IPv4IntegerToTextAndDerivedAddresses) {
  char text[16];
  EXPECT_TRUE(NXCIPInt2Str(0xC0A80102u, text));
  EXPECT_STREQ(text, "192.168.1.2");
  EXPECT_TRUE(NXCIPInt2Str(0xFFFFFFFFu, text));
  EXPECT_STREQ(text, "255.255.255.255");

  struct Case {
    const char *subnet, *mask, *broadcast, *adapter;
  } cases[] = {
      {"192.168.10.0", "255.255.255.0", "192.168.10.255", "192.168.10.1"},
      {"10.0.0.0", "255.0.0.0", "10.255.255.255", "10.0.0.1"},
      {"172.16.4.8", "255.255.255.248", "172.16.4.15", "172.16.4.9"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.subnet);
    EXPECT_TRUE(NXCGetBcastAddr(c.subnet, c.mask, text));
    EXPECT_STREQ(text, c.broadcast);
    EXPECT_TRUE(NXCCalcVirtAdapAddr(c.subnet, text));
    EXPECT_STREQ(text, c.adapter);
  }
  EXPECT_FALSE(NXCGetBcastAddr("192.168.10.0", nullptr, text));
  EXPECT_TRUE(Logged("NXCGetBcastAddr", "Invalid arguments"));
}

TEST_F(AddressTest, SubnetMasks) {
  struct Case {
    const char *mask;
    bool ok;
    const char *fn, *log;
  } cases[] = {
      {"255.255.255.248", true, nullptr, nullptr},  // a /29 is the smallest
      {"255.255.255.0", true, nullptr, nullptr},
      {"128.0.0.0", true, nullptr, nullptr},
      // Only contiguity after the trailing zeros is tested.
      {"0.255.255.0", true, nullptr, nullptr},
      {"255.255.255.252", false, "NXCIsValidSubnetMask",
       "The subnet is too small, we need at least 8 hosts"},
      {"255.255.255.255", false, "NXCIsValidSubnetMask",
       "The subnet is too small, we need at least 8 hosts"},
      {"0.0.0.0", false, "NXCIsValidSubnetMask",
       "The subnet is too small, we need at least 8 hosts"},
      {"255.0.255.0", false, "NXCIsValidSubnetMask", "Mask is not a contiguous string of 1s: ff00ff"},
      {"255.255.255", false, "NXCIsValidSubnetMask",
       "Could not convert mask to integer: 255.255.255"},
      {"255.255.255", false, "NXCIPStr2Int", "sscanf failed"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.mask);
    ClearLog();
    EXPECT_EQ(NXCIsValidSubnetMask(c.mask), c.ok);
    if (c.log) {
      EXPECT_TRUE(Logged(c.fn, c.log)) << LogText();
    }
  }
}

TEST_F(AddressTest, MACAddresses) {
  struct Case {
    const char *text, *canonical;
    int scanned;  // for failures: the count in the log line
  } cases[] = {
      {"aa:bb:cc:dd:ee:ff", "AA:BB:CC:DD:EE:FF", 6},
      {"0:c:29:a:b:1", "00:0C:29:0A:0B:01", 6},
      {"00:0C:29:Ab:cD:eF", "00:0C:29:AB:CD:EF", 6},
      {"aa-bb-cc-dd-ee-ff", nullptr, 1},
      {"aa:bb:cc:dd:ee:ff:00", nullptr, 7},
      {"aa:bb:cc:dd:ee:ff ", nullptr, 7},
      {"aa:bb:cc:dd:ee", nullptr, 5},
      {"aab:bb:cc:dd:ee:ff", nullptr, 1},
      {"", nullptr, -1},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.text);
    ClearLog();
    char out[18] = "unchanged";
    EXPECT_EQ(NXCMACStandardizeFormat(c.text, out), c.canonical != nullptr);
    EXPECT_EQ(NXCIsValidMACAddr(c.text), c.canonical != nullptr);
    if (c.canonical) {
      EXPECT_STREQ(out, c.canonical);
    } else {
      EXPECT_STREQ(out, "unchanged");
      EXPECT_TRUE(Logged("NXCMACStandardizeFormat",
                         "sscanf failed, scanned " + std::to_string(c.scanned) + " elements"))
          << LogText();
    }
  }
}

TEST_F(AddressTest, IPv6Prefixes) {
  struct Case {
    const char *prefix;
    bool ok, logged;
  } cases[] = {
      {"fd00::/64", true, false},   {"fd00::/32", true, false},   {"fd00::/96", true, false},
      {"fd00::/31", false, true},   {"fd00::/97", false, true},   {"fd00::/", false, true},
      {"fd00::", false, false},  // no length at all: refused without a word
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.prefix);
    ClearLog();
    EXPECT_EQ(NXCIsValidPrefix(c.prefix), c.ok);
    EXPECT_EQ(Logged("NXCIsValidPrefix", "Non valid prefix"), c.logged);
  }

  const uint8_t a[16] = {0xfd, 0x00, 0x12, 0x34};
  const uint8_t sameTop4[16] = {0xfd, 0x00, 0x12, 0x3f};
  const uint8_t otherTop4[16] = {0xfd, 0x00, 0x12, 0x44};
  struct Match {
    const uint8_t *b;
    uint32_t bitsA, bitsB;
    bool ok;
  } matches[] = {
      {a, 64, 64, true},        {sameTop4, 28, 28, true},   {otherTop4, 28, 28, false},
      {sameTop4, 32, 32, false}, {otherTop4, 24, 24, true}, {a, 64, 48, false},
  };
  for (const Match &m : matches) {
    SCOPED_TRACE(testing::Message() << "bits " << m.bitsA << "/" << m.bitsB << " b[3] " << +m.b[3]);
    ClearLog();
    EXPECT_EQ(NXCIsPrefixMatch(a, m.bitsA, m.b, m.bitsB), m.ok);
    EXPECT_EQ(Logged("NXCIsPrefixMatch", "Prefix not match"), !m.ok);
  }
}

TEST_F(AddressTest, NetworkIdentifiers) {
  static_assert(sizeof(NXC_NetID) == 28);
  struct Case {
    NXC_NetID id;
    const char *log;  // null: valid
  } cases[] = {
      {{1, 1, 0, {}}, nullptr},
      {{1, 1, 255, {}}, nullptr},
      {{1, 1, 0xFFFFFFFFu, {}}, nullptr},
      {{1, 1, 256, {}}, "Invalid vnet number: 256"},
      {{2, 1, 0, {}}, "Unsupported network ID version: 2"},
      {{1, 2, 0, {}}, "Non vnet network not supported"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << c.id.version << "/" << c.id.type << "/" << c.id.vnet);
    ClearLog();
    EXPECT_EQ(NXCValidateNetIDStruct(&c.id), c.log == nullptr);
    if (c.log) {
      EXPECT_TRUE(Logged("NXCValidateNetIDStruct", c.log)) << LogText();
    }
  }
}

TEST_F(AddressTest, VnetNamesAndNumbers) {
  struct Case {
    const char *name;
    uint32_t vnet;
  } cases[] = {
      {"zynet0", 0},         {"zynet255", 255},     {"ZyNet1", 1},         {"ZYNET8", 8},
      {"zynet007", 7},       {"zynet", kNoVnet},    {"zynet256", kNoVnet}, {"zynet1a", kNoVnet},
      {"zynet-1", kNoVnet},  {"zynet 1", kNoVnet},  {"eth0", kNoVnet},     {"zyne", kNoVnet},
      {"zynet25600000000000000000001", kNoVnet},   {"", kNoVnet},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(NXCConvVnetNameToNum(c.name), c.vnet);
  }
  EXPECT_EQ(NXCConvVnetNameToNum(nullptr), kNoVnet);
  EXPECT_EQ(LogText(), "") << "name conversion never logs";

  char name[20];
  EXPECT_TRUE(NXCConvVnetNumToName(0, name));
  EXPECT_STREQ(name, "zynet0");
  EXPECT_TRUE(NXCConvVnetNumToName(255, name));
  EXPECT_STREQ(name, "zynet255");
  EXPECT_FALSE(NXCConvVnetNumToName(256, name));
}

TEST_F(AddressTest, AddressBelongsToVnetSubnet) {
  SetAnswer("VNET_8_HOSTONLY_SUBNET", "192.168.10.0");
  SetAnswer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
  EXPECT_TRUE(NXCIPBelongsToSubnet(8, "192.168.10.77"));
  EXPECT_TRUE(NXCIPBelongsToSubnet(8, "192.168.10.255"));
  EXPECT_FALSE(NXCIPBelongsToSubnet(8, "192.168.11.1"));
  EXPECT_FALSE(NXCIPBelongsToSubnet(9, "192.168.10.1"));
  EXPECT_TRUE(Logged("NXCIPBelongsToSubnet", "Getting subnet address failed"));
}

// ---- File layout and file operations ---------------------------------------

class FileTest : public HostTest {
 protected:
  static std::string Name(int32_t vnet, uint32_t type) {
    char path[256] = "";
    if (!NXCGetFileName(vnet, type, path, sizeof path)) return "<none>";
    return path;
  }
  static mode_t Mode(const std::string &path) {
    struct stat st = {};
    return lstat(path.c_str(), &st) == 0 ? st.st_mode : 0;
  }
};

TEST_F(FileTest, NamesOfEveryType) {
  struct Case {
    uint32_t type;
    const char *path;  // with CONFIGDIR /tmp/c, vnet 8
  } cases[] = {
      {NXC_FILE_NETWORKING_DB, "/tmp/c/networking"},
      {NXC_FILE_VNET_DIR, "/tmp/c/zynet8"},
      {NXC_FILE_DHCPD_DIR, "/tmp/c/zynet8/dhcpd"},
      {NXC_FILE_NAT_DIR, "/tmp/c/zynet8/nat"},
      {NXC_FILE_CUSTOM, "<none>"},
      {NXC_FILE_DHCPD_CONF, "/tmp/c/zynet8/dhcpd/dhcpd.conf"},
      {NXC_FILE_DHCPD_CONF_BAK, "/tmp/c/zynet8/dhcpd/dhcpd.conf.bak"},
      {NXC_FILE_DHCPD_LEASES, "/tmp/c/zynet8/dhcpd/dhcpd.leases"},
      {NXC_FILE_DHCPD_LEASES_OLD, "/tmp/c/zynet8/dhcpd/dhcpd.leases~"},
      {NXC_FILE_NAT_MAC, "/tmp/c/zynet8/nat.mac"},
      {NXC_FILE_NAT_CONF, "/tmp/c/zynet8/nat/nat.conf"},
      {NXC_FILE_NAT_CONF_BAK, "/tmp/c/zynet8/nat/nat.conf.bak"},
      {NXC_FILE_PRODUCT_CONFIG, "/tmp/c/config"},
      {NXC_FILE_VNET_DEVICE, "/dev/zynet8"},  // never under CONFIGDIR
      {14, "<none>"},
  };
  EXPECT_EQ(Name(-1, NXC_FILE_NETWORKING_DB), "/etc/zymtra/networking");
  EXPECT_EQ(Name(3, NXC_FILE_NAT_CONF), "/etc/zymtra/zynet3/nat/nat.conf");
  SetAnswer("CONFIGDIR", "/tmp/c");
  for (const Case &c : cases) {
    SCOPED_TRACE(c.type);
    EXPECT_EQ(Name(8, c.type), c.path);
  }
  EXPECT_EQ(LogText(), "") << "unnamed types fail without a word";

  char small[20];
  EXPECT_FALSE(NXCGetFileName(8, NXC_FILE_NAT_CONF, small, sizeof small));
  EXPECT_TRUE(Logged("NXCGetFileName",
                     "Error formatting the file name for file type: 10from cD: /tmp/c, vnet: 8"));
}

TEST_F(FileTest, DirectoriesAreMadeOnceAndRemovedWhenEmpty) {
  const std::string dir = "/etc/zymtra/zynet8";
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_VNET_DIR, nullptr));
  EXPECT_TRUE(Logged("NXCCreateFile", "Directory: " + dir + " created"));
  EXPECT_TRUE(S_ISDIR(Mode(dir)));
  EXPECT_EQ(Mode(dir) & 07777, 0755u);
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_VNET_DIR, nullptr));
  EXPECT_TRUE(Logged("NXCCreateFile", "Directory: " + dir + " already exists"));
  EXPECT_TRUE(NXCFileExists(8, NXC_FILE_VNET_DIR, nullptr));

  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_NAT_DIR, nullptr));
  EXPECT_FALSE(NXCRemoveFile(8, NXC_FILE_VNET_DIR, nullptr));
  EXPECT_TRUE(Logged("NXCRemoveFile", "Cannot delete Directory: " + dir +
                                          " because of: Directory not empty"));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_NAT_DIR, nullptr));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_VNET_DIR, nullptr));
  EXPECT_TRUE(Logged("NXCRemoveFile", "Directory: " + dir + " deleted"));
  EXPECT_FALSE(FileExists(dir));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_VNET_DIR, nullptr));
  EXPECT_TRUE(Logged("NXCRemoveFile", "Directory " + dir + " does not exist"));

  EXPECT_FALSE(NXCCreateFile(8, NXC_FILE_VNET_DIR, "/tmp/x"));
  EXPECT_TRUE(Logged("NXCCreateFile", "Invalid arguments"));
  EXPECT_FALSE(FileExists(dir));
}

TEST_F(FileTest, PlainFilesUseFixedModesAndAreNeverTruncated) {
  const std::string conf = "/etc/zymtra/zynet8/nat/nat.conf";
  EXPECT_FALSE(NXCCreateFile(8, NXC_FILE_NAT_CONF, nullptr)) << "no nat directory yet";
  EXPECT_TRUE(Logged("NXCCreateFile", "Cannot create File: " + conf +
                                          " because of: No such file or directory"));
  ASSERT_TRUE(NXCCreateFile(8, NXC_FILE_VNET_DIR, nullptr));
  ASSERT_TRUE(NXCCreateFile(8, NXC_FILE_NAT_DIR, nullptr));

  mode_t callerMask = umask(077);
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_NAT_CONF, nullptr));
  EXPECT_EQ(umask(callerMask), 077u) << "the caller's mask is given back";
  EXPECT_TRUE(Logged("NXCCreateFile", "File: " + conf + " created"));
  EXPECT_TRUE(S_ISREG(Mode(conf)));
  EXPECT_EQ(Mode(conf) & 07777, 0644u);

  ASSERT_TRUE(WriteFile(conf, "keep me\n"));
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_NAT_CONF, nullptr));
  EXPECT_TRUE(Logged("NXCCreateFile", "File: " + conf + " already exists"));
  EXPECT_EQ(ReadFile(conf), "keep me\n");
  EXPECT_TRUE(NXCFileExists(8, NXC_FILE_NAT_CONF, nullptr));
  EXPECT_TRUE(Logged("NXCFileExists", "File/Directory/Device: " + conf + " exists"));

  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_NAT_CONF, nullptr));
  EXPECT_TRUE(Logged("NXCRemoveFile", "File: " + conf + " deleted"));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_NAT_CONF, nullptr)) << "already gone is fine";
  EXPECT_TRUE(Logged("NXCRemoveFile", "File " + conf + " does not exist"));
  EXPECT_FALSE(NXCFileExists(8, NXC_FILE_NAT_CONF, nullptr));
  EXPECT_TRUE(Logged("NXCFileExists", "Cannot check for file or directory: " + conf +
                                          " , error: No such file or directory"));
}

TEST_F(FileTest, WrongKindAndTypesWithoutOperations) {
  ASSERT_EQ(Shell("mkdir -p /etc/zymtra/zynet8/dhcpd/dhcpd.conf"), 0);
  EXPECT_FALSE(NXCFileExists(8, NXC_FILE_DHCPD_CONF, nullptr));
  EXPECT_TRUE(Logged("NXCFileExists",
                     "File/Directory/device of type: 5 and name: "
                     "/etc/zymtra/zynet8/dhcpd/dhcpd.conf is found but is not of valid type"));
  ASSERT_TRUE(WriteFile("/etc/zymtra/zynet8/nat", ""));
  EXPECT_FALSE(NXCFileExists(8, NXC_FILE_NAT_DIR, nullptr));

  // nat.mac is only ever removed here; the database and the product file
  // are neither made nor removed.
  const std::string natMac = "/etc/zymtra/zynet8/nat.mac";
  ASSERT_TRUE(WriteFile(natMac, "x"));
  ASSERT_TRUE(WriteFile("/etc/zymtra/config", "x"));
  ClearLog();
  EXPECT_FALSE(NXCCreateFile(9, NXC_FILE_NAT_MAC, nullptr));
  EXPECT_FALSE(NXCCreateFile(-1, NXC_FILE_PRODUCT_CONFIG, nullptr));
  EXPECT_FALSE(NXCCreateFile(-1, NXC_FILE_NETWORKING_DB, nullptr));
  EXPECT_FALSE(NXCCreateFile(8, 14, nullptr));
  EXPECT_FALSE(NXCFileExists(8, NXC_FILE_NAT_MAC, nullptr));
  EXPECT_FALSE(NXCFileExists(-1, NXC_FILE_NETWORKING_DB, nullptr));
  EXPECT_FALSE(NXCRemoveFile(-1, NXC_FILE_PRODUCT_CONFIG, nullptr));
  EXPECT_FALSE(NXCRemoveFile(-1, NXC_FILE_NETWORKING_DB, nullptr));
  EXPECT_EQ(LogText(), "");
  EXPECT_FALSE(FileExists("/etc/zymtra/zynet9/nat.mac"));
  EXPECT_TRUE(FileExists("/etc/zymtra/config"));
  EXPECT_TRUE(FileExists("/etc/zymtra/networking"));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_NAT_MAC, nullptr));
  EXPECT_FALSE(FileExists(natMac));
}

TEST_F(FileTest, CustomFiles) {
  nxc::test::TempDir tmp;
  const std::string path = tmp.File("custom-file");
  EXPECT_TRUE(NXCCreateFile(-1, NXC_FILE_CUSTOM, path.c_str()));
  EXPECT_TRUE(S_ISREG(Mode(path)));
  EXPECT_TRUE(NXCFileExists(-1, NXC_FILE_CUSTOM, tmp.path().c_str()));  // any kind will do
  EXPECT_TRUE(NXCRemoveFile(-1, NXC_FILE_CUSTOM, path.c_str()));
  EXPECT_FALSE(FileExists(path));

  const std::string longName = tmp.path() + "/" + std::string(255 - tmp.path().size(), 'n');
  ASSERT_EQ(longName.size(), 256u);
  ClearLog();
  EXPECT_FALSE(NXCCreateFile(-1, NXC_FILE_CUSTOM, longName.c_str()));
  EXPECT_TRUE(Logged("NXCCreateFile", "Custom file name " + longName +
                                          " is longer than allowed 256 characters"));
  EXPECT_FALSE(NXCRemoveFile(-1, NXC_FILE_CUSTOM, longName.c_str()));
  EXPECT_TRUE(Logged("NXCRemoveFile", "Custom file name  is longer than allowed 256 characters"));
  EXPECT_FALSE(NXCFileExists(-1, NXC_FILE_CUSTOM, longName.c_str()));
  EXPECT_TRUE(Logged("NXCFileExists", "Custom file name  is longer than allowed 256 characters"));
  EXPECT_TRUE(NXCCreateFile(-1, NXC_FILE_CUSTOM, longName.substr(0, 255).c_str()));
}

TEST_F(FileTest, VnetDeviceNodes) {
  EXPECT_FALSE(NXCFileExists(8, NXC_FILE_VNET_DEVICE, nullptr));
  mode_t callerMask = umask(0);
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_VNET_DEVICE, nullptr));
  umask(callerMask);
  struct stat st = {};
  ASSERT_EQ(stat("/dev/zynet8", &st), 0);
  EXPECT_TRUE(S_ISCHR(st.st_mode));
  EXPECT_EQ(st.st_mode & 07777, 0600u);
  EXPECT_EQ(major(st.st_rdev), 241u);
  EXPECT_EQ(minor(st.st_rdev), 8u);
  EXPECT_TRUE(NXCCreateFile(8, NXC_FILE_VNET_DEVICE, nullptr)) << "an existing node is kept";
  EXPECT_TRUE(NXCFileExists(8, NXC_FILE_VNET_DEVICE, nullptr));
  EXPECT_TRUE(NXCRemoveFile(8, NXC_FILE_VNET_DEVICE, nullptr));
  EXPECT_FALSE(FileExists("/dev/zynet8"));

  // The node must be a device: a regular file does not pass.
  ASSERT_TRUE(WriteFile("/dev/zynet9", ""));
  EXPECT_TRUE(NXCCreateFile(9, NXC_FILE_VNET_DEVICE, nullptr)) << "not examined on creation";
  EXPECT_FALSE(NXCFileExists(9, NXC_FILE_VNET_DEVICE, nullptr));
  EXPECT_TRUE(Logged("NXCFileExists", "File/Directory/device of type: 13 and name: /dev/zynet9"));
  EXPECT_FALSE(NXCCreateFile(256, NXC_FILE_VNET_DEVICE, nullptr));
  EXPECT_TRUE(Logged("NXCCreateFile", "Cannot construct file name"));
}

TEST_F(FileTest, CopyFile) {
  nxc::test::TempDir tmp;
  const std::string src = tmp.File("src"), dst = tmp.File("dst");
  std::string data;
  for (int i = 0; i < 3000; ++i) data += (char)('a' + i % 26);  // three blocks, one partial
  ASSERT_TRUE(WriteFile(src, data));
  EXPECT_TRUE(NXCCopyFile(src.c_str(), dst.c_str()));
  EXPECT_EQ(ReadFile(dst), data);
  EXPECT_TRUE(Logged("NXCCopyFile", "Finished reading from source file: " + src));

  ASSERT_TRUE(WriteFile(src, "short\n"));
  EXPECT_TRUE(NXCCopyFile(src.c_str(), dst.c_str()));
  EXPECT_EQ(ReadFile(dst), "short\n") << "the destination is truncated";

  const std::string missing = tmp.File("missing"), badDst = tmp.File("no/such/dir");
  EXPECT_FALSE(NXCCopyFile(missing.c_str(), dst.c_str()));
  EXPECT_TRUE(Logged("NXCCopyFile", "Could not open source file: " + missing +
                                        ", error: No such file or directory"));
  EXPECT_FALSE(NXCCopyFile(src.c_str(), badDst.c_str()));
  EXPECT_TRUE(Logged("NXCCopyFile", "Could not open destination file: " + badDst +
                                        ", error: No such file or directory"));
  EXPECT_FALSE(NXCCopyFile(nullptr, dst.c_str()));
  EXPECT_TRUE(Logged("NXCCopyFile", "Invalid arguments"));
}


// ---- Host adapters and the virtual adapter, on the sandbox's own links ------

// The output of a shell command.
std::string CommandOutput(const std::string &command) {
  std::string out;
  FILE *pipe = popen(command.c_str(), "r");
  if (!pipe) return out;
  char chunk[512];
  size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) out.append(chunk, n);
  pclose(pipe);
  return out;
}

class LinkTest : public HostTest {
 protected:
  void TearDown() override {
    for (const std::string &link : links_) (void)Shell("ip link del " + link + " 2>/dev/null");
    HostTest::TearDown();
  }
  // Runs an `ip` command that makes the link named first; the link goes
  // with the test.
  void MakeLink(const std::string &name, const std::string &command) {
    links_.push_back(name);
    ASSERT_EQ(Shell(command), 0) << command;
  }
  void MakeVeth(const std::string &a, const std::string &b) {
    MakeLink(a, "ip link add " + a + " type veth peer name " + b);
  }
  void MakeTap(const std::string &name) { MakeLink(name, "ip tuntap add " + name + " mode tap"); }

 private:
  std::vector<std::string> links_;
};

using AdapterListTest = LinkTest;

TEST_F(AdapterListTest, ListsNamedEthernetLinksWithTheirDrivers) {
  MakeVeth("hv-veth0", "hv-veth1");
  MakeTap("hv-tap0");
  MakeLink("hv-tun0", "ip tuntap add hv-tun0 mode tun");  // not Ethernet
  MakeVeth("abcdefghijklmno", "hv-peer15");               // the longest name there is
  ASSERT_EQ(Shell("ip link set hv-veth0 up && ip link set hv-veth1 up"), 0);

  uint32_t count = 0;
  NXC_HostAdapter *head = nullptr;
  ASSERT_TRUE(NXCCreateHostAdapList(&count, &head));
  std::vector<std::string> names;
  for (NXC_HostAdapter *a = head; a; a = a->next) {
    SCOPED_TRACE(a->name);
    names.push_back(a->name);
    EXPECT_EQ(a->version, 1u);
    EXPECT_STREQ(a->mappingName, a->name);
    EXPECT_EQ(a->netId.version, 0u) << "bridge code fills the network identifier";
    std::string name = a->name;
    if (name == "hv-tap0") {
      EXPECT_STREQ(a->driver, "tun");
      EXPECT_EQ(a->flags, NXC_HOST_ADAPTER_NOT_RUNNING);
    } else if (name == "hv-veth0") {
      EXPECT_STREQ(a->driver, "veth");
      EXPECT_EQ(a->flags, NXC_HOST_ADAPTER_RUNNING);
    }
  }
  EXPECT_EQ(count, names.size());
  // The kernel's order, Ethernet links only.
  std::string expected =
      CommandOutput("ip -o link show | awk -F': ' '/link\\/ether/ {sub(/@.*/, \"\", $2); print $2}'");
  std::string listed;
  for (const std::string &n : names) listed += n + "\n";
  EXPECT_EQ(listed, expected);
  for (const char *name : {"hv-veth0", "hv-veth1", "hv-tap0", "abcdefghijklmno", "hv-peer15"})
    EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
  for (const char *name : {"lo", "hv-tun0"})
    EXPECT_EQ(std::find(names.begin(), names.end(), name), names.end()) << name;
  EXPECT_TRUE(Logged("NXCCreateHostAdapList", "Skipping non-ethernet interface: ifi_type: 772"));
  EXPECT_TRUE(Logged("NXCCreateHostAdapList",
                     "Obtained driver name: veth for adapter: hv-veth0"));
  EXPECT_TRUE(Logged("NXCCreateHostAdapList", "Processed all adapters"));

  NXCFreeHostAdapList(&head);
  EXPECT_EQ(head, nullptr);
  NXCFreeHostAdapList(&head);  // an empty list is fine
  EXPECT_EQ(head, nullptr);
}

using VirtAdapterTest = LinkTest;

TEST_F(VirtAdapterTest, StatusOfMissingDownAndUpAdapters) {
  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_ABSENT);
  EXPECT_TRUE(Logged("NXCAdapterStatus", "'zynet8' not in /proc/net/dev"));
  MakeTap("zynet8");
  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_DOWN);
  EXPECT_TRUE(Logged("NXCAdapterStatus", "SIOCGIFFLAGS: 0x1002 for zynet8"));
  ASSERT_EQ(Shell("ip link set zynet8 up"), 0);
  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_UP);
  EXPECT_EQ(NXCAdapterStatus("zynet"), NXC_ADAPTER_STATUS_ABSENT) << "names match whole";
  EXPECT_EQ(NXCAdapterStatus("lo"), NXC_ADAPTER_STATUS_UP);
}

TEST_F(VirtAdapterTest, AdapterAddressStoredOrComputed) {
  struct Case {
    const char *stored, *subnet;
    size_t size;
    bool compute;
    const char *address;  // null: fails
    const char *log;
  } cases[] = {
      {"10.0.0.5", "192.168.10.0", 16, true, "10.0.0.5", nullptr},
      {"10.0.0.5", nullptr, 16, false, "10.0.0.5", nullptr},
      {"10.0.0.5", "192.168.10.0", 8, true, nullptr, nullptr},  // stored, too long: no fallback
      {nullptr, "192.168.10.0", 16, false, nullptr, nullptr},
      {nullptr, "192.168.10.0", 16, true, "192.168.10.1", nullptr},
      {nullptr, "192.168.10.0", 13, true, "192.168.10.1", nullptr},
      {nullptr, "192.168.10.0", 12, true, nullptr,
       "Insufficient buffer length: 12 for adapter address"},
      {nullptr, nullptr, 16, true, nullptr, "Getting Subnet Address failed"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << (c.stored ? c.stored : "-") << " " << c.size);
    (void)NXCNetCfgRemoveAnswer(nullptr, "VNET_8_VIRTUAL_ADAPTER_ADDR");
    (void)NXCNetCfgRemoveAnswer(nullptr, "VNET_8_HOSTONLY_SUBNET");
    if (c.stored) SetAnswer("VNET_8_VIRTUAL_ADAPTER_ADDR", c.stored);
    if (c.subnet) SetAnswer("VNET_8_HOSTONLY_SUBNET", c.subnet);
    ClearLog();
    char buffer[16] = "";
    EXPECT_EQ(NXCGetVnetVirtAdapterAddr(8, buffer, c.size, c.compute), c.address != nullptr);
    if (c.address) {
      EXPECT_STREQ(buffer, c.address);
    }
    if (c.log) {
      EXPECT_TRUE(Logged("NXCGetVnetVirtAdapterAddr", c.log)) << LogText();
    }
  }
  EXPECT_FALSE(NXCIsMacosVirtApiEnabled());
}

TEST_F(VirtAdapterTest, EnableSetsTheVnetAddressAndDisableKeepsIt) {
  SetAnswer("VNET_8_HOSTONLY_SUBNET", "192.168.10.0");
  SetAnswer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
  EXPECT_TRUE(NXCVirtAdapterDisable(8)) << "no adapter: nothing to take down";
  EXPECT_TRUE(Logged("NXCVirtAdapterDisable", "Virtual adapter is already disabled"));
  EXPECT_FALSE(NXCVirtAdapterEnable(8));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable", "ioctl: SIOCAIFADDR failed, error: No such device"));

  MakeTap("zynet8");
  ClearLog();
  ASSERT_TRUE(NXCVirtAdapterEnable(8)) << LogText();
  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_UP);
  std::string addr = CommandOutput("ip -4 addr show zynet8");
  EXPECT_NE(addr.find("inet 192.168.10.1/24 brd 192.168.10.255 "), std::string::npos) << addr;
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable",
                     "ioctl: SIOCSIFADDR set interface address to: 010aa8c0 for interface: zynet8"));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable", "ioctl: SIOCSIFNETMASK set interface netmask "
                                             "address to: 00ffffff for interface: zynet8"));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable", "ioctl: SIOCSIFBRDADDR set interface broadcast "
                                             "address to: ff0aa8c0 for interface: zynet8"));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable",
                     "ioctl: SIOCSIFFLAGS set interface flags to: 0x1003 for interface: zynet8"));

  // An adapter that is up is left as it is, whatever the configuration says.
  SetAnswer("VNET_8_VIRTUAL_ADAPTER_ADDR", "192.168.10.7");
  EXPECT_TRUE(NXCVirtAdapterEnable(8));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable", "Virtual adapter is already enabled"));
  EXPECT_EQ(CommandOutput("ip -4 addr show zynet8"), addr);

  ClearLog();
  EXPECT_TRUE(NXCVirtAdapterDisable(8));
  EXPECT_EQ(NXCAdapterStatus("zynet8"), NXC_ADAPTER_STATUS_DOWN);
  EXPECT_TRUE(Logged("NXCVirtAdapterDisable",
                     "ioctl: SIOCSIFFLAGS set interface flags to: 0x1002 for interface: zynet8"));
  EXPECT_NE(CommandOutput("ip -4 addr show zynet8").find("inet 192.168.10.1/24"),
            std::string::npos);
  EXPECT_TRUE(NXCVirtAdapterDisable(8));
  EXPECT_TRUE(Logged("NXCVirtAdapterDisable", "Virtual adapter is already disabled"));

  // Down again, it takes the stored address.
  EXPECT_TRUE(NXCVirtAdapterEnable(8));
  EXPECT_NE(CommandOutput("ip -4 addr show zynet8").find("inet 192.168.10.7/24"),
            std::string::npos);
}

TEST_F(VirtAdapterTest, EnableUsesTheConfiguredAdapterName) {
  MakeTap("hv-host9");
  SetAnswer("VNET_9_VIRTUAL_ADAPTER_NAME", "hv-host9");
  SetAnswer("VNET_9_HOSTONLY_SUBNET", "10.9.0.0");
  SetAnswer("VNET_9_HOSTONLY_NETMASK", "255.255.0.0");
  ASSERT_TRUE(NXCVirtAdapterEnable(9)) << LogText();
  EXPECT_NE(CommandOutput("ip -4 addr show hv-host9").find("inet 10.9.0.1/16 brd 10.9.255.255 "),
            std::string::npos);

  SetAnswer("VNET_10_HOSTONLY_SUBNET", "10.10.0.0");  // no mask
  MakeTap("zynet10");
  ClearLog();
  EXPECT_FALSE(NXCVirtAdapterEnable(10));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable", "Getting virtual adapter mask failed"));
  EXPECT_FALSE(NXCVirtAdapterEnable(11));
  EXPECT_TRUE(Logged("NXCGetVnetVirtAdapterAddr", "Getting Subnet Address failed"));
  EXPECT_TRUE(Logged("NXCVirtAdapterEnable", "Getting virtual adapter address failed"));
}

}  // namespace
