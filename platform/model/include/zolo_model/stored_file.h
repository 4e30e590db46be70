// StoredFile: what a file kept in the recording database (a recording's video, a
// snapshot's image) has in common: its row id, where it lies (a directory and a file name
// relative to its base folder), its state, a thumbnail file beside it and a free note.
#pragma once

#include <string>

class StoredFile {
 public:
  virtual ~StoredFile() = default;

  int id() const { return id_; }
  const std::string& directory() const { return directory_; }
  void directory(const std::string& directory) { directory_ = directory; }
  const std::string& file_name() const { return file_name_; }
  void file_name(const std::string& file_name) { file_name_ = file_name; }
  const std::string& status() const { return status_; }
  void status(const std::string& status) { status_ = status; }
  // Thumbnail file name relative to directory(); empty when none.
  const std::string& thumbnail() const { return thumbnail_; }
  void thumbnail(const std::string& thumbnail) { thumbnail_ = thumbnail; }
  const std::string& note() const { return note_; }
  void note(const std::string& note) { note_ = note; }

 protected:
  StoredFile() = default;
  // The row readers and writers of both databases fill these directly.
  friend class RecordingRows;
  friend class SnapshotRows;
  int id_ = 0;
  std::string directory_;
  std::string file_name_;
  std::string status_;
  std::string thumbnail_;
  std::string note_;
};
