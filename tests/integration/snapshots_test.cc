// Snapshots and images: taken from a recording or on request, listed with their images and
// files, counted, given a status and removed with their notifications.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>
#include <zolo/media.h>
#include <zolo_model/snapshot.h>

#include <string>
#include <vector>

#include "recording_fixture.h"

namespace {

using zolo::test::RecordingTest;

class SnapshotsTest : public RecordingTest {
 protected:
  // An image in snapshot `snapshot`'s folder, with its file.
  int AddImage(int snapshot, const std::string& directory, const std::string& name) {
    RecordingDb::Instance()->Connect();
    Image image;
    image.snapshot_id(snapshot);
    image.directory(directory);
    image.file_name(name);
    image.status("ready");
    image.width(640);
    image.height(360);
    image.thumbnail(name + ".thumb.jpg");
    Image::Add(&image);
    RecordingDb::Instance()->Release(false);
    return image.id();
  }
};

TEST_F(SnapshotsTest, ARecordingsSnapshotWithItsImages) {
  int recording = AddRecording("talk", 1000, 1);
  std::string folder;
  ASSERT_EQ(zm_create_recording_snapshot(recording, 15000, &folder), 0);
  ASSERT_FALSE(folder.empty());
  zm_snapshot snapshot{};
  ASSERT_EQ(zm_get_snapshot(folder.c_str(), &snapshot, 0, 0, 1), 0);
  EXPECT_EQ(snapshot.recording_id, recording);
  EXPECT_EQ(snapshot.time, 15000u);
  AddImage(static_cast<int>(snapshot.id), folder, "a.jpg");
  int second = AddImage(static_cast<int>(snapshot.id), folder, "b.jpg");
  ASSERT_EQ(zm_get_snapshot(folder.c_str(), &snapshot, 1, 1, 1), 0);  // second page of one
  ASSERT_EQ(snapshot.images.size(), 1u);
  zm_image image{};
  ASSERT_EQ(zm_get_image(second, &image), 0);
  EXPECT_EQ(image.path, snapshot.images[0].path);
  EXPECT_EQ(image.thumbnail, image.path + ".thumb.jpg");
  EXPECT_NE(image.path.find(RecordingPath("talk")), std::string::npos) << image.path;
  EXPECT_EQ(zm_get_snapshot_count(), 1);
  EXPECT_EQ(zm_get_snapshot_image_count(static_cast<int>(snapshot.id)), 2);
  EXPECT_EQ(zm_set_image_status(second, "uploaded"), 0);
  EXPECT_EQ(zm_get_image_status_count("uploaded"), 1);
  std::vector<zm_image> uploaded;
  ASSERT_EQ(zm_get_status_image("uploaded", &uploaded), 0);
  EXPECT_EQ(uploaded.size(), 1u);
  EXPECT_EQ(zm_set_snapshot_status(static_cast<int>(snapshot.id), "done"), 0);
  std::vector<zm_snapshot> done;
  ASSERT_EQ(zm_get_status_snapshot("done", &done, 1), 0);
  ASSERT_EQ(done.size(), 1u);
  EXPECT_EQ(done[0].images.size(), 2u);
  {
    // With the database write-locked by another process, removals fail and are not announced.
    SQLite::Database other(RecordingPath("recording.db"), SQLite::OPEN_READWRITE);
    other.exec("BEGIN IMMEDIATE");
    sim_.ClearRequests();
    EXPECT_EQ(zm_remove_image(second), -1);
    EXPECT_EQ(zm_remove_snapshot(static_cast<int>(snapshot.id)), -1);
    EXPECT_TRUE(sim_.Requests("change_media_data").empty());
    other.exec("ROLLBACK");
  }
  EXPECT_EQ(zm_delete_recording_snapshot(recording, 15000), 0);
  EXPECT_EQ(zm_get_snapshot_count(), 0);
  EXPECT_EQ(Holders(), 0);
}

TEST_F(SnapshotsTest, RefusalsRemovalsAndRequests) {
  zm_image image{};
  zm_snapshot snapshot{};
  std::vector<zm_snapshot> all;
  EXPECT_EQ(zm_get_image(0, &image), -3);
  EXPECT_EQ(zm_get_image(42, &image), -5);
  EXPECT_EQ(zm_get_snapshot(nullptr, &snapshot, 0, 0, 1), -3);
  EXPECT_EQ(zm_get_snapshot("none", &snapshot, 0, 0, 1), -5);
  EXPECT_EQ(zm_get_snapshot(42, &all, 0, 0, 1), -5);
  EXPECT_EQ(zm_get_status_image(nullptr, nullptr), -3);
  EXPECT_EQ(zm_set_image_status(0, "x"), -3);
  EXPECT_EQ(zm_set_image_status(42, "x"), -5);
  EXPECT_EQ(zm_create_recording_snapshot(42, 1, nullptr), -5);
  sim_.ClearRequests();
  // Removal is announced whatever it returned.
  EXPECT_NE(zm_remove_snapshot(42), 0);
  EXPECT_NE(zm_remove_image(43), 0);
  auto notices = sim_.Requests("change_media_data");
  ASSERT_EQ(notices.size(), 2u);
  EXPECT_EQ(notices[0].payload, R"({"type":2,"data":4,"id":42})");
  EXPECT_EQ(notices[1].payload, R"({"type":2,"data":5,"id":43})");
  sim_.Force("add_snapshot", zolo::sim::Forced{zolo::sim::Forced::kCode, -1012, 0, ""});
  EXPECT_EQ(zm_add_snapshot(1920, 1080), -7);  // the engine's answer, mapped
  EXPECT_EQ(sim_.Requests("add_snapshot").at(0).payload, R"({"width":1920,"height":1080})");
  EXPECT_EQ(Holders(), 0);
}

}  // namespace
