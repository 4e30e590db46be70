// What the engine's method families share: reply building, request parsing, and the
// function each family file exports to register its methods on the simulator.
#pragma once

#include <cjson/cJSON.h>

#include <memory>
#include <string>

#include "common/json_holder.h"
#include "zolo_media_sim.h"

namespace zolo::sim {

using JsonPtr = zolo::JsonHolder;

// The reply text {"code": code, …} with the members of `extra` (taken over; may be null).
std::string Reply(int code, cJSON* extra = nullptr);
// The request payload parsed; holds null when it is not JSON.
JsonPtr ParsePayload(const std::string& payload);
// The string member `name` of `object`, or "" when absent or not a string.
std::string StringOf(const cJSON* object, const char* name);

// A snapshot taken on request: its row, one JPEG image of `width` x `height` (the program's
// picture from `media`) and the image's row in the recording database. 0 with its id in
// `*snapshot_id`, or -1.
int TakeSnapshot(MediaBackend& media, int width, int height, int* snapshot_id);

// Writes a width x height I420 frame of colour bars shifted by `seed` as a JPEG file at
// `path` (through a raw frame file beside it). 0, or -1.
int WriteStillJpeg(const std::string& path, int width, int height, int seed);

// One function per family, each in its <family>_methods.cc.
void RegisterFrameMethods(MediaSimulator& sim);
struct Recorder;
void RegisterStreamMethods(MediaSimulator& sim, const std::shared_ptr<Recorder>& recorder);
void RegisterSourceMethods(MediaSimulator& sim);
void RegisterAudioMethods(MediaSimulator& sim);
void RegisterStorageInfoMethods(MediaSimulator& sim);
// Bookmarks taken while `recorder` records, bookmark-file announcements and snapshots.
void RegisterRecordingMethods(MediaSimulator& sim, const std::shared_ptr<Recorder>& recorder);
void RegisterMixerMethods(MediaSimulator& sim);
void RegisterPlaybackMethods(MediaSimulator& sim);

}  // namespace zolo::sim
