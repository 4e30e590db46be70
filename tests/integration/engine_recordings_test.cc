// The simulated engine's recording half through the library: bookmarks taken while
// recording end in the recording's "bookmark.json" with their stills, the signals that
// go with them, snapshots on request, and generated recordings.
#include <gtest/gtest.h>
#include <zolo/media.h>
#include <zolo/signals.h>
#include <zolo_model/recording_db.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "engine_fixture.h"

namespace {

using zolo::test::EngineTest;

std::mutex g_mutex;
std::vector<std::string> g_signals;
std::vector<uint64_t> g_times;  // of the bookmarks added

void OnSignal(const char* name, void* data, void*) {
  std::string line = name;
  if (line == "bookmark_added") {
    auto* r = static_cast<media_sig_bookmark_added*>(data);
    line += std::string(" ") + r->text + " mode " + std::to_string(r->mode);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_times.push_back(static_cast<uint64_t>(r->time));
  } else if (line == "bookmark_removed") {
    line += std::string(" ") + static_cast<media_sig_bookmark_removed*>(data)->text;
  } else if (line == "recording_ready") {
    line += " " + std::to_string(static_cast<media_sig_recording_ready*>(data)->id);
  } else if (line == "recording_bookmark_updated") {
    auto* r = static_cast<media_sig_recording_bookmark_updated*>(data);
    line += " " + std::filesystem::path(r->url).filename().string() + " " + std::to_string(r->code);
  }
  std::lock_guard<std::mutex> lock(g_mutex);
  g_signals.push_back(line);
}

class EngineRecordingsTest : public EngineTest {
 protected:
  // The signals received once `count` have arrived (or after two seconds).
  std::vector<std::string> Signals(size_t count) {
    for (int i = 0; i < 200; ++i) {
      {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_signals.size() >= count) break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_signals;
  }
  std::string Folder(int id) {
    std::vector<zm_recording> found;
    EXPECT_EQ(zm_get_recording(id, &found, 0, 0), 0);
    return found.empty() ? "" : found.front().folder;
  }
};

TEST_F(EngineRecordingsTest, BookmarksWhileRecordingEndInTheBookmarkFile) {
  const char* names[] = {"bookmark_added", "bookmark_removed", "recording_ready",
                         "recording_bookmark_updated"};
  for (const char* name : names) ASSERT_EQ(zm_register_signal(name, OnSignal), 0);
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_signals.clear();
    g_times.clear();
  }
  ASSERT_EQ(zm_start_stream(nullptr, false, nullptr), 0);
  EXPECT_EQ(zm_add_bookmark("first", false), 0);
  EXPECT_EQ(zm_add_snapshot_bookmark(64, 36, nullptr, true), 0);
  EXPECT_EQ(zm_add_bookmark(nullptr, true), 0);
  ASSERT_EQ(Signals(3).size(), 3u);
  std::vector<uint64_t> times;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    times = g_times;
  }
  ASSERT_EQ(times.size(), 3u);
  // While recording, removing asks the engine.
  zm_recording_bookmark live{};
  live.path = "asked of the engine";
  EXPECT_EQ(zm_delete_recording_bookmark(&live, times[0]), 0);
  EXPECT_EQ(zm_delete_recording_bookmark(&live, times[0]), -5);  // gone already
  ASSERT_EQ(zm_stop_stream(nullptr, nullptr, false), 0);
  int id = sim_.last_recording_id();

  zm_recording_bookmark file{};
  std::string folder = Folder(id);
  ASSERT_EQ(zm_load_recording_bookmark(folder + "/bookmark.json", &file), 0);
  std::vector<std::string> items;
  for (const auto& item : file.items)
    items.push_back(std::to_string(item.time) + "|" + item.text + "|" + item.category);
  EXPECT_EQ(items, (std::vector<std::string>{std::to_string(times[1]) + "|Bookmark 2|snapshot",
                                             std::to_string(times[2]) + "|Bookmark 3|live"}));
  const zm_bookmark_item& with_still = file.items.front();
  EXPECT_EQ(with_still.snapshot.rfind("bookmark_snapshots/", 0), 0u) << with_still.snapshot;
  std::ifstream jpeg(folder + "/" + with_still.snapshot, std::ios::binary);
  EXPECT_EQ(jpeg.get(), 0xFF);  // a JPEG starts with its SOI marker
  std::ifstream text(folder + "/bookmark.json");
  std::string content((std::istreambuf_iterator<char>(text)), std::istreambuf_iterator<char>());
  EXPECT_EQ(content.find('\n'), content.size() - 1);  // unformatted, then one newline

