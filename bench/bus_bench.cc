// Engine calls and signals through the library against raw sd-bus, on a private bus with
// the simulated engine: the zm_get_state round trip, and 100,000 "audio_level" signals
// until the last one has reached the library's callback (none may be lost).
#include <benchmark/benchmark.h>
#include <poll.h>
#include <systemd/sd-bus.h>
#include <zolo/media.h>
#include <zolo_media_sim.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "engine_appliance.h"
#include "private_bus.h"
#include "ratio_reporter.h"
#include "raw_rows.h"
#include "sandbox.h"

namespace {

constexpr int kSignals = 100000;
zolo::sim::MediaSimulator* g_sim = nullptr;
std::atomic<int> g_library_seen{0};

void CountLevel(const char*, void*, void*) {
  ++g_library_seen;
}

void BM_zm_get_state(benchmark::State& state) {
  for (auto _ : state)
    if (zm_get_state(nullptr) != 1) state.SkipWithError("zm_get_state failed");
}

void BM_raw_sdbus_get_state(benchmark::State& state) {
  sd_bus* bus = nullptr;
  sd_bus_open_system(&bus);
  for (auto _ : state) {
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    if (sd_bus_call_method(bus, "zolo.media", "/zolo/media", "zolo.Media", "get_state", &error,
                           &reply, "s", "") < 0)
      state.SkipWithError("raw call failed");
    const char* text = nullptr;
    sd_bus_message_read(reply, "s", &text);
    benchmark::DoNotOptimize(text);
    sd_bus_message_unref(reply);
    sd_bus_error_free(&error);
  }
  sd_bus_flush_close_unref(bus);
}

const char kLevel[] = R"({"Name":"Audio-Mix","Level":-20,"Left":-21,"Right":-19})";

void Emit() {
  for (int i = 0; i < kSignals; ++i)
    while (g_sim->Emit("audio_level", kLevel) < 0) std::this_thread::yield();
}

void BM_library_signals(benchmark::State& state) {
  zm_register_signal("audio_level", CountLevel);
  for (auto _ : state) {
    g_library_seen = 0;
    auto start = std::chrono::steady_clock::now();
    Emit();
    auto deadline = start + std::chrono::seconds(120);
    while (g_library_seen.load() < kSignals && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    state.counters["lost"] = kSignals - g_library_seen.load();
  }
  zm_unregister_signal("audio_level");
}

int CountRaw(sd_bus_message*, void* user, sd_bus_error*) {
  ++*static_cast<std::atomic<int>*>(user);
  return 0;
}

void BM_raw_sdbus_signals(benchmark::State& state) {
  std::atomic<int> seen{0};
  std::atomic<bool> stop{false};
  sd_bus* bus = nullptr;
  sd_bus_open_system(&bus);
  sd_bus_match_signal(bus, nullptr, nullptr, "/zolo/media", "zolo.Media.Signal", "audio_level",
                      CountRaw, &seen);
  std::thread reader([&] {
    while (!stop) {
      int r;
      while ((r = sd_bus_process(bus, nullptr)) > 0) {
      }
      sd_bus_wait(bus, 100000);
    }
  });
  for (auto _ : state) {
    seen = 0;
    auto start = std::chrono::steady_clock::now();
    Emit();
    auto deadline = start + std::chrono::seconds(120);
    while (seen.load() < kSignals && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    state.counters["lost"] = kSignals - seen.load();
  }
  stop = true;
  reader.join();
  sd_bus_flush_close_unref(bus);
}

// One recording cycle: the library also reads the engine state before each command.
void BM_zm_start_stop_cycle(benchmark::State& state) {
  for (auto _ : state) {
    if (zm_start_stream(nullptr, false, nullptr) != 0 ||
        zm_stop_stream(nullptr, nullptr, false) != 0)
      state.SkipWithError("cycle failed");
  }
}

void BM_raw_start_stop_cycle(benchmark::State& state) {
  sd_bus* bus = nullptr;
  sd_bus_open_system(&bus);
  for (auto _ : state) {
    for (const char* method : {"start_streams", "stop_streams"}) {
      sd_bus_message* reply = nullptr;
      sd_bus_error error = SD_BUS_ERROR_NULL;
      if (sd_bus_call_method(bus, "zolo.media", "/zolo/media", "zolo.Media", method, &error, &reply,
                             "s", R"({"persist":false})") < 0)
        state.SkipWithError("raw call failed");
      sd_bus_message_unref(reply);
      sd_bus_error_free(&error);
    }
  }
  sd_bus_flush_close_unref(bus);
}

BENCHMARK(BM_zm_start_stop_cycle)->Unit(benchmark::kMicrosecond)->MinTime(1.0);
BENCHMARK(BM_raw_start_stop_cycle)->Unit(benchmark::kMicrosecond)->MinTime(1.0);
BENCHMARK(BM_zm_get_state)->Unit(benchmark::kMicrosecond)->MinTime(1.0);
BENCHMARK(BM_raw_sdbus_get_state)->Unit(benchmark::kMicrosecond)->MinTime(1.0);
BENCHMARK(BM_library_signals)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(2);
BENCHMARK(BM_raw_sdbus_signals)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(2);

}  // namespace

int main(int argc, char** argv) {
  zolo::bench::EngineAppliance appliance;
  g_sim = &appliance.sim;
  if (!appliance.Start("bus_bench")) return 1;
  benchmark::Initialize(&argc, argv);
  int result = zolo::bench::RunWithRatios({{"BM_zm_get_state", "BM_raw_sdbus_get_state"},
                                           {"BM_zm_start_stop_cycle", "BM_raw_start_stop_cycle"},
                                           {"BM_library_signals", "BM_raw_sdbus_signals"}});
  return result;
}
