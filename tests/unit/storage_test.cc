// Storage: recording-time budget from device facts and the file streams' bitrate.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <zolo/storage.h>

#include <cstring>
#include <string>

#include "log_capture.h"
#include "model_fixture.h"

namespace {

using zolo::test::LogCapture;

class StorageTest : public zolo::test::ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    Storage::Initialize();
    Storage::SetCycling(0);
    Storage::SetMinRecordingTime(0);
    Storage::SetMaxRecordingTime(28800);
  }
  void TearDown() override {
    Storage::ReleaseAll();
    Storage::Deinitialize();
    if (!mounted_.empty()) umount2(mounted_.c_str(), MNT_DETACH);
    ModelTest::TearDown();
  }
  // Total bitrate of the main storage's file streams, in kilobits per second.
  void SetMainBitrate(long kbps) {
    Exec("UPDATE stream SET parameters = json_set(parameters, '$.bitrate', " +
         std::to_string(kbps) + ") WHERE name = 'movie1'");
  }
  // A storage object whose device facts are set by hand.
  Storage* Fake(bool sub, const char* type, uint64_t free_bytes, uint64_t total_bytes) {
    Storage* storage = Storage::Get(sub ? "USB0" : "SD", true, sub, false);
    storage->info = zs_storage();
    storage->info.present = true;
    std::snprintf(storage->info.fs_type, sizeof storage->info.fs_type, "%s", type);
    storage->info.free_size = free_bytes;
    storage->info.total_size = total_bytes;
    return storage;
  }
  std::string mounted_;
};

TEST_F(StorageTest, SecondsFollowTheTruncatedByteRate) {
  struct Case {
    long kbps;
    uint64_t free_bytes;
    uint64_t seconds;
  };
  // 8000 kbit/s is 1,024,000 bytes/s; 9000 is 1125 * 1024 = 1,152,000.
  const Case cases[] = {
      {8000, 1024000ULL * 100, 100},
      {9000, 1152000ULL * 50 + 1151999, 50},
      {12288, 0, 0},
  };
  for (const auto& c : cases) {
    SetMainBitrate(c.kbps);
    Storage* storage = Fake(false, "ext4", c.free_bytes, c.free_bytes * 2);
    EXPECT_EQ(storage->AvailRecordingTime(true), c.seconds) << c.kbps;
  }
}

TEST_F(StorageTest, NoBitrateMeansTheMaximumAndEveryCheckPasses) {
  Exec("UPDATE stream SET enable = 0 WHERE type = 'file'");
  Storage* storage = Fake(false, "ext4", 0, 0);
  EXPECT_EQ(storage->AvailRecordingTime(true), 28800u);
  EXPECT_EQ(storage->CheckAvailRecordingTime(), 0);
  EXPECT_EQ(storage->CheckAvailRecordingTime(false, 0), 0);
  EXPECT_EQ(storage->CheckMaxRecordingTime(), 0);
  storage->info.present = false;
  EXPECT_EQ(storage->AvailRecordingTime(true), 0u);
}

TEST_F(StorageTest, Fat32CountsAtMostItsLargestFile) {
  EXPECT_EQ(Fake(false, "vfat", 10000000000ULL, 0)->AvailableSize(), 3800000000ULL);
  EXPECT_EQ(Fake(false, "exfat", 10000000000ULL, 0)->AvailableSize(), 10000000000ULL);
  EXPECT_EQ(Fake(false, "vfat", 100, 0)->AvailableSize(), 100u);
}

TEST_F(StorageTest, LoopRecordingOffersAFullRecordingOnTheMainStorageOnly) {
  SetMainBitrate(8000);
  Storage::SetCycling(1);
  Storage::SetMinRecordingTime(10);
  LogCapture log;
  Storage* main = Fake(false, "ext4", 1024000ULL * 60, 1024000ULL * 1000);
  EXPECT_EQ(main->AvailRecordingTime(true), 28800u);
  EXPECT_TRUE(main->InsufficientSize());
  EXPECT_TRUE(log.HasFragment("Insufficient remain size for loop recording!! (0, SD)"));
  EXPECT_EQ(main->CheckAvailRecordingTime(), 0);  // reserve reached, but loop recording is on
  // The sub storage records nothing at all (no file stream writes to it).
  Exec(
      "UPDATE stream SET enable = 1, parameters = json_set(parameters, '$.bitrate', 8000) "
      "WHERE name = 'backup1'");
  Storage* sub = Fake(true, "ext4", 1024000ULL * 5, 1024000ULL * 1000);
  EXPECT_EQ(sub->AvailRecordingTime(true), 0u);
  EXPECT_EQ(sub->CheckAvailRecordingTime(), -2);
  EXPECT_TRUE(log.Has("Available recording time (0) of storage (1, USB0) is not enough!", 2));
}

TEST_F(StorageTest, ChecksDuringARecordingUseTheNotedPrediction) {
  SetMainBitrate(8000);
  Storage* storage = Fake(false, "ext4", 1024000ULL * 100, 1024000ULL * 1000);
  ASSERT_EQ(storage->SetAvailRecordingTime(), 0);
  EXPECT_EQ(storage->GetAvailRecordingTime(), 100u);
  EXPECT_EQ(storage->GetAvailableSize(), 1024000ULL * 100);
  EXPECT_EQ(storage->CheckAvailRecordingTime(true, 99), 0);
  EXPECT_EQ(storage->CheckAvailRecordingTime(true, 100), -1);
  storage->info.free_size = 0;
  EXPECT_EQ(storage->CheckAvailRecordingTime(true, 1), -2);
  EXPECT_EQ(storage->CheckMaxRecordingTime(), -2);
}

TEST_F(StorageTest, GetByEnumReadsTheSettingsAndKeepsOneObjectPerKind) {
  EXPECT_EQ(Storage::Get(static_cast<StorageEnum>(2), true, true), nullptr);
  Storage* main = Storage::Get(STORAGE_MAIN, true, true);
  ASSERT_NE(main, nullptr);
  EXPECT_EQ(main->name, "SD");
  EXPECT_EQ(main->directory, "/media/SD");
  EXPECT_FALSE(main->Existed());  // nothing mounted in the sandbox
  Storage* sd_sub = Storage::Get("SD", false, true, false);
  EXPECT_EQ(Storage::Get("USB0", false, true, false), sd_sub);
  EXPECT_EQ(sd_sub->name, "SD");
  EXPECT_EQ(Storage::Get("USB0", false, true, true)->name, "USB0");
  Exec("DELETE FROM setting WHERE name = 'sub_storage'");
  EXPECT_EQ(Storage::Get(STORAGE_SUB, true, true), nullptr);
}

TEST_F(StorageTest, AMountedStorageReportsItsRealSize) {
  std::string dir = sandbox_->Path("/media/SD");
  sandbox_->MakeDir("/media/SD");
  if (mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=16m") != 0) GTEST_SKIP() << "needs root";
  mounted_ = dir;
  Storage* main = Storage::Get(STORAGE_MAIN, true, true);
  ASSERT_NE(main, nullptr);
  EXPECT_TRUE(main->Existed());
  EXPECT_EQ(main->Type(), "tmpfs");
  EXPECT_EQ(main->Directory(), "/media/SD");
  EXPECT_EQ(main->TotalSize(), 16u << 20);
  SetMainBitrate(8);  // 1024 bytes a second
  EXPECT_EQ(main->AvailRecordingTime(true), std::min<uint64_t>(28800, (16u << 20) / 1024));
}

}  // namespace
