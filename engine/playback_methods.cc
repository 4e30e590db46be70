// The engine's playback of a media file into the mixer output, and the ringtone. Live state
// only: idle, then playing and paused in turn, then idle again when stopped or at the end
// of a file that does not loop. Positions are milliseconds; a file's duration comes from
// the "information.json" of its recording folder, or a fixed length for other files.
#include <zolo/sysroot.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "engine_methods.h"

namespace zolo::sim {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRefused = -1001;
constexpr int kBadArgument = -1003;
constexpr int kNotFound = -1005;
constexpr uint64_t kDefaultDurationMs = 30000;
constexpr int kMaxMode = 3;

struct Playback {
  enum Phase { kIdle, kPlaying, kPaused } phase = kIdle;
  std::string uri;
  uint64_t duration_ms = 0;
  uint64_t position_ms = 0;  // at `since` while playing
  Clock::time_point since;
  bool loop = false;
  int show_layout = 0;
  int mode = 0;
  bool ringtone = false;

  // Brings the position up to now; the end of the file loops or stops.
  void Advance() {
    if (phase != kPlaying) return;
    Clock::time_point now = Clock::now();
    position_ms += static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now - since).count());
    since = now;
    if (position_ms < duration_ms) return;
    if (loop && duration_ms > 0) {
      position_ms %= duration_ms;
    } else {
      phase = kIdle;
      position_ms = 0;
    }
  }

  const char* Name() const {
    return phase == kPlaying ? "playing" : phase == kPaused ? "paused" : "idle";
  }
};

// A non-negative whole number member, in `*value`.
bool TimeOf(const cJSON* object, const char* name, uint64_t* value) {
  const cJSON* item = cJSON_GetObjectItem(object, name);
  if (!cJSON_IsNumber(item) || !(item->valuedouble >= 0) ||
      item->valuedouble != std::floor(item->valuedouble) || item->valuedouble > 9.0e15)
    return false;
  *value = static_cast<uint64_t>(item->valuedouble);
  return true;
}

bool IntOf(const cJSON* object, const char* name, int* value) {
  const cJSON* item = cJSON_GetObjectItem(object, name);
  if (!cJSON_IsNumber(item)) return false;
  *value = item->valueint;
  return true;
}

// Duration of the file at `path` (below the sandbox root); 0 when it does not exist.
uint64_t FileDuration(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return 0;
  std::ifstream in(std::filesystem::path(path).parent_path() / "information.json");
  if (!in) return kDefaultDurationMs;
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  JsonPtr info = ParsePayload(text);
  const cJSON* duration = cJSON_GetObjectItem(info.get(), "duration");
  if (!cJSON_IsNumber(duration) || duration->valuedouble < 1) return kDefaultDurationMs;
  return static_cast<uint64_t>(duration->valuedouble);
}

// Starts `uri` (a "file://" URL) at `time`. 0 or the engine's code.
int Start(Playback* playback, const std::string& uri, uint64_t time, bool loop) {
  if (uri.rfind("file://", 0) != 0) return kBadArgument;
  uint64_t duration = FileDuration(zolo::SysrootPath(uri.substr(7)));
  if (duration == 0) return kNotFound;
  if (time >= duration) return kBadArgument;
  playback->uri = uri;
  playback->duration_ms = duration;
  playback->position_ms = time;
  playback->loop = loop;
  playback->phase = Playback::kPlaying;
  playback->since = Clock::now();
  return 0;
}

}  // namespace

