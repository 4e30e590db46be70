// Records of the media engine's signals and their parsers and releasers.
//
// A parser takes a signal's JSON payload and returns a newly allocated record (as void*), or
// null when the payload is not JSON, lacks a required key or has a value of the wrong type.
// The matching releaser frees the record and everything it owns. Parsers and releasers are
// thread-safe. Texts are zero-terminated and cut to their capacity.
#pragma once

#include <zolo/export.h>
#include <zolo/media/streams.h>

#include <vector>

struct media_sig_video_layout {
  int id;
  int group;
  char mixer[512];
};

// Also the record of "video_foreground", "video_overlay" and "video_system_overlay".
struct media_sig_video_background {
  int id;
  char mixer[512];
};
typedef media_sig_video_background media_sig_video_foreground;
typedef media_sig_video_background media_sig_video_overlay;
typedef media_sig_video_background media_sig_video_system_overlay;

struct media_sig_streaming_duration {
  char name[512];
  int duration;
  int type;
};

struct media_sig_audio_level {
  char name[512];
  int level;
  int left;
  int right;
};

struct media_sig_audio_volume {
  char name[512];
  int volume;
  bool mute;
};

struct media_sig_audio_type {
  char name[512];
  int type;
};

struct media_sig_channel_status {
  int id;
  char name[512];
  int status;
  bool capture;
};

// "video_file_status": `stream` repeats the "Url" value.
struct media_sig_rec_file_status {
  char stream[512];
  char url[2048];
  int status;
  int max_size;
  int backup;
};

// "video_file_updated": `stream` is empty when the payload has no "Stream".
struct media_sig_rec_file_update {
  char stream[512];
  char url[2048];
  int offset;
  int size;
  int backup;
};

struct media_sig_bookmark_added {
  int time;
  char text[512];
  int mode;
};

struct media_sig_bookmark_removed {
  int time;
  char text[512];
};

// Also the record of "recording_created".
struct media_sig_recording_ready {
  int id;
  char name[512];
};
typedef media_sig_recording_ready media_sig_recording_created;

struct media_sig_storage_status {
  int status;
  char storage[512];
  int index;
};

struct media_sig_channel_source_error {
  char channel[512];
  int source_type;
  char address[2048];
  int code;
};

struct media_sig_stream_error {
  char stream[512];
  char url[2048];
  int code;
};

struct media_sig_recording_bookmark_updated {
  char url[2048];
  int code;
};

struct media_sig_record_limit_reached {
  int type;
  char name[512];
  int criteria;
  int index;
};

struct media_sig_stream_status {
  char name[512];
  char status[512];
};

struct media_sig_streaming_state {
  char state[512];
  char flags[512];
};

struct media_sig_output_color_changed {
  char name[512];
  int brightness;
  int contrast;
  int saturation;
  int hue;
};

struct media_sig_display_changed {
  char name[512];
  int resolution;
};

// `payload` is empty when the signal carries no "Payload".
struct media_sig_media_data_changed {
  int type;
  int data;
  int id;
  char payload[4096];
};

struct media_sig_hardware_error {
  int code;
};

struct media_sig_media_crashed {
  int code;
};

struct media_sig_recorder_file_stream_changed {
  int codec_param_preset;
};

struct media_sig_audio_gain {
  char name[512];
  int gain;
};

struct media_sig_audio_mixer {
  int config_id;
  char mixer[512];
};

struct media_sig_audio_noise_reduction {
  char name[512];
  int level;
};

// Also the record of "audio_xlr_power".
struct media_sig_audio_xlr_channel {
  char name[512];
  int mode;
};
typedef media_sig_audio_xlr_channel media_sig_audio_xlr_power;

struct media_sig_audio_output_monitor_changed {
  char name[512];
  int mode;
  int duration_threshold;
  int level_threshold;
};

struct media_sig_audio_output_monitor_warning {
  char name[512];
  int triggered;
};

struct media_sig_mixer_resolution_changed {
  char name[512];
  int width;
  int height;
};

// `content` is a separately allocated copy of the whole "Content" text.
struct media_sig_webrtc_content {
  char name[512];
  char* content;
};

// One zm_stream per item of "Streams", with only `name` and `destination` filled.
struct media_sig_status {
  char state[512];
  std::vector<zm_stream> streams;
  bool restart;
};

