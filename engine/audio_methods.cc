// The engine's audio ports: live levels (measured by the media, or made up when it measures
// none), input status, mode and hardware, output level warnings, and the set methods. Settings the
// engine persists (volume, mute, type, gain, noise reduction, XLR, monitoring) go to the port's
// stream parameters, where the library reads them; live state stays here. Volume and type changes
// are signalled.
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine_methods.h"

namespace zolo::sim {

namespace {

using Clock = std::chrono::steady_clock;

// Bounds of what the engine accepts.
constexpr int kMaxVolume = 100;
constexpr int kMinGain = -60;
constexpr int kMaxGain = 60;
constexpr int kMaxInputType = 4;
constexpr int kMaxOutputType = 3;
constexpr int kMaxNoiseReduction = 3;
constexpr int kMaxMode = 2;

constexpr int kUnknownPort = -1005;
constexpr int kBadArgument = -1003;
constexpr int kLevelTickMs = 200;

struct Port {
  bool output = false;
  int level = -60;
  int left = -60;
  int right = -60;
  int mode = 0;
  bool loop_through = false;
  // Output level monitoring, as last stored: on when the mode is non-zero.
  int monitor_mode = 0;
  int monitor_seconds = 1;
  int monitor_level = 90;
  int64_t below_since_ms = 0;
  bool warning = false;
  bool muted = false;
};

struct Ports {
  std::map<std::string, Port> ports;
  Port program;  // the program mix ("Audio-Mix"), the loudest input
  std::mt19937 random{20240611};
  Clock::time_point next_tick;
  Clock::time_point next_refresh;
  int ticks_since_signal = 0;

  // A port that just joined, somewhere around a working level.
  Port Fresh() {
    Port port;
    port.level = std::uniform_int_distribution<int>(-40, -20)(random);
    port.left = port.level - 1;
    port.right = port.level + 1;
    return port;
  }

  // The audio ports of the database: new ones join, removed ones leave.
  void Refresh(MediaSimulator& sim) {
    sim.ConnectModel();
    std::map<std::string, Port> found;
    for (const char* type : {"audio", "playback"}) {
      std::vector<Stream*> streams;
      if (Stream::QueryByTypeName(type, nullptr, true, &streams) == 0)
        for (const Stream* stream : streams) {
          auto old = ports.find(stream->name());
          Port port = old != ports.end() ? old->second : Fresh();
          port.output = !stream->destination().empty();
          port.muted = stream->ObtainParameter("mute", 0) == 1;
          port.monitor_mode = stream->ObtainParameter("monitor_mode", 0);
          port.monitor_seconds = stream->ObtainParameter("monitor_duration_threshold", 1);
          port.monitor_level = stream->ObtainParameter("monitor_level_threshold", 90);
          found[stream->name()] = port;
        }
      MediaModel::CleanQuery(&streams);
    }
    ports.swap(found);
  }

  // Levels are measured by the media or wander around a working level (muted ports fall
  // silent). With level signals on, every port and the program mix announce their level at
  // the level rate: a signal interval is split into equal ticks of at most kLevelTickMs.
  int Tick(MediaSimulator& sim) {
    auto now = Clock::now();
    if (now < next_tick)
      return static_cast<int>(
                 std::chrono::duration_cast<std::chrono::milliseconds>(next_tick - now).count()) +
             1;
    int signal_ms = sim.level_interval_ms();
    int ticks_per_signal = signal_ms > 0 ? (signal_ms + kLevelTickMs - 1) / kLevelTickMs : 1;
    int tick_ms = signal_ms > 0 ? signal_ms / ticks_per_signal : kLevelTickMs;
    // On a fixed grid, so a late wake-up does not slow the rate down.
    next_tick += std::chrono::milliseconds(tick_ms);
    if (next_tick <= now) next_tick = now + std::chrono::milliseconds(tick_ms);
    // Until the database lists any port (it may not exist yet), look again every tick.
    if (signal_ms > 0 && (ports.empty() || now >= next_refresh)) {
      Refresh(sim);
      next_refresh = now + std::chrono::seconds(2);
    }
    if (!Measure(sim.media(), tick_ms)) Wander();
    if (signal_ms <= 0 || ++ticks_since_signal < ticks_per_signal) return tick_ms;
    ticks_since_signal = 0;
    for (const auto& [name, port] : ports) SignalLevel(sim, name, port);
    SignalLevel(sim, MediaBackend::kProgramMix, program);
    return tick_ms;
  }

  static void SignalLevel(MediaSimulator& sim, const std::string& name, const Port& port) {
    sim.Signal("audio_level", "{\"Name\":\"" + name + "\",\"Level\":" + std::to_string(port.level) +
                                  ",\"Left\":" + std::to_string(port.left) +
                                  ",\"Right\":" + std::to_string(port.right) + "}");
  }

