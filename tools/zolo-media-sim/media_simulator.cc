#include <cjson/cJSON.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <zolo_bus_names.h>
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <list>
#include <thread>

#include "recording_writer.h"
#include "zolo_media_sim.h"

namespace zolo::sim {

namespace {

using Clock = std::chrono::steady_clock;

std::string Reply(int code, cJSON* extra = nullptr) {
  cJSON* json = extra ? extra : cJSON_CreateObject();
  cJSON_AddNumberToObject(json, "code", code);
  char* text = cJSON_PrintUnformatted(json);
  std::string result = text ? text : "{}";
  cJSON_free(text);
  cJSON_Delete(json);
  return result;
}

struct Delayed {
  Clock::time_point due;
  sd_bus_message* call;  // referenced
  std::string reply;
};

}  // namespace

struct MediaSimulator::Impl {
  mutable std::mutex mutex;  // guards everything below, and the bus
  mutable std::condition_variable requests_changed;
  sd_bus* bus = nullptr;
  sd_bus_slot* object = nullptr;
  std::thread thread;
  int wake_fd = -1;
  std::atomic<bool> stopping{false};
  int state = kIdle;
  std::map<std::string, Handler> handlers;
  std::map<std::string, Forced> forced;
  std::vector<Request> requests;
  std::list<Delayed> delayed;
  std::string database_path;
  long recording_started = 0;
  int last_recording = 0;
  // The recording in progress: its file streams, the names asked for them, the seconds
  // recorded so far (pauses excluded) and when the next second is due.
  std::vector<RecordedFile> recording_files;
  int recorded_seconds = 0;
  Clock::time_point next_second;

