// What the engine leaves behind when a recording stops: a recording row with one video
// row per file stream in the recording database, the video files under the recording's
// folder, and its "information.json".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zolo::sim {

struct RecordedFile {
  std::string stream;     // the file stream's name
  std::string file_name;  // the name asked for at start, or "" for the stream's own
};

// Writes the recording of `files`, started at `started` (seconds since the epoch) and
// recorded for `duration_ms`. The recording's id, or 0 when the recording database cannot
// be written; `*name` receives the recording's name.
int WriteRecording(const std::vector<RecordedFile>& files, int64_t started, uint64_t duration_ms,
                   std::string* name);

}  // namespace zolo::sim
