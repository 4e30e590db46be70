// Recording queries over the recording database: the query forms, what each fills, the
// database bracket on every path, and a database that cannot be opened.
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <string>
#include <vector>

#include "recording_fixture.h"

namespace {

using zolo::test::RecordingTest;

class RecordingsTest : public RecordingTest {
 protected:
  void SetUp() override {
    RecordingTest::SetUp();
    AddRecording("morning", 1000, 2);
    AddRecording("noon", 2000, 1, false, "recording");
    AddRecording("evening", 3000, 3);
  }
  static std::vector<std::string> Names(const std::vector<zm_recording>& records) {
    std::vector<std::string> names;
    for (const auto& r : records) names.push_back(r.name);
    return names;
  }
};

TEST_F(RecordingsTest, EachQueryFormFillsWhatItShould) {
  struct Case {
    const char* what;
    int (*query)(std::vector<zm_recording>*);
    std::vector<std::string> names;
    bool videos;
    bool information;
  } cases[] = {
      {"by page",
       [](auto* v) { return zm_get_recording(0, v, 0, 2); },
       {"evening", "noon"},
       true,
       true},
      {"by id", [](auto* v) { return zm_get_recording(1, v, 5, 5); }, {"morning"}, true, true},
      {"by name", [](auto* v) { return zm_get_recording("noon", v); }, {"noon"}, true, true},
      {"by status",
       [](auto* v) { return zm_get_status_recording("ready", v); },
       {"evening", "morning"},
       true,
       true},
      {"unfinished", [](auto* v) { return zm_get_unfinished_recording(v); }, {"noon"}, true, true},
      {"time range",
       [](auto* v) { return zm_get_recording(1500, 2500, nullptr, v, false); },
       {"noon"},
       false,
       true},
      {"pattern only",
       [](auto* v) { return zm_get_recording(0, 0, "even", v, true); },
       {"evening"},
       true,
       true},
      {"lite, all",
       [](auto* v) { return zm_get_recording_lite(0, 0, v); },
       {"evening", "noon", "morning"},
       false,
       false},
      {"older than",
       [](auto* v) { return zm_get_old_recording_by_recorded_at(2500, v); },
       {"noon", "morning"},
       false,
       false},
  };
  for (const auto& c : cases) {
    std::vector<zm_recording> out(1);  // appended to, never cleared
    ASSERT_EQ(c.query(&out), 0) << c.what;
    EXPECT_EQ(Holders(), 0) << c.what;
    out.erase(out.begin());
    EXPECT_EQ(Names(out), c.names) << c.what;
    for (const auto& r : out) {
      EXPECT_EQ(r.videos.empty(), !c.videos) << c.what;
      EXPECT_EQ(r.information_file.empty(), !c.information) << c.what;
    }
  }
}

TEST_F(RecordingsTest, RecordFieldsAndPaths) {
  std::vector<zm_recording> out;
  ASSERT_EQ(zm_get_recording(3, &out, 0, 0), 0);
  ASSERT_EQ(out.size(), 1u);
  const zm_recording& r = out[0];
  std::string folder = RecordingPath("evening");
  EXPECT_EQ(r.folder, folder);
  EXPECT_EQ(r.file_path, folder + "/evening.mp4");
  EXPECT_EQ(r.information_file, folder + "/information.json");
  EXPECT_EQ(r.recorded_at, 3000u);
  EXPECT_EQ(r.finished_at, 3180u);
  EXPECT_EQ(r.duration, 180000u);
  ASSERT_EQ(r.videos.size(), 3u);
  EXPECT_EQ(r.videos[2].path, folder + "/evening_3.mp4");
  EXPECT_EQ(r.videos[2].number, 3u);
  std::vector<zm_video> videos;
  ASSERT_EQ(zm_get_video_by_recording_id(3, &videos), 0);
  EXPECT_EQ(videos.size(), 3u);
  EXPECT_EQ(zm_get_recording_count(), 3);
  EXPECT_EQ(zm_get_recording_status_count("ready"), 2);
  EXPECT_EQ(Holders(), 0);
}

TEST_F(RecordingsTest, RefusalsAndFailuresKeepTheBracketBalanced) {
  std::vector<zm_recording> out;
  EXPECT_EQ(zm_get_recording(0, 0, nullptr, &out, true), -3);
  EXPECT_EQ(zm_get_old_recording_by_recorded_at(0, &out), -5);
  EXPECT_EQ(zm_get_recording(99, &out, 0, 0), -5);
  EXPECT_THROW(zm_get_recording(static_cast<const char*>(nullptr), &out), std::logic_error);
  EXPECT_THROW(zm_get_recording_status_count(nullptr), std::logic_error);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(Holders(), 0);
}

// A recording database that cannot be opened fails every call with -1, nothing kept open.
TEST_F(RecordingTest, AnUnopenableDatabaseFailsEveryCall) {
  RecordingDb::Instance()->Release(true);
  sandbox_->WriteFile("/etc/media.conf", "[Recording]\ndatabase=/rec/bad.db\nfolder=/rec\n");
  sandbox_->WriteFile("/rec/bad.db", std::string(4096, 'x'));
  std::vector<zm_recording> out;
  std::vector<zm_snapshot> snapshots;
  EXPECT_EQ(zm_get_recording(0, &out, 0, 0), -1);
  EXPECT_EQ(zm_get_recording_count(), -1);
  EXPECT_EQ(zm_remove_recording(1), -1);
  EXPECT_EQ(zm_fix_unfinished_recording(1), -1);
  EXPECT_EQ(zm_get_snapshot(0, &snapshots, 0, 0, 1), -1);
  EXPECT_EQ(zm_add_recording_bookmark(1, "x", 1, nullptr, nullptr), -1);
  EXPECT_EQ(zm_delete_recording_bookmark(1, 1), -1);
  EXPECT_EQ(Holders(), 0);
  EXPECT_TRUE(sim_.Requests("change_media_data").empty());
}

}  // namespace
