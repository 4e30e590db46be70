// Recording queries: rows of the recording database as zm_recording and zm_video records,
// the counters, the recording mode setting and the file-stream capability switches.
#include <glib.h>
#include <zolo/config.h>
#include <zolo/media/frame.h>
#include <zolo/media/recordings.h>
#include <zolo_model/media_model.h>
#include <zolo_model/media_setting.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "common/log.h"
#include "libzolo_media/media_call.h"
#include "libzolo_media/recording_access.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";

using zolo::RecordingDbSession;

// Runs `query` in a database session and appends each row converted. 0, -1, -5.
template <class Query>
int QueryRecordings(std::vector<zm_recording>* out, bool videos, bool information, Query query) {
  RecordingDbSession session;
  if (!session.connected()) return -1;
  std::vector<Recording*> rows;
  if (query(&rows) < 0) {
    MediaModel::CleanQuery(&rows);
    return -5;
  }
  std::string base = RecordingDb::Instance()->Folder();
  try {
    for (Recording* row : rows)
      if (out != nullptr) out->push_back(zolo::ToRecordingRecord(*row, base, videos, information));
  } catch (...) {
    MediaModel::CleanQuery(&rows);
    throw;
  }
  MediaModel::CleanQuery(&rows);
  return 0;
}

std::string Join(const std::string& base, const std::string& relative) {
  return base + "/" + relative;
}

}  // namespace

namespace zolo {

zm_video ToVideoRecord(const Video& video, const std::string& base) {
  zm_video record{};
  record.id = static_cast<uint32_t>(video.id());
  record.directory = video.directory();
  record.file_name = video.file_name();
  record.path = Join(Join(base, video.directory()), video.file_name());
  record.status = video.status();
  record.started_at = video.started_at();
  record.duration = video.duration();
  record.finished_at = video.finished_at();
  record.thumbnail = video.thumbnail();
  record.number = video.number();
  record.note = video.note();
  return record;
}

zm_recording ToRecordingRecord(Recording& recording, const std::string& base, bool videos,
                               bool information) {
  zm_recording record{};
  record.id = static_cast<uint32_t>(recording.id());
  record.name = recording.name();
  gchar* directory = g_path_get_dirname(recording.file_name().c_str());
  record.folder = Join(base, directory);
  g_free(directory);
  record.recorded_at = recording.recorded_at();
  record.finished_at = recording.finished_at();
  record.duration = recording.duration();
  record.extra = recording.extra();
  record.file_path = Join(base, recording.file_name());
  if (information) record.information_file = record.folder + "/information.json";
  record.status = recording.status();
  record.event_id = recording.event_id();
  record.upload_setting = recording.upload_setting();
  if (videos) {
    const auto& rows = recording.videos();
    record.videos.reserve(rows.size());
    for (const Video* video : rows) record.videos.push_back(ToVideoRecord(*video, base));
  }
  return record;
}

std::string RecordingFolder(const Recording& recording) {
  gchar* directory = g_path_get_dirname(recording.file_name().c_str());
  std::string folder = Join(RecordingDb::Instance()->Folder(), directory);
  g_free(directory);
  return folder;
}

}  // namespace zolo

int zm_get_recording(uint64_t start, uint64_t end, const char* pattern,
                     std::vector<zm_recording>* out, bool with_videos) {
  if (start == 0 && end == 0 && pattern == nullptr) return -3;
  std::string text = pattern != nullptr ? pattern : "";
  return QueryRecordings(out, with_videos, true, [&](std::vector<Recording*>* rows) {
    return Recording::QueryByTimeAndMetadataPattern(start, end, text, rows);
  });
}

int zm_get_recording(int id, std::vector<zm_recording>* out, unsigned page, unsigned count) {
  return QueryRecordings(out, true, true, [&](std::vector<Recording*>* rows) {
    if (id == 0) return Recording::QueryByPage(page, count, rows);
    Recording* row = nullptr;
    int result = Recording::QueryById(id, &row);
    if (result >= 0 && row != nullptr) rows->push_back(row);
    return result;
  });
}

