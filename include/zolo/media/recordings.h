// Recordings, their videos, snapshots with their images, and recording bookmarks, read from
// and written to the recording database beside the recordings.
//
// Every call that touches the recording database connects it first and releases it before
// returning, on every path: -1 when it cannot be connected. Records are appended to the
// caller's vector (never cleared first) in the database's order (newest first). Records
// own their strings and vectors. Engine replies that lack a member never throw.
#pragma once

#include <zolo/export.h>

#include <cstdint>
#include <list>
#include <string>
#include <vector>

// One file of a recording.
struct zm_video {
  uint32_t id;
  std::string directory;  // relative to the recordings folder, as stored
  std::string file_name;
  std::string path;  // recordings folder + "/" + directory + "/" + file_name
  std::string status;
  uint64_t started_at;    // seconds since the epoch
  uint64_t duration;      // milliseconds
  uint64_t finished_at;   // seconds; 0 while the file is written
  std::string thumbnail;  // relative to directory
  uint32_t number;
  std::string note;
};

// One start-to-stop recording.
struct zm_recording {
  uint32_t id;
  std::string name;
  std::string folder;    // recordings folder + "/" + directory of the stored file name
  uint64_t recorded_at;  // seconds since the epoch
  uint64_t finished_at;  // seconds; 0 while unfinished
  uint64_t duration;     // milliseconds
  std::vector<zm_video> videos;
  std::string extra;
  std::string file_path;         // recordings folder + "/" + stored file name
  std::string information_file;  // folder + "/information.json", where the query fills it
  std::string status;
  std::string event_id;
  std::string upload_setting;
};

// One still of a snapshot.
struct zm_image {
  uint32_t id;
  std::string directory;
  std::string file_name;
  std::string path;  // snapshot folder + "/" + directory + "/" + file_name
  std::string status;
  uint32_t width;
  uint32_t height;
  uint64_t time;  // milliseconds into the recording (0 for a snapshot taken on request)
  uint64_t size;  // bytes
  std::string format;
  std::string note;
  std::string thumbnail;  // snapshot folder + "/" + directory + "/" + thumbnail, or ""
};

// A set of stills taken on request or from a recording.
struct zm_snapshot {
  uint32_t id;
  std::string folder;  // the snapshot's folder name
  std::vector<zm_image> images;
  std::string status;
  int32_t recording_id;  // 0 for a snapshot taken on request
  uint64_t time;         // milliseconds into the recording
  uint64_t created_at;   // seconds since the epoch
  uint32_t width;
  uint32_t height;
  std::string note;
};

// One bookmark of a recording's "bookmark.json".
struct zm_bookmark_item {
  uint64_t time;
  std::string text;
  std::string snapshot;  // image file relative to the bookmark file's folder; may be empty
  std::string category;  // "manual" for bookmarks added through zm_add_recording_bookmark
  std::string description;
};

// A loaded "bookmark.json": its path and items (kept in ascending time once edited).
struct zm_recording_bookmark {
  std::string path;
  std::list<zm_bookmark_item> items;
  int count;
};

// --- Queries. Each: 0; -1 database not connected; -5 query failed. ---
// Recordings started within [start, end] (0 is open) whose name or metadata contains
// `pattern` as plain text; with both times 0 a pattern is required (null: -3).
ZM_EXPORT int zm_get_recording(uint64_t start, uint64_t end, const char* pattern,
                               std::vector<zm_recording>* out, bool with_videos);
// Recording `id`, or (id 0) page `page` of `count` recordings (count 0: all), with videos.
ZM_EXPORT int zm_get_recording(int id, std::vector<zm_recording>* out, unsigned page,
                               unsigned count);
// Recordings named `name` / with `status`. A null text throws std::logic_error.
ZM_EXPORT int zm_get_recording(const char* name, std::vector<zm_recording>* out);
ZM_EXPORT int zm_get_status_recording(const char* status, std::vector<zm_recording>* out);
ZM_EXPORT int zm_get_no_thumbnail_recording(std::vector<zm_recording>* out);
ZM_EXPORT int zm_get_unfinished_recording(std::vector<zm_recording>* out);
// Without videos and information file: the time range, or every recording.
ZM_EXPORT int zm_get_recording_lite(uint64_t start, uint64_t end, std::vector<zm_recording>* out);
// Recordings started before `before` (0: -5), without videos.
ZM_EXPORT int zm_get_old_recording_by_recorded_at(uint64_t before, std::vector<zm_recording>* out);
ZM_EXPORT int zm_get_video_by_recording_id(int recording_id, std::vector<zm_video>* out);
// Counts; -1 when the database cannot be connected. A null status throws.
ZM_EXPORT int zm_get_recording_count();
ZM_EXPORT int zm_get_recording_status_count(const char* status);
// The "recording_mode" setting; 0 (logged) when it cannot be read.
ZM_EXPORT int zm_get_recording_mode();
// Whether channel, movie and customised file streams are offered (1 or 0): from the
// firmware variable "movie_resource" when set, else group "Engine" of the configuration.
ZM_EXPORT int zm_support_channel_file_stream();
ZM_EXPORT int zm_support_movie_file_stream();
ZM_EXPORT int zm_support_customized_file_stream();

