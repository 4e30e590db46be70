// Reading 16 audio inputs on a private bus with the simulated engine: zm_get_audio_input
// (one engine round trip, the database rows, the merge into records) against the same raw
// sd-bus call plus a raw sqlite3 read of the same rows.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <systemd/sd-bus.h>
#include <zolo/media.h>
#include <zolo_media_sim.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "engine_appliance.h"
#include "private_bus.h"
#include "ratio_reporter.h"
#include "raw_rows.h"
#include "sandbox.h"

namespace {

constexpr size_t kPorts = 16;
std::string g_database;

void BM_zm_get_audio_input(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<zm_audio_info> out;
    if (zm_get_audio_input(nullptr, &out) != 0 || out.size() != kPorts)
      state.SkipWithError("wrong ports");
    benchmark::DoNotOptimize(out.data());
  }
}

struct RawPort {
  std::string name;
  std::string destination;
  std::string parameters;
};

void BM_raw_sdbus_and_sqlite(benchmark::State& state) {
  sd_bus* bus = nullptr;
  sd_bus_open_system(&bus);
  sqlite3* db = nullptr;
  sqlite3_open_v2(g_database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db,
                     "SELECT name, destination, parameters FROM stream WHERE type IN ('audio', "
                     "'playback') AND hidden = 0 ORDER BY type, id",
                     -1, &statement, nullptr);
  for (auto _ : state) {
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    if (sd_bus_call_method(bus, "zolo.media", "/zolo/media", "zolo.Media", "get_audio_input_info",
                           &error, &reply, "s", "") < 0)
      state.SkipWithError("raw call failed");
    const char* text = nullptr;
    sd_bus_message_read(reply, "s", &text);
    std::string copy = text ? text : "";
    sd_bus_message_unref(reply);
    sd_bus_error_free(&error);
    std::vector<RawPort> rows;
    rows.reserve(kPorts + 8);
    while (sqlite3_step(statement) == SQLITE_ROW) {
      RawPort& row = rows.emplace_back();
      row.name = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
      row.destination = reinterpret_cast<const char*>(sqlite3_column_text(statement, 1));
      row.parameters = reinterpret_cast<const char*>(sqlite3_column_text(statement, 2));
    }
    sqlite3_reset(statement);
    benchmark::DoNotOptimize(copy.data());
    benchmark::DoNotOptimize(rows.data());
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  sd_bus_flush_close_unref(bus);
}

BENCHMARK(BM_zm_get_audio_input)->Unit(benchmark::kMicrosecond)->MinTime(1.0);
BENCHMARK(BM_raw_sdbus_and_sqlite)->Unit(benchmark::kMicrosecond)->MinTime(1.0);

}  // namespace

int main(int argc, char** argv) {
  zolo::bench::EngineAppliance appliance;
  g_database = appliance.sandbox.Path("/var/lib/zolo/media.db");
  if (!appliance.Start("audio_bench")) return 1;
  // Sixteen inputs: the default playback input and fifteen audio inputs.
  std::string ports =
      "DELETE FROM stream WHERE type = 'audio' AND destination = ''; "
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
      std::to_string(kPorts - 1) +
      ") INSERT INTO stream (name, type, channel_id, destination, parameters) SELECT 'in' || i, "
      "'audio', 10, '', '{\"volume\": 70, \"mute\": 0, \"audio_type\": 2, \"gain\": 12, "
      "\"noise_reduction\": 1, \"xlr_channel\": 0, \"xlr_power\": 1}' FROM n";
  if (zm_execute_db_command(ports.c_str()) != 0) return 1;
  benchmark::Initialize(&argc, argv);
  int result = zolo::bench::RunWithRatios({{"BM_zm_get_audio_input", "BM_raw_sdbus_and_sqlite"}});
  return result;
}
