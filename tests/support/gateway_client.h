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
#include <string_view>
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
  // The next message of `op`, skipping others (at most 100000 of them).
  JsonHolder NextOp(int op, int timeout_ms = 5000) {
    int skipped = 0;
    for (JsonHolder message = Next(timeout_ms); message != nullptr; message = Next(timeout_ms)) {
      if (cJSON_GetObjectItem(message.get(), "op")->valueint == op) return message;
      if (++skipped == 100000) break;
    }
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
inline int RawClient(int port, int receive_buffer = 0, const std::string& subscriptions = "") {
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
  std::string identify = ClientFrame(
      R"({"op":1,"d":{"protocolVersion":1)" +
      (subscriptions.empty() ? std::string() : ",\"subscriptions\":" + subscriptions) + "}}");
  if (write(fd, identify.data(), identify.size()) < 0) return -1;
  return fd;
}

// Walks the whole server frames (unmasked) at the front of `data`, calling
// `take(opcode, payload)` for each until it returns false; removes what it walked and
// returns false when `take` stopped it.
template <typename Take>
bool TakeServerFrames(std::string* data, Take take) {
  size_t at = 0;
  bool more = true;
  while (more && at + 2 <= data->size()) {
    auto byte = [&](size_t i) {
      return static_cast<uint64_t>(static_cast<unsigned char>((*data)[i]));
    };
    uint64_t length = byte(at + 1) & 0x7f;
    size_t header = length == 126 ? 4 : length == 127 ? 10 : 2;
    if (at + header > data->size()) break;
    if (header > 2) {
      length = 0;
      for (size_t i = 2; i < header; ++i) length = (length << 8) | byte(at + i);
    }
    if (at + header + length > data->size()) break;
    more = take(static_cast<int>(byte(at) & 0x0f),
                std::string_view(data->data() + at + header, length));
    at += header + length;
  }
  data->erase(0, at);
  return more;
}

// Reads server frames from `fd` until a close frame, for at most 4 MiB; its code, or -1.
inline int RawCloseCode(int fd) {
  timeval wait{5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  std::string data;
  char buffer[4096];
  int code = -1;
  auto close_frame = [&](int opcode, std::string_view payload) {
    if (opcode != 8 || payload.size() < 2) return true;
    code = (static_cast<unsigned char>(payload[0]) << 8) | static_cast<unsigned char>(payload[1]);
    return false;
  };
  size_t total = 0;
  while (TakeServerFrames(&data, close_frame)) {
    if (total > (4u << 20)) return -1;
    ssize_t got = read(fd, buffer, sizeof buffer);
    if (got <= 0) return -1;
    data.append(buffer, static_cast<size_t>(got));
    total += static_cast<size_t>(got);
  }
  // Answers the close with the same code, as a well-behaved client does.
  std::string echo = {
      '\x88', '\x82', 0, 0, 0, 0, static_cast<char>(code >> 8), static_cast<char>(code & 0xff)};
  if (write(fd, echo.data(), echo.size()) < 0) return -1;
  return code;
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
