// Commands on a channel's input over the bus: payloads, results, the engine's follow-up
// signal, snapshot files, and the preview snapshot task (also across a release).
#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>

#include <chrono>
#include <condition_variable>
#include <csetjmp>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "engine_fixture.h"
#include "log_capture.h"

namespace {

using zolo::sim::Forced;
using zolo::test::EngineTest;
using zolo::test::LogCapture;

struct JpegError {
  jpeg_error_mgr base;
  jmp_buf jump;
};

// Decodes the whole JPEG at `path`; false when it is missing or broken.
bool DecodeJpeg(const std::string& path, unsigned* width, unsigned* height) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return false;
  jpeg_decompress_struct info;
  JpegError error;
  info.err = jpeg_std_error(&error.base);
  error.base.error_exit = [](j_common_ptr common) {
    longjmp(reinterpret_cast<JpegError*>(common->err)->jump, 1);
  };
  jpeg_create_decompress(&info);
  if (setjmp(error.jump) != 0) {
    jpeg_destroy_decompress(&info);
    std::fclose(file);
    return false;
  }
  jpeg_stdio_src(&info, file);
  jpeg_read_header(&info, TRUE);
  jpeg_start_decompress(&info);
  std::vector<unsigned char> row(static_cast<size_t>(info.output_width) * info.output_components);
  for (JSAMPROW line = row.data(); info.output_scanline < info.output_height;)
    jpeg_read_scanlines(&info, &line, 1);
  *width = info.output_width;
  *height = info.output_height;
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  std::fclose(file);
  return true;
}

struct StatusSeen {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> lines;  // "id name status capture"
};
StatusSeen* g_status = nullptr;

void OnChannelStatus(const char*, void* data, void*) {
  auto* status = static_cast<media_sig_channel_status*>(data);
  std::lock_guard<std::mutex> lock(g_status->mutex);
  g_status->lines.push_back(std::to_string(status->id) + " " + status->name + " " +
                            std::to_string(status->status) + " " +
                            (status->capture ? "capture" : "-"));
  g_status->changed.notify_all();
}

