// Recording bookmarks: "bookmark.json" beside a recording edited and written back
// atomically, each write announced to the engine; and the engine's own bookmark commands
// while it records. Reading, printing and searching the file are in bookmark_file.cc.
#include <cjson/cJSON.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zolo/media/frame.h>
#include <zolo/media/recordings.h>
#include <zolo/utils.h>

#include <cerrno>
#include <cmath>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "common/log.h"
#include "libzolo_media/bookmark_file.h"
#include "libzolo_media/media_call.h"
#include "libzolo_media/recording_access.h"
#include "common/json_holder.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";

using Json = zolo::JsonHolder;
// Whether `path` is an existing, writable regular file (a bookmark file is never created).
bool Writable(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), W_OK) == 0;
}

// Replaces `path` with `text` atomically: a temporary file in the same folder renamed over
// it, so a reader sees the old file or the new one, never half of either. 0, or -1 with
// the reason logged.
int ReplaceFile(const std::string& path, const std::string& text) {
  GError* error = nullptr;
  if (g_file_set_contents(path.c_str(), text.data(), static_cast<gssize>(text.size()), &error))
    return 0;
  ZLOG(0, "Write file fail: %d", error != nullptr ? error->code : -1);
  ZLOG(1, "%s: %s", path.c_str(), error != nullptr ? error->message : "");
  g_clear_error(&error);
  return -1;
}

int Announce(const std::string& path, int code) {
  cJSON* payload = cJSON_CreateObject();
  cJSON_AddStringToObject(payload, "url", path.c_str());
  cJSON_AddNumberToObject(payload, "code", code);
  int result =
      zm_call_media_method("update_recording_bookmark", payload, nullptr, zolo::kCallTimeout);
  cJSON_Delete(payload);
  return result;
}

// Writes the record; a failed write is announced with code -1 and returned as -1, so it
// is never mistaken for a saved file.
int Save(zm_recording_bookmark& bookmark) {
  int code = 0;
  if (!Writable(bookmark.path)) {
    ZLOG(0, "Write file fail: %d", errno);
    code = -1;
  } else if (ReplaceFile(bookmark.path, zolo::PrintBookmarks(bookmark)) != 0) {
    code = -1;
  }
  int announced = Announce(bookmark.path, code);
  return code != 0 ? code : announced;
}

// The bookmark file of recording `id`, with the recording database connected by the caller.
int BookmarkPathOf(int id, std::string* path, std::string* folder) {
  Recording* row = nullptr;
  if (Recording::QueryById(id, &row) < 0 || row == nullptr) return -5;
  std::unique_ptr<Recording> recording(row);
  *folder = zolo::RecordingFolder(*recording);
  *path = *folder + "/bookmark.json";
  return 0;
}

// Removes the items at `time` and their stills.
void RemoveItems(zm_recording_bookmark& bookmark, uint64_t time) {
  gchar* directory = g_path_get_dirname(bookmark.path.c_str());
  for (auto it = bookmark.items.begin(); it != bookmark.items.end();) {
    if (it->time != time) {
      ++it;
      continue;
    }
    if (!it->snapshot.empty()) Remove(std::string(directory) + "/" + it->snapshot);
    it = bookmark.items.erase(it);
    --bookmark.count;
  }
  g_free(directory);
}

}  // namespace

int zm_save_recording_bookmark_file(zm_recording_bookmark* bookmark) {
  if (bookmark == nullptr) return -3;
  return Save(*bookmark);
}

int zm_save_recording_bookmark_file(const char* path, const char* json) {
  if (path == nullptr || json == nullptr) {
    ZLOG(0, "bookmark string NULL");
    return -3;
  }
  ZLOG(2, "path: %s", path);
  ZLOG(2, "bookmark_str: %s", json);
  if (!Writable(path)) {
    ZLOG(0, "Open file fail: %s", path);
    return -5;
  }
  int code = 0;
  Json parsed(cJSON_Parse(json));
  if (!parsed) {
    // The file keeps what it held: an unparsable text never replaces it.
    ZLOG(0, "Parse bookmark string fail");
    code = -3;
  } else if (ReplaceFile(path, std::string(json) + "\n") != 0) {
    code = -1;
  }
  int announced = Announce(path, code);
  return code == -1 ? -1 : announced;
}

