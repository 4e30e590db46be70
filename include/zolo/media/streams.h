// Stream records: one output of the appliance (recording file, network push, preview).
#pragma once

#include <zolo/export.h>

// A stream as the API hands it out: a flat, fixed-size record copied by value, zeroed before
// it is filled. Texts are zero-terminated and cut to their capacity. The fields duration,
// start_time, stop_time and error come from engine replies, not from the database.
struct zm_stream {
  int id;
  char name[512];
  char type[512];
  int channel_id;
  char channel_name[512];
  int enable;
  int enable_option1;
  int codec_preset_id;
  char codec_preset_name[512];
  char container[512];
  int audio_shift;
  char destination[2048];
  char aux_text[512];
  int duration;
  int start_time;
  int stop_time;
  int enable_option2;
  int enable_option3;
  int error;
  int encryption;
  int key_length;
  char passphrase[512];
  int latency;
  int source_port;
  int suspend;
  int multicast;
  int ttl;
  char netmask[512];
  char netprefix[512];
  int video_source_id;
  int audio_source_id;
  char ndi_group_name[512];
  char ndi_discovery_server[512];
  int ndi_stream_bandwidth;
};

#include <string>
#include <vector>

class Stream;

// Appends the record of `stream` (nothing for null) / of each stream, in order.
ZM_EXPORT void zm_convert_stream_data(Stream* stream, std::vector<zm_stream>* out);
ZM_EXPORT void zm_convert_stream_data(const std::vector<Stream*>& streams,
                                      std::vector<zm_stream>* out);

// Stream queries. Each appends records to `out` (never cleared) and returns 0; -3 for a
// missing argument or output vector; -5 when the database query fails.
// Streams of `type` (required) and `name` (null: any name).
ZM_EXPORT int zm_get_stream(const char* type, const char* name, std::vector<zm_stream>* out);
// The stream `id` (1 or more).
ZM_EXPORT int zm_get_stream(int id, std::vector<zm_stream>* out);
// Streams whose name matches the SQL LIKE `pattern` ("%" and "_" wildcards).
ZM_EXPORT int zm_get_stream_by_pattern(const char* pattern, std::vector<zm_stream>* out);
// Schedule streams (names containing "sched").
ZM_EXPORT int zm_get_schedule_stream(std::vector<zm_stream>* out);
// WebRTC streams (destinations "webrtc://...").
ZM_EXPORT int zm_get_webrtc_stream(std::vector<zm_stream>* out);
// Channel id of the first stream of `type` and `name` (0 when it has no channel, or no
// stream matched); -3 when both are null; -5 when the query fails.
ZM_EXPORT int zm_get_stream_channel_id(const char* type, const char* name);
// Video codec parameters (JSON text) of the preset of the first stream of `type` and
// `name`. 0; -3 when either is null; -5 when a query fails or nothing matched.
ZM_EXPORT int zm_get_stream_codec_param(const char* type, const char* name, std::string* out);

#include <map>

// Stream control. Each reads the engine state first and returns -4 without asking the
// engine further when it does not allow the call: start needs 1 (idle) or 4 (paused), pause
// 3 (recording), resume 4, stop 3 or 4. Otherwise the engine's mapped result.
// Starts recording and streaming; `filenames` (may be null) names the file of each stream.
// With `out`, appends one record per started stream (name, channel, destination, start).
ZM_EXPORT int zm_start_stream(std::vector<zm_stream>* out, bool persist,
                              const std::map<std::string, std::string>* filenames);
ZM_EXPORT int zm_pause_stream(bool persist);
ZM_EXPORT int zm_resume_stream(bool persist);
// Stops; `recording_id` (may be null) receives the new recording's id (0 when none).
ZM_EXPORT int zm_stop_stream(std::vector<zm_stream>* out, unsigned* recording_id, bool persist);
// Starts / stops the network stream `name` (and, when configured, the NDI preview companion
// "preview-ndi-sub" of an H.264/H.265 NDI stream). -3 for a null name.
ZM_EXPORT int zm_start_network_streams(const char* name, std::vector<zm_stream>* out);
ZM_EXPORT int zm_stop_network_streams(const char* name, std::vector<zm_stream>* out);
// Live status of the running streams (name, type, destination, duration, error).
ZM_EXPORT int zm_get_streaming_status(std::vector<zm_stream>* out);

