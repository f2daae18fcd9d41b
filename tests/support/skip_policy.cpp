// skip_policy.cpp - a test that skips fails the run wherever it could run.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "support/sandbox.h"

namespace nxc::test {

namespace {

// The reason a skipped test gave (the message of its skip result).
std::string SkipReason(const testing::TestResult &result) {
  for (int i = 0; i < result.total_part_count(); ++i) {
    const testing::TestPartResult &part = result.GetTestPartResult(i);
    if (part.skipped()) return part.message();
  }
  return "";
}

}  // namespace

int RunAllTestsRefusingSkips() {
  int rc = RUN_ALL_TESTS();
  const testing::UnitTest &unit = *testing::UnitTest::GetInstance();
  if (unit.skipped_test_count() == 0) return rc;
  const bool root = geteuid() == 0;
  for (int s = 0; s < unit.total_test_suite_count(); ++s) {
    const testing::TestSuite &suite = *unit.GetTestSuite(s);
    for (int t = 0; t < suite.total_test_count(); ++t) {
      const testing::TestInfo &info = *suite.GetTestInfo(t);
      if (!info.result()->Skipped()) continue;
      fprintf(stderr, "%s: %s.%s skipped: %s\n", root ? "FAILED" : "SKIPPED", suite.name(),
              info.name(), SkipReason(*info.result()).c_str());
    }
  }
  if (root) return 1;
  return rc == 0 && unit.successful_test_count() == 0 ? 77 : rc;
}

}  // namespace nxc::test
