// The recording calls of the library over 100,000 generated recordings of 3 videos each: a
// page of 100 recordings with their videos and the recording count, each against raw
// sqlite3 reading the same rows into plain structures. And a bookmark file of 10,000
// bookmarks loaded, searched and saved, against reading it with cJSON, a linear nearest
// search and printing it back. The library's save replaces the file atomically and then
// announces it; with no engine connected the announcement fails at once.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <sqlite3.h>
#include <zolo/media.h>
#include <zolo_media_sim.h>
#include <zolo_model/recording_db.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ratio_reporter.h"
#include "sandbox.h"

namespace {

constexpr int kRecordings = 100000;
constexpr unsigned kPageSize = 100;
constexpr unsigned kPage = 500;  // the middle of the list
constexpr int kBookmarks = 10000;
constexpr uint64_t kSearched = 12345678;  // between two bookmarks, nearer the later one

std::string g_database;
std::string g_bookmark_file;

struct RawVideo {
  int id = 0;
  std::string directory, file_name, path, status, thumbnail, note;
  int64_t started_at = 0, duration = 0, finished_at = 0, number = 0;
};
struct RawRecording {
  int id = 0;
  std::string name, file_name, folder, extra, status, event_id, upload_setting;
  int64_t recorded_at = 0, finished_at = 0, duration = 0;
  std::vector<RawVideo> videos;
};

std::string Text(sqlite3_stmt* statement, int column) {
  const unsigned char* text = sqlite3_column_text(statement, column);
  return text ? reinterpret_cast<const char*>(text) : "";
}

void BM_library_recording_page(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<zm_recording> page;
    if (zm_get_recording(0, &page, kPage, kPageSize) != 0 || page.size() != kPageSize ||
        page.front().videos.size() != 3)
      state.SkipWithError("query failed");
    benchmark::DoNotOptimize(page.data());
  }
}

void BM_raw_sqlite_recording_page(benchmark::State& state) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(g_database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(
      db,
      "SELECT r.id, r.name, r.file_name, r.recorded_at, r.finished_at, r.duration, r.extra, "
      "r.status, r.event_id, r.upload_setting, v.id, v.directory, v.file_name, v.status, "
      "v.started_at, v.duration, v.finished_at, v.thumbnail, v.number, v.note FROM (SELECT * "
      "FROM recording ORDER BY recorded_at DESC, id DESC LIMIT ?1 OFFSET ?2) r LEFT JOIN video "
      "v ON v.recording_id = r.id ORDER BY r.recorded_at DESC, r.id DESC, v.id",
      -1, &statement, nullptr);
  const std::string base = RecordingDb::Instance()->Folder();
  for (auto _ : state) {
    std::vector<RawRecording> rows;
    sqlite3_bind_int(statement, 1, kPageSize);
    sqlite3_bind_int(statement, 2, kPage * kPageSize);
    while (sqlite3_step(statement) == SQLITE_ROW) {
      int id = sqlite3_column_int(statement, 0);
      if (rows.empty() || rows.back().id != id) {
        RawRecording& r = rows.emplace_back();
        r.id = id;
        r.name = Text(statement, 1);
        r.file_name = Text(statement, 2);
        r.folder = base + "/" + r.file_name.substr(0, r.file_name.rfind('/'));
        r.recorded_at = sqlite3_column_int64(statement, 3);
        r.finished_at = sqlite3_column_int64(statement, 4);
        r.duration = sqlite3_column_int64(statement, 5);
        r.extra = Text(statement, 6);
        r.status = Text(statement, 7);
        r.event_id = Text(statement, 8);
        r.upload_setting = Text(statement, 9);
      }
      if (sqlite3_column_type(statement, 10) == SQLITE_NULL) continue;
      RawVideo& v = rows.back().videos.emplace_back();
      v.id = sqlite3_column_int(statement, 10);
      v.directory = Text(statement, 11);
      v.file_name = Text(statement, 12);
      v.path = base + "/" + v.directory + "/" + v.file_name;
      v.status = Text(statement, 13);
      v.started_at = sqlite3_column_int64(statement, 14);
      v.duration = sqlite3_column_int64(statement, 15);
      v.finished_at = sqlite3_column_int64(statement, 16);
      v.thumbnail = Text(statement, 17);
      v.number = sqlite3_column_int64(statement, 18);
      v.note = Text(statement, 19);
    }
    sqlite3_reset(statement);
    if (rows.size() != kPageSize) state.SkipWithError("query failed");
    benchmark::DoNotOptimize(rows.data());
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
}

void BM_library_recording_count(benchmark::State& state) {
  for (auto _ : state)
    if (zm_get_recording_count() != kRecordings) state.SkipWithError("count failed");
}

void BM_raw_sqlite_recording_count(benchmark::State& state) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(g_database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM recording", -1, &statement, nullptr);
  for (auto _ : state) {
    int count = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int(statement, 0) : -1;
    sqlite3_reset(statement);
    if (count != kRecordings) state.SkipWithError("count failed");
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
}

void BM_library_bookmark_load_search_save(benchmark::State& state) {
  for (auto _ : state) {
    zm_recording_bookmark bookmark{};
    if (zm_load_recording_bookmark(g_bookmark_file, &bookmark) != 0 || bookmark.count != kBookmarks)
      state.SkipWithError("load failed");
    benchmark::DoNotOptimize(zm_search_bookmark(&bookmark, kSearched));
    zm_save_recording_bookmark_file(&bookmark);
  }
}

struct RawBookmark {
  uint64_t time;
  std::string text, snapshot, category, description;
};

std::string TextOf(const cJSON* object, const char* key) {
  const cJSON* item = cJSON_GetObjectItem(object, key);
  return cJSON_IsString(item) ? item->valuestring : "";
}

void BM_cjson_bookmark_parse_search_print(benchmark::State& state) {
  for (auto _ : state) {
    std::ifstream in(g_bookmark_file, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    const std::string text = buffer.str();
    cJSON* root = cJSON_ParseWithLength(text.data(), text.size());
    std::vector<RawBookmark> items;
    const cJSON* element = nullptr;
    cJSON_ArrayForEach(element, root) {
      items.push_back({static_cast<uint64_t>(cJSON_GetObjectItem(element, "time")->valuedouble),
                       TextOf(element, "text"), TextOf(element, "snapshot"),
                       TextOf(element, "category"), TextOf(element, "description")});
    }
    if (items.size() != kBookmarks) state.SkipWithError("parse failed");
    size_t nearest = 0;
    for (size_t i = 1; i < items.size(); ++i)
      if (std::llabs(static_cast<long long>(items[i].time - kSearched)) <=
          std::llabs(static_cast<long long>(items[nearest].time - kSearched)))
        nearest = i;
    benchmark::DoNotOptimize(nearest);
    char* printed = cJSON_PrintUnformatted(root);
    FILE* out = std::fopen(g_bookmark_file.c_str(), "w");
    std::fputs(printed, out);
    std::fputc('\n', out);
    std::fclose(out);
    cJSON_free(printed);
    cJSON_Delete(root);
  }
}

BENCHMARK(BM_library_recording_page)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_raw_sqlite_recording_page)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_library_recording_count)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_raw_sqlite_recording_count)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_library_bookmark_load_search_save)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_cjson_bookmark_parse_search_print)->Unit(benchmark::kMillisecond);