int zm_add_recording_bookmark(int recording_id, const char* text, uint64_t time,
                              const char* snapshot, const char* description) {
  if (recording_id == 0) return -3;
  zolo::RecordingDbSession session;
  if (!session.connected()) return -1;
  std::string path;
  std::string folder;
  if (int found = BookmarkPathOf(recording_id, &path, &folder); found != 0) return found;
  zm_recording_bookmark bookmark{};
  if (int loaded = zm_load_recording_bookmark(path, &bookmark); loaded < 0) return loaded;
  for (const zm_bookmark_item& item : bookmark.items)
    if (item.time == time) return -1;
  zm_bookmark_item item{};
  item.time = time;
  item.text = text != nullptr ? text : "";
  item.category = "manual";
  // Stills are kept relative to the recording's folder, from "bookmark_snapshots" on.
  std::string still = snapshot != nullptr ? snapshot : "";
  size_t at = still.find("bookmark_snapshots");
  item.snapshot = at == std::string::npos ? still : still.substr(at);
  item.description = description != nullptr ? description : "";
  bookmark.items.push_back(std::move(item));
  ++bookmark.count;
  bookmark.items.sort(
      [](const zm_bookmark_item& a, const zm_bookmark_item& b) { return a.time < b.time; });
  return Save(bookmark);
}

int zm_update_recording_bookmark(zm_recording_bookmark* bookmark, const char* text, uint64_t time,
                                 const char* description) {
  if (bookmark == nullptr || text == nullptr) return -3;
  for (zm_bookmark_item& item : bookmark->items) {
    if (item.time != time) continue;
    item.text = text;
    item.description = description != nullptr ? description : "";
    break;
  }
  return Save(*bookmark);
}

int zm_delete_recording_bookmark(zm_recording_bookmark* bookmark, uint64_t time) {
  if (bookmark == nullptr || bookmark->path.empty()) return -3;
  int state = zm_get_state(nullptr);
  if (state == 3 || state == 4) {
    cJSON* payload = cJSON_CreateObject();
    cJSON_AddNumberToObject(payload, "time", static_cast<double>(time));
    int result = zm_call_media_method("remove_bookmark", payload, nullptr, zolo::kCallTimeout);
    cJSON_Delete(payload);
    return result;
  }
  RemoveItems(*bookmark, time);
  return Save(*bookmark);
}

int zm_delete_recording_bookmark(int recording_id, uint64_t time) {
  zolo::RecordingDbSession session;
  if (!session.connected()) return -1;
  std::string path;
  std::string folder;
  if (int found = BookmarkPathOf(recording_id, &path, &folder); found != 0) return found;
  zm_recording_bookmark bookmark{};
  if (int loaded = zm_load_recording_bookmark(path, &bookmark); loaded < 0) return loaded;
  RemoveItems(bookmark, time);
  return Save(bookmark);
}

int zm_add_bookmark(const char* text, bool counter) {
  if (zm_get_state(nullptr) != 3) return -4;
  cJSON* payload = cJSON_CreateObject();
  if (text != nullptr) cJSON_AddStringToObject(payload, "text", text);
  cJSON_AddBoolToObject(payload, "counter", counter);
  int result = zm_call_media_method("add_bookmark", payload, nullptr, zolo::kCallTimeout);
  cJSON_Delete(payload);
  return result;
}

int zm_add_snapshot_bookmark(int width, int height, const char* text, bool counter) {
  cJSON* payload = cJSON_CreateObject();
  if (text != nullptr) cJSON_AddStringToObject(payload, "text", text);
  cJSON_AddNumberToObject(payload, "width", width);
  cJSON_AddNumberToObject(payload, "height", height);
  cJSON_AddBoolToObject(payload, "counter", counter);
  int result = zm_call_media_method("add_snapshot_bookmark", payload, nullptr, zolo::kCallTimeout);
  cJSON_Delete(payload);
  return result;
}
