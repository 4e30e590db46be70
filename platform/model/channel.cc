#include "zolo_model/channel.h"

#include <map>

#include "zolo_model/media_model.h"
#include "zolo_model/stream.h"

namespace {

// Copies of the sources in `found`, by id, for the channels that refer to them.
template <class Kind>
std::unique_ptr<Kind> CopyOf(const std::map<int, std::unique_ptr<Kind>>& found, int id) {
  auto it = found.find(id);
  return it == found.end() ? nullptr : std::make_unique<Kind>(*it->second);
}

template <class Kind>
int LoadById(const std::vector<int>& ids, std::map<int, std::unique_ptr<Kind>>* found) {
  if (ids.empty()) return 0;
  std::vector<Kind*> sources;
  int result = Kind::QueryByIds(ids, &sources);
  for (Kind* source : sources) (*found)[source->id()].reset(source);
  return result;
}

int IdOf(const MediaSource* source) {
  return source ? source->id() : 0;
}

}  // namespace

Channel::Channel(std::string name) : name_(std::move(name)) {}

Channel::~Channel() {
  for (auto& list : streams_) MediaModel::CleanQuery(&list);
}

void Channel::video_source(const ChannelSource* source) {
  video_source_.reset(source ? new ChannelSource(*source) : nullptr);
  source_ids_[0] = IdOf(source);
}

void Channel::audio_source(const ChannelSource* source) {
  audio_source_.reset(source ? new ChannelSource(*source) : nullptr);
  source_ids_[1] = IdOf(source);
}

void Channel::video_user_source(const UserSource* source) {
  video_user_source_.reset(source ? new UserSource(*source) : nullptr);
  source_ids_[2] = IdOf(source);
}

void Channel::audio_user_source(const UserSource* source) {
  audio_user_source_.reset(source ? new UserSource(*source) : nullptr);
  source_ids_[3] = IdOf(source);
}

const char* Channel::Columns() {
  return "c.id, c.name, COALESCE(c.video_source_id, 0), COALESCE(c.audio_source_id, 0), "
         "COALESCE(c.video_user_source_id, 0), COALESCE(c.audio_user_source_id, 0), "
         "c.preview_url, c.ordinal, c.attribute, c.visible";
}

Channel* Channel::FromRow(SQLite::Statement& row, int first) {
  auto* channel = new Channel();
  channel->id_ = row.getColumn(first).getInt();
  channel->name_ = row.getColumn(first + 1).getString();
  for (int i = 0; i < 4; ++i) channel->source_ids_[i] = row.getColumn(first + 2 + i).getInt();
  channel->preview_url_ = row.getColumn(first + 6).getString();
  channel->ordinal_ = row.getColumn(first + 7).getString();
  channel->attribute_ = row.getColumn(first + 8).getInt();
  channel->visible_ = row.getColumn(first + 9).getInt() != 0;
  return channel;
}

int Channel::LoadSources(const std::vector<Channel*>& channels) {
  std::vector<int> device_ids;
  std::vector<int> user_ids;
  for (const Channel* channel : channels) {
    for (int i = 0; i < 4; ++i)
      if (channel->source_ids_[i] != 0)
        (i < 2 ? device_ids : user_ids).push_back(channel->source_ids_[i]);
  }
  std::map<int, std::unique_ptr<ChannelSource>> devices;
  std::map<int, std::unique_ptr<UserSource>> users;
  if (LoadById(device_ids, &devices) != 0 || LoadById(user_ids, &users) != 0) return -1;
  for (Channel* channel : channels) {
    channel->video_source_ = CopyOf(devices, channel->source_ids_[0]);
    channel->audio_source_ = CopyOf(devices, channel->source_ids_[1]);
    channel->video_user_source_ = CopyOf(users, channel->source_ids_[2]);
    channel->audio_user_source_ = CopyOf(users, channel->source_ids_[3]);
  }
  return 0;
}

