#include "zolo_model/recording_db.h"

#include <glib.h>

#include <filesystem>

#include <zolo/sysroot.h>

namespace {

constexpr const char* kDefaultDatabase = "/var/lib/zolo/recordings/recording.db";
constexpr const char* kDefaultFolder = "/var/lib/zolo/recordings";

// Made by whichever process connects first; every statement is idempotent.
constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS recording (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL DEFAULT '',
  file_name TEXT NOT NULL DEFAULT '',
  recorded_at INTEGER NOT NULL DEFAULT 0,
  finished_at INTEGER NOT NULL DEFAULT 0,
  duration INTEGER NOT NULL DEFAULT 0,
  extra TEXT NOT NULL DEFAULT '',
  status TEXT NOT NULL DEFAULT '',
  event_id TEXT NOT NULL DEFAULT '',
  upload_setting TEXT NOT NULL DEFAULT '',
  thumbnail_done INTEGER NOT NULL DEFAULT 0,
  metadata TEXT NOT NULL DEFAULT ''
);
CREATE INDEX IF NOT EXISTS recording_by_time ON recording (recorded_at, id);
CREATE INDEX IF NOT EXISTS recording_by_name ON recording (name);
CREATE INDEX IF NOT EXISTS recording_by_status ON recording (status);
CREATE INDEX IF NOT EXISTS recording_by_finished_at ON recording (finished_at);
CREATE TABLE IF NOT EXISTS video (
  id INTEGER PRIMARY KEY,
  recording_id INTEGER NOT NULL REFERENCES recording (id) ON DELETE CASCADE,
  directory TEXT NOT NULL DEFAULT '',
  file_name TEXT NOT NULL DEFAULT '',
  status TEXT NOT NULL DEFAULT '',
  started_at INTEGER NOT NULL DEFAULT 0,
  duration INTEGER NOT NULL DEFAULT 0,
  finished_at INTEGER NOT NULL DEFAULT 0,
  thumbnail TEXT NOT NULL DEFAULT '',
  number INTEGER NOT NULL DEFAULT 0,
  note TEXT NOT NULL DEFAULT ''
);
CREATE INDEX IF NOT EXISTS video_by_recording ON video (recording_id, id);
CREATE TABLE IF NOT EXISTS snapshot (
  id INTEGER PRIMARY KEY,
  folder TEXT NOT NULL UNIQUE,
  status TEXT NOT NULL DEFAULT '',
  recording_id INTEGER REFERENCES recording (id) ON DELETE CASCADE,
  time INTEGER NOT NULL DEFAULT 0,
  created_at INTEGER NOT NULL DEFAULT 0,
  width INTEGER NOT NULL DEFAULT 0,
  height INTEGER NOT NULL DEFAULT 0,
  note TEXT NOT NULL DEFAULT ''
);
CREATE INDEX IF NOT EXISTS snapshot_by_status ON snapshot (status);
CREATE INDEX IF NOT EXISTS snapshot_by_recording ON snapshot (recording_id, time);
CREATE TABLE IF NOT EXISTS image (
  id INTEGER PRIMARY KEY,
  snapshot_id INTEGER NOT NULL REFERENCES snapshot (id) ON DELETE CASCADE,
  directory TEXT NOT NULL DEFAULT '',
  file_name TEXT NOT NULL DEFAULT '',
  status TEXT NOT NULL DEFAULT '',
  width INTEGER NOT NULL DEFAULT 0,
  height INTEGER NOT NULL DEFAULT 0,
  time INTEGER NOT NULL DEFAULT 0,
  size INTEGER NOT NULL DEFAULT 0,
  format TEXT NOT NULL DEFAULT '',
  note TEXT NOT NULL DEFAULT '',
  thumbnail TEXT NOT NULL DEFAULT ''
);
CREATE INDEX IF NOT EXISTS image_by_snapshot ON image (snapshot_id, id);
CREATE INDEX IF NOT EXISTS image_by_status ON image (status);
)sql";

std::string ConfigValue(GKeyFile* file, const char* key, const char* fallback) {
  gchar* value = file ? g_key_file_get_string(file, "Recording", key, nullptr) : nullptr;
  std::string result = (value != nullptr && *value != '\0') ? value : fallback;
  g_free(value);
  return result;
}

std::string WithoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

RecordingDb* RecordingDb::Instance() {
  static RecordingDb instance;
  return &instance;
}

void RecordingDb::LoadPaths() {
  GKeyFile* file = g_key_file_new();
  std::string config = zolo::SysrootPath("/etc/media.conf");
  if (!g_key_file_load_from_file(file, config.c_str(), G_KEY_FILE_NONE, nullptr)) {
    g_key_file_free(file);
    file = nullptr;
  }
  database_path_ = zolo::SysrootPath(ConfigValue(file, "database", kDefaultDatabase));
  folder_ = WithoutTrailingSlash(zolo::SysrootPath(ConfigValue(file, "folder", kDefaultFolder)));
  if (file != nullptr) g_key_file_free(file);
}

int RecordingDb::Connect() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!database_) {
    LoadPaths();
    try {
      std::error_code ignored;
      std::filesystem::create_directories(std::filesystem::path(database_path_).parent_path(),
                                          ignored);
      std::filesystem::create_directories(folder_, ignored);
      auto database = std::make_unique<zolo::model::Database>(database_path_, true);
      auto guard = database->Lock();
      database->ExecScript(kSchema);
      database_ = std::move(database);
    } catch (const std::exception&) {
      return -1;
    }
  }
  ++holders_;
  return 0;
}

void RecordingDb::Release(bool close) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (holders_ > 0) --holders_;
  if (close && holders_ == 0) database_.reset();
}

bool RecordingDb::IsConnected() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return database_ != nullptr;
}

zolo::model::Database* RecordingDb::database() {
  std::lock_guard<std::mutex> lock(mutex_);
  return database_.get();
}

std::string RecordingDb::Folder() {
  std::lock_guard<std::mutex> lock(mutex_);
  // Unconnected, the configuration may have changed since the last look.
  if (!database_ || folder_.empty()) LoadPaths();
  return folder_;
}

std::string RecordingDb::SnapshotFolder() {
  return Folder() + "/snapshots";
}

std::string RecordingDb::RecordingSnapshotFolder(const std::string& recording_folder) {
  return Folder() + "/" + recording_folder + "/snapshots";
}

int RecordingDb::holders() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return holders_;
}
