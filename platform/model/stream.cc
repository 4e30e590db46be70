#include "zolo_model/stream.h"

#include <map>
#include <stdexcept>

#include "json_text.h"

#include "zolo_model/media_model.h"
#include "zolo_model/stream_metadata.h"

namespace {

struct TypeName {
  int type;
  const char* name;
};
constexpr TypeName kTypes[] = {
    {1, "file"}, {2, "network"}, {3, "preview"}, {4, "display"}, {5, "audio"}};

// A stream with its preset (and the preset's codec names) and its channel in one row.
constexpr const char* kColumns =
    "SELECT s.id, s.name, s.type, COALESCE(s.channel_id, 0), "
    "COALESCE(s.codec_parameter_preset_id, 0), s.container, s.destination, s.aux_text, s.enable, "
    "s.enable_option1, s.enable_option2, s.enable_option3, s.suspend, s.parameters, "
    "s.authentication, p.id, p.name, COALESCE(v.name, ''), COALESCE(a.name, ''), "
    "p.video_codec_parameter, p.audio_codec_parameter, p.builtin, COALESCE(p.video_codec_id, 0), "
    "COALESCE(p.audio_codec_id, 0), p.visible, ";
constexpr int kChannelColumn = 25;
constexpr const char* kJoins =
    " FROM stream s LEFT JOIN channel c ON c.id = s.channel_id "
    "LEFT JOIN codec_parameter_preset p ON p.id = s.codec_parameter_preset_id "
    "LEFT JOIN codec v ON v.id = p.video_codec_id LEFT JOIN codec a ON a.id = p.audio_codec_id ";

using zolo::model::IntMember;
using zolo::model::ParsedObject;
using zolo::model::SetMember;

int ObtainText(const cJSON* json, const std::string& key, std::string* value) {
  const char* text = zolo::model::TextMember(json, key);
  if (text == nullptr || value == nullptr) return -5;
  *value = text;
  return 0;
}

}  // namespace

Stream::~Stream() {
  cJSON_Delete(parameters_json_);
  cJSON_Delete(authentication_json_);
}

int Stream::StringToType(const std::string& type) {
  for (const auto& entry : kTypes)
    if (type == entry.name) return entry.type;
  return 0;
}

std::string Stream::TypeToString(int type) {
  for (const auto& entry : kTypes)
    if (type == entry.type) return entry.name;
  return "unknown";
}

int Stream::QueryList(const std::string& where, const std::vector<std::string>& texts, bool visible,
                      std::vector<Stream*>* out) {
  if (out == nullptr) return -3;
  zolo::model::Database* db = MediaModel::Instance()->database();
  if (db == nullptr) return -1;
  std::vector<Stream*> found;
  try {
    auto lock = db->Lock();
    std::string sql = std::string(kColumns) + Channel::Columns() + kJoins + "WHERE (" + where +
                      ")" + (visible ? " AND s.hidden = 0" : "") + " ORDER BY s.id";
    SQLite::Statement& query = db->Prepared(sql);
    for (size_t i = 0; i < texts.size(); ++i) query.bind(static_cast<int>(i + 1), texts[i]);
    // Many streams name the same few channels and presets: each is read once per query.
    std::map<int, std::shared_ptr<Channel>> channels;
    std::map<int, std::shared_ptr<CodecParameterPreset>> presets;
    while (query.executeStep()) {
      auto* stream = new Stream();
      found.push_back(stream);
      stream->ReadOwnColumns(query);
      if (!query.getColumn(15).isNull()) {
        auto& preset = presets[query.getColumn(15).getInt()];
        if (!preset) preset.reset(CodecParameterPreset::FromRow(query, 15));
        stream->preset_ = preset;
      }
      if (!query.getColumn(kChannelColumn).isNull()) {
        auto& channel = channels[query.getColumn(kChannelColumn).getInt()];
        if (!channel) channel.reset(Channel::FromRow(query, kChannelColumn));
        stream->channel_ = channel;
      }
    }
    query.reset();
  } catch (const std::exception&) {
    MediaModel::CleanQuery(&found);
    return -1;
  }
  out->insert(out->end(), found.begin(), found.end());
  return 0;
}

void Stream::ReadOwnColumns(SQLite::Statement& row) {
  id_ = row.getColumn(0).getInt();
  name_ = row.getColumn(1).getText();
  type_ = row.getColumn(2).getText();
  channel_id_ = row.getColumn(3).getInt();
  preset_id_ = row.getColumn(4).getInt();
  container_ = row.getColumn(5).getText();
  destination_ = row.getColumn(6).getText();
  aux_text_ = row.getColumn(7).getText();
  for (int flag = 0; flag < 4; ++flag) enable_[flag] = row.getColumn(8 + flag).getInt() != 0;
  suspend_ = row.getColumn(12).getInt() != 0;
  parameters_ = row.getColumn(13).getText();
  authentication_ = row.getColumn(14).getText();
  cJSON_Delete(parameters_json_);
  cJSON_Delete(authentication_json_);
  parameters_json_ = nullptr;
  authentication_json_ = nullptr;
}

int Stream::VisitByPattern(const std::string& pattern,
                           const std::function<void(const Stream&)>& visit) {
  static const std::string sql =
      "SELECT s.id, s.name, s.type, COALESCE(s.channel_id, 0), "
      "COALESCE(s.codec_parameter_preset_id, 0), s.container, s.destination, s.aux_text, "
      "s.enable, s.enable_option1, s.enable_option2, s.enable_option3, s.suspend, s.parameters, "
      "s.authentication FROM stream s WHERE s.name LIKE ?1 ORDER BY s.id";
  Stream reused;
  return zolo::model::VisitRowsOf(
      MediaModel::Instance()->database(), sql,
      [&](SQLite::Statement& row) {
        reused.ReadOwnColumns(row);
        visit(reused);
      },
      pattern);
}

