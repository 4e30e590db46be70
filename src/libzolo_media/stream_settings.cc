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

#include "common/log.h"
#include "libzolo_media/media_call.h"
#include "libzolo_media/stream_writes.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";

// `text` with the user, password and port of `access` in place of its own; scheme, host (IPv6
// brackets included), path, query and fragment stay exactly as written. False when `text`
// is not a URL with a host.
bool WithAccessOf(const std::string& text, const UrlParser::Url& access, std::string* out) {
  UrlParser::Url own;
  if (!own.Parse(text) || own.host.empty()) return false;
  size_t start = text.find("//");
  if (start == std::string::npos) return false;
  start += 2;
  size_t end = text.find_first_of("/?#", start);
  if (end == std::string::npos) end = text.size();
  std::string authority = text.substr(start, end - start);
  size_t at = authority.rfind('@');
  std::string host = at == std::string::npos ? authority : authority.substr(at + 1);
  size_t host_end = host.find(':');
  if (!host.empty() && host[0] == '[') {
    host_end = host.find(']');
    if (host_end == std::string::npos) return false;
    ++host_end;
  }
  if (host_end != std::string::npos) host.resize(host_end);
  std::string rebuilt = text.substr(0, start);
  if (!access.user.empty()) rebuilt += access.user + ":" + access.password + "@";
  rebuilt += host;
  if (!access.port.empty()) rebuilt += ":" + access.port;
  *out = rebuilt + text.substr(end);
  return true;
}

template <class Value>
int SetStreamValue(const char* type, const char* name, const char* key, Value value,
                   bool authentication) {
  if ((type == nullptr && name == nullptr) || key == nullptr || !zolo::IsValidUtf8(key)) return -3;
  // A stream whose stored object text does not parse keeps it: the change is refused (-1).
  bool refused = false;
  int result = zolo::UpdateStreams(
      [&](std::vector<Stream*>* s) { return Stream::QueryByTypeName(type, name, true, s); },
      [&](Stream* s) {
        int set =
            authentication ? s->UpdateAuthentication(key, value) : s->UpdateParameter(key, value);
        if (set < 0) {
          ZLOG(0, "stream %d: %s is not a JSON object; kept", s->id(),
               authentication ? "authentication" : "parameters");
          refused = true;
        }
        return set >= 0;
      },
      false);
  return result == 0 && refused ? -1 : result;
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
  if (destination != nullptr && !zolo::IsValidUtf8(destination)) return -3;
  int result = zolo::UpdateStreams(
      [name](std::vector<Stream*>* s) { return Stream::QueryByTypeName(nullptr, name, true, s); },
      [destination](Stream* s) {
        zolo::RequireText(destination);
        s->destination(destination);
      },
      false);
  if (result == -5) return result;
  if (g_strcmp0(name, "preview") != 0) return result;
  zolo::RequireText(destination);
  UrlParser::Url preview(destination);
  int companions = zolo::UpdateStreams(
      [](std::vector<Stream*>* s) { return Stream::QueryByPattern("preview_", true, s); },
      [&preview](Stream* s) {
        std::string own;
        if (!WithAccessOf(s->destination(), preview, &own)) return false;
        s->destination(own);
        return true;
      },
      false);
  return result != 0 ? result : companions == -1 ? -1 : 0;
}

int zm_set_schedule_stream_destination(const std::vector<std::string>& destinations) {
  if (destinations.empty()) return -3;
  for (const std::string& destination : destinations)
    if (!zolo::IsValidUtf8(destination.c_str())) return -3;
  size_t next = 0;
  // Only the streams that receive a destination are written.
  return zolo::UpdateStreams(
      [](std::vector<Stream*>* s) { return Stream::QueryByPattern("%sched%", s); },
      [&](Stream* s) {
        if (next >= destinations.size() || s->suspend() || !s->enable()) return false;
        s->destination(destinations[next++]);
        return true;
      },
      false);
}

int zm_set_stream_param(const char* type, const char* name, const char* key, int value) {
  return SetStreamValue(type, name, key, value, false);
}

int zm_set_stream_param(const char* type, const char* name, const char* key, const char* value) {
  if (value == nullptr || !zolo::IsValidUtf8(value)) return -3;
  return SetStreamValue(type, name, key, std::string(value), false);
}

int zm_set_stream_auth(const char* type, const char* name, const char* key, int value) {
  return SetStreamValue(type, name, key, value, true);
}

int zm_set_stream_auth(const char* type, const char* name, const char* key, const char* value) {
  if (value == nullptr || !zolo::IsValidUtf8(value)) return -3;
  return SetStreamValue(type, name, key, std::string(value), true);
}

int zm_add_stream_metadata_key(const char* key, const char* default_value) {
  zolo::RequireText(key);
  if (!zolo::IsValidUtf8(key) || (default_value != nullptr && !zolo::IsValidUtf8(default_value)))
    return -3;
  StreamMetadataKey metadata_key(key);
  if (metadata_key.Add() < 0) return -1;
  zolo::RequireText(default_value);
  StreamMetadata row(nullptr, &metadata_key, default_value);
  return StreamMetadata::Add(&row) < 0 ? -1 : 0;
}

int zm_set_stream_metadata_key(int id, const char* key) {
  if (key != nullptr && !zolo::IsValidUtf8(key)) return -3;
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
  if (value != nullptr && !zolo::IsValidUtf8(value)) return -3;
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
