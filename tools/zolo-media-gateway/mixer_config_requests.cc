// Layouts, mixer assets (backgrounds, foregrounds, intermissions, overlays, logos, system
// overlays) and themes.
#include <limits.h>
#include <stdlib.h>
#include <zolo/media/mixer_config.h>
#include <zolo/sysroot.h>

#include "request_helpers.h"
#include "zolo/media_json/mixer_config_json.h"

namespace zolo::gateway {
namespace {

constexpr ParamType kInt = ParamType::kInteger;
constexpr ParamType kText = ParamType::kString;
constexpr ParamType kBool = ParamType::kBoolean;
constexpr ParamType kObject = ParamType::kObject;
constexpr int kMaxWindows = 256;

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? resolved : "";
}

// The library checks an asset's folder by its text; this also resolves symbolic links, so
// a link inside the asset folders cannot lead to a file elsewhere. Origin files are plain
// names in the same folder.
bool AssetFilesAllowed(const std::string& folder, const std::string& name,
                       const std::vector<std::string>& origins) {
  std::string path = folder.rfind("file://", 0) == 0 ? folder.substr(7) : folder;
  for (const std::string& origin : origins)
    if (origin.find('/') != std::string::npos || origin == "..") return false;
  std::string file = RealPath(SysrootPath(path + "/" + name));
  if (file.empty()) return true;  // the library refuses a missing file itself
  for (const char* root : {"/var/lib/zolo/media/assets", "/usr/share/media/overlay"}) {
    std::string real_root = RealPath(SysrootPath(root));
    if (!real_root.empty() && file.compare(0, real_root.size() + 1, real_root + "/") == 0)
      return true;
  }
  return false;
}
bool AssetAllowed(const zm_background& a) {
  return AssetFilesAllowed(a.path, a.name, {a.origin});
}
bool AssetAllowed(const zm_foreground& a) {
  return AssetFilesAllowed(a.path, a.name, {a.origin});
}
bool AssetAllowed(const zm_overlay& a) {
  return AssetFilesAllowed(a.path, a.name, a.origins);
}
bool AssetAllowed(const zm_system_overlay& a) {
  return AssetFilesAllowed(a.path, a.name, {});
}

template <class T>
Outcome ListById(int (*get)(int, std::vector<T>*), const char* member, const cJSON* args) {
  std::vector<T> out;
  int code = get(IntArg(args, "id"), &out);
  return WithList(code, member, out);
}

// set_background, set_intermission, set_overlay, set_system_overlay: (id, record, enable).
template <class T, int (*Set)(int, const T&, bool)>
Outcome SetAsset(const cJSON* args, const char* member) {
  T record{};
  Outcome refusal;
  if (!RecordArg(args, member, &record, &refusal)) return refusal;
  if (!AssetAllowed(record)) {
    LogRefusal(std::string(member) + " names a file outside the asset folders");
    return Code(-3);
  }
  return Code(Set(IntArg(args, "id"), record, BoolArg(args, "enable")));
}

// add_background, add_overlay: the new id.
template <class T, int (*Add)(const T&)>
Outcome AddAsset(const cJSON* args, const char* member) {
  T record{};
  Outcome refusal;
  if (!RecordArg(args, member, &record, &refusal)) return refusal;
  if (!AssetAllowed(record)) {
    LogRefusal(std::string(member) + " names a file outside the asset folders");
    return Code(-3);
  }
  return Value(Add(record), "id");
}

Outcome GetLayoutString(const cJSON* args) {
  std::vector<zm_video_layout> windows;
  std::string error =
      json::ListFromJson(cJSON_GetObjectItemCaseSensitive(args, "windows"), "windows", &windows);
  if (!error.empty()) return BadArgument(error);
  return WithText(0, "layout_string", zm_get_layout_string(windows));
}

Outcome ParseLayoutString(const cJSON* args) {
  std::vector<zm_video_layout> windows;
  int code = zm_parse_layout_string(StringArg(args, "text").c_str(), &windows);
  return WithList(code, "windows", windows);
}

Outcome AddLayout(const cJSON* args) {
  zm_layout layout{};
  Outcome refusal;
  if (!RecordArg(args, "layout", &layout, &refusal)) return refusal;
  if (layout.video_layouts.size() > kMaxWindows) return BadArgument("too many windows");
  return Value(zm_add_layout(layout), "id");
}

// Three forms: a whole `layout`, the `source_ids` of its windows, or one source swapped
// (`old_source` -> `new_source`).
Outcome SetLayout(const cJSON* args) {
  int id = IntArg(args, "id");
  bool custom = BoolArg(args, "custom");
  bool notify = BoolArg(args, "notify");
  int forms = Has(args, "layout") + Has(args, "source_ids") +
              (Has(args, "old_source") || Has(args, "new_source"));
  if (forms != 1) return BadArgument("give one of layout, source_ids, old_source/new_source");
  if (Has(args, "layout")) {
    zm_layout layout{};
    Outcome refusal;
    if (!RecordArg(args, "layout", &layout, &refusal)) return refusal;
    if (layout.video_layouts.size() > kMaxWindows) return BadArgument("too many windows");
    return Code(zm_set_layout(id, layout, custom, notify));
  }
  if (Has(args, "source_ids")) {
    const cJSON* list = cJSON_GetObjectItemCaseSensitive(args, "source_ids");
    if (!cJSON_IsArray(list) || cJSON_GetArraySize(list) > kMaxWindows)
      return BadArgument("source_ids must be an array of at most 256 ids");
    std::vector<int> ids;
    for (const cJSON* item = list->child; item; item = item->next) {
      if (!cJSON_IsNumber(item)) return BadArgument("source_ids must hold integers");
      ids.push_back(item->valueint);
    }
    return Code(zm_set_layout(id, ids, custom, notify));
  }
  if (!Has(args, "old_source") || !Has(args, "new_source"))
    return BadArgument("old_source and new_source go together");
  return Code(
      zm_set_layout(id, IntArg(args, "old_source"), IntArg(args, "new_source"), custom, notify));
}

Outcome SetVideoLayoutContent(const cJSON* args) {
  zm_video_layout window{};
  Outcome refusal;
  if (!RecordArg(args, "window", &window, &refusal)) return refusal;
  return Code(zm_set_video_layout_content(IntArg(args, "id"), IntArg(args, "index"), &window));
}

Outcome AddTheme(const cJSON* args) {
  zm_theme theme{};
  Outcome refusal;
  if (!RecordArg(args, "theme", &theme, &refusal)) return refusal;
  return Value(zm_add_theme(theme), "id");
}

Outcome SetTheme(const cJSON* args) {
  zm_theme theme{};
  Outcome refusal;
  if (!RecordArg(args, "theme", &theme, &refusal)) return refusal;
  return Code(
      zm_set_theme(IntArg(args, "id"), theme, BoolArg(args, "enable"), BoolArg(args, "notify")));
}

}  // namespace

