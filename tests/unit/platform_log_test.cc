// liboviklog and the sandbox root: the two pieces every other family leans on.
#include <gtest/gtest.h>
#include <oviklog.h>
#include <zolo/sysroot.h>

#include <errno.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "log_capture.h"
#include "sandbox.h"

namespace {

using zolo::test::LogCapture;

TEST(OvikLog, CaptureSeesEveryLevelWithItsFields) {
  LogCapture capture;
  OVIK_LOG_write_newline(40, 4, "utils", 12, "Fn", "value %d of %s", 7, "x");
  auto lines = capture.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].module, 40);
  EXPECT_EQ(lines[0].level, 4);
  EXPECT_EQ(lines[0].source, "utils");
  EXPECT_EQ(lines[0].function, "Fn");
  EXPECT_EQ(lines[0].message, "value 7 of x");
}

// The system-log side: structured journal entries, and syslog when the journal refuses a
// line or is turned off.
std::vector<std::string> g_journal;
int g_journal_result = 0;
std::vector<std::string> g_syslog;

int RecordJournal(const char* const* fields, int count) {
  g_journal.assign(fields, fields + count);
  return g_journal_result;
}
void RecordSyslog(int priority, const char* line) {
  g_syslog.push_back(std::to_string(priority) + " " + line);
}

class SystemLog : public testing::Test {
 protected:
  void SetUp() override {
    setenv("OVIK_LOG_SYSLOG", "1", 1);
    unsetenv("OVIK_LOG_JOURNAL");
    OVIK_LOG_reload_env();
    OVIK_LOG_set_writers(RecordJournal, RecordSyslog);
    g_journal.clear();
    g_syslog.clear();
    g_journal_result = 0;
  }
  void TearDown() override {
    OVIK_LOG_set_writers(nullptr, nullptr);
    setenv("OVIK_LOG_SYSLOG", "0", 1);
    unsetenv("OVIK_LOG_JOURNAL");
    OVIK_LOG_reload_env();
  }
};

TEST_F(SystemLog, JournalEntriesCarryTheCallersPosition) {
  LogCapture capture;
  OVIK_LOG_write_newline(40, 1, "storage", 77, "Storage::Initialize", "free %d", 5);
  EXPECT_EQ(g_journal, (std::vector<std::string>{
                           "MESSAGE=free 5", "PRIORITY=4",
                           std::string("SYSLOG_IDENTIFIER=") + program_invocation_short_name,
                           "CODE_FILE=storage", "CODE_LINE=77", "CODE_FUNC=Storage::Initialize",
                           "OVIK_MODULE=40", "OVIK_LEVEL=1"}));
  EXPECT_TRUE(g_syslog.empty());
  EXPECT_EQ(capture.Lines().size(), 1u);
}

TEST_F(SystemLog, SyslogTakesWhatTheJournalRefusesOrWhenItIsTurnedOff) {
  g_journal_result = -ECONNREFUSED;
  OVIK_LOG_write_newline(40, 0, "bus", 3, "Call", "lost");
  setenv("OVIK_LOG_JOURNAL", "0", 1);
  OVIK_LOG_reload_env();
  g_journal_result = 0;
  OVIK_LOG_write_newline(40, 2, "bus", 4, "Call", "plain");
  EXPECT_EQ(g_syslog,
            (std::vector<std::string>{"3 [40] bus:3 Call: lost", "5 [40] bus:4 Call: plain"}));
  setenv("OVIK_LOG_SYSLOG", "0", 1);
  OVIK_LOG_reload_env();
  OVIK_LOG_write_newline(40, 0, "bus", 5, "Call", "nowhere");
  EXPECT_EQ(g_syslog.size(), 2u);
}

