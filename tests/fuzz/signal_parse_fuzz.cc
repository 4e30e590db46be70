// Feeds arbitrary bytes, as zero-terminated text, to every signal parser and releaser.
#include <zolo/signals.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

struct Pair {
  void* (*parse)(const char*);
  void (*release)(void*);
};

#define PAIR(stem)                                         \
  Pair {                                                   \
    media_sig_##stem##_parser, media_sig_##stem##_releaser \
  }
const Pair kPairs[] = {PAIR(status),
                       PAIR(video_layout),
                       PAIR(video_background),
                       PAIR(video_foreground),
                       PAIR(video_overlay),
                       PAIR(streaming_duration),
                       PAIR(audio_level),
                       PAIR(audio_volume),
                       PAIR(audio_type),
                       PAIR(channel_status),
                       PAIR(rec_file_status),
                       PAIR(rec_file_update),
                       PAIR(bookmark_added),
                       PAIR(recording_ready),
                       PAIR(storage_status),
                       PAIR(channel_source_error),
                       PAIR(stream_error),
                       PAIR(bookmark_removed),
                       PAIR(recording_bookmark_updated),
                       PAIR(record_limit_reached),
                       PAIR(recording_created),
                       PAIR(stream_status),
                       PAIR(streaming_state),
                       PAIR(output_color_changed),
                       PAIR(display_changed),
                       PAIR(media_data_changed),
                       PAIR(hardware_error),
                       PAIR(audio_gain),
                       PAIR(audio_mixer),
                       PAIR(video_system_overlay),
                       PAIR(audio_noise_reduction),
                       PAIR(audio_xlr_channel),
                       PAIR(audio_xlr_power),
                       PAIR(media_crashed),
                       PAIR(webrtc_content),
                       PAIR(mixer_resolution_changed),
                       PAIR(recorder_file_stream_changed),
                       PAIR(audio_output_monitor_changed),
                       PAIR(audio_output_monitor_warning)};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  for (const Pair& pair : kPairs) pair.release(pair.parse(text.c_str()));
  return 0;
}
