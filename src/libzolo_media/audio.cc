// Audio ports: stored settings merged with the engine's live state, and the port commands.
#include <cjson/cJSON.h>
#include <zolo/media/audio.h>
#include <zolo_model/channel.h>
#include <zolo_model/media_model.h>
#include <zolo_model/mixer.h>
#include <zolo_model/stream.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "common/json_holder.h"
#include "libzolo_media/media_call.h"

namespace {

using Json = zolo::JsonHolder;

// Copies `text` into a zeroed field, cut to its capacity.
template <size_t N>
void CopyText(char (&field)[N], const char* text) {
  if (text != nullptr) std::memcpy(field, text, std::min(std::strlen(text), N - 1));
}

// The number `key` of a port's reply object; `absent` when missing or not a number.
int Number(const cJSON* port, const char* key, int absent) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(port, key);
  if (cJSON_IsNumber(item)) return item->valueint;
  if (cJSON_IsBool(item)) return cJSON_IsTrue(item) ? 1 : 0;
  return absent;
}

// The reply object of the port named like `stream`, or null.
const cJSON* PortOf(const cJSON* reply, const Stream& stream) {
  const cJSON* port = cJSON_GetObjectItemCaseSensitive(reply, stream.name().c_str());
  return cJSON_IsObject(port) ? port : nullptr;
}

// Fills what inputs and outputs share.
zm_audio_info& AppendPort(const Stream& stream, const cJSON* port,
                          std::vector<zm_audio_info>* out) {
  zm_audio_info& record = out->emplace_back();  // value-initialised: all zero
  CopyText(record.name, stream.name().c_str());
  record.volume = stream.ObtainParameter("volume", -1);
  record.mute = stream.ObtainParameter("mute", -1);
  record.audio_type = stream.ObtainParameter("audio_type", -1);
  record.level = Number(port, "level", 0);
  record.left = Number(port, "left", 0);
  record.right = Number(port, "right", 0);
  return record;
}

// Runs the engine read `method`, keeping its reply.
int ReadPorts(const char* method, Json* reply) {
  cJSON* raw = nullptr;
  int result = zm_call_media_method(method, nullptr, &raw, zolo::kCallTimeout);
  reply->reset(raw);
  return result;
}

// The channel an output's mixer membership is told by: "Audio-Mix", else "Audio-Usb".
// Looked up once per read.
class MembershipChannel {
 public:
  Channel* Get() {
    if (!looked_up_) {
      looked_up_ = true;
      for (const char* name : {"Audio-Mix", "Audio-Usb"}) {
        Channel* found = nullptr;
        if (Channel::QueryByName(name, &found) == 0 && found != nullptr) {
          channel_.reset(found);
          break;
        }
      }
    }
    return channel_.get();
  }

 private:
  bool looked_up_ = false;
  std::unique_ptr<Channel> channel_;
};

int MixerMember(const Stream& stream, MembershipChannel* membership) {
  const Channel* own = stream.channel();
  if (own == nullptr || own->name().find("Audio-Out") == std::string::npos) return -1;
  Channel* channel = membership->Get();
  if (channel == nullptr) return 0;
  std::unique_ptr<Mixer> mixer(query_mixer_from_audio_stream(stream.name()));
  if (!mixer) return -1;
  const MixerConfig* config = mixer->config();
  return config != nullptr && config->IsAudioSourceContain(channel->id()) ? 1 : 0;
}

bool Missing(const char* name) {
  return name == nullptr || *name == '\0';
}

// Sends `method` {"name": name, then the members `fill` adds}.
template <class Fill>
int PortCommand(const char* method, const char* name, Fill fill) {
  Json payload(cJSON_CreateObject());
  cJSON_AddStringToObject(payload.get(), "name", name);
  fill(payload.get());
  return zm_call_media_method(method, payload.get(), nullptr, zolo::kCallTimeout);
}

int NumberCommand(const char* method, const char* name, const char* key, int value) {
  return PortCommand(
      method, name, [key, value](cJSON* payload) { cJSON_AddNumberToObject(payload, key, value); });
}

// Appends one record per input stream (no destination) that the engine's reply reports.
void zm_get_input_results(const std::vector<Stream*>& streams, const cJSON* reply,
                          std::vector<zm_audio_info>* out) {
  for (const Stream* stream : streams) {
    if (!stream->destination().empty()) continue;
    const cJSON* port = PortOf(reply, *stream);
    if (port == nullptr) continue;
    zm_audio_info& record = AppendPort(*stream, port, out);
    record.status = Number(port, "status", -1);
    record.mode = Number(port, "mode", -1);
    CopyText(record.version,
             cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(port, "version")));
    CopyText(record.device_name,
             cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(port, "device_name")));
    record.gain = stream->ObtainParameter("gain", -100);
    record.noise_reduction = stream->ObtainParameter("noise_reduction", -1);
    record.xlr_channel = stream->ObtainParameter("xlr_channel", -1);
    record.xlr_power = stream->ObtainParameter("xlr_power", -1);
  }
}

}  // namespace