  // Afterwards the library edits the file and announces each write.
  EXPECT_EQ(zm_delete_recording_bookmark(id, times[2]), 0);
  EXPECT_EQ(Signals(6), (std::vector<std::string>{
                            "bookmark_added first mode 0", "bookmark_added Bookmark 2 mode 1",
                            "bookmark_added Bookmark 3 mode 0", "bookmark_removed first",
                            "recording_ready " + std::to_string(id),
                            "recording_bookmark_updated bookmark.json 0"}));
  for (const char* name : names) zm_unregister_signal(name);
}

// What the engine refuses, with the library's mapped result.
TEST_F(EngineRecordingsTest, RefusedRequests) {
  struct Case {
    const char* what;
    int state;
    int (*call)();
    int result;
  } cases[] = {
      {"bookmark while idle", 1, [] { return zm_add_bookmark("x", false); }, -4},
      {"still while idle", 1, [] { return zm_add_snapshot_bookmark(64, 36, "x", false); }, -4},
      {"still while paused", 4, [] { return zm_add_snapshot_bookmark(64, 36, "x", false); }, -4},
      {"still of no size", 3, [] { return zm_add_snapshot_bookmark(0, 36, "x", false); }, -3},
      {"snapshot too large", 1, [] { return zm_add_snapshot(64, 100000); }, -3},
  };
  for (const Case& c : cases) {
    sim_.set_state(c.state);
    EXPECT_EQ(c.call(), c.result) << c.what;
  }
}

TEST_F(EngineRecordingsTest, SnapshotsOnRequestHaveTheirImage) {
  ASSERT_EQ(zm_add_snapshot(64, 36), 0);
  ASSERT_EQ(zm_add_snapshot(32, 16), 0);
  std::vector<zm_snapshot> snapshots;
  ASSERT_EQ(zm_get_snapshot(0, &snapshots, 0, 0, 1), 0);
  ASSERT_EQ(snapshots.size(), 2u);
  EXPECT_NE(snapshots[0].folder, snapshots[1].folder);
  for (const zm_snapshot& s : snapshots) {
    ASSERT_EQ(s.images.size(), 1u);
    const zm_image& image = s.images.front();
    EXPECT_EQ(image.width * 1000 + image.height, s.width * 1000 + s.height);
    EXPECT_EQ(image.size, std::filesystem::file_size(image.path));
    EXPECT_EQ(image.format, "jpeg");
  }
}

TEST_F(EngineRecordingsTest, GeneratedRecordings) {
  ASSERT_EQ(zolo::sim::MediaSimulator::GenerateRecordings(50, 5), 0);
  EXPECT_EQ(zm_get_recording_count(), 50);
  EXPECT_EQ(zm_get_snapshot_count(), 4);
  std::vector<zm_recording> page;
  ASSERT_EQ(zm_get_recording(0, &page, 0, 6), 0);
  ASSERT_EQ(page.size(), 6u);
  for (size_t i = 0; i < page.size(); ++i) {
    bool with_files = i < 5;  // only the five newest
    ASSERT_EQ(page[i].videos.size(), 3u);
    EXPECT_EQ(std::filesystem::exists(page[i].videos[2].path), with_files) << i;
    EXPECT_EQ(std::filesystem::exists(page[i].information_file), with_files) << i;
    zm_recording_bookmark bookmarks{};
    EXPECT_EQ(zm_load_recording_bookmark(page[i].folder + "/bookmark.json", &bookmarks),
              with_files ? 0 : -1);
  }
  EXPECT_GT(page[0].recorded_at, page[1].recorded_at);
  EXPECT_EQ(page[0].duration, 60000u);
}

}  // namespace
