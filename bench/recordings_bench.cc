// Recording::QueryByPage (100 recordings with their videos) over 100,000 recordings of 3
// videos each, against one hand-written sqlite3 join that reads the same rows into plain
// structures.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <zolo_model/media_model.h>
#include <zolo_model/recording.h>
#include <zolo_model/recording_db.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ratio_reporter.h"
#include "sandbox.h"

namespace {

constexpr int kRecordings = 100000;
constexpr unsigned kPageSize = 100;
constexpr unsigned kPage = 500;  // the middle of the list
std::string g_database;

struct RawVideo {
  int id = 0;
  std::string directory, file_name, status, thumbnail, note;
  int64_t started_at = 0, duration = 0, finished_at = 0, number = 0;
};
struct RawRecording {
  int id = 0;
  std::string name, file_name, extra, status, event_id, upload_setting, metadata;
  int64_t recorded_at = 0, finished_at = 0, duration = 0, thumbnail_done = 0;
  std::vector<RawVideo> videos;
};

std::string Text(sqlite3_stmt* statement, int column) {
  const unsigned char* text = sqlite3_column_text(statement, column);
  return text ? reinterpret_cast<const char*>(text) : "";
}

void BM_model_recording_page(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<Recording*> rows;
    if (Recording::QueryByPage(kPage, kPageSize, &rows) != 0 || rows.size() != kPageSize)
      state.SkipWithError("query failed");
    benchmark::DoNotOptimize(rows.data());
    MediaModel::CleanQuery(rows);
  }
}

void BM_raw_sqlite_recording_page(benchmark::State& state) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(g_database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(
      db,
      "SELECT r.id, r.name, r.file_name, r.recorded_at, r.finished_at, r.duration, r.extra, "
      "r.status, r.event_id, r.upload_setting, r.thumbnail_done, r.metadata, v.id, v.directory, "
      "v.file_name, v.status, v.started_at, v.duration, v.finished_at, v.thumbnail, v.number, "
      "v.note FROM (SELECT * FROM recording ORDER BY recorded_at DESC, id DESC LIMIT ?1 "
      "OFFSET ?2) r LEFT JOIN video v ON v.recording_id = r.id "
      "ORDER BY r.recorded_at DESC, r.id DESC, v.id",
      -1, &statement, nullptr);
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
        r.recorded_at = sqlite3_column_int64(statement, 3);
        r.finished_at = sqlite3_column_int64(statement, 4);
        r.duration = sqlite3_column_int64(statement, 5);
        r.extra = Text(statement, 6);
        r.status = Text(statement, 7);
        r.event_id = Text(statement, 8);
        r.upload_setting = Text(statement, 9);
        r.thumbnail_done = sqlite3_column_int64(statement, 10);
        r.metadata = Text(statement, 11);
      }
      if (sqlite3_column_type(statement, 12) == SQLITE_NULL) continue;
      RawVideo& v = rows.back().videos.emplace_back();
      v.id = sqlite3_column_int(statement, 12);
      v.directory = Text(statement, 13);
      v.file_name = Text(statement, 14);
      v.status = Text(statement, 15);
      v.started_at = sqlite3_column_int64(statement, 16);
      v.duration = sqlite3_column_int64(statement, 17);
      v.finished_at = sqlite3_column_int64(statement, 18);
      v.thumbnail = Text(statement, 19);
      v.number = sqlite3_column_int64(statement, 20);
      v.note = Text(statement, 21);
    }
    sqlite3_reset(statement);
    if (rows.size() != kPageSize) state.SkipWithError("query failed");
    benchmark::DoNotOptimize(rows.data());
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
}

BENCHMARK(BM_model_recording_page)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_raw_sqlite_recording_page)->Unit(benchmark::kMillisecond);

// Fills the database in one transaction: recording i started at i minutes, three videos.
bool Fill() {
  sqlite3* db = nullptr;
  if (sqlite3_open(g_database.c_str(), &db) != SQLITE_OK) return false;
  std::string script =
      "BEGIN;"
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
      std::to_string(kRecordings) +
      ") INSERT INTO recording (id, name, file_name, recorded_at, finished_at, duration, "
      "status, metadata) SELECT i, 'movie1_' || i, 'rec' || i || '/movie1.mp4', i * 60, "
      "i * 60 + 45, 45000, 'ready', '{\"title\":\"Session ' || i || '\"}' FROM n;"
      "INSERT INTO video (recording_id, directory, file_name, status, started_at, duration, "
      "finished_at, number) SELECT r.id, 'rec' || r.id, 'movie1_' || k.k || '.mp4', "
      "'Finished', r.recorded_at + 15 * (k.k - 1), 15000, r.recorded_at + 15 * k.k, k.k "
      "FROM recording r, (SELECT 1 AS k UNION ALL SELECT 2 UNION ALL SELECT 3) k;"
      "COMMIT;";
  bool ok = sqlite3_exec(db, script.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_close(db);
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  setenv("OVIK_LOG_SYSLOG", "0", 1);
  zolo::test::Sandbox sandbox;
  sandbox.WriteFile("/etc/media.conf", "[Recording]\ndatabase=/rec/recording.db\n");
  g_database = sandbox.Path("/rec/recording.db");
  if (RecordingDb::Instance()->Connect() != 0 || !Fill()) return 1;
  benchmark::Initialize(&argc, argv);
  int result =
      zolo::bench::RunWithRatios({{"BM_model_recording_page", "BM_raw_sqlite_recording_page"}});
  RecordingDb::Instance()->Release(true);
  return result;
}
