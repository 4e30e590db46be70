// Recording and Video: the rows of the recording database (RecordingDb).
//
// A recording is one start-to-stop run of the engine; its files are videos. Paths stored
// in rows are relative to RecordingDb::Folder(): a recording's file name ("<dir>/<file>")
// and a video's directory and file name. Times are seconds since the epoch; durations are
// milliseconds. A recording whose finished_at is 0 is still being written (or was cut off).
//
// Queries return heap objects the caller deletes (MediaModel::CleanQuery for vectors) and
// need RecordingDb connected: 0 on success (an empty list included); -1 database error or
// not connected; -3 null out pointer; -5 not found (single-row queries). Lists come newest
// first (recorded_at, then id, descending). Pages count from 0; a count of 0 means every row.
// A recording's videos are read with it by the by-id, by-page, by-name, by-status and
// thumbnail/finished queries, and on first use of videos() otherwise.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zolo_model/stored_file.h"

class Video;

class Recording {
 public:
  Recording() = default;
  virtual ~Recording();
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  static int QueryById(int id, Recording** out);
  static int QueryByPage(unsigned page, unsigned count, std::vector<Recording*>* out);
  static int QueryByName(const std::string& name, std::vector<Recording*>* out);
  static int QueryByStatus(const std::string& status, std::vector<Recording*>* out);
  // Finished recordings whose thumbnails are not made yet.
  static int QueryByNoThumbnail(std::vector<Recording*>* out);
  // Recordings whose finished_at equals `finished_at` (0: the unfinished ones).
  static int QueryByFinshedAt(uint64_t finished_at, std::vector<Recording*>* out);
  // Recordings started within [start, end] (a bound of 0 is open) whose name or metadata
  // contains `pattern` as plain text ("" matches all; "%", "_" and quotes match themselves).
  static int QueryByTimeAndMetadataPattern(uint64_t start, uint64_t end, const std::string& pattern,
                                           std::vector<Recording*>* out);
  static int QueryAll(std::vector<Recording*>* out);
  static int QueryByRecordedAtLessThan(uint64_t time, std::vector<Recording*>* out);
  // The recording started first.
  static int QueryOldest(Recording** out);
  // Number of recordings (with `status`); -1 on a database error.
  static int Count();
  static int Count(const std::string& status);

  // Inserts `recording` and sets its id. 0 or -1 (-3 for null).
  static int Add(Recording* recording);
  // Writes every field back. 0; -5 when the row no longer exists; -1; -3 for null.
  static int Update(Recording* recording);
  // Deletes the recording, its videos and snapshots, and its files: the recording's own
  // folder when it has one, otherwise only the files its rows name. 0, -5, -1.
  static int Remove(int id);
  // Remove() of the recording started first. 0; -5 when there is none; -1.
  static int RemoveOldest();

  // Re-reads the videos from the database and the files: a video still open (finished_at
  // 0) whose file exists ends at the file's last write, one whose file is gone becomes
  // "Missing"; the recording's duration grows to cover its last video. 0, -1.
  int UpdateVideos();
  // Writes "information.json" in the recording's folder: the row's fields, the metadata
  // (as JSON when it parses, as text otherwise) and the videos. 0, or -1 when unwritable.
  int UpdateMetaDataFiles();
  // Makes (or finds) the snapshot of this recording at `time` (milliseconds into the
  // recording): a "pending" snapshot row and its empty folder, for the engine to fill.
  // `*folder` receives the snapshot's folder name. 0, -1, -3.
  int GenerateSnapshot(uint64_t time, std::string* folder);
  // Removes the snapshot at `time` with its images and files. 0; -5 when there is none; -1.
  int RemoveSnapshot(uint64_t time);

  // This recording's videos, owned by the recording; read on first use when the query
  // did not read them (empty when that fails).
  const std::vector<Video*>& videos();

  int id() const { return id_; }
  const std::string& name() const { return name_; }
  void name(const std::string& name) { name_ = name; }
  // "<dir>/<file>" relative to RecordingDb::Folder().
  const std::string& file_name() const { return file_name_; }
  void file_name(const std::string& file_name) { file_name_ = file_name; }
  // The directory part of file_name() ("." when it has none).
  std::string folder() const;
  uint64_t recorded_at() const { return recorded_at_; }
  void recorded_at(uint64_t time) { recorded_at_ = time; }
  uint64_t finished_at() const { return finished_at_; }
  void finished_at(uint64_t time) { finished_at_ = time; }
  uint64_t duration() const { return duration_; }
  void duration(uint64_t milliseconds) { duration_ = milliseconds; }
  const std::string& extra() const { return extra_; }
  void extra(const std::string& extra) { extra_ = extra; }
  const std::string& status() const { return status_; }
  void status(const std::string& status) { status_ = status; }
  const std::string& event_id() const { return event_id_; }
  void event_id(const std::string& event_id) { event_id_ = event_id; }
  const std::string& upload_setting() const { return upload_setting_; }
  void upload_setting(const std::string& setting) { upload_setting_ = setting; }
  bool thumbnail_done() const { return thumbnail_done_; }
  void thumbnail_done(bool done) { thumbnail_done_ = done; }
  const std::string& metadata() const { return metadata_; }
  void metadata(const std::string& metadata) { metadata_ = metadata; }

 private:
  friend class RecordingRows;
  int id_ = 0;
  std::string name_;
  std::string file_name_;
  uint64_t recorded_at_ = 0;
  uint64_t finished_at_ = 0;
  uint64_t duration_ = 0;
  std::string extra_;
  std::string status_;
  std::string event_id_;
  std::string upload_setting_;
  bool thumbnail_done_ = false;
  std::string metadata_;
  bool videos_loaded_ = false;
  std::vector<Video*> videos_;
};

class Video : public StoredFile {
 public:
  Video() = default;
  ~Video() override = default;

  static int QueryById(int id, Video** out);
  // The videos of a recording in the order they were written.
  static int QueryByRecordingId(int recording_id, std::vector<Video*>* out);
  // Inserts `video` (its recording_id must exist) and sets its id. 0, -2, -1, -3.
  static int Add(Video* video);
  static int Update(Video* video);
  // Deletes the row and its file. 0, -5, -1.
  static int Remove(int id);

  int recording_id() const { return recording_id_; }
  void recording_id(int id) { recording_id_ = id; }
  // Start (seconds since the epoch), length (milliseconds), end (seconds; 0 while open).
  uint64_t started_at() const { return started_at_; }
  void started_at(uint64_t time) { started_at_ = time; }
  uint64_t duration() const { return duration_; }
  void duration(uint64_t milliseconds) { duration_ = milliseconds; }
  uint64_t finished_at() const { return finished_at_; }
  void finished_at(uint64_t time) { finished_at_ = time; }
  // Position of the file in its recording (1 for the first file of a split recording).
  uint32_t number() const { return number_; }
  void number(uint32_t number) { number_ = number; }

 private:
  friend class RecordingRows;
  int recording_id_ = 0;
  uint64_t started_at_ = 0;
  uint64_t duration_ = 0;
  uint64_t finished_at_ = 0;
  uint32_t number_ = 0;
};
