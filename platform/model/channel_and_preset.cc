#include "zolo_model/channel.h"
#include "zolo_model/codec_parameter_preset.h"
#include "zolo_model/media_model.h"

int Channel::Query(const char* sql, bool by_id, int id, const std::string& name, Channel** out) {
  if (out == nullptr) return -3;
  zolo::model::Database* db = MediaModel::Instance()->database();
  if (db == nullptr) return -1;
  try {
    auto lock = db->Lock();
    SQLite::Statement& query = db->Prepared(sql);
    if (by_id)
      query.bind(1, id);
    else
      query.bind(1, name);
    if (!query.executeStep()) return -5;
    *out = new Channel(query.getColumn(0).getInt(), query.getColumn(1).getString(),
                       query.getColumn(2).getInt(), query.getColumn(3).getInt());
    query.reset();
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}

int Channel::QueryById(int id, Channel** out) {
  return Query("SELECT id, name, video_source_id, audio_source_id FROM channel WHERE id = ?", true,
               id, std::string(), out);
}

int Channel::QueryByName(const std::string& name, Channel** out) {
  return Query("SELECT id, name, video_source_id, audio_source_id FROM channel WHERE name = ?",
               false, 0, name, out);
}

int CodecParameterPreset::QueryById(int id, CodecParameterPreset** out) {
  if (out == nullptr) return -3;
  zolo::model::Database* db = MediaModel::Instance()->database();
  if (db == nullptr) return -1;
  try {
    auto lock = db->Lock();
    SQLite::Statement& query = db->Prepared(
        "SELECT p.id, p.name, COALESCE(v.name, ''), COALESCE(a.name, ''), "
        "p.video_codec_parameter, p.audio_codec_parameter, p.builtin "
        "FROM codec_parameter_preset p LEFT JOIN codec v ON v.id = p.video_codec_id "
        "LEFT JOIN codec a ON a.id = p.audio_codec_id WHERE p.id = ?");
    query.bind(1, id);
    if (!query.executeStep()) return -5;
    auto* preset = new CodecParameterPreset();
    preset->id_ = query.getColumn(0).getInt();
    preset->name_ = query.getColumn(1).getString();
    preset->video_codec_name_ = query.getColumn(2).getString();
    preset->audio_codec_name_ = query.getColumn(3).getString();
    preset->video_codec_parameter_ = query.getColumn(4).getString();
    preset->audio_codec_parameter_ = query.getColumn(5).getString();
    preset->builtin_ = query.getColumn(6).getInt() != 0;
    query.reset();
    *out = preset;
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}