int Channel::QueryList(const char* where, const std::string* text, int number,
                       std::vector<Channel*>* out) {
  if (out == nullptr) return -3;
  std::vector<Channel*> found;
  int result = zolo::model::WithMediaDatabase([&](zolo::model::Database& db) {
    SQLite::Statement& query = db.Prepared(std::string("SELECT ") + Columns() +
                                           " FROM channel c WHERE " + where + " ORDER BY c.id");
    if (text != nullptr)
      query.bind(1, *text);
    else if (query.getBindParameterCount() > 0)
      query.bind(1, number);
    while (query.executeStep()) found.push_back(FromRow(query, 0));
    query.reset();
    return LoadSources(found);
  });
  if (result != 0) {
    MediaModel::CleanQuery(&found);
    return result;
  }
  out->insert(out->end(), found.begin(), found.end());
  return 0;
}

namespace {

int FirstOf(std::vector<Channel*>* found, int result, Channel** out) {
  if (result == 0 && found->empty()) result = -5;
  if (result == 0) {
    *out = found->front();
    found->erase(found->begin());
  }
  MediaModel::CleanQuery(found);
  return result;
}

}  // namespace

int Channel::QueryById(int id, Channel** out) {
  if (out == nullptr) return -3;
  std::vector<Channel*> found;
  return FirstOf(&found, QueryList("c.id = ?", nullptr, id, &found), out);
}

int Channel::QueryByName(const std::string& name, Channel** out) {
  if (out == nullptr) return -3;
  std::vector<Channel*> found;
  return FirstOf(&found, QueryList("c.name = ?", &name, 0, &found), out);
}

int Channel::QueryVisible(std::vector<Channel*>* out) {
  return QueryList("c.visible = 1", nullptr, 0, out);
}

int Channel::Add(Channel* channel) {
  if (channel == nullptr) return -3;
  return zolo::model::WithMediaDatabase([channel](zolo::model::Database& db) {
    SQLite::Statement& insert = db.Prepared(
        "INSERT INTO channel (name, video_source_id, audio_source_id, video_user_source_id, "
        "audio_user_source_id, preview_url, ordinal, attribute, visible) VALUES (?, NULLIF(?, 0), "
        "NULLIF(?, 0), NULLIF(?, 0), NULLIF(?, 0), ?, ?, ?, ?)");
    int index = 0;
    insert.bind(++index, channel->name_);
    for (int id : channel->source_ids_) insert.bind(++index, id);
    insert.bind(++index, channel->preview_url_);
    insert.bind(++index, channel->ordinal_);
    insert.bind(++index, channel->attribute_);
    insert.bind(++index, channel->visible_ ? 1 : 0);
    insert.exec();
    channel->id_ = static_cast<int>(db.raw().getLastInsertRowid());
    return 0;
  });
}

int Channel::Update(Channel* channel) {
  if (channel == nullptr) return -3;
  const int* ids = channel->source_ids_;
  return zolo::model::ChangeOneRow(
      "UPDATE channel SET name = ?, video_source_id = NULLIF(?, 0), audio_source_id = NULLIF(?, "
      "0), video_user_source_id = NULLIF(?, 0), audio_user_source_id = NULLIF(?, 0), "
      "preview_url = ?, ordinal = ?, attribute = ?, visible = ? WHERE id = ?",
      channel->name_, ids[0], ids[1], ids[2], ids[3], channel->preview_url_, channel->ordinal_,
      channel->attribute_, channel->visible_ ? 1 : 0, channel->id_);
}

int Channel::Remove(int id) {
  return zolo::model::ChangeOneRow("DELETE FROM channel WHERE id = ?", id);
}

const std::vector<Stream*>& Channel::streams(bool visible) const {
  int slot = visible ? 1 : 0;
  if (!streams_loaded_[slot]) {
    if (Stream::QueryByChannel(id_, visible, &streams_[slot]) == 0)
      streams_loaded_[slot] = true;
    else
      MediaModel::CleanQuery(&streams_[slot]);
  }
  return streams_[slot];
}
