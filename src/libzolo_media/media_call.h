// Internal: the one synchronous call to the media engine and the shared process state.
#pragma once

#include <cjson/cJSON.h>
#include <zolo/config.h>
#include <zolo_bus.h>

#include <string>

namespace zolo {

// Timeouts (seconds) of engine calls: stream start, pause, resume and stop wait longer.
inline constexpr unsigned kStreamCallTimeout = 32;
inline constexpr unsigned kCallTimeout = 8;

// Kinds of object named by "change_media_data".
enum class DataKind {
  kChannel = 0,
  kSource = 1,
  kStream = 2,
  kRecording = 3,
  kSnapshot = 4,
  kImage = 5,
  kOverlay = 6,
  kBackground = 7,
  kLayout = 8,
  kTheme = 9,
  kUserSource = 10,
  kAudioMixer = 11,
  kIntermission = 12,
  kCodecPreset = 13,
  kChannelUserSources = 14,
};
enum class ChangeType { kAdded = 0, kChanged = 1, kRemoved = 2 };

// The process-wide configuration ("/etc/media.conf" below the sandbox root).
Config& MediaConfig();
// The library's bus client, or null before zm_init.
bus_client* MediaBusClient();
// The firmware variable "movie_resource", -1 when unknown.
int MovieResource();
// Value of a library option, `fallback` when unset.
int MediaOption(int option, int fallback);

// Sends `method` with `payload` (kept by the caller; may be null) to the engine and maps
// the reply's "code" through the result-code table. With `reply`, the parsed reply is
// handed over (delete with cJSON_Delete); it stays null when there was none.
}  // namespace zolo

// (internal) see above.
int zm_call_media_method(const char* method, const cJSON* payload, cJSON** reply, unsigned timeout);

namespace zolo {
// Sends "change_media_data" {"type", "data", "id"}; the engine's answer is returned but
// callers usually ignore it.
int NotifyMediaDataChange(ChangeType type, DataKind kind, int id);

// Throws the standard library's logic error for a null C string, as constructing a
// std::string from it would.
void RequireText(const char* text);

}  // namespace zolo
