#include "zolo_model/stream_metadata.h"

#include "zolo_model/media_model.h"
#include "zolo_model/stream.h"

int StreamMetadataKey::Add() {
  return zolo::model::WithMediaDatabase([this](zolo::model::Database& db) {
    SQLite::Statement& insert = db.Prepared("INSERT INTO stream_metadata_key (key) VALUES (?)");
    insert.bind(1, key_);
    insert.exec();
    id_ = static_cast<int>(db.raw().getLastInsertRowid());
    return 0;
  });
}

int StreamMetadataKey::Update() {
  return zolo::model::ChangeOneRow("UPDATE stream_metadata_key SET key = ? WHERE id = ?", key_,
                                   id_);
}

int StreamMetadataKey::Remove(int id) {
  return zolo::model::ChangeOneRow("DELETE FROM stream_metadata_key WHERE id = ?", id);
}

StreamMetadata::StreamMetadata(const Stream* stream, const StreamMetadataKey* key,
                               std::string value)
    : stream_id_(stream ? stream->id() : 0),
      key_(key ? *key : StreamMetadataKey(std::string())),
      value_(std::move(value)) {}

int StreamMetadata::QueryWhere(const char* sql, int id, std::vector<StreamMetadata*>* out) {
  auto read = [](SQLite::Statement& row) {
    auto* metadata = new StreamMetadata();
    metadata->id_ = row.getColumn(0).getInt();
    metadata->stream_id_ = row.getColumn(1).getInt();
    metadata->key_.id_ = row.getColumn(2).getInt();
    metadata->key_.key_ = row.getColumn(3).getString();
    metadata->value_ = row.getColumn(4).getString();
    return metadata;
  };
  return zolo::model::QueryRows(out, sql, read, id);  // `id` is unused by a query without ?
}

#define METADATA_COLUMNS                                                                \
  "SELECT m.id, COALESCE(m.stream_id, 0), k.id, k.key, m.value FROM stream_metadata m " \
  "JOIN stream_metadata_key k ON k.id = m.key_id "

int StreamMetadata::QueryAll(std::vector<StreamMetadata*>* out) {
  return QueryWhere(METADATA_COLUMNS "ORDER BY m.id", 0, out);
}

int StreamMetadata::QueryByStream(int stream_id, std::vector<StreamMetadata*>* out) {
  return QueryWhere(METADATA_COLUMNS "WHERE m.stream_id = ? ORDER BY m.id", stream_id, out);
}

int StreamMetadata::QueryById(int id, StreamMetadata** out) {
  if (out == nullptr) return -3;
  std::vector<StreamMetadata*> found;
  int result = QueryWhere(METADATA_COLUMNS "WHERE m.id = ?", id, &found);
  if (result != 0) return result;
  if (found.empty()) return -5;
  *out = found.front();
  return 0;
}

int StreamMetadata::Add(StreamMetadata* row) {
  if (row == nullptr) return -3;
  zolo::model::Database* db = MediaModel::Instance()->database();
  if (db == nullptr) return -1;
  try {
    auto lock = db->Lock();
    SQLite::Statement& insert = db->Prepared(
        "INSERT INTO stream_metadata (stream_id, key_id, value) VALUES (NULLIF(?, 0), ?, ?)");
    insert.bind(1, row->stream_id_);
    insert.bind(2, row->key_.id_);
    insert.bind(3, row->value_);
    insert.exec();
    row->id_ = static_cast<int>(db->raw().getLastInsertRowid());
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}

int StreamMetadata::Update(StreamMetadata* row) {
  if (row == nullptr) return -3;
  return zolo::model::ChangeOneRow("UPDATE stream_metadata SET value = ? WHERE id = ?", row->value_,
                                   row->id_);
}
