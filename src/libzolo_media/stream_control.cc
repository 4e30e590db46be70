// Stream control: start, pause, resume and stop under the engine-state rules, network
// streams with their NDI preview companion, live status, and the streams' database flags.
#include <cjson/cJSON.h>
#include <zolo/media/frame.h>
#include <zolo/media/streams.h>
#include <zolo_model/channel.h>
#include <zolo_model/media_model.h>
#include <zolo_model/source.h>
#include <zolo_model/stream.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "common/json_holder.h"
#include "common/log.h"
#include "libzolo_media/media_call.h"
#include "libzolo_media/stream_writes.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";

using Json = zolo::JsonHolder;

// Which reply members a call copies into its records.
enum ReplyField : unsigned {
  kName = 1,
  kChannel = 2,
  kDestination = 4,
  kType = 8,
  kStart = 16,
  kStop = 32,
  kDuration = 64,
  kError = 128,
};

template <size_t N>
void CopyMember(char (&field)[N], const cJSON* item, const char* key) {
  const cJSON* value = cJSON_GetObjectItem(item, key);
  std::snprintf(field, N, "%s", cJSON_IsString(value) ? value->valuestring : "");
}

int IntMember(const cJSON* item, const char* key, int absent) {
  const cJSON* value = cJSON_GetObjectItem(item, key);
  return cJSON_IsNumber(value) ? value->valueint : absent;
}

// Appends one record per item of the reply's "Streams" array.
void AppendStreams(const cJSON* reply, unsigned fields, std::vector<zm_stream>* out) {
  if (out == nullptr) return;
  const cJSON* streams = cJSON_GetObjectItem(reply, "Streams");
  if (!cJSON_IsArray(streams)) return;
  for (const cJSON* item = streams->child; item != nullptr; item = item->next) {
    zm_stream record;
    std::memset(&record, 0, sizeof record);
    if (fields & kName) CopyMember(record.name, item, "Name");
    if (fields & kChannel) CopyMember(record.channel_name, item, "Channel");
    if (fields & kDestination) CopyMember(record.destination, item, "Destination");
    if (fields & kType) CopyMember(record.type, item, "Type");
    if (fields & kStart) record.start_time = IntMember(item, "StartTime", -1);
    if (fields & kStop) record.stop_time = IntMember(item, "StopTime", 0);
    if (fields & kDuration) record.duration = IntMember(item, "Duration", 0);
    if (fields & kError) record.error = IntMember(item, "Error", 0);
    out->push_back(record);
  }
}

bool StateAllows(std::initializer_list<int> states) {
  int state = zm_get_state(nullptr);
  for (int allowed : states)
    if (state == allowed) return true;
  return false;
}

Json PersistPayload(bool persist) {
  Json payload(cJSON_CreateObject());
  cJSON_AddBoolToObject(payload.get(), "persist", persist);
  return payload;
}

bool NdiPreviewCompanionWanted() {
  int32_t wanted = 0;
  zolo::MediaConfig().GetInt32("Engine", "add_ndi_preview_stream_simultaneously", 0, &wanted);
  return wanted != 0;
}

bool IsHevcOrAvc(const Stream* stream) {
  const CodecParameterPreset* preset = stream->codec_parameter_preset();
  if (preset == nullptr) return false;
  return preset->video_codec_name() == "H.264" || preset->video_codec_name() == "H.265";
}

