// Signal registration and dispatch: three tables keyed by "media/signal/<name>" (callback,
// parser, releaser), fixed at load time for the engine's 39 signals.
#include <zolo/media/signal.h>
#include <zolo/signals.h>

#include <atomic>
#include <string>
#include <unordered_map>

#include "common/log.h"
#include "libzolo_media/media_call.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";

constexpr char kKeyPrefix[] = "media/signal/";
constexpr size_t kKeyPrefixLength = sizeof kKeyPrefix - 1;

struct SignalEntry {
  const char* name;
  void* (*parse)(const char*);
  void (*release)(void*);
};

#define ENTRY(name, stem) \
  { name, media_sig_##stem##_parser, media_sig_##stem##_releaser }
constexpr SignalEntry kSignals[] = {
    ENTRY("status", status),
    ENTRY("video_layout", video_layout),
    ENTRY("video_background", video_background),
    ENTRY("video_foreground", video_foreground),
    ENTRY("video_overlay", video_overlay),
    ENTRY("streaming_duration", streaming_duration),
    ENTRY("audio_level", audio_level),
    ENTRY("audio_volume", audio_volume),
    ENTRY("audio_type", audio_type),
    ENTRY("channel_status", channel_status),
    ENTRY("video_file_status", rec_file_status),
    ENTRY("video_file_updated", rec_file_update),
    ENTRY("bookmark_added", bookmark_added),
    ENTRY("recording_ready", recording_ready),
    ENTRY("storage_status", storage_status),
    ENTRY("channel_source_error", channel_source_error),
    ENTRY("stream_error", stream_error),
    ENTRY("bookmark_removed", bookmark_removed),
    ENTRY("recording_bookmark_updated", recording_bookmark_updated),
    ENTRY("record_limit_reached", record_limit_reached),
    ENTRY("recording_created", recording_created),
    ENTRY("stream_status", stream_status),
    ENTRY("streaming_state", streaming_state),
    ENTRY("output_color_changed", output_color_changed),
    ENTRY("display_changed", display_changed),
    ENTRY("media_data_changed", media_data_changed),
    ENTRY("hardware_error", hardware_error),
    ENTRY("audio_gain", audio_gain),
    ENTRY("audio_mixer", audio_mixer),
    ENTRY("video_system_overlay", video_system_overlay),
    ENTRY("audio_noise_reduction", audio_noise_reduction),
    ENTRY("audio_xlr_channel", audio_xlr_channel),
    ENTRY("audio_xlr_power", audio_xlr_power),
    ENTRY("media_crashed", media_crashed),
    ENTRY("webrtc_content", webrtc_content),
    ENTRY("mixer_resolution_changed", mixer_resolution_changed),
    ENTRY("recorder_file_stream_changed", recorder_file_stream_changed),
    ENTRY("audio_output_monitor_changed", audio_output_monitor_changed),
    ENTRY("audio_output_monitor_warning", audio_output_monitor_warning),
};
#undef ENTRY
constexpr size_t kSignalCount = sizeof kSignals / sizeof kSignals[0];
static_assert(kSignalCount == 39);

// Callbacks live in atomics so that (un)registering while signals arrive is never a torn
// read; the tables themselves never change after load.
std::atomic<zm_signal_callback> g_callbacks[kSignalCount];

const std::unordered_map<std::string, size_t>& KeyIndex() {
  static const std::unordered_map<std::string, size_t> index = [] {
    std::unordered_map<std::string, size_t> map;
    for (size_t i = 0; i < kSignalCount; ++i)
      map.emplace(kKeyPrefix + std::string(kSignals[i].name), i);
    return map;
  }();
  return index;
}

// Index of the signal whose key is `key`, or -1.
long IndexOf(const std::string& key) {
  const auto& index = KeyIndex();
  auto it = index.find(key);
  return it == index.end() ? -1 : static_cast<long>(it->second);
}

}  // namespace

int zm_register_signal(const char* name, zm_signal_callback callback) {
  zolo::RequireText(name);
  long i = IndexOf(kKeyPrefix + std::string(name));
  if (i < 0) return -3;
  g_callbacks[i].store(callback);
  return bus_signal_subscribe(zolo::MediaBusClient(), "media", name, zm_signal_handler);
}

int zm_unregister_signal(const char* name) {
  zolo::RequireText(name);
  long i = IndexOf(kKeyPrefix + std::string(name));
  if (i < 0) return -3;
  int result = bus_signal_unsubscribe(zolo::MediaBusClient(), "media", name);
  g_callbacks[i].store(nullptr);
  return result;
}

void zm_signal_handler(bus_client* /*client*/, void* user_data, const char* path, void* payload,
                       int /*length*/) {
  if (path == nullptr) return;
  std::string key(path);
  size_t slash = key.rfind('/');
  if (slash != std::string::npos) key.resize(slash);
  long i = IndexOf(key);
  if (i < 0 || g_callbacks[i].load() == nullptr) return;
  const SignalEntry& entry = kSignals[i];
  const char* text = static_cast<const char*>(payload);
  bool parsed = zolo::MediaOption(0, 1) != 0;
  void* record = nullptr;
  const char* name =
      key.compare(0, kKeyPrefixLength, kKeyPrefix) == 0 ? key.c_str() + kKeyPrefixLength : nullptr;
  // A callback that throws must not end the signal thread: the record is released and the
  // next signal is delivered as usual.
  try {
    if (parsed) {
      record = entry.parse(text);
      if (record == nullptr) return;
    }
    zm_signal_callback callback = g_callbacks[i].load();
    if (callback != nullptr) callback(name, parsed ? record : payload, user_data);
  } catch (const std::exception& e) {
    ZLOG(0, "callback of %s threw: %s", name ? name : "", e.what());
  } catch (...) {
    ZLOG(0, "callback of %s threw", name ? name : "");
  }
  if (record != nullptr) entry.release(record);
}
