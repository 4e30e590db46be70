// Channel: binds at most one video source, one audio source, one video user source and one
// audio user source (table "channel"), and owns the streams made from them.
//
// Queries return heap objects the caller deletes (MediaModel::CleanQuery for vectors), in id
// order; results 0, -1 not connected or database error, -2 constraint broken (a name taken, a
// missing source), -3 bad argument, -5 not found. A channel owns copies of its sources.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "zolo_model/source.h"

class Stream;

class Channel {
 public:
  // A new channel, not yet stored.
  explicit Channel(std::string name);
  ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  static int QueryById(int id, Channel** out);
  static int QueryByName(const std::string& name, Channel** out);
  // Every visible channel, appended to `out`. 0; -3; -1.
  static int QueryVisible(std::vector<Channel*>* out);
  // Calls `visit` with every visible channel in id order, its four sources read by the same
  // joined query, into one reused object (valid during the call only, streams() not to be
  // used); the database is locked meanwhile: `visit` must not call the model. 0; -1.
  static int VisitVisible(const std::function<void(const Channel&)>& visit);
  // Every channel, hidden ones included, appended to `out`. 0; -3; -1.
  static int QueryAll(std::vector<Channel*>* out);
  // Inserts `channel` with its source links and takes its new id. 0; -3; -2; -1.
  static int Add(Channel* channel);
  // Stores name, source links and attributes. 0; -3; -5 when it no longer exists; -2; -1.
  static int Update(Channel* channel);
  // Deletes channel `id`; its streams lose their channel, its allowed-source list goes.
  // 0; -5; -1.
  static int Remove(int id);

  int id() const { return id_; }
  const std::string& name() const { return name_; }
  void name(const std::string& name) { name_ = name; }
  // The bound sources, null when unset (or when they cannot be read). A channel that came
  // with a stream reads them on first use. The setters store a copy (null clears the link).
  ChannelSource* video_source() const { return LoadSources(), video_source_.get(); }
  ChannelSource* audio_source() const { return LoadSources(), audio_source_.get(); }
  UserSource* video_user_source() const { return LoadSources(), video_user_source_.get(); }
  UserSource* audio_user_source() const { return LoadSources(), audio_user_source_.get(); }
  // Ids of the bound sources, 0 when unset, without reading the sources.
  int video_source_id() const { return source_ids_[0]; }
  int audio_source_id() const { return source_ids_[1]; }
  void video_source(const ChannelSource* source);
  void audio_source(const ChannelSource* source);
  void video_user_source(const UserSource* source);
  void audio_user_source(const UserSource* source);
  // Address of the channel's own preview, empty when it has none.
  const std::string& preview_url() const { return preview_url_; }
  void preview_url(const std::string& url) { preview_url_ = url; }
  // Position of the channel among its kind, as decimal text (may be empty).
  const std::string& ordinal() const { return ordinal_; }
  void ordinal(const std::string& text) { ordinal_ = text; }
  int attribute() const { return attribute_; }
  void attribute(int value) { attribute_ = value; }
  bool visible() const { return visible_; }
  void visible(bool on) { visible_ = on; }

  // The channel's streams in id order, read on first use and owned by the channel; with
  // `visible` the engine's hidden streams are left out. Empty when the read fails.
  const std::vector<Stream*>& streams(bool visible) const;

 private:
  friend class Stream;  // builds channels from its joined query
  Channel() = default;
  // Columns read by FromRow, prefixed with the table alias `c.`.
  static const char* Columns();
  static Channel* FromRow(SQLite::Statement& row, int first);
  void ReadRow(SQLite::Statement& row, int first);
  // Loads the sources of `channels` with one query per source table. 0 or -1.
  static int LoadSources(const std::vector<Channel*>& channels);
  // Loads this channel's sources unless they are loaded already.
  void LoadSources() const;
  static int QueryList(const char* where, const std::string* text, int number,
                       std::vector<Channel*>* out);

  int id_ = 0;
  std::string name_;
  int source_ids_[4] = {0, 0, 0, 0};  // video, audio, video user, audio user
  mutable bool sources_loaded_ = false;
  mutable std::unique_ptr<ChannelSource> video_source_;
  mutable std::unique_ptr<ChannelSource> audio_source_;
  mutable std::unique_ptr<UserSource> video_user_source_;
  mutable std::unique_ptr<UserSource> audio_user_source_;
  std::string preview_url_;
  std::string ordinal_;
  int attribute_ = 0;
  bool visible_ = true;
  mutable std::vector<Stream*> streams_[2];
  mutable bool streams_loaded_[2] = {false, false};
};
