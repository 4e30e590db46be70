// What the engine's method families share: reply building, request parsing, and the
// function each family file exports to register its methods on the simulator.
#pragma once

#include <cjson/cJSON.h>

#include <memory>
#include <string>

#include "zolo_media_sim.h"

namespace zolo::sim {

using JsonPtr = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

// The reply text {"code": code, …} with the members of `extra` (taken over; may be null).
std::string Reply(int code, cJSON* extra = nullptr);
// The request payload parsed; holds null when it is not JSON.
JsonPtr ParsePayload(const std::string& payload);
// The string member `name` of `object`, or "" when absent or not a string.
std::string StringOf(const cJSON* object, const char* name);

// One function per family, each in its <family>_methods.cc.
void RegisterFrameMethods(MediaSimulator& sim);
void RegisterStreamMethods(MediaSimulator& sim);
void RegisterSourceMethods(MediaSimulator& sim);
void RegisterAudioMethods(MediaSimulator& sim);
void RegisterStorageInfoMethods(MediaSimulator& sim);
void RegisterMixerMethods(MediaSimulator& sim);
void RegisterPlaybackMethods(MediaSimulator& sim);

}  // namespace zolo::sim
