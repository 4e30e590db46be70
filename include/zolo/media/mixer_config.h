// The video mixer's stored configuration: layouts (with their rendered preview images),
// mixer assets (backgrounds, foregrounds and intermission pictures, overlays and logos,
// system overlays) and themes.
//
// Layouts, assets and themes are fixed pools of slots in the media database: adding takes
// the first free slot, removing frees it again; a free slot is never listed. Every change
// the database accepts is announced to the engine with "change_media_data"; a write the
// database refuses returns -1 and is not announced. Result codes: 0 (or the new id) on
// success; -1 database write failed; -2 refused (no free slot, a display layout); -3 bad
// argument (missing vector, bad id, a file that is not a regular file inside the asset
// folders, a window with a non-finite number or a negative size); -5 no such object, or
// a free slot where one in use is needed.
#pragma once

#include <zolo/export.h>

#include <string>
#include <vector>

// One window of a layout: the source shown, its position and size as fractions of the
// picture, its stacking order and crop mode (0 fit, 1 fill and crop).
struct zm_video_layout {
  int id;
  double w;
  double h;
  double x;
  double y;
  int z;
  int crop;
};

// One layout (a configuration slot of the video mixer).
struct zm_layout {
  int id;
  char name[512];
  char group[512];  // the layout kind: "Single", "Dual", ..., "Manual", "Display"
  std::vector<zm_video_layout> video_layouts;
  char image[512];  // "file://" URL of the rendered preview; empty for display layouts
  int rank;
  int custom;
};

// --- layouts ---

// The compact JSON text {"layout":[{"id","x","y","z","w","h","crop"}, ...]} of `windows`.
ZM_EXPORT std::string zm_get_layout_string(const std::vector<zm_video_layout>& windows);
// Appends the windows of a layout string to `out` (not cleared). 0; -1 when the text is
// not JSON, has no "layout" array, or a window lacks "id" or holds a member that is not a
// finite number (the windows before the faulty one stay appended); -3 for null arguments.
ZM_EXPORT int zm_parse_layout_string(const char* text, std::vector<zm_video_layout>* out);

// Layout queries append to `out` (never cleared) and then sort all of it by the kind's
// rank ("Single" first, "Display" late, unknown kinds last) and the layout's rank.
// 0; -3 without `out`; -5 when the query fails or the layout `id` is free.
// `id` 0 lists every layout in use.
ZM_EXPORT int zm_get_layout(int id, std::vector<zm_layout>* out);
// As zm_get_layout, only the layouts a recording mixer can use (ordinary and "Manual",
// never display layouts), with `name` left empty.
ZM_EXPORT int zm_get_record_layout(int id, std::vector<zm_layout>* out);
// The layouts in use of the kind `group` (required), with `name` left empty.
ZM_EXPORT int zm_get_layout_by_group(const char* group, std::vector<zm_layout>* out);

// Stores the windows of `layout` in a free slot (which joins the "Manual" kind) and
// renders its preview in the background. The new id; -2 no free slot; -1 otherwise.
ZM_EXPORT int zm_add_layout(const zm_layout& layout);
// Stores the windows of `layout` (only its windows) in the slot `id`, taking it into use,
// sets its custom flag to `custom` and returns at once; a background task renders the
// preview of ordinary layouts and then, when `notify`, announces the change (as an
// addition when the layout was not custom before and a preview was made). A failed
// rendering is logged and not announced. 0; -1; -3 bad windows; -5 no such slot.
ZM_EXPORT int zm_set_layout(int id, const zm_layout& layout, bool custom, bool notify);
// Gives window i the source `source_ids[i]`; later windows keep theirs. Without `custom`
// only a custom layout may change (-5 otherwise). 0; -1 (stored text unreadable or write
// failed); -3 more ids than windows; -5.
ZM_EXPORT int zm_set_layout(int id, const std::vector<int>& source_ids, bool custom, bool notify);
// Shows `new_source` wherever the layout showed `old_source`. Results as above.
ZM_EXPORT int zm_set_layout(int id, int old_source, int new_source, bool custom, bool notify);
// Frees the slot `id` and unbinds it from every theme (each announced as a theme update).
// 0; -1 write failed; -2 a display layout; -3 id below 1; -5 no such layout or a free slot.
ZM_EXPORT int zm_remove_layout(int id);
// Replaces the geometry and crop of window `index` of a custom layout (the source stays).
// The model's result (0; -3 bad index); -5 not custom or no such layout; -3 null window.
ZM_EXPORT int zm_set_video_layout_content(int id, int index, zm_video_layout* window);
// Renders the preview image of layout `id` now (the renderer runs on the calling thread),
// replacing any earlier one. 0; -1 the renderer failed (logged); -2 a display layout, which
// has no preview; -5 no such layout or a free slot.
ZM_EXPORT int zm_render_layout_preview(int id);
// Id of the layout the display mixer shows, 0 for none; -5 when there is no display mixer.
ZM_EXPORT int zm_get_display_layout();

