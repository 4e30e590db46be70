#include "zolo_model/channel.h"

#include <map>

#include "query_support.h"
#include "zolo_model/codec.h"
#include "zolo_model/codec_parameter_preset.h"
#include "zolo_model/stream.h"

namespace {

using zolo::model::QueryRowsByKey;
using zolo::model::TakeFirst;

constexpr const char* kPresetColumns =
    "SELECT p.id, p.name, COALESCE(v.name, ''), COALESCE(a.name, ''), p.video_codec_parameter, "
    "p.audio_codec_parameter, p.builtin, COALESCE(p.video_codec_id, 0), "
    "COALESCE(p.audio_codec_id, 0), p.visible FROM codec_parameter_preset p "
    "LEFT JOIN codec v ON v.id = p.video_codec_id LEFT JOIN codec a ON a.id = p.audio_codec_id ";

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

Channel::Channel(std::string name) : name_(std::move(name)), sources_loaded_(true) {}

void Channel::LoadSources() const {
  if (sources_loaded_) return;
  // Only the cached copies change; the channel's own fields stay as they are.
  LoadSources({const_cast<Channel*>(this)});
}

Channel::~Channel() {
  for (auto& list : streams_) MediaModel::CleanQuery(&list);
}

void Channel::video_source(const ChannelSource* source) {
  LoadSources();  // the other links keep their sources
  video_source_.reset(source ? new ChannelSource(*source) : nullptr);
  source_ids_[0] = IdOf(source);
}

void Channel::audio_source(const ChannelSource* source) {
  LoadSources();  // the other links keep their sources
  audio_source_.reset(source ? new ChannelSource(*source) : nullptr);
  source_ids_[1] = IdOf(source);
}

void Channel::video_user_source(const UserSource* source) {
  LoadSources();  // the other links keep their sources
  video_user_source_.reset(source ? new UserSource(*source) : nullptr);
  source_ids_[2] = IdOf(source);
}

void Channel::audio_user_source(const UserSource* source) {
  LoadSources();  // the other links keep their sources
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
  channel->ReadRow(row, first);
  return channel;
}

void Channel::ReadRow(SQLite::Statement& row, int first) {
  id_ = row.getColumn(first).getInt();
  name_ = row.getColumn(first + 1).getText();
  for (int i = 0; i < 4; ++i) source_ids_[i] = row.getColumn(first + 2 + i).getInt();
  preview_url_ = row.getColumn(first + 6).getText();
  ordinal_ = row.getColumn(first + 7).getText();
  attribute_ = row.getColumn(first + 8).getInt();
  visible_ = row.getColumn(first + 9).getInt() != 0;
}

int Channel::VisitVisible(const std::function<void(const Channel&)>& visit) {
  constexpr int kSourceColumns = 16;
  static const std::string sql =
      std::string("SELECT ") + Columns() + ", " + MediaSource::ColumnsOf("v") + ", " +
      MediaSource::ColumnsOf("a") + ", " + MediaSource::ColumnsOf("vu") + ", " +
      MediaSource::ColumnsOf("au") +
      " FROM channel c LEFT JOIN channel_source v ON v.id = c.video_source_id "
      "LEFT JOIN channel_source a ON a.id = c.audio_source_id "
      "LEFT JOIN user_source vu ON vu.id = c.video_user_source_id "
      "LEFT JOIN user_source au ON au.id = c.audio_user_source_id "
      "WHERE c.visible = 1 ORDER BY c.id";
  // Reads the source at column `first` of a row into `*source`, kept for the next row; null
  // when the row has none.
  auto read_joined = [](SQLite::Statement& row, int first, auto* source) {
    using Kind = typename std::remove_reference_t<decltype(*source)>::element_type;
    if (row.getColumn(first).isNull()) {
      source->reset();
      return;
    }
    if (!*source) source->reset(new Kind());
    (*source)->ReadRow(row, first);
  };
  Channel reused;
  reused.sources_loaded_ = true;
  return zolo::model::VisitRowsOf(
      MediaModel::Instance()->database(), sql, [&](SQLite::Statement& row) {
        reused.ReadRow(row, 0);
        int first = 10;
        read_joined(row, first, &reused.video_source_);
        read_joined(row, first += kSourceColumns, &reused.audio_source_);
        read_joined(row, first += kSourceColumns, &reused.video_user_source_);
        read_joined(row, first += kSourceColumns, &reused.audio_user_source_);
        visit(reused);
      });
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
    channel->sources_loaded_ = true;
  }
  return 0;
}

int Channel::QueryList(const char* where, const std::string* text, int number,
                       std::vector<Channel*>* out) {
  const size_t before = out != nullptr ? out->size() : 0;
  int result = QueryRowsByKey(
      out, std::string("SELECT ") + Columns() + " FROM channel c WHERE " + where + " ORDER BY c.id",
      [](SQLite::Statement& row) { return FromRow(row, 0); }, text, number);
  // The sources of all found channels in two queries; should that fail, each channel reads
  // its own on first use.
  if (result == 0) LoadSources(std::vector<Channel*>(out->begin() + before, out->end()));
  return result;
}

int Channel::QueryById(int id, Channel** out) {
  if (out == nullptr) return -3;
  std::vector<Channel*> found;
  return TakeFirst(&found, QueryList("c.id = ?", nullptr, id, &found), out);
}

int Channel::QueryByName(const std::string& name, Channel** out) {
  if (out == nullptr) return -3;
  std::vector<Channel*> found;
  return TakeFirst(&found, QueryList("c.name = ?", &name, 0, &found), out);
}

int Channel::QueryVisible(std::vector<Channel*>* out) {
  return QueryList("c.visible = 1", nullptr, 0, out);
}

