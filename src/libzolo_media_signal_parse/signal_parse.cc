// Signal payload parsers: each signal's JSON keys are described by a table of fields that
// one generic parser walks; the few irregular signals add a small hook.
#include <cjson/cJSON.h>
#include <zolo/signals.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include "common/json_holder.h"

namespace {

enum class Kind {
  kInt,        // JSON number, integer value
  kTruncated,  // JSON number, floating-point value truncated toward zero
  kFlag,       // JSON number, true only when it equals 1
  kText,       // JSON string, cut to the field's capacity
  kPresent,    // must be present; not copied
};

struct Field {
  const char* key;
  Kind kind;
  size_t offset;
  size_t capacity;
  bool required;
};

#define INT(R, key, member)                       \
  Field {                                         \
    key, Kind::kInt, offsetof(R, member), 0, true \
  }
#define TRUNCATED(R, key, member)                       \
  Field {                                               \
    key, Kind::kTruncated, offsetof(R, member), 0, true \
  }
#define FLAG(R, key, member)                       \
  Field {                                          \
    key, Kind::kFlag, offsetof(R, member), 0, true \
  }
#define TEXT(R, key, member)                                       \
  Field {                                                          \
    key, Kind::kText, offsetof(R, member), sizeof(R::member), true \
  }
#define OPTIONAL(field)                                        \
  Field {                                                      \
    field.key, field.kind, field.offset, field.capacity, false \
  }
#define PRESENT(key)                \
  Field {                           \
    key, Kind::kPresent, 0, 0, true \
  }

// Copies `text` into `out` as "%s" formatting into `capacity` bytes would: cut to
// capacity - 1 and always terminated.
void CopyText(char* out, size_t capacity, const char* text) {
  if (capacity == 0) return;
  size_t length = strnlen(text, capacity - 1);
  std::memcpy(out, text, length);
  out[length] = '\0';
}

using Json = zolo::JsonHolder;

Json ParseObject(const char* payload) {
  if (payload == nullptr) return nullptr;
  Json root(cJSON_Parse(payload));
  if (!cJSON_IsObject(root.get())) return nullptr;
  return root;
}

bool Matches(const cJSON* item, Kind kind) {
  return kind == Kind::kPresent ||
         (kind == Kind::kText ? cJSON_IsString(item) != 0 : cJSON_IsNumber(item) != 0);
}

// True when every required key is present, whatever its value: a value of another kind
// reads as 0 or empty text, but never drops the signal.
template <size_t N>
bool Complete(const cJSON* root, const Field (&fields)[N]) {
  for (const Field& field : fields)
    if (field.required && cJSON_GetObjectItem(root, field.key) == nullptr) return false;
  return true;
}

// Copies the fields into `record`; fields that are absent or of another kind stay 0 or empty.
template <size_t N>
void Fill(const cJSON* root, const Field (&fields)[N], void* record) {
  auto* base = static_cast<unsigned char*>(record);
  for (const Field& field : fields) {
    const cJSON* item = cJSON_GetObjectItem(root, field.key);
    if (item == nullptr || !Matches(item, field.kind)) continue;
    unsigned char* at = base + field.offset;
    switch (field.kind) {
      case Kind::kInt:
        *reinterpret_cast<int*>(at) = item->valueint;
        break;
      case Kind::kTruncated: {
        double value = item->valuedouble;
        *reinterpret_cast<int*>(at) = value >= 2147483647.0    ? 2147483647
                                      : value <= -2147483648.0 ? -2147483647 - 1
                                                               : static_cast<int>(value);
        break;
      }
      case Kind::kFlag:
        *reinterpret_cast<bool*>(at) = item->valuedouble == 1;
        break;
      case Kind::kText:
        CopyText(reinterpret_cast<char*>(at), field.capacity, item->valuestring);
        break;
      case Kind::kPresent:
        break;
    }
  }
}

// The generic parser: a record of type R from the fields, or null. `finish` may complete the
// record from the parsed JSON and refuse it by returning false.
template <class R, size_t N, class Finish>
void* Parse(const char* payload, const Field (&fields)[N], Finish finish) {
  Json root = ParseObject(payload);
  if (!root || !Complete(root.get(), fields)) return nullptr;
  try {
    std::unique_ptr<R> record(new R());
    Fill(root.get(), fields, record.get());
    if (!finish(root.get(), record.get())) return nullptr;
    return record.release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

template <class R, size_t N>
void* Parse(const char* payload, const Field (&fields)[N]) {
  return Parse<R>(payload, fields, [](const cJSON*, R*) { return true; });
}

template <class R>
void Release(void* record) {
  delete static_cast<R*>(record);
}

using VideoLayout = media_sig_video_layout;
constexpr Field kVideoLayout[] = {INT(VideoLayout, "Id", id), INT(VideoLayout, "Group", group),
                                  TEXT(VideoLayout, "Mixer", mixer)};

using VideoAsset = media_sig_video_background;
constexpr Field kVideoAsset[] = {INT(VideoAsset, "Id", id), TEXT(VideoAsset, "Mixer", mixer)};

using Duration = media_sig_streaming_duration;
constexpr Field kDuration[] = {TEXT(Duration, "Name", name), INT(Duration, "Duration", duration),
                               INT(Duration, "Type", type)};

using AudioLevel = media_sig_audio_level;
constexpr Field kAudioLevel[] = {TEXT(AudioLevel, "Name", name), INT(AudioLevel, "Level", level),
                                 INT(AudioLevel, "Left", left), INT(AudioLevel, "Right", right)};

// "Mute" is not checked for: senders always include it; absent reads as not muted.
using AudioVolume = media_sig_audio_volume;
constexpr Field kAudioVolume[] = {TEXT(AudioVolume, "Name", name),
                                  INT(AudioVolume, "Volume", volume),
                                  OPTIONAL(FLAG(AudioVolume, "Mute", mute))};

using AudioType = media_sig_audio_type;
constexpr Field kAudioType[] = {TEXT(AudioType, "Name", name), INT(AudioType, "Type", type)};

using ChannelStatus = media_sig_channel_status;
constexpr Field kChannelStatus[] = {INT(ChannelStatus, "Id", id), TEXT(ChannelStatus, "Name", name),
                                    INT(ChannelStatus, "Status", status),
                                    FLAG(ChannelStatus, "Capture", capture)};

// "Stream" must be present, but both texts come from "Url".
using RecFileStatus = media_sig_rec_file_status;
constexpr Field kRecFileStatus[] = {PRESENT("Stream"),
                                    TEXT(RecFileStatus, "Url", stream),
                                    TEXT(RecFileStatus, "Url", url),
                                    TRUNCATED(RecFileStatus, "Status", status),
                                    TRUNCATED(RecFileStatus, "MaxSize", max_size),
                                    TRUNCATED(RecFileStatus, "Backup", backup)};

using RecFileUpdate = media_sig_rec_file_update;
constexpr Field kRecFileUpdate[] = {
    OPTIONAL(TEXT(RecFileUpdate, "Stream", stream)), TEXT(RecFileUpdate, "Url", url),
    INT(RecFileUpdate, "Offset", offset), INT(RecFileUpdate, "Size", size),
    INT(RecFileUpdate, "Backup", backup)};

using BookmarkAdded = media_sig_bookmark_added;
constexpr Field kBookmarkAdded[] = {INT(BookmarkAdded, "Time", time),
                                    TEXT(BookmarkAdded, "Text", text),
                                    INT(BookmarkAdded, "Mode", mode)};

using BookmarkRemoved = media_sig_bookmark_removed;
constexpr Field kBookmarkRemoved[] = {INT(BookmarkRemoved, "Time", time),
                                      TEXT(BookmarkRemoved, "Text", text)};

using RecordingReady = media_sig_recording_ready;
constexpr Field kRecordingReady[] = {INT(RecordingReady, "Id", id),
                                     TEXT(RecordingReady, "Name", name)};

using StorageStatus = media_sig_storage_status;
constexpr Field kStorageStatus[] = {INT(StorageStatus, "Status", status),
                                    TEXT(StorageStatus, "Storage", storage),
                                    INT(StorageStatus, "Index", index)};

using SourceError = media_sig_channel_source_error;
constexpr Field kSourceError[] = {
    TEXT(SourceError, "Channel", channel), INT(SourceError, "SourceType", source_type),
    TEXT(SourceError, "Address", address), INT(SourceError, "Code", code)};

using StreamError = media_sig_stream_error;
constexpr Field kStreamError[] = {TEXT(StreamError, "Stream", stream),
                                  TEXT(StreamError, "Url", url), INT(StreamError, "Code", code)};

using BookmarkUpdated = media_sig_recording_bookmark_updated;
constexpr Field kBookmarkUpdated[] = {TEXT(BookmarkUpdated, "Url", url),
                                      INT(BookmarkUpdated, "Code", code)};

using RecordLimit = media_sig_record_limit_reached;
constexpr Field kRecordLimit[] = {INT(RecordLimit, "Type", type), TEXT(RecordLimit, "Name", name),
                                  INT(RecordLimit, "Criteria", criteria),
                                  INT(RecordLimit, "Index", index)};

using StreamStatus = media_sig_stream_status;
constexpr Field kStreamStatus[] = {TEXT(StreamStatus, "Name", name),
                                   TEXT(StreamStatus, "Status", status)};

using StreamingState = media_sig_streaming_state;
constexpr Field kStreamingState[] = {TEXT(StreamingState, "State", state),
                                     TEXT(StreamingState, "Flags", flags)};

using OutputColor = media_sig_output_color_changed;
constexpr Field kOutputColor[] = {
    TEXT(OutputColor, "Name", name), INT(OutputColor, "Brightness", brightness),
    INT(OutputColor, "Contrast", contrast), INT(OutputColor, "Saturation", saturation),
    INT(OutputColor, "Hue", hue)};

using DisplayChanged = media_sig_display_changed;
constexpr Field kDisplayChanged[] = {TEXT(DisplayChanged, "Name", name),
                                     INT(DisplayChanged, "Resolution", resolution)};

using DataChanged = media_sig_media_data_changed;
constexpr Field kDataChanged[] = {INT(DataChanged, "Type", type), INT(DataChanged, "Data", data),
                                  INT(DataChanged, "Id", id),
                                  OPTIONAL(TEXT(DataChanged, "Payload", payload))};

using HardwareError = media_sig_hardware_error;
constexpr Field kHardwareError[] = {INT(HardwareError, "Code", code)};

using MediaCrashed = media_sig_media_crashed;
constexpr Field kMediaCrashed[] = {INT(MediaCrashed, "Code", code)};

using FileStreamChanged = media_sig_recorder_file_stream_changed;
constexpr Field kFileStreamChanged[] = {
    INT(FileStreamChanged, "CodecParamPreset", codec_param_preset)};

using AudioGain = media_sig_audio_gain;
constexpr Field kAudioGain[] = {TEXT(AudioGain, "Name", name), INT(AudioGain, "Gain", gain)};

using AudioMixer = media_sig_audio_mixer;
constexpr Field kAudioMixer[] = {INT(AudioMixer, "Config_id", config_id),
                                 TEXT(AudioMixer, "Mixer", mixer)};

using NoiseReduction = media_sig_audio_noise_reduction;
constexpr Field kNoiseReduction[] = {TEXT(NoiseReduction, "Name", name),
                                     INT(NoiseReduction, "Level", level)};

using XlrChannel = media_sig_audio_xlr_channel;
constexpr Field kXlrChannel[] = {TEXT(XlrChannel, "Name", name), INT(XlrChannel, "Mode", mode)};

using MonitorChanged = media_sig_audio_output_monitor_changed;
constexpr Field kMonitorChanged[] = {TEXT(MonitorChanged, "Name", name),
                                     INT(MonitorChanged, "Mode", mode),
                                     INT(MonitorChanged, "Duration_Threshold", duration_threshold),
                                     INT(MonitorChanged, "Level_Threshold", level_threshold)};

using MonitorWarning = media_sig_audio_output_monitor_warning;
constexpr Field kMonitorWarning[] = {TEXT(MonitorWarning, "Name", name),
                                     INT(MonitorWarning, "Triggered", triggered)};

using MixerResolution = media_sig_mixer_resolution_changed;
constexpr Field kMixerResolution[] = {TEXT(MixerResolution, "Name", name),
                                      INT(MixerResolution, "Width", width),
                                      INT(MixerResolution, "Height", height)};

using WebrtcContent = media_sig_webrtc_content;
constexpr Field kWebrtcContent[] = {TEXT(WebrtcContent, "Name", name),
                                    // Copied by CopyContent below.
                                    PRESENT("Content")};

// "Content" has no fixed limit: it gets an allocation of its own (empty when not a string).
bool CopyContent(const cJSON* root, WebrtcContent* record) {
  const cJSON* item = cJSON_GetObjectItem(root, "Content");
  const char* content = cJSON_IsString(item) ? item->valuestring : "";
  size_t length = std::strlen(content);
  record->content = new char[length + 1]();
  std::memcpy(record->content, content, length);
  return true;
}

void ReleaseWebrtcContent(void* record) {
  auto* content = static_cast<WebrtcContent*>(record);
  if (content != nullptr) delete[] content->content;
  delete content;
}

// "Restart" is optional (false when absent); each "Streams" item gives one stream record
// with its "Name" and "Destination" (empty when missing). "Streams" must be present; a value
// that is not an array gives no streams.
using Status = media_sig_status;
constexpr Field kStatus[] = {TEXT(Status, "State", state),
                             Field{"Streams", Kind::kPresent, 0, 0, true}};

bool CopyStreams(const cJSON* root, Status* record) {
  const cJSON* streams = cJSON_GetObjectItem(root, "Streams");
  if (cJSON_IsArray(streams)) {
    // Sized once: every record value-initialised (all zero) in one allocation.
    record->streams.resize(static_cast<size_t>(cJSON_GetArraySize(streams)));
    zm_stream* stream = record->streams.data();
    for (const cJSON* item = streams->child; item != nullptr; item = item->next, ++stream) {
      const cJSON* name = cJSON_GetObjectItem(item, "Name");
      const cJSON* destination = cJSON_GetObjectItem(item, "Destination");
      if (cJSON_IsString(name)) CopyText(stream->name, sizeof stream->name, name->valuestring);
      if (cJSON_IsString(destination))
        CopyText(stream->destination, sizeof stream->destination, destination->valuestring);
    }
  }
  const cJSON* restart = cJSON_GetObjectItem(root, "Restart");
  record->restart = cJSON_IsTrue(restart) || (cJSON_IsNumber(restart) && restart->valueint != 0);
  return true;
}

}  // namespace

#define SIGNAL(stem, Record, fields)                     \
  void* media_sig_##stem##_parser(const char* payload) { \
    return Parse<Record>(payload, fields);               \
  }                                                      \
  void media_sig_##stem##_releaser(void* record) {       \
    Release<Record>(record);                             \
  }

