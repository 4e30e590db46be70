// Stream: an output of the engine (table "stream"). So far the storage budget's needs:
// the total bitrate of the recording files.
#pragma once

#include <cstdint>

class Stream {
 public:
  // Sum of the "bitrate" parameters (kilobits per second) of the enabled, not suspended
  // file streams written to the sub storage (`sub`) or the main storage. 0 when there are
  // none or the database cannot be read.
  static uint64_t TotalFileBitrate(bool sub);
};
