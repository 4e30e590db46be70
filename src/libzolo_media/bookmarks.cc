// Recording bookmarks: "bookmark.json" beside a recording edited and written back
// atomically, each write announced to the engine; and the engine's own bookmark commands
// while it records. Reading, printing and searching the file are in bookmark_file.cc.
#include <cjson/cJSON.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zolo/media/frame.h>
#include <zolo/media/recordings.h>
#include <zolo/utils.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/json_holder.h"
#include "common/log.h"
#include "libzolo_media/bookmark_file.h"
#include "libzolo_media/media_call.h"
#include "libzolo_media/recording_access.h"

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

// How long a writer waits for another one to finish with the same file.
constexpr auto kLockWait = std::chrono::seconds(5);

// The advisory lock of one bookmark file: flock on "<file>.lock" beside it. flock locks
// belong to the open file, so two threads of one process exclude each other just as two
// processes do (the engine and every front end write these files). The lock file is not
// the bookmark file itself because a replace gives the bookmark file a new inode.
class BookmarkLock {
 public:
  explicit BookmarkLock(const std::string& path) {
    std::string lock_path = path + ".lock";
    fd_ = open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd_ < 0) {
      ZLOG(0, "Lock bookmark file fail: %s: %s", lock_path.c_str(), g_strerror(errno));
      return;
    }
    auto deadline = std::chrono::steady_clock::now() + kLockWait;
    auto pause = std::chrono::microseconds(200);
    while (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
      if ((errno != EWOULDBLOCK && errno != EINTR) ||
          std::chrono::steady_clock::now() >= deadline) {
        ZLOG(0, "Lock bookmark file fail: %s: %s", lock_path.c_str(), g_strerror(errno));
        close(fd_);
        fd_ = -1;
        return;
      }
      std::this_thread::sleep_for(pause);
      pause = std::min(pause * 2, std::chrono::microseconds(20000));
    }
  }
  ~BookmarkLock() {
    if (fd_ >= 0) close(fd_);  // closing the only descriptor releases the lock
  }
  BookmarkLock(const BookmarkLock&) = delete;
  BookmarkLock& operator=(const BookmarkLock&) = delete;
  bool held() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// Writes the record over its existing file; 0, or -1 (not writable, not written).
int Write(const zm_recording_bookmark& bookmark) {
  if (!Writable(bookmark.path)) {
    ZLOG(0, "Write file fail: %d", errno);
    return -1;
  }
  return ReplaceFile(bookmark.path, zolo::PrintBookmarks(bookmark));
}

// The same under the file's lock; -1 also when the lock cannot be had.
int WriteLocked(const zm_recording_bookmark& bookmark) {
  BookmarkLock lock(bookmark.path);
  return lock.held() ? Write(bookmark) : -1;
}

// Announces the outcome of a write; a failed write is announced with code -1 and returned
// as -1, so it is never mistaken for a saved file.
int Announced(const std::string& path, int code) {
  int announced = Announce(path, code);
  return code != 0 ? code : announced;
}

int Save(zm_recording_bookmark& bookmark) {
  return Announced(bookmark.path, WriteLocked(bookmark));
}

// The path of a bookmark's still, `still` relative to the bookmark file's folder `folder`;
// "" when it would lead outside that folder (an absolute path, "..", or a symbolic link
// on the way out of it).
std::string StillPath(const std::string& folder, const std::string& still) {
  if (still.empty() || g_path_is_absolute(still.c_str())) return std::string();
  int depth = 0;
  gchar** parts = g_strsplit(still.c_str(), "/", -1);
  for (gchar** part = parts; *part != nullptr && depth >= 0; ++part) {
    if (std::strcmp(*part, "..") == 0)
      --depth;
    else if (**part != '\0' && std::strcmp(*part, ".") != 0)
      ++depth;
  }
  g_strfreev(parts);
  if (depth <= 0) return std::string();
  // A symbolic link on the way must not lead out either: the deepest folder of the path
  // that exists (a still being added may not have its folder yet) resolves inside.
  std::string path = folder + "/" + still;
  std::string existing = path;
  char* real_parent = nullptr;
  while (real_parent == nullptr && existing.size() > folder.size()) {
    gchar* parent = g_path_get_dirname(existing.c_str());
    existing = parent;
    g_free(parent);
    real_parent = realpath(existing.c_str(), nullptr);
  }
  char* real_folder = realpath(folder.c_str(), nullptr);
  bool inside = real_parent != nullptr && real_folder != nullptr &&
                (std::strcmp(real_parent, real_folder) == 0 ||
                 g_str_has_prefix(real_parent, (std::string(real_folder) + "/").c_str()));
  free(real_parent);
  free(real_folder);
  return inside ? path : std::string();
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

// Removes the items at `time` and their stills; a still outside the bookmark file's folder
// is never removed.
void RemoveItems(zm_recording_bookmark& bookmark, uint64_t time) {
  gchar* directory = g_path_get_dirname(bookmark.path.c_str());
  for (auto it = bookmark.items.begin(); it != bookmark.items.end();) {
    if (it->time != time) {
      ++it;
      continue;
    }
    if (!it->snapshot.empty()) {
      std::string still = StillPath(directory, it->snapshot);
      if (still.empty())
        ZLOG(0, "Bookmark still outside the recording kept: %s", it->snapshot.c_str());
      else
        Remove(still);
    }
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
  } else {
    BookmarkLock lock(path);
    if (!lock.held() || ReplaceFile(path, std::string(json) + "\n") != 0) code = -1;
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
  // Without its file (or its folder) there is nothing to load: the load's -1, and no lock
  // file is made in a folder that is not there.
  if (!g_file_test(path.c_str(), G_FILE_TEST_IS_REGULAR)) {
    ZLOG(0, "Open file fail: %s", path.c_str());
    return -1;
  }
  // Stills are kept relative to the recording's folder, from "bookmark_snapshots" on; one
  // that leads outside it is refused.
  std::string still = snapshot != nullptr ? snapshot : "";
  size_t at = still.find("bookmark_snapshots");
  if (at != std::string::npos) still = still.substr(at);
  if (!still.empty() && StillPath(folder, still).empty()) {
    ZLOG(0, "Bookmark still outside the recording: %s", still.c_str());
    return -3;
  }
  int code = 0;
  {
    BookmarkLock lock(path);
    if (!lock.held()) return Announced(path, -1);
    zm_recording_bookmark bookmark{};
    if (int loaded = zm_load_recording_bookmark(path, &bookmark); loaded < 0) return loaded;
    for (const zm_bookmark_item& item : bookmark.items)
      if (item.time == time) return -1;
    zm_bookmark_item item{};
    item.time = time;
    item.text = text != nullptr ? text : "";
    item.category = "manual";
    item.snapshot = still;
    item.description = description != nullptr ? description : "";
    bookmark.items.push_back(std::move(item));
    ++bookmark.count;
    bookmark.items.sort(
        [](const zm_bookmark_item& a, const zm_bookmark_item& b) { return a.time < b.time; });
    code = Write(bookmark);
  }
  return Announced(path, code);
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
  int code = 0;
  {
    BookmarkLock lock(path);
    if (!lock.held()) return Announced(path, -1);
    zm_recording_bookmark bookmark{};
    if (int loaded = zm_load_recording_bookmark(path, &bookmark); loaded < 0) return loaded;
    RemoveItems(bookmark, time);
    code = Write(bookmark);
  }
  return Announced(path, code);
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