// --- Maintenance. ---
// Removes recording `id` with its files and tells the engine. 0 or the model's result.
ZM_EXPORT int zm_remove_recording(int id);
// Removes the oldest recording (-5 when there is none), telling the engine when `notify`.
ZM_EXPORT int zm_remove_oldest_recording(bool notify);
ZM_EXPORT int zm_remove_video(int id);
// Closes a recording that was cut off: re-reads its videos, sets its end, status "ready"
// and rewrites "information.json". 0; -2 already finished; -5 not found; -1.
ZM_EXPORT int zm_fix_unfinished_recording(int id);
// Marks video `id` "Crashed" when it is still open. 0 (also when not found).
ZM_EXPORT int zm_mark_crashed_video(int id);
// Stores `path` relative to the video's directory. 0, -5, -1 when the write fails.
ZM_EXPORT int zm_set_video_thumbnail(int id, const std::string& path);
// 0; -2 when already set; -5 not found; -1 when the write fails.
ZM_EXPORT int zm_set_recording_thumbnail_done(int id);
// 0 (also when not found); -1 when the write fails.
ZM_EXPORT int zm_set_recording_event_id(int id, const std::string& event_id);
ZM_EXPORT int zm_set_recording_upload_setting(int id, const std::string& setting);
// New metadata (and name, when given), "information.json" rewritten. 0; -3 null metadata;
// -1 not found or the write failed.
ZM_EXPORT int zm_set_recording_metadata(int id, const char* name, const char* metadata);
// 0; -3 null status; -1 not found or the write failed.
ZM_EXPORT int zm_set_recording_status(int id, const char* status);
// Recording mode: bit 0 switches the movie file streams, bit 1 the channel file streams
// (mode 4 switches none); then stores "recording_mode". 0; -5; -1; or the switches' result.
ZM_EXPORT int zm_set_recording_mode(int mode);

// --- Snapshots and images. Queries: 0; -1; -3 bad argument; -5 not found. ---
ZM_EXPORT int zm_get_snapshot(int id, std::vector<zm_snapshot>* out, unsigned page, unsigned count,
                              int with_images);
// The snapshot in `folder`, with page `page` of `count` images (0: all) when `with_images`.
ZM_EXPORT int zm_get_snapshot(const char* folder, zm_snapshot* out, unsigned page, unsigned count,
                              int with_images);
ZM_EXPORT int zm_get_status_snapshot(const char* status, std::vector<zm_snapshot>* out,
                                     int with_images);
ZM_EXPORT int zm_get_image(int id, zm_image* out);
ZM_EXPORT int zm_get_status_image(const char* status, std::vector<zm_image>* out);
ZM_EXPORT int zm_get_snapshot_count();
ZM_EXPORT int zm_get_snapshot_status_count(const char* status);
ZM_EXPORT int zm_get_snapshot_image_count(int snapshot_id);
ZM_EXPORT int zm_get_image_status_count(const char* status);
ZM_EXPORT int zm_set_image_status(int id, const char* status);
ZM_EXPORT int zm_set_snapshot_status(int id, const char* status);
// Removal, then "change_media_data" (data 5 / 4), also for an id not found (-5); a removal
// the database refused (-1) is not announced. The model's result.
ZM_EXPORT int zm_remove_image(int id);
ZM_EXPORT int zm_remove_snapshot(int id);
// Asks the engine for a snapshot of `width` x `height`. The mapped result.
ZM_EXPORT int zm_add_snapshot(int width, int height);
// A pending snapshot of recording `recording_id` at `time` ms; its folder in `*folder`.
ZM_EXPORT int zm_create_recording_snapshot(int recording_id, uint64_t time, std::string* folder);
ZM_EXPORT int zm_delete_recording_snapshot(int recording_id, uint64_t time);

// --- Bookmarks ("bookmark.json" in a recording's folder). ---
// Loads `path` into `out` (its items as the file has them). 0; -1 cannot be opened; -2 not
// a valid bookmark file (items read before the fault stay); -3 empty path or null out.
ZM_EXPORT int zm_load_recording_bookmark(const std::string& path, zm_recording_bookmark* out);
// Replaces the (existing) file atomically with the record, then announces it with
// "update_recording_bookmark" {"url", "code"}. The announcement's result.
ZM_EXPORT int zm_save_recording_bookmark_file(zm_recording_bookmark* bookmark);
// The same with a caller-made JSON text: -3 for null texts; -5 (no announcement) when the
// file does not exist or cannot be written; text that does not parse leaves the file as it
// was and is announced with code -3.
ZM_EXPORT int zm_save_recording_bookmark_file(const char* path, const char* json);
// Adds a "manual" bookmark at `time` to recording `recording_id`'s file. The save's
// result; -1 when a bookmark at that time exists; -3; -5 recording not found.
ZM_EXPORT int zm_add_recording_bookmark(int recording_id, const char* text, uint64_t time,
                                        const char* snapshot, const char* description);
// New text and description of the first bookmark at `time`; saved either way. -3 for nulls.
ZM_EXPORT int zm_update_recording_bookmark(zm_recording_bookmark* bookmark, const char* text,
                                           uint64_t time, const char* description);
// Removes the bookmarks at `time` (and their stills), or asks the engine while it records.
ZM_EXPORT int zm_delete_recording_bookmark(zm_recording_bookmark* bookmark, uint64_t time);
ZM_EXPORT int zm_delete_recording_bookmark(int recording_id, uint64_t time);
// Index of the bookmark nearest `time` (a tie goes to the later one). -3 null; -1 empty.
ZM_EXPORT int zm_search_bookmark(zm_recording_bookmark* bookmark, uint64_t time);
// While recording (else -4): a bookmark now, with `text` (may be null).
ZM_EXPORT int zm_add_bookmark(const char* text, bool counter);
ZM_EXPORT int zm_add_snapshot_bookmark(int width, int height, const char* text, bool counter);
