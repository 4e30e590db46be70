// The engine's stream methods: recording (1 idle -> 3 recording <-> 4 paused -> 1 idle) with
// its signals and the recording it leaves behind, live status and network streams.
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <vector>

#include "engine_methods.h"
#include "recorder.h"
#include "recording_writer.h"

namespace zolo::sim {

using Clock = Recorder::Clock;

uint64_t Recorder::ElapsedMs(int state) const {
  uint64_t elapsed = static_cast<uint64_t>(recorded_seconds) * 1000;
  if (state != kRecording) return elapsed;
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next_second - Clock::now());
  long long part = 1000 - static_cast<long long>(left.count());
  return elapsed + static_cast<uint64_t>(part < 0 ? 0 : part > 999 ? 999 : part);
}

void Recorder::EmitStatus(MediaSimulator& sim, const char* status) const {
  for (const RecordedFile& file : files)
    sim.Signal("stream_status", "{\"Name\":\"" + file.stream + "\",\"Status\":\"" + status + "\"}");
}

int Recorder::Tick(MediaSimulator& sim) {
  if (sim.engine_state() != kRecording) return -1;
  auto now = Clock::now();
  if (now >= next_second) {
    ++recorded_seconds;
    for (const RecordedFile& file : files)
      sim.Signal("streaming_duration", "{\"Name\":\"" + file.stream + "\",\"Duration\":" +
                                           std::to_string(recorded_seconds) + ",\"Type\":1}");
    next_second += std::chrono::seconds(1);
    if (next_second <= now) next_second = now + std::chrono::seconds(1);
  }
  return static_cast<int>(
             std::chrono::duration_cast<std::chrono::milliseconds>(next_second - now).count()) +
         1;
}

namespace {

// The streams a start or stop touches: enabled, not suspended file and network streams, or
// the network streams named `name` when one is given.
cJSON* StreamItems(MediaSimulator& sim, const char* name, long start, long stop) {
  sim.ConnectModel();
  cJSON* items = cJSON_CreateArray();
  std::vector<Stream*> streams;
  if (name != nullptr)
    Stream::QueryByTypeName("network", name, true, &streams);
  else
    Stream::QueryByTypeName(nullptr, nullptr, true, &streams);
  for (Stream* stream : streams) {
    if (name == nullptr && (!stream->enable() || stream->suspend() ||
                            (stream->type() != "file" && stream->type() != "network")))
      continue;
    cJSON* item = cJSON_CreateObject();
    cJSON_AddStringToObject(item, "Name", stream->name().c_str());
    cJSON_AddStringToObject(item, "Channel",
                            stream->channel() ? stream->channel()->name().c_str() : "");
    cJSON_AddStringToObject(item, "Destination", stream->destination().c_str());
    cJSON_AddStringToObject(item, "Type", stream->type().c_str());
    cJSON_AddNumberToObject(item, "StartTime", static_cast<double>(start));
    if (stop > 0) cJSON_AddNumberToObject(item, "StopTime", static_cast<double>(stop));
    cJSON_AddNumberToObject(item, "Duration", static_cast<double>(stop > 0 ? stop - start : 0));
    cJSON_AddNumberToObject(item, "Error", 0);
    cJSON_AddItemToArray(items, item);
  }
  MediaModel::CleanQuery(&streams);
  return items;
}

std::string StreamsReply(cJSON* items, int recording = 0) {
  cJSON* reply = cJSON_CreateObject();
  cJSON_AddItemToObject(reply, "Streams", items);
  if (recording > 0) cJSON_AddNumberToObject(reply, "Recording", recording);
  return Reply(0, reply);
}

// The file streams of a "Streams" array, with the file names a start request asked for.
std::vector<RecordedFile> FilesOf(const cJSON* items, const std::string& payload) {
  JsonPtr request = ParsePayload(payload);
  std::map<std::string, std::string> asked;
  const cJSON* entry = nullptr;
  cJSON_ArrayForEach(entry, cJSON_GetObjectItem(request.get(), "filenames")) {
    const cJSON* stream = cJSON_GetObjectItem(entry, "stream");
    const cJSON* file = cJSON_GetObjectItem(entry, "filename");
    if (cJSON_IsString(stream) && cJSON_IsString(file))
      asked[stream->valuestring] = file->valuestring;
  }
  std::vector<RecordedFile> files;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, items) {
    const cJSON* type = cJSON_GetObjectItem(item, "Type");
    const cJSON* name = cJSON_GetObjectItem(item, "Name");
    if (cJSON_IsString(type) && cJSON_IsString(name) && std::strcmp(type->valuestring, "file") == 0)
      files.push_back(RecordedFile{name->valuestring, asked[name->valuestring]});
  }
  return files;
}

}  // namespace