void AddMixerConfigRequests(RequestTable& table) {
  const std::vector<Param> by_id = {{"id", kInt}};
  auto set_asset = [](const char* member) {
    return std::vector<Param>{{"id", kInt}, {member, kObject}, {"enable", kBool, false}};
  };
  table.insert(
      table.end(),
      {
          {"get_layout_string",
           {{"windows", ParamType::kArray}},
           GetLayoutString,
           "The compact layout string of `windows`."},
          {"parse_layout_string",
           {{"text", kText}},
           ParseLayoutString,
           "The windows of a layout string."},
          {"get_layout", by_id,
           [](const cJSON* a) { return ListById(zm_get_layout, "layouts", a); },
           "Layout `id`, or every layout in use for 0."},
          {"get_record_layout", by_id,
           [](const cJSON* a) { return ListById(zm_get_record_layout, "layouts", a); },
           "Layouts a recording mixer can use (`id`, or all for 0)."},
          {"get_layout_by_group",
           {{"group", kText}},
           [](const cJSON* a) {
             std::vector<zm_layout> out;
             int code = zm_get_layout_by_group(StringArg(a, "group").c_str(), &out);
             return WithList(code, "layouts", out);
           },
           "The layouts in use of kind `group`."},
          {"add_layout",
           {{"layout", kObject}},
           AddLayout,
           "Stores a new manual layout from its windows; gives its id."},
          {"set_layout",
           {{"id", kInt},
            {"layout", kObject, false},
            {"source_ids", ParamType::kArray, false},
            {"old_source", kInt, false},
            {"new_source", kInt, false},
            {"custom", kBool, false},
            {"notify", kBool, false}},
           SetLayout,
           "Changes layout `id`: its windows, its sources, or one source."},
          {"remove_layout", by_id,
           [](const cJSON* a) { return Code(zm_remove_layout(IntArg(a, "id"))); },
           "Frees layout `id`."},
          {"set_video_layout_content",
           {{"id", kInt}, {"index", kInt}, {"window", kObject}},
           SetVideoLayoutContent,
           "Replaces geometry and crop of window `index` of a custom layout."},
          {"render_layout_preview", by_id,
           [](const cJSON* a) { return Code(zm_render_layout_preview(IntArg(a, "id"))); },
           "Renders the preview image of layout `id` now (`/images/layouts/layout_NNN.png`)."},
          {"get_display_layout",
           {},
           [](const cJSON*) { return Value(zm_get_display_layout(), "id"); },
           "Id of the layout the display mixer shows (0: none)."},
          {"get_background", by_id,
           [](const cJSON* a) { return ListById(zm_get_background, "backgrounds", a); },
           "Background `id`, or those in use for 0."},
          {"get_foreground", by_id,
           [](const cJSON* a) { return ListById(zm_get_foreground, "foregrounds", a); },
           "Foreground `id`, or those in use for 0."},
          {"get_intermission", by_id,
           [](const cJSON* a) { return ListById(zm_get_intermission, "foregrounds", a); },
           "Foreground `id`, or every foreground for 0 (intermission candidates)."},
          {"get_overlay", by_id,
           [](const cJSON* a) { return ListById(zm_get_overlay, "overlays", a); },
           "Overlay `id`, or those in use for 0."},
          {"get_logo", by_id, [](const cJSON* a) { return ListById(zm_get_logo, "logos", a); },
           "Logo `id`, or those in use for 0."},
          {"get_system_overlay", by_id,
           [](const cJSON* a) { return ListById(zm_get_system_overlay, "system_overlays", a); },
           "System overlay `id`, or those in use for 0."},
          {"get_background_count",
           {},
           [](const cJSON*) { return Value(zm_get_background_count(), "count"); },
           "Number of backgrounds in use."},
          {"get_overlay_count",
           {},
           [](const cJSON*) { return Value(zm_get_overlay_count(), "count"); },
           "Number of overlays in use."},
          {"set_background", set_asset("background"),
           [](const cJSON* a) {
             return SetAsset<zm_background, zm_set_background>(a, "background");
           },
           "Changes background `id` to the record's file and rank."},
          {"add_background",
           {{"background", kObject}},
           [](const cJSON* a) {
             return AddAsset<zm_background, zm_add_background>(a, "background");
           },
           "Adds a background; gives its id."},
          {"remove_background", by_id,
           [](const cJSON* a) { return Code(zm_remove_background(IntArg(a, "id"))); },
           "Frees background `id` and deletes its files."},
          {"set_intermission", set_asset("intermission"),
           [](const cJSON* a) {
             return SetAsset<zm_foreground, zm_set_intermission>(a, "intermission");
           },
           "Changes the intermission picture `id`."},
          {"set_overlay", set_asset("overlay"),
           [](const cJSON* a) { return SetAsset<zm_overlay, zm_set_overlay>(a, "overlay"); },
           "Changes overlay `id`."},
          {"add_overlay",
           {{"overlay", kObject}},
           [](const cJSON* a) { return AddAsset<zm_overlay, zm_add_overlay>(a, "overlay"); },
           "Adds an overlay; gives its id."},
          {"remove_overlay", by_id,
           [](const cJSON* a) { return Code(zm_remove_overlay(IntArg(a, "id"))); },
           "Frees overlay `id` and deletes its files."},
          {"set_system_overlay", set_asset("overlay"),
           [](const cJSON* a) {
             return SetAsset<zm_system_overlay, zm_set_system_overlay>(a, "overlay");
           },
           "Changes system overlay `id`'s file, position and content."},
          {"get_theme", by_id, [](const cJSON* a) { return ListById(zm_get_theme, "themes", a); },
           "Theme `id`, or the themes in use for 0."},
          {"add_theme", {{"theme", kObject}}, AddTheme, "Adds a theme; gives its id."},
          {"set_theme",
           {{"id", kInt}, {"theme", kObject}, {"enable", kBool, false}, {"notify", kBool, false}},
           SetTheme,
           "Sets name, bindings and rank of theme `id`."},
          {"remove_theme", by_id,
           [](const cJSON* a) { return Code(zm_remove_theme(IntArg(a, "id"))); },
           "Frees theme `id`."},
      });
}

}  // namespace zolo::gateway
