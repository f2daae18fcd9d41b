// Library core: the log line format and mask, load and unload with the
// 16-bit count, the configured log file, the log-level calls, the database
// lock of a public call and the short frame of the answer calls.
#include <fnmatch.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/api_frame.h"
#include "core/log.h"
#include "nexcfg_internal.h"
#include "support/db_fixture.h"

namespace nxc::test {
namespace {

class CoreTest : public DbTest {};

// True when line starts with a log time stamp, "Mar 04 17:05:09 ".
bool HasTimePrefix(const std::string &line) {
  return fnmatch("[A-Z][a-z][a-z] [0-9][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9] *", line.c_str(), 0) == 0;
}

// A stream of our own, so that format tests do not depend on loading.
class LogStreamTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_ = nxcContext;
    ASSERT_NE(stream_, nullptr);
    nxcContext.logStream = stream_;
  }
  void TearDown() override {
    nxcContext = saved_;
    if (stream_) fclose(stream_);
  }
  std::string Text() {
    fflush(stream_);
    return ReadFile(dir_.File("log"));
  }
  TempDir dir_;
  FILE *stream_ = fopen(dir_.File("log").c_str(), "w");
  NXCContext saved_{};
};

TEST_F(LogStreamTest, LineCarriesTimeFunctionNameAndMessage) {
  nxcContext.logMask = 0x19;
  NXCLog(LOG_OK, "NXCNetCfgLoad", "Database file, Major version: %u, Minor version: %u", 1u, 2u);
  NXCLog(LOG_ERR, nullptr, "no name %d", 7);
  const std::vector<std::string> lines = SplitLines(Text());
  ASSERT_EQ(lines.size(), 2u) << Text();
  for (const std::string &line : lines) EXPECT_TRUE(HasTimePrefix(line)) << line;
  EXPECT_EQ(lines[0].substr(16), "NXCNetCfgLoad - Database file, Major version: 1, Minor version: 2");
  // Without a name there is no " - ", only the time and one blank.
  EXPECT_EQ(lines[1].substr(16), "no name 7");
}

TEST_F(LogStreamTest, MaskSelectsLinesByAnyOfTheirBitsAndNoStreamWritesNothing) {
  nxcContext.logMask = 0x19;
  NXCLog(LOG_INFO2, "F", "trace");
  NXCLog(LOG_OK, "F", "success");
  NXCLog(LOG_INFO2 | LOG_WRN, "F", "either");
  NXCLog(LOG_ARGS, "F", "args");
  nxcContext.logStream = nullptr;
  NXCLog(LOG_ERR, "F", "lost");
  nxcContext.logStream = stream_;
  std::string text = Text();
  for (const char *missing : {"trace", "args", "lost"})
    EXPECT_EQ(text.find(missing), std::string::npos) << missing;
  EXPECT_NE(text.find("F - success"), std::string::npos);
  EXPECT_NE(text.find("F - either"), std::string::npos);
}

TEST_F(LogStreamTest, HeldLinesComeOutInOrderWhereTheyAreWrittenOut) {
  nxcContext.logMask = 0x19;
  NXCLog(LOG_ERR, "F", "first");
  {
    LogHold outer;
    NXCLog(LOG_ERR, "F", "held %d", 1);
    NXCLog(LOG_INFO2, "F", "masked");  // the mask applies when a line is made
    {
      LogHold inner;
      NXCLog(LOG_ERR, nullptr, "inner");
      inner.WriteOut();  // into the outer hold, which still holds
    }
    outer.Stop();
    NXCLog(LOG_ERR, "F", "direct");
    {
      LogHold dropped;
      NXCLog(LOG_ERR, "F", "dropped");
    }
    outer.WriteOut();
  }
  NXCLog(LOG_ERR, "F", "last");
  const std::vector<std::string> lines = SplitLines(Text());
  ASSERT_EQ(lines.size(), 5u) << Text();
  const char *kExpected[] = {"F - first", "F - direct", "F - held 1", "inner", "F - last"};
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_TRUE(HasTimePrefix(lines[i])) << lines[i];
    EXPECT_EQ(lines[i].substr(16), kExpected[i]);
  }
}

