// A small synchronous WebSocket/HTTP client of the gateway for tests and benchmarks, on
// libsoup's client and the calling thread's default main context (push one first).
#pragma once

#include <cjson/cJSON.h>
#include <libsoup/soup.h>

#include <deque>
#include <string>

#include "common/json_holder.h"

namespace zolo::test {

// Runs the thread-default context until `done()` or `timeout_ms`; the result of `done()`.
template <typename Done>
bool PumpUntil(Done done, int timeout_ms) {
  GMainContext* context = g_main_context_get_thread_default();
  gint64 deadline = g_get_monotonic_time() + static_cast<gint64>(timeout_ms) * 1000;
  GSource* tick = g_timeout_source_new(2);
  g_source_set_callback(
      tick, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
  g_source_attach(tick, context);
  while (!done() && g_get_monotonic_time() < deadline) g_main_context_iteration(context, TRUE);
  g_source_destroy(tick);
  g_source_unref(tick);
  return done();
}

class GatewayClient {
 public:
  explicit GatewayClient(SoupSession* session) : session_(session) {}
  ~GatewayClient() {
    if (connection_ != nullptr) {
      g_signal_handlers_disconnect_by_data(connection_, this);
      if (soup_websocket_connection_get_state(connection_) == SOUP_WEBSOCKET_STATE_OPEN)
        soup_websocket_connection_close(connection_, SOUP_WEBSOCKET_CLOSE_NORMAL, nullptr);
      g_object_unref(connection_);
    }
  }
  GatewayClient(const GatewayClient&) = delete;
  GatewayClient& operator=(const GatewayClient&) = delete;

  // Opens `url` ("ws://127.0.0.1:<port>/ws"); false when the upgrade fails.
  bool Connect(const std::string& url, const char* origin = nullptr) {
    SoupMessage* msg = soup_message_new("GET", url.c_str());
    g_signal_connect(msg, "accept-certificate",
                     G_CALLBACK(+[](SoupMessage*, GTlsCertificate*, GTlsCertificateFlags) {
                       return TRUE;  // the tests' own self-signed certificate
                     }),
                     nullptr);
    soup_session_websocket_connect_async(
        session_, msg, origin, nullptr, G_PRIORITY_DEFAULT, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer self) {
          auto* client = static_cast<GatewayClient*>(self);
          client->connection_ =
              soup_session_websocket_connect_finish(SOUP_SESSION(source), result, nullptr);
          client->connect_done_ = true;
        },
        this);
    PumpUntil([this] { return connect_done_; }, 10000);
    g_object_unref(msg);
    if (connection_ == nullptr) return false;
    soup_websocket_connection_set_max_incoming_payload_size(connection_, 0);
    g_signal_connect(
        connection_, "message",
        G_CALLBACK(+[](SoupWebsocketConnection*, gint, GBytes* message, gpointer self) {
          gsize size = 0;
          const char* data = static_cast<const char*>(g_bytes_get_data(message, &size));
          static_cast<GatewayClient*>(self)->inbox_.emplace_back(data, size);
        }),
        this);
    g_signal_connect(connection_, "closed",
                     G_CALLBACK(+[](SoupWebsocketConnection* c, gpointer self) {
                       static_cast<GatewayClient*>(self)->close_code_ =
                           soup_websocket_connection_get_close_code(c);
                       static_cast<GatewayClient*>(self)->closed_ = true;
                     }),
                     this);
    return true;
  }

  void Send(const std::string& text) {
    // Sent as given, even when it is not valid UTF-8 (send_text would refuse it).
    GBytes* bytes = g_bytes_new(text.data(), text.size());
    soup_websocket_connection_send_message(connection_, SOUP_WEBSOCKET_DATA_TEXT, bytes);
    g_bytes_unref(bytes);
  }
  void SendBinary(const std::string& data) {
    soup_websocket_connection_send_binary(connection_, data.data(), data.size());
  }

  // The next message, parsed; null after `timeout_ms` or when the connection closed.
  JsonHolder Next(int timeout_ms = 5000) {
    PumpUntil([this] { return !inbox_.empty() || closed_; }, timeout_ms);
    if (inbox_.empty()) return nullptr;
    JsonHolder message(cJSON_Parse(inbox_.front().c_str()));
    inbox_.pop_front();
    return message;
  }
  // The next message of `op`, skipping others.
  JsonHolder NextOp(int op, int timeout_ms = 5000) {
    for (JsonHolder message = Next(timeout_ms); message != nullptr; message = Next(timeout_ms))
      if (cJSON_GetObjectItem(message.get(), "op")->valueint == op) return message;
    return nullptr;
  }
  // The close code once the connection closed, -1 when it did not within `timeout_ms`.
  int WaitClosed(int timeout_ms = 5000) {
    PumpUntil([this] { return closed_; }, timeout_ms);
    return closed_ ? close_code_ : -1;
  }
  bool closed() const { return closed_; }
  std::deque<std::string>& inbox() { return inbox_; }

 private:
  SoupSession* session_;
  SoupWebsocketConnection* connection_ = nullptr;
  bool connect_done_ = false;
  bool closed_ = false;
  int close_code_ = 0;
  std::deque<std::string> inbox_;
};

// The "d" object of a message.
inline const cJSON* D(const JsonHolder& message) {
  return cJSON_GetObjectItem(message.get(), "d");
}

}  // namespace zolo::test
