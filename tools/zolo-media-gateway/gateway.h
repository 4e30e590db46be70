// The gateway server: HTTP and WebSocket on the thread-default GLib main context, library
// calls on a worker pool, engine signals posted to the loop. A worker sends its answer
// through the client's Outbound queue itself; everything else but OnSignal runs on the loop
// thread.
#pragma once

#include <gio/gio.h>
#include <libsoup/soup.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "auth.h"
#include "common/json_holder.h"
#include "config.h"
#include "events.h"
#include "live.h"
#include "metrics.h"
#include "outbound.h"
#include "protocol.h"

namespace zolo::gateway {

class Gateway {
 public:
  explicit Gateway(const Config& config);
  ~Gateway();
  Gateway(const Gateway&) = delete;
  Gateway& operator=(const Gateway&) = delete;

  // Subscribes to every engine signal and listens. Call on the thread that runs the main
  // context. False with `error` set when it cannot listen.
  bool Start(std::string* error);
  // Closes every connection, stops listening and waits for running library calls.
  void Stop();
  // The port listened on (useful with port 0).
  int port() const { return port_; }
  const Metrics& metrics() const { return metrics_; }
  // True once the media library has started.
  bool library_ready() const { return library_ready_.load(); }

  // The library's signal callback (any thread); `user_data` is the gateway.
  static void OnSignal(const char* name, void* data, void* user_data);

 private:
  struct Session;
  struct Job;

  // Connections and messages (gateway.cc).
  static void OnConnection(SoupServer*, SoupServerMessage* msg, gpointer self);
  void PruneConnections();
  void ForgetConnections();
  static void OnUpgrade(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*,
                        gpointer self);
  static void OnUpgraded(SoupServerMessage* msg, gpointer self);
  static void OnMessage(SoupWebsocketConnection*, gint type, GBytes* message, gpointer session);
  static void OnError(SoupWebsocketConnection*, GError* error, gpointer session);
  static void OnClosed(SoupWebsocketConnection*, gpointer session);
  bool OriginAllowed(SoupServerMessage* msg) const;
  void HandleMessage(Session& session, const char* data, size_t size);
  void HandleIdentify(Session& session, JsonHolder message, const cJSON* d);
  void FinishIdentify(Session& session);
  void HandleReidentify(Session& session, const cJSON* d);
  void HandleRequest(Session& session, JsonHolder message, const cJSON* d, bool batch);
  // watch_live_pictures, answered on the loop.
  void HandleWatchLive(Session& session, const cJSON* d);
  void Close(Session& session, const CloseReason& reason, const std::string& detail = "");
  void Forget(Session& session);

  // Outbound frames (gateway.cc); `flush` false leaves them for one write after a burst.
  void Send(Session& session, const std::string& text);
  bool Enqueue(Session& session, Frame frame, bool high_volume, bool flush);
  bool SendEvent(Session& session, const Frame& frame, bool high_volume, bool flush);
  // Queues `frame` on `outbound` and counts what the queue dropped; any thread.
  Outbound::Added Queue(Outbound& outbound, Frame frame, bool high_volume, bool flush);
  static Frame EventFrame(const std::string& signal, cJSON* data);
  void ArmCoalescing(Session& session);

  // Library calls (worker.cc).
  static void RunJob(gpointer job, gpointer self);
  static JsonHolder RunOne(const cJSON* request, bool library_ready, int* code,
                           std::string* metric_name);
  static void RunProbe(gpointer probe, gpointer self);
  // Subscribes to the engine's signals once the library has started (any thread).
  void AttachLibrary();
  // Closes (4011) the clients whose outbound queue stayed full longer than allowed.
  void CloseStalledClients(gint64 now);
  gboolean Probe();
  void SetEngineUp(bool up, const std::string& reason);
  void Broadcast(const std::string& signal, JsonHolder data);
  void DispatchSignals();

  // Live pictures (worker.cc): the tick runs while a client watches; a round runs on its
  // own thread, one at a time.
  void UpdateLiveWatch();
  gboolean LiveTick();
  static void RunLiveRound(gpointer round, gpointer self);

  // HTTP (http.cc).
  static void OnImage(SoupServer*, SoupServerMessage* msg, const char* path, GHashTable*,
                      gpointer self);
  static void OnEarly(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*, gpointer self);
  static void OnHealth(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*,
                       gpointer self);
  static void OnMetrics(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*,
                        gpointer self);
  static void OnStatic(SoupServer*, SoupServerMessage* msg, const char* path, GHashTable*,
                       gpointer self);
  static void OnLive(SoupServer*, SoupServerMessage* msg, const char* path, GHashTable*,
                     gpointer self);
  struct FileRequest;
  // Answers `msg` with the file `name` (still escaped) inside `folder`, or with a still of
  // bookmark `recording`'s folder; the file is found and read on a file thread. A missing
  // preview of layout `layout` is rendered first.
  void ServeFile(SoupServerMessage* msg, const std::string& folder, const std::string& name,
                 int recording = -1, int layout = -1);
  static void RunFile(gpointer request, gpointer self);
  static void ReadFile(FileRequest* request);
  void FinishFile(FileRequest& request);

  Config config_;
  std::string www_;  // the folder served at "/"
  GMainContext* context_ = nullptr;
  SoupServer* server_ = nullptr;
  int port_ = 0;
  GThreadPool* workers_ = nullptr;
  GThreadPool* prober_ = nullptr;
  GThreadPool* files_ = nullptr;
  guint probe_source_ = 0;
  bool probe_outstanding_ = false;
  gint64 probe_started_ = 0;
  bool engine_up_ = true;
  bool database_ok_ = true;
  std::atomic<bool> library_ready_{false};
  gint64 library_tried_ = 0;  // the prober's last attempt to start the library
  FailureTracker failures_;
  Metrics metrics_;
  uint64_t next_session_ = 1;
  std::map<uint64_t, std::unique_ptr<Session>> sessions_;
  int files_pending_ = 0;  // files on their way back from a file thread
  LiveStore live_;
  GThreadPool* live_worker_ = nullptr;
  GSource* live_tick_ = nullptr;
  bool live_running_ = false;  // a round is on its way
  // Counted connections, referenced until they are found closed.
  std::vector<GSocket*> connections_;

  // Signals on their way from the bus thread to the loop.
  std::mutex signals_mutex_;
  std::vector<std::pair<std::string, JsonHolder>> signals_;
  bool signals_wake_ = false;
  std::atomic<uint64_t> signals_dropped_{0};
};

// get_request_list's response data: every request with its parameters.
JsonHolder RequestListData();

}  // namespace zolo::gateway