// Starts or stops a network stream, then its NDI preview companion where configured.
int NetworkStreams(const char* method, bool stop, const char* name, std::vector<zm_stream>* out) {
  if (name == nullptr) return -3;
  Json payload(cJSON_CreateObject());
  cJSON_AddStringToObject(payload.get(), "name", name);
  cJSON* raw_reply = nullptr;
  int result = zm_call_media_method(method, payload.get(), &raw_reply, zolo::kCallTimeout);
  Json reply(raw_reply);
  if (result == 0)
    AppendStreams(reply.get(),
                  kName | kChannel | kDestination | kStart | (stop ? unsigned{kStop} : 0u), out);
  if (!NdiPreviewCompanionWanted()) return result;

  const cJSON* streams = cJSON_GetObjectItem(reply.get(), "Streams");
  std::string ndi_name;
  bool found = false;
  for (const cJSON* item = cJSON_IsArray(streams) ? streams->child : nullptr; item != nullptr;
       item = item->next) {
    const cJSON* destination = cJSON_GetObjectItem(item, "Destination");
    if (cJSON_IsString(destination) && std::strstr(destination->valuestring, "ndi://")) {
      const cJSON* item_name = cJSON_GetObjectItem(item, "Name");
      ndi_name = cJSON_IsString(item_name) ? item_name->valuestring : "";
      found = true;
      break;
    }
  }
  if (!found) return result;
  ZLOG_AS(stop ? "zm_stop_network_streams" : "zm_start_network_streams", 2,
          "ndi_main_stream_name is %s", ndi_name.c_str());
  std::vector<Stream*> network;
  if (Stream::QueryByTypeName("network", ndi_name.c_str(), true, &network) < 0) {
    MediaModel::CleanQuery(&network);
    return result;
  }
  for (Stream* stream : network) {
    const CodecParameterPreset* preset = stream->codec_parameter_preset();
    if (stop)
      ZLOG_AS("zm_stop_network_streams", 2, "video codec name is %s",
              preset ? preset->video_codec_name().c_str() : "");
    if (!IsHevcOrAvc(stream)) continue;
    ZLOG_AS(stop ? "zm_stop_network_streams" : "zm_start_network_streams", 2,
            stop ? "stop preview-ndi-sub" : "start preview-ndi-sub");
    Json companion(cJSON_CreateObject());
    cJSON_AddStringToObject(companion.get(), "name", "preview-ndi-sub");
    zm_call_media_method(method, companion.get(), nullptr, zolo::kCallTimeout);
  }
  MediaModel::CleanQuery(&network);
  return result;
}

}  // namespace

int zm_start_stream(std::vector<zm_stream>* out, bool persist,
                    const std::map<std::string, std::string>* filenames) {
  if (!StateAllows({1, 4})) return -4;
  Json payload = PersistPayload(persist);
  if (filenames != nullptr) {
    cJSON* list = cJSON_AddArrayToObject(payload.get(), "filenames");
    for (const auto& [stream, filename] : *filenames) {
      cJSON* entry = cJSON_CreateObject();
      cJSON_AddStringToObject(entry, "stream", stream.c_str());
      cJSON_AddStringToObject(entry, "filename", filename.c_str());
      cJSON_AddItemToArray(list, entry);
    }
  }
  cJSON* raw_reply = nullptr;
  int result =
      zm_call_media_method("start_streams", payload.get(), &raw_reply, zolo::kStreamCallTimeout);
  Json reply(raw_reply);
  if (result != 0) return result;
  AppendStreams(reply.get(), kName | kChannel | kDestination | kStart, out);
  return 0;
}

int zm_pause_stream(bool persist) {
  if (!StateAllows({3})) return -4;
  return zm_call_media_method("pause_streams", PersistPayload(persist).get(), nullptr,
                              zolo::kStreamCallTimeout);
}

int zm_resume_stream(bool persist) {
  if (!StateAllows({4})) return -4;
  return zm_call_media_method("resume_streams", PersistPayload(persist).get(), nullptr,
                              zolo::kStreamCallTimeout);
}

int zm_stop_stream(std::vector<zm_stream>* out, unsigned* recording_id, bool persist) {
  if (!StateAllows({3, 4})) return -4;
  cJSON* raw_reply = nullptr;
  int result = zm_call_media_method("stop_streams", PersistPayload(persist).get(), &raw_reply,
                                    zolo::kStreamCallTimeout);
  Json reply(raw_reply);
  if (result != 0) return result;
  AppendStreams(reply.get(), kName | kChannel | kDestination | kStart | kStop, out);
  if (recording_id != nullptr)
    *recording_id = static_cast<unsigned>(IntMember(reply.get(), "Recording", 0));
  return 0;
}

int zm_start_network_streams(const char* name, std::vector<zm_stream>* out) {
  return NetworkStreams("start_network_streams", false, name, out);
}

int zm_stop_network_streams(const char* name, std::vector<zm_stream>* out) {
  return NetworkStreams("stop_network_streams", true, name, out);
}

int zm_get_streaming_status(std::vector<zm_stream>* out) {
  if (out == nullptr) return -3;
  cJSON* raw_reply = nullptr;
  int result = zm_call_media_method("get_stream_status", nullptr, &raw_reply, zolo::kCallTimeout);
  Json reply(raw_reply);
  if (result != 0) return result;
  AppendStreams(reply.get(), kName | kType | kDestination | kDuration | kError, out);
  return 0;
}

