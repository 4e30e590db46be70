// Live mixer commands: switching what a mixer shows, crop, intermission, snapshots and the
// colour of display outputs; the getters read what the engine stored in the database.
#include <cjson/cJSON.h>
#include <zolo/media/frame.h>
#include <zolo/media/mixer_live.h>
#include <zolo_model/media_model.h>
#include <zolo_model/mixer.h>
#include <zolo_model/stream.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "libzolo_media/media_call.h"
#include "common/json_holder.h"

namespace {

constexpr const char* kDisplayMixerUri = "zolo://video/display_mixer/0";

using Json = zolo::JsonHolder;

template <size_t N>
void CopyText(char (&field)[N], const std::string& text) {
  std::snprintf(field, N, "%s", text.c_str());
}

bool StateAllows(std::initializer_list<int> states) {
  int state = zm_get_state(nullptr);
  for (int allowed : states)
    if (state == allowed) return true;
  return false;
}

bool RuleA() {
  return StateAllows({1, 3});
}
bool RuleB() {
  return StateAllows({1, 3, 4});
}
// The main mixer by its default value answers to the stricter rule.
bool RuleAB(ZM_MIXER mixer) {
  return mixer < 1 ? RuleA() : RuleB();
}

// The mixer a value names, from the database. 0 or -2.
int Resolve(ZM_MIXER value, std::unique_ptr<Mixer>* out) {
  const char* uri = zm_mixer_uri(value);
  if (uri == nullptr) return -2;
  Mixer* found = nullptr;
  if (Mixer::QueryByName(Mixer::kVideo, uri, &found) != 0 || found == nullptr) {
    delete found;
    return -2;
  }
  out->reset(found);
  return 0;
}

// Adds the "mixer" member for one mixer; ALL leaves it out. 0 or -2.
int AddMixer(cJSON* payload, ZM_MIXER value) {
  if (value == ZM_MIXER_ALL) return 0;
  std::unique_ptr<Mixer> mixer;
  if (int result = Resolve(value, &mixer)) return result;
  cJSON_AddStringToObject(payload, "mixer", mixer->name().c_str());
  return 0;
}

int Call(const char* method, const Json& payload) {
  return zm_call_media_method(method, payload.get(), nullptr, zolo::kCallTimeout);
}

// "file://" URL of a path, cut to 512 bytes like every path the engine takes.
std::string FileUrl(const char* path) {
  char url[512];
  if (std::strncmp(path, "file://", 7) == 0)
    std::snprintf(url, sizeof url, "%s", path);
  else
    std::snprintf(url, sizeof url, "file://%s", path);
  return url;
}

int SendLayout(const char* method, int id, ZM_MIXER mixer, bool persist, bool bookmark) {
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), "id", id);
  if (int result = AddMixer(payload.get(), mixer)) return result;
  cJSON_AddBoolToObject(payload.get(), "persist", persist);
  cJSON_AddBoolToObject(payload.get(), "bookmark", bookmark);
  return Call(method, payload);
}

int SendPlaced(const char* method, cJSON* what, double x, double y, ZM_MIXER mixer) {
  Json payload(what);
  cJSON_AddNumberToObject(payload.get(), "x", x);
  cJSON_AddNumberToObject(payload.get(), "y", y);
  if (int result = AddMixer(payload.get(), mixer)) return result;
  return Call(method, payload);
}

cJSON* WithId(int id) {
  cJSON* payload = cJSON_CreateObject();
  cJSON_AddNumberToObject(payload, "id", id);
  return payload;
}

int SendId(const char* method, int id, ZM_MIXER mixer) {
  Json payload(WithId(id));
  if (int result = AddMixer(payload.get(), mixer)) return result;
  return Call(method, payload);
}

template <class Record>
void FillPicture(const MixerAsset* asset, Record* record) {
  *record = Record{};
  if (asset == nullptr) return;
  record->id = asset->id();
  CopyText(record->path, asset->path());
  CopyText(record->name, asset->name());
  CopyText(record->origin, asset->origin());
  record->rank = asset->rank();
}

// Resolves the mixer and hands it to `fill`. 0, -2, -3.
template <class Record, class Fill>
int GetAsset(Record* out, ZM_MIXER value, Fill fill) {
  if (out == nullptr) return -3;
  std::unique_ptr<Mixer> mixer;
  if (int result = Resolve(value, &mixer)) return result;
  fill(*mixer, out);
  return 0;
}

}  // namespace

const char* zm_mixer_uri(ZM_MIXER mixer) {
  switch (mixer) {
    case ZM_MIXER_DEFAULT:
    case ZM_MIXER_0:
      return "zolo://video/mixer/0";
    case ZM_MIXER_DISPLAY:
      return kDisplayMixerUri;
    case ZM_MIXER_1:
      return "zolo://video/mixer/1";
    case ZM_MIXER_2:
      return "zolo://video/mixer/2";
    default:
      return nullptr;
  }
}

int zm_set_video_layout(int id, ZM_MIXER mixer, bool persist, bool bookmark) {
  if (id < 0) return -3;
  if (!RuleAB(mixer)) return -4;
  return SendLayout("set_video_layout", id, mixer, persist, bookmark);
}

