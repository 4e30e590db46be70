// The mixer model against hand-written SQL on the same database: listing every layout
// with its group (what a layout listing does), and reading a mixer with its current
// layout windows. Each pair prints its ratio (model time / baseline time).
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <sqlite3.h>
#include <zolo_model/media_model.h>
#include <zolo_model/mixer.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ratio_reporter.h"
#include "sandbox.h"

namespace {

std::string g_database;

// A plain sqlite3 connection to the same database for the baselines.
sqlite3* Raw() {
  static sqlite3* raw = [] {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(g_database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
      std::abort();
    return db;
  }();
  return raw;
}

void BM_ListLayouts_Model(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<MixerConfig*> configs;
    MixerConfig::QueryByType(MixerConfig::kVideo, &configs);
    size_t named = 0;
    for (auto* config : configs) {
      MixerConfigGroup* group = config->group(0);
      if (group != nullptr) named += group->name().size() + config->content().size();
    }
    benchmark::DoNotOptimize(named);
    MediaModel::CleanQuery(&configs);
  }
}

void BM_ListLayouts_Baseline(benchmark::State& state) {
  sqlite3_stmt* st = nullptr;
  sqlite3_prepare_v2(Raw(),
                     "SELECT c.id, c.name, c.content, c.rank, c.enabled, c.custom, g.id, g.name "
                     "FROM mixer_config c LEFT JOIN mixer_config_group g ON g.id = c.group_id "
                     "WHERE c.type = ? ORDER BY c.id",
                     -1, &st, nullptr);
  for (auto _ : state) {
    sqlite3_bind_int(st, 1, 0);
    size_t named = 0;
    while (sqlite3_step(st) == SQLITE_ROW) {
      std::string name(reinterpret_cast<const char*>(sqlite3_column_text(st, 1)));
      std::string content(reinterpret_cast<const char*>(sqlite3_column_text(st, 2)));
      if (sqlite3_column_type(st, 7) != SQLITE_NULL)
        named += std::string(reinterpret_cast<const char*>(sqlite3_column_text(st, 7))).size() +
                 content.size();
    }
    sqlite3_reset(st);
    benchmark::DoNotOptimize(named);
  }
  sqlite3_finalize(st);
}

void BM_MixerWindows_Model(benchmark::State& state) {
  for (auto _ : state) {
    Mixer* mixer = nullptr;
    Mixer::QueryByName(Mixer::kVideo, "zolo://video/display_mixer/0", &mixer);
    std::vector<MixerConfigVideoLayout*> windows;
    if (mixer != nullptr && mixer->config() != nullptr) mixer->config()->GetVideoLayout(&windows);
    benchmark::DoNotOptimize(windows.size());
    MediaModel::CleanQuery(&windows);
    delete mixer;
  }
}

void BM_MixerWindows_Baseline(benchmark::State& state) {
  sqlite3_stmt* st = nullptr;
  sqlite3_prepare_v2(Raw(),
                     "SELECT c.content FROM mixer m JOIN mixer_config c ON c.id = m.config_id "
                     "WHERE m.type = ? AND m.name = ?",
                     -1, &st, nullptr);
  for (auto _ : state) {
    sqlite3_bind_int(st, 1, 0);
    sqlite3_bind_text(st, 2, "zolo://video/display_mixer/0", -1, SQLITE_STATIC);
    size_t count = 0;
    if (sqlite3_step(st) == SQLITE_ROW) {
      cJSON* root = cJSON_Parse(reinterpret_cast<const char*>(sqlite3_column_text(st, 0)));
      count = static_cast<size_t>(cJSON_GetArraySize(cJSON_GetObjectItem(root, "layout")));
      cJSON_Delete(root);
    }
    sqlite3_reset(st);
    benchmark::DoNotOptimize(count);
  }
  sqlite3_finalize(st);
}

BENCHMARK(BM_ListLayouts_Model);
BENCHMARK(BM_ListLayouts_Baseline);
BENCHMARK(BM_MixerWindows_Model);
BENCHMARK(BM_MixerWindows_Baseline);

}  // namespace

int main(int argc, char** argv) {
  // A fresh database from the tree's initial.sql in a temporary root.
  zolo::test::Sandbox sandbox;
  g_database = sandbox.Path("/media.db");
  const std::string initial_sql = std::string(ZOLO_SOURCE_DIR_DEFAULT) + "/data/initial.sql";
  if (MediaModel::Instance()->Initialize(g_database, initial_sql) != 0) return 1;
  benchmark::Initialize(&argc, argv);
  int result = zolo::bench::RunWithRatios({{"BM_ListLayouts_Model", "BM_ListLayouts_Baseline"},
                                           {"BM_MixerWindows_Model", "BM_MixerWindows_Baseline"}});
  sqlite3_close(Raw());
  MediaModel::Instance()->Release();
  return result;
}
