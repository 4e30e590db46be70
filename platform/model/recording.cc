#include "zolo_model/recording.h"

#include <cjson/cJSON.h>
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <memory>
#include <unordered_map>

#include "json_text.h"
#include "recording_support.h"
#include "zolo_model/recording_db.h"
#include "zolo_model/snapshot.h"

using namespace zolo::model;

namespace {

#define RECORDING_COLUMNS                                                                     \
  "SELECT id, name, file_name, recorded_at, finished_at, duration, extra, status, event_id, " \
  "upload_setting, thumbnail_done, metadata FROM recording "
#define NEWEST_FIRST " ORDER BY recorded_at DESC, id DESC"
#define VIDEO_COLUMNS                                                                          \
  "SELECT id, recording_id, directory, file_name, status, started_at, duration, finished_at, " \
  "thumbnail, number, note FROM video "

// `text` as a LIKE pattern matching it anywhere, its own wildcards escaped with "\".
std::string ContainsPattern(const std::string& text) {
  std::string pattern = "%";
  for (char c : text) {
    if (c == '%' || c == '_' || c == '\\') pattern += '\\';
    pattern += c;
  }
  return pattern + "%";
}

}  // namespace

// Reads rows into objects; a friend of both row classes.
class RecordingRows {
 public:
  static Recording* ReadRecording(SQLite::Statement& row) {
    auto* recording = new Recording();
    recording->id_ = row.getColumn(0).getInt();
    recording->name_ = row.getColumn(1).getString();
    recording->file_name_ = row.getColumn(2).getString();
    recording->recorded_at_ = U64(row.getColumn(3));
    recording->finished_at_ = U64(row.getColumn(4));
    recording->duration_ = U64(row.getColumn(5));
    recording->extra_ = row.getColumn(6).getString();
    recording->status_ = row.getColumn(7).getString();
    recording->event_id_ = row.getColumn(8).getString();
    recording->upload_setting_ = row.getColumn(9).getString();
    recording->thumbnail_done_ = row.getColumn(10).getInt() != 0;
    recording->metadata_ = row.getColumn(11).getString();
    return recording;
  }

  static Video* ReadVideo(SQLite::Statement& row) {
    auto* video = new Video();
    video->id_ = row.getColumn(0).getInt();
    video->recording_id_ = row.getColumn(1).getInt();
    video->directory_ = row.getColumn(2).getString();
    video->file_name_ = row.getColumn(3).getString();
    video->status_ = row.getColumn(4).getString();
    video->started_at_ = U64(row.getColumn(5));
    video->duration_ = U64(row.getColumn(6));
    video->finished_at_ = U64(row.getColumn(7));
    video->thumbnail_ = row.getColumn(8).getString();
    video->number_ = static_cast<uint32_t>(row.getColumn(9).getInt64());
    video->note_ = row.getColumn(10).getString();
    return video;
  }

  // Recordings of `sql`, with their videos read in one more statement when `with_videos`.
  template <class... Values>
  static int Select(const char* sql, bool with_videos, std::vector<Recording*>* out,
                    const Values&... values) {
    size_t before = out != nullptr ? out->size() : 0;
    int result = QueryRowsOf(RecordingDatabase(), out, sql, &ReadRecording, values...);
    if (result == 0 && with_videos) ReadVideos(out->data() + before, out->data() + out->size());
    return result;
  }

  template <class... Values>
  static int SelectOne(const char* sql, Recording** out, const Values&... values) {
    int result = QueryRowOf(RecordingDatabase(), out, sql, &ReadRecording, values...);
    if (result == 0) ReadVideos(out, out + 1);
    return result;
  }

  // Reads the videos of the recordings [first, last) with one statement. On failure they
  // stay unread, and videos() tries again.
  static void ReadVideos(Recording* const* first, Recording* const* last) {
    if (first == last) return;
    std::unordered_map<int, Recording*> by_id;
    std::vector<int> ids;
    for (Recording* const* row = first; row != last; ++row) {
      by_id.emplace((*row)->id_, *row);
      ids.push_back((*row)->id_);
    }
    std::vector<Video*> videos;
    if (QueryRowsOf(RecordingDatabase(), &videos,
                    VIDEO_COLUMNS "WHERE recording_id IN (SELECT value FROM json_each(?1)) "
                                  "ORDER BY recording_id, id",
                    &ReadVideo, IdList(ids)) != 0)
      return;
    for (auto& [id, recording] : by_id) recording->videos_loaded_ = true;
    for (Video* video : videos) by_id[video->recording_id_]->videos_.push_back(video);
  }

