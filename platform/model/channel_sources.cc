#include "zolo_model/channel_sources.h"

#include <cjson/cJSON.h>

#include <memory>

#include "json_text.h"
#include "query_support.h"

namespace {

int ReadIds(const std::string& text, const std::string& key, std::vector<int>* ids) {
  if (ids == nullptr) return -3;
  zolo::model::Json json = zolo::model::ParseJson(text);
  const cJSON* list = cJSON_GetObjectItemCaseSensitive(json.get(), key.c_str());
  if (list == nullptr) return 0;
  if (!cJSON_IsArray(list)) return -2;
  std::vector<int> found;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, list) {
    if (!cJSON_IsNumber(item)) return -2;
    found.push_back(item->valueint);
  }
  ids->insert(ids->end(), found.begin(), found.end());
  return 0;
}

int WriteIds(std::string* text, const std::string& key, const std::vector<int>& ids) {
  cJSON* cache = nullptr;
  cJSON* list = ids.empty() ? cJSON_CreateArray()
                            : cJSON_CreateIntArray(ids.data(), static_cast<int>(ids.size()));
  int result = zolo::model::SetMember(text, &cache, key, list);
  cJSON_Delete(cache);
  return result;
}

}  // namespace

int ChannelSources::QueryList(const char* where, int channel_id,
                              std::vector<ChannelSources*>* out) {
  auto read = [](SQLite::Statement& row) {
    auto* sources = new ChannelSources();
    sources->id_ = row.getColumn(0).getInt();
    sources->channel_id_ = row.getColumn(1).getInt();
    sources->sources_ = row.getColumn(2).getString();
    sources->user_sources_ = row.getColumn(3).getString();
    return sources;
  };
  return zolo::model::QueryRows(out,
                                std::string("SELECT id, channel_id, sources, user_sources FROM "
                                            "channel_sources WHERE ") +
                                    where + " ORDER BY channel_id",
                                read, channel_id);
}

int ChannelSources::QueryByChannel(int channel_id, ChannelSources** out) {
  if (out == nullptr) return -3;
  std::vector<ChannelSources*> found;
  return zolo::model::TakeFirst(&found, QueryList("channel_id = ?", channel_id, &found), out);
}

int ChannelSources::QueryAll(std::vector<ChannelSources*>* out) {
  return QueryList("1", 0, out);
}

int ChannelSources::Add(ChannelSources* sources) {
  if (sources == nullptr) return -3;
  return zolo::model::WithMediaDatabase([sources](zolo::model::Database& db) {
    SQLite::Statement& insert = db.Prepared(
        "INSERT INTO channel_sources (channel_id, sources, user_sources) VALUES (?, ?, ?)");
    insert.bind(1, sources->channel_id_);
    insert.bind(2, sources->sources_);
    insert.bind(3, sources->user_sources_);
    insert.exec();
    sources->id_ = static_cast<int>(db.raw().getLastInsertRowid());
    return 0;
  });
}

int ChannelSources::Update(ChannelSources* sources) {
  if (sources == nullptr) return -3;
  return zolo::model::ChangeOneRow(
      "UPDATE channel_sources SET sources = ?, user_sources = ? WHERE channel_id = ?",
      sources->sources_, sources->user_sources_, sources->channel_id_);
}

int ChannelSources::ObtainChannelSources(const std::string& key, std::vector<int>* ids) const {
  return ReadIds(sources_, key, ids);
}

int ChannelSources::ObtainUserSources(const std::string& key, std::vector<int>* ids) const {
  return ReadIds(user_sources_, key, ids);
}

int ChannelSources::UpdateChannelSources(const std::string& key, const std::vector<int>& ids) {
  return WriteIds(&sources_, key, ids);
}

int ChannelSources::UpdateUserSources(const std::string& key, const std::vector<int>& ids) {
  return WriteIds(&user_sources_, key, ids);
}
