// A small synchronous WebSocket/HTTP client of the gateway for tests and benchmarks, on
// libsoup's client and the calling thread's default main context (push one first).
#pragma once

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <libsoup/soup.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <deque>
#include <future>
#include <string>
#include <thread>

#include "common/json_holder.h"
#include "gateway.h"

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

// A masked client text frame holding `payload`.
inline std::string ClientFrame(const std::string& payload) {
  std::string frame = {'\x81'};
  if (payload.size() < 126) {
    frame += static_cast<char>(0x80 | payload.size());
  } else {
    frame += {static_cast<char>(0x80 | 126), static_cast<char>(payload.size() >> 8),
              static_cast<char>(payload.size() & 0xff)};
  }
  frame += {1, 2, 3, 4};
  for (size_t i = 0; i < payload.size(); ++i) frame += static_cast<char>(payload[i] ^ (i % 4 + 1));
  return frame;
}

// A client that does the handshake and Identify by hand, so it can send frames libsoup's
// client would not and stop reading when it likes. The socket, or -1.
inline int RawClient(int port, int receive_buffer = 0) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (receive_buffer > 0)
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return -1;
  std::string upgrade =
      "GET /ws HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
      "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";
  if (write(fd, upgrade.data(), upgrade.size()) < 0) return -1;
  char buffer[2048];
  if (read(fd, buffer, sizeof buffer) <= 0) return -1;  // the upgrade answer (and maybe Hello)
  std::string identify = ClientFrame(R"({"op":1,"d":{"protocolVersion":1}})");
  if (write(fd, identify.data(), identify.size()) < 0) return -1;
  return fd;
}

// Reads server frames from `fd` until a close frame; its code, or -1.
inline int RawCloseCode(int fd) {
  timeval wait{5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  std::string data;
  char buffer[4096];
  for (;;) {
    // Server frames are unmasked; walk them until the close frame (opcode 8).
    size_t at = 0;
    while (at + 2 <= data.size()) {
      size_t length = static_cast<unsigned char>(data[at + 1]) & 0x7f, header = 2;
      if (length == 126 && at + 4 <= data.size()) {
        length = (static_cast<unsigned char>(data[at + 2]) << 8) |
                 static_cast<unsigned char>(data[at + 3]);
        header = 4;
      }
      if (at + header + length > data.size()) break;
      if ((data[at] & 0x0f) == 8 && length >= 2) {
        // Answers the close with the same code, as a well-behaved client does.
        std::string echo = {'\x88', '\x82', 0, 0, 0, 0, data[at + header], data[at + header + 1]};
        if (write(fd, echo.data(), echo.size()) < 0) return -1;
        return (static_cast<unsigned char>(data[at + header]) << 8) |
               static_cast<unsigned char>(data[at + header + 1]);
      }
      at += header + length;
    }
    ssize_t got = read(fd, buffer, sizeof buffer);
    if (got <= 0) return -1;
    data.append(buffer, static_cast<size_t>(got));
  }
}

// A gateway serving on its own thread and main context, as the daemon's loop would.
class GatewayThread {
 public:
  // Starts it; the port it listens on, or -1 when it did not start.
  int Start(const gateway::Config& config) {
    std::promise<int> started;
    thread_ = std::thread([this, config, &started] {
      GMainContext* context = g_main_context_new();
      g_main_context_push_thread_default(context);
      loop_ = g_main_loop_new(context, FALSE);
      {
        gateway::Gateway server(config);
        std::string error;
        bool ok = server.Start(&error);
        started.set_value(ok ? server.port() : -1);
        if (ok) g_main_loop_run(loop_);
        server.Stop();
      }
      g_main_context_pop_thread_default(context);
      g_main_context_unref(context);
    });
    return started.get_future().get();
  }
  void Stop() {
    if (!thread_.joinable()) return;
    g_main_context_invoke(
        g_main_loop_get_context(loop_),
        [](gpointer loop) -> gboolean {
          g_main_loop_quit(static_cast<GMainLoop*>(loop));
          return G_SOURCE_REMOVE;
        },
        loop_);
    thread_.join();
    g_main_loop_unref(loop_);
    loop_ = nullptr;
  }
  ~GatewayThread() { Stop(); }

 private:
  std::thread thread_;
  GMainLoop* loop_ = nullptr;
};

// The "d" object of a message.
inline const cJSON* D(const JsonHolder& message) {
  return cJSON_GetObjectItem(message.get(), "d");
}

}  // namespace zolo::test