// Parsers and releasers, one pair per signal (two signals use the stems rec_file_status
// and rec_file_update). Each parser returns a record of the type of the same stem.
ZM_EXPORT void* media_sig_status_parser(const char* payload);
ZM_EXPORT void media_sig_status_releaser(void* record);
ZM_EXPORT void* media_sig_video_layout_parser(const char* payload);
ZM_EXPORT void media_sig_video_layout_releaser(void* record);
ZM_EXPORT void* media_sig_video_background_parser(const char* payload);
ZM_EXPORT void media_sig_video_background_releaser(void* record);
ZM_EXPORT void* media_sig_video_foreground_parser(const char* payload);
ZM_EXPORT void media_sig_video_foreground_releaser(void* record);
ZM_EXPORT void* media_sig_video_overlay_parser(const char* payload);
ZM_EXPORT void media_sig_video_overlay_releaser(void* record);
ZM_EXPORT void* media_sig_streaming_duration_parser(const char* payload);
ZM_EXPORT void media_sig_streaming_duration_releaser(void* record);
ZM_EXPORT void* media_sig_audio_level_parser(const char* payload);
ZM_EXPORT void media_sig_audio_level_releaser(void* record);
ZM_EXPORT void* media_sig_audio_volume_parser(const char* payload);
ZM_EXPORT void media_sig_audio_volume_releaser(void* record);
ZM_EXPORT void* media_sig_audio_type_parser(const char* payload);
ZM_EXPORT void media_sig_audio_type_releaser(void* record);
ZM_EXPORT void* media_sig_channel_status_parser(const char* payload);
ZM_EXPORT void media_sig_channel_status_releaser(void* record);
ZM_EXPORT void* media_sig_rec_file_status_parser(const char* payload);
ZM_EXPORT void media_sig_rec_file_status_releaser(void* record);
ZM_EXPORT void* media_sig_rec_file_update_parser(const char* payload);
ZM_EXPORT void media_sig_rec_file_update_releaser(void* record);
ZM_EXPORT void* media_sig_bookmark_added_parser(const char* payload);
ZM_EXPORT void media_sig_bookmark_added_releaser(void* record);
ZM_EXPORT void* media_sig_recording_ready_parser(const char* payload);
ZM_EXPORT void media_sig_recording_ready_releaser(void* record);
ZM_EXPORT void* media_sig_storage_status_parser(const char* payload);
ZM_EXPORT void media_sig_storage_status_releaser(void* record);
ZM_EXPORT void* media_sig_channel_source_error_parser(const char* payload);
ZM_EXPORT void media_sig_channel_source_error_releaser(void* record);
ZM_EXPORT void* media_sig_stream_error_parser(const char* payload);
ZM_EXPORT void media_sig_stream_error_releaser(void* record);
ZM_EXPORT void* media_sig_bookmark_removed_parser(const char* payload);
ZM_EXPORT void media_sig_bookmark_removed_releaser(void* record);
ZM_EXPORT void* media_sig_recording_bookmark_updated_parser(const char* payload);
ZM_EXPORT void media_sig_recording_bookmark_updated_releaser(void* record);
ZM_EXPORT void* media_sig_record_limit_reached_parser(const char* payload);
ZM_EXPORT void media_sig_record_limit_reached_releaser(void* record);
ZM_EXPORT void* media_sig_recording_created_parser(const char* payload);
ZM_EXPORT void media_sig_recording_created_releaser(void* record);
ZM_EXPORT void* media_sig_stream_status_parser(const char* payload);
ZM_EXPORT void media_sig_stream_status_releaser(void* record);
ZM_EXPORT void* media_sig_streaming_state_parser(const char* payload);
ZM_EXPORT void media_sig_streaming_state_releaser(void* record);
ZM_EXPORT void* media_sig_output_color_changed_parser(const char* payload);
ZM_EXPORT void media_sig_output_color_changed_releaser(void* record);
ZM_EXPORT void* media_sig_display_changed_parser(const char* payload);
ZM_EXPORT void media_sig_display_changed_releaser(void* record);
ZM_EXPORT void* media_sig_media_data_changed_parser(const char* payload);
ZM_EXPORT void media_sig_media_data_changed_releaser(void* record);
ZM_EXPORT void* media_sig_hardware_error_parser(const char* payload);
ZM_EXPORT void media_sig_hardware_error_releaser(void* record);
ZM_EXPORT void* media_sig_audio_gain_parser(const char* payload);
ZM_EXPORT void media_sig_audio_gain_releaser(void* record);
ZM_EXPORT void* media_sig_audio_mixer_parser(const char* payload);
ZM_EXPORT void media_sig_audio_mixer_releaser(void* record);
ZM_EXPORT void* media_sig_video_system_overlay_parser(const char* payload);
ZM_EXPORT void media_sig_video_system_overlay_releaser(void* record);
ZM_EXPORT void* media_sig_audio_noise_reduction_parser(const char* payload);
ZM_EXPORT void media_sig_audio_noise_reduction_releaser(void* record);
ZM_EXPORT void* media_sig_audio_xlr_channel_parser(const char* payload);
ZM_EXPORT void media_sig_audio_xlr_channel_releaser(void* record);
ZM_EXPORT void* media_sig_audio_xlr_power_parser(const char* payload);
ZM_EXPORT void media_sig_audio_xlr_power_releaser(void* record);
ZM_EXPORT void* media_sig_media_crashed_parser(const char* payload);
ZM_EXPORT void media_sig_media_crashed_releaser(void* record);
ZM_EXPORT void* media_sig_webrtc_content_parser(const char* payload);
ZM_EXPORT void media_sig_webrtc_content_releaser(void* record);
ZM_EXPORT void* media_sig_mixer_resolution_changed_parser(const char* payload);
ZM_EXPORT void media_sig_mixer_resolution_changed_releaser(void* record);
ZM_EXPORT void* media_sig_recorder_file_stream_changed_parser(const char* payload);
ZM_EXPORT void media_sig_recorder_file_stream_changed_releaser(void* record);
ZM_EXPORT void* media_sig_audio_output_monitor_changed_parser(const char* payload);
ZM_EXPORT void media_sig_audio_output_monitor_changed_releaser(void* record);
ZM_EXPORT void* media_sig_audio_output_monitor_warning_parser(const char* payload);
ZM_EXPORT void media_sig_audio_output_monitor_warning_releaser(void* record);
