// Connections, the handshake, message dispatch and the per-client outbound queue.
#include "gateway.h"

#include <sys/socket.h>
#include <zolo/media.h>
#include <zolo/media_json/signals_json.h>
#include <zolo/version.h>

#include <algorithm>

#include "common/log.h"
#include "session.h"

namespace zolo::gateway {
namespace {

constexpr const char* kLogSource = "zolo-media-gateway";
constexpr int kSendBufferBytes = 256 * 1024;
constexpr guint64 kMaxFrameBytes = 2 << 20;
constexpr guint kKeepaliveSeconds = 30;

struct Timer {
  void (*fire)(gpointer);
  gpointer data;
};

// The appliance's time zone, so that every client shows times in the appliance's clock:
// its name (an IANA name where the system names one), abbreviation and offset now.
JsonHolder TimeZone() {
  GTimeZone* zone = g_time_zone_new_local();
  GDateTime* now = g_date_time_new_now(zone);
  std::string name = g_time_zone_get_identifier(zone);
  gint64 offset = g_date_time_get_utc_offset(now) / G_USEC_PER_SEC;
  // A path or a POSIX rule is no name a browser knows.
  if (name.empty() || name[0] == '/' || name[0] == ':' || name.find(',') != std::string::npos)
    name = offset == 0 ? "UTC" : "";
  JsonHolder data(cJSON_CreateObject());
  cJSON_AddStringToObject(data.get(), "name", name.c_str());
  cJSON_AddStringToObject(data.get(), "abbreviation", g_date_time_get_timezone_abbreviation(now));
  cJSON_AddNumberToObject(data.get(), "offsetSeconds", static_cast<double>(offset));
  g_date_time_unref(now);
  g_time_zone_unref(zone);
  return data;
}

// An unmasked close frame with `code` and `reason` (short enough for one frame).
std::string CloseFrame(int code, const std::string& reason) {
  std::string frame = {static_cast<char>(0x88), static_cast<char>(2 + reason.size()),
                       static_cast<char>((code >> 8) & 0xff), static_cast<char>(code & 0xff)};
  return frame + reason;
}

}  // namespace

GSource* StartTimer(GMainContext* context, guint ms, void (*fire)(gpointer), gpointer data) {
  GSource* source = g_timeout_source_new(ms);
  g_source_set_callback(
      source,
      [](gpointer timer) -> gboolean {
        auto* t = static_cast<Timer*>(timer);
        t->fire(t->data);
        return G_SOURCE_REMOVE;
      },
      new Timer{fire, data}, [](gpointer timer) { delete static_cast<Timer*>(timer); });
  g_source_attach(source, context);
  return source;
}

void PostToLoop(GMainContext* context, GSourceFunc function, gpointer data) {
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(source, function, data, nullptr);
  g_source_attach(source, context);
  g_source_unref(source);
}

void CancelTimer(GSource** slot) {
  if (*slot == nullptr) return;
  g_source_destroy(*slot);
  g_source_unref(*slot);
  *slot = nullptr;
}

Gateway::Gateway(const Config& config)
    : config_(config),
      failures_(config.auth_free_failures, config.auth_delay_ms, config.auth_lockout_failures,
                config.auth_lockout_seconds) {}

Gateway::~Gateway() {
  Stop();
}

void Gateway::OnConnection(SoupServer*, SoupServerMessage* msg, gpointer self) {
  // Called for every request; a connection is counted at its first.
  Gateway& gateway = *static_cast<Gateway*>(self);
  GSocket* socket = soup_server_message_get_socket(msg);
  std::vector<GSocket*>& open = gateway.connections_;
  if (socket == nullptr || std::find(open.begin(), open.end(), socket) != open.end()) return;
  if (open.size() >= gateway.config_.max_connections) gateway.PruneConnections();
  if (open.size() >= gateway.config_.max_connections) {
    gateway.metrics_.Refused("too_many_connections");
    ZLOG(1, "refusing a connection: %zu open", open.size());
    g_socket_shutdown(socket, TRUE, TRUE, nullptr);
    return;
  }
  open.push_back(G_SOCKET(g_object_ref(socket)));
  // A connection that says nothing for this long goes; a WebSocket lifts this at its upgrade
  // and keeps itself alive with pings.
  g_socket_set_timeout(socket, gateway.config_.http_idle_seconds);
}

void Gateway::PruneConnections() {
  auto closed = std::remove_if(connections_.begin(), connections_.end(), [](GSocket* socket) {
    if (!g_socket_is_closed(socket)) return false;
    g_object_unref(socket);
    return true;
  });
  connections_.erase(closed, connections_.end());
}

void Gateway::ForgetConnections() {
  for (GSocket* socket : connections_) g_object_unref(socket);
  connections_.clear();
}

void Gateway::OnUpgrade(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*,
                        gpointer self) {
  // No extensions: the gateway's messages are small, and an inflating reader is one more
  // thing a hostile client could feed. The origin is judged once the socket is a WebSocket,
  // so that a refused browser learns why from the close code.
  if (!soup_websocket_server_process_handshake(msg, nullptr, nullptr, nullptr, nullptr)) {
    static_cast<Gateway*>(self)->metrics_.Refused("bad_handshake");
    return;
  }
  g_signal_connect(msg, "wrote-informational", G_CALLBACK(OnUpgraded), self);
}

void Gateway::OnUpgraded(SoupServerMessage* msg, gpointer self) {
  Gateway& gateway = *static_cast<Gateway*>(self);
  g_signal_handlers_disconnect_by_func(msg, reinterpret_cast<gpointer>(OnUpgraded), self);
  // A bounded kernel buffer, so that a client that stops reading shows in our own queue.
  GSocket* socket = soup_server_message_get_socket(msg);
  if (socket != nullptr) {
    g_socket_set_option(socket, SOL_SOCKET, SO_SNDBUF, kSendBufferBytes, nullptr);
    g_socket_set_timeout(socket, 0);
  }
  const char* host = soup_server_message_get_remote_host(msg);
  std::string address = host != nullptr ? host : "";
  g_object_ref(msg);  // stealing the connection may drop the server's reference
  GIOStream* base = soup_server_message_steal_connection(msg);
  auto outbound = std::make_shared<Outbound>(
      base, gateway.context_,
      Outbound::Limits{gateway.config_.max_queue_messages, gateway.config_.max_queue_bytes});
  GIOStream* stream = OutboundStreamNew(base, outbound);
  g_object_unref(base);
  SoupWebsocketConnection* connection =
      soup_websocket_connection_new(stream, soup_server_message_get_uri(msg),
                                    SOUP_WEBSOCKET_CONNECTION_SERVER, nullptr, nullptr, nullptr);
  g_object_unref(stream);

  auto owned = std::make_unique<Session>();
  Session& session = *owned;
  session.gateway = &gateway;
  session.id = gateway.next_session_++;
  session.connection = connection;
  session.outbound = std::move(outbound);
  session.address = std::move(address);
  gateway.sessions_.emplace(session.id, std::move(owned));
  gateway.metrics_.SetClients(gateway.sessions_.size());

  soup_websocket_connection_set_max_incoming_payload_size(connection, kMaxFrameBytes);
  soup_websocket_connection_set_keepalive_interval(connection, kKeepaliveSeconds);
  g_signal_connect(connection, "message", G_CALLBACK(OnMessage), &session);
  g_signal_connect(connection, "closed", G_CALLBACK(OnClosed), &session);
  g_signal_connect(connection, "error", G_CALLBACK(OnError), &session);

  gint64 now = g_get_monotonic_time();
  bool origin_allowed = gateway.OriginAllowed(msg);
  g_object_unref(msg);
  if (gateway.sessions_.size() > gateway.config_.max_clients)
    return gateway.Close(session, close_reason::kTooManyClients);
  if (!origin_allowed) return gateway.Close(session, close_reason::kOriginNotAllowed);
  if (gateway.failures_.LockedOut(session.address, now))
    return gateway.Close(session, close_reason::kLockedOut);

  JsonHolder hello(cJSON_CreateObject());
  cJSON_AddStringToObject(hello.get(), "serverVersion", ZM_VERSION_STRING);
  cJSON_AddStringToObject(hello.get(), "libraryVersion", zm_version());
  cJSON_AddNumberToObject(hello.get(), "protocolVersion", 1);
  cJSON_AddItemToObject(hello.get(), "timeZone", TimeZone().release());
  if (!gateway.config_.password_hash.empty()) {
    session.challenge = RandomBase64(32);
    cJSON* auth = cJSON_AddObjectToObject(hello.get(), "authentication");
    cJSON_AddStringToObject(auth, "challenge", session.challenge.c_str());
    cJSON_AddStringToObject(auth, "salt", SaltOf(gateway.config_.password_hash).c_str());
  }
  gateway.Send(session, Message(kHello, std::move(hello)));
  session.identify_timer = StartTimer(
      gateway.context_, static_cast<guint>(gateway.config_.identify_timeout_ms),
      [](gpointer data) {
        Session& late = *static_cast<Session*>(data);
        CancelTimer(&late.identify_timer);
        if (!late.identified) late.gateway->Close(late, close_reason::kIdentifyTimeout);
      },
      &session);
}

bool Gateway::OriginAllowed(SoupServerMessage* msg) const {
  SoupMessageHeaders* headers = soup_server_message_get_request_headers(msg);
  const char* origin = soup_message_headers_get_one(headers, "Origin");
  if (origin == nullptr) return true;  // not a browser
  if (!config_.allowed_origins.empty()) {
    for (const std::string& allowed : config_.allowed_origins)
      if (allowed == origin) return true;
    return false;
  }
  const char* host = soup_message_headers_get_one(headers, "Host");
  if (host == nullptr) return false;
  std::string same = std::string(config_.tls_certificate.empty() ? "http://" : "https://") + host;
  return g_ascii_strcasecmp(same.c_str(), origin) == 0;
}

void Gateway::OnMessage(SoupWebsocketConnection*, gint type, GBytes* message, gpointer data) {
  Session& session = *static_cast<Session*>(data);
  if (session.closing) return;
  if (type != SOUP_WEBSOCKET_DATA_TEXT)
    return session.gateway->Close(session, close_reason::kBinaryFrame);
  gsize size = 0;
  const char* bytes = static_cast<const char*>(g_bytes_get_data(message, &size));
  session.gateway->HandleMessage(session, bytes, size);
}

void Gateway::OnError(SoupWebsocketConnection*, GError* error, gpointer data) {
  Session& session = *static_cast<Session*>(data);
  if (session.closing) return;
  // Frames the WebSocket layer refused itself (it closes with the error's code) are
  // refusals too; other errors are the network's and only logged.
  if (error->domain != SOUP_WEBSOCKET_ERROR) {
    ZLOG(2, "client %llu (%s): %s", static_cast<unsigned long long>(session.id),
         session.address.c_str(), error->message);
    return;
  }
  const char* reason = error->code == SOUP_WEBSOCKET_CLOSE_BAD_DATA
                           ? close_reason::kInvalidUtf8.name
                       : error->code == SOUP_WEBSOCKET_CLOSE_TOO_BIG ? close_reason::kTooLarge.name
                                                                     : "protocol_error";
  session.closing = true;
  session.gateway->metrics_.Refused(reason);
  ZLOG(1, "client %llu (%s): %s: %s", static_cast<unsigned long long>(session.id),
       session.address.c_str(), reason, error->message);
  // A frame far over the limit makes the WebSocket layer drop the connection at once, without
  // a close frame; the client is told why (1009) before the stream closes.
  if (error->code == SOUP_WEBSOCKET_CLOSE_TOO_BIG) {
    session.outbound->Stop();
    std::string close = CloseFrame(SOUP_WEBSOCKET_CLOSE_TOO_BIG, close_reason::kTooLarge.name);
    session.outbound->AddRaw(close.data(), close.size());
  }
}

void Gateway::OnClosed(SoupWebsocketConnection*, gpointer data) {
  Session& session = *static_cast<Session*>(data);
  session.gateway->Forget(session);
}

void Gateway::Close(Session& session, const CloseReason& reason, const std::string& detail) {
  if (session.closing) return;
  session.closing = true;
  metrics_.Refused(reason.name);
  ZLOG(1, "closing client %llu (%s): %d %s%s%s", static_cast<unsigned long long>(session.id),
       session.address.c_str(), reason.code, reason.name, detail.empty() ? "" : ": ",
       detail.c_str());
  session.outbound->Stop();
  if (soup_websocket_connection_get_state(session.connection) == SOUP_WEBSOCKET_STATE_OPEN)
    soup_websocket_connection_close(session.connection, static_cast<gushort>(reason.code),
                                    reason.name);
}

void Gateway::Forget(Session& session) {
  auto it = sessions_.find(session.id);
  if (it == sessions_.end()) return;
  std::unique_ptr<Session> owned = std::move(it->second);
  sessions_.erase(it);
  metrics_.SetClients(sessions_.size());
  for (GSource** timer : {&session.identify_timer, &session.answer_timer, &session.coalesce_timer})
    CancelTimer(timer);
  session.outbound->Stop();
  // A client that goes stops watching; the last one to go stops the pictures.
  if (!session.live_token.empty()) {
    session.live_token.clear();
    UpdateLiveWatch();
  }
  g_signal_handlers_disconnect_by_data(session.connection, &session);
  if (soup_websocket_connection_get_state(session.connection) == SOUP_WEBSOCKET_STATE_OPEN)
    soup_websocket_connection_close(session.connection, SOUP_WEBSOCKET_CLOSE_GOING_AWAY, nullptr);
  g_object_unref(session.connection);
}

void Gateway::HandleMessage(Session& session, const char* data, size_t size) {
  Decoded decoded = DecodeMessage(data, size, Limits{config_.max_message_bytes, config_.max_depth});
  if (!decoded.ok) return Close(session, decoded.reason);
  if (session.checking_answer) return Close(session, close_reason::kNotIdentified);
  switch (decoded.op) {
    case kIdentify:
      if (session.identified) return Close(session, close_reason::kAlreadyIdentified);
      return HandleIdentify(session, std::move(decoded.message), decoded.d);
    case kReidentify:
    case kRequest:
    case kRequestBatch:
      if (!session.identified) return Close(session, close_reason::kNotIdentified);
      if (decoded.op == kReidentify) return HandleReidentify(session, decoded.d);
      return HandleRequest(session, std::move(decoded.message), decoded.d,
                           decoded.op == kRequestBatch);
    default:
      return Close(session, close_reason::kUnknownOp, std::to_string(decoded.op));
  }
}

void Gateway::HandleIdentify(Session& session, JsonHolder message, const cJSON* d) {
  const cJSON* version = cJSON_GetObjectItemCaseSensitive(d, "protocolVersion");
  if (!cJSON_IsNumber(version) || version->valuedouble != 1)
    return Close(session, close_reason::kUnsupportedVersion);
  session.pending_identify = std::move(message);
  int delay = config_.password_hash.empty()
                  ? 0
                  : failures_.DelayMs(session.address, g_get_monotonic_time());
  if (delay == 0) return FinishIdentify(session);
  // An address that kept failing waits before its answer is even looked at.
  session.checking_answer = true;
  session.answer_timer = StartTimer(
      context_, static_cast<guint>(delay),
      [](gpointer data) {
        Session& waiting = *static_cast<Session*>(data);
        CancelTimer(&waiting.answer_timer);
        waiting.checking_answer = false;
        waiting.gateway->FinishIdentify(waiting);
      },
      &session);
}

void Gateway::FinishIdentify(Session& session) {
  JsonHolder message = std::move(session.pending_identify);
  const cJSON* d = cJSON_GetObjectItemCaseSensitive(message.get(), "d");
  if (!config_.password_hash.empty()) {
    const cJSON* answer = cJSON_GetObjectItemCaseSensitive(d, "authentication");
    if (!cJSON_IsString(answer) ||
        !CheckAnswer(config_.password_hash, session.challenge, answer->valuestring)) {
      failures_.Failed(session.address, g_get_monotonic_time());
      return Close(session, close_reason::kAuthenticationFailed);
    }
    failures_.Succeeded(session.address);
  }
  std::string error;
  if (!ParseSubscriptions(cJSON_GetObjectItemCaseSensitive(d, "subscriptions"),
                          &session.subscriptions, &error))
    return Close(session, close_reason::kInvalidSubscriptions, error);
  session.identified = true;
  CancelTimer(&session.identify_timer);
  JsonHolder identified(cJSON_CreateObject());
  cJSON_AddNumberToObject(identified.get(), "negotiatedProtocolVersion", 1);
  Send(session, Message(kIdentified, std::move(identified)));
}

void Gateway::HandleReidentify(Session& session, const cJSON* d) {
  std::string error;
  Subscriptions replaced;
  if (!ParseSubscriptions(cJSON_GetObjectItemCaseSensitive(d, "subscriptions"), &replaced, &error))
    return Close(session, close_reason::kInvalidSubscriptions, error);
  session.subscriptions = std::move(replaced);
  session.coalescer.Clear();
  JsonHolder identified(cJSON_CreateObject());
  cJSON_AddNumberToObject(identified.get(), "negotiatedProtocolVersion", 1);
  Send(session, Message(kIdentified, std::move(identified)));
}

void Gateway::HandleRequest(Session& session, JsonHolder message, const cJSON* d, bool batch) {
  if (batch) {
    const cJSON* requests = cJSON_GetObjectItemCaseSensitive(d, "requests");
    if (!cJSON_IsArray(requests)) return Close(session, close_reason::kInvalidMessage);
    if (static_cast<size_t>(cJSON_GetArraySize(requests)) > config_.max_batch)
      return Close(session, close_reason::kBatchTooLong);
  }
  if (*session.in_flight >= config_.max_in_flight)
    return Close(session, close_reason::kTooManyInFlight);
  if (!batch && RequestType(d) == kWatchLiveRequest) return HandleWatchLive(session, d);
  ++*session.in_flight;
  auto* job = new Job{this,
                      session.id,
                      batch,
                      std::move(message),
                      d,
                      g_get_monotonic_time(),
                      session.outbound,
                      session.in_flight,
                      {}};
  g_thread_pool_push(workers_, job, nullptr);
}

void Gateway::HandleWatchLive(Session& session, const cJSON* d) {
  // It changes this client's own state, so it is answered here, never on a worker.
  gint64 arrived = g_get_monotonic_time();
  const cJSON* args = cJSON_GetObjectItemCaseSensitive(d, "requestData");
  const cJSON* on = cJSON_GetObjectItemCaseSensitive(args, "on");
  int code = 0;
  std::string comment = "success";
  if (args != nullptr && !cJSON_IsObject(args) && !cJSON_IsNull(args)) {
    code = kDataNotObject;
    comment = "requestData must be an object";
  } else if (on == nullptr || cJSON_IsNull(on)) {
    code = kMissingArgument;
    comment = "missing argument \"on\"";
  } else if (!cJSON_IsBool(on)) {
    code = kWrongType;
    comment = "argument \"on\" must be boolean";
  }
  JsonHolder data;
  if (code == 0) {
    bool watch = cJSON_IsTrue(on);
    if (watch && session.live_token.empty()) session.live_token = RandomBase64(24);
    if (!watch) session.live_token.clear();
    UpdateLiveWatch();
    data.reset(cJSON_CreateObject());
    cJSON_AddBoolToObject(data.get(), "on", watch);
    if (watch) {
      cJSON_AddStringToObject(data.get(), "token", session.live_token.c_str());
      cJSON_AddNumberToObject(data.get(), "intervalMs", config_.live_interval_ms);
      cJSON_AddNumberToObject(data.get(), "width", config_.live_width);
      cJSON_AddNumberToObject(data.get(), "height", config_.live_height);
    }
  }
  Send(session, Message(kRequestResponse, ResponseData(kWatchLiveRequest, RequestId(d), code,
                                                       comment, std::move(data))));
  metrics_.Request(kWatchLiveRequest, code,
                   static_cast<double>(g_get_monotonic_time() - arrived) / G_USEC_PER_SEC);
}

void Gateway::Send(Session& session, const std::string& text) {
  Enqueue(session, TextFrame(text), false, true);
}

Outbound::Added Gateway::Queue(Outbound& outbound, Frame frame, bool high_volume, bool flush) {
  Outbound::Added added = outbound.Add(std::move(frame), high_volume);
  if (added == Outbound::Added::kDropped || added == Outbound::Added::kQueuedDroppingOlder)
    metrics_.EventDropped();
  if (flush &&
      (added == Outbound::Added::kQueued || added == Outbound::Added::kQueuedDroppingOlder))
    outbound.Flush();
  return added;
}

bool Gateway::Enqueue(Session& session, Frame frame, bool high_volume, bool flush) {
  if (session.closing) return false;
  Outbound::Added added = Queue(*session.outbound, std::move(frame), high_volume, flush);
  // Nothing left to drop: the client is not reading and goes.
  if (added == Outbound::Added::kFull) Close(session, close_reason::kSlowConsumer);
  return added == Outbound::Added::kQueued || added == Outbound::Added::kQueuedDroppingOlder;
}

bool Gateway::SendEvent(Session& session, const Frame& frame, bool high_volume, bool flush) {
  metrics_.EventSent();
  return Enqueue(session, frame, high_volume, flush);
}

Frame Gateway::EventFrame(const std::string& signal, cJSON* data) {
  JsonHolder event(cJSON_CreateObject());
  cJSON_AddStringToObject(event.get(), "eventType", signal.c_str());
  cJSON_AddItemReferenceToObject(event.get(), "eventData", data);  // the caller keeps it
  return TextFrame(Message(kEvent, std::move(event)));
}

void Gateway::ArmCoalescing(Session& session) {
  if (session.coalesce_timer != nullptr) return;
  gint64 wait = session.coalescer.NextDue(g_get_monotonic_time());
  if (wait < 0) return;
  session.coalesce_timer = StartTimer(
      context_, static_cast<guint>((wait + 999) / 1000),
      [](gpointer data) {
        Session& due = *static_cast<Session*>(data);
        CancelTimer(&due.coalesce_timer);
        for (auto& [signal, record] : due.coalescer.TakeDue(g_get_monotonic_time()))
          due.gateway->SendEvent(due, EventFrame(signal, record.get()), true, true);
        due.gateway->ArmCoalescing(due);
      },
      &session);
}

}  // namespace zolo::gateway