int zm_enable_stream(const char* name, int enable) {
  if (name == nullptr) return -3;
  int result = zolo::UpdateStreams(
      [name](std::vector<Stream*>* s) { return Stream::QueryByTypeName(nullptr, name, true, s); },
      [enable](Stream* s) { s->enable(enable != 0); }, true);
  if (result != 0) return result;
  if (std::strcmp(name, "preview") == 0)
    zolo::UpdateStreams(
        [](std::vector<Stream*>* s) { return Stream::QueryByPattern("preview_", true, s); },
        [enable](Stream* s) { s->enable(enable != 0); }, false);
  return 0;
}

// Sets the first three flags of the streams matching `pattern`, and the fourth when
// `set_option3`.
static int EnableByPattern(const char* pattern, int enable, int option1, int option2,
                           bool set_option3, int option3) {
  if (pattern == nullptr) return -3;
  return zolo::UpdateStreams(
      [pattern](std::vector<Stream*>* s) { return Stream::QueryByPattern(pattern, true, s); },
      [=](Stream* s) {
        s->enable(enable != 0);
        s->enable_option(1, option1 != 0);
        s->enable_option(2, option2 != 0);
        if (set_option3) s->enable_option(3, option3 != 0);
      },
      true);
}

int zm_enable_stream(const char* pattern, int enable, int option1, int option2) {
  return EnableByPattern(pattern, enable, option1, option2, false, 0);
}

int zm_enable_stream(const char* pattern, int enable, int option1, int option2, int option3) {
  return EnableByPattern(pattern, enable, option1, option2, true, option3);
}

int zm_suspend_stream(const char* pattern, int suspend) {
  if (pattern == nullptr) return -3;
  return zolo::UpdateStreams(
      [pattern](std::vector<Stream*>* s) { return Stream::QueryByPattern(pattern, true, s); },
      [suspend](Stream* s) {
        s->suspend(suspend != 0);
        ZLOG_AS("zm_suspend_stream", 3, "stream %s suspend %d", s->name().c_str(), suspend);
      },
      true);
}

int zm_remove_stream(int id) {
  if (id < 1) return -3;
  Stream* stream = nullptr;
  if (Stream::QueryById(id, true, &stream) < 0) return -5;
  bool ndi = IsHevcOrAvc(stream) && stream->destination().find("ndi://") != std::string::npos;
  delete stream;
  int removed = Stream::Remove(id);
  if (removed != 0) return removed;
  if (ndi && NdiPreviewCompanionWanted()) {
    zolo::UpdateStreams(
        [](std::vector<Stream*>* s) { return Stream::QueryByDestPattern("ndi://%", false, s); },
        [](Stream* s) {
          ZLOG_AS("zm_remove_stream", 2, "Disable NDI|HX preview stream: %s", s->name().c_str());
          s->enable(false);
        },
        false);
  }
  zolo::NotifyMediaDataChange(zolo::ChangeType::kRemoved, zolo::DataKind::kStream, id);
  return 0;
}

namespace {

// The recording-mode switches: the first enable flag of each file stream that `belongs`
// selects, saved and announced one by one.
template <class Belongs>
int EnableFileStreams(bool enable, Belongs belongs) {
  return zolo::UpdateStreams(
      [](std::vector<Stream*>* s) { return Stream::QueryByTypeName("file", nullptr, true, s); },
      [&](Stream* s) {
        if (!belongs(s->channel())) return false;
        s->enable(enable);
        return true;
      },
      true);
}

// An input channel shows a capture, USB or network input: a device source of such a kind,
// or a user source (a network camera).
bool IsInputChannel(const Channel* channel) {
  if (channel == nullptr || channel->name() == "Movie") return false;
  if (channel->video_user_source() != nullptr) return true;
  const ChannelSource* source = channel->video_source();
  if (source == nullptr) return false;
  const std::string& category = source->category();
  return category == "capture" || category == "usb" || category == "network" ||
         category == "listener";
}

}  // namespace

int zm_enable_movie_file_stream(bool enable) {
  return EnableFileStreams(enable, [](const Channel* channel) {
    return channel != nullptr && channel->name() == "Movie";
  });
}

int zm_enable_channel_file_stream(bool enable) {
  return EnableFileStreams(enable, IsInputChannel);
}
