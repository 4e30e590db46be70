// Storage information on real tmpfs mounts below the sandbox (needs root to mount): local
// measurement, the engine's prediction while recording, origin capacity, single values,
// missing storages and settings.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <zolo/media.h>

#include <string>
#include <vector>

#include "engine_fixture.h"
#include "log_capture.h"

namespace {

using zolo::sim::Forced;
using zolo::test::EngineTest;

constexpr uint64_t kBytesPerSecond = 12288 / 8 * 1024;  // movie1, the one enabled file stream
constexpr uint64_t kReserve = 60;                       // min_avail_recording_time

class StorageInfoTest : public EngineTest {
 protected:
  void TearDown() override {
    for (const auto& dir : mounts_) umount2(dir.c_str(), MNT_DETACH);
    EngineTest::TearDown();
  }
  // Mounts a tmpfs of `size` as storage `name`; false when this process may not mount.
  bool Mount(const std::string& name, const char* size) {
    std::string dir = sandbox_->Path("/media/" + name);
    sandbox_->MakeDir("/media/" + name);
    if (mount("tmpfs", dir.c_str(), "tmpfs", 0, (std::string("size=") + size).c_str()) != 0)
      return false;
    mounts_.push_back(dir);
    return true;
  }
  struct statvfs Facts(const std::string& name) {
    struct statvfs facts {};
    EXPECT_EQ(statvfs(sandbox_->Path("/media/" + name).c_str(), &facts), 0);
    return facts;
  }
  // "name total available time" of each record.
  static std::string Summary(const std::vector<zm_storage>& list) {
    std::string text;
    for (const auto& s : list)
      text += std::string(s.name) + " " + std::to_string(s.total_size) + " " +
              std::to_string(s.available_size) + " " + std::to_string(s.available_recording_time) +
              ";";
    return text;
  }
  static std::string Expected(const std::string& name, const struct statvfs& facts,
                              uint64_t seconds) {
    return name + " " + std::to_string(uint64_t{facts.f_blocks} * facts.f_frsize) + " " +
           std::to_string(uint64_t{facts.f_bavail} * facts.f_frsize) + " " +
           std::to_string(seconds) + ";";
  }
  std::vector<std::string> mounts_;
};

TEST_F(StorageInfoTest, LocalAndPredictedAgreeWithTheMount) {
  if (!Mount("SD", "2g")) GTEST_SKIP() << "mounting a tmpfs needs root";
  struct statvfs sd = Facts("SD");
  const uint64_t sd_seconds = uint64_t{sd.f_bavail} * sd.f_frsize / kBytesPerSecond - kReserve;
  const std::string main_only = Expected("SD", sd, sd_seconds);

  std::vector<zm_storage> local;
  ASSERT_EQ(zm_get_storage_info(&local), 0);
  EXPECT_EQ(Summary(local), main_only);  // no sub storage mounted
  EXPECT_EQ(zm_get_available_recording_time(ZM_STORAGE_MAIN), sd_seconds);
  EXPECT_EQ(zm_get_storage_total_size(ZM_STORAGE_MAIN), uint64_t{sd.f_blocks} * sd.f_frsize);
  EXPECT_EQ(zm_get_storage_available_size(ZM_STORAGE_MAIN), uint64_t{sd.f_bavail} * sd.f_frsize);
  EXPECT_EQ(zm_get_storage_total_size(ZM_STORAGE_SUB), 0u);
  EXPECT_EQ(zm_get_available_recording_time(static_cast<ZM_STORAGE>(7)), 0u);
  EXPECT_EQ(zm_get_storage_total_size(static_cast<ZM_STORAGE>(-1)), 0u);
  EXPECT_TRUE(sim_.Requests("get_storage_pred_info").empty());

  // While recording the engine answers, with the same figures.
  for (int state : {3, 4}) {
    sim_.set_state(state);
    std::vector<zm_storage> predicted;
    ASSERT_EQ(zm_get_storage_info(&predicted), 0);
    EXPECT_EQ(Summary(predicted), main_only) << state;
  }
  EXPECT_EQ(sim_.Requests("get_storage_pred_info").size(), 2u);

  // The sub storage joins once mounted; its file streams have no bitrate, so the longest
  // recording is the answer.
  ASSERT_TRUE(Mount("USB0", "64m"));
  const std::string both = main_only + Expected("USB0", Facts("USB0"), 28800);
  std::vector<zm_storage> predicted;
  ASSERT_EQ(zm_get_storage_info(&predicted), 0);
  EXPECT_EQ(Summary(predicted), both);
  sim_.set_state(1);
  std::vector<zm_storage> measured;
  ASSERT_EQ(zm_get_storage_info(&measured), 0);
  EXPECT_EQ(Summary(measured), both);

  // Origin: no longest recording, and that stays until the policy is prepared again.
  std::vector<zm_storage> origin;
  ASSERT_EQ(zm_get_origin_storage_info(&origin), 0);
  ASSERT_EQ(origin.size(), 2u);
  EXPECT_EQ(origin[1].available_recording_time, 2147483647);
  EXPECT_EQ(Storage::GetMaxRecordingTime(), 2147483647u);
  EXPECT_EQ(Storage::GetCycling(), 0);
  zm_get_available_recording_time(ZM_STORAGE_MAIN);
  EXPECT_EQ(Storage::GetMaxRecordingTime(), 28800u);
}

TEST_F(StorageInfoTest, EngineReplyFailuresAndGaps) {
  sim_.set_state(3);
  std::vector<zm_storage> out;
  sim_.Force("get_storage_pred_info", Forced{Forced::kCode, -1012, 0, ""});
  EXPECT_EQ(zm_get_storage_info(&out), -7);
  EXPECT_TRUE(out.empty());
  sim_.Force("get_storage_pred_info",
             Forced{Forced::kNoCode, 0, 0,
                    R"({"code":0,"storage":{"name":7,"total_size":"big","available_size":-5},)"
                    R"("sub_storage":"USB0"})"});
  ASSERT_EQ(zm_get_storage_info(&out), 0);
  EXPECT_EQ(Summary(out), " 0 0 -1;");
  sim_.Force("get_storage_pred_info", Forced{Forced::kNoCode, 0, 0, R"({"code":0})"});
  ASSERT_EQ(zm_get_storage_info(&out), 0);
  EXPECT_EQ(out.size(), 2u);
  sim_.ClearRequests();
  EXPECT_EQ(zm_get_storage_info(nullptr), -3);
  EXPECT_EQ(zm_get_origin_storage_info(nullptr), -3);
  EXPECT_TRUE(sim_.Requests().empty());
}

// Nothing mounted: the main storage reads as empty, the sub storage is left out. A missing
// setting leaves its storage out; a missing "cycling" is logged and counts as off.
TEST_F(StorageInfoTest, UnmountedStoragesAndMissingSettings) {
  std::vector<zm_storage> out;
  ASSERT_EQ(zm_get_storage_info(&out), 0);
  EXPECT_EQ(Summary(out), "SD 0 0 0;");
  sim_.set_state(3);
  ASSERT_EQ(zm_get_storage_info(&out), 0);
  EXPECT_EQ(Summary(out), "SD 0 0 0;SD 0 0 0;");

  sim_.set_state(1);
  ASSERT_EQ(zm_execute_db_command("DELETE FROM setting WHERE name IN ('storage', 'cycling')"), 0);
  zolo::test::LogCapture log;
  out.clear();
  ASSERT_EQ(zm_get_storage_info(&out), 0);
  EXPECT_TRUE(out.empty());
  EXPECT_TRUE(log.Has("Query cycling fail!", 0)) << log.Dump();
  EXPECT_EQ(zm_get_available_recording_time(ZM_STORAGE_MAIN), 0u);
  EXPECT_EQ(zm_get_storage_available_size(ZM_STORAGE_MAIN), 0u);
}

}  // namespace
