// plain_main.cpp - entry point of test programs that need no sandbox.
#include <gtest/gtest.h>

#include "support/sandbox.h"

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  return nxc::test::RunAllTestsRefusingSkips();
}
