// The GStreamer engine against gst-launch-1.0 running the same pipeline text: CPU per second
// of 4 moving test-pattern inputs mixed to one program, layout switch latency (from the call
// to the first mixed frame with the new layout), and frames the program missed.
//   engine_bench [SECONDS]   (default 10; ZOLO_BENCH_WIDTH/HEIGHT/FPS change the program)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "gst_media.h"

namespace {

double Seconds(const timeval& t) {
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
}

double CpuOfSelf() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

int EnvOr(const char* name, int fallback) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::atoi(value) : fallback;
}

// The engine's own pipeline for the same work, as gst-launch-1.0 text.
std::string LaunchText(int width, int height, int fps, int inputs) {
  char caps[160];
  std::snprintf(caps, sizeof caps,
                "video/x-raw,format=I420,width=%d,height=%d,framerate=%d/1,pixel-aspect-ratio=1/1",
                width, height, fps);
  std::string text = "compositor name=mix background=black ! " + std::string(caps) +
                     " ! queue leaky=2 max-size-buffers=1 ! fakesink sync=false";
  for (int i = 1; i <= inputs; ++i)
    text += " videotestsrc is-live=true pattern=ball ! " + std::string(caps) +
            " ! textoverlay text=Capture" + std::to_string(i) +
            " ! identity ! videoconvert ! videoscale ! videorate ! " + caps +
            " ! queue leaky=2 max-size-buffers=2 ! tee name=t" + std::to_string(i) + " t" +
            std::to_string(i) + ". ! queue leaky=2 max-size-buffers=1 ! fakesink sync=false t" +
            std::to_string(i) + ". ! queue leaky=2 max-size-buffers=2 ! videocrop ! mix.";
  return text;
}

// CPU seconds gst-launch-1.0 spends running `text` for `seconds`.
double CpuOfLaunch(const std::string& text, int seconds) {
  pid_t pid = fork();
  if (pid == 0) {
    std::string command = "exec timeout -s INT " + std::to_string(seconds) +
                          " gst-launch-1.0 -q -e " + text + " >/dev/null 2>&1";
    execlp("sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

}  // namespace

int main(int argc, char** argv) {
  const int seconds = argc > 1 ? std::max(2, std::atoi(argv[1])) : 10;
  zolo::engine::GstMediaOptions options;
  options.width = EnvOr("ZOLO_BENCH_WIDTH", 1280);
  options.height = EnvOr("ZOLO_BENCH_HEIGHT", 720);
  options.fps = EnvOr("ZOLO_BENCH_FPS", 30);
  const int inputs = 4;

  double launch_cpu =
      CpuOfLaunch(LaunchText(options.width, options.height, options.fps, inputs), seconds);

  zolo::engine::GstMedia media(options);
  std::vector<zolo::engine::InputSetup> setups;
  for (int i = 1; i <= inputs; ++i) setups.push_back({i, i, "Capture" + std::to_string(i), ""});
  std::string error;
  if (!media.Start(setups, {1}, &error) || !media.WaitUntilLive(20000)) {
    std::fprintf(stderr, "engine_bench: the engine does not run: %s\n", error.c_str());
    return 1;
  }
  const char* quad =
      "{\"layout\":[{\"id\":1,\"x\":0,\"y\":0,\"z\":0,\"w\":0.5,\"h\":0.5,\"crop\":0},"
      "{\"id\":2,\"x\":0.5,\"y\":0,\"z\":0,\"w\":0.5,\"h\":0.5,\"crop\":0},"
      "{\"id\":3,\"x\":0,\"y\":0.5,\"z\":0,\"w\":0.5,\"h\":0.5,\"crop\":1},"
      "{\"id\":4,\"x\":0.5,\"y\":0.5,\"z\":0,\"w\":0.5,\"h\":0.5,\"crop\":0}]}";
  const char* single =
      "{\"layout\":[{\"id\":1,\"x\":0,\"y\":0,\"z\":0,\"w\":1,\"h\":1,\"crop\":0}]}";
  media.ShowLayout(1, quad);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));

  double cpu_before = CpuOfSelf();
  guint64 frames_before = media.program_frames();
  auto started = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  double engine_cpu = CpuOfSelf() - cpu_before;
  double elapsed =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  guint64 produced = media.program_frames() - frames_before;
  double expected = elapsed * options.fps;

  // Layout switches: from the call to the first program frame that shows the new layout.
  std::vector<double> latencies;
  for (int i = 0; i < 30; ++i) {
    gint64 before = media.program_layout_shown_us();
    gint64 called = g_get_monotonic_time();
    media.ShowLayout(1, i % 2 == 0 ? single : quad);
    while (media.program_layout_shown_us() == before &&
           g_get_monotonic_time() - called < G_USEC_PER_SEC)
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    latencies.push_back(static_cast<double>(media.program_layout_shown_us() - called) / 1000.0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  media.Stop();
  std::sort(latencies.begin(), latencies.end());
  const double period_ms = 1000.0 / options.fps;

  std::printf("engine_bench: %d inputs mixed to %dx%d@%d for %d s\n", inputs, options.width,
              options.height, options.fps, seconds);
  std::printf("  CPU: engine %.2f s, gst-launch-1.0 %.2f s, ratio %.2f (target <= 1.10)\n",
              engine_cpu, launch_cpu, launch_cpu > 0 ? engine_cpu / launch_cpu : 0.0);
  std::printf("  layout switch: median %.1f ms, max %.1f ms; one frame period + 5 ms = %.1f ms\n",
              latencies[latencies.size() / 2], latencies.back(), period_ms + 5);
  std::printf(
      "  program frames: %llu of %.0f expected, %lld missed\n",
      static_cast<unsigned long long>(produced), expected,
      std::max(0LL, static_cast<long long>(expected + 0.5) - static_cast<long long>(produced)));
  return 0;
}