// Stream flags in the database, each written change announced to the engine. -3 for a null
// name or pattern; -5 when the query fails; -1 when the database refused a write (that
// stream is not announced; the others are still written).
// Sets the first enable flag of the streams named `name`; "preview" also sets the flag of
// the streams matching "preview_" (without announcing them).
ZM_EXPORT int zm_enable_stream(const char* name, int enable);
// Sets the first three / four enable flags of the streams matching the LIKE `pattern`.
ZM_EXPORT int zm_enable_stream(const char* pattern, int enable, int option1, int option2);
ZM_EXPORT int zm_enable_stream(const char* pattern, int enable, int option1, int option2,
                               int option3);
ZM_EXPORT int zm_suspend_stream(const char* pattern, int suspend);
// Recording-mode switches: the first enable flag of the movie file streams (file streams on
// the program channel "Movie") / of the channel file streams (file streams on an input
// channel: capture, USB or network), each stream saved and announced. 0; -5 when the query
// fails; -1 when a write was refused.
ZM_EXPORT int zm_enable_movie_file_stream(bool enable);
ZM_EXPORT int zm_enable_channel_file_stream(bool enable);
// Removes stream `id` (1 or more); removing an H.264/H.265 NDI stream may disable every NDI
// stream when the NDI preview companion is configured. 0, -3, -5 or the model's result.
ZM_EXPORT int zm_remove_stream(int id);

// Destinations, parameters and metadata: database changes only; the engine reads them when
// it next loads its configuration.
// Sets the destination of every stream named `name`. For "preview", the streams matching
// "preview_" take the new port, user and password (keeping their own scheme, host with
// any IPv6 brackets, path, query and fragment exactly; one whose destination does not parse is left
// as it is). 0; -3 for a null name or a destination that is not UTF-8; -5 when the query fails; -1
// when the database refused a write. A null destination throws std::logic_error once a stream is
// found.
ZM_EXPORT int zm_set_stream_destination(const char* name, const char* destination);
// Hands the destinations in order to the enabled, not suspended schedule streams; only the
// streams that receive one are written. 0; -3 for an empty list or a text that is not UTF-8;
// -5 when the query fails; -1 when the database refused a write.
ZM_EXPORT int zm_set_schedule_stream_destination(const std::vector<std::string>& destinations);
// Sets parameter / authentication value `key` of the streams of `type` and `name` (either
// may be null, not both). 0; -3 (also for text that is not UTF-8); -5 when the query fails;
// -1 when the database refused a write.
ZM_EXPORT int zm_set_stream_param(const char* type, const char* name, const char* key, int value);
ZM_EXPORT int zm_set_stream_param(const char* type, const char* name, const char* key,
                                  const char* value);
ZM_EXPORT int zm_set_stream_auth(const char* type, const char* name, const char* key, int value);
ZM_EXPORT int zm_set_stream_auth(const char* type, const char* name, const char* key,
                                 const char* value);

// One metadata row: its key and value.
struct zm_metadata {
  int key_id;
  char key[512];
  char value[4096];
};

// Adds key `key` with a default row holding `default_value`. 0, -1, or -3 for text that is
// not UTF-8. Null texts throw std::logic_error.
ZM_EXPORT int zm_add_stream_metadata_key(const char* key, const char* default_value);
// Renames the key of row `id` (for every row using it) when `key` is given. 0, -1, or -3
// for text that is not UTF-8.
ZM_EXPORT int zm_set_stream_metadata_key(int id, const char* key);
// Sets the value of row `id` when `value` is given. 0, -1, or -3 for text that is not
// UTF-8.
ZM_EXPORT int zm_set_stream_metadata(int id, const char* value);
// Removes key `id` and its rows. 0, or -1.
ZM_EXPORT int zm_remove_stream_metadata_key(int id);
// Appends row `id` (0 or less: every row) of all metadata / of the "backupmeta" stream.
// 0, or -1.
ZM_EXPORT int zm_get_stream_metadata(int id, std::vector<zm_metadata>* out);
ZM_EXPORT int zm_get_backup_stream_metadata(int id, std::vector<zm_metadata>* out);
