// Stream queries over 1,000 streams against a hand-written sqlite3 query of the same rows:
// the model's Stream::QueryByTypeName, and the API's zm_get_stream_by_pattern (which also
// builds the records).
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

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

constexpr int kStreams = 1000;
std::string g_database;

// The same rows and columns, read with the sqlite3 C interface.

constexpr const char* kRawSql =
    "SELECT s.id, s.name, s.type, s.channel_id, s.codec_parameter_preset_id, s.container, "
    "s.destination, s.aux_text, s.enable, s.enable_option1, s.enable_option2, s.enable_option3, "
    "s.suspend, s.parameters, s.authentication, p.id, p.name, v.name, a.name, "
    "p.video_codec_parameter, p.audio_codec_parameter, p.builtin, p.video_codec_id, "
    "p.audio_codec_id, p.visible, c.id, c.name, c.video_source_id, c.audio_source_id, "
    "c.video_user_source_id, c.audio_user_source_id, c.preview_url, c.ordinal, c.attribute, "
    "c.visible FROM stream s "
    "LEFT JOIN channel c ON c.id = s.channel_id "
    "LEFT JOIN codec_parameter_preset p ON p.id = s.codec_parameter_preset_id "
    "LEFT JOIN codec v ON v.id = p.video_codec_id LEFT JOIN codec a ON a.id = p.audio_codec_id ";

void BM_model_query_by_type_name(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<Stream*> streams;
    Stream::QueryByTypeName("network", nullptr, true, &streams);
    if (streams.size() < kStreams) state.SkipWithError("too few streams");
    MediaModel::CleanQuery(&streams);
  }
}

// The hand-written baseline: one prepared statement stepped over every row.
void RunRaw(benchmark::State& state, const char* where, const char* value) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(g_database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* statement = nullptr;
  std::string sql = std::string(kRawSql) + where;
  sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr);
  sqlite3_bind_text(statement, 1, value, -1, SQLITE_STATIC);
  for (auto _ : state) {
    std::vector<RawRow> rows;
    RawQuery(statement, &rows);
    benchmark::DoNotOptimize(rows.data());
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
}

void BM_raw_sqlite_by_type(benchmark::State& state) {
  RunRaw(state, "WHERE s.type = ? AND s.hidden = 0 ORDER BY s.id", "network");
}

void BM_zm_get_stream_by_pattern(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<zm_stream> out;
    zm_get_stream_by_pattern("bench%", &out);
    if (out.size() != kStreams) state.SkipWithError("wrong count");
  }
}

void BM_raw_sqlite_by_pattern(benchmark::State& state) {
  RunRaw(state, "WHERE s.name LIKE ? AND s.hidden = 0 ORDER BY s.id", "bench%");
}

BENCHMARK(BM_model_query_by_type_name)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_raw_sqlite_by_type)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_zm_get_stream_by_pattern)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_raw_sqlite_by_pattern)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  zolo::test::Sandbox sandbox;
  g_database = zolo::bench::OpenBenchDatabase(sandbox);
  if (g_database.empty()) return 1;
  std::string insert = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                       std::to_string(kStreams) +
                       ") INSERT INTO stream (name, type, channel_id, codec_parameter_preset_id, "
                       "destination, parameters, authentication) SELECT 'bench' || i, 'network', "
                       "1 + i % 9, 1 + i % 6, 'rtmp://10.0.0.' || (i % 250) || '/live/' || i, "
                       "'{\"latency\": 120, \"source_port\": 9000}', '{\"encryption\": 0}' FROM n";
  if (MediaModel::Instance()->Execute(insert) != 0) return 1;
  benchmark::Initialize(&argc, argv);
  int result =
      zolo::bench::RunWithRatios({{"BM_model_query_by_type_name", "BM_raw_sqlite_by_type"},
                                  {"BM_zm_get_stream_by_pattern", "BM_raw_sqlite_by_pattern"}});
  MediaModel::Instance()->Release();
  return result;
}