  static int OnMessage(sd_bus_message* message, void* user, sd_bus_error* error);
  void Answer(sd_bus_message* call, const std::string& reply);
  void Loop();
  // While recording: "streaming_duration" of every file stream once a second. Returns the
  // milliseconds until the next one is due, or -1 when not recording.
  int Tick();
  // "stream_status" of every file stream of the recording.
  void EmitStreamStatus(const char* status) {
    for (const RecordedFile& file : recording_files)
      EmitLocked("stream_status",
                 "{\"Name\":\"" + file.stream + "\",\"Status\":\"" + status + "\"}");
  }
  // Emits a signal while the mutex is held (from a handler).
  void EmitLocked(const std::string& name, const std::string& payload) {
    sd_bus_emit_signal(bus, "/zolo/media", "zolo.Media.Signal", name.c_str(), "s", payload.c_str());
  }
  void Wake() {
    uint64_t one = 1;
    ssize_t ignored = write(wake_fd, &one, sizeof one);
    (void)ignored;
  }
};

void MediaSimulator::Impl::Answer(sd_bus_message* call, const std::string& reply) {
  sd_bus_reply_method_return(call, "s", reply.c_str());
}

// Every method call on the object comes here (called with `mutex` held by the loop).
int MediaSimulator::Impl::OnMessage(sd_bus_message* message, void* user, sd_bus_error*) {
  auto* self = static_cast<MediaSimulator*>(user);
  Impl& impl = *self->impl_;
  uint8_t type = 0;
  sd_bus_message_get_type(message, &type);
  if (type != SD_BUS_MESSAGE_METHOD_CALL) return 0;
  const char* interface = sd_bus_message_get_interface(message);
  if (interface == nullptr || std::strcmp(interface, "zolo.Media") != 0) return 0;
  std::string method = sd_bus_message_get_member(message);
  const char* payload = "";
  if (sd_bus_message_read(message, "s", &payload) < 0 || payload == nullptr) payload = "";
  impl.requests.push_back(Request{method, payload});
  impl.requests_changed.notify_all();

  auto forced = impl.forced.find(method);
  if (forced != impl.forced.end()) {
    const Forced& f = forced->second;
    std::string reply;
    switch (f.kind) {
      case Forced::kNoReply:
        return 1;  // never answered; the caller's timeout decides
      case Forced::kCode:
        reply = Reply(f.code);
        break;
      case Forced::kNoCode:
        reply = f.reply.empty() ? R"({"result":"ok"})" : f.reply;
        break;
      case Forced::kEmpty:
        break;
    }
    if (f.delay_ms > 0) {
      impl.delayed.push_back(Delayed{Clock::now() + std::chrono::milliseconds(f.delay_ms),
                                     sd_bus_message_ref(message), reply});
      return 1;
    }
    impl.Answer(message, reply);
    return 1;
  }
  auto handler = impl.handlers.find(method);
  if (handler == impl.handlers.end()) {
    impl.Answer(message, Reply(-1003));  // unknown method: bad argument
    return 1;
  }
  impl.Answer(message, handler->second(payload, *self));
  return 1;
}

void MediaSimulator::Impl::Loop() {
  while (!stopping.load()) {
    int fd;
    short events;
    int wait_ms = -1;
    {
      std::lock_guard<std::mutex> lock(mutex);
      int r;
      while ((r = sd_bus_process(bus, nullptr)) > 0) {
      }
      if (r < 0) break;
      // Replies that were held back, now due (requests just processed may have added some).
      auto now = Clock::now();
      for (auto it = delayed.begin(); it != delayed.end();) {
        if (it->due <= now) {
          Answer(it->call, it->reply);
          sd_bus_message_unref(it->call);
          it = delayed.erase(it);
        } else {
          auto left = std::chrono::duration_cast<std::chrono::milliseconds>(it->due - now);
          int ms = static_cast<int>(left.count()) + 1;
          wait_ms = wait_ms < 0 ? ms : std::min(wait_ms, ms);
          ++it;
        }
      }
      int tick_ms = Tick();
      if (tick_ms >= 0) wait_ms = wait_ms < 0 ? tick_ms : std::min(wait_ms, tick_ms);
      fd = sd_bus_get_fd(bus);
      int wanted = sd_bus_get_events(bus);
      events = static_cast<short>(wanted > 0 ? wanted : POLLIN);
      uint64_t until = UINT64_MAX;
      sd_bus_get_timeout(bus, &until);
      if (until != UINT64_MAX) {
        struct timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        uint64_t now_usec = static_cast<uint64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
        int ms = until <= now_usec ? 0 : static_cast<int>((until - now_usec) / 1000 + 1);
        wait_ms = wait_ms < 0 ? ms : std::min(wait_ms, ms);
      }
    }
    struct pollfd fds[2] = {{fd, events, 0}, {wake_fd, POLLIN, 0}};
    poll(fds, 2, wait_ms);
    if (fds[1].revents & POLLIN) {
      uint64_t value;
      ssize_t ignored = read(wake_fd, &value, sizeof value);
      (void)ignored;
    }
  }
}

int MediaSimulator::Impl::Tick() {
  if (state != kRecording) return -1;
  auto now = Clock::now();
  if (now >= next_second) {
    ++recorded_seconds;
    for (const RecordedFile& file : recording_files)
      EmitLocked("streaming_duration", "{\"Name\":\"" + file.stream + "\",\"Duration\":" +
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
cJSON* StreamItems(const std::string& database, const char* name, long start, long stop) {
  if (!MediaModel::Instance()->IsConnected() && !database.empty())
    MediaModel::Instance()->Connect(database);
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
  cJSON* request = cJSON_Parse(payload.c_str());
  std::map<std::string, std::string> asked;
  const cJSON* entry = nullptr;
  cJSON_ArrayForEach(entry, cJSON_GetObjectItem(request, "filenames")) {
    const cJSON* stream = cJSON_GetObjectItem(entry, "stream");
    const cJSON* file = cJSON_GetObjectItem(entry, "filename");
    if (cJSON_IsString(stream) && cJSON_IsString(file))
      asked[stream->valuestring] = file->valuestring;
  }
  cJSON_Delete(request);
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

std::string NameOf(const std::string& payload) {
  cJSON* json = cJSON_Parse(payload.c_str());
  const cJSON* name = cJSON_GetObjectItem(json, "name");
  std::string result = cJSON_IsString(name) ? name->valuestring : "";
  cJSON_Delete(json);
  return result;
}

}  // namespace

MediaSimulator::MediaSimulator() : impl_(std::make_unique<Impl>()) {
  auto ok = [](const std::string&, MediaSimulator&) { return Reply(0); };
  Handle("get_state", [](const std::string&, MediaSimulator& sim) {
    cJSON* reply = cJSON_CreateObject();
    int state = sim.impl_->state;
    cJSON_AddNumberToObject(reply, "id", state);
    cJSON_AddStringToObject(reply, "name", StateName(state));
    return Reply(0, reply);
  });
  for (const char* method : {"start", "restart", "change_media_data", "check_storage_status",
                             "set_framerate_mode", "set_backup_mode", "set_interactive_mode"})
    Handle(method, ok);
  Handle("stop", [](const std::string&, MediaSimulator& sim) {
    sim.impl_->state = kIdle;
    return Reply(0);
  });
  // Recording: 1 idle -> 3 recording <-> 4 paused -> 1 idle, with the engine's signals.
  Handle("start_streams", [](const std::string& payload, MediaSimulator& sim) {
    Impl& impl = *sim.impl_;
    if (impl.state != kIdle && impl.state != kPaused) return Reply(-1004);
    bool fresh = impl.state == kIdle;
    if (fresh) impl.recording_started = static_cast<long>(time(nullptr));
    cJSON* items = StreamItems(impl.database_path, nullptr, impl.recording_started, 0);
    if (fresh) {
      impl.recording_files = FilesOf(items, payload);
      impl.recorded_seconds = 0;
    }
    impl.state = kRecording;
    impl.next_second = Clock::now() + std::chrono::seconds(1);
    impl.EmitLocked("streaming_state", R"({"State":"recording","Flags":""})");
    impl.EmitStreamStatus("streaming");
    return StreamsReply(items);
  });
  Handle("pause_streams", [](const std::string&, MediaSimulator& sim) {
    Impl& impl = *sim.impl_;
    if (impl.state != kRecording) return Reply(-1004);
    impl.state = kPaused;
    impl.EmitLocked("streaming_state", R"({"State":"paused","Flags":""})");
    impl.EmitStreamStatus("paused");
    return Reply(0);
  });
  Handle("resume_streams", [](const std::string&, MediaSimulator& sim) {
    Impl& impl = *sim.impl_;
    if (impl.state != kPaused) return Reply(-1004);
    impl.state = kRecording;
    impl.next_second = Clock::now() + std::chrono::seconds(1);
    impl.EmitLocked("streaming_state", R"({"State":"recording","Flags":""})");
    impl.EmitStreamStatus("streaming");
    return Reply(0);
  });
  Handle("stop_streams", [](const std::string&, MediaSimulator& sim) {
    Impl& impl = *sim.impl_;
    if (impl.state != kRecording && impl.state != kPaused) return Reply(-1004);
    impl.state = kIdle;
    long now = static_cast<long>(time(nullptr));
    // The recorded length counts the whole seconds spent recording, pauses excluded.
    uint64_t duration_ms = static_cast<uint64_t>(impl.recorded_seconds) * 1000;
    std::string name;
    int id = impl.recording_files.empty()
                 ? 0
                 : WriteRecording(impl.recording_files, impl.recording_started, duration_ms, &name);
    if (id > 0) impl.last_recording = id;
    std::string reply =
        StreamsReply(StreamItems(impl.database_path, nullptr, impl.recording_started, now), id);
    impl.EmitLocked("streaming_state", R"({"State":"idle","Flags":""})");
    impl.EmitStreamStatus("stopped");
    impl.recording_files.clear();
    if (id > 0)
      impl.EmitLocked("recording_created",
                      "{\"Id\":" + std::to_string(id) + ",\"Name\":\"" + name + "\"}");
    return reply;
  });
  Handle("get_stream_status", [](const std::string&, MediaSimulator& sim) {
    Impl& impl = *sim.impl_;
    long now = static_cast<long>(time(nullptr));
    bool active = impl.state == kRecording || impl.state == kPaused;
    return StreamsReply(active
                            ? StreamItems(impl.database_path, nullptr, impl.recording_started, now)
                            : cJSON_CreateArray());
  });
  for (const char* method : {"start_network_streams", "stop_network_streams"}) {
    bool stop = std::strcmp(method, "stop_network_streams") == 0;
    Handle(method, [stop](const std::string& payload, MediaSimulator& sim) {
      std::string name = NameOf(payload);
      if (name.empty()) return Reply(-1003);
      long now = static_cast<long>(time(nullptr));
      return StreamsReply(StreamItems(sim.impl_->database_path, name.c_str(), now, stop ? now : 0));
    });
  }
  // Lets a shell or another process drive the simulator: {"name": signal, "payload": text}.
  Handle("sim_emit", [](const std::string& payload, MediaSimulator& sim) {
    cJSON* json = cJSON_Parse(payload.c_str());
    const cJSON* name = cJSON_GetObjectItem(json, "name");
    const cJSON* text = cJSON_GetObjectItem(json, "payload");
    int code = -1003;
    if (cJSON_IsString(name) && cJSON_IsString(text) &&
        zolo::bus::IsValidElement(name->valuestring)) {
      code = sd_bus_emit_signal(sim.impl_->bus, "/zolo/media", "zolo.Media.Signal",
                                name->valuestring, "s", text->valuestring) < 0
                 ? -1001
                 : 0;
    }
    cJSON_Delete(json);
    return Reply(code);
  });
  Handle("sim_set_state", [](const std::string& payload, MediaSimulator& sim) {
    cJSON* json = cJSON_Parse(payload.c_str());
    const cJSON* id = cJSON_GetObjectItem(json, "id");
    int code = cJSON_IsNumber(id) ? 0 : -1003;
    if (code == 0) sim.impl_->state = id->valueint;
    cJSON_Delete(json);
    return Reply(code);
  });
}

MediaSimulator::~MediaSimulator() {
  Stop();
}

int MediaSimulator::Start() {
  Impl& impl = *impl_;
  if (impl.thread.joinable()) return 0;
  int r = sd_bus_open_system(&impl.bus);
  if (r < 0) return r;
  sd_bus_set_description(impl.bus, "zolo-media-sim");
  r = sd_bus_add_object(impl.bus, &impl.object, "/zolo/media", Impl::OnMessage, this);
  if (r >= 0) r = sd_bus_request_name(impl.bus, "zolo.media", 0);
  if (r >= 0) {
    impl.wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (impl.wake_fd < 0) r = -errno;
  }
  if (r < 0) {
    impl.object = sd_bus_slot_unref(impl.object);
    impl.bus = sd_bus_flush_close_unref(impl.bus);
    return r;
  }
  impl.stopping = false;
  impl.thread = std::thread([&impl] { impl.Loop(); });
  return 0;
}

void MediaSimulator::Stop() {
  Impl& impl = *impl_;
  if (!impl.thread.joinable()) return;
  impl.stopping = true;
  impl.Wake();
  impl.thread.join();
  std::lock_guard<std::mutex> lock(impl.mutex);
  for (auto& d : impl.delayed) sd_bus_message_unref(d.call);
  impl.delayed.clear();
  sd_bus_release_name(impl.bus, "zolo.media");
  impl.object = sd_bus_slot_unref(impl.object);
  impl.bus = sd_bus_flush_close_unref(impl.bus);
  close(impl.wake_fd);
  impl.wake_fd = -1;
}

bool MediaSimulator::running() const {
  return impl_->thread.joinable();
}

void MediaSimulator::Handle(const std::string& method, Handler handler) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->handlers[method] = std::move(handler);
}

void MediaSimulator::Force(const std::string& method, const Forced& forced) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->forced[method] = forced;
}

void MediaSimulator::Unforce(const std::string& method) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->forced.erase(method);
}

// The handlers run with the mutex held, so they use impl_->state directly.
int MediaSimulator::state() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->state;
}

