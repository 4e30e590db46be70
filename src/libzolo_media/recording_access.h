// Internal: the recording database bracket and the record conversions the recording,
// snapshot and bookmark calls share.
#pragma once

#include <zolo/media/recordings.h>
#include <zolo_model/recording.h>
#include <zolo_model/recording_db.h>

#include <string>

namespace zolo {

// Connects the recording database for one call and releases it on every path out.
class RecordingDbSession {
 public:
  RecordingDbSession() : connected_(RecordingDb::Instance()->Connect() >= 0) {}
  ~RecordingDbSession() {
    if (connected_) RecordingDb::Instance()->Release(false);
  }
  RecordingDbSession(const RecordingDbSession&) = delete;
  RecordingDbSession& operator=(const RecordingDbSession&) = delete;
  bool connected() const { return connected_; }

 private:
  bool connected_;
};

zm_video ToVideoRecord(const Video& video, const std::string& base);
// With `videos`, the recording's videos are converted too; with `information`, the
// information file's path is filled.
zm_recording ToRecordingRecord(Recording& recording, const std::string& base, bool videos,
                               bool information);

// The folder of recording `recording` (recordings folder + "/" + its directory).
std::string RecordingFolder(const Recording& recording);

}  // namespace zolo