// A bookmark file of kBookmarks items a second apart, every tenth with a still.
bool WriteBookmarkFile() {
  cJSON* array = cJSON_CreateArray();
  for (int i = 0; i < kBookmarks; ++i) {
    cJSON* item = cJSON_CreateObject();
    cJSON_AddNumberToObject(item, "time", i * 1000.0 + 500);
    cJSON_AddStringToObject(item, "text", ("Bookmark " + std::to_string(i + 1)).c_str());
    std::string still =
        i % 10 == 0 ? "bookmark_snapshots/bookmark_" + std::to_string(i) + ".jpg" : "";
    cJSON_AddStringToObject(item, "snapshot", still.c_str());
    cJSON_AddStringToObject(item, "category", i % 3 == 0 ? "manual" : "live");
    cJSON_AddStringToObject(item, "description", "");
    cJSON_AddItemToArray(array, item);
  }
  char* text = cJSON_PrintUnformatted(array);
  std::ofstream(g_bookmark_file) << text << '\n';
  cJSON_free(text);
  cJSON_Delete(array);
  return static_cast<bool>(std::ifstream(g_bookmark_file));
}

}  // namespace

int main(int argc, char** argv) {
  setenv("OVIK_LOG_SYSLOG", "0", 1);
  zolo::test::Sandbox sandbox;
  sandbox.WriteFile("/etc/media.conf",
                    "[Recording]\ndatabase=/rec/recording.db\nfolder=/rec/recordings\n");
  g_database = sandbox.Path("/rec/recording.db");
  g_bookmark_file = sandbox.Path("/rec/bookmark.json");
  if (zolo::sim::MediaSimulator::GenerateRecordings(kRecordings, 0) != 0 || !WriteBookmarkFile())
    return 1;
  benchmark::Initialize(&argc, argv);
  int result = zolo::bench::RunWithRatios(
      {{"BM_library_recording_page", "BM_raw_sqlite_recording_page"},
       {"BM_library_recording_count", "BM_raw_sqlite_recording_count"},
       {"BM_library_bookmark_load_search_save", "BM_cjson_bookmark_parse_search_print"}});
  RecordingDb::Instance()->Release(true);
  return result;
}