void RegisterStreamMethods(MediaSimulator& sim, const std::shared_ptr<Recorder>& recorder) {
  sim.AddTicker([recorder](MediaSimulator& engine) { return recorder->Tick(engine); });
  sim.Handle("start_streams", [recorder](const std::string& payload, MediaSimulator& engine) {
    int state = engine.engine_state();
    if (state != kIdle && state != kPaused) return Reply(-1004);
    bool fresh = state == kIdle;
    if (fresh) recorder->started = static_cast<long>(time(nullptr));
    cJSON* items = StreamItems(engine, nullptr, recorder->started, 0);
    if (fresh) {
      recorder->files = FilesOf(items, payload);
      recorder->recorded_seconds = 0;
      recorder->bookmarks.clear();
      recorder->bookmarks_taken = 0;
      std::error_code ignored;  // stills of a recording that was never written
      std::filesystem::remove_all(PendingStillFolder(), ignored);
    }
    engine.set_engine_state(kRecording);
    recorder->next_second = Clock::now() + std::chrono::seconds(1);
    engine.Signal("streaming_state", R"({"State":"recording","Flags":""})");
    recorder->EmitStatus(engine, "streaming");
    return StreamsReply(items);
  });
  sim.Handle("pause_streams", [recorder](const std::string&, MediaSimulator& engine) {
    if (engine.engine_state() != kRecording) return Reply(-1004);
    engine.set_engine_state(kPaused);
    engine.Signal("streaming_state", R"({"State":"paused","Flags":""})");
    recorder->EmitStatus(engine, "paused");
    return Reply(0);
  });
  sim.Handle("resume_streams", [recorder](const std::string&, MediaSimulator& engine) {
    if (engine.engine_state() != kPaused) return Reply(-1004);
    engine.set_engine_state(kRecording);
    recorder->next_second = Clock::now() + std::chrono::seconds(1);
    engine.Signal("streaming_state", R"({"State":"recording","Flags":""})");
    recorder->EmitStatus(engine, "streaming");
    return Reply(0);
  });
  sim.Handle("stop_streams", [recorder](const std::string&, MediaSimulator& engine) {
    int state = engine.engine_state();
    if (state != kRecording && state != kPaused) return Reply(-1004);
    engine.set_engine_state(kIdle);
    long now = static_cast<long>(time(nullptr));
    // The recorded length counts the whole seconds spent recording, pauses excluded.
    uint64_t duration_ms = static_cast<uint64_t>(recorder->recorded_seconds) * 1000;
    std::string name;
    int id = recorder->files.empty() ? 0
                                     : WriteRecording(recorder->files, recorder->started,
                                                      duration_ms, recorder->bookmarks, &name);
    if (id > 0) engine.set_last_recording_id(id);
    std::string reply = StreamsReply(StreamItems(engine, nullptr, recorder->started, now), id);
    engine.Signal("streaming_state", R"({"State":"idle","Flags":""})");
    recorder->EmitStatus(engine, "stopped");
    recorder->files.clear();
    recorder->bookmarks.clear();
    if (id > 0) {
      std::string record = "{\"Id\":" + std::to_string(id) + ",\"Name\":\"" + name + "\"}";
      engine.Signal("recording_created", record);
      // Its files are closed and its bookmarks written: the recording can be used.
      engine.Signal("recording_ready", record);
    }
    return reply;
  });
  sim.Handle("get_stream_status", [recorder](const std::string&, MediaSimulator& engine) {
    long now = static_cast<long>(time(nullptr));
    bool active = engine.engine_state() == kRecording || engine.engine_state() == kPaused;
    return StreamsReply(active ? StreamItems(engine, nullptr, recorder->started, now)
                               : cJSON_CreateArray());
  });
  for (const char* method : {"start_network_streams", "stop_network_streams"}) {
    bool stop = std::strcmp(method, "stop_network_streams") == 0;
    sim.Handle(method, [stop](const std::string& payload, MediaSimulator& engine) {
      std::string name = StringOf(ParsePayload(payload).get(), "name");
      if (name.empty()) return Reply(-1003);
      long now = static_cast<long>(time(nullptr));
      return StreamsReply(StreamItems(engine, name.c_str(), now, stop ? now : 0));
    });
  }
}

}  // namespace zolo::sim
