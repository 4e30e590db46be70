// Playback of media files into the mixer output, and the ringtone: thin engine calls.
#include <cjson/cJSON.h>
#include <zolo/media/frame.h>
#include <zolo/media/mixer_live.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "libzolo_media/media_call.h"
#include "common/json_holder.h"

namespace {

using Json = zolo::JsonHolder;

// Playback needs an engine that is up: states 0 and 2 refuse it.
bool EngineReady() {
  int state = zm_get_state(nullptr);
  return state != 0 && state != 2;
}

int Call(const char* method, const Json& payload) {
  return zm_call_media_method(method, payload.get(), nullptr, zolo::kCallTimeout);
}

void AddUrl(cJSON* payload, const char* uri) {
  char url[512];
  if (std::strncmp(uri, "file://", 7) == 0)
    std::snprintf(url, sizeof url, "%s", uri);
  else
    std::snprintf(url, sizeof url, "file://%s", uri);
  cJSON_AddStringToObject(payload, "uri", url);
}

// Positions are unsigned; converted as such so large values stay positive.
void AddTime(cJSON* payload, uint64_t time) {
  cJSON_AddNumberToObject(payload, "time", static_cast<double>(time));
}

int Bare(const char* method, bool check_state) {
  if (check_state && !EngineReady()) return -4;
  return zm_call_media_method(method, nullptr, nullptr, zolo::kCallTimeout);
}

}  // namespace

int zm_playback(const char* uri, uint64_t time, int show_layout, bool loop) {
  if (!EngineReady()) return -4;
  Json payload(cJSON_CreateObject());
  if (uri != nullptr) AddUrl(payload.get(), uri);
  AddTime(payload.get(), time);
  cJSON_AddNumberToObject(payload.get(), "show_layout", show_layout);
  cJSON_AddNumberToObject(payload.get(), "loop", loop ? 1 : 0);
  return Call("playback", payload);
}

int zm_change_playback(const char* uri, uint64_t time, bool loop) {
  if (uri == nullptr) return -3;
  if (!EngineReady()) return -4;
  Json payload(cJSON_CreateObject());
  AddUrl(payload.get(), uri);
  AddTime(payload.get(), time);
  cJSON_AddNumberToObject(payload.get(), "loop", loop ? 1 : 0);
  return Call("change_playback", payload);
}

int zm_pause_playback() {
  return Bare("pause_playback", true);
}

int zm_resume_playback() {
  return Bare("resume_playback", true);
}

int zm_stop_playback() {
  return Bare("stop_playback", true);
}

int zm_seek_playback(uint64_t time) {
  if (!EngineReady()) return -4;
  Json payload(cJSON_CreateObject());
  AddTime(payload.get(), time);
  return Call("seek_playback", payload);
}

int zm_get_playback_state(std::string* state) {
  if (state == nullptr) return -3;
  cJSON* raw = nullptr;
  int result = zm_call_media_method("get_playback_state", nullptr, &raw, zolo::kCallTimeout);
  Json reply(raw);
  if (result != 0) return result;
  const cJSON* item = cJSON_GetObjectItem(reply.get(), "state");
  *state = cJSON_IsString(item) ? item->valuestring : "";
  return 0;
}

int zm_set_playback_mode(int mode) {
  if (static_cast<unsigned>(mode) > 3u) return -3;
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), "mode", mode);
  return Call("set_playback_mode", payload);
}

int zm_play_ringtone() {
  return Bare("play_ringtone", false);
}

int zm_stop_ringtone() {
  return Bare("stop_ringtone", false);
}
