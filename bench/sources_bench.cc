// Source and channel queries against hand-written sqlite3 queries of the same rows and
// columns: zm_get_channel(0) over 200 channels with their four sources (and their preview
// streams), zm_get_source(0) over 500 sources.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <sqlite3.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "ratio_reporter.h"
#include "raw_rows.h"
#include "sandbox.h"

namespace {

using zolo::bench::RawQuery;
using zolo::bench::RawRow;

constexpr int kChannels = 200;
constexpr int kSources = 500;
std::string g_database;

#define SOURCE_COLUMNS(t)                                                                \
  t ".id, " t ".name, " t ".type, " t ".category, " t ".url, " t ".sub_address, " t      \
    ".authentication, " t ".parameters, " t ".fixed, " t ".available, " t ".enabled, " t \
    ".visible, " t ".int_attr1, " t ".int_attr2, " t ".extra, " t ".extra2"

constexpr const char* kRawSources =
    "SELECT " SOURCE_COLUMNS("s") " FROM channel_source s WHERE s.visible = 1 ORDER BY s.id";
constexpr const char* kRawChannels =
    "SELECT c.id, c.name, c.preview_url, c.ordinal, c.attribute, c.visible, " SOURCE_COLUMNS(
        "v") ", " SOURCE_COLUMNS("a") ", " SOURCE_COLUMNS("vu") ", " SOURCE_COLUMNS("au")
    " FROM channel c LEFT JOIN channel_source v ON v.id = c.video_source_id "
    "LEFT JOIN channel_source a ON a.id = c.audio_source_id "
    "LEFT JOIN user_source vu ON vu.id = c.video_user_source_id "
    "LEFT JOIN user_source au ON au.id = c.audio_user_source_id WHERE c.visible = 1 ORDER BY c.id";
constexpr const char* kRawPreviews =
    "SELECT s.id, s.name, s.type, s.channel_id, s.destination, s.enable, s.enable_option1, "
    "s.enable_option2 FROM stream s WHERE s.name LIKE 'preview%' ORDER BY s.id";

// The hand-written baseline: prepared statements stepped over every row.
void RunRaw(benchmark::State& state, std::vector<const char*> sqls,
            const std::vector<int>& json_columns = {}) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(g_database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  std::vector<sqlite3_stmt*> statements;
  for (const char* sql : sqls) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK)
      state.SkipWithError(sqlite3_errmsg(db));
    statements.push_back(statement);
  }
  for (auto _ : state) {
    std::vector<RawRow> rows;
    for (sqlite3_stmt* statement : statements) RawQuery(statement, &rows, json_columns);
    benchmark::DoNotOptimize(rows.data());
  }
  for (sqlite3_stmt* statement : statements) sqlite3_finalize(statement);
  sqlite3_close(db);
}

void BM_zm_get_channel(benchmark::State& state) {
  // The caller's vector is reused, as a caller polling the list would: the records are
  // large, and allocating fresh pages for them each time is not the query's work.
  std::vector<zm_channel> out;
  for (auto _ : state) {
    out.clear();
    zm_get_channel(0, &out);
    if (out.size() != kChannels) state.SkipWithError("wrong count");
  }
}

void BM_raw_sqlite_channels(benchmark::State& state) {
  RunRaw(state, {kRawChannels, kRawPreviews});
}

void BM_zm_get_source(benchmark::State& state) {
  // The caller's vector is reused, as a caller polling the list would: the records are
  // large, and allocating fresh pages for them each time is not the query's work.
  std::vector<zm_source> out;
  for (auto _ : state) {
    out.clear();
    zm_get_source(0, &out);
    if (out.size() != kSources) state.SkipWithError("wrong count");
  }
}

void BM_raw_sqlite_sources(benchmark::State& state) {
  RunRaw(state, {kRawSources});
}

// The same, also decoding each row's authentication and parameter texts (columns 6 and 7).
void BM_raw_sqlite_sources_json(benchmark::State& state) {
  RunRaw(state, {kRawSources}, {6, 7});
}

BENCHMARK(BM_zm_get_channel)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_raw_sqlite_channels)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_zm_get_source)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_raw_sqlite_sources)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_raw_sqlite_sources_json)->Unit(benchmark::kMillisecond);

// Replaces the default inputs: 500 device sources (pairs of video and audio for the first
// 400), 400 user sources, 200 channels using four each, and a preview stream per channel.
std::string BenchRows() {
  auto numbers = [](int count) {
    return "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
           std::to_string(count) + ") ";
  };
  const std::string columns =
      " (id, name, type, category, url, sub_address, parameters, authentication) ";
  const std::string values =
      "SELECT i, 'bench' || i, i % 2 = 0, 1, 'rtsp://10.0.' || (i % 250) || '.1/live/' || i, "
      "'', '{\"resolution\": \"1920x1080\", \"frame_rate\": 30, \"rotate\": 0, \"audio_delay\": "
      "40, \"latency\": 120, \"source_port\": 554}', '{\"encryption\": 1, \"key_length\": 16, "
      "\"passphrase\": \"secret\"}' FROM n;";
  return "DELETE FROM stream; DELETE FROM channel_sources; DELETE FROM channel; "
         "DELETE FROM channel_source; DELETE FROM user_source; " +
         numbers(kSources) + "INSERT INTO channel_source" + columns + values +
         numbers(2 * kChannels) + "INSERT INTO user_source" + columns + values +
         numbers(kChannels) +
         "INSERT INTO channel (id, name, video_source_id, audio_source_id, video_user_source_id, "
         "audio_user_source_id, ordinal) SELECT i, 'RTSP' || i, 2 * i - 1, 2 * i, 2 * i - 1, 2 * "
         "i, i FROM n; " +
         numbers(kChannels) +
         "INSERT INTO stream (name, type, channel_id, destination, enable, enable_option1, hidden) "
         "SELECT 'preview-' || i, 'network', i, 'rtsp://zolo.local:8554/preview/' || i, 1, 1, 1 "
         "FROM n;";
}

}  // namespace

int main(int argc, char** argv) {
  zolo::test::Sandbox sandbox;
  g_database = zolo::bench::OpenBenchDatabase(sandbox);
  if (g_database.empty()) return 1;
  std::string script = BenchRows();
  auto* database = MediaModel::Instance()->database();
  {
    auto lock = database->Lock();
    database->ExecScript(script);
  }
  benchmark::Initialize(&argc, argv);
  int result = zolo::bench::RunWithRatios({{"BM_zm_get_channel", "BM_raw_sqlite_channels"},
                                           {"BM_zm_get_source", "BM_raw_sqlite_sources"},
                                           {"BM_zm_get_source", "BM_raw_sqlite_sources_json"}});
  MediaModel::Instance()->Release();
  return result;
}
