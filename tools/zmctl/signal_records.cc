#include "signal_records.h"

#include <cjson/cJSON.h>
#include <zolo/media.h>

#include <cstddef>
#include <map>
#include <memory>

namespace zmctl {

namespace {

enum class Kind { kInt, kBool, kText, kTextPointer };

struct Field {
  const char* key;
  Kind kind;
  size_t offset;
};

#define INT(type, member) \
  { #member, Kind::kInt, offsetof(type, member) }
#define BOOL(type, member) \
  { #member, Kind::kBool, offsetof(type, member) }
#define TEXT(type, member) \
  { #member, Kind::kText, offsetof(type, member) }

const std::vector<Field> kVideoAsset = {INT(media_sig_video_background, id),
                                        TEXT(media_sig_video_background, mixer)};
const std::vector<Field> kRecording = {INT(media_sig_recording_ready, id),
                                       TEXT(media_sig_recording_ready, name)};
const std::vector<Field> kXlr = {TEXT(media_sig_audio_xlr_channel, name),
                                 INT(media_sig_audio_xlr_channel, mode)};

// The fields of every record but "status", whose stream list is described apart.
const std::map<std::string, std::vector<Field>>& Layouts() {
  static const std::map<std::string, std::vector<Field>> layouts = {
      {"video_layout",
       {INT(media_sig_video_layout, id), INT(media_sig_video_layout, group),
        TEXT(media_sig_video_layout, mixer)}},
      {"video_background", kVideoAsset},
      {"video_foreground", kVideoAsset},
      {"video_overlay", kVideoAsset},
      {"video_system_overlay", kVideoAsset},
      {"streaming_duration",
       {TEXT(media_sig_streaming_duration, name), INT(media_sig_streaming_duration, duration),
        INT(media_sig_streaming_duration, type)}},
      {"audio_level",
       {TEXT(media_sig_audio_level, name), INT(media_sig_audio_level, level),
        INT(media_sig_audio_level, left), INT(media_sig_audio_level, right)}},
      {"audio_volume",
       {TEXT(media_sig_audio_volume, name), INT(media_sig_audio_volume, volume),
        BOOL(media_sig_audio_volume, mute)}},
      {"audio_type", {TEXT(media_sig_audio_type, name), INT(media_sig_audio_type, type)}},
      {"channel_status",
       {INT(media_sig_channel_status, id), TEXT(media_sig_channel_status, name),
        INT(media_sig_channel_status, status), BOOL(media_sig_channel_status, capture)}},
      {"video_file_status",
       {TEXT(media_sig_rec_file_status, stream), TEXT(media_sig_rec_file_status, url),
        INT(media_sig_rec_file_status, status), INT(media_sig_rec_file_status, max_size),
        INT(media_sig_rec_file_status, backup)}},
      {"video_file_updated",
       {TEXT(media_sig_rec_file_update, stream), TEXT(media_sig_rec_file_update, url),
        INT(media_sig_rec_file_update, offset), INT(media_sig_rec_file_update, size),
        INT(media_sig_rec_file_update, backup)}},
      {"bookmark_added",
       {INT(media_sig_bookmark_added, time), TEXT(media_sig_bookmark_added, text),
        INT(media_sig_bookmark_added, mode)}},
      {"bookmark_removed",
       {INT(media_sig_bookmark_removed, time), TEXT(media_sig_bookmark_removed, text)}},
      {"recording_ready", kRecording},
      {"recording_created", kRecording},
      {"storage_status",
       {INT(media_sig_storage_status, status), TEXT(media_sig_storage_status, storage),
        INT(media_sig_storage_status, index)}},
      {"channel_source_error",
       {TEXT(media_sig_channel_source_error, channel),
        INT(media_sig_channel_source_error, source_type),
        TEXT(media_sig_channel_source_error, address), INT(media_sig_channel_source_error, code)}},
      {"stream_error",
       {TEXT(media_sig_stream_error, stream), TEXT(media_sig_stream_error, url),
        INT(media_sig_stream_error, code)}},
      {"recording_bookmark_updated",
       {TEXT(media_sig_recording_bookmark_updated, url),
        INT(media_sig_recording_bookmark_updated, code)}},
      {"record_limit_reached",
       {INT(media_sig_record_limit_reached, type), TEXT(media_sig_record_limit_reached, name),
        INT(media_sig_record_limit_reached, criteria), INT(media_sig_record_limit_reached, index)}},
      {"stream_status",
       {TEXT(media_sig_stream_status, name), TEXT(media_sig_stream_status, status)}},
      {"streaming_state",
       {TEXT(media_sig_streaming_state, state), TEXT(media_sig_streaming_state, flags)}},
      {"output_color_changed",
       {TEXT(media_sig_output_color_changed, name), INT(media_sig_output_color_changed, brightness),
        INT(media_sig_output_color_changed, contrast),
        INT(media_sig_output_color_changed, saturation), INT(media_sig_output_color_changed, hue)}},
      {"display_changed",
       {TEXT(media_sig_display_changed, name), INT(media_sig_display_changed, resolution)}},
      {"media_data_changed",
       {INT(media_sig_media_data_changed, type), INT(media_sig_media_data_changed, data),
        INT(media_sig_media_data_changed, id), TEXT(media_sig_media_data_changed, payload)}},
      {"hardware_error", {INT(media_sig_hardware_error, code)}},
      {"media_crashed", {INT(media_sig_media_crashed, code)}},
      {"recorder_file_stream_changed",
       {INT(media_sig_recorder_file_stream_changed, codec_param_preset)}},
      {"audio_gain", {TEXT(media_sig_audio_gain, name), INT(media_sig_audio_gain, gain)}},
      {"audio_mixer", {INT(media_sig_audio_mixer, config_id), TEXT(media_sig_audio_mixer, mixer)}},
      {"audio_noise_reduction",
       {TEXT(media_sig_audio_noise_reduction, name), INT(media_sig_audio_noise_reduction, level)}},
      {"audio_xlr_channel", kXlr},
      {"audio_xlr_power", kXlr},
      {"audio_output_monitor_changed",
       {TEXT(media_sig_audio_output_monitor_changed, name),
        INT(media_sig_audio_output_monitor_changed, mode),
        INT(media_sig_audio_output_monitor_changed, duration_threshold),
        INT(media_sig_audio_output_monitor_changed, level_threshold)}},
      {"audio_output_monitor_warning",
       {TEXT(media_sig_audio_output_monitor_warning, name),
        INT(media_sig_audio_output_monitor_warning, triggered)}},
      {"mixer_resolution_changed",
       {TEXT(media_sig_mixer_resolution_changed, name),
        INT(media_sig_mixer_resolution_changed, width),
        INT(media_sig_mixer_resolution_changed, height)}},
      {"webrtc_content",
       {TEXT(media_sig_webrtc_content, name),
        {"content", Kind::kTextPointer, offsetof(media_sig_webrtc_content, content)}}},
  };
  return layouts;
}

void AddField(cJSON* object, const Field& field, const char* base) {
  const char* at = base + field.offset;
  switch (field.kind) {
    case Kind::kInt:
      cJSON_AddNumberToObject(object, field.key, *reinterpret_cast<const int*>(at));
      break;
    case Kind::kBool:
      cJSON_AddBoolToObject(object, field.key, *reinterpret_cast<const bool*>(at));
      break;
    case Kind::kText:
      cJSON_AddStringToObject(object, field.key, at);
      break;
    case Kind::kTextPointer: {
      const char* text = *reinterpret_cast<const char* const*>(at);
      cJSON_AddStringToObject(object, field.key, text ? text : "");
      break;
    }
  }
}

cJSON* StatusObject(const media_sig_status& status) {
  cJSON* object = cJSON_CreateObject();
  cJSON_AddStringToObject(object, "state", status.state);
  cJSON* streams = cJSON_AddArrayToObject(object, "streams");
  for (const zm_stream& stream : status.streams) {
    cJSON* item = cJSON_CreateObject();
    cJSON_AddStringToObject(item, "name", stream.name);
    cJSON_AddStringToObject(item, "destination", stream.destination);
    cJSON_AddItemToArray(streams, item);
  }
  cJSON_AddBoolToObject(object, "restart", status.restart);
  return object;
}

// `object` as key=value pairs; text values with spaces are quoted.
std::string AsPairs(const cJSON* object) {
  std::string text;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, object) {
    if (!text.empty()) text += ' ';
    text += item->string;
    text += '=';
    if (cJSON_IsString(item)) {
      std::string value = item->valuestring;
      text += value.find(' ') == std::string::npos && !value.empty() ? value : '"' + value + '"';
    } else {
      std::unique_ptr<char, void (*)(void*)> printed(cJSON_PrintUnformatted(item), cJSON_free);
      text += printed ? printed.get() : "";
    }
  }
  return text;
}

}  // namespace

const std::vector<std::string>& SignalNames() {
  static const std::vector<std::string> names = {"status",
                                                 "video_layout",
                                                 "video_background",
                                                 "video_foreground",
                                                 "video_overlay",
                                                 "streaming_duration",
                                                 "audio_level",
                                                 "audio_volume",
                                                 "audio_type",
                                                 "channel_status",
                                                 "video_file_status",
                                                 "video_file_updated",
                                                 "bookmark_added",
                                                 "recording_ready",
                                                 "storage_status",
                                                 "channel_source_error",
                                                 "stream_error",
                                                 "bookmark_removed",
                                                 "recording_bookmark_updated",
                                                 "record_limit_reached",
                                                 "recording_created",
                                                 "stream_status",
                                                 "streaming_state",
                                                 "output_color_changed",
                                                 "display_changed",
                                                 "media_data_changed",
                                                 "hardware_error",
                                                 "audio_gain",
                                                 "audio_mixer",
                                                 "video_system_overlay",
                                                 "audio_noise_reduction",
                                                 "audio_xlr_channel",
                                                 "audio_xlr_power",
                                                 "media_crashed",
                                                 "webrtc_content",
                                                 "mixer_resolution_changed",
                                                 "recorder_file_stream_changed",
                                                 "audio_output_monitor_changed",
                                                 "audio_output_monitor_warning"};
  return names;
}

std::string DescribeRecord(const std::string& name, const void* record, bool json) {
  if (record == nullptr) return std::string();
  cJSON* object = nullptr;
  if (name == "status") {
    object = StatusObject(*static_cast<const media_sig_status*>(record));
  } else {
    auto layout = Layouts().find(name);
    if (layout == Layouts().end()) return std::string();
    object = cJSON_CreateObject();
    for (const Field& field : layout->second)
      AddField(object, field, static_cast<const char*>(record));
  }
  std::string text;
  if (json) {
    std::unique_ptr<char, void (*)(void*)> printed(cJSON_PrintUnformatted(object), cJSON_free);
    text = printed ? printed.get() : "{}";
  } else {
    text = AsPairs(object);
  }
  cJSON_Delete(object);
  return text;
}

}  // namespace zmctl