void RegisterPlaybackMethods(MediaSimulator& sim) {
  auto state = std::make_shared<Playback>();

  sim.Handle("playback", [state](const std::string& payload, MediaSimulator&) {
    JsonPtr request = ParsePayload(payload);
    uint64_t time = 0;
    int show_layout = 0, loop = 0;
    if (!TimeOf(request.get(), "time", &time) ||
        !IntOf(request.get(), "show_layout", &show_layout) || !IntOf(request.get(), "loop", &loop))
      return Reply(kBadArgument);
    const cJSON* uri = cJSON_GetObjectItem(request.get(), "uri");
    if (uri != nullptr && !cJSON_IsString(uri)) return Reply(kBadArgument);
    // Without a file the engine plays the one it played last.
    std::string file = uri != nullptr ? uri->valuestring : state->uri;
    if (file.empty()) return Reply(kNotFound);
    int code = Start(state.get(), file, time, loop != 0);
    if (code == 0) state->show_layout = show_layout;
    return Reply(code);
  });
  sim.Handle("change_playback", [state](const std::string& payload, MediaSimulator&) {
    JsonPtr request = ParsePayload(payload);
    uint64_t time = 0;
    int loop = 0;
    const std::string uri = StringOf(request.get(), "uri");
    if (uri.empty() || !TimeOf(request.get(), "time", &time) ||
        !IntOf(request.get(), "loop", &loop))
      return Reply(kBadArgument);
    return Reply(Start(state.get(), uri, time, loop != 0));
  });
  sim.Handle("pause_playback", [state](const std::string&, MediaSimulator&) {
    state->Advance();
    if (state->phase != Playback::kPlaying) return Reply(kRefused);
    state->phase = Playback::kPaused;
    return Reply(0);
  });
  sim.Handle("resume_playback", [state](const std::string&, MediaSimulator&) {
    if (state->phase != Playback::kPaused) return Reply(kRefused);
    state->phase = Playback::kPlaying;
    state->since = Clock::now();
    return Reply(0);
  });
  sim.Handle("stop_playback", [state](const std::string&, MediaSimulator&) {
    state->Advance();
    if (state->phase == Playback::kIdle) return Reply(kRefused);
    state->phase = Playback::kIdle;
    state->position_ms = 0;
    return Reply(0);
  });
  sim.Handle("seek_playback", [state](const std::string& payload, MediaSimulator&) {
    JsonPtr request = ParsePayload(payload);
    uint64_t time = 0;
    if (!TimeOf(request.get(), "time", &time)) return Reply(kBadArgument);
    state->Advance();
    if (state->phase == Playback::kIdle) return Reply(kRefused);
    if (time >= state->duration_ms) return Reply(kBadArgument);
    state->position_ms = time;
    state->since = Clock::now();
    return Reply(0);
  });
  sim.Handle("get_playback_state", [state](const std::string&, MediaSimulator&) {
    state->Advance();
    cJSON* extra = cJSON_CreateObject();
    cJSON_AddStringToObject(extra, "state", state->Name());
    cJSON_AddStringToObject(extra, "uri",
                            state->phase == Playback::kIdle ? "" : state->uri.c_str());
    cJSON_AddNumberToObject(extra, "position", static_cast<double>(state->position_ms));
    cJSON_AddNumberToObject(extra, "duration", static_cast<double>(state->duration_ms));
    cJSON_AddNumberToObject(extra, "loop", state->loop ? 1 : 0);
    cJSON_AddNumberToObject(extra, "mode", state->mode);
    cJSON_AddBoolToObject(extra, "ringtone", state->ringtone);
    return Reply(0, extra);
  });
  sim.Handle("set_playback_mode", [state](const std::string& payload, MediaSimulator&) {
    JsonPtr request = ParsePayload(payload);
    int mode = 0;
    if (!IntOf(request.get(), "mode", &mode) || mode < 0 || mode > kMaxMode)
      return Reply(kBadArgument);
    state->mode = mode;
    return Reply(0);
  });
  sim.Handle("play_ringtone", [state](const std::string&, MediaSimulator&) {
    state->ringtone = true;
    return Reply(0);
  });
  sim.Handle("stop_ringtone", [state](const std::string&, MediaSimulator&) {
    state->ringtone = false;
    return Reply(0);
  });
}

}  // namespace zolo::sim
