// liboviklog and the sandbox root: the two pieces every other family leans on.
#include <gtest/gtest.h>
#include <oviklog.h>
#include <zolo/sysroot.h>

#include <cstdlib>
#include <string>

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
