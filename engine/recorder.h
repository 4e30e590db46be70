// The recording in progress, shared by the stream methods (start, pause, resume, stop) and
// the recording methods (bookmarks taken while recording).
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "recording_writer.h"
#include "zolo_media_sim.h"

namespace zolo::sim {

struct Recorder {
  using Clock = std::chrono::steady_clock;

  // Its file streams, when it started, the seconds recorded so far (pauses excluded), when
  // the next second is due, and the bookmarks taken so far.
  long started = 0;
  std::vector<RecordedFile> files;
  int recorded_seconds = 0;
  Clock::time_point next_second;
  std::vector<Bookmark> bookmarks;
  int bookmarks_taken = 0;  // numbers the bookmarks that ask for a counter

  // Milliseconds into the recording now: the whole seconds recorded plus the part of the
  // current one (which stands still while paused).
  uint64_t ElapsedMs(int state) const;
  void EmitStatus(MediaSimulator& sim, const char* status) const;
  // While recording: "streaming_duration" of every file stream once a second.
  int Tick(MediaSimulator& sim);
};

}  // namespace zolo::sim
