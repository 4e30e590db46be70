#include "recording_fixture.h"

#include <fstream>

namespace zolo::test {

std::string RecordingTest::RecordingPath(const std::string& relative) {
  RecordingDb::Instance()->Connect();
  std::string path = RecordingDb::Instance()->Folder() + "/" + relative;
  RecordingDb::Instance()->Release(false);
  return path;
}

int RecordingTest::AddRecording(const std::string& name, uint64_t at, int videos, bool finished,
                                const std::string& status, const std::string& bookmarks) {
  RecordingDb::Instance()->Connect();
  Recording recording;
  recording.name(name);
  recording.file_name(name + "/" + name + ".mp4");
  recording.recorded_at(at);
  recording.finished_at(finished ? at + 60 * videos : 0);
  recording.duration(60000ull * videos);
  recording.status(status);
  Recording::Add(&recording);
  std::string folder = RecordingDb::Instance()->Folder() + "/" + name;
  for (int i = 1; i <= videos; ++i) {
    Video video;
    video.recording_id(recording.id());
    video.directory(name);
    video.file_name(name + "_" + std::to_string(i) + ".mp4");
    video.started_at(at + 60 * (i - 1));
    video.duration(60000);
    video.finished_at(finished ? at + 60 * i : 0);
    video.number(i);
    Video::Add(&video);
    sandbox_->WriteFile(folder.substr(sandbox_->root().size()) + "/" + video.file_name(), "frames");
  }
  if (!bookmarks.empty())
    sandbox_->WriteFile(folder.substr(sandbox_->root().size()) + "/bookmark.json", bookmarks);
  RecordingDb::Instance()->Release(false);
  return recording.id();
}

}  // namespace zolo::test
