// Switching a mixer's layout through the library against raw sd-bus doing the same on a
// private bus with the simulated engine: the call itself (engine state read, then
// "set_video_layout" with the same payload), and the time until the "video_layout" signal
// has reached the caller.
#include <benchmark/benchmark.h>
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

constexpr const char kPayload[] =
    R"({"id":6,"mixer":"zolo://video/mixer/1","persist":false,"bookmark":false})";
std::atomic<int> g_layouts{0};

void CountLayout(const char*, void*, void*) {
  ++g_layouts;
}

bool RawCall(sd_bus* bus, const char* method, const char* payload) {
  sd_bus_message* reply = nullptr;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  int r = sd_bus_call_method(bus, "zolo.media", "/zolo/media", "zolo.Media", method, &error, &reply,
                             "s", payload);
  const char* text = nullptr;
  if (r >= 0) sd_bus_message_read(reply, "s", &text);
  benchmark::DoNotOptimize(text);
  sd_bus_message_unref(reply);
  sd_bus_error_free(&error);
  return r >= 0;
}

// What the library does for one switch: the engine-state read, then the switch.
bool RawSwitch(sd_bus* bus) {
  return RawCall(bus, "get_state", "") && RawCall(bus, "set_video_layout", kPayload);
}

void WaitFor(const std::atomic<int>& counter, int target) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (counter.load() < target && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
}

void BM_zm_set_video_layout(benchmark::State& state) {
  for (auto _ : state)
    if (zm_set_video_layout(6, ZM_MIXER_1, false, false) != 0)
      state.SkipWithError("zm_set_video_layout failed");
}

void BM_raw_set_video_layout(benchmark::State& state) {
  sd_bus* bus = nullptr;
  sd_bus_open_system(&bus);
  for (auto _ : state)
    if (!RawSwitch(bus)) state.SkipWithError("raw call failed");
  sd_bus_flush_close_unref(bus);
}

void BM_zm_layout_to_signal(benchmark::State& state) {
  zm_register_signal("video_layout", CountLayout);
  for (auto _ : state) {
    int target = g_layouts.load() + 1;
    if (zm_set_video_layout(6, ZM_MIXER_1, false, false) != 0)
      state.SkipWithError("zm_set_video_layout failed");
    WaitFor(g_layouts, target);
  }
  zm_unregister_signal("video_layout");
}

int CountRaw(sd_bus_message*, void* user, sd_bus_error*) {
  ++*static_cast<std::atomic<int>*>(user);
  return 0;
}

void BM_raw_layout_to_signal(benchmark::State& state) {
  std::atomic<int> seen{0};
  std::atomic<bool> stop{false};
  sd_bus* listener = nullptr;
  sd_bus_open_system(&listener);
  sd_bus_match_signal(listener, nullptr, nullptr, "/zolo/media", "zolo.Media.Signal",
                      "video_layout", CountRaw, &seen);
  std::thread reader([&] {
    while (!stop) {
      while (sd_bus_process(listener, nullptr) > 0) {
      }
      sd_bus_wait(listener, 100000);
    }
  });
  sd_bus* bus = nullptr;
  sd_bus_open_system(&bus);
  for (auto _ : state) {
    int target = seen.load() + 1;
    if (!RawSwitch(bus)) state.SkipWithError("raw call failed");
    WaitFor(seen, target);
  }
  stop = true;
  reader.join();
  sd_bus_flush_close_unref(bus);
  sd_bus_flush_close_unref(listener);
}

BENCHMARK(BM_zm_set_video_layout)->Unit(benchmark::kMicrosecond)->MinTime(1.0);
BENCHMARK(BM_raw_set_video_layout)->Unit(benchmark::kMicrosecond)->MinTime(1.0);
BENCHMARK(BM_zm_layout_to_signal)->Unit(benchmark::kMicrosecond)->MinTime(1.0);
BENCHMARK(BM_raw_layout_to_signal)->Unit(benchmark::kMicrosecond)->MinTime(1.0);

}  // namespace

int main(int argc, char** argv) {
  zolo::bench::EngineAppliance appliance;
  if (!appliance.Start("mixer_live_bench")) return 1;
  benchmark::Initialize(&argc, argv);
  int result = zolo::bench::RunWithRatios({{"BM_zm_set_video_layout", "BM_raw_set_video_layout"},
                                           {"BM_zm_layout_to_signal", "BM_raw_layout_to_signal"}});
  return result;
}
