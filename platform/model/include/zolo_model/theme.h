// Themes: named presets binding one layout, one background and one overlay.
//
// The database holds a fixed pool of theme slots; a slot is in use while `enabled` is
// set. Enabled themes are ranked 1..n; free slots carry rank -1.
//
// Bindings: the getters layout(), background() and overlay() return the bound object
// (a video MixerConfig, a background MixerAsset, an overlay MixerAsset) or null when
// nothing is bound; it is read on first use, owned by the theme and valid until the
// theme is deleted or the binding changes. The setters take the object's id only: the
// argument stays the caller's, and null unbinds. Removing a layout, background or
// overlay clears it from every theme (RemoveLayout, RemoveBackground, RemoveOverlay).
//
// Result codes: 0 success; -1 model not connected or database error; -2 change refused
// (a binding to an object that does not exist, no free slot left); -3 bad argument; -5 no
// such theme. Queries append heap objects the caller deletes (MediaModel::CleanQuery); an
// empty result is 0.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zolo_model/mixer_asset.h"
#include "zolo_model/mixer_config.h"

class Theme {
 public:
  Theme();
  ~Theme();
  Theme(const Theme&) = delete;
  Theme& operator=(const Theme&) = delete;

  // The theme `id`, enabled or not; -5 when there is none.
  static int QueryById(int id, Theme** out);
  // Themes whose enabled flag equals `enabled`: ranked ones by rank, then by id.
  static int QueryEnabled(std::vector<Theme*>* out, bool enabled);
  static int QueryEnabled(std::vector<Theme*>& out, bool enabled) {
    return QueryEnabled(&out, enabled);
  }
  // Takes the first free slot into use (enabled, ranked last) and returns it in `*out`;
  // two callers never get the same slot. -2 when none is free.
  static int TakeFreeSlot(Theme** out);
  // Writes name, flag and bindings back. Without a rank (below 1), a theme already enabled
  // keeps its stored rank and a newly enabled one goes last; a disabled one leaves the
  // order (rank -1). 0, -1, -2, -3, -5.
  static int Update(Theme* theme);

  // Every theme (enabled or not) bound to the layout / background / overlay `id`, by id.
  static int QueryByLayout(int id, std::vector<Theme*>* out);
  static int QueryByLayout(int id, std::vector<Theme*>& out) { return QueryByLayout(id, &out); }
  static int QueryByBackground(int id, std::vector<Theme*>* out);
  static int QueryByBackground(int id, std::vector<Theme*>& out) {
    return QueryByBackground(id, &out);
  }
  static int QueryByOverlay(int id, std::vector<Theme*>* out);
  static int QueryByOverlay(int id, std::vector<Theme*>& out) { return QueryByOverlay(id, &out); }
  // Unbinds the layout / background / overlay `id` from every theme. 0 (also when no
  // theme used it), -1, -2.
  static int RemoveLayout(int id);
  static int RemoveBackground(int id);
  static int RemoveOverlay(int id);

  int id() const { return id_; }
  const std::string& name() const { return name_; }
  void name(const std::string& value) { name_ = value; }
  void name(const char* value) { name_ = value != nullptr ? value : ""; }
  bool enabled() const { return enabled_; }
  void enabled(bool value) { enabled_ = value; }
  int rank() const { return rank_; }

  MixerConfig* layout() const;
  void layout(MixerConfig* config);
  int layout_id() const { return layout_id_; }
  MixerAsset* background() const;
  void background(MixerAsset* asset);
  int background_id() const { return background_id_; }
  MixerAsset* overlay() const;
  void overlay(MixerAsset* asset);
  int overlay_id() const { return overlay_id_; }

  // Moves the theme to `rank` among the enabled themes (1 first) and renumbers them;
  // below 1 takes it out of the order (rank -1). Written at once, all or nothing; the
  // stored rank is read back. -5 when the theme is gone.
  int UpdateRank(int rank);

 private:
  friend class ThemeRow;
  int id_ = 0;
  std::string name_;
  bool enabled_ = false;
  int rank_ = -1;
  int layout_id_ = 0;
  int background_id_ = 0;
  int overlay_id_ = 0;
  mutable std::unique_ptr<MixerConfig> layout_;
  mutable std::unique_ptr<MixerAsset> background_;
  mutable std::unique_ptr<MixerAsset> overlay_;
};
