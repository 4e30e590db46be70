// The engine's recording methods: bookmarks taken while recording (kept with the recording
// in progress and written to its "bookmark.json" when it stops), announcements of bookmark
// files rewritten by the library, and snapshots taken on request with their JPEG images.
#include <zolo_model/recording.h>
#include <zolo_model/recording_db.h>
#include <zolo_model/snapshot.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include "engine_methods.h"
#include "recorder.h"
#include "recording_writer.h"

namespace zolo::sim {

namespace {

// Codes the engine answers with.
constexpr int kRefused = -1001;
constexpr int kBadArgument = -1003;
constexpr int kWrongState = -1004;
constexpr int kNotFound = -1005;
constexpr int kMaxStillSide = 8192;

std::string Print(cJSON* json) {
  char* text = cJSON_PrintUnformatted(json);
  std::string result = text != nullptr ? text : "{}";
  cJSON_free(text);
  cJSON_Delete(json);
  return result;
}

// The picture size of a request, when both sides are sensible.
bool SizeOf(const cJSON* request, int* width, int* height) {
  const cJSON* w = cJSON_GetObjectItem(request, "width");
  const cJSON* h = cJSON_GetObjectItem(request, "height");
  if (!cJSON_IsNumber(w) || !cJSON_IsNumber(h)) return false;
  *width = w->valueint;
  *height = h->valueint;
  return *width > 0 && *height > 0 && *width <= kMaxStillSide && *height <= kMaxStillSide;
}

// Takes a bookmark now; with `still`, a picture of `width` x `height` goes with it.
std::string TakeBookmark(Recorder& recorder, MediaSimulator& engine, const std::string& payload,
                         bool still) {
  if (engine.engine_state() != kRecording) return Reply(kWrongState);
  JsonPtr request = ParsePayload(payload);
  int width = 0, height = 0;
  if (still && !SizeOf(request.get(), &width, &height)) return Reply(kBadArgument);
  Bookmark bookmark;
  bookmark.time = recorder.ElapsedMs(engine.engine_state());
  // One bookmark per millisecond: a second one in the same millisecond moves on by one.
  while (std::any_of(recorder.bookmarks.begin(), recorder.bookmarks.end(),
                     [&](const Bookmark& b) { return b.time == bookmark.time; }))
    ++bookmark.time;
  bookmark.text = StringOf(request.get(), "text");
  ++recorder.bookmarks_taken;
  // A counter numbers the bookmark in its text: "Bookmark 3", or "<text> 3".
  if (cJSON_IsTrue(cJSON_GetObjectItem(request.get(), "counter")))
    bookmark.text = (bookmark.text.empty() ? "Bookmark" : bookmark.text) + " " +
                    std::to_string(recorder.bookmarks_taken);
  bookmark.category = still ? "snapshot" : "live";
  if (still) {
    std::error_code error;
    std::filesystem::create_directories(PendingStillFolder(), error);
    bookmark.still = "bookmark_" + std::to_string(bookmark.time) + ".jpg";
    if (engine.media().Snapshot(MediaBackend::Picture::kProgram, recorder.bookmarks_taken, width,
                                height, PendingStillFolder() + "/" + bookmark.still) != 0)
      return Reply(kRefused);
  }
  recorder.bookmarks.push_back(bookmark);
  cJSON* signal = cJSON_CreateObject();
  cJSON_AddNumberToObject(signal, "Time", static_cast<double>(bookmark.time));
  cJSON_AddStringToObject(signal, "Text", bookmark.text.c_str());
  cJSON_AddNumberToObject(signal, "Mode", still ? 1 : 0);
  engine.Signal("bookmark_added", Print(signal));
  cJSON* extra = cJSON_CreateObject();
  cJSON_AddNumberToObject(extra, "Time", static_cast<double>(bookmark.time));
  return Reply(0, extra);
}

std::string RemoveBookmark(Recorder& recorder, MediaSimulator& engine, const std::string& payload) {
  int state = engine.engine_state();
  if (state != kRecording && state != kPaused) return Reply(kWrongState);
  JsonPtr request = ParsePayload(payload);
  const cJSON* time = cJSON_GetObjectItem(request.get(), "time");
  if (!cJSON_IsNumber(time) || time->valuedouble < 0) return Reply(kBadArgument);
  const auto at = static_cast<uint64_t>(time->valuedouble);
  auto& bookmarks = recorder.bookmarks;
  auto removed = std::stable_partition(bookmarks.begin(), bookmarks.end(),
                                       [at](const Bookmark& b) { return b.time != at; });
  if (removed == bookmarks.end()) return Reply(kNotFound);
  for (auto it = removed; it != bookmarks.end(); ++it) {
    if (!it->still.empty()) std::remove((PendingStillFolder() + "/" + it->still).c_str());
    cJSON* signal = cJSON_CreateObject();
    cJSON_AddNumberToObject(signal, "Time", static_cast<double>(it->time));
    cJSON_AddStringToObject(signal, "Text", it->text.c_str());
    engine.Signal("bookmark_removed", Print(signal));
  }
  bookmarks.erase(removed, bookmarks.end());
  return Reply(0);
}

std::string BookmarkFileUpdated(const std::string& payload, MediaSimulator& engine) {
  JsonPtr request = ParsePayload(payload);
  const cJSON* url = cJSON_GetObjectItem(request.get(), "url");
  const cJSON* code = cJSON_GetObjectItem(request.get(), "code");
  if (!cJSON_IsString(url) || !cJSON_IsNumber(code)) return Reply(kBadArgument);
  cJSON* signal = cJSON_CreateObject();
  cJSON_AddStringToObject(signal, "Url", url->valuestring);
  cJSON_AddNumberToObject(signal, "Code", code->valueint);
  engine.Signal("recording_bookmark_updated", Print(signal));
  return Reply(0);
}

}  // namespace

int TakeSnapshot(MediaBackend& media, int width, int height, int* snapshot_id) {
  RecordingDb* db = RecordingDb::Instance();
  if (db->Connect() != 0) return -1;
  static int taken = 0;  // keeps folder names apart within one second
  time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  char stamp[32];
  strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
  Snapshot snapshot;
  snapshot.status("ready");
  snapshot.created_at(static_cast<uint64_t>(now));
  snapshot.width(static_cast<uint32_t>(width));
  snapshot.height(static_cast<uint32_t>(height));
  int result = -1;
  for (int attempt = 0; attempt < 100 && result == -1; ++attempt) {
    snapshot.folder(std::string("snapshot-") + stamp + "-" + std::to_string(++taken));
    result = Snapshot::Add(&snapshot) == 0 ? 0 : -1;
  }
  if (result == 0) {
    std::string folder = db->SnapshotFolder() + "/" + snapshot.folder();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    Image image;
    image.snapshot_id(snapshot.id());
    image.directory(snapshot.folder());
    image.file_name("image1.jpg");
    image.status("ready");
    image.width(static_cast<uint32_t>(width));
    image.height(static_cast<uint32_t>(height));
    image.format("jpeg");
    std::string path = folder + "/" + image.file_name();
    if (media.Snapshot(MediaBackend::Picture::kProgram, snapshot.id(), width, height, path) == 0) {
      image.size(std::filesystem::file_size(path, error));
      result = Image::Add(&image) == 0 ? 0 : -1;
    } else {
      result = -1;
    }
    if (result != 0) Snapshot::Remove(snapshot.id());
  }
  if (result == 0 && snapshot_id != nullptr) *snapshot_id = snapshot.id();
  db->Release(false);
  return result;
}

void RegisterRecordingMethods(MediaSimulator& sim, const std::shared_ptr<Recorder>& recorder) {
  sim.Handle("add_bookmark", [recorder](const std::string& payload, MediaSimulator& engine) {
    return TakeBookmark(*recorder, engine, payload, false);
  });
  sim.Handle("add_snapshot_bookmark",
             [recorder](const std::string& payload, MediaSimulator& engine) {
               return TakeBookmark(*recorder, engine, payload, true);
             });
  sim.Handle("remove_bookmark", [recorder](const std::string& payload, MediaSimulator& engine) {
    return RemoveBookmark(*recorder, engine, payload);
  });
  sim.Handle("update_recording_bookmark", BookmarkFileUpdated);
  sim.Handle("add_snapshot", [](const std::string& payload, MediaSimulator& engine) {
    JsonPtr request = ParsePayload(payload);
    int width = 0, height = 0;
    if (!SizeOf(request.get(), &width, &height)) return Reply(kBadArgument);
    int id = 0;
    if (TakeSnapshot(engine.media(), width, height, &id) != 0) return Reply(kRefused);
    cJSON* extra = cJSON_CreateObject();
    cJSON_AddNumberToObject(extra, "Snapshot", id);
    return Reply(0, extra);
  });
}

}  // namespace zolo::sim
