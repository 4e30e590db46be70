// ChannelSources: the sources a channel may switch to (table "channel_sources"): for each key
// ("video_sources", "audio_sources") a list of device source ids and a list of user source
// ids, kept as two JSON objects of id arrays.
//
// Queries return heap objects the caller deletes (MediaModel::CleanQuery for vectors), in
// channel id order; results 0, -1 not connected or database error, -2 constraint broken (no
// such channel, a list already kept for it), -3 bad argument, -5 not found.
#pragma once

#include <string>
#include <vector>

class ChannelSources {
 public:
  // New, empty lists of channel `channel_id`, not yet stored.
  explicit ChannelSources(int channel_id) : channel_id_(channel_id) {}

  static int QueryByChannel(int channel_id, ChannelSources** out);
  static int QueryAll(std::vector<ChannelSources*>* out);
  // Inserts the lists of a channel that has none yet. 0; -3; -2; -1.
  static int Add(ChannelSources* sources);
  // Stores both lists. 0; -3; -5 when the channel has no stored lists; -1.
  static int Update(ChannelSources* sources);

  int id() const { return id_; }
  // The id of the channel these lists belong to.
  int channel() const { return channel_id_; }

  // Appends the ids listed under `key` to `*ids`. 0 (an absent key lists nothing); -3 null
  // `ids`; -2 when the stored list is not an array of ids.
  int ObtainChannelSources(const std::string& key, std::vector<int>* ids) const;
  int ObtainUserSources(const std::string& key, std::vector<int>* ids) const;
  // Replaces the list under `key`. 0, or -1 when out of memory.
  int UpdateChannelSources(const std::string& key, const std::vector<int>& ids);
  int UpdateUserSources(const std::string& key, const std::vector<int>& ids);
  const std::string& sources() const { return sources_; }
  const std::string& user_sources() const { return user_sources_; }

 private:
  ChannelSources() = default;
  static int QueryList(const char* where, int channel_id, std::vector<ChannelSources*>* out);
  int id_ = 0;
  int channel_id_ = 0;
  std::string sources_ = "{}";
  std::string user_sources_ = "{}";
};
