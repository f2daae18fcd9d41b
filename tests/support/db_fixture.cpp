#include "support/db_fixture.h"

namespace nxc::test {

void DbTest::SetUp() {
  ASSERT_TRUE(InSandbox()) << "this test must run inside the private namespaces";
  ClearLog();
}

void DbTest::TearDown() { UnloadAll(/*writeBack=*/false); }

void DbTest::WriteRawDb(const std::string &text) { ASSERT_TRUE(WriteFile(kDbPath, text)); }

bool DbTest::Load(bool readOnly) { return NXC_Load(readOnly ? 1 : 0); }

void DbTest::UnloadAll(bool writeBack) {
  while (nxcContext.loadCount != 0) NXC_Unload2(writeBack ? 1 : 0);
}

std::string DbTest::Answer(const char *key) const {
  const char *value = nullptr;
  if (!NXCNetCfgGetAnswerString(nullptr, key, &value)) return "<absent>";
  return value;
}

}  // namespace nxc::test