SIGNAL(video_layout, VideoLayout, kVideoLayout)
SIGNAL(video_background, VideoAsset, kVideoAsset)
SIGNAL(video_foreground, VideoAsset, kVideoAsset)
SIGNAL(video_overlay, VideoAsset, kVideoAsset)
SIGNAL(video_system_overlay, VideoAsset, kVideoAsset)
SIGNAL(streaming_duration, Duration, kDuration)
SIGNAL(audio_level, AudioLevel, kAudioLevel)
SIGNAL(audio_volume, AudioVolume, kAudioVolume)
SIGNAL(audio_type, AudioType, kAudioType)
SIGNAL(channel_status, ChannelStatus, kChannelStatus)
SIGNAL(rec_file_status, RecFileStatus, kRecFileStatus)
SIGNAL(rec_file_update, RecFileUpdate, kRecFileUpdate)
SIGNAL(bookmark_added, BookmarkAdded, kBookmarkAdded)
SIGNAL(bookmark_removed, BookmarkRemoved, kBookmarkRemoved)
SIGNAL(recording_ready, RecordingReady, kRecordingReady)
SIGNAL(recording_created, RecordingReady, kRecordingReady)
SIGNAL(storage_status, StorageStatus, kStorageStatus)
SIGNAL(channel_source_error, SourceError, kSourceError)
SIGNAL(stream_error, StreamError, kStreamError)
SIGNAL(recording_bookmark_updated, BookmarkUpdated, kBookmarkUpdated)
SIGNAL(record_limit_reached, RecordLimit, kRecordLimit)
SIGNAL(stream_status, StreamStatus, kStreamStatus)
SIGNAL(streaming_state, StreamingState, kStreamingState)
SIGNAL(output_color_changed, OutputColor, kOutputColor)
SIGNAL(display_changed, DisplayChanged, kDisplayChanged)
SIGNAL(media_data_changed, DataChanged, kDataChanged)
SIGNAL(hardware_error, HardwareError, kHardwareError)
SIGNAL(media_crashed, MediaCrashed, kMediaCrashed)
SIGNAL(recorder_file_stream_changed, FileStreamChanged, kFileStreamChanged)
SIGNAL(audio_gain, AudioGain, kAudioGain)
SIGNAL(audio_mixer, AudioMixer, kAudioMixer)
SIGNAL(audio_noise_reduction, NoiseReduction, kNoiseReduction)
SIGNAL(audio_xlr_channel, XlrChannel, kXlrChannel)
SIGNAL(audio_xlr_power, XlrChannel, kXlrChannel)
SIGNAL(audio_output_monitor_changed, MonitorChanged, kMonitorChanged)
SIGNAL(audio_output_monitor_warning, MonitorWarning, kMonitorWarning)
SIGNAL(mixer_resolution_changed, MixerResolution, kMixerResolution)

void* media_sig_webrtc_content_parser(const char* payload) {
  return Parse<WebrtcContent>(payload, kWebrtcContent, CopyContent);
}
void media_sig_webrtc_content_releaser(void* record) {
  ReleaseWebrtcContent(record);
}

void* media_sig_status_parser(const char* payload) {
  return Parse<Status>(payload, kStatus, CopyStreams);
}
void media_sig_status_releaser(void* record) {
  Release<Status>(record);
}
