// Stream control over the bus: engine-state rules, replies, NDI companion, database flags.
#include <gtest/gtest.h>
#include <zolo/media.h>
#include <zolo_model/recording.h>
#include <zolo_model/recording_db.h>
#include <zolo_model/stream.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine_fixture.h"

namespace {

using zolo::sim::Forced;
using zolo::test::EngineTest;

std::mutex g_change_mutex;
std::string g_last_change;

void OnDataChanged(const char*, void* data, void*) {
  auto* change = static_cast<media_sig_media_data_changed*>(data);
  std::lock_guard<std::mutex> lock(g_change_mutex);
  g_last_change = std::to_string(change->type) + "/" + std::to_string(change->data) + "/" +
                  std::to_string(change->id);
}

std::string LastChange() {
  std::lock_guard<std::mutex> lock(g_change_mutex);
  return g_last_change;
}

class StreamControlTest : public EngineTest {
 protected:
  void SetNdiCompanion(bool on) {
    sandbox_->WriteFile("/etc/media.conf", "[Engine]\nadd_ndi_preview_stream_simultaneously=" +
                                               std::string(on ? "1" : "0") + "\n");
    // The configuration is read when the library starts.
    zm_release();
    ASSERT_EQ(zm_init(true), 0);
  }
  std::vector<std::string> Methods() {
    std::vector<std::string> methods;
    for (const auto& r : sim_.Requests()) methods.push_back(r.method);
    return methods;
  }
  void Exec(const char* sql) { ASSERT_EQ(zm_execute_db_command(sql), 0); }
  bool Enabled(const char* name) {
    std::vector<zm_stream> out;
    zm_get_stream_by_pattern(name, &out);
    return !out.empty() && out.front().enable == 1;
  }
};

TEST_F(StreamControlTest, EngineStateRulesRefuseWithoutAsking) {
  struct Case {
    int state;
    int (*call)();
  };
  auto start = [] { return zm_start_stream(nullptr, false, nullptr); };
  auto pause = [] { return zm_pause_stream(false); };
  auto resume = [] { return zm_resume_stream(false); };
  auto stop = [] { return zm_stop_stream(nullptr, nullptr, false); };
  // clang-format off
  const Case refused[] = {
      {3, start},
      {0, start},
      {4, pause},
      {1, pause},
      {1, resume},
      {3, resume},
      {1, stop},
      {2, stop},
  };
  // clang-format on
  for (const auto& c : refused) {
    sim_.set_state(c.state);
    sim_.ClearRequests();
    EXPECT_EQ(c.call(), -4) << "state " << c.state;
    EXPECT_EQ(Methods(), std::vector<std::string>{"get_state"});
  }
}

TEST_F(StreamControlTest, ARecordingStartsPausesResumesAndStops) {
  std::map<std::string, std::string> names = {{"movie1", "keynote"}, {"backup1", "b"}};
  std::vector<zm_stream> started;
  ASSERT_EQ(zm_start_stream(&started, true, &names), 0);
  EXPECT_EQ(sim_.state(), zolo::sim::kRecording);
  EXPECT_EQ(sim_.Requests("start_streams").back().payload,
            R"({"persist":true,"filenames":[{"stream":"backup1","filename":"b"},)"
            R"({"stream":"movie1","filename":"keynote"}]})");
  ASSERT_FALSE(started.empty());
  EXPECT_EQ(std::string(started[0].name) + "/" + started[0].channel_name, "movie1/Movie");
  EXPECT_GT(started[0].start_time, 0);
  EXPECT_EQ(zm_pause_stream(false), 0);
  EXPECT_EQ(sim_.Requests("pause_streams").back().payload, R"({"persist":false})");
  EXPECT_EQ(zm_resume_stream(false), 0);
  std::vector<zm_stream> status;
  EXPECT_EQ(zm_get_streaming_status(&status), 0);
  ASSERT_FALSE(status.empty());
  EXPECT_STREQ(status[0].type, "file");
  std::vector<zm_stream> stopped;
  unsigned recording = 0;
  ASSERT_EQ(zm_stop_stream(&stopped, &recording, false), 0);
  ASSERT_GT(recording, 0u);
  EXPECT_EQ(recording, static_cast<unsigned>(sim_.last_recording_id()));
  ASSERT_FALSE(stopped.empty());
  EXPECT_GE(stopped[0].stop_time, stopped[0].start_time);
  EXPECT_EQ(sim_.state(), zolo::sim::kIdle);

  // The engine left the recording behind: its row, a video per file stream named as asked
  // at start, and the files.
  ASSERT_EQ(RecordingDb::Instance()->Connect(), 0);
  Recording* row = nullptr;
  ASSERT_EQ(Recording::QueryById(static_cast<int>(recording), &row), 0);
  std::unique_ptr<Recording> written(row);
  EXPECT_EQ(row->status(), "ready");
  std::set<std::string> files;
  for (Video* video : row->videos()) {
    files.insert(video->file_name());
    EXPECT_TRUE(std::filesystem::exists(RecordingDb::Instance()->Folder() + "/" +
                                        video->directory() + "/" + video->file_name()));
  }
  EXPECT_EQ(files, std::set<std::string>{"keynote.mp4"});  // backup1 is disabled
  EXPECT_TRUE(std::filesystem::exists(RecordingDb::Instance()->Folder() + "/" + row->folder() +
                                      "/information.json"));
  RecordingDb::Instance()->Release(true);
}

TEST_F(StreamControlTest, MissingReplyMembersTakeTheirDefaults) {
  sim_.Force("start_streams",
             Forced{Forced::kNoCode, 0, 0, R"({"code":0,"Streams":[{"Name":"x","Channel":7}]})"});
  std::vector<zm_stream> out;
  ASSERT_EQ(zm_start_stream(&out, false, nullptr), 0);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(out[0].start_time, -1);
  EXPECT_STREQ(out[0].channel_name, "");  // a number where text belongs
  sim_.set_state(zolo::sim::kRecording);
  sim_.Force("stop_streams", Forced{Forced::kNoCode, 0, 0, R"({"code":0})"});
  unsigned recording = 99;
  EXPECT_EQ(zm_stop_stream(nullptr, &recording, false), 0);
  EXPECT_EQ(recording, 0u);
  sim_.Force("stop_streams", Forced{Forced::kCode, -1013, 0, ""});
  EXPECT_EQ(zm_stop_stream(nullptr, &recording, false), -8);
  EXPECT_EQ(zm_get_streaming_status(nullptr), -3);
}

TEST_F(StreamControlTest, NdiStreamsBringTheirPreviewCompanionWhenConfigured) {
  for (bool on : {true, false}) {
    SetNdiCompanion(on);
    sim_.ClearRequests();
    EXPECT_EQ(zm_start_network_streams("ndi1", nullptr), 0);
    EXPECT_EQ(zm_stop_network_streams("ndi1", nullptr), 0);
    std::string starts;
    for (const auto& r : sim_.Requests("start_network_streams")) starts += r.payload;
    EXPECT_EQ(starts, on ? R"({"name":"ndi1"}{"name":"preview-ndi-sub"})" : R"({"name":"ndi1"})");
    EXPECT_EQ(sim_.Requests("stop_network_streams").size(), on ? 2u : 1u);
  }
  SetNdiCompanion(true);
  sim_.ClearRequests();
  std::vector<zm_stream> out;
  EXPECT_EQ(zm_start_network_streams("rtmp1", &out), 0);  // not NDI: no companion
  EXPECT_EQ(sim_.Requests("start_network_streams").size(), 1u);
  EXPECT_EQ(zm_start_network_streams(nullptr, &out), -3);
}

TEST_F(StreamControlTest, EnableSuspendAndRemoveKeepTheEngineInformed) {
  Exec("UPDATE stream SET enable = 0 WHERE name LIKE 'preview%'");
  sim_.ClearRequests();
  ASSERT_EQ(zm_enable_stream("preview", 1), 0);
  EXPECT_EQ(std::vector<bool>({Enabled("preview"), Enabled("preview1"), Enabled("preview2"),
                               Enabled("preview-ndi-sub")}),
            std::vector<bool>({true, true, true, false}));
  EXPECT_EQ(sim_.Requests("change_media_data").size(), 1u);  // only "preview" itself
  ASSERT_EQ(zm_enable_stream("sched%", 1, 1, 0, 1), 0);
  std::vector<zm_stream> sched;
  zm_get_schedule_stream(&sched);
  EXPECT_EQ(
      std::vector<int>({sched[0].enable_option1, sched[0].enable_option2, sched[0].enable_option3}),
      std::vector<int>({1, 0, 1}));
  ASSERT_EQ(zm_register_signal("media_data_changed", OnDataChanged), 0);
  ASSERT_EQ(zm_suspend_stream("sched-rtmp1", 1), 0);
  sched.clear();
  zm_get_schedule_stream(&sched);
  EXPECT_EQ(sched[0].suspend, 1);
  // The engine announces the change to every front end.
  std::string expected = "1/2/" + std::to_string(sched[0].id);
  for (int i = 0; i < 200 && LastChange() != expected; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(LastChange(), expected);
  zm_unregister_signal("media_data_changed");
  EXPECT_EQ(zm_enable_stream(nullptr, 1), -3);
  EXPECT_EQ(zm_suspend_stream(nullptr, 1), -3);

  SetNdiCompanion(true);
  Exec("UPDATE stream SET enable = 1 WHERE destination LIKE 'ndi://%'");
  std::vector<zm_stream> ndi;
  zm_get_stream_by_pattern("ndi1", &ndi);
  sim_.ClearRequests();
  ASSERT_EQ(zm_remove_stream(ndi[0].id), 0);
  EXPECT_FALSE(Enabled("preview-ndi-sub"));
  EXPECT_EQ(sim_.Requests("change_media_data").back().payload,
            "{\"type\":2,\"data\":2,\"id\":" + std::to_string(ndi[0].id) + "}");
  EXPECT_EQ(zm_remove_stream(ndi[0].id), -5);
  EXPECT_EQ(zm_remove_stream(0), -3);
}

// A flag the database refuses to store is a failure and is not announced to the engine.
TEST_F(StreamControlTest, RefusedFlagWritesAreNeitherSuccessNorAnnounced) {
  for (const char* refusal : {"PRAGMA query_only = ON",
                              "CREATE TRIGGER refuse BEFORE UPDATE ON stream "
                              "BEGIN SELECT RAISE(ABORT, 'refused'); END;"}) {
    Exec(refusal);
    sim_.ClearRequests();
    EXPECT_EQ(zm_enable_stream("rtmp1", 1), -1) << refusal;
    EXPECT_EQ(zm_enable_stream("sched%", 1, 1, 1), -1) << refusal;
    EXPECT_EQ(zm_suspend_stream("sched-rtmp1", 1), -1) << refusal;
    EXPECT_TRUE(sim_.Requests("change_media_data").empty()) << refusal;
    Exec(std::string(refusal).find("PRAGMA") == 0 ? "PRAGMA query_only = OFF"
                                                  : "DROP TRIGGER refuse");
    EXPECT_FALSE(Enabled("rtmp1"));
  }
}

}  // namespace
