// RecordingDb: the recording database, kept beside the recordings it describes.
//
// Its file and the recordings folder come from the configuration file "/etc/media.conf",
// group "Recording", keys "database" (default "/var/lib/zolo/recordings/recording.db") and
// "folder" (default "/var/lib/zolo/recordings"), both below the sandbox root. The engine
// writes rows while the library reads them, from another process: the file runs in WAL
// mode, and the schema is created by whichever process connects first.
//
// Connect and Release are reference counted. Release(false) leaves the idle connection open
// for the next Connect (opening a connection costs far more than a query); Release(true)
// closes it once the last holder has released it.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "zolo_model/database.h"

class RecordingDb {
 public:
  static RecordingDb* Instance();

  // Opens the database, creating the file, its folder and the schema when missing.
  // 0, or -1 when it cannot be opened (unwritable folder, a file that is not a database).
  int Connect();
  // Gives back one Connect. With `close`, the connection is closed when nobody holds it.
  void Release(bool close);
  bool IsConnected() const;
  // How many Connects are not given back yet (0 between well-behaved calls).
  int holders() const;

  // Absolute folder of the recordings (below the sandbox root), without a trailing "/".
  std::string Folder();
  // Folder of snapshots taken on request.
  std::string SnapshotFolder();
  // Folder of the snapshots taken from the recording whose folder (relative to Folder())
  // is `recording_folder`: they live beside that recording.
  std::string RecordingSnapshotFolder(const std::string& recording_folder);

  // The open connection, or null when not connected.
  zolo::model::Database* database();

 private:
  RecordingDb() = default;
  void LoadPaths();

  mutable std::mutex mutex_;
  std::unique_ptr<zolo::model::Database> database_;
  int holders_ = 0;
  std::string database_path_;
  std::string folder_;
};
