// Stream destinations, single parameters and authentication values, and stream metadata:
// direct database changes, no engine notification.
#include <glib.h>
#include <zolo/media/streams.h>
#include <zolo/url.h>
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>
#include <zolo_model/stream_metadata.h>

#include <cstdio>
#include <cstring>

#include "libzolo_media/media_call.h"

namespace {

// Runs `query`, applies `change` to each stream found and writes it back; -5 when the query
// fails.
template <class Query, class Change>
int ForEachStream(Query query, Change change) {
  std::vector<Stream*> streams;
  if (query(&streams) < 0) {
    MediaModel::CleanQuery(&streams);
    return -5;
  }
  try {
    for (Stream* stream : streams) {
      change(stream);
      Stream::Update(stream);
    }
  } catch (...) {
    MediaModel::CleanQuery(&streams);
    throw;
  }
  MediaModel::CleanQuery(&streams);
  return 0;
}

template <class Value>
int SetStreamValue(const char* type, const char* name, const char* key, Value value,
                   bool authentication) {
  if ((type == nullptr && name == nullptr) || key == nullptr) return -3;
  return ForEachStream(
      [&](std::vector<Stream*>* s) { return Stream::QueryByTypeName(type, name, true, s); },
      [&](Stream* s) {
        if (authentication)
          s->UpdateAuthentication(key, value);
        else
          s->UpdateParameter(key, value);
      });
}

int AppendMetadata(const std::vector<StreamMetadata*>& rows, int id,
                   std::vector<zm_metadata>* out) {
  if (out == nullptr) return -1;
  for (StreamMetadata* row : rows) {
    if (id > 0 && row->id() != id) continue;
    zm_metadata& record = out->emplace_back();
    record.key_id = row->key_obj()->id();
    std::snprintf(record.key, sizeof record.key, "%s", row->key().c_str());
    std::snprintf(record.value, sizeof record.value, "%s", row->value().c_str());
  }
  return 0;
}

}  // namespace

int zm_set_stream_destination(const char* name, const char* destination) {
  if (name == nullptr) return -3;
  int result = ForEachStream(
      [name](std::vector<Stream*>* s) { return Stream::QueryByTypeName(nullptr, name, true, s); },
      [destination](Stream* s) {
        zolo::RequireText(destination);
        s->destination(destination);
      });
  if (result != 0) return result;
  if (g_strcmp0(name, "preview") != 0) return 0;
  zolo::RequireText(destination);
  UrlParser::Url preview(destination);
  ForEachStream([](std::vector<Stream*>* s) { return Stream::QueryByPattern("preview_", true, s); },
                [&preview](Stream* s) {
                  UrlParser::Url own(s->destination());
                  own.port = preview.port;
                  own.user = preview.user;
                  own.password = preview.password;
                  s->destination(own.ToString());
                });
  return 0;
}

int zm_set_schedule_stream_destination(const std::vector<std::string>& destinations) {
  if (destinations.empty()) return -3;
  size_t next = 0;
  return ForEachStream([](std::vector<Stream*>* s) { return Stream::QueryByPattern("%sched%", s); },
                       [&](Stream* s) {
                         if (next >= destinations.size() || s->suspend() || !s->enable()) return;
                         s->destination(destinations[next++]);
                       });
}

int zm_set_stream_param(const char* type, const char* name, const char* key, int value) {
  return SetStreamValue(type, name, key, value, false);
}

int zm_set_stream_param(const char* type, const char* name, const char* key, const char* value) {
  if (value == nullptr) return -3;
  return SetStreamValue(type, name, key, std::string(value), false);
}

int zm_set_stream_auth(const char* type, const char* name, const char* key, int value) {
  return SetStreamValue(type, name, key, value, true);
}

int zm_set_stream_auth(const char* type, const char* name, const char* key, const char* value) {
  if (value == nullptr) return -3;
  return SetStreamValue(type, name, key, std::string(value), true);
}

int zm_add_stream_metadata_key(const char* key, const char* default_value) {
  zolo::RequireText(key);
  StreamMetadataKey metadata_key(key);
  if (metadata_key.Add() < 0) return -1;
  zolo::RequireText(default_value);
  StreamMetadata row(nullptr, &metadata_key, default_value);
  return StreamMetadata::Add(&row) < 0 ? -1 : 0;
}

int zm_set_stream_metadata_key(int id, const char* key) {
  StreamMetadata* row = nullptr;
  if (StreamMetadata::QueryById(id, &row) < 0) return -1;
  int result = 0;
  if (key != nullptr) {
    row->key_obj()->key(key);
    if (row->key_obj()->Update() < 0) result = -1;
  }
  delete row;
  return result;
}

int zm_set_stream_metadata(int id, const char* value) {
  StreamMetadata* row = nullptr;
  if (StreamMetadata::QueryById(id, &row) < 0) return -1;
  int result = 0;
  if (value != nullptr) {
    row->value(value);
    if (StreamMetadata::Update(row) < 0) result = -1;
  }
  delete row;
  return result;
}

int zm_remove_stream_metadata_key(int id) {
  return StreamMetadataKey::Remove(id) < 0 ? -1 : 0;
}

int zm_get_stream_metadata(int id, std::vector<zm_metadata>* out) {
  std::vector<StreamMetadata*> rows;
  if (StreamMetadata::QueryAll(&rows) < 0) return -1;
  int result = AppendMetadata(rows, id, out);
  MediaModel::CleanQuery(&rows);
  return result;
}

int zm_get_backup_stream_metadata(int id, std::vector<zm_metadata>* out) {
  std::vector<Stream*> streams;
  if (Stream::QueryByTypeName(nullptr, "backupmeta", true, &streams) < 0 || streams.empty()) {
    // The database always holds "backupmeta"; its absence is a failed query.
    MediaModel::CleanQuery(&streams);
    return -1;
  }
  std::vector<StreamMetadata*> rows;
  int queried = streams.front()->QueryMetadata(&rows);
  MediaModel::CleanQuery(&streams);
  if (queried < 0) return -1;
  int result = AppendMetadata(rows, id, out);
  MediaModel::CleanQuery(&rows);
  return result;
}
