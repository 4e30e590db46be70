#include "recording_writer.h"

#include <cjson/cJSON.h>
#include <zolo/yuvjpeg.h>
#include <zolo_model/recording.h>
#include <zolo_model/recording_db.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <vector>

namespace zolo::sim {

namespace {

std::string Stamp(int64_t seconds) {
  time_t time = static_cast<time_t>(seconds);
  struct tm local;
  localtime_r(&time, &local);
  char text[32];
  strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
  return text;
}

// A file name safe to put in a folder: no path separators, never empty.
std::string FileName(const RecordedFile& file) {
  std::string name = file.file_name.empty() ? file.stream : file.file_name;
  for (char& c : name)
    if (c == '/' || c == '\\') c = '_';
  if (name.empty() || name == "." || name == "..") name = "video";
  return name + ".mp4";
}

}  // namespace

std::string PendingStillFolder() {
  return RecordingDb::Instance()->Folder() + "/.pending_" + kBookmarkStillFolder;
}

std::string BookmarkFileText(const std::vector<Bookmark>& bookmarks) {
  cJSON* array = cJSON_CreateArray();
  for (const Bookmark& bookmark : bookmarks) {
    cJSON* item = cJSON_CreateObject();
    cJSON_AddNumberToObject(item, "time", static_cast<double>(bookmark.time));
    cJSON_AddStringToObject(item, "text", bookmark.text.c_str());
    std::string still =
        bookmark.still.empty() ? "" : std::string(kBookmarkStillFolder) + "/" + bookmark.still;
    cJSON_AddStringToObject(item, "snapshot", still.c_str());
    cJSON_AddStringToObject(item, "category", bookmark.category.c_str());
    cJSON_AddStringToObject(item, "description", bookmark.description.c_str());
    cJSON_AddItemToArray(array, item);
  }
  char* text = cJSON_PrintUnformatted(array);
  std::string result = text != nullptr ? text : "[]";
  cJSON_free(text);
  cJSON_Delete(array);
  return result + "\n";
}

int WriteRecording(const std::vector<RecordedFile>& files, int64_t started, uint64_t duration_ms,
                   const std::vector<Bookmark>& bookmarks, std::string* name) {
  RecordingDb* db = RecordingDb::Instance();
  if (db->Connect() != 0) return 0;
  uint64_t finished = static_cast<uint64_t>(started) + duration_ms / 1000;
  Recording recording;
  recording.name("recording-" + Stamp(started));
  recording.recorded_at(static_cast<uint64_t>(started));
  recording.status("recording");
  int id = 0;
  if (Recording::Add(&recording) == 0) {
    id = recording.id();
    std::string folder = recording.name() + "_" + std::to_string(id);
    recording.file_name(folder + "/" + (files.empty() ? "recording.mp4" : FileName(files[0])));
    std::string directory = db->Folder() + "/" + folder;
    std::error_code ignored;
    std::filesystem::create_directories(directory, ignored);
    uint32_t number = 0;
    for (const RecordedFile& file : files) {
      Video video;
      video.recording_id(id);
      video.directory(folder);
      video.file_name(FileName(file));
      video.status("Finished");
      video.started_at(static_cast<uint64_t>(started));
      video.duration(duration_ms);
      video.finished_at(finished);
      video.number(++number);
      video.note(file.stream);
      Video::Add(&video);
      std::ofstream(directory + "/" + video.file_name())
          << "simulated video of " << file.stream << "\n";
    }
    // The stills taken while recording move into the recording's folder.
    std::filesystem::create_directories(directory + "/" + kBookmarkStillFolder, ignored);
    for (const Bookmark& bookmark : bookmarks)
      if (!bookmark.still.empty())
        std::filesystem::rename(PendingStillFolder() + "/" + bookmark.still,
                                directory + "/" + kBookmarkStillFolder + "/" + bookmark.still,
                                ignored);
    std::ofstream(directory + "/bookmark.json") << BookmarkFileText(bookmarks);
    recording.finished_at(finished);
    recording.duration(duration_ms);
    recording.status("ready");
    recording.UpdateMetaDataFiles();
    Recording::Update(&recording);
    if (name != nullptr) *name = recording.name();
  }
  db->Release(false);
  return id;
}

}  // namespace zolo::sim
