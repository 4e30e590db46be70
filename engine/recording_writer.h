// What the engine leaves behind when a recording stops: a recording row with one video
// row per file stream in the recording database, the video files under the recording's
// folder, its "information.json" and its "bookmark.json" with the stills of its bookmarks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zolo::sim {

struct RecordedFile {
  std::string stream;     // the file stream's name
  std::string file_name;  // the name asked for at start, or "" for the stream's own
};

// One bookmark taken while recording.
struct Bookmark {
  uint64_t time = 0;  // milliseconds into the recording
  std::string text;
  std::string still;  // file name of its still under "bookmark_snapshots", or ""
  std::string category;
  std::string description;
};

// Folder name of a recording's bookmark stills, inside the recording's folder.
constexpr const char* kBookmarkStillFolder = "bookmark_snapshots";

// Where stills taken during a recording wait until the recording's folder exists.
std::string PendingStillFolder();

// The text of "bookmark.json": the array of bookmarks, unformatted, then a newline.
std::string BookmarkFileText(const std::vector<Bookmark>& bookmarks);

// Writes the recording of `files`, started at `started` (seconds since the epoch) and
// recorded for `duration_ms`, with `bookmarks` (their stills moved from the pending
// folder). The recording's id, or 0 when the recording database cannot be written;
// `*name` receives the recording's name.
int WriteRecording(const std::vector<RecordedFile>& files, int64_t started, uint64_t duration_ms,
                   const std::vector<Bookmark>& bookmarks, std::string* name);

}  // namespace zolo::sim