  void Wander() {
    std::uniform_int_distribution<int> step(-3, 3);
    for (auto& [name, port] : ports) {
      if (port.muted) {
        port.level = port.left = port.right = -90;
        continue;
      }
      port.level =
          std::max(-90, std::min(0, port.level + step(random) + (port.level < -24 ? 2 : -1)));
      port.left = std::max(-90, port.level + step(random));
      port.right = std::max(-90, port.level + step(random));
      Monitor(port, kLevelTickMs);
    }
    program.level = program.left = program.right = -90;
    for (const auto& [name, port] : ports) {
      if (port.output) continue;
      program.level = std::max(program.level, port.level);
      program.left = std::max(program.left, port.left);
      program.right = std::max(program.right, port.right);
    }
  }

  // The levels the media measured for the last `tick_ms`; false when it measures none.
  bool Measure(MediaBackend& media, int tick_ms) {
    MediaBackend::AudioLevel measured;
    if (!media.MeasuredLevel(MediaBackend::kProgramMix, &measured)) return false;
    Take(measured, &program);
    for (auto& [name, port] : ports) {
      media.MeasuredLevel(name, &measured);
      Take(measured, &port);
      Monitor(port, tick_ms);
    }
    return true;
  }

  static void Take(const MediaBackend::AudioLevel& measured, Port* port) {
    port->level = measured.level;
    port->left = measured.left;
    port->right = measured.right;
  }

  // A monitored output warns once its level stayed below the threshold for the duration.
  static void Monitor(Port& port, int tick_ms) {
    port.below_since_ms = port.level < -port.monitor_level ? port.below_since_ms + tick_ms : 0;
    port.warning = port.output && port.monitor_mode > 0 &&
                   port.below_since_ms >= int64_t{port.monitor_seconds} * 1000;
  }
};

// The stream of port `name` (an input or an output as asked), or null. Owned by `held`.
Stream* FindPort(const std::string& name, bool output, std::vector<Stream*>* held) {
  for (const char* type : {"audio", "playback"}) {
    if (output && std::string(type) == "playback") break;
    Stream::QueryByTypeName(type, name.c_str(), true, held);
  }
  for (Stream* stream : *held)
    if (stream->destination().empty() != output) return stream;
  return nullptr;
}

bool NumberIn(const cJSON* request, const char* key, int low, int high, int* value) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(request, key);
  if (!cJSON_IsNumber(item) || item->valuedouble < low || item->valuedouble > high) return false;
  *value = item->valueint;
  return true;
}

enum class Announce { kNothing, kVolume, kType };

void SignalChange(MediaSimulator& sim, const Stream& stream, Announce announce) {
  if (announce == Announce::kVolume)
    sim.Signal("audio_volume",
               "{\"Name\":\"" + stream.name() +
                   "\",\"Volume\":" + std::to_string(stream.ObtainParameter("volume", -1)) +
                   ",\"Mute\":" + std::to_string(stream.ObtainParameter("mute", 0)) + "}");
  if (announce == Announce::kType)
    sim.Signal("audio_type", "{\"Name\":\"" + stream.name() + "\",\"Type\":" +
                                 std::to_string(stream.ObtainParameter("audio_type", -1)) + "}");
}

// One set method: checks the port and the request, then lets `apply` change the stream
// (return an engine code); the stream is stored, then the change announced, when `apply`
// succeeded.
template <class Apply>
void HandleSet(MediaSimulator& sim, const char* method, bool output, std::shared_ptr<Ports> ports,
               Apply apply, Announce announce = Announce::kNothing) {
  sim.Handle(method,
             [output, ports, apply, announce](const std::string& payload, MediaSimulator& engine) {
               JsonPtr request = ParsePayload(payload);
               std::string name = StringOf(request.get(), "name");
               if (name.empty()) return Reply(kBadArgument);
               engine.ConnectModel();
               std::vector<Stream*> held;
               Stream* stream = FindPort(name, output, &held);
               int code = kUnknownPort;
               if (stream != nullptr) {
                 ports->Refresh(engine);
                 code = apply(request.get(), stream, ports->ports[name]);
                 if (code == 0 && Stream::Update(stream) != 0) code = -1001;
                 if (code == 0 && announce == Announce::kVolume) {
                   // The media plays what is stored, from now on.
                   engine.media().SetVolume(name, stream->ObtainParameter("volume", kMaxVolume));
                   engine.media().SetMute(name, stream->ObtainParameter("mute", 0) == 1);
                 }
                 if (code == 0) SignalChange(engine, *stream, announce);
               }
               MediaModel::CleanQuery(&held);
               return Reply(code);
             });
}

// {"volume", "mute"}: a negative value leaves that setting alone.
int SetVolume(const cJSON* request, Stream* stream, Port&) {
  int volume = 0;
  int mute = 0;
  if (!NumberIn(request, "volume", -1000000, kMaxVolume, &volume) ||
      !NumberIn(request, "mute", -1000000, 1, &mute))
    return kBadArgument;
  if (volume >= 0) stream->UpdateParameter("volume", volume);
  if (mute >= 0) stream->UpdateParameter("mute", mute);
  return 0;
}

// A setting stored under `parameter`, taken from request member `key` within bounds.
auto StoreSetting(const char* key, const char* parameter, int low, int high) {
  return [key, parameter, low, high](const cJSON* request, Stream* stream, Port&) {
    int value = 0;
    if (!NumberIn(request, key, low, high, &value)) return kBadArgument;
    stream->UpdateParameter(parameter, value);
    return 0;
  };
}

std::string PortsReply(const Ports& ports, bool outputs) {
  cJSON* reply = cJSON_CreateObject();
  for (const auto& [name, port] : ports.ports) {
    if (port.output != outputs) continue;
    cJSON* item = cJSON_AddObjectToObject(reply, name.c_str());
    cJSON_AddNumberToObject(item, "level", port.level);
    cJSON_AddNumberToObject(item, "left", port.left);
    cJSON_AddNumberToObject(item, "right", port.right);
    if (outputs) {
      cJSON_AddNumberToObject(item, "warning_triggered", port.warning ? 1 : 0);
      continue;
    }
    cJSON_AddNumberToObject(item, "status", 1);
    cJSON_AddNumberToObject(item, "mode", port.mode);
    cJSON_AddStringToObject(item, "version", port.loop_through ? "1.4.2 (loop-through)" : "1.4.2");
    cJSON_AddStringToObject(item, "device_name", ("zolo-audio:" + name).c_str());
  }
  return Reply(0, reply);
}

}  // namespace