int zm_set_display_layout(int id, bool persist) {
  if (id < 0) return -3;
  if (!RuleB()) return -4;
  Json payload(WithId(id));
  cJSON_AddStringToObject(payload.get(), "mixer", kDisplayMixerUri);
  cJSON_AddBoolToObject(payload.get(), "persist", persist);
  return Call("set_video_layout", payload);
}

int zm_set_intelligent_layout(int id, ZM_MIXER mixer, bool persist, bool bookmark) {
  if (id < 0) return -3;
  if (!RuleAB(mixer)) return -4;
  std::string setting;
  zolo::MediaConfig().GetValue("Engine", "intelligent_layout", "", &setting);
  if (setting.empty()) return -2;
  return SendLayout("set_intelligent_layout", id, mixer, persist, bookmark);
}

int zm_set_intelligent_display_layout(int id, bool persist, bool bookmark) {
  return zm_set_intelligent_layout(id, ZM_MIXER_DISPLAY, persist, bookmark);
}

int zm_set_video_layout_crop(int id, int crop, ZM_MIXER value, bool persist, bool bookmark) {
  std::unique_ptr<Mixer> mixer;
  if (int result = Resolve(value, &mixer)) return result;
  MixerConfig* config = mixer->config();
  if (config == nullptr) return -1;
  std::vector<MixerConfigVideoLayout*> windows;
  if (config->GetVideoLayout(&windows) != 0 || windows.empty()) {
    MediaModel::CleanQuery(&windows);
    return -1;
  }
  int result = -5;
  for (size_t index = 0; index < windows.size(); ++index) {
    const MixerConfigVideoLayout& found = *windows[index];
    if (found.id() != id) continue;
    // The window is addressed by its position; a source id of 0 keeps the window's source,
    // so only geometry and crop are written.
    MixerConfigVideoLayout window(0, found.w(), found.h(), found.x(), found.y(), found.z(), crop);
    if (config->SetVideoLayoutContent(static_cast<int>(index), window) != 0) {
      result = -1;
    } else {
      result = zm_set_video_layout(config->id(), value, persist, bookmark);
    }
    break;
  }
  MediaModel::CleanQuery(&windows);
  return result;
}

int zm_set_video_background(int id, ZM_MIXER mixer) {
  if (!RuleA()) return -4;
  return SendId("set_video_background", id, mixer);
}

int zm_set_video_foreground(ZM_MIXER mixer, int id) {
  if (!RuleAB(mixer)) return -4;
  return SendId("set_video_foreground", id, mixer);
}

int zm_set_video_foreground(ZM_MIXER mixer, const char* path) {
  if (!RuleAB(mixer)) return -4;
  if (path == nullptr) return -3;
  Json payload(cJSON_CreateObject());
  cJSON_AddStringToObject(payload.get(), "path", FileUrl(path).c_str());
  if (int result = AddMixer(payload.get(), mixer)) return result;
  return Call("set_video_foreground", payload);
}

int zm_set_video_logo(int id, double x, double y, ZM_MIXER mixer) {
  if (!RuleA()) return -4;
  return SendPlaced("set_video_overlay", WithId(id), x, y, mixer);
}

int zm_set_video_overlay(int id, double x, double y, ZM_MIXER mixer) {
  if (!RuleA()) return -4;
  return SendPlaced("set_video_overlay", WithId(id), x, y, mixer);
}

int zm_set_video_overlay(const char* path, double x, double y, ZM_MIXER mixer) {
  if (!RuleA()) return -4;
  if (path == nullptr) return -3;
  cJSON* payload = cJSON_CreateObject();
  cJSON_AddStringToObject(payload, "path", path);
  return SendPlaced("set_video_overlay", payload, x, y, mixer);
}

int zm_set_video_system_overlay(int id, double x, double y, ZM_MIXER mixer) {
  if (!RuleA()) return -4;
  return SendPlaced("set_video_system_overlay", WithId(id), x, y, mixer);
}

int zm_set_video_theme(int id, ZM_MIXER mixer) {
  if (id < 1) return -3;
  if (!RuleA()) return -4;
  return SendId("set_video_theme", id, mixer);
}

int zm_set_video_theme(const zm_theme& theme, ZM_MIXER mixer) {
  if (theme.layout < 0 || theme.overlay < 0 || theme.background < 0) return -3;
  if (!RuleA()) return -4;
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), "layout", theme.layout);
  cJSON_AddNumberToObject(payload.get(), "overlay", theme.overlay);
  cJSON_AddNumberToObject(payload.get(), "background", theme.background);
  if (int result = AddMixer(payload.get(), mixer)) return result;
  return Call("set_video_theme", payload);
}

int zm_make_video_snapshot(ZM_MIXER value, const char* uri, int width, int height) {
  if (uri == nullptr || std::strncmp(uri, "file://", 7) != 0) return -3;
  std::unique_ptr<Mixer> mixer;
  if (int result = Resolve(value, &mixer)) return result;
  Json payload(cJSON_CreateObject());
  cJSON_AddStringToObject(payload.get(), "mixer", mixer->name().c_str());
  cJSON_AddStringToObject(payload.get(), "uri", uri);
  cJSON_AddNumberToObject(payload.get(), "width", width);
  cJSON_AddNumberToObject(payload.get(), "height", height);
  return Call("make_video_snapshot", payload);
}

