// Library calls on the worker pool, the engine watch, engine signals on their way to the
// clients, and the server's start and stop.
#include <zolo/media.h>
#include <zolo/media_json/signals_json.h>
#include <zolo/sysroot.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/log.h"
#include "gateway.h"
#include "session.h"

namespace zolo::gateway {
namespace {

constexpr const char* kLogSource = "zolo-media-gateway";
constexpr size_t kMaxPendingSignals = 65536;
constexpr const char* kListRequest = "get_request_list";
constexpr int kListenBacklog = 128;
constexpr int kFileThreads = 4;
constexpr gint64 kLibraryRetryUs = 2 * G_USEC_PER_SEC;

// The gateway that receives the library's signal callbacks; cleared before it goes away.
std::mutex g_active_mutex;
Gateway* g_active = nullptr;

struct ProbeResult {
  Gateway* gateway;
  bool engine_ok;
  bool database_ok;
};

// True when the file at `path` starts like an SQLite database.
bool DatabaseReadable(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return false;
  char header[16] = {};
  size_t got = std::fread(header, 1, sizeof header, file);
  std::fclose(file);
  return got == sizeof header && std::memcmp(header, "SQLite format 3", 16) == 0;
}

// The answer to `request` when its result is too large for any client's queue.
JsonHolder TooLarge(const cJSON* request) {
  return ResponseData(RequestType(request), RequestId(request), kAnswerTooLarge,
                      "answer too large: ask for a page", nullptr);
}

}  // namespace

JsonHolder RequestListData() {
  JsonHolder data(cJSON_CreateObject());
  cJSON* list = cJSON_AddArrayToObject(data.get(), "requests");
  auto add = [list](const char* name, const char* description, const std::vector<Param>& params) {
    cJSON* entry = cJSON_CreateObject();
    cJSON_AddStringToObject(entry, "requestType", name);
    cJSON_AddStringToObject(entry, "description", description);
    cJSON* array = cJSON_AddArrayToObject(entry, "params");
    for (const Param& param : params) {
      cJSON* item = cJSON_CreateObject();
      cJSON_AddStringToObject(item, "name", param.name);
      cJSON_AddStringToObject(item, "type", ParamTypeName(param.type));
      cJSON_AddBoolToObject(item, "required", param.required);
      cJSON_AddItemToArray(array, item);
    }
    cJSON_AddItemToArray(list, entry);
  };
  add(kListRequest, "Every request with its parameters (answered by the gateway)", {});
  add(kWatchLiveRequest, kWatchLiveDescription, {{"on", ParamType::kBoolean}});
  for (const RequestSpec& known : Requests()) add(known.name, known.description, known.params);
  return data;
}

JsonHolder Gateway::RunOne(const cJSON* request, bool library_ready, int* code,
                           std::string* metric_name) {
  if (!library_ready) {
    *metric_name = "unknown";
    *code = kNotReady;
    return ResponseData(RequestType(request), RequestId(request), kNotReady,
                        "the media library is not ready: no configuration or database yet",
                        nullptr);
  }
  std::string type = RequestType(request);
  std::string id = RequestId(request);
  *metric_name = "unknown";
  if (type == kListRequest) {
    *metric_name = type;
    *code = 0;
    return ResponseData(type, id, 0, "success", RequestListData());
  }
  if (type == kWatchLiveRequest) {
    // A single request reaches HandleWatchLive on the loop; a batch's runs here.
    *metric_name = type;
    *code = kNotInBatch;
    return ResponseData(type, id, kNotInBatch,
                        "watch_live_pictures must be sent alone, not in a batch", nullptr);
  }
  const RequestSpec* known = nullptr;
  std::string comment;
  *code = CheckRequest(request, &known, &comment);
  if (known != nullptr) *metric_name = known->name;
  if (*code != 0) return ResponseData(type, id, *code, comment, nullptr);
  const cJSON* args = cJSON_GetObjectItemCaseSensitive(request, "requestData");
  JsonHolder empty;
  if (!cJSON_IsObject(args)) {
    empty.reset(cJSON_CreateObject());
    args = empty.get();
  }
  Outcome outcome;
  try {
    outcome = known->handler(args);
  } catch (const std::exception& e) {
    ZLOG(0, "request %s failed: %s", known->name, e.what());
    outcome = Outcome{kHandlerFailed, nullptr};
  }
  *code = outcome.code;
  comment = outcome.code == kHandlerFailed ? "request failed in the gateway"
            : outcome.code >= 0            ? "success"
                                           : zm_strerror(outcome.code);
  return ResponseData(type, id, outcome.code, comment, std::move(outcome.data));
}

void Gateway::RunJob(gpointer data, gpointer) {
  auto* job = static_cast<Job*>(data);
  int code = 0;
  std::string name;
  std::string response;
  size_t room = job->gateway->config_.max_answer_bytes;
  if (!job->batch) {
    JsonHolder d = RunOne(job->d, job->gateway->library_ready(), &code, &name);
    response = Message(kRequestResponse, std::move(d));
    if (response.size() > room) {
      code = kAnswerTooLarge;
      response = Message(kRequestResponse, TooLarge(job->d));
    }
    job->outcomes.emplace_back(name, code);
  } else {
    const cJSON* halt = cJSON_GetObjectItemCaseSensitive(job->d, "haltOnFailure");
    bool halt_on_failure = cJSON_IsTrue(halt);
    bool failed = false;
    JsonHolder d(cJSON_CreateObject());
    cJSON_AddStringToObject(d.get(), "requestId", RequestId(job->d).c_str());
    cJSON* results = cJSON_AddArrayToObject(d.get(), "results");
    const cJSON* request = nullptr;
    cJSON_ArrayForEach(request, cJSON_GetObjectItemCaseSensitive(job->d, "requests")) {
      JsonHolder result;
      if (failed && halt_on_failure) {
        result = ResponseData(RequestType(request), RequestId(request), kNotRun,
                              "not run: an earlier request of the batch failed", nullptr);
        code = kNotRun;
        name = "unknown";
      } else {
        result = RunOne(request, job->gateway->library_ready(), &code, &name);
        failed = failed || code < 0;
      }
      job->outcomes.emplace_back(name, code);
      cJSON_AddItemToArray(results, result.release());
    }
    response = Message(kRequestBatchResponse, d.get());
    if (response.size() > room) {
      // The results that do not fit, in order, are answered "too large" instead.
      size_t used = 0;
      int index = 0;
      for (cJSON* result = results->child; result != nullptr; result = result->next, ++index) {
        char* printed = cJSON_PrintUnformatted(result);
        size_t size = printed != nullptr ? std::strlen(printed) : room;
        cJSON_free(printed);
        if (used + size <= room / 2) {
          used += size;
          continue;
        }
        JsonHolder refused = TooLarge(result);
        used += 256;
        cJSON_ReplaceItemViaPointer(results, result, refused.get());
        result = refused.release();
        job->outcomes[static_cast<size_t>(index)].second = kAnswerTooLarge;
      }
      response = Message(kRequestBatchResponse, d.get());
    }
  }
  // The answer leaves from here and the bookkeeping is done here, so that a request never
  // waits for the main loop to wake; only a client with no room left involves it.
  std::unique_ptr<Job> done(job);
  Gateway& gateway = *job->gateway;
  Outbound::Added added = gateway.Queue(*job->outbound, TextFrame(response), false, true);
  double seconds = static_cast<double>(g_get_monotonic_time() - job->arrived) / G_USEC_PER_SEC;
  for (const auto& [metric, result] : job->outcomes)
    if (result != kNotRun) gateway.metrics_.Request(metric, result, seconds);
  --*job->in_flight;
  if (added != Outbound::Added::kFull) return;
  PostToLoop(
      gateway.context_,
      [](gpointer full) -> gboolean {
        std::unique_ptr<Job> refused(static_cast<Job*>(full));
        Gateway& owner = *refused->gateway;
        auto it = owner.sessions_.find(refused->session);
        if (it != owner.sessions_.end()) owner.Close(*it->second, close_reason::kSlowConsumer);
        return G_SOURCE_REMOVE;
      },
      done.release());
}

void Gateway::RunProbe(gpointer data, gpointer) {
  auto* result = static_cast<ProbeResult*>(data);
  Gateway& gateway = *result->gateway;
  // A fresh appliance may have no database yet: the library starts once it appears.
  gint64 now = g_get_monotonic_time();
  if (!gateway.library_ready_.load() && now - gateway.library_tried_ >= kLibraryRetryUs) {
    gateway.library_tried_ = now;
    if (zm_init(false) == 0) gateway.AttachLibrary();
  }
  result->engine_ok = gateway.library_ready_.load() && zm_get_state(nullptr) >= 0;
  result->database_ok = DatabaseReadable(SysrootPath(result->gateway->config_.database));
  PostToLoop(
      result->gateway->context_,
      [](gpointer done) -> gboolean {
        std::unique_ptr<ProbeResult> probe(static_cast<ProbeResult*>(done));
        Gateway& owner = *probe->gateway;
        owner.probe_outstanding_ = false;
        owner.database_ok_ = probe->database_ok;
        if (!probe->engine_ok) owner.metrics_.EngineCallFailed();
        owner.SetEngineUp(probe->engine_ok, probe->engine_ok ? "the media engine answers again"
                                                             : "the media engine does not answer");
        return G_SOURCE_REMOVE;
      },
      result);
}

gboolean Gateway::Probe() {
  gint64 now = g_get_monotonic_time();
  CloseStalledClients(now);
  if (probe_outstanding_) {
    // A stalled engine: the query is still waiting for its answer. The library's own timeout
    // is longer; clients hear of it after `engine_timeout_ms`, not after that.
    if (now - probe_started_ > static_cast<gint64>(config_.engine_timeout_ms) * 1000)
      SetEngineUp(false, "the media engine does not answer");
    return G_SOURCE_CONTINUE;
  }
  if (now - probe_started_ < static_cast<gint64>(config_.engine_probe_ms) * 1000)
    return G_SOURCE_CONTINUE;
  probe_outstanding_ = true;
  probe_started_ = now;
  g_thread_pool_push(prober_, new ProbeResult{this, false, false}, nullptr);
  return G_SOURCE_CONTINUE;
}

void Gateway::CloseStalledClients(gint64 now) {
  // A client whose queue stays full loses its high-volume events first; one that does not
  // catch up within the bound goes, so that it cannot hold its slot for ever.
  std::vector<Session*> stalled;
  for (auto& [id, session] : sessions_) {
    gint64 since = session->outbound->full_since();
    if (!session->closing && since != 0 &&
        now - since > static_cast<gint64>(config_.slow_consumer_ms) * 1000)
      stalled.push_back(session.get());
  }
  for (Session* session : stalled)
    Close(*session, close_reason::kSlowConsumer, "queue stayed full");
}

void Gateway::AttachLibrary() {
  zm_set_opt(0, 1);
  for (const std::string& name : json::SignalNames())
    if (zm_register_signal(name.c_str(), OnSignal) < 0)
      ZLOG(1, "cannot subscribe to signal %s", name.c_str());
  if (!library_ready_.exchange(true)) ZLOG(2, "the media library is ready");
}

void Gateway::SetEngineUp(bool up, const std::string& reason) {
  if (up == engine_up_) return;
  engine_up_ = up;
  ZLOG(up ? 2 : 0, "%s", reason.c_str());
  JsonHolder data(cJSON_CreateObject());
  cJSON_AddStringToObject(data.get(), "reason", reason.c_str());
  Broadcast(up ? "engine_restored" : "engine_lost", std::move(data));
}

void Gateway::Broadcast(const std::string& signal, JsonHolder data) {
  Frame frame = EventFrame(signal, data.get());
  std::vector<Session*> targets;
  for (auto& [id, session] : sessions_)
    if (session->identified) targets.push_back(session.get());
  for (Session* session : targets) SendEvent(*session, frame, false, true);
}

void Gateway::UpdateLiveWatch() {
  bool watched = false;
  for (auto& [id, session] : sessions_) watched = watched || !session->live_token.empty();
  if (watched && live_tick_ == nullptr && live_worker_ != nullptr) {
    ZLOG(2, "live pictures: a client watches");
    live_tick_ = g_timeout_source_new(static_cast<guint>(std::max(config_.live_interval_ms, 50)));
    g_source_set_callback(
        live_tick_, [](gpointer self) { return static_cast<Gateway*>(self)->LiveTick(); }, this,
        nullptr);
    g_source_attach(live_tick_, context_);
    LiveTick();  // the first pictures now, not one interval later
  } else if (!watched && live_tick_ != nullptr) {
    ZLOG(2, "live pictures: nobody watches any more");
    CancelTimer(&live_tick_);
    live_.Clear();
  }
}

gboolean Gateway::LiveTick() {
  // Bounded: one round at a time; a tick that finds the last one running is skipped. Nothing
  // is asked of an engine that does not answer: the pictures' age tells the clients.
  if (live_running_) {
    metrics_.LiveRoundSkipped();
    return G_SOURCE_CONTINUE;
  }
  if (!library_ready() || !engine_up_) return G_SOURCE_CONTINUE;
  live_running_ = true;
  metrics_.LiveRound();
  g_thread_pool_push(live_worker_, this, nullptr);
  return G_SOURCE_CONTINUE;
}

void Gateway::RunLiveRound(gpointer data, gpointer) {
  auto* gateway = static_cast<Gateway*>(data);
  TakeLivePictures(gateway->live_, gateway->config_.live_width, gateway->config_.live_height);
  PostToLoop(
      gateway->context_,
      [](gpointer self) -> gboolean {
        static_cast<Gateway*>(self)->live_running_ = false;
        return G_SOURCE_REMOVE;
      },
      gateway);
}

void Gateway::OnSignal(const char* name, void* data, void*) {
  if (name == nullptr) return;
  JsonHolder record = json::SignalToJson(name, data);
  if (record == nullptr) return;
  std::lock_guard<std::mutex> active(g_active_mutex);
  Gateway* gateway = g_active;
  if (gateway == nullptr) return;
  std::lock_guard<std::mutex> lock(gateway->signals_mutex_);
  if (gateway->signals_.size() >= kMaxPendingSignals) {
    gateway->signals_dropped_++;
    return;
  }
  gateway->signals_.emplace_back(name, std::move(record));
  if (gateway->signals_wake_) return;
  gateway->signals_wake_ = true;
  PostToLoop(
      gateway->context_,
      [](gpointer self) -> gboolean {
        static_cast<Gateway*>(self)->DispatchSignals();
        return G_SOURCE_REMOVE;
      },
      gateway);
}

void Gateway::DispatchSignals() {
  std::vector<std::pair<std::string, JsonHolder>> batch;
  {
    std::lock_guard<std::mutex> lock(signals_mutex_);
    batch.swap(signals_);
    signals_wake_ = false;
  }
  for (uint64_t lost = signals_dropped_.exchange(0); lost > 0; --lost) metrics_.EventDropped();
  std::vector<Session*> targets;
  for (auto& [id, session] : sessions_)
    if (session->identified && !session->closing) targets.push_back(session.get());
  // Frames are queued for the whole burst and each client's leave in one write at the end.
  std::vector<bool> touched(targets.size(), false);
  gint64 now = g_get_monotonic_time();
  for (auto& [signal, record] : batch) {
    if (signal == "media_crashed") SetEngineUp(false, "the media engine crashed");
    bool high_volume = IsHighVolume(signal);
    Frame frame;  // made once, for the first client that takes the event whole
    for (size_t i = 0; i < targets.size(); ++i) {
      Session* session = targets[i];
      if (session->closing || !session->subscriptions.Wants(signal, record.get())) continue;
      auto rate = session->subscriptions.rates.find(signal);
      if (rate != session->subscriptions.rates.end()) {
        JsonHolder copy(cJSON_Duplicate(record.get(), true));
        if (!session->coalescer.Offer(signal, rate->second, &copy, now)) {
          ArmCoalescing(*session);
          continue;
        }
      }
      if (frame == nullptr) frame = EventFrame(signal, record.get());
      touched[i] = SendEvent(*session, frame, high_volume, false) || touched[i];
    }
  }
  for (size_t i = 0; i < targets.size(); ++i)
    if (touched[i] && !targets[i]->closing) targets[i]->outbound->Flush();
}

bool Gateway::Start(std::string* error) {
  context_ = g_main_context_ref_thread_default();
  www_ = WwwFolder(config_);
  // Until the first probe answers, health says what is known now.
  database_ok_ = DatabaseReadable(SysrootPath(config_.database));
  engine_up_ = config_.library_ready;
  if (!config_.tls_certificate.empty()) {
    GError* failure = nullptr;
    GTlsCertificate* certificate =
        g_tls_certificate_new_from_files(SysrootPath(config_.tls_certificate).c_str(),
                                         SysrootPath(config_.tls_key).c_str(), &failure);
    if (certificate == nullptr) {
      *error = std::string("TLS certificate: ") + failure->message;
      g_error_free(failure);
      return false;
    }
    server_ = soup_server_new("server-header", "zolo-media-gateway", "tls-certificate", certificate,
                              nullptr);
    g_object_unref(certificate);
  } else {
    server_ = soup_server_new("server-header", "zolo-media-gateway", nullptr);
  }
  g_signal_connect(server_, "request-started", G_CALLBACK(OnConnection), this);
  soup_server_add_handler(server_, "/ws", OnUpgrade, this, nullptr);
  // Early handlers run only beside a normal handler of the same path: one for each.
  for (const char* path :
       {"/ws", "/images", "/live", "/healthz", "/metrics", static_cast<const char*>(nullptr)})
    soup_server_add_early_handler(server_, path, OnEarly, this, nullptr);
  soup_server_add_handler(server_, "/images", OnImage, this, nullptr);
  soup_server_add_handler(server_, "/live", OnLive, this, nullptr);
  soup_server_add_handler(server_, "/healthz", OnHealth, this, nullptr);
  soup_server_add_handler(server_, "/metrics", OnMetrics, this, nullptr);
  soup_server_add_handler(server_, nullptr, OnStatic, this, nullptr);

  GError* failure = nullptr;
  std::string host = config_.address == "localhost" ? "127.0.0.1" : config_.address;
  GInetAddress* inet = g_inet_address_new_from_string(host.c_str());
  if (inet == nullptr) {
    *error = "not an IP address: " + config_.address;
    return false;
  }
  GSocketAddress* address = g_inet_socket_address_new(inet, static_cast<guint16>(config_.port));
  g_object_unref(inet);
  SoupServerListenOptions options = config_.tls_certificate.empty()
                                        ? static_cast<SoupServerListenOptions>(0)
                                        : SOUP_SERVER_LISTEN_HTTPS;
  // The socket is made here for its backlog: a burst of connections waits in the kernel
  // instead of being dropped and retried a second later.
  GSocket* listener = g_socket_new(g_socket_address_get_family(address), G_SOCKET_TYPE_STREAM,
                                   G_SOCKET_PROTOCOL_TCP, &failure);
  bool listening = listener != nullptr;
  if (listening) {
    g_socket_set_listen_backlog(listener, kListenBacklog);
    listening = g_socket_bind(listener, address, TRUE, &failure) &&
                g_socket_listen(listener, &failure) &&
                soup_server_listen_socket(server_, listener, options, &failure);
    g_object_unref(listener);
  }
  g_object_unref(address);
  if (!listening) {
    *error = std::string("cannot listen: ") + failure->message;
    g_error_free(failure);
    return false;
  }
  GSList* uris = soup_server_get_uris(server_);
  if (uris != nullptr) port_ = g_uri_get_port(static_cast<GUri*>(uris->data));
  g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));

  workers_ = g_thread_pool_new(RunJob, this, config_.worker_threads, FALSE, nullptr);
  prober_ = g_thread_pool_new(RunProbe, this, 1, FALSE, nullptr);
  files_ = g_thread_pool_new(RunFile, this, kFileThreads, FALSE, nullptr);
  live_worker_ = g_thread_pool_new(RunLiveRound, this, 1, FALSE, nullptr);
  // The watch looks twice per probe interval, so a stall is noticed soon after its timeout.
  GSource* probe =
      g_timeout_source_new(static_cast<guint>(std::max(config_.engine_probe_ms / 2, 10)));
  g_source_set_callback(
      probe, [](gpointer self) { return static_cast<Gateway*>(self)->Probe(); }, this, nullptr);
  probe_source_ = g_source_attach(probe, context_);
  g_source_unref(probe);

  {
    std::lock_guard<std::mutex> lock(g_active_mutex);
    g_active = this;
  }
  if (config_.library_ready)
    AttachLibrary();
  else
    ZLOG(1, "the media library is not ready; requests wait for its database");
  ZLOG(2, "listening on %s port %d%s", config_.address.c_str(), port_,
       config_.tls_certificate.empty() ? "" : " (TLS)");
  return true;
}