  static std::string Information(Recording& recording) {
    cJSON* root = cJSON_CreateObject();
    cJSON_AddNumberToObject(root, "id", recording.id_);
    cJSON_AddStringToObject(root, "name", recording.name_.c_str());
    cJSON_AddNumberToObject(root, "recorded_at", static_cast<double>(recording.recorded_at_));
    cJSON_AddNumberToObject(root, "finished_at", static_cast<double>(recording.finished_at_));
    cJSON_AddNumberToObject(root, "duration", static_cast<double>(recording.duration_));
    cJSON_AddStringToObject(root, "status", recording.status_.c_str());
    cJSON_AddStringToObject(root, "event_id", recording.event_id_.c_str());
    cJSON* metadata = ParseJson(recording.metadata_).release();
    if (metadata == nullptr) metadata = cJSON_CreateString(recording.metadata_.c_str());
    cJSON_AddItemToObject(root, "metadata", metadata);
    cJSON* videos = cJSON_AddArrayToObject(root, "videos");
    for (Video* video : recording.videos()) {
      cJSON* item = cJSON_CreateObject();
      cJSON_AddStringToObject(item, "file", (video->directory_ + "/" + video->file_name_).c_str());
      cJSON_AddNumberToObject(item, "started_at", static_cast<double>(video->started_at_));
      cJSON_AddNumberToObject(item, "duration", static_cast<double>(video->duration_));
      cJSON_AddNumberToObject(item, "number", video->number_);
      cJSON_AddItemToArray(videos, item);
    }
    char* printed = cJSON_Print(root);
    std::string text = printed ? printed : "{}";
    cJSON_free(printed);
    cJSON_Delete(root);
    return text + "\n";
  }
};

Recording::~Recording() {
  for (Video* video : videos_) delete video;
}

int Recording::QueryById(int id, Recording** out) {
  return RecordingRows::SelectOne(RECORDING_COLUMNS "WHERE id = ?1", out, id);
}

int Recording::QueryByPage(unsigned page, unsigned count, std::vector<Recording*>* out) {
  return RecordingRows::Select(RECORDING_COLUMNS NEWEST_FIRST " LIMIT ?1 OFFSET ?2", true, out,
                               Limit(count), Offset(page, count));
}

int Recording::QueryByName(const std::string& name, std::vector<Recording*>* out) {
  return RecordingRows::Select(RECORDING_COLUMNS "WHERE name = ?1" NEWEST_FIRST, true, out, name);
}

int Recording::QueryByStatus(const std::string& status, std::vector<Recording*>* out) {
  return RecordingRows::Select(RECORDING_COLUMNS "WHERE status = ?1" NEWEST_FIRST, true, out,
                               status);
}

int Recording::QueryByNoThumbnail(std::vector<Recording*>* out) {
  return RecordingRows::Select(
      RECORDING_COLUMNS "WHERE thumbnail_done = 0 AND finished_at != 0" NEWEST_FIRST, true, out);
}

int Recording::QueryByFinshedAt(uint64_t finished_at, std::vector<Recording*>* out) {
  return RecordingRows::Select(RECORDING_COLUMNS "WHERE finished_at = ?1" NEWEST_FIRST, true, out,
                               S64(finished_at));
}

int Recording::QueryByTimeAndMetadataPattern(uint64_t start, uint64_t end,
                                             const std::string& pattern,
                                             std::vector<Recording*>* out) {
  return RecordingRows::Select(
      RECORDING_COLUMNS
      "WHERE (?1 = 0 OR recorded_at >= ?1) AND (?2 = 0 OR recorded_at <= ?2) AND "
      "(?3 = '%%' OR name LIKE ?3 ESCAPE '\\' OR metadata LIKE ?3 ESCAPE '\\')" NEWEST_FIRST,
      false, out, S64(start), S64(end), ContainsPattern(pattern));
}

int Recording::QueryAll(std::vector<Recording*>* out) {
  return RecordingRows::Select(RECORDING_COLUMNS NEWEST_FIRST, false, out);
}