int zm_set_video_intermission(int enable) {
  if (!RuleB()) return -4;
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), "enable", enable);
  return Call("set_intermission_mode", payload);
}

int zm_set_output_color(const char* name, const zm_output_color& color) {
  if (color.brightness < 0 || color.contrast < 0 || color.saturation < 0 || color.hue < 0)
    return -3;
  if (name == nullptr) return -3;
  Json payload(cJSON_CreateObject());
  cJSON_AddStringToObject(payload.get(), "name", name);
  cJSON_AddNumberToObject(payload.get(), "brightness", color.brightness);
  cJSON_AddNumberToObject(payload.get(), "contrast", color.contrast);
  cJSON_AddNumberToObject(payload.get(), "saturation", color.saturation);
  cJSON_AddNumberToObject(payload.get(), "hue", color.hue);
  return Call("set_output_color", payload);
}

int zm_get_video_layout(ZM_MIXER value) {
  std::unique_ptr<Mixer> mixer;
  if (int result = Resolve(value, &mixer)) return result;
  return mixer->config_id() > 0 ? mixer->config_id() : 0;
}

int zm_get_video_background(zm_background* out, ZM_MIXER value) {
  return GetAsset(out, value,
                  [](const Mixer& mixer, zm_background* r) { FillPicture(mixer.background(), r); });
}

int zm_get_video_foreground(ZM_MIXER value, zm_foreground* out) {
  return GetAsset(out, value,
                  [](const Mixer& mixer, zm_foreground* r) { FillPicture(mixer.foreground(), r); });
}

int zm_get_video_logo(zm_logo* out, ZM_MIXER value) {
  return GetAsset(out, value, [](const Mixer& mixer, zm_logo* record) {
    *record = zm_logo{};
    const MixerAsset* asset = mixer.overlay();
    if (asset == nullptr) return;
    record->id = asset->id();
    CopyText(record->path, asset->path());
    CopyText(record->name, asset->name());
    CopyText(record->origin, asset->origin());
    asset->ParseLocation(&record->x, &record->y);
    record->rank = asset->rank();
  });
}

int zm_get_video_overlay(zm_overlay* out, ZM_MIXER value) {
  return GetAsset(out, value, [](const Mixer& mixer, zm_overlay* record) {
    *record = zm_overlay{};
    const MixerAsset* asset = mixer.overlay();
    if (asset == nullptr) return;
    record->id = asset->id();
    CopyText(record->path, asset->path());
    CopyText(record->name, asset->name());
    asset->origins(&record->origins);
    std::vector<MixerAssetLocation> positions;
    asset->ParseLocation(&positions);
    for (const MixerAssetLocation& p : positions) record->positions.push_back({p.x, p.y});
    record->rank = asset->rank();
  });
}

int zm_get_video_system_overlay(zm_system_overlay* out, ZM_MIXER value) {
  return GetAsset(out, value, [](const Mixer& mixer, zm_system_overlay* record) {
    *record = zm_system_overlay{};
    const MixerAsset* asset = mixer.system_overlay();
    if (asset == nullptr) return;
    record->id = asset->id();
    CopyText(record->path, asset->path());
    CopyText(record->name, asset->name());
    asset->ParseLocation(&record->x, &record->y);
    CopyText(record->content, asset->content());
    record->rank = asset->rank();
  });
}

int zm_get_video_theme(zm_theme* out, ZM_MIXER value) {
  return GetAsset(out, value, [](const Mixer& mixer, zm_theme* record) {
    *record = zm_theme{};
    const Theme* theme = mixer.theme();
    if (theme == nullptr) return;
    record->id = theme->id();
    CopyText(record->name, theme->name());
    record->layout = theme->layout_id();
    record->background = theme->background_id();
    record->overlay = theme->overlay_id();
    record->rank = theme->rank();
  });
}

int zm_get_video_theme(ZM_MIXER mixer) {
  zm_theme theme;
  if (int result = zm_get_video_theme(&theme, mixer)) return result;
  return theme.id;
}

int zm_get_output_color(const char* name, std::vector<zm_output_color>* out) {
  if (out == nullptr) return -3;
  std::vector<Stream*> streams;
  if (Stream::QueryByTypeName("display", nullptr, &streams) != 0) {
    MediaModel::CleanQuery(&streams);
    return -5;
  }
  for (const Stream* stream : streams) {
    if (name != nullptr && stream->name() != name) continue;
    zm_output_color& color = out->emplace_back();
    color = zm_output_color{};
    CopyText(color.name, stream->name());
    color.brightness = stream->ObtainParameter("brightness", 0);
    color.contrast = stream->ObtainParameter("contrast", 0);
    color.saturation = stream->ObtainParameter("saturation", 0);
    color.hue = stream->ObtainParameter("hue", 0);
  }
  MediaModel::CleanQuery(&streams);
  return 0;
}
