// layout, asset, theme: the video mixer's stored configuration.
#include <zolo/media.h>
#include <zolo/sysroot.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "context.h"
#include "zolo/media_json/mixer_config_json.h"

namespace zmctl {

namespace {

namespace fs = std::filesystem;

std::string Number(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

size_t ThreadCount() {
  size_t n = 0;
  std::error_code ec;
  for (auto it = fs::directory_iterator("/proc/self/task", ec); !ec && it != fs::end(it);
       it.increment(ec))
    ++n;
  return n;
}

// Layout changes finish on a background thread (preview, then notification); the process
// must not exit before it ends.
void WaitForBackgroundTasks(size_t threads) {
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (ThreadCount() > threads && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

// "x,y,w,h,z,crop,source" into a window. The position and size are finite numbers; z, crop and
// source are integers in range. The empty answer means success, otherwise it names the field.
std::string ParseWindow(const std::string& text, zm_video_layout* window) {
  static constexpr const char* kFields[] = {"x", "y", "w", "h", "z", "crop", "source"};
  double v[7];
  size_t start = 0;
  for (size_t i = 0; i < 7; ++i) {
    size_t comma = text.find(',', start);
    if ((i < 6) != (comma != std::string::npos))
      return "window " + text + ": want seven numbers x,y,w,h,z,crop,source";
    std::string field = text.substr(start, comma == std::string::npos ? comma : comma - start);
    start = comma + 1;
    char* end = nullptr;
    v[i] = std::strtod(field.c_str(), &end);
    bool integral = i >= 4;
    if (field.empty() || *end != '\0' || !std::isfinite(v[i]) ||
        (integral && (v[i] != std::trunc(v[i]) || v[i] < INT_MIN || v[i] > INT_MAX)))
      return "window " + text + ": " + kFields[i] + " '" + field + "' is not " +
             (integral ? "an integer in range" : "a finite number");
  }
  *window = {static_cast<int>(v[6]), v[2], v[3], v[0], v[1], static_cast<int>(v[4]),
             static_cast<int>(v[5])};
  return "";
}

// Checks each WINDOW while the command line is parsed, so a bad one is a usage error.
const CLI::Validator kWindowCheck(
    [](std::string& text) {
      zm_video_layout window{};
      return ParseWindow(text, &window);
    },
    "x,y,w,h,z,crop,source");

// "OLD:NEW", two source ids in int range.
bool ParseReplace(const std::string& text, int* from, int* to) {
  size_t colon = text.find(':');
  if (colon == std::string::npos) return false;
  auto number = [](const std::string& part, int* out) {
    char* end = nullptr;
    errno = 0;
    long value = std::strtol(part.c_str(), &end, 10);
    if (part.empty() || *end != '\0' || errno != 0 || value < INT_MIN || value > INT_MAX)
      return false;
    *out = static_cast<int>(value);
    return true;
  };
  return number(text.substr(0, colon), from) && number(text.substr(colon + 1), to);
}

void ParseWindows(const std::vector<std::string>& items, zm_layout* layout) {
  for (const std::string& item : items) ParseWindow(item, &layout->video_layouts.emplace_back());
}

void PrintLayouts(const Context& context, const std::vector<zm_layout>& layouts) {
  if (context.out().Records(layouts)) return;
  std::vector<Row> rows;
  for (const auto& l : layouts)
    rows.push_back({std::to_string(l.id), l.name, l.group, std::to_string(l.rank),
                    l.custom ? "yes" : "no", std::to_string(l.video_layouts.size()), l.image});
  context.out().Table({"id", "name", "group", "rank", "custom", "windows", "image"}, rows);
}

void PrintWindows(const Context& context, const zm_layout& layout) {
  if (context.out().Records(layout.video_layouts)) return;
  std::vector<Row> rows;
  for (size_t i = 0; i < layout.video_layouts.size(); ++i) {
    const zm_video_layout& w = layout.video_layouts[i];
    rows.push_back({std::to_string(i), std::to_string(w.id), Number(w.x), Number(w.y), Number(w.w),
                    Number(w.h), std::to_string(w.z), std::to_string(w.crop)});
  }
  context.out().Table({"window", "source", "x", "y", "w", "h", "z", "crop"}, rows);
}

// The preview's file below the sandbox root, from its "file://" URL.
std::string PreviewPath(const zm_layout& layout) {
  std::string url = layout.image;
  return url.rfind("file://", 0) == 0 ? zolo::SysrootPath(url.substr(7)) : "";
}

struct LayoutArgs {
  int id = 0;
  std::string group;
  bool record = false;
  bool display = false;
  std::vector<std::string> windows;
  std::vector<int> sources;
  std::string replace;  // OLD:NEW
  bool keep_custom = false;
  bool quiet = false;
};

void AddLayoutCommands(CLI::App& app, Context& context) {
  auto* layout = app.add_subcommand("layout", "Layouts of the video mixers");
  layout->require_subcommand(1);
  auto args = std::make_shared<LayoutArgs>();

  auto* list = layout->add_subcommand("list", "List layouts (all, by group, for recording)");
  list->add_option("--group", args->group, "Only the layouts of this kind (Single, PIP, ...)");
  list->add_flag("--record", args->record, "Only layouts a recording mixer can use");
  list->add_flag("--display", args->display, "Only the layout the display mixer shows");
  list->callback([&context, args] {
    std::vector<zm_layout> layouts;
    if (Run(context, "listing layouts", [&] {
          if (args->display) {
            int id = zm_get_display_layout();
            return id <= 0 ? id : zm_get_layout(id, &layouts);
          }
          if (!args->group.empty()) return zm_get_layout_by_group(args->group.c_str(), &layouts);
          return args->record ? zm_get_record_layout(0, &layouts) : zm_get_layout(0, &layouts);
        }))
      PrintLayouts(context, layouts);
  });

  auto* show = layout->add_subcommand("show", "One layout and its windows");
  show->add_option("ID", args->id, "Layout id")->required();
  show->callback([&context, args] {
    std::vector<zm_layout> found;
    if (!Run(context, "zm_get_layout", [&] { return zm_get_layout(args->id, &found); })) return;
    const zm_layout& l = found.front();
    if (!context.json)
      context.out().Record({{"id", std::to_string(l.id)},
                            {"name", l.name},
                            {"group", l.group},
                            {"rank", std::to_string(l.rank)},
                            {"custom", l.custom ? "yes" : "no"},
                            {"image", l.image}});
    PrintWindows(context, l);
  });

  const char* window_help = "Windows as x,y,w,h,z,crop,source (fractions of the picture)";
  auto* add = layout->add_subcommand("add", "Add a custom layout in a free slot");
  add->add_option("WINDOW", args->windows, window_help)->required()->check(kWindowCheck);
  add->callback([&context, args] {
    zm_layout record{};
    ParseWindows(args->windows, &record);
    size_t threads = 0;
    int id = 0;
    if (Run(context, "zm_add_layout", [&] {
          threads = ThreadCount();
          id = zm_add_layout(record);
          if (id > 0) WaitForBackgroundTasks(threads);
          return id;
        }))
      context.out().Record({{"id", std::to_string(id)}});
  });

  auto* set = layout->add_subcommand("set", "Change a layout's windows or their sources");
  set->add_option("ID", args->id, "Layout id")->required();
  set->add_option("WINDOW", args->windows, window_help)->check(kWindowCheck);
  set->add_option("--sources", args->sources, "New sources of the first windows, in order")
      ->delimiter(',');
  set->add_option("--replace", args->replace, "Show source NEW wherever OLD was: OLD:NEW")
      ->check(CLI::Validator(
          [](std::string& text) {
            int from = 0, to = 0;
            return ParseReplace(text, &from, &to) ? "" : "--replace " + text + ": want OLD:NEW";
          },
          "OLD:NEW"));
  set->add_flag("--keep-custom", args->keep_custom,
                "Do not mark the layout custom (only custom layouts may then change)");
  set->add_flag("--quiet", args->quiet, "Do not tell the engine");
  set->callback([&context, args] {
    int given = !args->windows.empty() + !args->sources.empty() + !args->replace.empty();
    if (given != 1) {
      context.status = Fail("layout set (give windows, --sources or --replace)", -3);
      return;
    }
    zm_layout record{};
    ParseWindows(args->windows, &record);
    int from = 0, to = 0;
    if (!args->replace.empty()) ParseReplace(args->replace, &from, &to);
    bool custom = !args->keep_custom, notify = !args->quiet;
    if (Run(context, "zm_set_layout", [&] {
          size_t threads = ThreadCount();
          if (!args->sources.empty()) return zm_set_layout(args->id, args->sources, custom, notify);
          if (!args->replace.empty()) return zm_set_layout(args->id, from, to, custom, notify);
          int result = zm_set_layout(args->id, record, custom, notify);
          if (result == 0) WaitForBackgroundTasks(threads);
          return result;
        }))
      context.out().Message("ok");
  });

  auto* remove = layout->add_subcommand("remove", "Remove a custom layout, freeing its slot");
  remove->add_option("ID", args->id, "Layout id")->required();
  remove->callback([&context, args] {
    if (Run(context, "zm_remove_layout", [&] { return zm_remove_layout(args->id); }))
      context.out().Message("ok");
  });

  auto* render = layout->add_subcommand("render", "Render a layout's preview; prints its path");
  render->add_option("ID", args->id, "Layout id")->required();
  render->callback([&context, args] {
    std::string path;
    if (Run(context, "rendering the preview", [&] {
          std::vector<zm_layout> found;
          if (int result = zm_get_layout(args->id, &found)) return result;
          const zm_layout& l = found.front();
          path = PreviewPath(l);
          if (path.empty()) return -2;  // display layouts have no preview
          std::error_code ec;
          fs::remove(path, ec);
          size_t threads = ThreadCount();
          if (int result = zm_set_layout(l.id, l, l.custom != 0, false)) return result;
          WaitForBackgroundTasks(threads);
          return fs::exists(path, ec) ? 0 : -1;
        }))
      context.out().Record({{"path", path}, {"size", std::to_string(fs::file_size(path))}});
  });
}

struct AssetArgs {
  std::string kind;
  int id = 0;
  std::string path;
  std::string name;
  std::vector<std::string> origins;
  std::vector<double> position;
  std::string content;
  int rank = 0;
  bool enable = false;
};

template <class Record>
Record Picture(const AssetArgs& a) {
  Record r{};
  std::snprintf(r.path, sizeof r.path, "%s", a.path.c_str());
  std::snprintf(r.name, sizeof r.name, "%s", a.name.c_str());
  std::snprintf(r.origin, sizeof r.origin, "%s", a.origins.empty() ? "" : a.origins[0].c_str());
  r.rank = a.rank;
  return r;
}

zm_overlay Overlay(const AssetArgs& a) {
  zm_overlay r{};
  std::snprintf(r.path, sizeof r.path, "%s", a.path.c_str());
  std::snprintf(r.name, sizeof r.name, "%s", a.name.c_str());
  r.origins = a.origins;
  for (size_t i = 0; i + 1 < a.position.size(); i += 2)
    r.positions.push_back({a.position[i], a.position[i + 1]});
  r.rank = a.rank;
  return r;
}

template <class Record>
void PrintPictures(const Context& context, const std::vector<Record>& list) {
  if (context.out().Records(list)) return;
  std::vector<Row> rows;
  for (const auto& r : list)
    rows.push_back({std::to_string(r.id), r.name, r.path, r.origin, std::to_string(r.rank)});
  context.out().Table({"id", "name", "path", "origin", "rank"}, rows);
}

void AddAssetCommands(CLI::App& app, Context& context) {
  auto* asset = app.add_subcommand("asset", "Mixer assets: backgrounds, foregrounds, overlays");
  asset->require_subcommand(1);
  auto args = std::make_shared<AssetArgs>();
  const std::vector<std::string> kinds = {"background", "foreground", "intermission",
                                          "overlay",    "logo",       "system-overlay"};

  auto* list = asset->add_subcommand("list", "List the assets of a kind");
  list->add_option("KIND", args->kind, "background, foreground, intermission, overlay, ...")
      ->required()
      ->check(CLI::IsMember(kinds));
  list->callback([&context, args] {
    const std::string& k = args->kind;
    std::vector<zm_background> backgrounds;
    std::vector<zm_foreground> foregrounds;
    std::vector<zm_overlay> overlays;
    std::vector<zm_logo> logos;
    std::vector<zm_system_overlay> systems;
    if (!Run(context, "listing " + k, [&] {
          if (k == "background") return zm_get_background(0, &backgrounds);
          if (k == "foreground") return zm_get_foreground(0, &foregrounds);
          if (k == "intermission") return zm_get_intermission(0, &foregrounds);
          if (k == "overlay") return zm_get_overlay(0, &overlays);
          if (k == "logo") return zm_get_logo(0, &logos);
          return zm_get_system_overlay(0, &systems);
        }))
      return;
    std::vector<Row> rows;
    if (k == "background") return PrintPictures(context, backgrounds);
    if (k == "foreground" || k == "intermission") return PrintPictures(context, foregrounds);
    if (k == "overlay") {
      if (context.out().Records(overlays)) return;
      for (const auto& o : overlays) {
        std::string origins, positions;
        for (const auto& n : o.origins) origins += (origins.empty() ? "" : " ") + n;
        for (const auto& p : o.positions)
          positions += (positions.empty() ? "" : " ") + Number(p.x) + "," + Number(p.y);
        rows.push_back(
            {std::to_string(o.id), o.name, o.path, origins, positions, std::to_string(o.rank)});
      }
      return context.out().Table({"id", "name", "path", "origins", "positions", "rank"}, rows);
    }
    if (k == "logo") {
      if (context.out().Records(logos)) return;
      for (const auto& l : logos)
        rows.push_back({std::to_string(l.id), l.name, l.path, Number(l.x), Number(l.y),
                        std::to_string(l.rank)});
      return context.out().Table({"id", "name", "path", "x", "y", "rank"}, rows);
    }
    if (context.out().Records(systems)) return;
    for (const auto& s : systems)
      rows.push_back({std::to_string(s.id), s.name, s.path, Number(s.x), Number(s.y), s.content,
                      std::to_string(s.rank)});
    context.out().Table({"id", "name", "path", "x", "y", "content", "rank"}, rows);
  });

  auto file_options = [args](CLI::App* command) {
    command->add_option("--path", args->path, "Folder of the file")->required();
    command->add_option("--name", args->name, "File name inside the folder")->required();
    command->add_option("--origin", args->origins, "Origin file(s) in the same folder");
    command->add_option("--rank", args->rank, "Position among the assets of its kind (1 first)");
    command->add_option("--position", args->position, "Overlay position(s): X,Y (fractions)")
        ->delimiter(',');
  };

  auto* add = asset->add_subcommand("add", "Add a background or overlay in a free slot");
  add->add_option("KIND", args->kind, "background or overlay")
      ->required()
      ->check(CLI::IsMember({"background", "overlay"}));
  file_options(add);
  add->callback([&context, args] {
    int id = 0;
    if (Run(context, "adding the " + args->kind, [&] {
          id = args->kind == "background" ? zm_add_background(Picture<zm_background>(*args))
                                          : zm_add_overlay(Overlay(*args));
          return id;
        }))
      context.out().Record({{"id", std::to_string(id)}});
  });

  auto* set = asset->add_subcommand("set", "Change an asset's file");
  set->add_option("KIND", args->kind, "background, intermission, overlay or system-overlay")
      ->required()
      ->check(CLI::IsMember({"background", "intermission", "overlay", "system-overlay"}));
  set->add_option("ID", args->id, "Asset id")->required();
  file_options(set);
  set->add_option("--content", args->content, "System overlay: what it shows (JSON)");
  set->add_flag("--enable", args->enable, "Take a free slot into use");
  set->callback([&context, args] {
    const AssetArgs& a = *args;
    if (Run(context, "changing the " + a.kind, [&] {
          if (a.kind == "background")
            return zm_set_background(a.id, Picture<zm_background>(a), a.enable);
          if (a.kind == "intermission")
            return zm_set_intermission(a.id, Picture<zm_foreground>(a), a.enable);
          if (a.kind == "overlay") return zm_set_overlay(a.id, Overlay(a), a.enable);
          zm_system_overlay s{};
          std::snprintf(s.path, sizeof s.path, "%s", a.path.c_str());
          std::snprintf(s.name, sizeof s.name, "%s", a.name.c_str());
          std::snprintf(s.content, sizeof s.content, "%s", a.content.c_str());
          if (a.position.size() >= 2) s.x = a.position[0], s.y = a.position[1];
          s.rank = a.rank;
          return zm_set_system_overlay(a.id, s, a.enable);
        }))
      context.out().Message("ok");
  });

  auto* remove = asset->add_subcommand("remove", "Remove a background or overlay and its files");
  remove->add_option("KIND", args->kind, "background or overlay")
      ->required()
      ->check(CLI::IsMember({"background", "overlay"}));
  remove->add_option("ID", args->id, "Asset id")->required();
  remove->callback([&context, args] {
    if (Run(context, "removing the " + args->kind, [&] {
          return args->kind == "background" ? zm_remove_background(args->id)
                                            : zm_remove_overlay(args->id);
        }))
      context.out().Message("ok");
  });
}

struct ThemeArgs {
  int id = 0;
  std::string name;
  int layout = 0;
  int background = 0;
  int overlay = 0;
  int rank = 0;
  bool enable = false;
  bool quiet = false;
};

void AddThemeCommands(CLI::App& app, Context& context) {
  auto* theme = app.add_subcommand("theme", "Themes: a layout, background and overlay together");
  theme->require_subcommand(1);
  auto args = std::make_shared<ThemeArgs>();
  theme->add_subcommand("list", "List the themes")->callback([&context] {
    std::vector<zm_theme> themes;
    if (!Run(context, "zm_get_theme", [&] { return zm_get_theme(0, &themes); })) return;
    if (context.out().Records(themes)) return;
    std::vector<Row> rows;
    for (const auto& t : themes)
      rows.push_back({std::to_string(t.id), t.name, std::to_string(t.layout),
                      std::to_string(t.background), std::to_string(t.overlay),
                      std::to_string(t.rank)});
    context.out().Table({"id", "name", "layout", "background", "overlay", "rank"}, rows);
  });
  auto record = [args] {
    zm_theme t{};
    std::snprintf(t.name, sizeof t.name, "%s", args->name.c_str());
    t.layout = args->layout;
    t.background = args->background;
    t.overlay = args->overlay;
    t.rank = args->rank;
    return t;
  };
  auto binding_options = [args](CLI::App* command) {
    command->add_option("--name", args->name, "Theme name")->required();
    command->add_option("--layout", args->layout, "Layout id (0: none)");
    command->add_option("--background", args->background, "Background id (0: none)");
    command->add_option("--overlay", args->overlay, "Overlay id (0: none)");
    command->add_option("--rank", args->rank, "Position in the list (1 first)");
  };
  auto* add = theme->add_subcommand("add", "Add a theme in a free slot");
  binding_options(add);
  add->callback([&context, record] {
    int id = 0;
    if (Run(context, "zm_add_theme", [&] { return id = zm_add_theme(record()); }))
      context.out().Record({{"id", std::to_string(id)}});
  });
  auto* set = theme->add_subcommand("set", "Change a theme's name and bindings");
  set->add_option("ID", args->id, "Theme id")->required();
  binding_options(set);
  set->add_flag("--enable", args->enable, "Take a free slot into use");
  set->add_flag("--quiet", args->quiet, "Do not tell the engine");
  set->callback([&context, args, record] {
    if (Run(context, "zm_set_theme",
            [&] { return zm_set_theme(args->id, record(), args->enable, !args->quiet); }))
      context.out().Message("ok");
  });
  auto* remove = theme->add_subcommand("remove", "Remove a theme, freeing its slot");
  remove->add_option("ID", args->id, "Theme id")->required();
  remove->callback([&context, args] {
    if (Run(context, "zm_remove_theme", [&] { return zm_remove_theme(args->id); }))
      context.out().Message("ok");
  });
}

}  // namespace

void AddMixerConfigCommands(CLI::App& app, Context& context) {
  AddLayoutCommands(app, context);
  AddAssetCommands(app, context);
  AddThemeCommands(app, context);
}

}  // namespace zmctl