int zm_get_audio_input(const char* name, std::vector<zm_audio_info>* out) {
  if (out == nullptr) return -3;
  Json reply;
  int result = ReadPorts("get_audio_input_info", &reply);
  if (result != 0) return result;
  std::vector<Stream*> audio;
  std::vector<Stream*> playback;
  int audio_result = Stream::QueryByTypeName("audio", name, true, &audio);
  int playback_result = Stream::QueryByTypeName("playback", name, true, &playback);
  if (audio_result == 0 || playback_result == 0) {
    zm_get_input_results(audio, reply.get(), out);
    zm_get_input_results(playback, reply.get(), out);
  }
  MediaModel::CleanQuery(&audio);
  MediaModel::CleanQuery(&playback);
  return audio_result == 0 || playback_result == 0 ? 0 : -5;
}

int zm_get_audio_output(const char* name, std::vector<zm_audio_info>* out) {
  if (out == nullptr) return -3;
  Json reply;
  int result = ReadPorts("get_audio_output_info", &reply);
  if (result != 0) return result;
  std::vector<Stream*> streams;
  if (Stream::QueryByTypeName("audio", name, true, &streams) != 0) {
    MediaModel::CleanQuery(&streams);
    return -5;
  }
  MembershipChannel membership;
  for (const Stream* stream : streams) {
    if (stream->destination().empty()) continue;
    const cJSON* port = PortOf(reply.get(), *stream);
    if (port == nullptr) continue;
    zm_audio_info& record = AppendPort(*stream, port, out);
    record.monitor_mode = stream->ObtainParameter("monitor_mode", -1);
    record.monitor_duration_threshold = stream->ObtainParameter("monitor_duration_threshold", -1);
    record.monitor_level_threshold = stream->ObtainParameter("monitor_level_threshold", -1);
    record.warning_triggered = Number(port, "warning_triggered", 0) != 0 ? 1 : 0;
    record.mixer_member = MixerMember(*stream, &membership);
  }
  MediaModel::CleanQuery(&streams);
  return 0;
}

int zm_set_audio_input(const char* name, int volume, int mute) {
  if (Missing(name) || (volume < 0 && mute < 0)) return -3;
  return PortCommand("set_audio_input_volume", name, [volume, mute](cJSON* payload) {
    cJSON_AddNumberToObject(payload, "volume", volume);
    cJSON_AddNumberToObject(payload, "mute", mute);
  });
}

int zm_set_audio_input_type(const char* name, int type) {
  if (Missing(name) || type < 1) return -3;
  return NumberCommand("set_audio_input_type", name, "type", type);
}

int zm_set_audio_input_gain(const char* name, int gain) {
  if (Missing(name)) return -3;
  return NumberCommand("set_audio_input_gain", name, "gain", gain);
}

int zm_set_audio_input_noise_reduction(const char* name, int level) {
  if (Missing(name) || level < 0) return -3;
  return NumberCommand("set_audio_input_noise_reduction", name, "level", level);
}

int zm_set_audio_input_xlr_channel(const char* name, int mode) {
  if (Missing(name) || mode < 0) return -3;
  return NumberCommand("set_audio_input_xlr_channel", name, "mode", mode);
}

int zm_set_audio_input_xlr_power(const char* name, int mode) {
  if (Missing(name) || mode < 0) return -3;
  return NumberCommand("set_audio_input_xlr_power", name, "mode", mode);
}

int zm_set_audio_input_mode(const char* name, int mode) {
  if (Missing(name) || mode < 0) return -3;
  return NumberCommand("set_audio_input_mode", name, "mode", mode);
}

int zm_set_audio_input_hw_loop_through(const char* name, bool enable) {
  // No argument is checked here: the engine answers for a missing or unknown name.
  return PortCommand("set_audio_input_hw_loopthrough", name, [enable](cJSON* payload) {
    cJSON_AddBoolToObject(payload, "enable", enable);
  });
}

int zm_set_audio_output(const char* name, int volume, int mute) {
  if (Missing(name)) return -3;
  return PortCommand("set_audio_output_volume", name, [volume, mute](cJSON* payload) {
    cJSON_AddNumberToObject(payload, "volume", volume);
    cJSON_AddNumberToObject(payload, "mute", mute);
  });
}

int zm_set_audio_output_type(const char* name, int type) {
  if (Missing(name) || type < 0) return -3;
  return NumberCommand("set_audio_output_type", name, "type", type);
}

int zm_set_audio_output_monitor(const char* name, int mode, int duration_threshold,
                                int level_threshold) {
  if (Missing(name) || mode < 0 || duration_threshold < 1 || level_threshold < 1) return -3;
  return PortCommand("set_audio_output_monitor", name,
                     [mode, duration_threshold, level_threshold](cJSON* payload) {
                       cJSON_AddNumberToObject(payload, "mode", mode);
                       cJSON_AddNumberToObject(payload, "duration_threshold", duration_threshold);
                       cJSON_AddNumberToObject(payload, "level_threshold", level_threshold);
                     });
}
