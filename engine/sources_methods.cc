// The engine's source and channel methods: what each channel's input is connected to, its
// rotation, audio delay and analogue adjustment (live state, kept here), and still pictures
// of a channel written as real JPEG files.
#include <zolo/sysroot.h>
#include <zolo/yuvjpeg.h>
#include <zolo_model/channel.h>
#include <zolo_model/source.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <vector>

#include "engine_methods.h"

namespace zolo::sim {

namespace {

constexpr const char* kSnapshotFolder = "/var/lib/zolo/media/images/snapshot";
constexpr int kMaxSnapshotSide = 8192;
constexpr int kChangePollMs = 200;

// Codes the engine answers with.
constexpr int kRefused = -1001;
constexpr int kBadArgument = -1003;
constexpr int kNotFound = -1005;

struct InputState {
  bool connected = true;
  std::string uri;
  std::string sub_uri;
  int rotate = 0;
  int audio_delay = 0;
  int auto_adjust = 1;
  int phase = 0;
  int position = 0;
};

struct Inputs {
  std::map<int, InputState> channels;
  std::map<int, InputState> sources;
};

// The number member `name` of `object` in `*value`; false when absent or not a number.
bool NumberOf(const cJSON* object, const char* name, int* value) {
  const cJSON* item = cJSON_GetObjectItem(object, name);
  if (!cJSON_IsNumber(item)) return false;
  *value = item->valueint;
  return true;
}

// The channel `id` from the media database, or null.
std::unique_ptr<Channel> FindChannel(MediaSimulator& engine, int id) {
  engine.ConnectModel();
  Channel* channel = nullptr;
  if (Channel::QueryById(id, &channel) < 0) return nullptr;
  return std::unique_ptr<Channel>(channel);
}

// Says through "channel_status" whether `channel`'s input has a signal.
void AnnounceStatus(MediaSimulator& engine, const Channel& channel, bool connected) {
  const ChannelSource* source = channel.video_source();
  bool capture = source != nullptr && MediaSource::StringToCategory(source->category()) == 0;
  cJSON* status = cJSON_CreateObject();
  cJSON_AddNumberToObject(status, "Id", channel.id());
  cJSON_AddStringToObject(status, "Name", channel.name().c_str());
  cJSON_AddNumberToObject(status, "Status", connected ? 1 : 0);
  cJSON_AddNumberToObject(status, "Capture", capture ? 1 : 0);
  char* text = cJSON_PrintUnformatted(status);
  engine.Signal("channel_status", text != nullptr ? text : "{}");
  cJSON_free(text);
  cJSON_Delete(status);
}

std::string Snapshot(const std::string& payload, MediaSimulator& engine) {
  JsonPtr request = ParsePayload(payload);
  int channel = 0, width = 0, height = 0;
  std::string uri = StringOf(request.get(), "uri");
  if (!NumberOf(request.get(), "channel", &channel) || !NumberOf(request.get(), "width", &width) ||
      !NumberOf(request.get(), "height", &height) || uri.rfind("file://", 0) != 0 || width <= 0 ||
      height <= 0 || width > kMaxSnapshotSide || height > kMaxSnapshotSide)
    return Reply(kBadArgument);
  if (FindChannel(engine, channel) == nullptr) return Reply(kNotFound);
  std::filesystem::path file = uri.substr(7);
  std::error_code error;
  // The engine keeps its own snapshot folder; any other folder must exist already.
  if (file.parent_path() == kSnapshotFolder)
    std::filesystem::create_directories(zolo::SysrootPath(kSnapshotFolder), error);
  const std::string path = zolo::SysrootPath(file.string());
  if (!std::filesystem::is_directory(std::filesystem::path(path).parent_path(), error))
    return Reply(kRefused);
  return engine.media().Snapshot(MediaBackend::Picture::kChannel, channel, width, height, path) == 0
             ? Reply(0)
             : Reply(kRefused);
}

}  // namespace

void RegisterSourceMethods(MediaSimulator& sim) {
  auto inputs = std::make_shared<Inputs>();

  sim.Handle("connect_channel_source", [inputs](const std::string& payload,
                                                MediaSimulator& engine) {
    JsonPtr request = ParsePayload(payload);
    int id = 0, connect = 0;
    if (!NumberOf(request.get(), "channel", &id) || !NumberOf(request.get(), "connect", &connect))
      return Reply(kBadArgument);
    std::unique_ptr<Channel> channel = FindChannel(engine, id);
    if (channel == nullptr) return Reply(kNotFound);
    InputState& state = inputs->channels[id];
    state.connected = connect != 0;
    if (cJSON_IsString(cJSON_GetObjectItem(request.get(), "uri")))
      state.uri = StringOf(request.get(), "uri");
    if (cJSON_IsString(cJSON_GetObjectItem(request.get(), "sub_uri")))
      state.sub_uri = StringOf(request.get(), "sub_uri");
    engine.media().ConnectChannel(id, state.connected, state.uri);
    AnnounceStatus(engine, *channel, state.connected);
    return Reply(0);
  });

  // A real input that gains or loses its picture says so, as a change of connection does.
  sim.AddTicker([](MediaSimulator& engine) {
    for (const ChannelChange& change : engine.media().TakeChannelChanges())
      if (std::unique_ptr<Channel> channel = FindChannel(engine, change.channel))
        AnnounceStatus(engine, *channel, change.signal);
    return kChangePollMs;
  });

  sim.Handle("connect_source", [inputs](const std::string& payload, MediaSimulator& engine) {
    JsonPtr request = ParsePayload(payload);
    int id = 0, connect = 0;
    if (!NumberOf(request.get(), "source", &id) || !NumberOf(request.get(), "connect", &connect))
      return Reply(kBadArgument);
    engine.ConnectModel();
    ChannelSource* found = nullptr;
    if (ChannelSource::QueryById(id, &found) < 0) return Reply(kNotFound);
    delete found;
    InputState& state = inputs->sources[id];
    state.connected = connect != 0;
    if (cJSON_IsString(cJSON_GetObjectItem(request.get(), "uri")))
      state.uri = StringOf(request.get(), "uri");
    if (cJSON_IsString(cJSON_GetObjectItem(request.get(), "sub_uri")))
      state.sub_uri = StringOf(request.get(), "sub_uri");
    return Reply(0);
  });

  // Methods that change one value of a channel's input: the channel key, then the values.
  struct Setter {
    const char* method;
    const char* key;
    std::vector<std::pair<const char*, int InputState::*>> values;
  };
  const Setter setters[] = {
      {"update_channel_param", "channel", {}},
      {"rotate_channel_source", "id", {{"rotate", &InputState::rotate}}},
      {"set_channel_audio_delay", "id", {{"audio_delay", &InputState::audio_delay}}},
      {"set_video_input_param",
       "channel",
       {{"auto_adjust", &InputState::auto_adjust},
        {"phase", &InputState::phase},
        {"position", &InputState::position}}},
  };
  for (const Setter& setter : setters) {
    sim.Handle(setter.method, [inputs, setter](const std::string& payload, MediaSimulator& engine) {
      JsonPtr request = ParsePayload(payload);
      int id = 0;
      std::vector<int> values(setter.values.size());
      if (!NumberOf(request.get(), setter.key, &id)) return Reply(kBadArgument);
      for (size_t i = 0; i < values.size(); ++i)
        if (!NumberOf(request.get(), setter.values[i].first, &values[i]))
          return Reply(kBadArgument);
      if (FindChannel(engine, id) == nullptr) return Reply(kNotFound);
      InputState& state = inputs->channels[id];
      for (size_t i = 0; i < values.size(); ++i) state.*(setter.values[i].second) = values[i];
      return Reply(0);
    });
  }

  sim.Handle("get_video_input_param", [inputs](const std::string& payload, MediaSimulator& engine) {
    JsonPtr request = ParsePayload(payload);
    int id = 0;
    if (!NumberOf(request.get(), "channel", &id)) return Reply(kBadArgument);
    std::unique_ptr<Channel> channel = FindChannel(engine, id);
    if (channel == nullptr) return Reply(kNotFound);
    const InputState& state = inputs->channels[id];
    // A connected input has a signal unless the media know it shows no picture of its own.
    bool signal = state.connected && engine.media().InputSignal(id) != 0;
    // Whoever asks about an input also hears whether it has a signal, as after a change.
    AnnounceStatus(engine, *channel, signal);
    cJSON* reply = cJSON_CreateObject();
    cJSON_AddNumberToObject(reply, "auto_adjust", state.auto_adjust);
    cJSON_AddNumberToObject(reply, "phase", state.phase);
    cJSON_AddNumberToObject(reply, "position", state.position);
    // The rest of the live input state, for whoever looks at the engine directly.
    cJSON_AddNumberToObject(reply, "connected", state.connected ? 1 : 0);
    cJSON_AddNumberToObject(reply, "signal", signal ? 1 : 0);
    cJSON_AddNumberToObject(reply, "rotate", state.rotate);
    cJSON_AddNumberToObject(reply, "audio_delay", state.audio_delay);
    return Reply(0, reply);
  });

  sim.Handle("make_channel_snapshot", Snapshot);
}

}  // namespace zolo::sim
