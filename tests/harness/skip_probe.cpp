// skip_probe.cpp - a test program whose one test skips. Run by
// populated_host.sh, never by the suite: as root it must fail.
#include <gtest/gtest.h>

TEST(HarnessProbe, MadeToSkip) { GTEST_SKIP() << "made to skip"; }
