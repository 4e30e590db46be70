// Mixer assets: backgrounds, foregrounds and intermission pictures, overlays and logos,
// system overlays.
#include <sys/stat.h>
#include <zolo/media/mixer_config.h>
#include <zolo/sysroot.h>
#include <zolo/utils.h>
#include <zolo_model/media_model.h>
#include <zolo_model/mixer_asset.h>
#include <zolo_model/theme.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "libzolo_media/media_call.h"

namespace {

using zolo::ChangeType;
using zolo::DataKind;

constexpr const char* kAssetRoot = "/var/lib/zolo/media/assets";
constexpr const char* kSystemOverlayRoot = "/usr/share/media/overlay";

template <size_t N>
void CopyText(char (&field)[N], const std::string& text) {
  std::snprintf(field, N, "%s", text.c_str());
}
template <size_t N>
std::string Text(const char (&field)[N]) {
  return std::string(field, strnlen(field, N));
}

// A plain file name: no folder part, not "." or "..".
bool PlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// The folder of an asset as a system path ("file://" dropped), when it lies inside one of
// the asset folders of its kind; "" otherwise.
std::string AssetFolder(int type, const std::string& folder) {
  std::string path = folder.rfind("file://", 0) == 0 ? folder.substr(7) : folder;
  if (path.empty() || path[0] != '/') return "";
  if (("/" + path + "/").find("/../") != std::string::npos) return "";
  auto inside = [&](const std::string& root) {
    return path.size() > root.size() && path.compare(0, root.size(), root) == 0 &&
           path[root.size()] == '/';
  };
  if (inside(kAssetRoot)) return path;
  if (type == MixerAsset::kSystemOverlay &&
      (path == kSystemOverlayRoot || inside(kSystemOverlayRoot)))
    return path;
  return "";
}

bool RegularFile(const std::string& folder, const std::string& name) {
  struct stat info;
  std::string path = zolo::SysrootPath(ConcateFilePath(folder, name));
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// The record's file: a regular file with a plain name inside an asset folder of the kind.
bool ValidFile(int type, const std::string& folder, const std::string& name) {
  std::string dir = AssetFolder(type, folder);
  return !dir.empty() && PlainName(name) && RegularFile(dir, name);
}

bool IsIntermission(const MixerAsset& asset) {
  return asset.name().find("intermission") != std::string::npos;
}

struct Owned {
  MixerAsset* asset = nullptr;
  ~Owned() { delete asset; }
};

// The asset `id` of `type`: 0; -5 when there is none or, unless `any`, it is free.
int Load(int type, int id, bool any, Owned* out) {
  if (MixerAsset::QueryById(type, id, &out->asset) != 0 || out->asset == nullptr) return -5;
  return any || out->asset->enabled() ? 0 : -5;
}

// Appends one record per asset of `type`: the asset `id` (free ones too with `any`), or
// every asset in use (every one with `any`).
template <class Record, class Fill>
int Query(int type, int id, bool any, std::vector<Record>* out, Fill fill,
          bool (*keep)(const MixerAsset&) = nullptr) {
  if (out == nullptr) return -3;
  if (id != 0) {
    Owned found;
    if (int result = Load(type, id, any, &found)) return result;
    fill(*found.asset, &out->emplace_back());
    return 0;
  }
  std::vector<MixerAsset*> assets;
  int result =
      any ? MixerAsset::QueryByType(type, &assets) : MixerAsset::QueryByType(type, &assets, true);
  if (result < 0) {
    MediaModel::CleanQuery(&assets);
    return -5;
  }
  for (MixerAsset* asset : assets)
    if (keep == nullptr || keep(*asset)) fill(*asset, &out->emplace_back());
  MediaModel::CleanQuery(&assets);
  return 0;
}

template <class Record>
void FillPicture(const MixerAsset& asset, Record* record) {
  *record = Record{};
  record->id = asset.id();
  CopyText(record->path, asset.path());
  CopyText(record->name, asset.name());
  CopyText(record->origin, asset.origin());
  record->rank = asset.rank();
}

void FillOverlay(const MixerAsset& asset, zm_overlay* record) {
  *record = zm_overlay{};
  record->id = asset.id();
  CopyText(record->path, asset.path());
  CopyText(record->name, asset.name());
  asset.origins(&record->origins);
  std::vector<MixerAssetLocation> positions;
  asset.ParseLocation(&positions);
  for (const auto& p : positions) record->positions.push_back({p.x, p.y});
  record->rank = asset.rank();
}

void FillLogo(const MixerAsset& asset, zm_logo* record) {
  *record = zm_logo{};
  record->id = asset.id();
  CopyText(record->path, asset.path());
  CopyText(record->name, asset.name());
  std::vector<std::string> origins;
  asset.origins(&origins);
  CopyText(record->origin, origins.empty() ? asset.origin() : origins.front());
  asset.ParseLocation(&record->x, &record->y);
  record->rank = asset.rank();
}

void FillSystemOverlay(const MixerAsset& asset, zm_system_overlay* record) {
  *record = zm_system_overlay{};
  record->id = asset.id();
  CopyText(record->path, asset.path());
  CopyText(record->name, asset.name());
  asset.ParseLocation(&record->x, &record->y);
  CopyText(record->content, asset.content());
  record->rank = asset.rank();
}

// Takes the asset into use when `enable`, lets `change` store the record's fields and
// writes it; then moves it to a positive `rank`. 0; -1 when the write failed; -5 for a
// free asset without `enable`.
template <class Change>
int Write(MixerAsset* asset, bool enable, int rank, Change change) {
  if (enable)
    asset->enabled(true);
  else if (!asset->enabled())
    return -5;
  change(asset);
  if (MixerAsset::Update(asset) != 0) return -1;
  if (rank > 0) asset->UpdateRank(rank);
  return 0;
}

// The first free slot of `type`: its id, or -2.
int FreeSlot(int type) {
  std::vector<MixerAsset*> free_slots;
  int result = MixerAsset::QueryByType(type, &free_slots, false);
  int id = result < 0 || free_slots.empty() ? -2 : free_slots.front()->id();
  MediaModel::CleanQuery(&free_slots);
  return id;
}

template <class Record>
auto StorePicture(const Record& record) {
  return [&record](MixerAsset* asset) {
    asset->path(Text(record.path));
    asset->name(Text(record.name));
    asset->origin(Text(record.origin));
  };
}

template <class Record>
int SetPicture(int type, int id, const Record& record, bool enable, DataKind kind,
               bool (*accept)(const MixerAsset&)) {
  if (id < 1) return -3;
  if (!ValidFile(type, Text(record.path), Text(record.name))) return -3;
  Owned found;
  if (Load(type, id, true, &found) != 0) return -5;
  if (accept != nullptr && !accept(*found.asset)) return -5;
  int result = Write(found.asset, enable, record.rank, StorePicture(record));
  if (result == 0) zolo::NotifyMediaDataChange(ChangeType::kChanged, kind, id);
  return result;
}

// Deletes the files of an asset whose stored folder is an asset folder of its kind.
void DeleteFiles(const MixerAsset& asset, bool all_origins) {
  if (AssetFolder(asset.type(), asset.path()).empty()) return;
  std::vector<std::string> origins;
  if (all_origins)
    asset.origins(&origins);
  else
    origins.push_back(asset.origin());
  for (const std::string& origin : origins) {
    std::string path = asset.fullpath(origin);
    if (!path.empty()) Remove(path);
  }
  std::string path = asset.fullpath();
  if (!path.empty()) Remove(path);
}

int RemoveAsset(int type, int id, DataKind kind, int (*query_themes)(int, std::vector<Theme*>*),
                int (*unbind)(int)) {
  if (id < 1) return -3;
  Owned found;
  if (Load(type, id, false, &found) != 0) return -5;
  MixerAsset* asset = found.asset;
  asset->enabled(false);
  if (MixerAsset::Update(asset) != 0) return -1;
  asset->UpdateRank(-1);
  DeleteFiles(*asset, type == MixerAsset::kOverlay);
  std::vector<Theme*> themes;
  query_themes(id, &themes);
  unbind(id);
  zolo::NotifyMediaDataChange(ChangeType::kRemoved, kind, id);
  for (Theme* theme : themes)
    zolo::NotifyMediaDataChange(ChangeType::kChanged, DataKind::kTheme, theme->id());
  MediaModel::CleanQuery(&themes);
  return 0;
}

// An overlay's file and every origin it names must be regular files in its folder.
bool ValidOverlay(const zm_overlay& record) {
  std::string folder = Text(record.path);
  if (!ValidFile(MixerAsset::kOverlay, folder, Text(record.name))) return false;
  std::string dir = AssetFolder(MixerAsset::kOverlay, folder);
  for (const std::string& origin : record.origins)
    if (!PlainName(origin) || !RegularFile(dir, origin)) return false;
  return true;
}

auto StoreOverlay(const zm_overlay& record) {
  return [&record](MixerAsset* asset) {
    asset->path(Text(record.path));
    asset->name(Text(record.name));
    asset->origins(record.origins);
    asset->origin(record.origins.empty() ? std::string() : record.origins.front());
    if (!record.positions.empty()) {
      std::vector<MixerAssetLocation> positions;
      for (const zm_position& p : record.positions) positions.push_back({p.x, p.y});
      asset->SetLocation(positions);
    }
  };
}

}  // namespace

int zm_get_background(int id, std::vector<zm_background>* out) {
  return Query(MixerAsset::kBackground, id, false, out, FillPicture<zm_background>);
}

int zm_get_foreground(int id, std::vector<zm_foreground>* out) {
  return Query(MixerAsset::kForeground, id, false, out, FillPicture<zm_foreground>);
}

int zm_get_intermission(int id, std::vector<zm_foreground>* out) {
  // Every foreground, enabled or not: the engine may show any of them at any time.
  return Query(MixerAsset::kForeground, id, true, out, FillPicture<zm_foreground>);
}

int zm_get_overlay(int id, std::vector<zm_overlay>* out) {
  return Query(MixerAsset::kOverlay, id, false, out, FillOverlay);
}

int zm_get_logo(int id, std::vector<zm_logo>* out) {
  return Query(MixerAsset::kOverlay, id, false, out, FillLogo);
}

int zm_get_system_overlay(int id, std::vector<zm_system_overlay>* out) {
  return Query(MixerAsset::kSystemOverlay, id, false, out, FillSystemOverlay);
}

int zm_get_background_count() {
  return MixerAsset::Count(MixerAsset::kBackground, true);
}

int zm_get_overlay_count() {
  return MixerAsset::Count(MixerAsset::kOverlay, true);
}

int zm_set_background(int id, const zm_background& record, bool enable) {
  return SetPicture(MixerAsset::kBackground, id, record, enable, DataKind::kBackground, nullptr);
}

int zm_add_background(const zm_background& record) {
  if (!ValidFile(MixerAsset::kBackground, Text(record.path), Text(record.name))) return -3;
  int id = FreeSlot(MixerAsset::kBackground);
  if (id < 0) return -2;
  Owned found;
  if (Load(MixerAsset::kBackground, id, true, &found) != 0) return -1;
  if (Write(found.asset, true, record.rank, StorePicture(record)) != 0) return -1;
  zolo::NotifyMediaDataChange(ChangeType::kAdded, DataKind::kBackground, id);
  return id;
}

int zm_remove_background(int id) {
  return RemoveAsset(MixerAsset::kBackground, id, DataKind::kBackground, Theme::QueryByBackground,
                     Theme::RemoveBackground);
}

int zm_set_intermission(int id, const zm_foreground& record, bool enable) {
  return SetPicture(MixerAsset::kForeground, id, record, enable, DataKind::kIntermission,
                    IsIntermission);
}

int zm_set_overlay(int id, const zm_overlay& record, bool enable) {
  if (id < 1 || !ValidOverlay(record)) return -3;
  Owned found;
  if (Load(MixerAsset::kOverlay, id, true, &found) != 0) return -5;
  int result = Write(found.asset, enable, record.rank, StoreOverlay(record));
  if (result == 0) zolo::NotifyMediaDataChange(ChangeType::kChanged, DataKind::kOverlay, id);
  return result;
}

int zm_add_overlay(const zm_overlay& record) {
  if (!ValidOverlay(record)) return -3;
  int id = FreeSlot(MixerAsset::kOverlay);
  if (id < 0) return -2;
  Owned found;
  if (Load(MixerAsset::kOverlay, id, true, &found) != 0) return -1;
  if (Write(found.asset, true, record.rank, StoreOverlay(record)) != 0) return -1;
  zolo::NotifyMediaDataChange(ChangeType::kAdded, DataKind::kOverlay, id);
  return id;
}

int zm_remove_overlay(int id) {
  return RemoveAsset(MixerAsset::kOverlay, id, DataKind::kOverlay, Theme::QueryByOverlay,
                     Theme::RemoveOverlay);
}

int zm_set_system_overlay(int id, const zm_system_overlay& record, bool enable) {
  if (id < 1 || !ValidFile(MixerAsset::kSystemOverlay, Text(record.path), Text(record.name)))
    return -3;
  Owned found;
  if (Load(MixerAsset::kSystemOverlay, id, true, &found) != 0) return -5;
  return Write(found.asset, enable, record.rank, [&record](MixerAsset* asset) {
    asset->path(Text(record.path));
    asset->name(Text(record.name));
    asset->SetLocation({{record.x, record.y}});
    asset->content(Text(record.content));
  });
}
