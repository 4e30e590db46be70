#include "zolo/media_json/signals_json.h"

#include <zolo/signals.h>

#include "zolo/media_json/record_json.h"

namespace zolo::json {

ZOLO_JSON_RECORD(media_sig_video_layout, ZJ_FIELD(id), ZJ_FIELD(group), ZJ_FIELD(mixer))
ZOLO_JSON_RECORD(media_sig_video_background, ZJ_FIELD(id), ZJ_FIELD(mixer))
ZOLO_JSON_RECORD(media_sig_streaming_duration, ZJ_FIELD(name), ZJ_FIELD(duration), ZJ_FIELD(type))
ZOLO_JSON_RECORD(media_sig_audio_level, ZJ_FIELD(name), ZJ_FIELD(level), ZJ_FIELD(left),
                 ZJ_FIELD(right))
ZOLO_JSON_RECORD(media_sig_audio_volume, ZJ_FIELD(name), ZJ_FIELD(volume), ZJ_FIELD(mute))
ZOLO_JSON_RECORD(media_sig_audio_type, ZJ_FIELD(name), ZJ_FIELD(type))
ZOLO_JSON_RECORD(media_sig_channel_status, ZJ_FIELD(id), ZJ_FIELD(name), ZJ_FIELD(status),
                 ZJ_FIELD(capture))
ZOLO_JSON_RECORD(media_sig_rec_file_status, ZJ_FIELD(stream), ZJ_FIELD(url), ZJ_FIELD(status),
                 ZJ_FIELD(max_size), ZJ_FIELD(backup))
ZOLO_JSON_RECORD(media_sig_rec_file_update, ZJ_FIELD(stream), ZJ_FIELD(url), ZJ_FIELD(offset),
                 ZJ_FIELD(size), ZJ_FIELD(backup))
ZOLO_JSON_RECORD(media_sig_bookmark_added, ZJ_FIELD(time), ZJ_FIELD(text), ZJ_FIELD(mode))
ZOLO_JSON_RECORD(media_sig_bookmark_removed, ZJ_FIELD(time), ZJ_FIELD(text))
ZOLO_JSON_RECORD(media_sig_recording_ready, ZJ_FIELD(id), ZJ_FIELD(name))
ZOLO_JSON_RECORD(media_sig_storage_status, ZJ_FIELD(status), ZJ_FIELD(storage), ZJ_FIELD(index))
ZOLO_JSON_RECORD(media_sig_channel_source_error, ZJ_FIELD(channel), ZJ_FIELD(source_type),
                 ZJ_FIELD(address), ZJ_FIELD(code))
ZOLO_JSON_RECORD(media_sig_stream_error, ZJ_FIELD(stream), ZJ_FIELD(url), ZJ_FIELD(code))
ZOLO_JSON_RECORD(media_sig_recording_bookmark_updated, ZJ_FIELD(url), ZJ_FIELD(code))
ZOLO_JSON_RECORD(media_sig_record_limit_reached, ZJ_FIELD(type), ZJ_FIELD(name), ZJ_FIELD(criteria),
                 ZJ_FIELD(index))
ZOLO_JSON_RECORD(media_sig_stream_status, ZJ_FIELD(name), ZJ_FIELD(status))
ZOLO_JSON_RECORD(media_sig_streaming_state, ZJ_FIELD(state), ZJ_FIELD(flags))
ZOLO_JSON_RECORD(media_sig_output_color_changed, ZJ_FIELD(name), ZJ_FIELD(brightness),
                 ZJ_FIELD(contrast), ZJ_FIELD(saturation), ZJ_FIELD(hue))
ZOLO_JSON_RECORD(media_sig_display_changed, ZJ_FIELD(name), ZJ_FIELD(resolution))
ZOLO_JSON_RECORD(media_sig_media_data_changed, ZJ_FIELD(type), ZJ_FIELD(data), ZJ_FIELD(id),
                 ZJ_FIELD(payload))
ZOLO_JSON_RECORD(media_sig_hardware_error, ZJ_FIELD(code))
ZOLO_JSON_RECORD(media_sig_media_crashed, ZJ_FIELD(code))
ZOLO_JSON_RECORD(media_sig_recorder_file_stream_changed, ZJ_FIELD(codec_param_preset))
ZOLO_JSON_RECORD(media_sig_audio_gain, ZJ_FIELD(name), ZJ_FIELD(gain))
ZOLO_JSON_RECORD(media_sig_audio_mixer, ZJ_FIELD(config_id), ZJ_FIELD(mixer))
ZOLO_JSON_RECORD(media_sig_audio_noise_reduction, ZJ_FIELD(name), ZJ_FIELD(level))
ZOLO_JSON_RECORD(media_sig_audio_xlr_channel, ZJ_FIELD(name), ZJ_FIELD(mode))
ZOLO_JSON_RECORD(media_sig_audio_output_monitor_changed, ZJ_FIELD(name), ZJ_FIELD(mode),
                 ZJ_FIELD(duration_threshold), ZJ_FIELD(level_threshold))
ZOLO_JSON_RECORD(media_sig_audio_output_monitor_warning, ZJ_FIELD(name), ZJ_FIELD(triggered))
ZOLO_JSON_RECORD(media_sig_mixer_resolution_changed, ZJ_FIELD(name), ZJ_FIELD(width),
                 ZJ_FIELD(height))
ZOLO_JSON_RECORD(media_sig_webrtc_content, ZJ_FIELD(name), ZJ_FIELD(content))

namespace {

// The status signal carries only the name and destination of each stream.
JsonHolder StatusToJson(const void* record) {
  const auto* status = static_cast<const media_sig_status*>(record);
  JsonHolder object(cJSON_CreateObject());
  cJSON_AddStringToObject(object.get(), "state", status->state);
  cJSON* streams = cJSON_AddArrayToObject(object.get(), "streams");
  for (const zm_stream& stream : status->streams) {
    cJSON* item = cJSON_CreateObject();
    cJSON_AddStringToObject(item, "name", stream.name);
    cJSON_AddStringToObject(item, "destination", stream.destination);
    cJSON_AddItemToArray(streams, item);
  }
  cJSON_AddBoolToObject(object.get(), "restart", status->restart);
  return object;
}

struct SignalJson {
  const char* name;
  const RecordType* type;  // null: written by StatusToJson
};

const std::vector<SignalJson>& Signals() {
  static const std::vector<SignalJson> signals = {
      {"status", nullptr},
      {"video_layout", &RecordTypeOf<media_sig_video_layout>()},
      {"video_background", &RecordTypeOf<media_sig_video_background>()},
      {"video_foreground", &RecordTypeOf<media_sig_video_foreground>()},
      {"video_overlay", &RecordTypeOf<media_sig_video_overlay>()},
      {"streaming_duration", &RecordTypeOf<media_sig_streaming_duration>()},
      {"audio_level", &RecordTypeOf<media_sig_audio_level>()},
      {"audio_volume", &RecordTypeOf<media_sig_audio_volume>()},
      {"audio_type", &RecordTypeOf<media_sig_audio_type>()},
      {"channel_status", &RecordTypeOf<media_sig_channel_status>()},
      {"video_file_status", &RecordTypeOf<media_sig_rec_file_status>()},
      {"video_file_updated", &RecordTypeOf<media_sig_rec_file_update>()},
      {"bookmark_added", &RecordTypeOf<media_sig_bookmark_added>()},
      {"recording_ready", &RecordTypeOf<media_sig_recording_ready>()},
      {"storage_status", &RecordTypeOf<media_sig_storage_status>()},
      {"channel_source_error", &RecordTypeOf<media_sig_channel_source_error>()},
      {"stream_error", &RecordTypeOf<media_sig_stream_error>()},
      {"bookmark_removed", &RecordTypeOf<media_sig_bookmark_removed>()},
      {"recording_bookmark_updated", &RecordTypeOf<media_sig_recording_bookmark_updated>()},
      {"record_limit_reached", &RecordTypeOf<media_sig_record_limit_reached>()},
      {"recording_created", &RecordTypeOf<media_sig_recording_created>()},
      {"stream_status", &RecordTypeOf<media_sig_stream_status>()},
      {"streaming_state", &RecordTypeOf<media_sig_streaming_state>()},
      {"output_color_changed", &RecordTypeOf<media_sig_output_color_changed>()},
      {"display_changed", &RecordTypeOf<media_sig_display_changed>()},
      {"media_data_changed", &RecordTypeOf<media_sig_media_data_changed>()},
      {"hardware_error", &RecordTypeOf<media_sig_hardware_error>()},
      {"audio_gain", &RecordTypeOf<media_sig_audio_gain>()},
      {"audio_mixer", &RecordTypeOf<media_sig_audio_mixer>()},
      {"video_system_overlay", &RecordTypeOf<media_sig_video_system_overlay>()},
      {"audio_noise_reduction", &RecordTypeOf<media_sig_audio_noise_reduction>()},
      {"audio_xlr_channel", &RecordTypeOf<media_sig_audio_xlr_channel>()},
      {"audio_xlr_power", &RecordTypeOf<media_sig_audio_xlr_power>()},
      {"media_crashed", &RecordTypeOf<media_sig_media_crashed>()},
      {"webrtc_content", &RecordTypeOf<media_sig_webrtc_content>()},
      {"mixer_resolution_changed", &RecordTypeOf<media_sig_mixer_resolution_changed>()},
      {"recorder_file_stream_changed", &RecordTypeOf<media_sig_recorder_file_stream_changed>()},
      {"audio_output_monitor_changed", &RecordTypeOf<media_sig_audio_output_monitor_changed>()},
      {"audio_output_monitor_warning", &RecordTypeOf<media_sig_audio_output_monitor_warning>()},
  };
  return signals;
}

}  // namespace

JsonHolder SignalToJson(const std::string& name, const void* record) {
  if (!record) return nullptr;
  for (const SignalJson& signal : Signals()) {
    if (name != signal.name) continue;
    return signal.type ? RecordToJson(*signal.type, record) : StatusToJson(record);
  }
  return nullptr;
}

const std::vector<std::string>& SignalNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> built;
    for (const SignalJson& signal : Signals()) built.push_back(signal.name);
    return built;
  }();
  return names;
}

}  // namespace zolo::json
