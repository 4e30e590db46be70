// Recordings made directly in the recording database, for the recording, snapshot and
// bookmark tests (the engine fixture's sandbox, bus and simulator included).
#pragma once

#include <zolo_model/recording.h>
#include <zolo_model/recording_db.h>

#include <cstdint>
#include <string>

#include "engine_fixture.h"

namespace zolo::test {

class RecordingTest : public EngineTest {
 protected:
  // A recording "<name>" in folder "<name>", started at `at` with `videos` files of 60 s
  // (present on disk), finished unless `finished` is false, with a "bookmark.json" holding
  // `bookmarks` (a JSON array text; "" for no file). Its id.
  int AddRecording(const std::string& name, uint64_t at, int videos = 2, bool finished = true,
                   const std::string& status = "ready", const std::string& bookmarks = "[]");
  // The absolute path of `relative` below the recordings folder.
  std::string RecordingPath(const std::string& relative);
  // Connect/Release pairs not given back; 0 after every library call.
  static int Holders() { return RecordingDb::Instance()->holders(); }
};

}  // namespace zolo::test
