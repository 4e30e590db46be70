// The engine's video mixers on air: layout, background, foreground, overlay, system overlay
// and theme switches, intermission, mixer snapshots as real JPEG files, and the colour of
// display outputs. What the engine persists goes to the database the library reads (the
// mixer row's bindings, the display stream's colour parameters); overlay positions given
// with a switch and the intermission flag are live state kept here. Every switch is
// signalled.
#include <zolo/sysroot.h>
#include <zolo/yuvjpeg.h>
#include <zolo_model/media_model.h>
#include <zolo_model/mixer.h>
#include <zolo_model/stream.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine_methods.h"

namespace zolo::sim {

namespace {

constexpr int kRefused = -1001;
constexpr int kBadArgument = -1003;
constexpr int kNotFound = -1005;
constexpr int kMaxSnapshotSide = 8192;
constexpr int kMaxColor = 100;
constexpr int kMaxHue = 360;

struct Placed {
  int id = 0;
  std::string path;
  double x = 0;
  double y = 0;
};

// Live state of one mixer, by URI.
struct MixerState {
  Placed overlay;
  Placed system_overlay;
  std::string foreground_path;
};

struct Mixers {
  std::map<std::string, MixerState> live;
  bool intermission = false;
};

using MixerList = std::vector<std::unique_ptr<Mixer>>;

bool NumberOf(const cJSON* object, const char* name, double* value) {
  const cJSON* item = cJSON_GetObjectItem(object, name);
  if (!cJSON_IsNumber(item)) return false;
  *value = item->valuedouble;
  return true;
}

bool IntOf(const cJSON* object, const char* name, int* value) {
  double number = 0;
  if (!NumberOf(object, name, &number) || number != std::floor(number)) return false;
  *value = static_cast<int>(number);
  return true;
}

// The mixers a request addresses: the one named by "mixer", or every video mixer when the
// member is absent. 0, or the engine's code.
int Targets(const cJSON* request, MediaSimulator& engine, MixerList* out) {
  engine.ConnectModel();
  const cJSON* name = cJSON_GetObjectItem(request, "mixer");
  if (name != nullptr) {
    if (!cJSON_IsString(name)) return kBadArgument;
    Mixer* mixer = nullptr;
    if (Mixer::QueryByName(Mixer::kVideo, name->valuestring, &mixer) != 0 || mixer == nullptr) {
      delete mixer;
      return kNotFound;
    }
    out->emplace_back(mixer);
    return 0;
  }
  std::vector<Mixer*> all;
  int result = Mixer::QueryByType(Mixer::kVideo, &all);
  for (Mixer* mixer : all) out->emplace_back(mixer);
  return result == 0 ? 0 : kRefused;
}

std::string Quoted(const std::string& text) {
  cJSON* string = cJSON_CreateString(text.c_str());
  char* printed = cJSON_PrintUnformatted(string);
  std::string result = printed != nullptr ? printed : "\"\"";
  cJSON_free(printed);
  cJSON_Delete(string);
  return result;
}

void SignalAsset(MediaSimulator& engine, const char* signal, int id, const Mixer& mixer) {
  engine.Signal(signal,
                "{\"Id\":" + std::to_string(id) + ",\"Mixer\":" + Quoted(mixer.name()) + "}");
}

int LayoutGroup(MixerConfig* config) {
  return config != nullptr ? config->group_id() : 0;
}

// The layout `id` in use, or null.
std::unique_ptr<MixerConfig> FindLayout(int id) {
  MixerConfig* config = nullptr;
  if (id < 1 || MixerConfig::QueryById(MixerConfig::kVideo, id, &config) != 0 ||
      config == nullptr || !config->enabled()) {
    delete config;
    return nullptr;
  }
  return std::unique_ptr<MixerConfig>(config);
}

// The asset `id` of `kind` in use, or null.
std::unique_ptr<MixerAsset> FindAsset(int kind, int id) {
  MixerAsset* asset = nullptr;
  if (id < 1 || MixerAsset::QueryById(kind, id, &asset) != 0 || asset == nullptr ||
      !asset->enabled()) {
    delete asset;
    return nullptr;
  }
  return std::unique_ptr<MixerAsset>(asset);
}

std::string SetLayout(const std::string& payload, MediaSimulator& engine) {
  JsonPtr request = ParsePayload(payload);
  int id = 0;
  if (!IntOf(request.get(), "id", &id)) return Reply(kBadArgument);
  MixerList mixers;
  if (int code = Targets(request.get(), engine, &mixers)) return Reply(code);
  std::unique_ptr<MixerConfig> layout = FindLayout(id);
  if (layout == nullptr) return Reply(kNotFound);
  for (auto& mixer : mixers) {
    mixer->config(layout.get());
    if (Mixer::Update(mixer.get()) != 0) return Reply(kRefused);
  }
  for (auto& mixer : mixers) engine.media().ShowLayout(mixer->id(), layout->content());
  for (auto& mixer : mixers)
    engine.Signal("video_layout", "{\"Id\":" + std::to_string(id) +
                                      ",\"Group\":" + std::to_string(LayoutGroup(layout.get())) +
                                      ",\"Mixer\":" + Quoted(mixer->name()) + "}");
  return Reply(0);
}

// Binds asset `id` of `kind` (0 unbinds) on the addressed mixers and signals it.
std::string BindAsset(const cJSON* request, MediaSimulator& engine, int kind, int id,
                      const char* signal, MixerList* mixers) {
  if (int code = Targets(request, engine, mixers)) return Reply(code);
  std::unique_ptr<MixerAsset> asset;
  if (id != 0) {
    asset = FindAsset(kind, id);
    if (asset == nullptr) return Reply(kNotFound);
  }
  for (auto& mixer : *mixers) {
    switch (kind) {
      case MixerAsset::kBackground:
        mixer->background(asset.get());
        break;
      case MixerAsset::kForeground:
        mixer->foreground(asset.get());
        break;
      case MixerAsset::kOverlay:
        mixer->overlay(asset.get());
        break;
      default:
        mixer->system_overlay(asset.get());
        break;
    }
    if (Mixer::Update(mixer.get()) != 0) return Reply(kRefused);
  }
  for (auto& mixer : *mixers) SignalAsset(engine, signal, id, *mixer);
  return Reply(0);
}

// A "file://" URL naming an existing file below the sandbox root.
bool ExistingFile(const std::string& url) {
  if (url.rfind("file://", 0) != 0) return false;
  std::error_code error;
  return std::filesystem::is_regular_file(zolo::SysrootPath(url.substr(7)), error);
}

std::string SetBackground(const std::string& payload, MediaSimulator& engine) {
  JsonPtr request = ParsePayload(payload);
  int id = 0;
  if (!IntOf(request.get(), "id", &id) || id < 0) return Reply(kBadArgument);
  MixerList mixers;
  return BindAsset(request.get(), engine, MixerAsset::kBackground, id, "video_background", &mixers);
}

std::string SetForeground(const std::string& payload, MediaSimulator& engine,
                          const std::shared_ptr<Mixers>& state) {
  JsonPtr request = ParsePayload(payload);
  int id = 0;
  MixerList mixers;
  if (IntOf(request.get(), "id", &id)) {
    if (id < 0) return Reply(kBadArgument);
    std::string reply =
        BindAsset(request.get(), engine, MixerAsset::kForeground, id, "video_foreground", &mixers);
    for (auto& mixer : mixers) state->live[mixer->name()].foreground_path.clear();
    return reply;
  }
  const std::string path = StringOf(request.get(), "path");
  if (path.empty()) return Reply(kBadArgument);
  if (!ExistingFile(path)) return Reply(kNotFound);
  if (int code = Targets(request.get(), engine, &mixers)) return Reply(code);
  for (auto& mixer : mixers) {
    state->live[mixer->name()].foreground_path = path;
    SignalAsset(engine, "video_foreground", 0, *mixer);
  }
  return Reply(0);
}

// Overlay and system overlay: an asset id or (overlay only) a file, at x, y inside the
// picture.
std::string SetPlaced(const std::string& payload, MediaSimulator& engine,
                      const std::shared_ptr<Mixers>& state, bool system) {
  JsonPtr request = ParsePayload(payload);
  Placed placed;
  if (!NumberOf(request.get(), "x", &placed.x) || !NumberOf(request.get(), "y", &placed.y) ||
      !(placed.x >= 0 && placed.x <= 1) || !(placed.y >= 0 && placed.y <= 1))
    return Reply(kBadArgument);
  const char* signal = system ? "video_system_overlay" : "video_overlay";
  MixerList mixers;
  std::string reply;
  if (IntOf(request.get(), "id", &placed.id)) {
    if (placed.id < 0) return Reply(kBadArgument);
    reply =
        BindAsset(request.get(), engine, system ? MixerAsset::kSystemOverlay : MixerAsset::kOverlay,
                  placed.id, signal, &mixers);
  } else {
    placed.path = StringOf(request.get(), "path");
    if (system || placed.path.empty()) return Reply(kBadArgument);
    std::string url = placed.path.rfind("file://", 0) == 0 ? placed.path : "file://" + placed.path;
    if (!ExistingFile(url)) return Reply(kNotFound);
    if (int code = Targets(request.get(), engine, &mixers)) return Reply(code);
    for (auto& mixer : mixers) SignalAsset(engine, signal, 0, *mixer);
    reply = Reply(0);
  }
  for (auto& mixer : mixers) {
    MixerState& live = state->live[mixer->name()];
    (system ? live.system_overlay : live.overlay) = placed;
  }
  return reply;
}

std::string SetTheme(const std::string& payload, MediaSimulator& engine) {
  JsonPtr request = ParsePayload(payload);
  engine.ConnectModel();
  int id = 0, layout_id = 0, overlay_id = 0, background_id = 0;
  std::unique_ptr<Theme> theme;
  if (IntOf(request.get(), "id", &id)) {
    Theme* found = nullptr;
    if (id < 1 || Theme::QueryById(id, &found) != 0 || found == nullptr || !found->enabled()) {
      delete found;
      return Reply(kNotFound);
    }
    theme.reset(found);
    layout_id = theme->layout_id();
    overlay_id = theme->overlay_id();
    background_id = theme->background_id();
  } else if (!IntOf(request.get(), "layout", &layout_id) ||
             !IntOf(request.get(), "overlay", &overlay_id) ||
             !IntOf(request.get(), "background", &background_id) || layout_id < 0 ||
             overlay_id < 0 || background_id < 0) {
    return Reply(kBadArgument);
  }
  std::unique_ptr<MixerConfig> layout = FindLayout(layout_id);
  std::unique_ptr<MixerAsset> overlay = FindAsset(MixerAsset::kOverlay, overlay_id);
  std::unique_ptr<MixerAsset> background = FindAsset(MixerAsset::kBackground, background_id);
  if ((layout_id > 0 && layout == nullptr) || (overlay_id > 0 && overlay == nullptr) ||
      (background_id > 0 && background == nullptr))
    return Reply(kNotFound);
  MixerList mixers;
  if (int code = Targets(request.get(), engine, &mixers)) return Reply(code);
  for (auto& mixer : mixers) {
    mixer->theme(theme.get());
    if (layout != nullptr) mixer->config(layout.get());
    mixer->overlay(overlay.get());
    mixer->background(background.get());
    if (Mixer::Update(mixer.get()) != 0) return Reply(kRefused);
  }
  for (auto& mixer : mixers) {
    if (layout != nullptr) engine.media().ShowLayout(mixer->id(), layout->content());
    if (layout != nullptr)
      engine.Signal("video_layout", "{\"Id\":" + std::to_string(layout_id) +
                                        ",\"Group\":" + std::to_string(LayoutGroup(layout.get())) +
                                        ",\"Mixer\":" + Quoted(mixer->name()) + "}");
    SignalAsset(engine, "video_background", background_id, *mixer);
    SignalAsset(engine, "video_overlay", overlay_id, *mixer);
  }
  return Reply(0);
}

std::string Snapshot(const std::string& payload, MediaSimulator& engine) {
  JsonPtr request = ParsePayload(payload);
  int width = 0, height = 0;
  const std::string uri = StringOf(request.get(), "uri");
  if (!IntOf(request.get(), "width", &width) || !IntOf(request.get(), "height", &height) ||
      uri.rfind("file://", 0) != 0 || width <= 0 || height <= 0 || width > kMaxSnapshotSide ||
      height > kMaxSnapshotSide || !cJSON_IsString(cJSON_GetObjectItem(request.get(), "mixer")))
    return Reply(kBadArgument);
  MixerList mixers;
  if (int code = Targets(request.get(), engine, &mixers)) return Reply(code);
  const std::string path = zolo::SysrootPath(uri.substr(7));
  std::error_code error;
  if (!std::filesystem::is_directory(std::filesystem::path(path).parent_path(), error))
    return Reply(kRefused);
  return engine.media().Snapshot(MediaBackend::Picture::kMixer, mixers.front()->id(), width, height,
                                 path) == 0
             ? Reply(0)
             : Reply(kRefused);
}

std::string SetColor(const std::string& payload, MediaSimulator& engine) {
  JsonPtr request = ParsePayload(payload);
  const std::string name = StringOf(request.get(), "name");
  int value[4] = {};
  static const char* const kKeys[4] = {"brightness", "contrast", "saturation", "hue"};
  for (int i = 0; i < 4; ++i)
    if (!IntOf(request.get(), kKeys[i], &value[i]) || value[i] < 0 ||
        value[i] > (i == 3 ? kMaxHue : kMaxColor))
      return Reply(kBadArgument);
  if (name.empty()) return Reply(kBadArgument);
  engine.ConnectModel();
  std::vector<Stream*> streams;
  Stream::QueryByTypeName("display", name.c_str(), &streams);
  std::unique_ptr<Stream> stream(streams.empty() ? nullptr : streams.front());
  for (size_t i = 1; i < streams.size(); ++i) delete streams[i];
  if (stream == nullptr) return Reply(kNotFound);
  for (int i = 0; i < 4; ++i) stream->UpdateParameter(kKeys[i], value[i]);
  if (Stream::Update(stream.get()) != 0) return Reply(kRefused);
  engine.Signal("output_color_changed",
                "{\"Name\":" + Quoted(name) + ",\"Brightness\":" + std::to_string(value[0]) +
                    ",\"Contrast\":" + std::to_string(value[1]) + ",\"Saturation\":" +
                    std::to_string(value[2]) + ",\"Hue\":" + std::to_string(value[3]) + "}");
  return Reply(0);
}

}  // namespace

void RegisterMixerMethods(MediaSimulator& sim) {
  auto state = std::make_shared<Mixers>();
  sim.Handle("set_video_layout", SetLayout);
  // The engine picks the layout itself; the simulator shows the one asked for.
  sim.Handle("set_intelligent_layout", SetLayout);
  sim.Handle("set_video_background", SetBackground);
  sim.Handle("set_video_foreground", [state](const std::string& payload, MediaSimulator& engine) {
    return SetForeground(payload, engine, state);
  });
  sim.Handle("set_video_overlay", [state](const std::string& payload, MediaSimulator& engine) {
    return SetPlaced(payload, engine, state, false);
  });
  sim.Handle("set_video_system_overlay",
             [state](const std::string& payload, MediaSimulator& engine) {
               return SetPlaced(payload, engine, state, true);
             });
  sim.Handle("set_video_theme", SetTheme);
  sim.Handle("make_video_snapshot", Snapshot);
  sim.Handle("set_intermission_mode", [state](const std::string& payload, MediaSimulator&) {
    JsonPtr request = ParsePayload(payload);
    int enable = 0;
    if (!IntOf(request.get(), "enable", &enable)) return Reply(kBadArgument);
    state->intermission = enable != 0;
    return Reply(0);
  });
  sim.Handle("set_output_color", SetColor);
}

}  // namespace zolo::sim
