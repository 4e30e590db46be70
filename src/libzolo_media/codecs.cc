// Codecs and codec parameter presets: records, preset edits, and the NDI preview policy
// that keeps "NDI Preview Profile" and the NDI streams in step with an edited preset.
#include <cjson/cJSON.h>
#include <zolo/media/codecs.h>
#include <zolo_model/codec.h>
#include <zolo_model/codec_parameter_preset.h>
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "common/json_holder.h"
#include "common/log.h"
#include "libzolo_media/media_call.h"
#include "libzolo_media/visible_listing.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";
constexpr const char* kNdiPattern = "ndi://%";
constexpr const char* kNdiPreviewProfile = "NDI Preview Profile";

using Json = zolo::JsonHolder;
using Preset = CodecParameterPreset;

// Copies `text` into a zeroed field, cut to its capacity (as "%s" formatting would).
template <size_t N>
void CopyText(char (&field)[N], const std::string& text) {
  std::memcpy(field, text.c_str(), std::min(text.size(), N - 1));
}

// A record's text up to its terminator or its capacity, whichever comes first.
template <size_t N>
std::string Text(const char (&field)[N]) {
  return std::string(field, strnlen(field, N));
}

void AppendCodec(const Codec& codec, std::vector<zm_codec>* out) {
  zm_codec record{};
  record.id = codec.id();
  CopyText(record.type, codec.type());
  CopyText(record.name, codec.name());
  record.parameters.reserve(codec.parameters().size());
  for (const CodecParameter& parameter : codec.parameters()) {
    zm_codec_parameter entry{};
    CopyText(entry.name, parameter.name);
    CopyText(entry.value, parameter.value);
    record.parameters.push_back(entry);
  }
  out->push_back(std::move(record));
}

// Runs a codec query and converts what it found; the model objects are freed either way.
template <class Query>
int ConvertCodecs(std::vector<zm_codec>* out, Query query) {
  if (out == nullptr) return -3;
  std::vector<Codec*> codecs;
  int result = query(&codecs);
  if (result == 0)
    for (const Codec* codec : codecs) AppendCodec(*codec, out);
  MediaModel::CleanQuery(&codecs);
  return result == 0 ? 0 : -5;
}

// Runs a single-codec query and collects its object.
template <class Single>
int QueryOne(Single single, std::vector<Codec*>* codecs) {
  Codec* codec = nullptr;
  int result = single(&codec);
  if (result == 0) codecs->push_back(codec);
  return result;
}

bool IsJsonObject(const std::string& text) {
  Json json(cJSON_Parse(text.c_str()));
  return cJSON_IsObject(json.get());
}

// A record that may be stored: a name, and parameter texts that are JSON objects.
bool Storable(const zm_codec_preset& record) {
  return !Text(record.name).empty() && IsJsonObject(Text(record.video_codec_parameter)) &&
         IsJsonObject(Text(record.audio_codec_parameter));
}

// Sets the codecs named in `record` on `preset`; false when either is unknown.
bool SetCodecs(const zm_codec_preset& record, Preset* preset) {
  for (bool video : {true, false}) {
    Codec* codec = nullptr;
    if (Codec::QueryByName(video ? Text(record.video_codec) : Text(record.audio_codec), &codec) !=
        0)
      return false;
    if (video)
      preset->video_codec(codec);
    else
      preset->audio_codec(codec);
    delete codec;
  }
  return true;
}

// The number `key` of the JSON object `text`; false when absent or not a number.
bool NumberMember(const std::string& text, const char* key, double* value) {
  Json json(cJSON_Parse(text.c_str()));
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(json.get(), key);
  if (!cJSON_IsNumber(item)) return false;
  *value = item->valuedouble;
  return true;
}

// The preview runs at half the rate for the two high frame rates, at the same rate otherwise.
double PreviewFrameRate(double rate) {
  if (rate == 60) return 30;
  if (rate == 50) return 25;
  return rate;
}

// "NDI Preview Profile" takes the video codec, frame rate and GOP of the edited preset.
void FollowPreviewProfile(const zm_codec_preset& record) {
  double rate = 0;
  double gop = 0;
  const std::string video = Text(record.video_codec_parameter);
  bool has_rate = NumberMember(video, "frame_rate", &rate);
  bool has_gop = NumberMember(video, "gop", &gop);
  Preset* found = nullptr;
  if (Preset::QueryByName(kNdiPreviewProfile, &found) != 0) return;
  std::unique_ptr<Preset> profile(found);
  Codec* codec = nullptr;
  if (Codec::QueryByName(Text(record.video_codec), &codec) == 0) {
    profile->video_codec(codec);
    delete codec;
  }
  // A stored text that is not a JSON object is left as it is.
  Json parameters(cJSON_Parse(profile->video_codec_parameter().c_str()));
  if (cJSON_IsObject(parameters.get())) {
    cJSON* member = cJSON_GetObjectItemCaseSensitive(parameters.get(), "frame_rate");
    if (has_rate && cJSON_IsNumber(member)) cJSON_SetNumberValue(member, PreviewFrameRate(rate));
    member = cJSON_GetObjectItemCaseSensitive(parameters.get(), "gop");
    if (has_gop && cJSON_IsNumber(member)) cJSON_SetNumberValue(member, gop);
    char* text = cJSON_PrintUnformatted(parameters.get());
    if (text != nullptr) profile->video_codec_parameter(text);
    cJSON_free(text);
  }
  Preset::Update(profile.get());
}