void Gateway::Stop() {
  if (context_ == nullptr) return;
  {
    std::lock_guard<std::mutex> lock(g_active_mutex);
    if (g_active == this) g_active = nullptr;
  }
  if (probe_source_ != 0) {
    GSource* probe = g_main_context_find_source_by_id(context_, probe_source_);
    if (probe != nullptr) g_source_destroy(probe);
    probe_source_ = 0;
  }
  if (server_ != nullptr) soup_server_disconnect(server_);
  std::vector<Session*> open;
  for (auto& [id, session] : sessions_) open.push_back(session.get());
  for (Session* session : open) Forget(*session);
  CancelTimer(&live_tick_);  // the last watcher's going stopped it already
  // Running library calls finish; their results find no client and are dropped.
  if (workers_ != nullptr) g_thread_pool_free(workers_, FALSE, TRUE);
  if (prober_ != nullptr) g_thread_pool_free(prober_, FALSE, TRUE);
  if (files_ != nullptr) g_thread_pool_free(files_, FALSE, TRUE);
  if (live_worker_ != nullptr) g_thread_pool_free(live_worker_, FALSE, TRUE);
  workers_ = prober_ = files_ = live_worker_ = nullptr;
  while (files_pending_ > 0) g_main_context_iteration(context_, TRUE);
  while (g_main_context_iteration(context_, FALSE)) {
  }
  if (server_ != nullptr) g_object_unref(server_);
  server_ = nullptr;
  ForgetConnections();
  g_main_context_unref(context_);
  context_ = nullptr;
}

}  // namespace zolo::gateway
