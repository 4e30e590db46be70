// CodecParameterPreset: a named pair of a video codec with its JSON parameter text and an
// audio codec with its JSON parameter text (table "codec_parameter_preset"). Built-in
// presets may be read and stored by the engine's own policies but never removed.
//
// Queries return heap objects the caller deletes (MediaModel::CleanQuery for vectors), in id
// order; results 0, -1 not connected or database error, -2 refused (a name taken, a built-in
// preset removed), -3 bad argument, -5 not found.
#pragma once

#include <functional>
#include <string>
#include <vector>

class Codec;
namespace SQLite {
class Statement;
}  // namespace SQLite

class CodecParameterPreset {
 public:
  // A new user preset without codecs, not yet stored.
  CodecParameterPreset(std::string name, std::string video_codec_parameter,
                       std::string audio_codec_parameter);

  static int QueryById(int id, CodecParameterPreset** out);
  static int QueryByName(const std::string& name, CodecParameterPreset** out);
  // Every visible preset, appended to `out`. 0; -3; -1.
  static int QueryVisible(std::vector<CodecParameterPreset*>* out);
  // Calls `visit` with every visible preset in id order, read into one object that is
  // reused (valid during the call only), with the database locked: `visit` must not call
  // the model. 0; -1.
  static int VisitVisible(const std::function<void(const CodecParameterPreset&)>& visit);
  // Inserts `preset` and takes its new id. 0; -3; -2 name taken; -1.
  static int Add(CodecParameterPreset* preset);
  // Stores name, codecs and parameter texts. 0; -3; -5 when it no longer exists; -2; -1.
  static int Update(CodecParameterPreset* preset);
  // Deletes preset `id`; streams that used it are left without one. 0; -5 when it does not
  // exist; -2 when it is built in; -1.
  static int Remove(int id);

  int id() const { return id_; }
  const std::string& name() const { return name_; }
  void name(const std::string& name) { name_ = name; }
  // Codec names ("H.264", "AAC"...) and ids; empty and 0 when the preset has no such codec.
  const std::string& video_codec_name() const { return video_codec_name_; }
  const std::string& audio_codec_name() const { return audio_codec_name_; }
  int video_codec_id() const { return video_codec_id_; }
  int audio_codec_id() const { return audio_codec_id_; }
  // Sets the codec (null clears it).
  void video_codec(const Codec* codec);
  void audio_codec(const Codec* codec);
  // The codec parameters as JSON text.
  const std::string& video_codec_parameter() const { return video_codec_parameter_; }
  void video_codec_parameter(const std::string& json) { video_codec_parameter_ = json; }
  const std::string& audio_codec_parameter() const { return audio_codec_parameter_; }
  void audio_codec_parameter(const std::string& json) { audio_codec_parameter_ = json; }
  // Built-in presets come with the appliance; users may not change or remove them.
  bool builtin() const { return builtin_; }
  bool visible() const { return visible_; }
  void visible(bool on) { visible_ = on; }

 private:
  friend class Stream;  // builds presets from its joined query
  CodecParameterPreset() = default;
  // Reads the preset columns (id, name, codec names, parameter texts, builtin, codec ids,
  // visible) from `first` on.
  static CodecParameterPreset* FromRow(SQLite::Statement& row, int first);
  // The same into an existing object, reusing its texts' storage.
  static void ReadRow(SQLite::Statement& row, int first, CodecParameterPreset* preset);
  static int QueryList(const char* where, const std::string* text, int number,
                       std::vector<CodecParameterPreset*>* out);
  int id_ = 0;
  std::string name_;
  std::string video_codec_name_;
  std::string audio_codec_name_;
  std::string video_codec_parameter_ = "{}";
  std::string audio_codec_parameter_ = "{}";
  int video_codec_id_ = 0;
  int audio_codec_id_ = 0;
  bool builtin_ = false;
  bool visible_ = true;
};
