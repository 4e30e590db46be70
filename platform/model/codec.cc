#include "zolo_model/codec.h"

#include <cjson/cJSON.h>

#include <memory>

#include "zolo_model/codec_parameter_preset.h"
#include "zolo_model/media_model.h"

namespace {

constexpr const char* kCodecTypes[] = {"video", "audio"};

// Binds `text` or, when there is none and the statement takes a parameter, `number`.
void BindKey(SQLite::Statement& query, const std::string* text, int number) {
  if (text != nullptr)
    query.bind(1, *text);
  else if (query.getBindParameterCount() > 0)
    query.bind(1, number);
}

// The objects of the JSON array `text` as name/value entries.
std::vector<CodecParameter> ParseParameters(const std::string& text) {
  std::vector<CodecParameter> entries;
  std::unique_ptr<cJSON, void (*)(cJSON*)> list(cJSON_Parse(text.c_str()), cJSON_Delete);
  const cJSON* array = cJSON_IsArray(list.get()) ? list.get() : nullptr;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, array) {
    if (!cJSON_IsObject(item)) continue;
    const char* name = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(item, "name"));
    const char* value = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(item, "value"));
    entries.push_back({name ? name : "", value ? value : ""});
  }
  return entries;
}

// Keeps the first of `found` in `*out`. -5 when there is none.
template <class T>
int TakeFirst(std::vector<T*>* found, int result, T** out) {
  if (result == 0 && found->empty()) result = -5;
  if (result == 0) {
    *out = found->front();
    found->erase(found->begin());
  }
  MediaModel::CleanQuery(found);
  return result;
}

constexpr const char* kPresetColumns =
    "SELECT p.id, p.name, COALESCE(v.name, ''), COALESCE(a.name, ''), p.video_codec_parameter, "
    "p.audio_codec_parameter, p.builtin, COALESCE(p.video_codec_id, 0), "
    "COALESCE(p.audio_codec_id, 0), p.visible FROM codec_parameter_preset p "
    "LEFT JOIN codec v ON v.id = p.video_codec_id LEFT JOIN codec a ON a.id = p.audio_codec_id ";

}  // namespace

int Codec::StringToType(const std::string& type) {
  for (int i = 0; i < 2; ++i)
    if (type == kCodecTypes[i]) return i;
  return -1;
}

std::string Codec::TypeToString(int type) {
  return type == 0 || type == 1 ? kCodecTypes[type] : "unknown";
}

int Codec::QueryList(const char* where, const std::string* text, int number,
                     std::vector<Codec*>* out) {
  if (out == nullptr) return -3;
  std::vector<std::unique_ptr<Codec>> found;
  int result = zolo::model::WithMediaDatabase([&](zolo::model::Database& db) {
    SQLite::Statement& query =
        db.Prepared(std::string("SELECT id, name, type, parameters FROM codec WHERE ") + where +
                    " ORDER BY id");
    BindKey(query, text, number);
    while (query.executeStep()) {
      found.emplace_back(new Codec());
      Codec& codec = *found.back();
      codec.id_ = query.getColumn(0).getInt();
      codec.name_ = query.getColumn(1).getString();
      codec.type_ = TypeToString(query.getColumn(2).getInt());
      codec.parameters_ = ParseParameters(query.getColumn(3).getString());
    }
    query.reset();
    return 0;
  });
  if (result != 0) return result;
  for (auto& codec : found) out->push_back(codec.release());
  return 0;
}

int Codec::QueryAll(std::vector<Codec*>* out) {
  return QueryList("1", nullptr, 0, out);
}

int Codec::QueryById(int id, Codec** out) {
  if (out == nullptr) return -3;
  std::vector<Codec*> found;
  return TakeFirst(&found, QueryList("id = ?", nullptr, id, &found), out);
}

int Codec::QueryByName(const std::string& name, Codec** out) {
  if (out == nullptr) return -3;
  std::vector<Codec*> found;
  return TakeFirst(&found, QueryList("name = ?", &name, 0, &found), out);
}

int Codec::QueryByTypeName(const char* type, const char* name, std::vector<Codec*>* out) {
  if (out == nullptr) return -3;
  if (type != nullptr && StringToType(type) < 0) return 0;
  int type_number = type ? StringToType(type) : 0;
  if (type != nullptr && name != nullptr) {
    std::string text = name;
    // The type is a number from a fixed list, never caller text.
    return QueryList(type_number == 0 ? "type = 0 AND name = ?" : "type = 1 AND name = ?", &text, 0,
                     out);
  }
  if (type != nullptr) return QueryList("type = ?", nullptr, type_number, out);
  if (name != nullptr) {
    std::string text = name;
    return QueryList("name = ?", &text, 0, out);
  }
  return QueryAll(out);
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
  preset->id_ = row.getColumn(first).getInt();
  preset->name_ = row.getColumn(first + 1).getString();
  preset->video_codec_name_ = row.getColumn(first + 2).getString();
  preset->audio_codec_name_ = row.getColumn(first + 3).getString();
  preset->video_codec_parameter_ = row.getColumn(first + 4).getString();
  preset->audio_codec_parameter_ = row.getColumn(first + 5).getString();
  preset->builtin_ = row.getColumn(first + 6).getInt() != 0;
  preset->video_codec_id_ = row.getColumn(first + 7).getInt();
  preset->audio_codec_id_ = row.getColumn(first + 8).getInt();
  preset->visible_ = row.getColumn(first + 9).getInt() != 0;
  return preset;
}

int CodecParameterPreset::QueryList(const char* where, const std::string* text, int number,
                                    std::vector<CodecParameterPreset*>* out) {
  if (out == nullptr) return -3;
  std::vector<std::unique_ptr<CodecParameterPreset>> found;
  int result = zolo::model::WithMediaDatabase([&](zolo::model::Database& db) {
    SQLite::Statement& query =
        db.Prepared(std::string(kPresetColumns) + "WHERE " + where + " ORDER BY p.id");
    BindKey(query, text, number);
    while (query.executeStep()) found.emplace_back(FromRow(query, 0));
    query.reset();
    return 0;
  });
  if (result != 0) return result;
  for (auto& preset : found) out->push_back(preset.release());
  return 0;
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