int Recording::QueryByRecordedAtLessThan(uint64_t time, std::vector<Recording*>* out) {
  return RecordingRows::Select(RECORDING_COLUMNS "WHERE recorded_at < ?1" NEWEST_FIRST, false, out,
                               S64(time));
}

int Recording::QueryOldest(Recording** out) {
  return RecordingRows::SelectOne(RECORDING_COLUMNS "ORDER BY recorded_at, id LIMIT 1", out);
}

int Recording::Count() {
  return CountRows("SELECT count(*) FROM recording");
}

int Recording::Count(const std::string& status) {
  return CountRows("SELECT count(*) FROM recording WHERE status = ?1", status);
}

int Recording::Add(Recording* recording) {
  if (recording == nullptr) return -3;
  return InsertRowOf(
      RecordingDatabase(), &recording->id_,
      "INSERT INTO recording (name, file_name, recorded_at, finished_at, duration, extra, "
      "status, event_id, upload_setting, thumbnail_done, metadata) "
      "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)",
      recording->name_, recording->file_name_, S64(recording->recorded_at_),
      S64(recording->finished_at_), S64(recording->duration_), recording->extra_,
      recording->status_, recording->event_id_, recording->upload_setting_,
      recording->thumbnail_done_ ? 1 : 0, recording->metadata_);
}

int Recording::Update(Recording* recording) {
  if (recording == nullptr) return -3;
  return ChangeOneRowOf(
      RecordingDatabase(),
      "UPDATE recording SET name = ?1, file_name = ?2, recorded_at = ?3, finished_at = ?4, "
      "duration = ?5, extra = ?6, status = ?7, event_id = ?8, upload_setting = ?9, "
      "thumbnail_done = ?10, metadata = ?11 WHERE id = ?12",
      recording->name_, recording->file_name_, S64(recording->recorded_at_),
      S64(recording->finished_at_), S64(recording->duration_), recording->extra_,
      recording->status_, recording->event_id_, recording->upload_setting_,
      recording->thumbnail_done_ ? 1 : 0, recording->metadata_, recording->id_);
}

int Recording::Remove(int id) {
  Recording* found = nullptr;
  int result = QueryById(id, &found);
  if (result < 0) return result;
  std::unique_ptr<Recording> recording(found);
  result = ChangeOneRowOf(RecordingDatabase(), "DELETE FROM recording WHERE id = ?1", id);
  if (result < 0) return result;
  // Files go after the rows: a reader never sees a row whose files are already gone.
  std::string base = RecordingDb::Instance()->Folder();
  std::string folder = recording->folder();
  if (folder != "." && !folder.empty()) {
    RemoveInside(base, folder, true);
  } else {
    for (Video* video : recording->videos())
      RemoveInside(base, video->directory() + "/" + video->file_name(), false);
    RemoveInside(base, recording->file_name_, false);
  }
  return 0;
}

int Recording::RemoveOldest() {
  Recording* oldest = nullptr;
  int result = QueryOldest(&oldest);
  if (result < 0) return result;
  int id = oldest->id();
  delete oldest;
  return Remove(id);
}

std::string Recording::folder() const {
  gchar* directory = g_path_get_dirname(file_name_.c_str());
  std::string folder = directory;
  g_free(directory);
  return folder;
}

const std::vector<Video*>& Recording::videos() {
  if (!videos_loaded_) {
    std::vector<Video*> found;
    if (Video::QueryByRecordingId(id_, &found) == 0) {
      videos_ = std::move(found);
      videos_loaded_ = true;
    }
  }
  return videos_;
}

int Recording::UpdateVideos() {
  std::vector<Video*> fresh;
  int result = Video::QueryByRecordingId(id_, &fresh);
  if (result < 0) return result;
  for (Video* video : videos_) delete video;
  videos_ = std::move(fresh);
  videos_loaded_ = true;

  std::string base = RecordingDb::Instance()->Folder();
  for (Video* video : videos_) {
    if (video->finished_at() == 0) {
      struct stat info;
      std::string path = base + "/" + video->directory() + "/" + video->file_name();
      if (::stat(path.c_str(), &info) == 0) {
        uint64_t end =
            std::max<uint64_t>(static_cast<uint64_t>(info.st_mtime), video->started_at());
        video->finished_at(end);
        video->duration((end - video->started_at()) * 1000);
        video->status("Finished");
      } else {
        video->status("Missing");
      }
      if ((result = Video::Update(video)) < 0) return result;
    }
    if (video->finished_at() != 0 && video->started_at() >= recorded_at_) {
      uint64_t end = (video->started_at() - recorded_at_) * 1000 + video->duration();
      duration_ = std::max(duration_, end);
    }
  }
  return 0;
}