TEST_F(LogStreamTest, BannersFrameTheirTextWithBlankLines) {
  nxcContext.logMask = LOG_INFO2;
  ApiEnterBanner("NXC_GetVnetFeatures", 12);
  ApiExitBanner("NXC_GetVnetFeatures", 34);
  InternalEnter("NXCDHCPGetParameter", 56);
  std::string text = Text();
  EXPECT_NE(text.find(" \n----------------------------------\nEntering API Function, "
                      "NXC_GetVnetFeatures:12\n\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find(" \nExiting API Function, NXC_GetVnetFeatures:34\n-----------\n\n"),
            std::string::npos);
  EXPECT_NE(text.find("NXCDHCPGetParameter -  Entering Function, NXCDHCPGetParameter:56\n"),
            std::string::npos);
}

TEST_F(CoreTest, FirstLoadLogsBannerProbesAndSuccess) {
  WriteDb("");
  ASSERT_TRUE(Load());
  EXPECT_EQ(nxcContext.loadCount, 1);
  EXPECT_EQ(nxcContext.logMask, 0x7fu);
  std::string log = LogText();
  // The entry banner is written while the mask is still 0x19, so it is not
  // there; the probes show every level of the stored mask, in order.
  size_t pos = 0;
  for (const char *probe : {"LOG_ERR logged", "LOG_ERRCMN logged", "LOG_WRN logged",
                            "LOG_OK logged", "LOG_INFO logged", "LOG_INFO2 logged",
                            "LOG_ARGS logged", "Config file used: /etc/zymtra/networking",
                            "Successfully initialized Nexcfg", "Exiting API Function, NXC_Load:"}) {
    size_t at = log.find(probe, pos);
    ASSERT_NE(at, std::string::npos) << probe << "\n" << log;
    pos = at;
  }
}

TEST_F(CoreTest, NestedLoadsOnlyCountAndTheLastUnloadFrees) {
  WriteDb("answer K v\n");
  ASSERT_TRUE(Load());
  ClearLog();
  ASSERT_TRUE(Load());
  EXPECT_EQ(nxcContext.loadCount, 2);
  EXPECT_TRUE(LogHas("NXC_Load - nexcfg is already loaded"));
  EXPECT_FALSE(LogHas("Entering API Function, NXC_Load"));

  NXC_Unload();
  const char *value = nullptr;
  ASSERT_TRUE(NXC_VnetCfgGetAnswer("K", &value));
  EXPECT_STREQ(value, "v");
  NXC_Unload();
  EXPECT_EQ(nxcContext.loadCount, 0);
  EXPECT_EQ(nxcContext.logStream, nullptr);
  EXPECT_TRUE(LogHas("NXC_Unload2 - Nexcfg unloaded."));
  EXPECT_FALSE(NXCNetCfgGetAnswerString(nullptr, "K", &value));

  nxcContext.logStream = fopen(kLogPath, "ab");
  NXC_Unload();
  EXPECT_TRUE(LogHas("NXC_Unload2 - nexcfg is not loaded"));
  fclose(nxcContext.logStream);
  nxcContext.logStream = nullptr;

  // The count has 16 bits: a load past 0xFFFF wraps it to "not loaded".
  ASSERT_TRUE(Load());
  nxcContext.loadCount = 0xFFFF;
  ASSERT_TRUE(Load());
  EXPECT_EQ(nxcContext.loadCount, 0);
  EXPECT_FALSE(ApiIsLoaded("NXC_X"));
  nxcContext.loadCount = 1;
}

TEST_F(CoreTest, LoadWithoutDatabaseFailsAndCallsRefuse) {
  ASSERT_FALSE(Load());
  EXPECT_EQ(nxcContext.loadCount, 0);
  EXPECT_TRUE(LogHas("NXCNetCfgLoad - Import file does not exist"));
  EXPECT_TRUE(LogHas("Error loading the vnet configuration, file used: /etc/zymtra/networking"));
  const char *value = nullptr;
  EXPECT_FALSE(NXC_VnetCfgGetAnswer("K", &value));
  EXPECT_TRUE(LogHas("NXC_VnetCfgGetAnswer - Nexcfg Un-Initialized, Aborting\n\n"));
  // The stream of the failed load stays open for later lines.
  EXPECT_NE(nxcContext.logStream, nullptr);
  fclose(nxcContext.logStream);
  nxcContext.logStream = nullptr;
}

TEST_F(CoreTest, ReadOnlyLoadNeverRewritesTheDatabase) {
  WriteDb("answer B 2\nanswer A 1\nremove_answer B\n");
  std::string before = DbText();
  ASSERT_TRUE(Load(/*readOnly=*/true));
  EXPECT_TRUE(NXC_VnetCfgAddAnswer("C", "3"));
  EXPECT_EQ(Answer("C"), "3");
  UnloadAll(/*writeBack=*/true);
  EXPECT_EQ(DbText(), before);
}

TEST_F(CoreTest, ConfiguredLogFileReplacesTheDefaultWhenItCanBeOpened) {
  struct Case { const char *name; std::string path; bool used; const char *expected; } cases[] = {
      {"usable", "/tmp/other.log", true, nullptr},
      {"missing directory", "/nonexistent/dir/log", false,
       "fopen: opening log file: /nonexistent/dir/log failed, error: No such file or directory"},
      {"256 characters", "/tmp/" + std::string(251, 'x'), false, nullptr},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    UnloadAll(false);
    ClearLog();
    WriteDb("answer NXC_LOG_FILE " + c.path + "\n");
    ASSERT_TRUE(Load());
    NXCLog(LOG_ERR, "T", "a line");
    EXPECT_EQ(LogHas("T - a line"), !c.used);
    EXPECT_EQ(ReadFile(c.path).find("T - a line") != std::string::npos, c.used);
    EXPECT_EQ(FileExists(c.path), c.used);
    EXPECT_TRUE(!c.expected || LogHas(c.expected));
  }
}

TEST_F(CoreTest, StoredLogLevelFallsBackToDefaultWhenUnusable) {
  // Stored values are not checked against the highest level.
  struct Case { const char *stored; uint32_t expected; } cases[] = {
      {nullptr, 0x19}, {"abc", 0x19}, {"-1", 0x19}, {"0x1ff", 0x1ff}, {"33", 33}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.stored ? c.stored : "absent");
    WriteRawDb(std::string("VERSION=1,0\n") +
               (c.stored ? std::string("answer NXC_LOGLEVEL ") + c.stored + "\n" : ""));
    ASSERT_TRUE(Load());
    EXPECT_EQ(NXC_GetDefaultLogLevel(), c.expected);
    EXPECT_EQ(NXC_GetCurrentLogLevel(), c.expected);
    UnloadAll(false);
  }
}

