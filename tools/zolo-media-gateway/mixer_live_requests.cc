// The mixers on air: layout, asset and theme switches, snapshots, output colour and
// playback.
#include <zolo/media/mixer_live.h>

#include "request_helpers.h"
#include "zolo/media_json/mixer_config_json.h"
#include "zolo/media_json/mixer_live_json.h"

namespace zolo::gateway {
namespace {

constexpr ParamType kInt = ParamType::kInteger;
constexpr ParamType kText = ParamType::kString;
constexpr ParamType kBool = ParamType::kBoolean;
constexpr ParamType kNumber = ParamType::kNumber;
const Param kMixer = {"mixer", kInt, false};

// The `mixer` argument (absent: ZM_MIXER_DEFAULT). Values outside the enumeration are
// refused here with the library's "no such mixer" code, never cast.
bool MixerArg(const cJSON* args, ZM_MIXER* mixer) {
  int value = IntArg(args, "mixer", ZM_MIXER_DEFAULT);
  if (value < ZM_MIXER_DEFAULT || value > ZM_MIXER_ALL) return false;
  *mixer = static_cast<ZM_MIXER>(value);
  return true;
}

// Runs `call` with the mixer argument; -2 for a mixer outside the enumeration.
template <class Call>
Outcome WithMixer(const cJSON* args, Call call) {
  ZM_MIXER mixer = ZM_MIXER_DEFAULT;
  if (!MixerArg(args, &mixer)) return Code(-2);
  return call(mixer);
}

// A time or position argument: a whole number from 0 to 2^53.
bool TimeArg(const cJSON* args, uint64_t* time) {
  double value = UnsignedArg(args, "time");
  if (value < 0) return false;
  *time = static_cast<uint64_t>(value);
  return true;
}

// A mixer getter filling one asset record.
template <class T>
Outcome Current(const cJSON* args, const char* member, int (*get)(T*, ZM_MIXER)) {
  return WithMixer(args, [&](ZM_MIXER mixer) {
    T record{};
    int code = get(&record, mixer);
    return code < 0 ? Code(code) : WithRecord(code, member, record);
  });
}
int GetForeground(zm_foreground* out, ZM_MIXER mixer) {
  return zm_get_video_foreground(mixer, out);
}
int GetTheme(zm_theme* out, ZM_MIXER mixer) {
  return zm_get_video_theme(out, mixer);
}

// By asset `id`, or by a `path` inside the appliance's folders.
Outcome SetVideoForeground(const cJSON* args) {
  return WithMixer(args, [&](ZM_MIXER mixer) {
    if (Has(args, "id") == Has(args, "path")) return BadArgument("give one of id and path");
    if (Has(args, "id")) return Code(zm_set_video_foreground(mixer, IntArg(args, "id")));
    auto url = ConfinedFileUrl(StringArg(args, "path"));
    return url ? Code(zm_set_video_foreground(mixer, url->c_str())) : Code(-3);
  });
}

Outcome SetVideoOverlay(const cJSON* args) {
  return WithMixer(args, [&](ZM_MIXER mixer) {
    double x = NumberArg(args, "x"), y = NumberArg(args, "y");
    if (Has(args, "id") == Has(args, "path")) return BadArgument("give one of id and path");
    if (Has(args, "id")) return Code(zm_set_video_overlay(IntArg(args, "id"), x, y, mixer));
    auto url = ConfinedFileUrl(StringArg(args, "path"));
    return url ? Code(zm_set_video_overlay(url->c_str(), x, y, mixer)) : Code(-3);
  });
}

// Theme `id`, or the bindings of a `theme` record.
Outcome SetVideoTheme(const cJSON* args) {
  return WithMixer(args, [&](ZM_MIXER mixer) {
    if (Has(args, "id") == Has(args, "theme")) return BadArgument("give one of id and theme");
    if (Has(args, "id")) return Code(zm_set_video_theme(IntArg(args, "id"), mixer));
    zm_theme theme{};
    Outcome refusal;
    if (!RecordArg(args, "theme", &theme, &refusal)) return refusal;
    return Code(zm_set_video_theme(theme, mixer));
  });
}

Outcome MakeVideoSnapshot(const cJSON* args) {
  return WithMixer(args, [&](ZM_MIXER mixer) {
    auto url = ConfinedFileUrl(StringArg(args, "uri"));
    if (!url) return Code(-3);
    return Code(
        zm_make_video_snapshot(mixer, url->c_str(), IntArg(args, "width"), IntArg(args, "height")));
  });
}

Outcome SetOutputColor(const cJSON* args) {
  zm_output_color color{};
  Outcome refusal;
  if (!RecordArg(args, "color", &color, &refusal)) return refusal;
  return Code(zm_set_output_color(StringArg(args, "name").c_str(), color));
}

// Playback of a file inside the appliance's folders (absent: what the engine has loaded).
Outcome Playback(const cJSON* args, bool change) {
  uint64_t time = 0;
  if (!TimeArg(args, &time)) return BadArgument("time must be a whole number from 0");
  std::optional<std::string> url;
  if (Has(args, "uri") && !(url = ConfinedFileUrl(StringArg(args, "uri")))) return Code(-3);
  if (change) return Code(zm_change_playback(CStr(url), time, BoolArg(args, "loop")));
  return Code(zm_playback(CStr(url), time, IntArg(args, "show_layout"), BoolArg(args, "loop")));
}

}  // namespace

void AddMixerLiveRequests(RequestTable& table) {
  const std::vector<Param> position = {{"id", kInt}, {"x", kNumber}, {"y", kNumber}, kMixer};
  table.insert(
      table.end(),
      {
          {"mixer_uri",
           {kMixer},
           [](const cJSON* a) {
             return WithMixer(a, [](ZM_MIXER mixer) {
               const char* uri = zm_mixer_uri(mixer);
               return uri ? WithText(0, "uri", uri) : Code(-2);
             });
           },
           "The URI of mixer `mixer`."},
          {"set_video_layout",
           {{"id", kInt}, kMixer, {"persist", kBool, false}, {"bookmark", kBool, false}},
           [](const cJSON* a) {
             return WithMixer(a, [&](ZM_MIXER m) {
               return Code(zm_set_video_layout(IntArg(a, "id"), m, BoolArg(a, "persist"),
                                               BoolArg(a, "bookmark")));
             });
           },
           "Shows layout `id` on mixer `mixer`."},
          {"set_display_layout",
           {{"id", kInt}, {"persist", kBool, false}},
           [](const cJSON* a) {
             return Code(zm_set_display_layout(IntArg(a, "id"), BoolArg(a, "persist")));
           },
           "Shows layout `id` on the display mixer."},
          {"set_intelligent_layout",
           {{"id", kInt}, kMixer, {"persist", kBool, false}, {"bookmark", kBool, false}},
           [](const cJSON* a) {
             return WithMixer(a, [&](ZM_MIXER m) {
               return Code(zm_set_intelligent_layout(IntArg(a, "id"), m, BoolArg(a, "persist"),
                                                     BoolArg(a, "bookmark")));
             });
           },
           "Lets the engine choose the layout of mixer `mixer`."},
          {"set_intelligent_display_layout",
           {{"id", kInt}, {"persist", kBool, false}, {"bookmark", kBool, false}},
           [](const cJSON* a) {
             return Code(zm_set_intelligent_display_layout(IntArg(a, "id"), BoolArg(a, "persist"),
                                                           BoolArg(a, "bookmark")));
           },
           "Lets the engine choose the display mixer's layout."},
          {"set_video_layout_crop",
           {{"id", kInt},
            {"crop", kInt},
            kMixer,
            {"persist", kBool, false},
            {"bookmark", kBool, false}},
           [](const cJSON* a) {
             return WithMixer(a, [&](ZM_MIXER m) {
               return Code(zm_set_video_layout_crop(IntArg(a, "id"), IntArg(a, "crop"), m,
                                                    BoolArg(a, "persist"), BoolArg(a, "bookmark")));
             });
           },
           "Sets the crop mode of the window showing source `id`."},
          {"set_video_background",
           {{"id", kInt}, kMixer},
           [](const cJSON* a) {
             return WithMixer(
                 a, [&](ZM_MIXER m) { return Code(zm_set_video_background(IntArg(a, "id"), m)); });
           },
           "Shows background `id`."},
          {"set_video_foreground",
           {{"id", kInt, false}, {"path", kText, false}, kMixer},
           SetVideoForeground,
           "Shows foreground `id` or the file `path`."},
          {"set_video_logo", position,
           [](const cJSON* a) {
             return WithMixer(a, [&](ZM_MIXER m) {
               return Code(
                   zm_set_video_logo(IntArg(a, "id"), NumberArg(a, "x"), NumberArg(a, "y"), m));
             });
           },
           "Shows logo `id` at (x, y)."},
          {"set_video_overlay",
           {{"id", kInt, false}, {"path", kText, false}, {"x", kNumber}, {"y", kNumber}, kMixer},
           SetVideoOverlay,
           "Shows overlay `id` or the file `path` at (x, y)."},
          {"set_video_system_overlay", position,
           [](const cJSON* a) {
             return WithMixer(a, [&](ZM_MIXER m) {
               return Code(zm_set_video_system_overlay(IntArg(a, "id"), NumberArg(a, "x"),
                                                       NumberArg(a, "y"), m));
             });
           },
           "Shows system overlay `id` at (x, y)."},
          {"set_video_theme",
           {{"id", kInt, false}, {"theme", ParamType::kObject, false}, kMixer},
           SetVideoTheme,
           "Shows theme `id`, or the bindings of a theme record."},
          {"make_video_snapshot",
           {kMixer, {"uri", kText}, {"width", kInt}, {"height", kInt}},
           MakeVideoSnapshot,
           "Writes a JPEG of the mixer's output inside the appliance's folders."},
          {"set_video_intermission",
           {{"enable", kInt}},
           [](const cJSON* a) { return Code(zm_set_video_intermission(IntArg(a, "enable"))); },
           "Shows (non-zero) or hides the intermission picture."},
          {"set_output_color",
           {{"name", kText}, {"color", ParamType::kObject}},
           SetOutputColor,
           "Colour adjustment of display output `name`."},
          {"get_video_layout",
           {kMixer},
           [](const cJSON* a) {
             return WithMixer(a, [](ZM_MIXER m) { return Value(zm_get_video_layout(m), "id"); });
           },
           "Id of the mixer's current layout (0: none)."},
          {"get_video_background",
           {kMixer},
           [](const cJSON* a) { return Current(a, "background", zm_get_video_background); },
           "The background the mixer shows."},
          {"get_video_foreground",
           {kMixer},
           [](const cJSON* a) { return Current(a, "foreground", GetForeground); },
           "The foreground the mixer shows."},
          {"get_video_logo",
           {kMixer},
           [](const cJSON* a) { return Current(a, "logo", zm_get_video_logo); },
           "The logo the mixer shows."},
          {"get_video_overlay",
           {kMixer},
           [](const cJSON* a) { return Current(a, "overlay", zm_get_video_overlay); },
           "The overlay the mixer shows."},
          {"get_video_system_overlay",
           {kMixer},
           [](const cJSON* a) { return Current(a, "system_overlay", zm_get_video_system_overlay); },
           "The system overlay the mixer shows."},
          {"get_video_theme",
           {kMixer},
           [](const cJSON* a) { return Current(a, "theme", GetTheme); },
           "The theme the mixer shows."},
          {"get_output_color",
           {{"name", kText, false}},
           [](const cJSON* a) {
             std::vector<zm_output_color> out;
             int code = zm_get_output_color(CStr(OptionalText(a, "name")), &out);
             return WithList(code, "colors", out);
           },
           "Colour of every display output, or of the one named `name`."},
          {"playback",
           {{"uri", kText, false},
            {"time", kNumber},
            {"show_layout", kInt, false},
            {"loop", kBool, false}},
           [](const cJSON* a) { return Playback(a, false); },
           "Plays a file inside the appliance's folders (absent: what is loaded) from `time`."},
          {"change_playback",
           {{"uri", kText, false}, {"time", kNumber}, {"loop", kBool, false}},
           [](const cJSON* a) { return Playback(a, true); },
           "Changes the file being played."},
          {"pause_playback",
           {},
           [](const cJSON*) { return Code(zm_pause_playback()); },
           "Pauses playback."},
          {"resume_playback",
           {},
           [](const cJSON*) { return Code(zm_resume_playback()); },
           "Resumes playback."},
          {"stop_playback",
           {},
           [](const cJSON*) { return Code(zm_stop_playback()); },
           "Stops playback."},
          {"seek_playback",
           {{"time", kNumber}},
           [](const cJSON* a) {
             uint64_t time = 0;
             if (!TimeArg(a, &time)) return BadArgument("time must be a whole number from 0");
             return Code(zm_seek_playback(time));
           },
           "Moves playback to `time`."},
          {"get_playback_state",
           {},
           [](const cJSON*) {
             std::string state;
             int code = zm_get_playback_state(&state);
             return code < 0 ? Code(code) : WithText(code, "state", state);
           },
           "The engine's playback state text."},
          {"set_playback_mode",
           {{"mode", kInt}},
           [](const cJSON* a) { return Code(zm_set_playback_mode(IntArg(a, "mode"))); },
           "Playback mode 0..3."},
          {"play_ringtone",
           {},
           [](const cJSON*) { return Code(zm_play_ringtone()); },
           "Plays the ringtone."},
          {"stop_ringtone",
           {},
           [](const cJSON*) { return Code(zm_stop_ringtone()); },
           "Stops the ringtone."},
      });
}

}  // namespace zolo::gateway
