#include "support/db_fixture.h"

#include <sys/mount.h>
#include <unistd.h>

namespace nxc::test {

std::string Golden(const std::string &name) {
  return ReadFile(std::string(SourceDir()) + "/tests/golden/" + name);
}

void DbTest::SetUp() {
  ASSERT_TRUE(InSandbox()) << "this test must run inside the private namespaces";
  // Each test starts from an empty configuration directory and no vnet
  // device nodes.
  (void)Shell("rm -rf /etc/zymtra/* /etc/zymtra/.networking.* /dev/zynet*");
  ClearLog();
}

void DbTest::TearDown() {
  UnloadAll(/*writeBack=*/false);
  if (diskMounted_) {
    EXPECT_EQ(umount2("/etc/zymtra", MNT_DETACH), 0);
    diskMounted_ = false;
  }
}

void DbTest::WriteRawDb(const std::string &text) { ASSERT_TRUE(WriteFile(kDbPath, text)); }

bool DbTest::Load(bool readOnly) { return NXC_Load(readOnly ? 1 : 0); }

void DbTest::LoadWith(const std::string &records, bool readOnly) {
  WriteDb(records);
  ASSERT_TRUE(Load(readOnly));
  ClearLog();
}

void DbTest::Reload(const std::string &records, bool readOnly) {
  UnloadAll(/*writeBack=*/false);
  LoadWith(records, readOnly);
}

void DbTest::UnloadAll(bool writeBack) {
  while (nxcContext.loadCount != 0) NXC_Unload2(writeBack ? 1 : 0);
}

std::string DbTest::Answer(const char *key) const {
  const char *value = nullptr;
  if (!NXCNetCfgGetAnswerString(nullptr, key, &value)) return "<absent>";
  return value;
}

void DbTest::FillDatabaseDisk(size_t room) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  ASSERT_LT(room, page);
  std::string db = DbText() + "answer PAD ";
  const std::string config = ReadFile("/etc/zymtra/config");
  // Pad up to the end of a page less room, the newline included.
  size_t pad = (2 * page - room - (db.size() + 1) % page) % page;
  db += std::string(pad == 0 ? page : pad, 'p') + "\n";
  ASSERT_EQ(mount("tmpfs", "/etc/zymtra", "tmpfs", 0, "size=64k"), 0);
  diskMounted_ = true;
  ASSERT_TRUE(WriteFile(kDbPath, db));
  if (!config.empty()) {
    ASSERT_TRUE(WriteFile("/etc/zymtra/config", config));
  }
  (void)Shell("dd if=/dev/zero of=/etc/zymtra/filler bs=4096 >/dev/null 2>&1");
}

}  // namespace nxc::test
