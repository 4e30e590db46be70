// Mixer configurations and their groups.
//
// A configuration (`MixerConfig`) is one slot of a fixed pool per mixer type: for the
// video mixer (type 0) a layout, for an audio mixer (type 1) the set of channels it
// mixes. A slot is in use while `enabled` is set; `custom` marks a layout whose windows
// may be edited. Each configuration may belong to a group (`MixerConfigGroup`), whose
// name is the layout kind ("Single", "Dual", ..., "Manual", "Display").
//
// Content, a compact JSON text:
//   video: {"layout":[{"id":1,"x":0,"y":0,"z":0,"w":1,"h":1,"crop":0}, ...]}
//          "id" is the source shown in the window, x/y/w/h fractions of the picture.
//   audio: {"sources":[{"id":7}, ...]} (bare numbers are accepted as ids too).
// Sources and channels named in content are plain ids: they are not tied to the
// source and channel tables, so this part of the database loads and changes on its
// own, and a configuration may name an input that is not connected at the moment.
//
// Result codes of every int operation: 0 success; -1 model not connected or database
// error; -2 change refused (a group that does not exist, no free slot left); -3 bad
// argument (null output, bad index, content that is not JSON); -5 no such object. Queries
// append heap objects to the caller's vector (never cleared first; an empty result is 0);
// the caller deletes them (MediaModel::CleanQuery). Objects are not shared between
// threads; the database behind them is safe from several threads.
#pragma once

#include <memory>
#include <string>
#include <vector>

class MixerConfigGroup;

// One window of a video layout (a plain value).
class MixerConfigVideoLayout {
 public:
  MixerConfigVideoLayout() = default;
  MixerConfigVideoLayout(int id, double w, double h, double x, double y, int z, int crop)
      : id_(id), w_(w), h_(h), x_(x), y_(y), z_(z), crop_(crop) {}

  int id() const { return id_; }
  void id(int value) { id_ = value; }
  double w() const { return w_; }
  void w(double value) { w_ = value; }
  double h() const { return h_; }
  void h(double value) { h_ = value; }
  double x() const { return x_; }
  void x(double value) { x_ = value; }
  double y() const { return y_; }
  void y(double value) { y_ = value; }
  int z() const { return z_; }
  void z(int value) { z_ = value; }
  int crop() const { return crop_; }
  void crop(int value) { crop_ = value; }

 private:
  int id_ = 0;
  double w_ = 0;
  double h_ = 0;
  double x_ = 0;
  double y_ = 0;
  int z_ = 0;
  int crop_ = 0;
};

class MixerConfig {
 public:
  static constexpr int kVideo = 0;
  static constexpr int kAudio = 1;

  MixerConfig();
  ~MixerConfig();
  MixerConfig(const MixerConfig&) = delete;
  MixerConfig& operator=(const MixerConfig&) = delete;

  // The configuration `id` of mixer type `type`; -5 when there is none of that type.
  static int QueryById(int type, int id, MixerConfig** out);
  // Every configuration of the type, by id.
  static int QueryByType(int type, std::vector<MixerConfig*>* out);
  static int QueryByType(int type, std::vector<MixerConfig*>& out) {
    return QueryByType(type, &out);
  }
  // Configurations whose enabled and custom flags equal the arguments, by id. Both false
  // lists the free slots of the pool.
  static int QueryByType(int type, std::vector<MixerConfig*>* out, bool enabled, bool custom);
  static int QueryByType(int type, std::vector<MixerConfig*>& out, bool enabled, bool custom) {
    return QueryByType(type, &out, enabled, custom);
  }
  // Takes the first free slot of the type into use (enabled, ranked last of its group) and
  // returns it in `*out`; two callers never get the same slot. -2 when none is free.
  static int TakeFreeSlot(int type, MixerConfig** out);
  // Writes name, group, content, rank and the two flags of `config` back. A disabled slot
  // leaves the order (rank -1); without a rank (below 1), one that was enabled in the same
  // group keeps its stored rank, any other goes last of its group.
  // 0, -1, -2 (no such group), -3, -5.
  static int Update(MixerConfig* config);

