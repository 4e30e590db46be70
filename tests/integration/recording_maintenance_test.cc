// Recording maintenance: repair, crashed videos, thumbnails, attributes, removal with its
// notifications, and the recording mode switching the file streams.
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <string>
#include <vector>

#include "recording_fixture.h"
#include "sandbox.h"

namespace {

using zolo::test::RecordingTest;

class RecordingMaintenanceTest : public RecordingTest {
 protected:
  zm_recording Get(int id) {
    std::vector<zm_recording> out;
    EXPECT_EQ(zm_get_recording(id, &out, 0, 0), 0);
    return out.empty() ? zm_recording{} : out[0];
  }
  bool Enabled(const char* name) {
    std::vector<zm_stream> out;
    zm_get_stream_by_pattern(name, &out);
    return !out.empty() && out[0].enable == 1;
  }
};

TEST_F(RecordingMaintenanceTest, RepairClosesACutOffRecordingOnce) {
  int id = AddRecording("cut", 5000, 2, false, "recording");
  ASSERT_EQ(zm_fix_unfinished_recording(id), 0);
  zm_recording repaired = Get(id);
  EXPECT_EQ(repaired.finished_at, 5000 + repaired.duration / 1000);
  EXPECT_EQ(repaired.status, "ready");
  std::string info = zolo::test::ReadFile(repaired.information_file);
  EXPECT_NE(info.find("cut"), std::string::npos);
  EXPECT_EQ(zm_fix_unfinished_recording(id), -2);  // already finished: nothing changes
  EXPECT_EQ(zm_fix_unfinished_recording(99), -5);
  EXPECT_EQ(Holders(), 0);
}

TEST_F(RecordingMaintenanceTest, VideosAndRecordingAttributes) {
  int open = AddRecording("open", 100, 1, false, "recording");
  int done = AddRecording("done", 200, 1);
  int open_video = Get(open).videos[0].id;
  int done_video = Get(done).videos[0].id;
  EXPECT_EQ(zm_mark_crashed_video(open_video), 0);
  EXPECT_EQ(zm_mark_crashed_video(done_video), 0);
  EXPECT_EQ(zm_mark_crashed_video(999), 0);
  EXPECT_EQ(Get(open).videos[0].status, "Crashed");
  EXPECT_NE(Get(done).videos[0].status, "Crashed");

  // Thumbnails are kept relative to the video's folder when they lie below it.
  ASSERT_EQ(zm_set_video_thumbnail(done_video, "/abs/done/thumbs/t.jpg"), 0);
  EXPECT_EQ(Get(done).videos[0].thumbnail, "thumbs/t.jpg");
  ASSERT_EQ(zm_set_video_thumbnail(done_video, "/elsewhere/t.jpg"), 0);
  EXPECT_EQ(Get(done).videos[0].thumbnail, "/elsewhere/t.jpg");
  EXPECT_EQ(zm_set_video_thumbnail(999, "x"), -5);

  EXPECT_EQ(zm_set_recording_thumbnail_done(done), 0);
  EXPECT_EQ(zm_set_recording_thumbnail_done(done), -2);
  EXPECT_EQ(zm_set_recording_event_id(done, "ev-7"), 0);
  EXPECT_EQ(zm_set_recording_upload_setting(done, "cloud"), 0);
  EXPECT_EQ(zm_set_recording_event_id(999, "x"), 0);
  EXPECT_EQ(zm_set_recording_status(done, "archived"), 0);
  EXPECT_EQ(zm_set_recording_status(done, nullptr), -3);
  EXPECT_EQ(zm_set_recording_status(999, "x"), -1);
  ASSERT_EQ(zm_set_recording_metadata(done, "renamed", R"({"title":"Town hall"})"), 0);
  EXPECT_EQ(zm_set_recording_metadata(done, nullptr, nullptr), -3);
  zm_recording r = Get(done);
  EXPECT_EQ(r.event_id, "ev-7");
  EXPECT_EQ(r.upload_setting, "cloud");
  EXPECT_EQ(r.status, "archived");
  EXPECT_EQ(r.name, "renamed");
  EXPECT_NE(zolo::test::ReadFile(r.information_file).find("Town hall"), std::string::npos);
  EXPECT_EQ(Holders(), 0);
}

TEST_F(RecordingMaintenanceTest, RemovalTellsTheEngineUnlessAskedNotTo) {
  int first = AddRecording("first", 100, 1);
  int second = AddRecording("second", 200, 1);
  int third = AddRecording("third", 300, 1);
  sim_.ClearRequests();
  ASSERT_EQ(zm_remove_recording(second), 0);
  EXPECT_EQ(sim_.Requests("change_media_data").at(0).payload,
            "{\"type\":2,\"data\":3,\"id\":" + std::to_string(second) + "}");
  EXPECT_EQ(sim_.Requests("check_storage_status").size(), 1u);
  EXPECT_NE(zm_remove_recording(second), 0);  // gone: the model's result, no notice
  EXPECT_EQ(sim_.Requests("change_media_data").size(), 1u);
  ASSERT_EQ(zm_remove_oldest_recording(false), 0);
  EXPECT_EQ(sim_.Requests("change_media_data").size(), 1u);
  ASSERT_EQ(zm_remove_oldest_recording(true), 0);
  EXPECT_EQ(sim_.Requests("change_media_data").back().payload,
            "{\"type\":2,\"data\":3,\"id\":" + std::to_string(third) + "}");
  EXPECT_EQ(zm_remove_oldest_recording(true), -5);
  EXPECT_EQ(zm_get_recording_count(), 0);
  (void)first;
  EXPECT_EQ(Holders(), 0);
}

// Bit 0 switches the movie file streams, bit 1 the channel file streams (also of a channel
// fed by a user source, a network camera); 4 switches none.
TEST_F(RecordingMaintenanceTest, RecordingModeSwitchesTheRightStreams) {
  ASSERT_EQ(zm_execute_db_command(
                "UPDATE channel SET video_source_id = NULL, video_user_source_id = 1 WHERE id = 2"),
            0);
  struct Case {
    int mode;
    bool movie, channel;
  } cases[] = {{3, true, true}, {0, false, false}, {1, true, false}, {2, false, true}};
  for (const auto& c : cases) {
    ASSERT_EQ(zm_set_recording_mode(c.mode), 0);
    EXPECT_EQ(zm_get_recording_mode(), c.mode);
    EXPECT_EQ(Enabled("movie1"), c.movie) << c.mode;
    EXPECT_EQ(Enabled("movie2"), c.channel) << c.mode;
  }
  ASSERT_EQ(zm_set_recording_mode(4), 0);
  EXPECT_EQ(zm_get_recording_mode(), 4);
  EXPECT_FALSE(Enabled("movie1"));  // as mode 2 left it
  EXPECT_TRUE(Enabled("movie2"));
}

}  // namespace
