// Audio ports: the device's audio inputs and outputs, their settings in the database and
// their live state in the engine, and the engine commands that change them.
#pragma once

#include <zolo/export.h>

#include <vector>

// Selects an audio mixer: 0 "zolo://audio/mixer/0" (feeds the line output), 1
// "zolo://audio/mixer/1" (feeds the USB output).
enum ZM_AUDIO_MIXER : int { ZM_AUDIO_MIXER_MAIN = 0, ZM_AUDIO_MIXER_USB = 1 };

// One audio port: the settings stored with its stream merged with the engine's live state.
// Flat and zeroed before it is filled; texts are cut to their capacity. Members that do not
// apply to the port's direction stay 0.
struct zm_audio_info {
  char name[512];         // the port's stream name
  int volume;             // stored "volume", -1 when unset
  int mute;               // stored "mute", -1 when unset
  int level;              // engine "level"
  int audio_type;         // stored "audio_type", -1 when unset
  int mixer_member;       // outputs: 1 / 0 whether the output's audio mixer mixes the
                          // "Audio-Mix" channel ("Audio-Usb" when there is none); -1 when the
                          // output's channel is not an "Audio-Out" channel or no mixer feeds it
  int status;             // inputs: engine "status", -1 when absent
  int mode;               // inputs: engine "mode", -1 when absent
  char version[512];      // inputs: engine "version", empty when absent
  char device_name[512];  // inputs: engine "device_name", empty when absent
  int gain;               // inputs: stored "gain", -100 when unset (outside any real gain)
  int noise_reduction;    // inputs: stored "noise_reduction", -1 when unset
  int xlr_channel;        // inputs: stored "xlr_channel", -1 when unset
  int xlr_power;          // inputs: stored "xlr_power", -1 when unset
  int left;               // engine "left"
  int right;              // engine "right"
  int monitor_mode;       // outputs: stored "monitor_mode", -1 when unset
  int monitor_duration_threshold;  // outputs: stored "monitor_duration_threshold", -1
  int monitor_level_threshold;     // outputs: stored "monitor_level_threshold", -1
  int warning_triggered;           // outputs: 1 when the engine's "warning_triggered" is set
};

// Port reads: one engine call ("get_audio_input_info" / "get_audio_output_info") and the
// database. Append one record per port (never clearing `out`) that has a stream named
// `name` (null: every port) and an object in the engine's reply. Inputs are the "audio"
// and "playback" streams without a destination, outputs the "audio" streams with one.
// Engine members that are missing or not numbers read as 0 ("level", "left", "right",
// "warning_triggered") or as the defaults above; a port member that is not an object is
// skipped. 0; -3 when `out` is null; the engine call's mapped result when it fails; -5
// when the stream queries fail (inputs: both of them).
ZM_EXPORT int zm_get_audio_input(const char* name, std::vector<zm_audio_info>* out);
ZM_EXPORT int zm_get_audio_output(const char* name, std::vector<zm_audio_info>* out);

// Port commands. Each sends one engine method {"name": name, ...} and returns its mapped
// result (unknown ports and values the engine refuses come back from the engine). Refused
// with -3 before anything is sent when `name` is null or empty, or as noted.
// "set_audio_input_volume" {"volume", "mute"}; -3 when both are negative (a negative one
// alone leaves that setting as it is).
ZM_EXPORT int zm_set_audio_input(const char* name, int volume, int mute);
// "set_audio_input_type" {"type"}; -3 when `type` is below 1.
ZM_EXPORT int zm_set_audio_input_type(const char* name, int type);
// "set_audio_input_gain" {"gain"}; any gain is sent.
ZM_EXPORT int zm_set_audio_input_gain(const char* name, int gain);
// "set_audio_input_noise_reduction" {"level"}; -3 when `level` is negative.
ZM_EXPORT int zm_set_audio_input_noise_reduction(const char* name, int level);
// "set_audio_input_xlr_channel" / "set_audio_input_xlr_power" / "set_audio_input_mode"
// {"mode"}; -3 when `mode` is negative.
ZM_EXPORT int zm_set_audio_input_xlr_channel(const char* name, int mode);
ZM_EXPORT int zm_set_audio_input_xlr_power(const char* name, int mode);
ZM_EXPORT int zm_set_audio_input_mode(const char* name, int mode);
// "set_audio_input_hw_loopthrough" {"enable"}; nothing is checked before sending (a null
// name is left out of the request), so the result is the engine's.
ZM_EXPORT int zm_set_audio_input_hw_loop_through(const char* name, bool enable);
// "set_audio_output_volume" {"volume", "mute"}; the values are not checked.
ZM_EXPORT int zm_set_audio_output(const char* name, int volume, int mute);
// "set_audio_output_type" {"type"}; -3 when `type` is negative.
ZM_EXPORT int zm_set_audio_output_type(const char* name, int type);
// "set_audio_output_monitor" {"mode", "duration_threshold", "level_threshold"}; -3 when
// `mode` is negative or either threshold is below 1.
ZM_EXPORT int zm_set_audio_output_monitor(const char* name, int mode, int duration_threshold,
                                          int level_threshold);
