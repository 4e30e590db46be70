// Codecs the engine can use and the named codec parameter presets that streams refer to.
#pragma once

#include <zolo/export.h>

#include <vector>

// One parameter entry of a codec: its name and the values it accepts (for example
// "profile" and "baseline,main,high"). Texts are cut to their capacity.
struct zm_codec_parameter {
  char name[512];
  char value[1024];
};

// A codec with its parameter entries in stored order. Owns its vector; copies are deep.
struct zm_codec {
  int id;
  char type[512];  // "video" or "audio"
  char name[512];  // "H.264", "H.265", "RAW", "AAC" ...
  std::vector<zm_codec_parameter> parameters;
};

// A preset: a video codec with its JSON parameter object (numeric members such as
// "frame_rate" and "gop") and an audio codec with its JSON parameter object. Flat, zeroed
// before it is filled; texts are cut to their capacity.
struct zm_codec_preset {
  int id;
  char name[512];
  char video_codec[512];
  char video_codec_parameter[512];
  char audio_codec[512];
  char audio_codec_parameter[512];
};

// Codec queries append to `out` (never cleared) and return 0; -3 when `out` is null; -5
// when the query fails or the named / numbered codec does not exist.
// The codec called `name`, or every codec when `name` is null.
ZM_EXPORT int zm_get_codec(const char* name, std::vector<zm_codec>* out);
// Codecs of `type` ("video", "audio") and `name`; a null text matches any, an unknown type
// matches none.
ZM_EXPORT int zm_get_codec(const char* type, const char* name, std::vector<zm_codec>* out);
// The codec `id`.
ZM_EXPORT int zm_get_codec(int id, std::vector<zm_codec>* out);

// The preset `id`, or every visible preset for 0. 0; -3 when `out` is null; -5 when the
// query fails or the preset does not exist.
ZM_EXPORT int zm_get_codec_preset(int id, std::vector<zm_codec_preset>* out);

// Adds a user preset from `preset` (name, both codecs by name, both parameter texts) and
// announces it to the engine; `preset->id` receives the new id. 0; -3 for a null record,
// an empty name, an unknown codec or a parameter text that is not a JSON object; -2 when
// the name is taken; -1 when the database fails. Nothing is stored on failure.
ZM_EXPORT int zm_add_codec_preset(zm_codec_preset* preset);

// Replaces name, codecs and parameter texts of the user preset `id` with those of `preset`
// (its id member is ignored). 0; -5 when the preset does not exist; -2 when it is built in
// or the new name is taken; -3 for a null record, an unknown codec or a parameter text that
// is not a JSON object; -1 when the database fails. Nothing is stored on failure.
//
// When "add_ndi_preview_stream_simultaneously" of group "Engine" is non-zero and an NDI
// stream ("ndi://...") uses the preset, the NDI preview follows: with an H.264 or H.265
// video codec the preset "NDI Preview Profile" takes that codec, the preset's "gop" and its
// "frame_rate" (halved from 60 and 50, kept otherwise) and every NDI stream is enabled;
// with "RAW" every NDI stream is disabled.
ZM_EXPORT int zm_set_codec_preset(int id, const zm_codec_preset* preset);

// Removes the user preset `id` (streams that used it are left without one). 0; -5 when it
// does not exist; -2 when it is built in; otherwise the database's failure code.
ZM_EXPORT int zm_remove_codec_preset(int id);