// Against the real journal where one runs: the entry is found with its position.
TEST(OvikLogJournal, JournalctlFindsTheEntry) {
  if (access("/run/systemd/journal/socket", W_OK) != 0 ||
      system("journalctl --version >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "no journal running here";
  setenv("OVIK_LOG_SYSLOG", "1", 1);
  OVIK_LOG_reload_env();
  std::string marker = "journal-probe-" + std::to_string(getpid());
  OVIK_LOG_write_newline(40, 0, "probe", 9, "Probe", "%s", marker.c_str());
  setenv("OVIK_LOG_SYSLOG", "0", 1);
  OVIK_LOG_reload_env();
  std::string command = std::string("sleep 1; journalctl -t ") + program_invocation_short_name +
                        " --output=json -n 50 | grep -q '\"CODE_FUNC\":\"Probe\".*" + marker +
                        "\\|" + marker + ".*\"CODE_FUNC\":\"Probe\"'";
  EXPECT_EQ(system(command.c_str()), 0);
}

TEST(OvikLog, LongMessagesAreNotCut) {
  LogCapture capture;
  std::string long_text(5000, 'a');
  OVIK_LOG_write_newline(40, 0, "s", 1, "f", "%s!", long_text.c_str());
  ASSERT_EQ(capture.Lines().size(), 1u);
  EXPECT_EQ(capture.Lines()[0].message, long_text + "!");
}

TEST(OvikLog, NullArgumentsAreHarmless) {
  LogCapture capture;
  OVIK_LOG_write_newline(40, 0, nullptr, 1, nullptr, "plain");
  OVIK_LOG_write_newline(40, 0, "s", 1, "f", nullptr);
  ASSERT_EQ(capture.Lines().size(), 1u);
  EXPECT_EQ(capture.Lines()[0].source, "");
}

TEST(OvikLog, StderrFollowsTheEnvironmentAndThreshold) {
  setenv("OVIK_LOG_STDERR", "1", 1);
  setenv("OVIK_LOG_LEVEL", "1", 1);
  OVIK_LOG_reload_env();
  testing::internal::CaptureStderr();
  OVIK_LOG_write_newline(40, 1, "src", 3, "fn", "shown");
  OVIK_LOG_write_newline(40, 2, "src", 4, "fn", "hidden");
  std::string err = testing::internal::GetCapturedStderr();
  unsetenv("OVIK_LOG_STDERR");
  unsetenv("OVIK_LOG_LEVEL");
  OVIK_LOG_reload_env();
  EXPECT_NE(err.find("src:3 fn: shown"), std::string::npos) << err;
  EXPECT_EQ(err.find("hidden"), std::string::npos) << err;
}

struct SysrootCase {
  const char* root;  // nullptr: unset
  const char* path;
  const char* expected;
};

class SysrootPathTest : public testing::TestWithParam<SysrootCase> {};

TEST_P(SysrootPathTest, PrefixesAbsolutePathsOnly) {
  const auto& c = GetParam();
  if (c.root)
    setenv("ZOLO_SYSROOT", c.root, 1);
  else
    unsetenv("ZOLO_SYSROOT");
  EXPECT_EQ(zolo::SysrootPath(c.path), c.expected);
  unsetenv("ZOLO_SYSROOT");
}

INSTANTIATE_TEST_SUITE_P(Table, SysrootPathTest,
                         testing::Values(SysrootCase{nullptr, "/etc/media.conf", "/etc/media.conf"},
                                         SysrootCase{"", "/etc/media.conf", "/etc/media.conf"},
                                         SysrootCase{"/tmp/r", "/etc/media.conf",
                                                     "/tmp/r/etc/media.conf"},
                                         SysrootCase{"/tmp/r///", "/media", "/tmp/r/media"},
                                         SysrootCase{"/", "/media", "/media"},
                                         SysrootCase{"/tmp/r", "relative/x", "relative/x"},
                                         SysrootCase{"/tmp/r", "", ""}));

TEST(Sandbox, SetsAndRestoresTheRoot) {
  unsetenv("ZOLO_SYSROOT");
  std::string root;
  {
    zolo::test::Sandbox sandbox;
    root = sandbox.root();
    EXPECT_EQ(zolo::Sysroot(), root);
    sandbox.WriteFile("/etc/hostname", "box\n");
    EXPECT_EQ(zolo::test::ReadFile(zolo::SysrootPath("/etc/hostname")), "box\n");
  }
  EXPECT_EQ(std::getenv("ZOLO_SYSROOT"), nullptr);
  EXPECT_EQ(zolo::test::ReadFile(root + "/etc/hostname"), "");
}

}  // namespace