// Sets the first enable flag of every NDI stream, logging each.
void EnableNdiStreams(bool enable) {
  std::vector<Stream*> streams;
  if (Stream::QueryByDestPattern(kNdiPattern, false, &streams) == 0) {
    for (Stream* stream : streams) {
      ZLOG_AS("zm_set_codec_preset", 2,
              enable ? "Enable NDI|HX preview stream: %s" : "Disable NDI|HX preview stream: %s",
              stream->name().c_str());
      stream->enable(enable);
      Stream::Update(stream);
    }
  }
  MediaModel::CleanQuery(&streams);
}

bool NdiPreviewFollows() {
  int32_t wanted = 0;
  zolo::MediaConfig().GetInt32("Engine", "add_ndi_preview_stream_simultaneously", 0, &wanted);
  return wanted != 0;
}

// The NDI streams that use preset `id` follow its new video codec.
void FollowNdiStreams(int id, const zm_codec_preset& record) {
  std::vector<Stream*> streams;
  if (Stream::QueryByDestPattern(kNdiPattern, true, &streams) != 0) {
    MediaModel::CleanQuery(&streams);
    return;
  }
  const std::string codec = Text(record.video_codec);
  for (const Stream* stream : streams) {
    const Preset* used = stream->codec_parameter_preset();
    if (used == nullptr || used->id() != id) continue;
    if (codec == "H.264" || codec == "H.265") {
      FollowPreviewProfile(record);
      EnableNdiStreams(true);
    } else if (codec == "RAW") {
      EnableNdiStreams(false);
    }
  }
  MediaModel::CleanQuery(&streams);
}

}  // namespace

int zm_get_codec(const char* name, std::vector<zm_codec>* out) {
  return ConvertCodecs(out, [name](std::vector<Codec*>* codecs) {
    if (name == nullptr) return Codec::QueryAll(codecs);
    return QueryOne([name](Codec** codec) { return Codec::QueryByName(name, codec); }, codecs);
  });
}

int zm_get_codec(const char* type, const char* name, std::vector<zm_codec>* out) {
  return ConvertCodecs(out, [type, name](std::vector<Codec*>* codecs) {
    return Codec::QueryByTypeName(type, name, codecs);
  });
}

int zm_get_codec(int id, std::vector<zm_codec>* out) {
  return ConvertCodecs(out, [id](std::vector<Codec*>* codecs) {
    return QueryOne([id](Codec** codec) { return Codec::QueryById(id, codec); }, codecs);
  });
}

namespace {

void AppendPreset(const Preset& preset, std::vector<zm_codec_preset>* out) {
  zm_codec_preset& record = out->emplace_back();  // value-initialised: all zero
  record.id = preset.id();
  CopyText(record.name, preset.name());
  CopyText(record.video_codec, preset.video_codec_name());
  CopyText(record.video_codec_parameter, preset.video_codec_parameter());
  CopyText(record.audio_codec, preset.audio_codec_name());
  CopyText(record.audio_codec_parameter, preset.audio_codec_parameter());
}

}  // namespace

int zm_get_codec_preset(int id, std::vector<zm_codec_preset>* out) {
  if (out == nullptr) return -3;
  if (id == 0) {
    static std::atomic<size_t> last_size{0};
    return zolo::AppendVisible(out, &last_size, [out] {
      return Preset::VisitVisible([out](const Preset& preset) { AppendPreset(preset, out); });
    });
  }
  Preset* found = nullptr;
  if (Preset::QueryById(id, &found) != 0 || found == nullptr) {
    delete found;
    return -5;
  }
  AppendPreset(*found, out);
  delete found;
  return 0;
}

int zm_add_codec_preset(zm_codec_preset* record) {
  if (record == nullptr || !Storable(*record)) return -3;
  Preset preset(Text(record->name), Text(record->video_codec_parameter),
                Text(record->audio_codec_parameter));
  if (!SetCodecs(*record, &preset)) return -3;
  int result = Preset::Add(&preset);
  if (result != 0) return result;
  record->id = preset.id();
  zolo::NotifyMediaDataChange(zolo::ChangeType::kAdded, zolo::DataKind::kCodecPreset, preset.id());
  return 0;
}

int zm_set_codec_preset(int id, const zm_codec_preset* record) {
  Preset* found = nullptr;
  if (Preset::QueryById(id, &found) != 0) return -5;
  std::unique_ptr<Preset> preset(found);
  if (preset->builtin()) return -2;
  if (record == nullptr || !Storable(*record)) return -3;
  preset->name(Text(record->name));
  preset->video_codec_parameter(Text(record->video_codec_parameter));
  preset->audio_codec_parameter(Text(record->audio_codec_parameter));
  if (!SetCodecs(*record, preset.get())) return -3;
  int result = Preset::Update(preset.get());
  if (result != 0) return result;
  if (NdiPreviewFollows()) FollowNdiStreams(id, *record);
  zolo::NotifyMediaDataChange(zolo::ChangeType::kChanged, zolo::DataKind::kCodecPreset, id);
  return 0;
}

int zm_remove_codec_preset(int id) {
  Preset* found = nullptr;
  if (Preset::QueryById(id, &found) != 0) return -5;
  bool builtin = found->builtin();
  delete found;
  if (builtin) return -2;
  int result = Preset::Remove(id);
  if (result != 0) return result;
  zolo::NotifyMediaDataChange(zolo::ChangeType::kRemoved, zolo::DataKind::kCodecPreset, id);
  return 0;
}
