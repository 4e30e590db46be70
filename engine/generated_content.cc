// Generated content for demos and benchmarks: many finished recordings of three videos each
// in one transaction, the newest of them with their files, and a few snapshots.
#include <zolo_model/recording.h>
#include <zolo_model/recording_db.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine_methods.h"
#include "recording_writer.h"

namespace zolo::sim {

namespace {

constexpr const char* kStreams[] = {"movie1", "cam1", "cam2"};
constexpr uint64_t kVideoMs = 20000;      // each video's length
constexpr int64_t kSpacingSeconds = 600;  // between the starts of two recordings
constexpr int kSnapshots = 4;

std::string Stamp(int64_t seconds) {
  time_t time = static_cast<time_t>(seconds);
  struct tm local;
  localtime_r(&time, &local);
  char text[32];
  strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
  return text;
}

struct Generated {
  int id;
  std::string folder;
};

// Inserts the rows in one transaction; the ids given in `*made`, oldest first.
int InsertRows(zolo::model::Database& db, int count, std::vector<Generated>* made) {
  auto lock = db.Lock();
  SQLite::Database& raw = db.raw();
  int first = raw.execAndGet("SELECT IFNULL(MAX(id), 0) FROM recording").getInt() + 1;
  int64_t base =
      static_cast<int64_t>(time(nullptr)) - static_cast<int64_t>(count) * kSpacingSeconds;
  SQLite::Transaction transaction(raw);
  SQLite::Statement recording(
      raw,
      "INSERT INTO recording (id, name, file_name, recorded_at, finished_at, duration, status, "
      "metadata) VALUES (?1, ?2, ?3, ?4, ?5, ?6, 'ready', ?7)");
  SQLite::Statement video(raw,
                          "INSERT INTO video (recording_id, directory, file_name, status, "
                          "started_at, duration, finished_at, number, note) VALUES (?1, ?2, ?3, "
                          "'Finished', ?4, ?5, ?6, ?7, ?8)");
  const int64_t video_ms = static_cast<int64_t>(kVideoMs);
  const int64_t length_ms = video_ms * static_cast<int64_t>(std::size(kStreams));
  made->reserve(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    const int id = first + i;
    const int64_t started = base + static_cast<int64_t>(i) * kSpacingSeconds;
    const std::string name = "generated-" + Stamp(started);
    const std::string folder = name + "_" + std::to_string(id);
    recording.bind(1, id);
    recording.bind(2, name);
    recording.bind(3, folder + "/" + kStreams[0] + ".mp4");
    recording.bind(4, started);
    recording.bind(5, started + length_ms / 1000);
    recording.bind(6, length_ms);
    recording.bind(7, "{\"title\":\"Generated session " + std::to_string(i + 1) +
                          "\",\"location\":\"Studio " + std::to_string(i % 4 + 1) + "\"}");
    recording.exec();
    recording.reset();
    int number = 0;
    for (const char* stream : kStreams) {
      video.bind(1, id);
      video.bind(2, folder);
      video.bind(3, std::string(stream) + ".mp4");
      video.bind(4, started + number * video_ms / 1000);
      video.bind(5, video_ms);
      video.bind(6, started + (number + 1) * video_ms / 1000);
      video.bind(7, ++number);
      video.bind(8, stream);
      video.exec();
      video.reset();
    }
    made->push_back(Generated{id, folder});
  }
  transaction.commit();
  return 0;
}

// The files of one generated recording: its videos, "information.json" and a
// "bookmark.json" of three bookmarks, one with a still.
void WriteFiles(const Generated& generated, const std::string& recordings) {
  const std::string directory = recordings + "/" + generated.folder;
  std::error_code ignored;
  std::filesystem::create_directories(directory + "/" + kBookmarkStillFolder, ignored);
  for (const char* stream : kStreams)
    std::ofstream(directory + "/" + stream + ".mp4") << "generated video of " << stream << "\n";
  Recording* row = nullptr;
  if (Recording::QueryById(generated.id, &row) == 0) row->UpdateMetaDataFiles();
  delete row;
  std::vector<Bookmark> bookmarks = {
      {5000, "Opening", "", "live", ""},
      {21500, "Guest arrives", "bookmark_21500.jpg", "snapshot", "second camera"},
      {48000, "Closing", "", "manual", "wrap-up"}};
  WriteStillJpeg(directory + "/" + kBookmarkStillFolder + "/" + bookmarks[1].still, 160, 90,
                 generated.id);
  std::ofstream(directory + "/bookmark.json") << BookmarkFileText(bookmarks);
}

}  // namespace

int MediaSimulator::GenerateRecordings(int count, int with_files) {
  if (count <= 0) return 0;
  RecordingDb* db = RecordingDb::Instance();
  if (db->Connect() != 0) return -1;
  std::vector<Generated> made;
  int result = -1;
  try {
    if (db->database() != nullptr) result = InsertRows(*db->database(), count, &made);
  } catch (const std::exception&) {
    result = -1;
  }
  if (result == 0) {
    const std::string recordings = db->Folder();
    size_t files = with_files < 0 ? made.size() : static_cast<size_t>(with_files);
    for (size_t i = made.size() > files ? made.size() - files : 0; i < made.size(); ++i)
      WriteFiles(made[i], recordings);
    MediaBackend pictures;
    for (int i = 0; i < kSnapshots && result == 0; ++i)
      result = TakeSnapshot(pictures, 640, 360, nullptr);
  }
  db->Release(false);
  return result;
}

}  // namespace zolo::sim