int Stream::QueryById(int id, bool visible, Stream** out) {
  if (out == nullptr) return -3;
  std::vector<Stream*> found;
  int result = QueryList("s.id = CAST(?1 AS INTEGER)", {std::to_string(id)}, visible, &found);
  if (result != 0) return result;
  if (found.empty()) return -5;
  *out = found.front();
  for (size_t i = 1; i < found.size(); ++i) delete found[i];
  return 0;
}

int Stream::QueryByTypeName(const char* type, const char* name, bool visible,
                            std::vector<Stream*>* out) {
  if (type != nullptr && name != nullptr)
    return QueryList("s.type = ?1 AND s.name = ?2", {type, name}, visible, out);
  if (type != nullptr) return QueryList("s.type = ?1", {type}, visible, out);
  if (name != nullptr) return QueryList("s.name = ?1", {name}, visible, out);
  return QueryList("1", {}, visible, out);
}

int Stream::QueryByTypeName(const char* type, const char* name, std::vector<Stream*>* out) {
  return QueryByTypeName(type, name, false, out);
}

int Stream::QueryByChannel(int channel_id, bool visible, std::vector<Stream*>* out) {
  return QueryList("s.channel_id = CAST(?1 AS INTEGER)", {std::to_string(channel_id)}, visible,
                   out);
}

int Stream::QueryByPattern(const std::string& pattern, bool visible, std::vector<Stream*>* out) {
  return QueryList("s.name LIKE ?1", {pattern}, visible, out);
}

int Stream::QueryByPattern(const std::string& pattern, std::vector<Stream*>* out) {
  return QueryByPattern(pattern, false, out);
}

int Stream::QueryByDestPattern(const std::string& pattern, bool visible,
                               std::vector<Stream*>* out) {
  return QueryList("s.destination LIKE ?1", {pattern}, visible, out);
}

void Stream::codec_parameter_preset(const CodecParameterPreset* preset) {
  preset_id_ = preset ? preset->id() : 0;
  preset_ = preset ? std::make_shared<CodecParameterPreset>(*preset) : nullptr;
}

int Stream::Update(Stream* stream) {
  if (stream == nullptr) return -3;
  auto flag = [stream](int i) { return stream->enable_[i] ? 1 : 0; };
  return zolo::model::ChangeOneRow(
      "UPDATE stream SET destination = ?, enable = ?, enable_option1 = ?, enable_option2 = ?, "
      "enable_option3 = ?, suspend = ?, parameters = ?, authentication = ?, "
      "codec_parameter_preset_id = NULLIF(?, 0) WHERE id = ?",
      stream->destination_, flag(0), flag(1), flag(2), flag(3), stream->suspend_ ? 1 : 0,
      stream->parameters_, stream->authentication_, stream->preset_id_, stream->id_);
}

int Stream::Remove(int id) {
  return zolo::model::ChangeOneRow("DELETE FROM stream WHERE id = ?", id);
}

uint64_t Stream::TotalFileBitrate(bool sub) {
  zolo::model::Database* db = MediaModel::Instance()->database();
  if (db == nullptr) return 0;
  try {
    auto lock = db->Lock();
    SQLite::Statement& query = db->Prepared(
        "SELECT COALESCE(SUM(MAX(COALESCE(json_extract(parameters, '$.bitrate'), 0), 0)), 0) "
        "FROM stream WHERE type = 'file' AND enable = 1 AND suspend = 0 "
        "AND COALESCE(json_extract(parameters, '$.sub_storage'), 0) = ?");
    query.bind(1, sub ? 1 : 0);
    uint64_t total = 0;
    if (query.executeStep()) total = static_cast<uint64_t>(query.getColumn(0).getInt64());
    query.reset();
    return total;
  } catch (const std::exception&) {
    return 0;
  }
}

int Stream::QueryMetadata(std::vector<StreamMetadata*>* out) const {
  return StreamMetadata::QueryByStream(id_, out);
}

bool Stream::IsParameterExisted(const std::string& key) const {
  return zolo::model::HasMember(ParsedObject(parameters_, &parameters_json_), key);
}

int Stream::ObtainParameter(const std::string& key, int fallback) const {
  return IntMember(ParsedObject(parameters_, &parameters_json_), key, fallback);
}

int Stream::ObtainStrParameter(const std::string& key, std::string* value) const {
  return ObtainText(ParsedObject(parameters_, &parameters_json_), key, value);
}

int Stream::UpdateParameter(const std::string& key, int value) {
  return SetMember(&parameters_, &parameters_json_, key, cJSON_CreateNumber(value));
}

int Stream::UpdateParameter(const std::string& key, const std::string& value) {
  return SetMember(&parameters_, &parameters_json_, key, cJSON_CreateString(value.c_str()));
}

bool Stream::IsAuthenticationExisted(const std::string& key) const {
  return zolo::model::HasMember(ParsedObject(authentication_, &authentication_json_), key);
}

int Stream::ObtainAuthentication(const std::string& key, int fallback) const {
  return IntMember(ParsedObject(authentication_, &authentication_json_), key, fallback);
}

int Stream::ObtainStrAuthentication(const std::string& key, std::string* value) const {
  return ObtainText(ParsedObject(authentication_, &authentication_json_), key, value);
}

int Stream::UpdateAuthentication(const std::string& key, int value) {
  return SetMember(&authentication_, &authentication_json_, key, cJSON_CreateNumber(value));
}

int Stream::UpdateAuthentication(const std::string& key, const std::string& value) {
  return SetMember(&authentication_, &authentication_json_, key, cJSON_CreateString(value.c_str()));
}
