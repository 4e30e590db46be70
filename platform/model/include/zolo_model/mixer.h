// Mixers: the engine's video mixers ("zolo://video/mixer/0", "zolo://video/mixer/1",
// "zolo://video/mixer/2", "zolo://video/display_mixer/0", type 0) and audio mixers
// ("zolo://audio/mixer/N", type 1), each with what it currently shows: a configuration
// (layout or audio mix), a background, foreground, overlay and system overlay, a theme.
//
// The outputs a mixer feeds (display outputs, audio outputs) are stream names kept as
// plain text, not tied to the stream table, so this part of the database loads and
// changes on its own.
//
// Related objects: config(), background(), foreground(), overlay(), system_overlay()
// and theme() return the current object or null; it is read on first use, owned by the
// mixer and valid until the mixer is deleted or that binding changes. The setters take
// the object's id only (the argument stays the caller's; null unbinds) and Update
// writes them.
//
// Result codes: 0 success; -1 model not connected or database error; -2 change refused (a
// binding to an object that does not exist); -3 bad argument; -5 no such mixer. Queries
// return heap objects the caller deletes (MediaModel::CleanQuery for vectors).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zolo_model/mixer_asset.h"
#include "zolo_model/mixer_config.h"
#include "zolo_model/theme.h"

class Mixer {
 public:
  static constexpr int kVideo = 0;
  static constexpr int kAudio = 1;

  Mixer();
  ~Mixer();
  Mixer(const Mixer&) = delete;
  Mixer& operator=(const Mixer&) = delete;

  // The mixer of type `type` named `name` (its URI, compared exactly); -5 when none.
  static int QueryByName(int type, const std::string& name, Mixer** out);
  static int QueryByName(int type, const char* name, Mixer** out);
  static int QueryById(int id, Mixer** out);
  // Every mixer of the type, by id.
  static int QueryByType(int type, std::vector<Mixer*>* out);
  static int QueryByType(int type, std::vector<Mixer*>& out) { return QueryByType(type, &out); }
  // The mixer of type `type` that feeds the output stream `stream`; -5 when none.
  static int QueryByOutput(int type, const std::string& stream, Mixer** out);
  // Writes the bindings and outputs of `mixer` back, all or nothing. 0, -1, -2, -3, -5.
  static int Update(Mixer* mixer);

  int id() const { return id_; }
  int type() const { return type_; }
  const std::string& name() const { return name_; }
  // Names of the output streams the mixer feeds.
  const std::vector<std::string>& outputs() const { return outputs_; }
  void outputs(const std::vector<std::string>& streams);

  MixerConfig* config() const;
  void config(MixerConfig* config);
  int config_id() const { return config_id_; }
  // The asset bindings, one per asset kind (MixerAsset::kBackground ...).
  MixerAsset* background() const { return asset(MixerAsset::kBackground); }
  void background(MixerAsset* value) { asset(MixerAsset::kBackground, value); }
  int background_id() const { return asset_id_[MixerAsset::kBackground]; }
  MixerAsset* foreground() const { return asset(MixerAsset::kForeground); }
  void foreground(MixerAsset* value) { asset(MixerAsset::kForeground, value); }
  int foreground_id() const { return asset_id_[MixerAsset::kForeground]; }
  MixerAsset* overlay() const { return asset(MixerAsset::kOverlay); }
  void overlay(MixerAsset* value) { asset(MixerAsset::kOverlay, value); }
  int overlay_id() const { return asset_id_[MixerAsset::kOverlay]; }
  MixerAsset* system_overlay() const { return asset(MixerAsset::kSystemOverlay); }
  void system_overlay(MixerAsset* value) { asset(MixerAsset::kSystemOverlay, value); }
  int system_overlay_id() const { return asset_id_[MixerAsset::kSystemOverlay]; }
  Theme* theme() const;
  void theme(Theme* theme);
  int theme_id() const { return theme_id_; }

 private:
  friend class MixerRow;
  int id_ = 0;
  int type_ = kVideo;
  std::string name_;
  std::vector<std::string> outputs_;
  MixerAsset* asset(int kind) const;
  void asset(int kind, MixerAsset* value);

  int config_id_ = 0;
  int asset_id_[MixerAsset::kKinds] = {};
  int theme_id_ = 0;
  mutable std::unique_ptr<MixerConfig> config_;
  mutable std::unique_ptr<MixerAsset> asset_[MixerAsset::kKinds];
  mutable std::unique_ptr<Theme> theme_;
};

// The audio mixer that feeds the audio output stream named `stream`, or null when no
// audio mixer feeds it (or the model is not connected, or `stream` is null). The
// caller owns and deletes the result.
Mixer* query_mixer_from_audio_stream(const std::string& stream);
Mixer* query_mixer_from_audio_stream(const char* stream);
