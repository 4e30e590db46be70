// Snapshot and Image: still pictures in the recording database (RecordingDb).
//
// A snapshot is a set of images in a folder of its own, named by the snapshot's folder
// name. A snapshot taken on request lives under RecordingDb::SnapshotFolder(); one taken
// from a recording lives under RecordingSnapshotFolder(<recording's folder>). An image's
// directory (normally the snapshot's folder name) and file name are relative to that base.
//
// Result codes and ownership as for Recording: queries give heap objects the caller
// deletes; 0, -1 database error or not connected, -3 null out pointer, -5 not found.
// Lists come newest first; pages count from 0 and a count of 0 means every row.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zolo_model/stored_file.h"

class Image;
class Recording;

class Snapshot {
 public:
  Snapshot() = default;
  virtual ~Snapshot();
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

  static int QueryById(int id, Snapshot** out);
  static int QueryByPage(unsigned page, unsigned count, std::vector<Snapshot*>* out);
  static int QueryByFolder(const std::string& folder, Snapshot** out);
  static int QueryByStatus(const std::string& status, std::vector<Snapshot*>* out);
  static int Count();
  static int Count(const std::string& status);
  // Inserts `snapshot` and sets its id; the folder name must be unused (-2). 0, -2, -1, -3.
  static int Add(Snapshot* snapshot);
  static int Update(Snapshot* snapshot);
  // Deletes the snapshot, its images and its folder. 0, -5, -1.
  static int Remove(int id);

  // Page `page` of `count` images of this snapshot (0, 0: all), owned by the snapshot and
  // replaced by the next call; empty when the query fails.
  const std::vector<Image*>& images(unsigned page, unsigned count);
  // The recording this snapshot was taken from, owned by the snapshot; null when taken on
  // request (or when that recording cannot be read).
  Recording* recording();
  // Absolute folder that this snapshot's image directories are relative to.
  std::string BaseFolder();

  int id() const { return id_; }
  // Folder name, unique among snapshots.
  const std::string& folder() const { return folder_; }
  void folder(const std::string& folder) { folder_ = folder; }
  const std::string& status() const { return status_; }
  void status(const std::string& status) { status_ = status; }
  // Recording id, 0 for a snapshot taken on request.
  int recording_id() const { return recording_id_; }
  void recording_id(int id) { recording_id_ = id; }
  // Position in the recording, milliseconds (0 on request).
  uint64_t time() const { return time_; }
  void time(uint64_t milliseconds) { time_ = milliseconds; }
  // Seconds since the epoch.
  uint64_t created_at() const { return created_at_; }
  void created_at(uint64_t time) { created_at_ = time; }
  uint32_t width() const { return width_; }
  void width(uint32_t width) { width_ = width; }
  uint32_t height() const { return height_; }
  void height(uint32_t height) { height_ = height; }
  const std::string& note() const { return note_; }
  void note(const std::string& note) { note_ = note; }

 private:
  friend class SnapshotRows;
  int id_ = 0;
  std::string folder_;
  std::string status_;
  int recording_id_ = 0;
  uint64_t time_ = 0;
  uint64_t created_at_ = 0;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  std::string note_;
  std::vector<Image*> images_;
  std::unique_ptr<Recording> recording_;
  bool recording_loaded_ = false;
};

class Image : public StoredFile {
 public:
  Image() = default;
  ~Image() override;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  static int QueryById(int id, Image** out);
  static int QueryByStatus(const std::string& status, std::vector<Image*>* out);
  // Images of snapshot `snapshot_id`, page by page (0, 0: all), in the order taken.
  static int QueryBySnapshot(int snapshot_id, unsigned page, unsigned count,
                             std::vector<Image*>* out);
  static int Count(int snapshot_id);
  static int Count(const std::string& status);
  // Inserts `image` (its snapshot must exist) and sets its id. 0, -2, -1, -3.
  static int Add(Image* image);
  static int Update(Image* image);
  // Deletes the row and, with `remove_file`, the picture and its thumbnail. 0, -5, -1.
  static int Remove(int id, bool remove_file);

  // The snapshot this image belongs to, owned by the image; null when it cannot be read.
  Snapshot* snapshot();

  int snapshot_id() const { return snapshot_id_; }
  void snapshot_id(int id) { snapshot_id_ = id; }
  uint32_t width() const { return width_; }
  void width(uint32_t width) { width_ = width; }
  uint32_t height() const { return height_; }
  void height(uint32_t height) { height_ = height; }
  // Position in the recording (milliseconds) and file size (bytes).
  uint64_t time() const { return time_; }
  void time(uint64_t milliseconds) { time_ = milliseconds; }
  uint64_t size() const { return size_; }
  void size(uint64_t bytes) { size_ = bytes; }
  // Picture format ("jpeg").
  const std::string& format() const { return format_; }
  void format(const std::string& format) { format_ = format; }

 private:
  friend class SnapshotRows;
  int snapshot_id_ = 0;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  uint64_t time_ = 0;
  uint64_t size_ = 0;
  std::string format_;
  std::unique_ptr<Snapshot> snapshot_;
  bool snapshot_loaded_ = false;
};
