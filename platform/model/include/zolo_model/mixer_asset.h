// Mixer assets: the picture files a video mixer lays under or over its sources.
//
// Each kind has a fixed pool of slots (type 0 background, 1 foreground and the
// intermission pictures, 2 overlay and logo, 3 system overlay). A slot is in use while
// `enabled` is set; enabled assets are ranked 1..n within their kind, free slots carry
// rank -1. An asset's file is `name` inside the folder `path` (a "file://" URL is taken as
// its path), a system path that the file operations resolve below the sandbox root
// (zolo::SysrootPath). File names are plain names: a name with a "/" yields no path, so
// nothing outside the folder is touched. Uploads keep one folder per kind.
//
// `origin` is the file the asset was made from; an overlay may be made from several,
// kept as `origins`. `location` holds an overlay's positions as JSON,
// [{"x":0.85,"y":0.05}, ...] (fractions of the picture; one object alone is accepted),
// and `content` a system overlay's description.
//
// Result codes: 0 success; -1 model not connected or database error; -2 change refused
// (no free slot left); -3 bad argument; -5 no such asset. Queries append heap objects the
// caller deletes (MediaModel::CleanQuery); an empty result is 0.
#pragma once

#include <string>
#include <vector>

struct MixerAssetLocation {
  double x = 0;
  double y = 0;
};

class MixerAsset {
 public:
  static constexpr int kBackground = 0;
  static constexpr int kForeground = 1;
  static constexpr int kOverlay = 2;
  static constexpr int kSystemOverlay = 3;
  static constexpr int kKinds = 4;

  // The asset `id` of kind `type`; -5 when there is none of that kind.
  static int QueryById(int type, int id, MixerAsset** out);
  // Every asset of the kind: ranked ones by rank, then the rest by id.
  static int QueryByType(int type, std::vector<MixerAsset*>* out);
  static int QueryByType(int type, std::vector<MixerAsset*>& out) {
    return QueryByType(type, &out);
  }
  // Assets whose enabled flag equals `enabled`, in the same order; false lists the
  // free slots.
  static int QueryByType(int type, std::vector<MixerAsset*>* out, bool enabled);
  static int QueryByType(int type, std::vector<MixerAsset*>& out, bool enabled) {
    return QueryByType(type, &out, enabled);
  }
  // Number of assets of the kind whose enabled flag equals `enabled`, or a negative code.
  static int Count(int type, bool enabled);
  // Takes the first free slot of the kind into use (enabled, ranked last) and returns it
  // in `*out`; two callers never get the same slot. -2 when none is free.
  static int TakeFreeSlot(int type, MixerAsset** out);
  // Writes every field of `asset` back. Without a rank (below 1), an asset already enabled
  // keeps its stored rank and a newly enabled one goes last of its kind; a disabled one
  // leaves the order (rank -1). 0, -1, -3, -5.
  static int Update(MixerAsset* asset);

  int id() const { return id_; }
  int type() const { return type_; }
  const std::string& name() const { return name_; }
  void name(const std::string& value) { name_ = value; }
  void name(const char* value) { name_ = value != nullptr ? value : ""; }
  const std::string& path() const { return path_; }
  void path(const std::string& value) { path_ = value; }
  void path(const char* value) { path_ = value != nullptr ? value : ""; }
  const std::string& origin() const { return origin_; }
  void origin(const std::string& value) { origin_ = value; }
  void origin(const char* value) { origin_ = value != nullptr ? value : ""; }
  const std::string& location() const { return location_; }
  void location(const std::string& value) { location_ = value; }
  void location(const char* value) { location_ = value != nullptr ? value : ""; }
  const std::string& content() const { return content_; }
  void content(const std::string& value) { content_ = value; }
  void content(const char* value) { content_ = value != nullptr ? value : ""; }
  bool enabled() const { return enabled_; }
  void enabled(bool value) { enabled_ = value; }
  int rank() const { return rank_; }

  // Appends the names of the files an overlay was made from (at least `origin` when it
  // is set and no list was stored). Always 0; -3 for a null vector.
  int origins(std::vector<std::string>* out) const;
  int origins(std::vector<std::string>& out) const { return origins(&out); }
  // Replaces the list in memory (Update writes it); empty names are dropped.
  void origins(const std::vector<std::string>& names);

  // The asset's file below the sandbox root, or "" when it has no name.
  std::string fullpath() const;
  // The file `name` in the asset's folder below the sandbox root, or "" when the name is
  // empty or not a plain file name.
  std::string fullpath(const std::string& name) const;
  std::string fullpath(const char* name) const;
  // The origin file below the sandbox root, or "" when there is none.
  std::string fullorigin() const;

  // Appends the positions of `location`. Empty location: none, 0. -3 when it is not a
  // position list.
  int ParseLocation(std::vector<MixerAssetLocation>* out) const;
  // The first position; -3 (and both left unchanged) when there is none.
  int ParseLocation(double* x, double* y) const;
  // Stores positions as `location` text in memory (Update writes it).
  void SetLocation(const std::vector<MixerAssetLocation>& positions);

  // Moves the asset to `rank` among the enabled assets of its kind (1 first) and
  // renumbers them; below 1 takes it out of the order (rank -1). Written at once, all or
  // nothing; the stored rank is read back. -5 when the asset is gone.
  int UpdateRank(int rank);

 private:
  friend class MixerAssetRow;
  int id_ = 0;
  int type_ = kBackground;
  std::string name_;
  std::string path_;
  std::string origin_;
  std::vector<std::string> origins_;
  std::string location_;
  std::string content_;
  bool enabled_ = false;
  int rank_ = -1;
};
