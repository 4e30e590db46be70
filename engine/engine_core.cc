#include <cjson/cJSON.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <zolo_bus_names.h>
#include <zolo_model/media_model.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <list>
#include <thread>

#include <zolo/config.h>
#include <zolo/sysroot.h>

#include "engine_methods.h"
#include "recorder.h"

namespace zolo::sim {

namespace {

using Clock = std::chrono::steady_clock;

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
  std::atomic<int> level_interval_ms{0};
  std::shared_ptr<MediaBackend> media = std::make_shared<MediaBackend>();
  int last_recording = 0;
  std::vector<Ticker> tickers;

  static int OnMessage(sd_bus_message* message, void* user, sd_bus_error* error);
  void Answer(sd_bus_message* call, const std::string& reply);
  void Loop(MediaSimulator& sim);
  // Runs every ticker; the milliseconds until the earliest wants to run again, or -1.
  int Tick(MediaSimulator& sim);
  // Emits a signal while the mutex is held (from a handler or ticker).
  void EmitLocked(const std::string& name, const std::string& payload) {
    sd_bus_emit_signal(bus, "/zolo/media", "zolo.Media.Signal", name.c_str(), "s", payload.c_str());
  }
  void Wake() {
    uint64_t one = 1;
    ssize_t ignored = write(wake_fd, &one, sizeof one);
    (void)ignored;
  }
};

// A reply D-Bus refuses (text that is not UTF-8, say) becomes an error reply, so that the
// caller hears at once instead of waiting out its timeout.
void MediaSimulator::Impl::Answer(sd_bus_message* call, const std::string& reply) {
  if (sd_bus_reply_method_return(call, "s", reply.c_str()) < 0)
    sd_bus_reply_method_errorf(call, SD_BUS_ERROR_FAILED, "reply of %s could not be sent",
                               sd_bus_message_get_member(call));
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

void MediaSimulator::Impl::Loop(MediaSimulator& sim) {
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
      int tick_ms = Tick(sim);
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

int MediaSimulator::Impl::Tick(MediaSimulator& sim) {
  int wait_ms = -1;
  for (Ticker& ticker : tickers) {
    int ms = ticker(sim);
    if (ms >= 0) wait_ms = wait_ms < 0 ? ms : std::min(wait_ms, ms);
  }
  return wait_ms;
}

std::string Reply(int code, cJSON* extra) {
  cJSON* json = extra ? extra : cJSON_CreateObject();
  cJSON_AddNumberToObject(json, "code", code);
  char* text = cJSON_PrintUnformatted(json);
  std::string result = text ? text : "{}";
  cJSON_free(text);
  cJSON_Delete(json);
  return result;
}

JsonPtr ParsePayload(const std::string& payload) {
  return JsonPtr(cJSON_Parse(payload.c_str()));
}

std::string StringOf(const cJSON* object, const char* name) {
  const cJSON* item = cJSON_GetObjectItem(object, name);
  return cJSON_IsString(item) ? item->valuestring : "";
}

MediaSimulator::MediaSimulator() : impl_(std::make_unique<Impl>()) {
  RegisterFrameMethods(*this);
  auto recorder = std::make_shared<Recorder>();
  RegisterStreamMethods(*this, recorder);
  RegisterRecordingMethods(*this, recorder);
  RegisterSourceMethods(*this);
  RegisterAudioMethods(*this);
  RegisterStorageInfoMethods(*this);
  RegisterMixerMethods(*this);
  RegisterPlaybackMethods(*this);
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
  impl.thread = std::thread([this] { impl_->Loop(*this); });
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

std::string ConfiguredDatabase() {
  ::Config config(zolo::SysrootPath("/etc/media.conf").c_str());
  std::string named;
  if (config.Load() == 0) config.GetValue("Application", "database", "", &named);
  return zolo::SysrootPath(named.empty() ? "/var/lib/zolo/media.db" : named);
}

sigset_t BlockStopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

int MediaBackend::Snapshot(Picture, int id, int width, int height, const std::string& path) {
  return WriteStillJpeg(path, width, height, id);
}

void MediaBackend::ShowLayout(int, const std::string&) {}

int MediaBackend::ConnectChannel(int, bool, const std::string&) {
  return 0;
}

std::vector<ChannelChange> MediaBackend::TakeChannelChanges() {
  return {};
}

int MediaBackend::InputSignal(int) {
  return -1;
}

void MediaSimulator::set_media(std::shared_ptr<MediaBackend> media) {
  if (media != nullptr) impl_->media = std::move(media);
}

MediaBackend& MediaSimulator::media() {
  return *impl_->media;
}

void MediaSimulator::set_level_interval_ms(int ms) {
  impl_->level_interval_ms = ms > 0 ? ms : 0;
  impl_->Wake();
}

int MediaSimulator::level_interval_ms() const {
  return impl_->level_interval_ms;
}

void MediaSimulator::set_database(const std::string& path) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->database_path = path;
}

int MediaSimulator::last_recording_id() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->last_recording;
}

int MediaSimulator::engine_state() const {
  return impl_->state;
}

void MediaSimulator::set_engine_state(int state) {
  impl_->state = state;
}

void MediaSimulator::Signal(const std::string& name, const std::string& payload) {
  impl_->EmitLocked(name, payload);
}

void MediaSimulator::ConnectModel() {
  if (!MediaModel::Instance()->IsConnected() && !impl_->database_path.empty())
    MediaModel::Instance()->Connect(impl_->database_path);
}

void MediaSimulator::set_last_recording_id(int id) {
  impl_->last_recording = id;
}

void MediaSimulator::AddTicker(Ticker ticker) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->tickers.push_back(std::move(ticker));
}

}  // namespace zolo::sim
