// Themes: presets binding one layout, one background and one overlay.
#include <zolo/media/mixer_config.h>
#include <zolo_model/media_model.h>
#include <zolo_model/mixer_asset.h>
#include <zolo_model/mixer_config.h>
#include <zolo_model/theme.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "libzolo_media/media_call.h"

namespace {

void AppendTheme(const Theme& theme, std::vector<zm_theme>* out) {
  zm_theme& record = out->emplace_back();
  record.id = theme.id();
  std::snprintf(record.name, sizeof record.name, "%s", theme.name().c_str());
  record.layout = theme.layout_id();
  record.background = theme.background_id();
  record.overlay = theme.overlay_id();
  record.rank = theme.rank();
}

// The object a binding names, owned: null for an id below 1 (unbind). False when the id
// names nothing in use.
template <class T, class Query>
bool Lookup(int id, Query query, std::unique_ptr<T>* out) {
  if (id < 1) return true;
  T* found = nullptr;
  if (query(id, &found) != 0 || found == nullptr) {
    delete found;
    return false;
  }
  out->reset(found);
  return found->enabled();
}

void Notify(zolo::ChangeType type, int id) {
  zolo::NotifyMediaDataChange(type, zolo::DataKind::kTheme, id);
}

}  // namespace

int zm_get_theme(int id, std::vector<zm_theme>* out) {
  if (out == nullptr) return -3;
  if (id != 0) {
    Theme* found = nullptr;
    if (Theme::QueryById(id, &found) != 0 || found == nullptr) {
      delete found;
      return -5;
    }
    std::unique_ptr<Theme> theme(found);
    if (!theme->enabled()) return -5;
    AppendTheme(*theme, out);
    return 0;
  }
  std::vector<Theme*> themes;
  if (Theme::QueryEnabled(&themes, true) < 0) {
    MediaModel::CleanQuery(&themes);
    return -5;
  }
  for (Theme* theme : themes) AppendTheme(*theme, out);
  MediaModel::CleanQuery(&themes);
  return 0;
}

int zm_set_theme(int id, const zm_theme& record, bool enable, bool notify) {
  Theme* found = nullptr;
  if (Theme::QueryById(id, &found) != 0 || found == nullptr) {
    delete found;
    return -5;
  }
  std::unique_ptr<Theme> theme(found);
  if (enable)
    theme->enabled(true);
  else if (!theme->enabled())
    return -5;
  theme->name(std::string(record.name, strnlen(record.name, sizeof record.name)));
  std::unique_ptr<MixerConfig> layout;
  std::unique_ptr<MixerAsset> background;
  std::unique_ptr<MixerAsset> overlay;
  auto layout_query = [](int i, MixerConfig** o) {
    return MixerConfig::QueryById(MixerConfig::kVideo, i, o);
  };
  auto asset_query = [](int type) {
    return [type](int i, MixerAsset** o) { return MixerAsset::QueryById(type, i, o); };
  };
  if (!Lookup(record.layout, layout_query, &layout) ||
      !Lookup(record.background, asset_query(MixerAsset::kBackground), &background) ||
      !Lookup(record.overlay, asset_query(MixerAsset::kOverlay), &overlay))
    return -5;
  theme->layout(layout.get());
  theme->background(background.get());
  theme->overlay(overlay.get());
  int result = Theme::Update(theme.get()) == 0 ? 0 : -1;
  if (result == 0 && record.rank > 0) theme->UpdateRank(record.rank);
  if (result == 0 && notify) Notify(zolo::ChangeType::kChanged, id);
  return result;
}

int zm_add_theme(const zm_theme& record) {
  std::vector<Theme*> free_slots;
  if (Theme::QueryEnabled(&free_slots, false) < 0 || free_slots.empty()) {
    MediaModel::CleanQuery(&free_slots);
    return -2;
  }
  int id = free_slots.front()->id();
  MediaModel::CleanQuery(&free_slots);
  if (zm_set_theme(id, record, true, false) < 0) return -1;
  Notify(zolo::ChangeType::kAdded, id);
  return id;
}

int zm_remove_theme(int id) {
  if (id < 1) return -3;
  Theme* found = nullptr;
  if (Theme::QueryById(id, &found) != 0 || found == nullptr) {
    delete found;
    return -5;
  }
  std::unique_ptr<Theme> theme(found);
  if (!theme->enabled()) return -5;
  theme->enabled(false);
  int result = Theme::Update(theme.get()) == 0 ? 0 : -1;
  // A failed write leaves the theme where it was in the order.
  if (result == 0) theme->UpdateRank(-1);
  if (result == 0) Notify(zolo::ChangeType::kRemoved, id);
  return result;
}