int Channel::QueryAll(std::vector<Channel*>* out) {
  return QueryList("1 = 1", nullptr, 0, out);
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

CodecParameterPreset::CodecParameterPreset(std::string name, std::string video_codec_parameter,
                                           std::string audio_codec_parameter)
    : name_(std::move(name)),
      video_codec_parameter_(std::move(video_codec_parameter)),
      audio_codec_parameter_(std::move(audio_codec_parameter)) {}

void CodecParameterPreset::video_codec(const Codec* codec) {
  video_codec_id_ = codec ? codec->id() : 0;
  video_codec_name_ = codec ? codec->name() : "";
}

void CodecParameterPreset::audio_codec(const Codec* codec) {
  audio_codec_id_ = codec ? codec->id() : 0;
  audio_codec_name_ = codec ? codec->name() : "";
}

CodecParameterPreset* CodecParameterPreset::FromRow(SQLite::Statement& row, int first) {
  auto* preset = new CodecParameterPreset();
  ReadRow(row, first, preset);
  return preset;
}

void CodecParameterPreset::ReadRow(SQLite::Statement& row, int first,
                                   CodecParameterPreset* preset) {
  preset->id_ = row.getColumn(first).getInt();
  preset->name_ = row.getColumn(first + 1).getText();
  preset->video_codec_name_ = row.getColumn(first + 2).getText();
  preset->audio_codec_name_ = row.getColumn(first + 3).getText();
  preset->video_codec_parameter_ = row.getColumn(first + 4).getText();
  preset->audio_codec_parameter_ = row.getColumn(first + 5).getText();
  preset->builtin_ = row.getColumn(first + 6).getInt() != 0;
  preset->video_codec_id_ = row.getColumn(first + 7).getInt();
  preset->audio_codec_id_ = row.getColumn(first + 8).getInt();
  preset->visible_ = row.getColumn(first + 9).getInt() != 0;
}

int CodecParameterPreset::VisitVisible(
    const std::function<void(const CodecParameterPreset&)>& visit) {
  static const std::string sql = std::string(kPresetColumns) + "WHERE p.visible = 1 ORDER BY p.id";
  CodecParameterPreset preset;
  return zolo::model::VisitRowsOf(MediaModel::Instance()->database(), sql,
                                  [&](SQLite::Statement& row) {
                                    ReadRow(row, 0, &preset);
                                    visit(preset);
                                  });
}

int CodecParameterPreset::QueryList(const char* where, const std::string* text, int number,
                                    std::vector<CodecParameterPreset*>* out) {
  return QueryRowsByKey(
      out, std::string(kPresetColumns) + "WHERE " + where + " ORDER BY p.id",
      [](SQLite::Statement& row) { return FromRow(row, 0); }, text, number);
}

int CodecParameterPreset::QueryById(int id, CodecParameterPreset** out) {
  if (out == nullptr) return -3;
  std::vector<CodecParameterPreset*> found;
  return TakeFirst(&found, QueryList("p.id = ?", nullptr, id, &found), out);
}

int CodecParameterPreset::QueryByName(const std::string& name, CodecParameterPreset** out) {
  if (out == nullptr) return -3;
  std::vector<CodecParameterPreset*> found;
  return TakeFirst(&found, QueryList("p.name = ?", &name, 0, &found), out);
}

int CodecParameterPreset::QueryVisible(std::vector<CodecParameterPreset*>* out) {
  return QueryList("p.visible = 1", nullptr, 0, out);
}

int CodecParameterPreset::Add(CodecParameterPreset* preset) {
  if (preset == nullptr) return -3;
  return zolo::model::WithMediaDatabase([preset](zolo::model::Database& db) {
    SQLite::Statement& insert = db.Prepared(
        "INSERT INTO codec_parameter_preset (name, video_codec_id, audio_codec_id, "
        "video_codec_parameter, audio_codec_parameter, builtin, visible) "
        "VALUES (?, NULLIF(?, 0), NULLIF(?, 0), ?, ?, 0, ?)");
    insert.bind(1, preset->name_);
    insert.bind(2, preset->video_codec_id_);
    insert.bind(3, preset->audio_codec_id_);
    insert.bind(4, preset->video_codec_parameter_);
    insert.bind(5, preset->audio_codec_parameter_);
    insert.bind(6, preset->visible_ ? 1 : 0);
    insert.exec();
    preset->id_ = static_cast<int>(db.raw().getLastInsertRowid());
    preset->builtin_ = false;
    return 0;
  });
}

int CodecParameterPreset::Update(CodecParameterPreset* preset) {
  if (preset == nullptr) return -3;
  return zolo::model::ChangeOneRow(
      "UPDATE codec_parameter_preset SET name = ?, video_codec_id = NULLIF(?, 0), "
      "audio_codec_id = NULLIF(?, 0), video_codec_parameter = ?, audio_codec_parameter = ?, "
      "visible = ? WHERE id = ?",
      preset->name_, preset->video_codec_id_, preset->audio_codec_id_,
      preset->video_codec_parameter_, preset->audio_codec_parameter_, preset->visible_ ? 1 : 0,
      preset->id_);
}

int CodecParameterPreset::Remove(int id) {
  return zolo::model::WithMediaDatabase([id](zolo::model::Database& db) {
    SQLite::Statement& builtin =
        db.Prepared("SELECT builtin FROM codec_parameter_preset WHERE id = ?");
    builtin.bind(1, id);
    if (!builtin.executeStep()) return -5;
    bool refused = builtin.getColumn(0).getInt() != 0;
    builtin.reset();
    if (refused) return -2;
    SQLite::Statement& remove = db.Prepared("DELETE FROM codec_parameter_preset WHERE id = ?");
    remove.bind(1, id);
    return remove.exec() == 1 ? 0 : -5;
  });
}
