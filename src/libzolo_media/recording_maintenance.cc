// Recording maintenance: removal, repair of cut-off recordings, crashed videos, the
// attributes other processes keep on recordings and videos, and the recording mode.
#include <zolo/media/recordings.h>
#include <zolo/media/streams.h>
#include <zolo_model/media_setting.h>

#include <memory>
#include <string>

#include "common/log.h"
#include "libzolo_media/media_call.h"
#include "libzolo_media/recording_access.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";

using zolo::RecordingDbSession;

// Tells the engine a recording is gone and lets it look at its storage again.
void AnnounceRemoval(int id) {
  zolo::NotifyMediaDataChange(zolo::ChangeType::kRemoved, zolo::DataKind::kRecording, id);
  zm_call_media_method("check_storage_status", nullptr, nullptr, zolo::kCallTimeout);
}

// Runs `change` on recording `id` in a database session. `missing` is the result when the
// recording does not exist; `change` returns the call's result.
template <class Change>
int WithRecording(int id, int missing, Change change) {
  RecordingDbSession session;
  if (!session.connected()) return -1;
  Recording* row = nullptr;
  if (Recording::QueryById(id, &row) < 0 || row == nullptr) return missing;
  std::unique_ptr<Recording> recording(row);
  return change(*recording);
}

template <class Change>
int WithVideo(int id, int missing, Change change) {
  RecordingDbSession session;
  if (!session.connected()) return -1;
  Video* row = nullptr;
  if (Video::QueryById(id, &row) < 0 || row == nullptr) return missing;
  std::unique_ptr<Video> video(row);
  return change(*video);
}

int Saved(int result) {
  return result < 0 ? -1 : 0;
}

}  // namespace

int zm_remove_recording(int id) {
  int result;
  {
    RecordingDbSession session;
    if (!session.connected()) return -1;
    result = Recording::Remove(id);
  }
  if (result != 0) return result;
  AnnounceRemoval(id);
  return 0;
}

int zm_remove_oldest_recording(bool notify) {
  int id = 0;
  int result;
  {
    RecordingDbSession session;
    if (!session.connected()) return -1;
    Recording* oldest = nullptr;
    if (Recording::QueryOldest(&oldest) < 0 || oldest == nullptr) {
      ZLOG(1, "Failed to query the oldest recording");
      return -5;
    }
    id = oldest->id();
    delete oldest;
    result = Recording::RemoveOldest();
  }
  if (result == 0 && notify) AnnounceRemoval(id);
  return result;
}

int zm_remove_video(int id) {
  RecordingDbSession session;
  if (!session.connected()) return -1;
  return Video::Remove(id);
}

int zm_fix_unfinished_recording(int id) {
  return WithRecording(id, -5, [](Recording& recording) {
    if (recording.finished_at() != 0) return -2;
    recording.UpdateVideos();
    recording.finished_at(recording.recorded_at() + recording.duration() / 1000);
    recording.status("ready");
    recording.UpdateMetaDataFiles();
    return Saved(Recording::Update(&recording));
  });
}

int zm_mark_crashed_video(int id) {
  int result = WithVideo(id, 0, [](Video& video) {
    if (video.finished_at() != 0) return 0;
    video.status("Crashed");
    return Saved(Video::Update(&video));
  });
  return result == -1 ? -1 : 0;
}

int zm_set_video_thumbnail(int id, const std::string& path) {
  return WithVideo(id, -5, [&path](Video& video) {
    // Stored relative to the video's own folder when the path lies below it.
    std::string marker = video.directory() + "/";
    size_t at = path.find(marker);
    video.thumbnail(at == std::string::npos ? path : path.substr(at + marker.size()));
    return Saved(Video::Update(&video));
  });
}

int zm_set_recording_thumbnail_done(int id) {
  return WithRecording(id, -5, [](Recording& recording) {
    if (recording.thumbnail_done()) return -2;
    recording.thumbnail_done(true);
    return Saved(Recording::Update(&recording));
  });
}

int zm_set_recording_event_id(int id, const std::string& event_id) {
  return WithRecording(id, 0, [&event_id](Recording& recording) {
    recording.event_id(event_id);
    return Saved(Recording::Update(&recording));
  });
}

int zm_set_recording_upload_setting(int id, const std::string& setting) {
  return WithRecording(id, 0, [&setting](Recording& recording) {
    recording.upload_setting(setting);
    return Saved(Recording::Update(&recording));
  });
}

int zm_set_recording_metadata(int id, const char* name, const char* metadata) {
  if (metadata == nullptr) return -3;
  return WithRecording(id, -1, [name, metadata](Recording& recording) {
    if (name != nullptr) recording.name(name);
    recording.metadata(metadata);
    recording.UpdateMetaDataFiles();
    return Saved(Recording::Update(&recording));
  });
}

int zm_set_recording_status(int id, const char* status) {
  if (status == nullptr) return -3;
  return WithRecording(id, -1, [status](Recording& recording) {
    recording.status(status);
    return Saved(Recording::Update(&recording));
  });
}

int zm_set_recording_mode(int mode) {
  if (mode != 4) {
    int movie = zm_enable_movie_file_stream((mode & 1) != 0);
    int channel = zm_enable_channel_file_stream(((mode >> 1) & 1) != 0);
    if (movie != 0 || channel != 0) return movie | channel;
  }
  MediaSetting* row = nullptr;
  if (MediaSetting::Query("recording_mode", &row) < 0 || row == nullptr) return -5;
  std::unique_ptr<MediaSetting> setting(row);
  setting->value(std::to_string(mode));
  return setting->Save() < 0 ? -1 : 0;
}