int Recording::UpdateMetaDataFiles() {
  std::string path = PathInside(RecordingDb::Instance()->Folder(), folder() + "/information.json");
  if (path.empty()) return -1;
  return WriteFileAtomically(path, RecordingRows::Information(*this)) ? 0 : -1;
}

int Recording::GenerateSnapshot(uint64_t time, std::string* folder) {
  if (folder == nullptr) return -3;
  std::string name = "recording" + std::to_string(id_) + "_" + std::to_string(time);
  Snapshot* existing = nullptr;
  int result = Snapshot::QueryByFolder(name, &existing);
  if (result == 0) {
    delete existing;
    *folder = name;
    return 0;
  }
  if (result != -5) return result;
  Snapshot snapshot;
  snapshot.folder(name);
  snapshot.status("pending");
  snapshot.recording_id(id_);
  snapshot.time(time);
  snapshot.created_at(static_cast<uint64_t>(::time(nullptr)));
  if ((result = Snapshot::Add(&snapshot)) < 0) return result;
  std::string directory =
      PathInside(RecordingDb::Instance()->RecordingSnapshotFolder(this->folder()), name);
  std::error_code ignored;
  if (!directory.empty()) std::filesystem::create_directories(directory, ignored);
  *folder = name;
  return 0;
}

int Recording::RemoveSnapshot(uint64_t time) {
  int snapshot_id = 0;
  int result =
      QueryIntOf(RecordingDatabase(), &snapshot_id,
                 "SELECT id FROM snapshot WHERE recording_id = ?1 AND time = ?2", id_, S64(time));
  return result < 0 ? result : Snapshot::Remove(snapshot_id);
}

int Video::QueryById(int id, Video** out) {
  return QueryRowOf(RecordingDatabase(), out, VIDEO_COLUMNS "WHERE id = ?1",
                    &RecordingRows::ReadVideo, id);
}

int Video::QueryByRecordingId(int recording_id, std::vector<Video*>* out) {
  return QueryRowsOf(RecordingDatabase(), out, VIDEO_COLUMNS "WHERE recording_id = ?1 ORDER BY id",
                     &RecordingRows::ReadVideo, recording_id);
}

int Video::Add(Video* video) {
  if (video == nullptr) return -3;
  return InsertRowOf(
      RecordingDatabase(), &video->id_,
      "INSERT INTO video (recording_id, directory, file_name, status, started_at, duration, "
      "finished_at, thumbnail, number, note) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10)",
      video->recording_id_, video->directory_, video->file_name_, video->status_,
      S64(video->started_at_), S64(video->duration_), S64(video->finished_at_), video->thumbnail_,
      static_cast<int64_t>(video->number_), video->note_);
}

int Video::Update(Video* video) {
  if (video == nullptr) return -3;
  return ChangeOneRowOf(
      RecordingDatabase(),
      "UPDATE video SET directory = ?1, file_name = ?2, status = ?3, started_at = ?4, "
      "duration = ?5, finished_at = ?6, thumbnail = ?7, number = ?8, note = ?9 WHERE id = ?10",
      video->directory_, video->file_name_, video->status_, S64(video->started_at_),
      S64(video->duration_), S64(video->finished_at_), video->thumbnail_,
      static_cast<int64_t>(video->number_), video->note_, video->id_);
}

int Video::Remove(int id) {
  Video* found = nullptr;
  int result = QueryById(id, &found);
  if (result < 0) return result;
  std::unique_ptr<Video> video(found);
  result = ChangeOneRowOf(RecordingDatabase(), "DELETE FROM video WHERE id = ?1", id);
  if (result < 0) return result;
  std::string base = RecordingDb::Instance()->Folder();
  RemoveInside(base, video->directory() + "/" + video->file_name(), false);
  if (!video->thumbnail().empty())
    RemoveInside(base, video->directory() + "/" + video->thumbnail(), false);
  return 0;
}
