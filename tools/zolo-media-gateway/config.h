// The gateway's settings: the [Gateway] group of the media configuration file, with the
// limits the protocol document lists.
#pragma once

#include <string>
#include <vector>

namespace zolo::gateway {

struct Config {
  std::string address = "127.0.0.1";
  int port = 4480;
  std::string password_hash;  // "<salt>:<secret>", empty: no password
  std::string tls_certificate;
  std::string tls_key;
  std::vector<std::string> allowed_origins;  // empty: same origin only
  // The console page's folder: `www_option` (--www) as given, else `www` ([Gateway] www, an
  // appliance path below the sandbox root), else the installed folder (WwwFolder).
  std::string www_option;
  std::string www;
  std::string database = "/var/lib/zolo/media.db";
  std::string recording_folder = "/var/lib/zolo/recordings";

  // False when the library did not start (no configuration or database yet): the gateway
  // serves what it can and starts the library when it can.
  bool library_ready = true;

  // Limits.
  size_t max_message_bytes = 1 << 20;
  int max_depth = 32;
  size_t max_clients = 64;
  // Open TCP connections of any kind (HTTP and WebSocket), and how long an HTTP connection may
  // stay silent before it is dropped.
  size_t max_connections = 256;
  unsigned http_idle_seconds = 30;
  int max_in_flight = 16;
  size_t max_batch = 64;
  size_t max_queue_messages = 256;
  size_t max_queue_bytes = 4 << 20;
  // A client whose queue stays full this long is closed (4011), even if only high-volume
  // events were being dropped.
  int slow_consumer_ms = 10000;
  // A response (or a batch's) larger than this is answered -107: the client asks for a page.
  size_t max_answer_bytes = 1 << 20;
  int identify_timeout_ms = 10000;
  int worker_threads = 64;
  // Failed authentications: this many are free, then each waits twice as long as the last
  // (from `auth_delay_ms`, at most 4 s); after `auth_lockout_failures` the address is
  // refused for `auth_lockout_seconds`.
  int auth_free_failures = 3;
  int auth_delay_ms = 1000;
  int auth_lockout_failures = 10;
  int auth_lockout_seconds = 300;
  // The engine watch: a state query this often; no answer within `engine_timeout_ms` is
  // a lost engine (clients hear of a stall within about three seconds).
  int engine_probe_ms = 500;
  int engine_timeout_ms = 1500;
  // Live pictures while a client watches: a round this often (skipped while the last one
  // still runs), each picture this size.
  int live_interval_ms = 500;
  int live_width = 320;
  int live_height = 180;
};

// Reads the [Gateway] and the path settings from the configuration file at `path`. The
// system's own file (`system_file`, looked up below the sandbox root) may be missing: the
// defaults stay. A file named by the user is taken as given and must exist. False with
// `error` set when the file cannot be read or a value is malformed.
bool LoadConfig(const std::string& path, bool system_file, Config* config, std::string* error);

// The folder served at "/". The installed folder is looked up below the sandbox root first,
// where tests and the demo lay the page out.
std::string WwwFolder(const Config& config);

// True when `address` only reaches this machine (127.0.0.0/8, ::1, "localhost").
bool IsLoopback(const std::string& address);

}  // namespace zolo::gateway
