// The video mixers on air: which layout, background, foreground, logo, overlay, system
// overlay and theme a mixer shows now, window crop, intermission, mixer snapshots, the
// colour of display outputs, and playback of media files and the ringtone.
//
// Every command is one engine call (timeout 8) and returns its mapped result code. Result
// codes: 0 success; -1 general failure; -2 a mixer that cannot be resolved (a value
// outside ZM_MIXER, a mixer missing from the database) or an empty "intelligent_layout"
// setting; -3 bad argument (negative id, null text, a snapshot URI that is not a
// "file://" URL, a negative colour value, a playback mode outside 0..3); -4 the engine's
// state does not allow the command; -5 not found (crop: no window shows the source;
// colour: the display streams cannot be read); engine codes map down to -15. Refusals
// send nothing to the engine. Engine replies missing members or with members of another
// type never throw: a missing text reads as empty.
//
// Engine-state rules: rule A allows states 1 and 3; rule B allows 1, 3 and 4. Commands
// marked A/B use rule A for ZM_MIXER_DEFAULT and rule B for every other value. Playback
// commands are refused in states 0 and 2.
#pragma once

#include <zolo/export.h>
#include <zolo/media/mixer_config.h>

#include <cstdint>
#include <string>
#include <vector>

// Which mixer a command addresses. DEFAULT and MIXER_0 name the same mixer and differ only
// in the engine-state rule; ALL sends the command without a "mixer" member.
enum ZM_MIXER {
  ZM_MIXER_DEFAULT = 0,
  ZM_MIXER_0 = 1,
  ZM_MIXER_DISPLAY = 2,
  ZM_MIXER_1 = 3,
  ZM_MIXER_2 = 4,
  ZM_MIXER_ALL = 5,
};

// Colour adjustment of one display output; the four values are never negative.
struct zm_output_color {
  char name[512];
  int brightness;
  int contrast;
  int saturation;
  int hue;
};

// The URI of a mixer value ("zolo://video/mixer/0" ...), or null for ALL and values
// outside the table.
ZM_EXPORT const char* zm_mixer_uri(ZM_MIXER mixer);

// Layout switches. `persist` keeps the choice across engine restarts, `bookmark` marks the
// switch in the running recording. A/B; id below 0: -3.
ZM_EXPORT int zm_set_video_layout(int id, ZM_MIXER mixer, bool persist, bool bookmark);
// The display mixer's layout; rule B.
ZM_EXPORT int zm_set_display_layout(int id, bool persist);
// Lets the engine choose the layout; -2 when "intelligent_layout" of group "Engine" is
// empty.
ZM_EXPORT int zm_set_intelligent_layout(int id, ZM_MIXER mixer, bool persist, bool bookmark);
ZM_EXPORT int zm_set_intelligent_display_layout(int id, bool persist, bool bookmark);
// Sets the crop mode of the window showing source `id` in the mixer's current layout,
// stores it (geometry and crop only; the window keeps its source) and shows the layout
// again. -1 when the layout has no windows or the write fails; -5 when no window shows the
// source; otherwise the result of zm_set_video_layout. ZM_MIXER_ALL is -2.
ZM_EXPORT int zm_set_video_layout_crop(int id, int crop, ZM_MIXER mixer, bool persist,
                                       bool bookmark);

// Asset switches. Background, logo, overlay, system overlay and theme: rule A; foreground:
// A/B.
ZM_EXPORT int zm_set_video_background(int id, ZM_MIXER mixer);
ZM_EXPORT int zm_set_video_foreground(ZM_MIXER mixer, int id);
// A path that is not a "file://" URL is sent as one.
ZM_EXPORT int zm_set_video_foreground(ZM_MIXER mixer, const char* path);
// A logo is an overlay to the engine: sent as "set_video_overlay".
ZM_EXPORT int zm_set_video_logo(int id, double x, double y, ZM_MIXER mixer);
ZM_EXPORT int zm_set_video_overlay(int id, double x, double y, ZM_MIXER mixer);
ZM_EXPORT int zm_set_video_overlay(const char* path, double x, double y, ZM_MIXER mixer);
ZM_EXPORT int zm_set_video_system_overlay(int id, double x, double y, ZM_MIXER mixer);
// Theme `id` (below 1: -3), or the layout, overlay and background of a theme record
// (any negative: -3).
ZM_EXPORT int zm_set_video_theme(int id, ZM_MIXER mixer);
ZM_EXPORT int zm_set_video_theme(const zm_theme& theme, ZM_MIXER mixer);
// Writes a JPEG of the mixer's output to `uri` ("file://" URL). No engine-state rule;
// ZM_MIXER_ALL is -2.
ZM_EXPORT int zm_make_video_snapshot(ZM_MIXER mixer, const char* uri, int width, int height);
// Shows (non-zero) or hides the intermission picture; rule B.
ZM_EXPORT int zm_set_video_intermission(int enable);
// Colour of the display output `name`; any negative value: -3.
ZM_EXPORT int zm_set_output_color(const char* name, const zm_output_color& color);

// What a mixer shows now, read from the database (no engine call). ZM_MIXER_ALL and values
// outside the table: -2; a null record: -3. A record is left zeroed when the mixer shows
// no such asset.
// Id of the mixer's current layout, 0 when it has none.
ZM_EXPORT int zm_get_video_layout(ZM_MIXER mixer);
ZM_EXPORT int zm_get_video_background(zm_background* out, ZM_MIXER mixer);
ZM_EXPORT int zm_get_video_foreground(ZM_MIXER mixer, zm_foreground* out);
ZM_EXPORT int zm_get_video_logo(zm_logo* out, ZM_MIXER mixer);
ZM_EXPORT int zm_get_video_overlay(zm_overlay* out, ZM_MIXER mixer);
ZM_EXPORT int zm_get_video_system_overlay(zm_system_overlay* out, ZM_MIXER mixer);
ZM_EXPORT int zm_get_video_theme(zm_theme* out, ZM_MIXER mixer);
// The current theme's id (0 for none), or the negative result of the record form.
ZM_EXPORT int zm_get_video_theme(ZM_MIXER mixer);
// Appends the colour of every display output, or of the one named `name` (null: all).
// 0; -3 for a null vector; -5 when the display streams cannot be read.
ZM_EXPORT int zm_get_output_color(const char* name, std::vector<zm_output_color>* out);

// Playback of a media file into the mixer output. `time` is a position in the engine's
// unit; a `uri` that is not a "file://" URL is sent as one. Refused with -4 in engine
// states 0 and 2, except the state, mode and ringtone functions.
// A null `uri` plays what the engine has loaded.
ZM_EXPORT int zm_playback(const char* uri, uint64_t time, int show_layout, bool loop);
ZM_EXPORT int zm_change_playback(const char* uri, uint64_t time, bool loop);
ZM_EXPORT int zm_pause_playback();
ZM_EXPORT int zm_resume_playback();
ZM_EXPORT int zm_stop_playback();
ZM_EXPORT int zm_seek_playback(uint64_t time);
// The engine's playback state text ("idle", "playing", "paused"); empty when the reply
// has none. `state` is left unchanged when the call fails; null: -3.
ZM_EXPORT int zm_get_playback_state(std::string* state);
// Playback mode 0..3 (the engine's meaning); anything else -3.
ZM_EXPORT int zm_set_playback_mode(int mode);
ZM_EXPORT int zm_play_ringtone();
ZM_EXPORT int zm_stop_ringtone();
