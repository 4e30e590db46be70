// The library frame over the real bus: lifecycle, the result-code table, state, settings.
#include <gtest/gtest.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>
#include <zolo_model/media_setting.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "engine_fixture.h"
#include "log_capture.h"

namespace {

using zolo::sim::Forced;
using zolo::test::EngineTest;
using zolo::test::LogCapture;

class FrameTest : public EngineTest {
 protected:
  // Releases the library and starts it again on the sandbox as it is now.
  int Reinit() {
    zm_release();
    int result = zm_init(false);
    initialized_ = result == 0;
    return result;
  }
};

TEST_F(FrameTest, EngineCodesMapThroughTheTable) {
  // Each row: the engine's code, the library's code it becomes.
  // clang-format off
  const std::pair<int, int> table[] = {
      {0, 0},
      {-5, -6},
      {-1001, -1},
      {-1002, -2},
      {-1003, -3},
      {-1004, -4},
      {-1005, -5},
      {-1006, -10},
      {-1007, -1},
      {-1008, -1},
      {-1009, -11},
      {-1010, -1},
      {-1011, -7},
      {-1012, -7},
      {-1013, -8},
      {-1014, -9},
      {-1015, -12},
      {-1016, -13},
      {-1017, -14},
      {-1018, -15},
      {-1019, -1},
      {1, -1},
      {-6, -1},
      {12345, -1},
  };
  // clang-format on
  for (const auto& c : table) {
    sim_.Force("start", Forced{Forced::kCode, c.first, 0, ""});
    EXPECT_EQ(zm_start(), c.second) << "engine code " << c.first;
  }
}

TEST_F(FrameTest, RepliesWithoutCodeEmptyOrMissingAndBusFailures) {
  sim_.Force("stop", Forced{Forced::kNoCode, 0, 0, R"({"id":1})"});
  EXPECT_EQ(zm_stop(), -1);
  // Only a number is a code: anything else is a failure, never success.
  for (const char* reply :
       {"not json", R"({"code":"0"})", R"({"code":"-1004"})", R"({"code":null})", R"({"code":[0]})",
        R"({"code":{}})", R"({"code":true})", "[0]"}) {
    sim_.Force("stop", Forced{Forced::kNoCode, 0, 0, reply});
    EXPECT_EQ(zm_stop(), -1) << reply;
  }
  sim_.Force("stop", Forced{Forced::kEmpty, 0, 0, ""});
  EXPECT_EQ(zm_stop(), 0);  // no reply text: the bus call's own result
  sim_.Force("restart", Forced{Forced::kNoReply, 0, 0, ""});
  // The bus's timeout (-5) becomes -6; the call costs the 8 s timeout, not a hang.
  EXPECT_EQ(zm_restart(), -6);
  sim_.Stop();
  EXPECT_EQ(zm_start(), -1);  // engine not on the bus
}

TEST_F(FrameTest, StateIdAndName) {
  std::string name = "old";
  EXPECT_EQ(zm_get_state(&name), 1);
  EXPECT_EQ(name, "idle");
  sim_.set_state(zolo::sim::kPaused);
  EXPECT_EQ(zm_get_state(nullptr), 4);
  sim_.Force("get_state", Forced{Forced::kNoCode, 0, 0, R"({"code":0})"});
  EXPECT_EQ(zm_get_state(&name), -1);
  EXPECT_EQ(name, "");
  sim_.Force("get_state", Forced{Forced::kCode, -1004, 0, ""});
  EXPECT_EQ(zm_get_state(&name), -4);
}

TEST_F(FrameTest, SetSettingNeedsAnIdleEngineAndTellsItWhatChanged) {
  struct FollowUp {
    const char* name;
    const char* value;
    const char* method;  // nullptr: no engine call
    const char* payload;
  };
  const FollowUp cases[] = {
      {"storage", "USB1", "check_storage_status", R"({"update":true,"index":0})"},
      {"sub_storage", "SD", "check_storage_status", R"({"update":true,"index":1})"},
      {"cycling", "1", "check_storage_status", ""},
      {"framerate_mode", "2", "set_framerate_mode", R"({"mode":2})"},
      {"backup", "1x", "set_backup_mode", R"({"mode":1})"},
      {"interactive", "0", "set_interactive_mode", R"({"mode":0})"},
      {"recording_mode", "3", nullptr, nullptr},
  };
  for (const auto& c : cases) {
    sim_.ClearRequests();
    EXPECT_EQ(zm_set_setting(c.name, c.value), 0) << c.name;
    std::string stored;
    EXPECT_EQ(zm_get_setting(c.name, &stored), 0);
    EXPECT_EQ(stored, c.value);
    auto requests = sim_.Requests();
    ASSERT_EQ(requests.size(), c.method ? 2u : 1u) << c.name;
    EXPECT_EQ(requests[0].method, "get_state");
    if (c.method) {
      EXPECT_EQ(requests[1].method, c.method);
      EXPECT_EQ(requests[1].payload, c.payload);
    }
  }
  sim_.Force("set_backup_mode", Forced{Forced::kCode, -1002, 0, ""});
  EXPECT_EQ(zm_set_setting("backup", "0"), -2);

  sim_.set_state(zolo::sim::kRecording);
  sim_.ClearRequests();
  EXPECT_EQ(zm_set_setting("storage", "SD"), -4);
  EXPECT_EQ(sim_.Requests().size(), 1u);
  sim_.set_state(zolo::sim::kIdle);
  EXPECT_EQ(zm_set_setting("no_such_setting", "1"), -5);
  std::string value;
  EXPECT_EQ(zm_get_setting("no_such_setting", &value), -5);
  EXPECT_THROW(zm_get_setting(nullptr, &value), std::logic_error);
}

TEST_F(FrameTest, InitTwiceReleaseTwiceAndCallsAfterRelease) {
  LogCapture log;
  EXPECT_EQ(zm_init(true), 0);
  EXPECT_TRUE(log.Has("Media library already initialized", 0));
  EXPECT_EQ(zm_release(), 0);
  initialized_ = false;
  EXPECT_EQ(zm_release(), 0);
  EXPECT_TRUE(log.Has("Media library not initialized", 0));
  // Without a bus client the call fails cleanly.
  EXPECT_EQ(zm_start(), -1);
  EXPECT_EQ(zm_set_user_data(nullptr), -1);
  EXPECT_EQ(zm_init(false), 0);
  initialized_ = true;
  EXPECT_EQ(zm_get_state(nullptr), 1);
}

TEST_F(FrameTest, InitReadsTheFirmwareVariableAndFailsWithoutConfiguration) {
  LogCapture log;
  ASSERT_EQ(Reinit(), 0);
  EXPECT_TRUE(log.Has("movie_resource: 2", 3)) << log.Dump();
  std::remove(sandbox_->Path("/etc/fw_env.config").c_str());
  log.Clear();
  ASSERT_EQ(Reinit(), 0);
  EXPECT_TRUE(log.Has("movie_resource does not found", 3));
  std::remove(sandbox_->Path("/etc/media.conf").c_str());
  EXPECT_EQ(Reinit(), -1);
}

TEST_F(FrameTest, DatabaseCommandsAndPatches) {
  EXPECT_EQ(zm_execute_db_command("UPDATE setting SET value = '9' WHERE name = 'backup'"), 0);
  int backup = 0;
  EXPECT_EQ(MediaSetting::QueryValue("backup", &backup), 0);
  EXPECT_EQ(backup, 9);
  EXPECT_EQ(zm_execute_db_command("UPDATE nowhere SET x = 1"), -1);
  sandbox_->WriteFile("/patch.sql", "INSERT INTO setting (name, value) VALUES ('patched', 'y');");
  EXPECT_EQ(zm_execute_db_patch(sandbox_->Path("/patch.sql").c_str()), 0);
  std::string value;
  EXPECT_EQ(zm_get_setting("patched", &value), 0);
  EXPECT_EQ(value, "y");
  EXPECT_EQ(zm_execute_db_patch(sandbox_->Path("/none.sql").c_str()), -1);
  EXPECT_THROW(zm_execute_db_command(nullptr), std::logic_error);
  EXPECT_THROW(zm_execute_db_patch(nullptr), std::logic_error);
}

TEST_F(FrameTest, ExecuteGivesUpOnAPersistentlyBusyDatabase) {
  SQLite::Database other(MediaModel::Instance()->database()->path(), SQLite::OPEN_READWRITE);
  other.exec("BEGIN IMMEDIATE");
  LogCapture log;
  EXPECT_EQ(zm_execute_db_command("UPDATE setting SET value = '1' WHERE name = 'backup'"), -1);
  EXPECT_TRUE(log.HasFragment("MediaModel::Execute: Retry limit exceeded! (")) << log.Dump();
  other.exec("ROLLBACK");
  EXPECT_EQ(zm_execute_db_command("UPDATE setting SET value = '1' WHERE name = 'backup'"), 0);
}

// Replies are read whole: the member after 64 KiB of padding still counts; past 16 MiB the
// reply is refused with a log line.
TEST_F(FrameTest, LargeRepliesAreReadWholeUpToTheirBound) {
  std::string pad(64 << 10, 'p');
  sim_.Force("get_state", Forced{Forced::kNoCode, 0, 0,
                                 R"({"pad":")" + pad + R"(","id":3,"name":"recording","code":0})"});
  std::string name;
  EXPECT_EQ(zm_get_state(&name), 3);
  EXPECT_EQ(name, "recording");
  LogCapture log;
  sim_.Force("get_state", Forced{Forced::kNoCode, 0, 0,
                                 R"({"code":0,"pad":")" + std::string(17 << 20, 'p') + R"("})"});
  EXPECT_EQ(zm_get_state(nullptr), -1);
  EXPECT_TRUE(log.HasFragment("reply of get_state too large")) << log.Dump();
}

// While a command retries against a write lock, other threads' reads still run.
TEST_F(FrameTest, ReadsGoOnWhileAWriteRetries) {
  SQLite::Database other(MediaModel::Instance()->database()->path(), SQLite::OPEN_READWRITE);
  other.exec("BEGIN IMMEDIATE");
  std::atomic<bool> writing{true};
  std::thread writer([&] {
    EXPECT_EQ(zm_execute_db_command("UPDATE setting SET value = '7' WHERE name = 'backup'"), 0);
    writing = false;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  std::string value;
  EXPECT_EQ(zm_get_setting("backup", &value), 0);
  EXPECT_TRUE(writing.load()) << "the read waited for the retrying write";
  other.exec("ROLLBACK");
  writer.join();
  EXPECT_EQ(zm_get_setting("backup", &value), 0);
  EXPECT_EQ(value, "7");
}

}  // namespace
