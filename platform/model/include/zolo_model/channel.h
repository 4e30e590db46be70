// Channel: pairs a video source with an audio source (table "channel").
#pragma once

#include <string>

class Channel {
 public:
  // The channel `id` as a new object the caller deletes. 0; -5 not found; -1 database error.
  static int QueryById(int id, Channel** out);
  static int QueryByName(const std::string& name, Channel** out);

  int id() const { return id_; }
  const std::string& name() const { return name_; }
  // Source ids; 0 when the channel has no such source.
  int video_source() const { return video_source_; }
  int audio_source() const { return audio_source_; }

 private:
  friend class Stream;  // builds channels from its joined query
  Channel(int id, std::string name, int video, int audio)
      : id_(id), name_(std::move(name)), video_source_(video), audio_source_(audio) {}
  static int Query(const char* sql, bool by_id, int id, const std::string& name, Channel** out);
  int id_;
  std::string name_;
  int video_source_;
  int audio_source_;
};
