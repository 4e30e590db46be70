// Internal: the text of a bookmark file.
#pragma once

#include <zolo/media/recordings.h>

#include <string>

namespace zolo {

// The file's text: one unformatted JSON array of the items (keys "time", "text",
// "snapshot", "category", "description" in that order), then a newline.
std::string PrintBookmarks(const zm_recording_bookmark& bookmark);

}  // namespace zolo