class SourceInputTest : public EngineTest {
 protected:
  std::string Payload(const std::string& method) {
    auto requests = sim_.Requests(method);
    return requests.empty() ? "(none)" : requests.back().payload;
  }
  static bool WaitForLog(const LogCapture& log, const std::string& message) {
    for (int i = 0; i < 500 && !log.Has(message, 2); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return log.Has(message, 2);
  }
  static void Exec(const std::string& sql) {
    ASSERT_EQ(zm_execute_db_command(sql.c_str()), 0) << sql;
  }
  zm_source UserSource(int id) {
    std::vector<zm_source> out;
    EXPECT_EQ(zm_get_user_source(id, &out), 0);
    return out.empty() ? zm_source{} : out.front();
  }
};

TEST_F(SourceInputTest, CommandsSendTheirPayloadsAndMapTheEnginesCodes) {
  struct Case {
    const char* method;
    std::function<int()> call;
    const char* payload;
  };
  zm_input_param param = {1, 2, 3};
  const Case cases[] = {
      {"connect_channel_source", [] { return zm_enable_channel_source(3, true, nullptr, nullptr); },
       R"({"channel":3,"connect":1})"},
      {"connect_channel_source",
       [] { return zm_enable_channel_source(1, false, "capture://a", "s"); },
       R"({"channel":1,"connect":0,"uri":"capture://a","sub_uri":"s"})"},
      {"connect_source", [] { return zm_enable_source(7, true, "rtsp://h/x", nullptr); },
       R"({"source":7,"connect":1,"uri":"rtsp://h/x"})"},
      {"update_channel_param", [] { return zm_update_channel_parameter(2); }, R"({"channel":2})"},
      {"rotate_channel_source", [] { return zm_rotate_channel_source(1, 90); },
       R"({"id":1,"rotate":90})"},
      {"set_channel_audio_delay", [] { return zm_set_channel_audio_delay(1, -40); },
       R"({"id":1,"audio_delay":-40})"},
      {"set_video_input_param", [&] { return zm_set_channel_input_param(1, param); },
       R"({"channel":1,"auto_adjust":1,"phase":2,"position":3})"},
      {"get_video_input_param", [&] { return zm_get_channel_input_param(1, &param); },
       R"({"channel":1})"},
      {"make_channel_snapshot",
       [] { return zm_make_channel_snapshot(9, "file:///var/lib/zolo/a.jpg", 64, 48); },
       R"({"channel":9,"uri":"file:///var/lib/zolo/a.jpg","width":64,"height":48})"},
  };
  for (const Case& c : cases) {
    sim_.ClearRequests();
    EXPECT_EQ(c.call(), 0) << c.method;
    EXPECT_EQ(Payload(c.method), c.payload);
    sim_.Force(c.method, Forced{Forced::kCode, -1012, 0, ""});
    EXPECT_EQ(c.call(), -7) << c.method;
    sim_.Force(c.method, Forced{Forced::kCode, -1005, 0, ""});
    EXPECT_EQ(c.call(), -5) << c.method;
    sim_.Unforce(c.method);
  }
  // Unknown channels in the engine.
  EXPECT_EQ(zm_enable_channel_source(999, true, nullptr, nullptr), -5);
  EXPECT_EQ(zm_rotate_channel_source(999, 90), -5);
}

TEST_F(SourceInputTest, InputAdjustmentReadsBackAndKeepsWhatTheReplyLacks) {
  ASSERT_EQ(zm_set_channel_input_param(2, {0, 5, -3}), 0);
  zm_input_param param = {9, 9, 9};
  ASSERT_EQ(zm_get_channel_input_param(2, &param), 0);
  EXPECT_EQ(std::to_string(param.auto_adjust) + std::to_string(param.phase) +
                std::to_string(param.position),
            "05-3");
  sim_.Force("get_video_input_param",
             Forced{Forced::kNoCode, 0, 0, R"({"code":0,"phase":"7","position":4})"});
  param = {11, 22, 33};
  ASSERT_EQ(zm_get_channel_input_param(2, &param), 0);
  EXPECT_EQ(std::vector<int>({param.auto_adjust, param.phase, param.position}),
            std::vector<int>({11, 22, 4}));

  sim_.ClearRequests();
  EXPECT_EQ(zm_get_channel_input_param(999, &param), -5);
  EXPECT_EQ(zm_set_channel_input_param(999, param), -5);
  EXPECT_EQ(zm_get_channel_input_param(1, nullptr), -3);
  EXPECT_TRUE(sim_.Requests().empty());
}

TEST_F(SourceInputTest, ConnectingAnInputIsFollowedByItsChannelStatus) {
  StatusSeen seen;
  g_status = &seen;
  ASSERT_EQ(zm_register_signal("channel_status", OnChannelStatus), 0);
  ASSERT_EQ(zm_enable_channel_source(1, true, nullptr, nullptr), 0);
  ASSERT_EQ(zm_enable_channel_source(7, false, "rtsp://h/x", nullptr), 0);
  {
    std::unique_lock<std::mutex> lock(seen.mutex);
    seen.changed.wait_for(lock, std::chrono::seconds(5), [&] { return seen.lines.size() >= 2; });
    EXPECT_EQ(seen.lines, (std::vector<std::string>{"1 Video-Capture1 1 capture", "7 RTSP1 0 -"}));
  }
  zm_unregister_signal("channel_status");
  g_status = nullptr;
}

TEST_F(SourceInputTest, CommandsWaitEightSeconds) {
  sim_.Force("rotate_channel_source", Forced{Forced::kNoReply, 0, 0, ""});
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(zm_rotate_channel_source(1, 180), -6);
  double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_GT(waited, 7.5);
  EXPECT_LT(waited, 12);
}

TEST_F(SourceInputTest, ChannelSnapshotsAreJpegFilesOfTheRequestedSize) {
  ASSERT_EQ(zm_make_channel_snapshot(2, "file:///var/lib/zolo/ch2.jpg", 320, 240), 0);
  unsigned width = 0, height = 0;
  ASSERT_TRUE(DecodeJpeg(sandbox_->Path("/var/lib/zolo/ch2.jpg"), &width, &height));
  EXPECT_EQ(std::to_string(width) + "x" + std::to_string(height), "320x240");

  sim_.ClearRequests();
  EXPECT_EQ(zm_make_channel_snapshot(1, "http://h/x.jpg", 64, 48), -3);
  EXPECT_EQ(zm_make_channel_snapshot(1, nullptr, 64, 48), -3);
  EXPECT_EQ(zm_make_channel_snapshot(-1, "file:///var/lib/zolo/x.jpg", 64, 48), -2);
  EXPECT_EQ(zm_make_channel_snapshot(10, "file:///var/lib/zolo/x.jpg", 64, 48), -2);
  EXPECT_TRUE(sim_.Requests().empty());
  // The engine refuses a folder that does not exist and a picture without pixels.
  EXPECT_EQ(zm_make_channel_snapshot(1, "file:///no/such/folder/x.jpg", 64, 48), -1);
  EXPECT_EQ(zm_make_channel_snapshot(1, "file:///var/lib/zolo/x.jpg", 0, 48), -3);
  EXPECT_FALSE(DecodeJpeg(sandbox_->Path("/var/lib/zolo/x.jpg"), &width, &height));
  Exec("UPDATE channel SET name = 'Program' WHERE name = 'Movie'");
  EXPECT_EQ(zm_make_channel_snapshot(1, "file:///var/lib/zolo/x.jpg", 64, 48), -2);
}

TEST_F(SourceInputTest, PreviewSnapshotWritesTheUserSourcesPreviewDest) {
  LogCapture log;
  ASSERT_EQ(zm_make_channel_preview_snapshot(7, 160, 90), 0);
  EXPECT_TRUE(log.Has("zm_make_channel_preview_snapshot in\n", 2) &&
              log.Has("zm_make_channel_preview_snapshot out\n", 2));
  ASSERT_TRUE(WaitForLog(log, "make_channel_preview_snapshot_task out")) << log.Dump();
  EXPECT_TRUE(log.Has("make_channel_preview_snapshot_task: user source name is Lobby Camera", 2));
  const std::string file = "/var/lib/zolo/media/images/snapshot/snapshot_001.jpg";
  EXPECT_EQ(Payload("make_channel_snapshot"),
            R"({"channel":7,"uri":"file://)" + file + R"(","width":160,"height":90})");
  unsigned width = 0, height = 0;
  ASSERT_TRUE(DecodeJpeg(sandbox_->Path(file), &width, &height));
  EXPECT_EQ(width * 1000 + height, 160090u);
  EXPECT_STREQ(UserSource(1).preview_dest, file.c_str());
  EXPECT_EQ(Payload("change_media_data"), R"({"type":1,"data":10,"id":1})");

  // A failed picture changes nothing and tells nobody.
  Exec("INSERT INTO user_source (id, name, url) VALUES (1234, 'big', 'rtsp://h/x')");
  Exec("UPDATE channel SET video_user_source_id = 1234 WHERE id = 7");
  sim_.Force("make_channel_snapshot", Forced{Forced::kCode, -1001, 0, ""});
  sim_.ClearRequests();
  log.Clear();
  ASSERT_EQ(zm_make_channel_preview_snapshot(7, 160, 90), 0);
  ASSERT_TRUE(WaitForLog(log, "make_channel_preview_snapshot_task out"));
  EXPECT_NE(Payload("make_channel_snapshot").find("snapshot_1234.jpg"), std::string::npos);
  EXPECT_STREQ(UserSource(1234).preview_dest, "");
  EXPECT_TRUE(sim_.Requests("change_media_data").empty());

  // Parameters that do not parse are kept as they are, not replaced by the one member.
  const std::string broken = R"({"latency":200,)";
  Exec("UPDATE user_source SET parameters = '" + broken + "' WHERE id = 1234");
  sim_.Force("make_channel_snapshot", Forced{Forced::kCode, 0, 0, ""});
  log.Clear();
  ASSERT_EQ(zm_make_channel_preview_snapshot(7, 160, 90), 0);
  ASSERT_TRUE(WaitForLog(log, "make_channel_preview_snapshot_task out"));
  EXPECT_TRUE(
      log.Has("preview_dest of user source 1234: parameters are not a JSON object; kept", 0))
      << log.Dump();
  SQLite::Database db(MediaModel::Instance()->database()->path(), SQLite::OPEN_READONLY);
  EXPECT_EQ(db.execAndGet("SELECT parameters FROM user_source WHERE id = 1234").getString(),
            broken);
  EXPECT_TRUE(sim_.Requests("change_media_data").empty());

  EXPECT_EQ(zm_make_channel_preview_snapshot(1, 160, 90), -5);
  EXPECT_TRUE(log.Has("Channel 1 is not using any video user source!", 2));
  EXPECT_EQ(zm_make_channel_preview_snapshot(999, 160, 90), -5);
  EXPECT_TRUE(log.Has("Channel 999 is not found", 2));
}

// The task owns what it uses: releasing the library right after the call takes nothing from
// under it, and its result is in the database when the library comes back.
TEST_F(SourceInputTest, PreviewSnapshotOutlivesARelease) {
  LogCapture log;
  for (int delay_ms : {0, 300}) {
    log.Clear();
    sim_.ClearRequests();
    sim_.Force("make_channel_snapshot", Forced{Forced::kCode, 0, delay_ms, ""});
    ASSERT_EQ(zm_make_channel_preview_snapshot(8, 64, 36), 0);
    zm_release();
    initialized_ = false;
    ASSERT_TRUE(WaitForLog(log, "make_channel_preview_snapshot_task out")) << log.Dump();
    ASSERT_EQ(zm_init(true), 0);
    initialized_ = true;
    EXPECT_STREQ(UserSource(2).preview_dest,
                 "/var/lib/zolo/media/images/snapshot/snapshot_002.jpg");
    EXPECT_EQ(Payload("change_media_data"), R"({"type":1,"data":10,"id":2})");
    Exec("UPDATE user_source SET parameters = '{}' WHERE id = 2");
  }
}

}  // namespace
