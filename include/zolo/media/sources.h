// Sources and channels: the device's inputs and the inputs users define, the channels that
// pair them, the sources a channel may use, and commands on a channel's live input.
//
// Queries read the database only; they append to the caller's vector (never cleared first)
// in the order the database returns the objects. An id of 0 means every visible object.
// Commands ask the engine (timeout 8 s) and return its mapped result code. Engine replies
// that lack a member or carry it with another JSON type never throw: such a member is
// treated as absent.
#pragma once

#include <zolo/export.h>

#include <cstdint>
#include <string>
#include <vector>

// One source (a device source or a user source) as a flat, fixed-size record, zeroed before
// it is filled. Texts are zero-terminated and cut to their capacity. The values from the
// source's parameter and authentication objects read as their defaults (-1, empty; -2000 for
// audio_delay, so that an unset delay stays distinct from a delay of -1) when a member is
// missing, of another type, or the object's text is not JSON.
struct zm_source {
  int32_t id;
  char name[512];
  char type[512];
  char category[512];
  // "<MAC_ADDR>" markers are replaced by the last four hex digits of eth0's MAC address in
  // upper case; when the address cannot be read the URL is kept as stored.
  char url[2048];
  char sub_address[2048];
  char authentication[512];
  uint8_t fixed;
  uint8_t available;
  int32_t int_attr1;
  int32_t int_attr2;
  uint8_t enabled_flag;
  char extra[512];
  char resolution[512];
  char codec[512];
  int32_t frame_rate;
  int32_t rotate;
  // Without an "encryption" entry: encryption -1, key_length 0 and an empty passphrase;
  // with one, a missing "key_length" reads -1.
  int32_t encryption;
  int32_t key_length;
  char passphrase[512];
  int32_t source_port;
  int32_t audio_delay;
  char preview_dest[2048];
  char extra2[512];
  int32_t latency;
};

// One channel: its four source links (id 0 and an empty name when unset) and its preview
// address.
struct zm_channel {
  int32_t id;
  char name[512];
  int32_t video_source_id;
  char video_source_name[512];
  int32_t audio_source_id;
  char audio_source_name[512];
  int32_t video_user_source_id;
  char video_user_source_name[512];
  int32_t audio_user_source_id;
  char audio_user_source_name[512];
  // The URL of the channel's first enabled network stream named "preview…" (MAC marker:
  // the whole address in lower case); otherwise, for a network video source, that source's
  // URL (MAC marker: the last four hex digits in lower case); otherwise empty.
  char preview_url[512];
  int32_t ordinal;  // 0 when the stored text is empty
  int32_t attribute;
};

// The sources a channel may switch to, both read from the lists under "video_sources".
struct zm_channel_sources {
  int32_t channel_id;
  std::vector<int32_t> sources;       // device source ids
  std::vector<int32_t> user_sources;  // user source ids
};

// The adjustment of a channel's analogue video input.
struct zm_input_param {
  int32_t auto_adjust;
  int32_t phase;
  int32_t position;
};

class MediaSource;

// --- records and queries ---

// Appends the record of `source` (a ChannelSource or a UserSource); nothing when either
// argument is null.
ZM_EXPORT void zm_convert_source_data(const MediaSource* source, std::vector<zm_source>* out);
// Device sources / user sources: `id`, or every visible one for 0. 0; -3 for a null vector;
// -5 when the query fails (also for an unknown id).
ZM_EXPORT int zm_get_source(int id, std::vector<zm_source>* out);
ZM_EXPORT int zm_get_user_source(int id, std::vector<zm_source>* out);
// Channel `id`, or every visible channel for 0. 0; -1 for a null vector; -5 when the query
// fails (also for an unknown id).
ZM_EXPORT int zm_get_channel(int id, std::vector<zm_channel>* out);
// Number of visible channels; 0 when the query fails.
ZM_EXPORT int zm_get_channel_count();
// Allowed source lists of channel `id`, or of every channel for 0. 0; -3 for a null
// vector; -5 when the query fails. A list that cannot be read is logged and left short.
ZM_EXPORT int zm_get_channel_available_user_sources(int id, std::vector<zm_channel_sources>* out);
// The visible device sources offered to channel `id` by the naming rules: same category and
// URL as the channel's video source, named for the channel's slot, the slot not claimed by
// a source another channel uses, and flagged available. 0; -3 for a null vector; -5 when a
// query fails or the channel does not exist; -1 when a source bound to another channel has
// a name without a digit (the slot rule cannot read it; nothing is appended).
ZM_EXPORT int zm_get_channel_available_sources(int id, std::vector<zm_source>* out);
// Front-panel name ("HDMI1" … "SDI1") of the capture chip sub-address `sub_address`.
// 0; -3 for null arguments; -5 when the sub-address is not a built-in capture input.
ZM_EXPORT int zm_get_builtin_input_name(const char* sub_address, std::string* name);

// --- input control (engine commands) ---

// Connects (or disconnects) the input of channel `channel` / of source `source`. Null `uri`
// and `sub_uri` are left out, so the engine keeps the input's current addresses.
ZM_EXPORT int zm_enable_channel_source(int channel, bool connect, const char* uri,
                                       const char* sub_uri);
ZM_EXPORT int zm_enable_source(int source, bool connect, const char* uri, const char* sub_uri);
// Makes the engine re-read channel `channel`'s parameters.
ZM_EXPORT int zm_update_channel_parameter(int channel);
ZM_EXPORT int zm_rotate_channel_source(int id, int rotate);
ZM_EXPORT int zm_set_channel_audio_delay(int id, int delay);
// Reads the input adjustment of `channel` from the engine; members the reply lacks (or
// carries as non-numbers) leave `*param` as it was. -3 for a null `param`; -5 for an
// unknown channel (nothing sent).
ZM_EXPORT int zm_get_channel_input_param(int channel, zm_input_param* param);
// Sets it. -5 for an unknown channel (nothing sent).
ZM_EXPORT int zm_set_channel_input_param(int channel, zm_input_param param);
// Writes a width x height JPEG of channel `channel` to the "file://" URI `uri`. -3 when the
// URI is missing or of another scheme; -2 without a "Movie" channel or for a channel id
// past it (compared as unsigned: negative ids are refused too).
ZM_EXPORT int zm_make_channel_snapshot(int channel, const char* uri, int width, int height);
// Starts a snapshot of the video user source of channel `channel` into
// "/var/lib/zolo/media/images/snapshot/snapshot_NNN.jpg" (NNN the user source id, at least
// three digits) and returns at once. When the engine succeeds, the user source's
// "preview_dest" becomes that path and the engine is told. 0; -5 for an unknown channel or
// one without a video user source; -1 when the task cannot start. The task owns everything
// it uses (its own bus client and database connection), so zm_release may run at any time.
ZM_EXPORT int zm_make_channel_preview_snapshot(int channel, int width, int height);
