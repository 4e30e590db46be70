// Layout listing over the default layouts plus 200 more, against hand-written sqlite3
// reading the same rows and parsing the same layout strings with cJSON; and the preview
// renderer for a 16-window layout, run as a process, against spawning /bin/true.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string>
#include <unordered_map>
#include <vector>

#include "model_fixture.h"
#include "ratio_reporter.h"
#include "raw_rows.h"
#include "sandbox.h"

extern char** environ;

namespace {

constexpr int kExtraLayouts = 200;
std::string g_database;
std::string g_renderer;
std::string g_png;
int g_expected = 0;

struct RawWindow {
  int id, z, crop;
  double x, y, w, h;
};
struct RawLayout {
  int id, rank, custom;
  std::string name, group;
  std::vector<RawWindow> windows;
};

int KindRank(const std::string& name) {
  static const std::unordered_map<std::string, int> kRanks = {
      {"Single", 1},  {"Dual", 2},     {"PIP", 2},      {"PBP", 2},      {"Triple", 3},
      {"Quad", 4},    {"Pentuple", 5}, {"Hextuple", 6}, {"Septuple", 7}, {"Octuple", 8},
      {"Nonuple", 9}, {"Manual", 10},  {"Display", 50}};
  auto it = kRanks.find(name);
  return it == kRanks.end() ? 100 : it->second;
}

void ParseWindows(const char* text, std::vector<RawWindow>* out) {
  cJSON* root = cJSON_Parse(text);
  const cJSON* array = cJSON_GetObjectItem(root, "layout");
  for (const cJSON* item = array ? array->child : nullptr; item; item = item->next) {
    auto number = [item](const char* key) {
      const cJSON* v = cJSON_GetObjectItem(item, key);
      return v ? v->valuedouble : 0.0;
    };
    out->push_back({static_cast<int>(number("id")), static_cast<int>(number("z")),
                    static_cast<int>(number("crop")), number("x"), number("y"), number("w"),
                    number("h")});
  }
  cJSON_Delete(root);
}

void BM_zm_get_layout_all(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<zm_layout> out;
    zm_get_layout(0, &out);
    if (static_cast<int>(out.size()) != g_expected) state.SkipWithError("wrong count");
  }
}

// The baseline: one prepared statement over the same rows, cJSON for each layout string,
// and the same order.
void BM_raw_sqlite_cjson(benchmark::State& state) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(g_database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db,
                     "SELECT c.id, c.name, c.content, c.rank, c.custom, g.name FROM mixer_config c "
                     "JOIN mixer_config_group g ON g.id = c.group_id WHERE c.type = 0 AND "
                     "c.enabled = 1 ORDER BY c.id",
                     -1, &statement, nullptr);
  for (auto _ : state) {
    std::vector<RawLayout> out;
    while (sqlite3_step(statement) == SQLITE_ROW) {
      RawLayout& layout = out.emplace_back();
      layout.id = sqlite3_column_int(statement, 0);
      layout.name = reinterpret_cast<const char*>(sqlite3_column_text(statement, 1));
      ParseWindows(reinterpret_cast<const char*>(sqlite3_column_text(statement, 2)),
                   &layout.windows);
      layout.rank = sqlite3_column_int(statement, 3);
      layout.custom = sqlite3_column_int(statement, 4);
      layout.group = reinterpret_cast<const char*>(sqlite3_column_text(statement, 5));
    }
    sqlite3_reset(statement);
    std::sort(out.begin(), out.end(), [](const RawLayout& a, const RawLayout& b) {
      int ra = KindRank(a.group), rb = KindRank(b.group);
      return ra != rb ? ra < rb : a.rank < b.rank;
    });
    if (static_cast<int>(out.size()) != g_expected) state.SkipWithError("wrong count");
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
}

int Spawn(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void BM_gen_layout_image_16_windows(benchmark::State& state) {
  std::vector<zm_video_layout> windows;
  for (int i = 0; i < 16; ++i)
    windows.push_back({i + 1, 0.25, 0.25, (i % 4) * 0.25, (i / 4) * 0.25, i, 0});
  std::string layout = zm_get_layout_string(windows);
  for (auto _ : state)
    if (Spawn({g_renderer, "-c", layout, "-f", g_png}) != 0) state.SkipWithError("render failed");
}

void BM_spawn_true(benchmark::State& state) {
  for (auto _ : state)
    if (Spawn({"/bin/true"}) != 0) state.SkipWithError("spawn failed");
}

BENCHMARK(BM_zm_get_layout_all)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_raw_sqlite_cjson)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_gen_layout_image_16_windows)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_spawn_true)->Unit(benchmark::kMillisecond);

std::string RendererPath() {
  char self[PATH_MAX] = {};
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  std::string dir = n > 0 ? std::string(self, static_cast<size_t>(n)) : "";
  dir = dir.substr(0, dir.rfind('/'));  // <build>/bench
  return dir.substr(0, dir.rfind('/')) + "/tools/gen_layout_image/gen_layout_image";
}

}  // namespace

int main(int argc, char** argv) {
  zolo::test::Sandbox sandbox;
  g_database = zolo::bench::OpenBenchDatabase(sandbox);
  if (g_database.empty()) return 1;
  g_png = sandbox.Path("/bench.png");
  g_renderer = RendererPath();
  // 200 more layouts of four windows, spread over the kinds.
  std::string insert =
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
      std::to_string(kExtraLayouts) +
      ") INSERT INTO mixer_config (type, group_id, name, content, rank, enabled, custom) "
      "SELECT 0, 1 + i % 13, 'bench ' || i, '{\"layout\":[{\"id\":1,\"x\":0,\"y\":0,\"z\":0,"
      "\"w\":0.5,\"h\":0.5,\"crop\":0},{\"id\":2,\"x\":0.5,\"y\":0,\"z\":0,\"w\":0.5,\"h\":0.5,"
      "\"crop\":0},{\"id\":3,\"x\":0,\"y\":0.5,\"z\":0,\"w\":0.5,\"h\":0.5,\"crop\":1},{\"id\":4,"
      "\"x\":0.5,\"y\":0.5,\"z\":1,\"w\":0.333333333333,\"h\":0.5,\"crop\":0}]}', 100 + i, 1, 1 "
      "FROM n";
  if (MediaModel::Instance()->Execute(insert) != 0) return 1;
  std::vector<zm_layout> all;
  zm_get_layout(0, &all);
  g_expected = static_cast<int>(all.size());
  std::printf("layouts listed: %d; renderer: %s\n", g_expected, g_renderer.c_str());
  benchmark::Initialize(&argc, argv);
  int result = zolo::bench::RunWithRatios({{"BM_zm_get_layout_all", "BM_raw_sqlite_cjson"},
                                           {"BM_gen_layout_image_16_windows", "BM_spawn_true"}});
  MediaModel::Instance()->Release();
  return result;
}