TEST_F(CoreTest, DefaultLogLevelIsCheckedAndStoredButNotApplied) {
  WriteDb("");
  ASSERT_TRUE(Load());
  EXPECT_FALSE(NXC_SetDefaultLogLevel(0x80));
  EXPECT_TRUE(LogHas("NXC_SetDefaultLogLevel - Invalid log level: 80, max log level: 7f"));
  ASSERT_TRUE(NXC_SetDefaultLogLevel(0x19));
  EXPECT_EQ(NXC_GetCurrentLogLevel(), 0x7fu);
  EXPECT_EQ(Answer("NXC_LOGLEVEL"), "0x19");
  EXPECT_NE(DbText().find("remove_answer NXC_LOGLEVEL\nanswer NXC_LOGLEVEL 0x19\n"),
            std::string::npos);
  // The current level takes anything, unchecked, until the next first load.
  EXPECT_TRUE(NXC_SetCurrentLogLevel(0x12345));
  EXPECT_EQ(NXC_GetCurrentLogLevel(), 0x12345u);
}

TEST_F(CoreTest, ACallReleasesItsDatabaseLockBeforeItsExitBannerAndAtItsEnd) {
  WriteDb("");
  ASSERT_TRUE(Load());
  ClearLog();
  {
    ApiCall call("NXC_X");
    ASSERT_TRUE(call.Lock());
    call.Exit(7);
  }
  const std::string log = LogText();
  const size_t unlocked = log.find("NXCNetCfgUnlockConfig - Config file unlocking success");
  EXPECT_LT(unlocked, log.find("Exiting API Function, NXC_X:7"));
  EXPECT_EQ(LogCount("unlocking success"), 1);
  {
    ApiCall call("NXC_Y");
    ASSERT_TRUE(call.Lock());
  }  // a path that returned without its exit
  ASSERT_TRUE(NXCNetCfgLockConfig(nullptr));
  EXPECT_TRUE(NXCNetCfgUnlockConfig(nullptr));
}

TEST_F(CoreTest, AnswerCallsCheckArgumentsInTheirShortFrame) {
  WriteDb("");
  ASSERT_TRUE(Load());
  const char *value = nullptr;
  EXPECT_FALSE(NXC_VnetCfgAddAnswer(nullptr, "v"));
  EXPECT_FALSE(NXC_VnetCfgAddAnswer("K", nullptr));
  EXPECT_FALSE(NXC_VnetCfgRemoveAnswer(nullptr));
  EXPECT_FALSE(NXC_VnetCfgGetAnswer("K", nullptr));
  EXPECT_EQ(LogCount("Invalid argument"), 4);
  EXPECT_FALSE(LogHas("Entering API Function, NXC_VnetCfg"));
  EXPECT_TRUE(NXC_VnetCfgAddAnswer("K", "v"));
  EXPECT_TRUE(NXC_VnetCfgGetAnswer("K", &value));
  EXPECT_STREQ(value, "v");
  EXPECT_TRUE(NXC_VnetCfgRemoveAnswer("K"));
  EXPECT_FALSE(NXC_VnetCfgGetAnswer("K", &value));
}

}  // namespace
}  // namespace nxc::test
