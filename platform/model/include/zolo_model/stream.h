// Stream: an output of the engine (table "stream"): a recording file, a network push, a
// preview, a display or an audio port, bound to a channel and a codec parameter preset.
//
// Queries return heap objects the caller deletes (MediaModel::CleanQuery for vectors), in
// id order, and a negative value on failure (-1 database, -3 bad argument, -5 not found for
// single-object queries); an empty list is 0. "visible" queries leave out the engine's
// hidden streams. The channel and preset loaded with a stream live as long as the stream;
// streams from one query that name the same channel or preset share one object of it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "zolo_model/channel.h"

typedef struct cJSON cJSON;
#include "zolo_model/codec_parameter_preset.h"

class StreamMetadata;

class Stream {
 public:
  // Stream types by number: 1 file, 2 network, 3 preview, 4 display, 5 audio; 0 unknown.
  static int StringToType(const std::string& type);
  static std::string TypeToString(int type);

  static int QueryById(int id, bool visible, Stream** out);
  // Streams of `type` and `name`; a null text matches any.
  static int QueryByTypeName(const char* type, const char* name, bool visible,
                             std::vector<Stream*>* out);
  static int QueryByTypeName(const char* type, const char* name, std::vector<Stream*>* out);
  // The streams of channel `channel_id`.
  static int QueryByChannel(int channel_id, bool visible, std::vector<Stream*>* out);
  // Streams whose name (by pattern) or destination (by destination pattern) matches the SQL
  // LIKE `pattern`.
  static int QueryByPattern(const std::string& pattern, bool visible, std::vector<Stream*>* out);
  static int QueryByPattern(const std::string& pattern, std::vector<Stream*>* out);
  static int QueryByDestPattern(const std::string& pattern, bool visible,
                                std::vector<Stream*>* out);
  // Calls `visit` with every stream whose name matches the LIKE `pattern`, in id order, read
  // into one reused object (valid during the call only) with the stream's own columns only:
  // channel() and codec_parameter_preset() stay null, channel_id() names the channel. The
  // database is locked meanwhile: `visit` must not call the model. 0; -1.
  static int VisitByPattern(const std::string& pattern,
                            const std::function<void(const Stream&)>& visit);
  // Writes every field of `stream` back. 0; -5 when it no longer exists; -1.
  static int Update(Stream* stream);
  // Deletes stream `id` and its metadata rows. 0; -5 when it does not exist; -1.
  static int Remove(int id);
  // Sum of the "bitrate" parameters (kilobits per second) of the enabled, not suspended
  // file streams written to the sub storage (`sub`) or the main storage; 0 when unknown.
  static uint64_t TotalFileBitrate(bool sub);

  // This stream's metadata rows (new objects the caller deletes). 0 or -1.
  int QueryMetadata(std::vector<StreamMetadata*>* out) const;

  ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  int id() const { return id_; }
  const std::string& name() const { return name_; }
  const std::string& type() const { return type_; }
  Channel* channel() const { return channel_.get(); }
  int channel_id() const { return channel_id_; }
  CodecParameterPreset* codec_parameter_preset() const { return preset_.get(); }
  // Points the stream at a copy of `preset` (null: no preset); Update stores the choice.
  void codec_parameter_preset(const CodecParameterPreset* preset);
  // Container name ("mp4"); empty when none.
  const std::string& container() const { return container_; }
  const std::string& destination() const { return destination_; }
  void destination(const std::string& destination) { destination_ = destination; }
  const std::string& aux_text() const { return aux_text_; }
  bool enable() const { return enable_[0]; }
  void enable(bool on) { enable_[0] = on; }
  // Flags 1..3 beside the first enable flag.
  bool enable_option(int i) const { return i >= 1 && i <= 3 && enable_[i]; }
  void enable_option(int i, bool on) {
    if (i >= 1 && i <= 3) enable_[i] = on;
  }
  bool suspend() const { return suspend_; }
  void suspend(bool on) { suspend_ = on; }

  // Parameters and authentication values (JSON objects).
  bool IsParameterExisted(const std::string& key) const;
  int ObtainParameter(const std::string& key, int fallback) const;
  // 0 with `*value` set when `key` holds text; -5 otherwise.
  int ObtainStrParameter(const std::string& key, std::string* value) const;
  int UpdateParameter(const std::string& key, int value);
  int UpdateParameter(const std::string& key, const std::string& value);
  bool IsAuthenticationExisted(const std::string& key) const;
  int ObtainAuthentication(const std::string& key, int fallback) const;
  int ObtainStrAuthentication(const std::string& key, std::string* value) const;
  int UpdateAuthentication(const std::string& key, int value);
  int UpdateAuthentication(const std::string& key, const std::string& value);
  const std::string& parameters() const { return parameters_; }
  const std::string& authentication() const { return authentication_; }

 private:
  Stream() = default;
  static int QueryList(const std::string& where, const std::vector<std::string>& texts,
                       bool visible, std::vector<Stream*>* out);
  // Reads the stream's own columns (0 to 14 of the stream query).
  void ReadOwnColumns(SQLite::Statement& row);

  int id_ = 0;
  std::string name_;
  std::string type_;
  int channel_id_ = 0;
  int preset_id_ = 0;
  std::shared_ptr<Channel> channel_;
  std::shared_ptr<CodecParameterPreset> preset_;
  std::string container_;
  std::string destination_;
  std::string aux_text_;
  bool enable_[4] = {false, false, false, false};
  bool suspend_ = false;
  std::string parameters_ = "{}";
  std::string authentication_ = "{}";
  // Parsed forms of the two texts, made on first use and kept in step with them.
  mutable cJSON* parameters_json_ = nullptr;
  mutable cJSON* authentication_json_ = nullptr;
};
