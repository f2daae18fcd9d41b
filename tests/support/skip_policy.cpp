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

// Names every skipped test with its reason as it ends. Where every test
// can run (as root) the skip also becomes a failure of the same test. That
// failure is recorded before the result printer sees the test (end events
// reach the listeners in reverse order), so the program, its output and the
// test runner all tell a failure: a runner that counts "[  SKIPPED ]" lines
// as skips never sees one.
class SkipPolicy : public testing::EmptyTestEventListener {
 public:
  explicit SkipPolicy(bool refuse) : refuse_(refuse) {}

 private:
  void OnTestEnd(const testing::TestInfo &info) override {
    if (!info.result()->Skipped()) return;
    std::string reason = SkipReason(*info.result());
    fprintf(stderr, "%s: %s.%s skipped: %s\n", refuse_ ? "FAILED" : "SKIPPED",
            info.test_suite_name(), info.name(), reason.c_str());
    if (refuse_) ADD_FAILURE() << "skipped where every test must run: " << reason;
  }

  bool refuse_;
};

}  // namespace

int RunAllTestsRefusingSkips() {
  testing::UnitTest &unit = *testing::UnitTest::GetInstance();
  unit.listeners().Append(new SkipPolicy(/*refuse=*/geteuid() == 0));
  int rc = RUN_ALL_TESTS();
  // Without root, a program whose tests all skipped says so to the runner.
  if (rc == 0 && unit.skipped_test_count() > 0 && unit.successful_test_count() == 0) return 77;
  return rc;
}

}  // namespace nxc::test
