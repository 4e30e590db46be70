// Preset listing over 200 presets: zm_get_codec_preset(0, ...) (model query and records)
// against a hand-written sqlite3 query reading the same rows into the same records.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "model_fixture.h"
#include "ratio_reporter.h"
#include "raw_rows.h"
#include "sandbox.h"

namespace {

constexpr int kPresets = 200;
std::string g_database;

void BM_zm_get_codec_preset(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<zm_codec_preset> out;
    zm_get_codec_preset(0, &out);
    if (out.size() < kPresets) state.SkipWithError("too few presets");
    benchmark::DoNotOptimize(out.data());
  }
}

template <size_t N>
void Copy(char (&field)[N], sqlite3_stmt* statement, int column) {
  const unsigned char* text = sqlite3_column_text(statement, column);
  std::snprintf(field, N, "%s", text ? reinterpret_cast<const char*>(text) : "");
}

void BM_raw_sqlite_presets(benchmark::State& state) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(g_database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db,
                     "SELECT p.id, p.name, v.name, p.video_codec_parameter, a.name, "
                     "p.audio_codec_parameter FROM codec_parameter_preset p "
                     "LEFT JOIN codec v ON v.id = p.video_codec_id "
                     "LEFT JOIN codec a ON a.id = p.audio_codec_id "
                     "WHERE p.visible = 1 ORDER BY p.id",
                     -1, &statement, nullptr);
  for (auto _ : state) {
    std::vector<zm_codec_preset> out;
    out.reserve(kPresets + 8);
    while (sqlite3_step(statement) == SQLITE_ROW) {
      zm_codec_preset& record = out.emplace_back();
      record.id = sqlite3_column_int(statement, 0);
      Copy(record.name, statement, 1);
      Copy(record.video_codec, statement, 2);
      Copy(record.video_codec_parameter, statement, 3);
      Copy(record.audio_codec, statement, 4);
      Copy(record.audio_codec_parameter, statement, 5);
    }
    sqlite3_reset(statement);
    benchmark::DoNotOptimize(out.data());
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
}

BENCHMARK(BM_zm_get_codec_preset)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_raw_sqlite_presets)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  zolo::test::Sandbox sandbox;
  g_database = zolo::bench::OpenBenchDatabase(sandbox);
  if (g_database.empty()) return 1;
  std::string insert =
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
      std::to_string(kPresets) +
      ") INSERT INTO codec_parameter_preset (name, video_codec_id, audio_codec_id, "
      "video_codec_parameter, audio_codec_parameter) SELECT 'bench ' || i, 1 + i % 3, 4 + i % 3, "
      "'{\"width\":1920,\"height\":1080,\"frame_rate\":' || (25 + i % 36) || ',\"bitrate\":' || "
      "(1000 + i) || ',\"gop\":60}', '{\"bitrate\":128,\"samplerate\":48000,\"channels\":2}' "
      "FROM n";
  if (MediaModel::Instance()->Execute(insert) != 0) return 1;
  benchmark::Initialize(&argc, argv);
  int result = zolo::bench::RunWithRatios({{"BM_zm_get_codec_preset", "BM_raw_sqlite_presets"}});
  MediaModel::Instance()->Release();
  return result;
}