// --- mixer assets ---

// A background, foreground or intermission picture: the file `name` inside the folder
// `path`, made from the file `origin`; `rank` orders the assets of a kind (1 first).
struct zm_background {
  int id;
  char path[512];
  char name[512];
  char origin[512];
  int rank;
};
struct zm_foreground {
  int id;
  char path[512];
  char name[512];
  char origin[512];
  int rank;
};

// A position as fractions of the picture.
struct zm_position {
  double x;
  double y;
};

// An overlay: shown at several positions, made from one or more origin files.
struct zm_overlay {
  int id;
  char path[512];
  char name[512];
  std::vector<std::string> origins;
  std::vector<zm_position> positions;
  int rank;
};
// A logo: an overlay shown at one position.
struct zm_logo {
  int id;
  char path[512];
  char name[512];
  char origin[512];
  double x;
  double y;
  int rank;
};
// A system overlay drawn by the engine: a position and a description of what it shows
// (JSON text such as {"kind":"clock"}).
struct zm_system_overlay {
  int id;
  char path[512];
  char name[512];
  double x;
  double y;
  char content[2048];
  int rank;
};

// Asset files must be regular files named by a plain file name inside a folder below
// "/var/lib/zolo/media/assets" (system overlays also "/usr/share/media/overlay").

// Queries append to `out` (never cleared): 0; -3 without `out`; -5 query failed or the
// asset `id` is free. `id` 0 lists the assets in use, by rank.
ZM_EXPORT int zm_get_background(int id, std::vector<zm_background>* out);
ZM_EXPORT int zm_get_foreground(int id, std::vector<zm_foreground>* out);
// Every foreground asset, enabled or not (the engine may show any of them as the
// intermission picture); a query by id takes any foreground, free or not.
ZM_EXPORT int zm_get_intermission(int id, std::vector<zm_foreground>* out);
ZM_EXPORT int zm_get_overlay(int id, std::vector<zm_overlay>* out);
// Logos are overlays with their first position.
ZM_EXPORT int zm_get_logo(int id, std::vector<zm_logo>* out);
ZM_EXPORT int zm_get_system_overlay(int id, std::vector<zm_system_overlay>* out);
// Number of backgrounds / overlays in use, or a negative code.
ZM_EXPORT int zm_get_background_count();
ZM_EXPORT int zm_get_overlay_count();

// Changes the asset `id` to the record's file (and a positive rank); `enable` takes a free
// slot into use, otherwise a free slot gives -5. 0; -1; -3; -5.
ZM_EXPORT int zm_set_background(int id, const zm_background& background, bool enable);
// The new id; -1; -2 no free slot; -3 bad file.
ZM_EXPORT int zm_add_background(const zm_background& background);
// Frees the background, deletes its file and origin file and unbinds it from themes
// (each announced as a theme update). 0; -1 write failed (files kept); -3 id below 1; -5
// no such background or a free slot.
ZM_EXPORT int zm_remove_background(int id);
// As zm_set_background for the intermission pictures (foregrounds whose stored name
// contains "intermission"; -5 for any other).
ZM_EXPORT int zm_set_intermission(int id, const zm_foreground& intermission, bool enable);
// As zm_set_background / zm_add_background for overlays; an empty `positions` keeps the
// stored ones, the origin files named must exist in the folder (-3).
ZM_EXPORT int zm_set_overlay(int id, const zm_overlay& overlay, bool enable);
ZM_EXPORT int zm_add_overlay(const zm_overlay& overlay);
// Frees the overlay, deletes its origin files and its file, unbinds it from themes.
ZM_EXPORT int zm_remove_overlay(int id);
// Changes a system overlay's file, position and content; not announced (the engine draws
// it itself). 0; -1; -3; -5.
ZM_EXPORT int zm_set_system_overlay(int id, const zm_system_overlay& overlay, bool enable);

// --- themes ---

// A theme binds one layout, one background and one overlay (0: none bound).
struct zm_theme {
  int id;
  char name[512];
  int layout;
  int background;
  int overlay;
  int rank;
};

// 0; -3 without `out`; -5 query failed or the theme `id` is free. `id` 0: themes in use.
ZM_EXPORT int zm_get_theme(int id, std::vector<zm_theme>* out);
// The new theme id; -2 no free slot; -1 the bindings were refused.
ZM_EXPORT int zm_add_theme(const zm_theme& theme);
// Sets name and bindings (a binding below 1 unbinds; one naming a layout or asset that is
// not in use gives -5 and writes nothing) and a positive rank. The model's update result
// (0 or -1); -5 no such theme, or a free one without `enable`.
ZM_EXPORT int zm_set_theme(int id, const zm_theme& theme, bool enable, bool notify);
// Frees the theme. The model's update result; -3 id below 1; -5 no such theme or free.
ZM_EXPORT int zm_remove_theme(int id);
