// mixer, color, playback, ringtone: the video mixers on air, display colour and playback.
#include <zolo/media.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "context.h"
#include "zolo/media_json/mixer_live_json.h"

namespace zmctl {

namespace {

std::string Number(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

// A mixer by word or number; false when it is neither.
bool ParseMixer(const std::string& text, ZM_MIXER* out) {
  static const std::pair<const char*, ZM_MIXER> kWords[] = {
      {"default", ZM_MIXER_DEFAULT}, {"main", ZM_MIXER_0},   {"display", ZM_MIXER_DISPLAY},
      {"mixer1", ZM_MIXER_1},        {"mixer2", ZM_MIXER_2}, {"all", ZM_MIXER_ALL}};
  for (const auto& [word, value] : kWords)
    if (text == word) {
      *out = value;
      return true;
    }
  char* end = nullptr;
  long number = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || number < 0 || number > ZM_MIXER_ALL) return false;
  *out = static_cast<ZM_MIXER>(number);
  return true;
}

const char* kMixerHelp = "Mixer: main, display, mixer1, mixer2, all, default, or 0-5";

struct Args {
  std::string mixer = "default";
  std::string target;  // an id or a path
  int id = 0;
  int crop = 0;
  double x = 0;
  double y = 0;
  bool persist = false;
  bool bookmark = false;
  bool intelligent = false;
  int width = 1280;
  int height = 720;
  std::string name;
  int color[4] = {50, 50, 50, 0};
  std::string uri;
  double seconds = 0;
  bool loop = false;
  int show_layout = 0;
};

// Runs `call` with the parsed mixer; an unknown mixer fails with -2.
template <class Call>
void WithMixer(Context& context, const std::shared_ptr<Args>& args, const std::string& what,
               Call call) {
  ZM_MIXER mixer = ZM_MIXER_DEFAULT;
  if (!ParseMixer(args->mixer, &mixer)) {
    context.status = Fail(what + " (mixer " + args->mixer + ")", -2);
    return;
  }
  if (Run(context, what, [&] { return call(mixer); })) context.out().Message("ok");
}

bool IsId(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// Engine time unit: milliseconds.
uint64_t Millis(double seconds) {
  return seconds <= 0 ? 0 : static_cast<uint64_t>(seconds * 1000);
}

void AddShow(CLI::App* mixer, Context& context, const std::shared_ptr<Args>& args) {
  auto* show = mixer->add_subcommand("show", "What a mixer shows now");
  show->add_option("MIXER", args->mixer, kMixerHelp);
  show->callback([&context, args] {
    ZM_MIXER value = ZM_MIXER_DEFAULT;
    if (!ParseMixer(args->mixer, &value) || value == ZM_MIXER_ALL) {
      context.status = Fail("mixer show (mixer " + args->mixer + ")", -2);
      return;
    }
    zm_background background{};
    zm_foreground foreground{};
    zm_overlay overlay{};
    zm_system_overlay system{};
    zm_theme theme{};
    int layout = 0;
    if (!Run(context, "mixer show", [&] {
          layout = zm_get_video_layout(value);
          if (layout < 0) return layout;
          if (int r = zm_get_video_background(&background, value)) return r;
          if (int r = zm_get_video_foreground(value, &foreground)) return r;
          if (int r = zm_get_video_overlay(&overlay, value)) return r;
          if (int r = zm_get_video_system_overlay(&system, value)) return r;
          return zm_get_video_theme(&theme, value);
        }))
      return;
    auto asset = [](int id, const char* name) {
      return id > 0 ? std::to_string(id) + " " + name : std::string("none");
    };
    std::string position = overlay.positions.empty() ? ""
                                                     : " at " + Number(overlay.positions[0].x) +
                                                           "," + Number(overlay.positions[0].y);
    context.out().Record({{"mixer", zm_mixer_uri(value)},
                          {"layout", std::to_string(layout)},
                          {"background", asset(background.id, background.name)},
                          {"foreground", asset(foreground.id, foreground.name)},
                          {"overlay", asset(overlay.id, overlay.name) + position},
                          {"system_overlay", asset(system.id, system.name)},
                          {"theme", asset(theme.id, theme.name)}});
  });
}

void AddMixerCommands(CLI::App& app, Context& context) {
  auto* mixer = app.add_subcommand("mixer", "The video mixers on air: switch what they show");
  mixer->require_subcommand(1);
  auto args = std::make_shared<Args>();
  AddShow(mixer, context, args);

  auto* layout = mixer->add_subcommand("layout", "Show a layout now");
  layout->add_option("ID", args->id, "Layout id")->required();
  layout->add_option("MIXER", args->mixer, kMixerHelp);
  layout->add_flag("--persist", args->persist, "Keep it across engine restarts");
  layout->add_flag("--bookmark", args->bookmark, "Mark the switch in the running recording");
  layout->add_flag("--intelligent", args->intelligent, "Let the engine choose the layout");
  layout->callback([&context, args] {
    WithMixer(context, args, "switching layout", [&](ZM_MIXER m) {
      return args->intelligent
                 ? zm_set_intelligent_layout(args->id, m, args->persist, args->bookmark)
                 : zm_set_video_layout(args->id, m, args->persist, args->bookmark);
    });
  });

  auto* background = mixer->add_subcommand("background", "Show a background");
  background->add_option("ID", args->id, "Background id")->required();
  background->add_option("MIXER", args->mixer, kMixerHelp);
  background->callback([&context, args] {
    WithMixer(context, args, "switching background",
              [&](ZM_MIXER m) { return zm_set_video_background(args->id, m); });
  });

  auto* foreground = mixer->add_subcommand("foreground", "Show a foreground by id or file");
  foreground->add_option("ID_OR_PATH", args->target, "Foreground id, or a picture file")
      ->required();
  foreground->add_option("MIXER", args->mixer, kMixerHelp);
  foreground->callback([&context, args] {
    WithMixer(context, args, "switching foreground", [&](ZM_MIXER m) {
      return IsId(args->target) ? zm_set_video_foreground(m, std::atoi(args->target.c_str()))
                                : zm_set_video_foreground(m, args->target.c_str());
    });
  });

  struct Placed {
    const char* name;
    const char* help;
    int kind;  // 0 overlay, 1 logo, 2 system overlay
  };
  for (const Placed& p : {Placed{"overlay", "Show an overlay (id or file) at X,Y", 0},
                          Placed{"logo", "Show a logo at X,Y", 1},
                          Placed{"system-overlay", "Show a system overlay at X,Y", 2}}) {
    auto* command = mixer->add_subcommand(p.name, p.help);
    if (p.kind == 0)
      command->add_option("ID_OR_PATH", args->target, "Overlay id, or a picture file")->required();
    else
      command->add_option("ID", args->id, "Asset id")->required();
    command->add_option("X", args->x, "Horizontal position, 0 to 1")->required();
    command->add_option("Y", args->y, "Vertical position, 0 to 1")->required();
    command->add_option("MIXER", args->mixer, kMixerHelp);
    const int kind = p.kind;
    command->callback([&context, args, kind] {
      WithMixer(context, args, "switching overlay", [&](ZM_MIXER m) {
        if (kind == 1) return zm_set_video_logo(args->id, args->x, args->y, m);
        if (kind == 2) return zm_set_video_system_overlay(args->id, args->x, args->y, m);
        return IsId(args->target)
                   ? zm_set_video_overlay(std::atoi(args->target.c_str()), args->x, args->y, m)
                   : zm_set_video_overlay(args->target.c_str(), args->x, args->y, m);
      });
    });
  }

  auto* theme = mixer->add_subcommand("theme", "Apply a theme");
  theme->add_option("ID", args->id, "Theme id")->required();
  theme->add_option("MIXER", args->mixer, kMixerHelp);
  theme->callback([&context, args] {
    WithMixer(context, args, "applying theme",
              [&](ZM_MIXER m) { return zm_set_video_theme(args->id, m); });
  });

  auto* crop = mixer->add_subcommand("crop", "Set the crop mode of the window showing SOURCE");
  crop->add_option("SOURCE", args->id, "Source id shown in the window")->required();
  crop->add_option("CROP", args->crop, "Crop mode")->required();
  crop->add_option("MIXER", args->mixer, kMixerHelp);
  crop->add_flag("--persist", args->persist, "Keep it across engine restarts");
  crop->add_flag("--bookmark", args->bookmark, "Mark the switch in the running recording");
  crop->callback([&context, args] {
    WithMixer(context, args, "cropping window", [&](ZM_MIXER m) {
      return zm_set_video_layout_crop(args->id, args->crop, m, args->persist, args->bookmark);
    });
  });

  auto* intermission = mixer->add_subcommand("intermission", "Show or hide the intermission");
  intermission->add_option("ENABLE", args->id, "1 show, 0 hide")->required();
  intermission->callback([&context, args] {
    if (Run(context, "switching intermission", [&] { return zm_set_video_intermission(args->id); }))
      context.out().Message("ok");
  });

  auto* snapshot = mixer->add_subcommand("snapshot", "Write a JPEG of the mixer's output");
  snapshot->add_option("URI", args->uri, "file:// URL of the JPEG")->required();
  snapshot->add_option("MIXER", args->mixer, kMixerHelp);
  snapshot->add_option("--width", args->width, "Width in pixels")->capture_default_str();
  snapshot->add_option("--height", args->height, "Height in pixels")->capture_default_str();
  snapshot->callback([&context, args] {
    WithMixer(context, args, "mixer snapshot", [&](ZM_MIXER m) {
      return zm_make_video_snapshot(m, args->uri.c_str(), args->width, args->height);
    });
  });
}

void AddColorCommands(CLI::App& app, Context& context) {
  auto* color = app.add_subcommand("color", "Colour of the display outputs");
  color->require_subcommand(1);
  auto args = std::make_shared<Args>();
  auto* get = color->add_subcommand("get", "Colour values of the display outputs");
  get->add_option("NAME", args->name, "Display output (default: all)");
  get->callback([&context, args] {
    std::vector<zm_output_color> colors;
    if (!Run(context, "reading colour", [&] {
          return zm_get_output_color(args->name.empty() ? nullptr : args->name.c_str(), &colors);
        }))
      return;
    if (context.out().Records(colors)) return;
    std::vector<Row> rows;
    for (const auto& c : colors)
      rows.push_back({c.name, std::to_string(c.brightness), std::to_string(c.contrast),
                      std::to_string(c.saturation), std::to_string(c.hue)});
    context.out().Table({"name", "brightness", "contrast", "saturation", "hue"}, rows);
  });
  auto* set = color->add_subcommand("set", "Set a display output's colour");
  set->add_option("NAME", args->name, "Display output")->required();
  set->add_option("BRIGHTNESS", args->color[0])->required();
  set->add_option("CONTRAST", args->color[1])->required();
  set->add_option("SATURATION", args->color[2])->required();
  set->add_option("HUE", args->color[3])->required();
  set->callback([&context, args] {
    zm_output_color c{};
    std::snprintf(c.name, sizeof c.name, "%s", args->name.c_str());
    c.brightness = args->color[0];
    c.contrast = args->color[1];
    c.saturation = args->color[2];
    c.hue = args->color[3];
    if (Run(context, "setting colour", [&] { return zm_set_output_color(c.name, c); }))
      context.out().Message("ok");
  });
}

void AddPlaybackCommands(CLI::App& app, Context& context) {
  auto* playback = app.add_subcommand("playback", "Play a media file into the mixer output");
  playback->require_subcommand(1);
  auto args = std::make_shared<Args>();
  auto simple = [&context](const char* what, int (*call)()) {
    return [&context, what, call] {
      if (Run(context, what, call)) context.out().Message("ok");
    };
  };
  auto* start = playback->add_subcommand("start", "Start playing a file");
  start->add_option("URI", args->uri, "File path or file:// URL")->required();
  start->add_option("--time", args->seconds, "Start position in seconds");
  start->add_flag("--loop", args->loop, "Play again from the start at the end");
  start->add_option("--show-layout", args->show_layout, "Engine's show-layout value");
  start->callback([&context, args] {
    if (Run(context, "starting playback", [&] {
          return zm_playback(args->uri.c_str(), Millis(args->seconds), args->show_layout,
                             args->loop);
        }))
      context.out().Message("ok");
  });
  playback->add_subcommand("pause", "Pause playback")
      ->callback(simple("pausing playback", zm_pause_playback));
  playback->add_subcommand("resume", "Resume playback")
      ->callback(simple("resuming playback", zm_resume_playback));
  playback->add_subcommand("stop", "Stop playback")
      ->callback(simple("stopping playback", zm_stop_playback));
  auto* seek = playback->add_subcommand("seek", "Go to a position");
  seek->add_option("S", args->seconds, "Position in seconds")->required();
  seek->callback([&context, args] {
    if (Run(context, "seeking", [&] { return zm_seek_playback(Millis(args->seconds)); }))
      context.out().Message("ok");
  });
  playback->add_subcommand("state", "The engine's playback state")->callback([&context] {
    std::string state;
    if (Run(context, "reading playback state", [&] { return zm_get_playback_state(&state); }))
      context.out().Record({{"state", state}});
  });
  auto* mode = playback->add_subcommand("mode", "Set the playback mode (0-3)");
  mode->add_option("M", args->id, "Mode")->required();
  mode->callback([&context, args] {
    if (Run(context, "setting playback mode", [&] { return zm_set_playback_mode(args->id); }))
      context.out().Message("ok");
  });

  auto* ringtone = app.add_subcommand("ringtone", "The engine's ringtone");
  ringtone->require_subcommand(1);
  ringtone->add_subcommand("play", "Play the ringtone")
      ->callback(simple("playing ringtone", zm_play_ringtone));
  ringtone->add_subcommand("stop", "Stop the ringtone")
      ->callback(simple("stopping ringtone", zm_stop_ringtone));
}

}  // namespace

void AddMixerLiveCommands(CLI::App& app, Context& context) {
  AddMixerCommands(app, context);
  AddColorCommands(app, context);
  AddPlaybackCommands(app, context);
}

}  // namespace zmctl