int zm_get_recording(const char* name, std::vector<zm_recording>* out) {
  zolo::RequireText(name);
  return QueryRecordings(out, true, true, [name](std::vector<Recording*>* rows) {
    return Recording::QueryByName(name, rows);
  });
}

int zm_get_status_recording(const char* status, std::vector<zm_recording>* out) {
  return QueryRecordings(out, true, true, [status](std::vector<Recording*>* rows) {
    zolo::RequireText(status);
    return Recording::QueryByStatus(status, rows);
  });
}

int zm_get_no_thumbnail_recording(std::vector<zm_recording>* out) {
  return QueryRecordings(out, true, true, Recording::QueryByNoThumbnail);
}

int zm_get_unfinished_recording(std::vector<zm_recording>* out) {
  return QueryRecordings(out, true, true, [](std::vector<Recording*>* rows) {
    return Recording::QueryByFinshedAt(0, rows);
  });
}

int zm_get_recording_lite(uint64_t start, uint64_t end, std::vector<zm_recording>* out) {
  return QueryRecordings(out, false, false, [&](std::vector<Recording*>* rows) {
    if (start == 0 && end == 0) return Recording::QueryAll(rows);
    return Recording::QueryByTimeAndMetadataPattern(start, end, "", rows);
  });
}

int zm_get_old_recording_by_recorded_at(uint64_t before, std::vector<zm_recording>* out) {
  if (before == 0) return -5;
  return QueryRecordings(out, false, false, [before](std::vector<Recording*>* rows) {
    return Recording::QueryByRecordedAtLessThan(before, rows);
  });
}

int zm_get_video_by_recording_id(int recording_id, std::vector<zm_video>* out) {
  RecordingDbSession session;
  if (!session.connected()) return -1;
  std::vector<Video*> rows;
  if (Video::QueryByRecordingId(recording_id, &rows) < 0) {
    MediaModel::CleanQuery(&rows);
    return -5;
  }
  std::string base = RecordingDb::Instance()->Folder();
  for (const Video* row : rows)
    if (out != nullptr) out->push_back(zolo::ToVideoRecord(*row, base));
  MediaModel::CleanQuery(&rows);
  return 0;
}

int zm_get_recording_count() {
  RecordingDbSession session;
  return session.connected() ? Recording::Count() : -1;
}

int zm_get_recording_status_count(const char* status) {
  RecordingDbSession session;
  if (!session.connected()) return -1;
  zolo::RequireText(status);
  return Recording::Count(status);
}

int zm_get_recording_mode() {
  std::string value;
  if (MediaSetting::QueryValue("recording_mode", &value) < 0) {
    ZLOG(0, "Query recording_mode from setting table failed!");
    return 0;
  }
  return static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
}

namespace {

// An "Engine" key of the configuration read as a flag (0 when absent or not a number).
int EngineFlag(const char* key) {
  int32_t value = 0;
  try {
    zolo::MediaConfig().GetInt32("Engine", key, 0, &value);
  } catch (const std::exception&) {
    value = 0;
  }
  return value != 0 ? 1 : 0;
}

}  // namespace

int zm_support_channel_file_stream() {
  int movie_resource = zolo::MovieResource();
  int supported = movie_resource != -1 ? (movie_resource > 0 ? 1 : 0)
                                       : EngineFlag("enable_channel_file_stream");
  std::string framerate;
  int read = zm_get_setting("framerate_mode", &framerate);
  if (EngineFlag("framerate_mode_limit") != 0 && read >= 0 && framerate > "30") return read;
  return supported;
}

int zm_support_movie_file_stream() {
  int movie_resource = zolo::MovieResource();
  if (movie_resource != -1) return movie_resource < 2 ? 1 : 0;
  return EngineFlag("enable_movie_file_stream");
}

int zm_support_customized_file_stream() {
  if (zolo::MovieResource() != -1) return 0;
  return EngineFlag("enable_customized_file_stream");
}
