// Config: typed lookups, defaults, exact log lines, exceptions and reloading.
#include <gtest/gtest.h>
#include <zolo/config.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "log_capture.h"
#include "sandbox.h"

namespace {

using zolo::test::LogCapture;
using zolo::test::Sandbox;

class ConfigTest : public testing::Test {
 protected:
  void SetUp() override {
    sandbox_.WriteFile(
        "/etc/media.conf",
        "# comment\n[Engine]\nint=-42\nbig=4294967297\nneg64=-9000000000\n"
        "u64=18446744073709551615\nflag=1\nzero=0\nword=yes\ntrue=true\n"
        "spaced=  7 \nhuge=99999999999999999999\n[Application]\ndatabase=/var/lib/zolo/media.db\n");
    config_ = std::make_unique<Config>(sandbox_.Path("/etc/media.conf").c_str());
    ASSERT_EQ(config_->Load(), 0);
  }
  Sandbox sandbox_;
  std::unique_ptr<Config> config_;
};

TEST_F(ConfigTest, TypedGettersConvertInBaseTen) {
  int32_t i32 = 0;
  EXPECT_EQ(config_->GetInt32("Engine", "int", &i32), 0);
  EXPECT_EQ(i32, -42);
  // 2^32 + 1 keeps its low 32 bits.
  EXPECT_EQ(config_->GetInt32("Engine", "big", &i32), 0);
  EXPECT_EQ(i32, 1);
  uint32_t u32 = 0;
  EXPECT_EQ(config_->GetUint32("Engine", "big", &u32), 0);
  EXPECT_EQ(u32, 1u);
  int64_t i64 = 0;
  EXPECT_EQ(config_->GetInt64("Engine", "neg64", &i64), 0);
  EXPECT_EQ(i64, -9000000000LL);
  uint64_t u64 = 0;
  EXPECT_EQ(config_->GetUint64("Engine", "u64", &u64), 0);
  EXPECT_EQ(u64, UINT64_MAX);
  bool flag = false;
  EXPECT_EQ(config_->GetBool("Engine", "flag", &flag), 0);
  EXPECT_TRUE(flag);
  EXPECT_EQ(config_->GetBool("Engine", "zero", &flag), 0);
  EXPECT_FALSE(flag);
  EXPECT_EQ(config_->GetInt32("Engine", "spaced", &i32), 0);
  EXPECT_EQ(i32, 7);
}

TEST_F(ConfigTest, MissingKeysLogByKindAndLeaveOrDefaultTheValue) {
  LogCapture log;
  int32_t value = 99;
  EXPECT_EQ(config_->GetInt32("Engine", "absent", &value), -1);
  EXPECT_EQ(value, 99);
  EXPECT_TRUE(log.Has("Failed to get config value Engine/absent: Key not found!", 3)) << log.Dump();
  EXPECT_EQ(config_->GetInt32("Engine", "absent", 5, &value), -1);
  EXPECT_EQ(value, 5);
  log.Clear();
  uint64_t u64 = 1;
  EXPECT_EQ(config_->GetUint64("Nope", "x", 8, &u64), -1);
  EXPECT_EQ(u64, 8u);
  EXPECT_TRUE(log.Has("Failed to get config value Nope/x: Group not found!", 3)) << log.Dump();
}

TEST_F(ConfigTest, DefaultedTextLookupNeverFailsNorLogs) {
  LogCapture log;
  std::string value = "old";
  EXPECT_EQ(config_->GetValue("Missing", "database", "/fallback", &value), 0);
  EXPECT_EQ(value, "/fallback");
  EXPECT_EQ(config_->GetValue("Application", "database", "/fallback", &value), 0);
  EXPECT_EQ(value, "/var/lib/zolo/media.db");
  EXPECT_TRUE(log.Lines().empty()) << log.Dump();
  std::string kept = "kept";
  EXPECT_EQ(config_->GetValue("Application", "absent", &kept), -1);
  EXPECT_EQ(kept, "kept");
}

TEST_F(ConfigTest, TextThatIsNotANumberThrowsTheStandardExceptions) {
  bool flag = false;
  int32_t i32 = 0;
  uint64_t u64 = 0;
  EXPECT_THROW(config_->GetBool("Engine", "word", &flag), std::invalid_argument);
  EXPECT_THROW(config_->GetBool("Engine", "true", false, &flag), std::invalid_argument);
  EXPECT_THROW(config_->GetInt32("Engine", "huge", &i32), std::out_of_range);
  try {
    config_->GetUint64("Engine", "word", &u64);
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "stoull");
  }
}

TEST_F(ConfigTest, ReloadSeesNewContents) {
  int32_t value = 0;
  sandbox_.WriteFile("/etc/media.conf", "[Engine]\nint=7\n");
  EXPECT_EQ(config_->GetInt32("Engine", "int", &value), 0);
  EXPECT_EQ(value, -42);
  ASSERT_EQ(config_->Load(), 0);
  EXPECT_EQ(config_->GetInt32("Engine", "int", &value), 0);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(config_->GetInt32("Engine", "flag", &value), -1);
}

TEST(ConfigLifecycle, PathsLoadFailuresAndLookupsBeforeLoad) {
  EXPECT_THROW(Config(nullptr), std::logic_error);
  try {
    Config config(nullptr);
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(), "basic_string::_M_construct null not valid");
  }
  Sandbox sandbox;
  Config config(sandbox.Path("/etc/absent.conf").c_str());
  EXPECT_EQ(config.AssignPath(nullptr), -1);
  EXPECT_EQ(std::string(config.GetPath()), sandbox.Path("/etc/absent.conf"));
  LogCapture log;
  std::string value;
  EXPECT_EQ(config.GetValue("Engine", "x", &value), -1);
  EXPECT_TRUE(log.Has("Failed to get config value: Unknown error!", 0)) << log.Dump();
  EXPECT_EQ(config.Load(), -1);
  EXPECT_TRUE(log.Has("Could not load the config file: " + sandbox.Path("/etc/absent.conf"), 0));
  sandbox.WriteFile("/etc/broken.conf", "[Engine\nno group end\n");
  ASSERT_EQ(config.AssignPath(sandbox.Path("/etc/broken.conf").c_str()), 0);
  EXPECT_EQ(config.Load(), -1);
  sandbox.WriteFile("/etc/good.conf", "[A]\nb=c\n");
  ASSERT_EQ(config.AssignPath(sandbox.Path("/etc/good.conf").c_str()), 0);
  log.Clear();
  EXPECT_EQ(config.Load(), 0);
  EXPECT_TRUE(log.Has("Complete load config file: " + sandbox.Path("/etc/good.conf"), 2));
  config.Release();
  EXPECT_EQ(config.GetValue("A", "b", &value), -1);
}

}  // namespace