void MediaBackend::SetVolume(const std::string&, int) {}

void MediaBackend::SetMute(const std::string&, bool) {}

bool MediaBackend::MeasuredLevel(const std::string&, AudioLevel*) {
  return false;
}

void RegisterAudioMethods(MediaSimulator& sim) {
  auto ports = std::make_shared<Ports>();
  sim.AddTicker([ports](MediaSimulator& engine) { return ports->Tick(engine); });
  for (bool outputs : {false, true})
    sim.Handle(outputs ? "get_audio_output_info" : "get_audio_input_info",
               [ports, outputs](const std::string&, MediaSimulator& engine) {
                 ports->Refresh(engine);
                 ports->Measure(engine.media(), 0);  // ports that just joined too
                 return PortsReply(*ports, outputs);
               });

  HandleSet(sim, "set_audio_input_volume", false, ports, SetVolume, Announce::kVolume);
  HandleSet(sim, "set_audio_output_volume", true, ports, SetVolume, Announce::kVolume);
  HandleSet(sim, "set_audio_input_type", false, ports,
            StoreSetting("type", "audio_type", 1, kMaxInputType), Announce::kType);
  HandleSet(sim, "set_audio_output_type", true, ports,
            StoreSetting("type", "audio_type", 0, kMaxOutputType), Announce::kType);
  HandleSet(sim, "set_audio_input_gain", false, ports,
            StoreSetting("gain", "gain", kMinGain, kMaxGain));
  HandleSet(sim, "set_audio_input_noise_reduction", false, ports,
            StoreSetting("level", "noise_reduction", 0, kMaxNoiseReduction));
  HandleSet(sim, "set_audio_input_xlr_channel", false, ports,
            StoreSetting("mode", "xlr_channel", 0, 1));
  HandleSet(sim, "set_audio_input_xlr_power", false, ports,
            StoreSetting("mode", "xlr_power", 0, 1));
  HandleSet(sim, "set_audio_input_mode", false, ports,
            [](const cJSON* request, Stream*, Port& port) {
              return NumberIn(request, "mode", 0, kMaxMode, &port.mode) ? 0 : kBadArgument;
            });
  HandleSet(sim, "set_audio_input_hw_loopthrough", false, ports,
            [](const cJSON* request, Stream*, Port& port) {
              const cJSON* enable = cJSON_GetObjectItemCaseSensitive(request, "enable");
              if (!cJSON_IsBool(enable)) return kBadArgument;
              port.loop_through = cJSON_IsTrue(enable);
              return 0;
            });
  HandleSet(sim, "set_audio_output_monitor", true, ports,
            [](const cJSON* request, Stream* stream, Port&) {
              int mode = 0;
              int duration = 0;
              int level = 0;
              if (!NumberIn(request, "mode", 0, kMaxMode, &mode) ||
                  !NumberIn(request, "duration_threshold", 1, 3600, &duration) ||
                  !NumberIn(request, "level_threshold", 1, 120, &level))
                return kBadArgument;
              stream->UpdateParameter("monitor_mode", mode);
              stream->UpdateParameter("monitor_duration_threshold", duration);
              stream->UpdateParameter("monitor_level_threshold", level);
              return 0;
            });
}

}  // namespace zolo::sim