  int id() const { return id_; }
  int type() const { return type_; }
  const std::string& name() const { return name_; }
  void name(const std::string& value) { name_ = value; }
  void name(const char* value) { name_ = value != nullptr ? value : ""; }
  const std::string& content() const { return content_; }
  // Sets the content in memory (Update writes it). Empty text, or a JSON object of at
  // most 1 MiB: 0; anything else -3 and the content is left as it was.
  int content(const std::string& value);
  int content(const char* value);
  int rank() const { return rank_; }
  void rank(int value) { rank_ = value; }
  bool enabled() const { return enabled_; }
  void enabled(bool value) { enabled_ = value; }
  bool custom() const { return custom_; }
  void custom(bool value) { custom_ = value; }
  // Id of the group, 0 for none; the setter changes it in memory (Update writes it).
  int group_id() const { return group_id_; }
  void group_id(int value);

  // The configuration's group, or null when it has none. Queries read it with the
  // configuration; after group_id() changes it is read on first use (null while the
  // model is not connected). Owned by this object and valid until it is deleted or the
  // group id changes. `reload` non-zero reads it again.
  MixerConfigGroup* group(int reload = 0);

  // Appends the windows of a video layout as heap objects (CleanQuery), in stored
  // order. Empty content gives none. -3 when the content is not a layout (nothing is
  // appended then).
  int GetVideoLayout(std::vector<MixerConfigVideoLayout*>* out) const;
  int GetVideoLayout(std::vector<MixerConfigVideoLayout*>& out) const {
    return GetVideoLayout(&out);
  }
  // Replaces the geometry and crop of window `index` (from 0) and writes the content to
  // the database at once. A window id below 1 keeps the window's source; a positive
  // one replaces it. 0; -3 for an index out of range or content that is not a layout
  // (nothing written); -5 when the configuration is gone; -1.
  int SetVideoLayoutContent(int index, const MixerConfigVideoLayout& window);

  // Whether an audio configuration mixes the channel `channel_id`.
  bool IsAudioSourceContain(int channel_id) const;
  // Appends the channel ids an audio configuration mixes. -3 when the content is not
  // an audio configuration.
  int GetAudioSources(std::vector<int>* out) const;
  // Sets the mixed channel ids in memory (Update writes them); ids below 1 are dropped.
  void SetAudioSources(const std::vector<int>& channel_ids);

  // Moves the configuration to `rank` among the enabled configurations of its group
  // (1 first) and renumbers them; below 1 takes it out of the order (rank -1). Writes
  // at once, all or nothing; the stored rank is read back. -5 when it is gone.
  int UpdateRank(int rank);

 private:
  friend class MixerConfigRow;
  int id_ = 0;
  int type_ = kVideo;
  int group_id_ = 0;
  std::string name_;
  std::string content_;
  int rank_ = -1;
  bool enabled_ = false;
  bool custom_ = false;
  std::unique_ptr<MixerConfigGroup> group_;
};

class MixerConfigGroup {
 public:
  MixerConfigGroup();
  ~MixerConfigGroup();
  MixerConfigGroup(const MixerConfigGroup&) = delete;
  MixerConfigGroup& operator=(const MixerConfigGroup&) = delete;

  // The group of mixer type `type` named `name` (compared exactly); -5 when none.
  static int QueryByTypeName(int type, const std::string& name, MixerConfigGroup** out);
  static int QueryByTypeName(int type, const char* name, MixerConfigGroup** out);
  static int QueryById(int id, MixerConfigGroup** out);
  // Every group of the type, by id.
  static int QueryByType(int type, std::vector<MixerConfigGroup*>* out);
  static int QueryByType(int type, std::vector<MixerConfigGroup*>& out) {
    return QueryByType(type, &out);
  }

  int id() const { return id_; }
  int type() const { return type_; }
  const std::string& name() const { return name_; }

  // The configurations of the group, enabled or not, ranked ones first by rank, then by
  // id. Read on first use and owned by the group; empty when the model is not
  // connected.
  const std::vector<MixerConfig*>& configs();

 private:
  friend class MixerConfigRow;
  int id_ = 0;
  int type_ = MixerConfig::kVideo;
  std::string name_;
  bool configs_loaded_ = false;
  std::vector<MixerConfig*> configs_;
};
