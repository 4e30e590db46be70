#include "zolo_model/stream.h"

#include "zolo_model/media_model.h"

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