void MediaSimulator::set_state(int state) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->state = state;
}

const char* MediaSimulator::StateName(int state) {
  switch (state) {
    case kIdle:
      return "idle";
    case kRecording:
      return "recording";
    case kPaused:
      return "paused";
    case kStarting:
      return "starting";
    case kStopped:
      return "stopped";
    default:
      return "unknown";
  }
}

std::vector<Request> MediaSimulator::Requests() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->requests;
}

std::vector<Request> MediaSimulator::Requests(const std::string& method) const {
  std::vector<Request> result;
  for (auto& request : Requests())
    if (request.method == method) result.push_back(request);
  return result;
}

void MediaSimulator::ClearRequests() {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->requests.clear();
}

bool MediaSimulator::WaitForRequests(const std::string& method, size_t count,
                                     int timeout_ms) const {
  std::unique_lock<std::mutex> lock(impl_->mutex);
  return impl_->requests_changed.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] {
    size_t n = 0;
    for (const auto& request : impl_->requests) n += request.method == method;
    return n >= count;
  });
}

int MediaSimulator::Emit(const std::string& name, const std::string& payload) {
  if (!zolo::bus::IsValidElement(name)) return -EINVAL;
  std::lock_guard<std::mutex> lock(impl_->mutex);
  if (impl_->bus == nullptr) return -ENOTCONN;
  int r = sd_bus_emit_signal(impl_->bus, "/zolo/media", "zolo.Media.Signal", name.c_str(), "s",
                             payload.c_str());
  impl_->Wake();  // the loop writes the queued message out
  return r < 0 ? r : 0;
}

void MediaSimulator::set_database(const std::string& path) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->database_path = path;
}

int MediaSimulator::last_recording_id() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->last_recording;
}

}  // namespace zolo::sim
