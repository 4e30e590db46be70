#include <oviklog.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "zolo_bus.h"
#include "zolo_bus_names.h"

namespace {

constexpr const char* kLogSource = "libzolo_bus";
// Connections kept open for the next call, and open at most at once.
constexpr size_t kIdleCallConnections = 4;
constexpr size_t kMaxCallConnections = 64;
// Reconnection delays of the signal connection after the bus went away.
constexpr int kFirstRetryMs = 50;
constexpr int kMaxRetryMs = 2000;

#define BUS_LOG(level, ...) \
  OVIK_LOG_write_newline(40, (level), kLogSource, __LINE__, __func__, __VA_ARGS__)

using Clock = std::chrono::steady_clock;

struct Subscription {
  bus_signal_handler handler = nullptr;
  sd_bus_slot* slot = nullptr;
  std::string service;
  std::string name;
  std::string path_prefix;  // "<service>/signal/<name>/"
};

struct Delivery {
  bus_signal_handler handler;
  std::string path;
  std::string payload;
};

// Strict UTF-8 as D-Bus wants it: no overlong forms, no surrogates, nothing above U+10FFFF.
bool IsValidUtf8(const std::string& text) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* end = p + text.size();
  while (p < end) {
    unsigned char c = *p++;
    if (c < 0x80) {
      if (c == 0) return false;
      continue;
    }
    int more;
    uint32_t code;
    if (c >= 0xC2 && c <= 0xDF) {
      more = 1;
      code = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      more = 2;
      code = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      more = 3;
      code = c & 0x07;
    } else {
      return false;
    }
    if (end - p < more) return false;
    for (int i = 0; i < more; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
      code = (code << 6) | (p[i] & 0x3F);
    }
    p += more;
    if ((more == 2 && (code < 0x800 || (code >= 0xD800 && code <= 0xDFFF))) ||
        (more == 3 && (code < 0x10000 || code > 0x10FFFF)))
      return false;
  }
  return true;
}

}  // namespace

struct bus_client {
  std::string name;
  std::atomic<void*> user_data{nullptr};
  std::atomic<bool> connected{false};

  // Method calls: each call takes a connection of the pool for itself, so a stalled call
  // never holds up another.
  std::mutex pool_mutex;
  std::condition_variable pool_changed;
  std::vector<sd_bus*> idle;  // open, drained, ready for the next call
  size_t open_calls = 0;      // connections taken by calls in flight

  std::recursive_mutex signal_mutex;  // guards signal_bus, subscriptions and pending
  sd_bus* signal_bus = nullptr;
  std::map<std::string, Subscription> subscriptions;  // key: "<service>/<name>"
  std::vector<Delivery> pending;                      // filled while processing the bus

  std::thread dispatcher;
  int wake_fd = -1;
  std::atomic<bool> stopping{false};
};

namespace {

int OpenBus(const std::string& description, sd_bus** bus) {
  int r = sd_bus_open_system(bus);
  if (r < 0) return r;
  sd_bus_set_description(*bus, description.c_str());
  return 0;
}

// Reads whatever a pooled connection received since its last call and drops it (late
// replies, the bus's own greetings). False when the connection is no longer usable.
bool Drain(sd_bus* bus) {
  if (sd_bus_is_open(bus) <= 0) return false;
  int r;
  while ((r = sd_bus_process(bus, nullptr)) > 0) {
  }
  return r >= 0 && sd_bus_is_open(bus) > 0;
}

// A connection for one call: an idle one of the pool, or a new one. Waits for a free place
// until `deadline` when kMaxCallConnections calls are in flight. Null with `*error` set.
sd_bus* TakeConnection(bus_client* client, Clock::time_point deadline, int* error) {
  std::unique_lock<std::mutex> lock(client->pool_mutex);
  for (;;) {
    if (!client->connected.load()) {
      *error = BUS_ERROR;
      return nullptr;
    }
    while (!client->idle.empty()) {
      sd_bus* bus = client->idle.back();
      client->idle.pop_back();
      ++client->open_calls;
      lock.unlock();
      if (Drain(bus)) return bus;
      sd_bus_flush_close_unref(bus);  // the bus went away under it: try the next one
      lock.lock();
      --client->open_calls;
    }
    if (client->open_calls < kMaxCallConnections) break;
    if (client->pool_changed.wait_until(lock, deadline) == std::cv_status::timeout) {
      *error = BUS_ETIMEDOUT;
      return nullptr;
    }
  }
  ++client->open_calls;
  lock.unlock();
  sd_bus* bus = nullptr;
  int r = OpenBus(client->name + "-calls", &bus);
  if (r < 0) {
    BUS_LOG(1, "%s: cannot connect to the system bus (%s)", client->name.c_str(), strerror(-r));
    std::lock_guard<std::mutex> relock(client->pool_mutex);
    --client->open_calls;
    client->pool_changed.notify_one();
    *error = BUS_ERROR;
    return nullptr;
  }
  return bus;
}

// Gives a connection back after a call. One whose call did not end with its reply (timed
// out, broken) is closed, so a late reply can never pile up in it.
void ReturnConnection(bus_client* client, sd_bus* bus, bool reusable) {
  reusable = reusable && Drain(bus);
  std::unique_lock<std::mutex> lock(client->pool_mutex);
  --client->open_calls;
  if (reusable && client->connected.load() && client->idle.size() < kIdleCallConnections) {
    client->idle.push_back(bus);
    bus = nullptr;
  }
  client->pool_changed.notify_one();
  lock.unlock();
  if (bus != nullptr) sd_bus_flush_close_unref(bus);
}

int OnSignal(sd_bus_message* message, void* user, sd_bus_error*) {
  auto* entry = static_cast<std::pair<bus_client*, std::string>*>(user);
  bus_client* client = entry->first;
  auto it = client->subscriptions.find(entry->second);
  if (it == client->subscriptions.end() || it->second.handler == nullptr) return 0;
  const char* payload = nullptr;
  if (sd_bus_message_read(message, "s", &payload) < 0 || payload == nullptr) return 0;
  uint64_t serial = 0;
  sd_bus_message_get_cookie(message, &serial);
  client->pending.push_back(
      Delivery{it->second.handler, it->second.path_prefix + std::to_string(serial), payload});
  return 0;
}

// Owned by the slot: freed by sd-bus when the match is removed.
void FreeSlotData(void* user) {
  delete static_cast<std::pair<bus_client*, std::string>*>(user);
}

// Adds the match of one subscription on the signal connection (signal_mutex held).
int AddMatch(bus_client* client, const std::string& key, Subscription& subscription) {
  zolo::bus::ServiceNames names = zolo::bus::NamesOf(subscription.service);
  auto* slot_data = new std::pair<bus_client*, std::string>(client, key);
  // No sender in the match: the engine's unique name changes when it restarts, the object
  // path and signal interface do not.
  int r = sd_bus_match_signal(client->signal_bus, &subscription.slot, nullptr,
                              names.object_path.c_str(), names.signal_interface.c_str(),
                              subscription.name.c_str(), OnSignal, slot_data);
  if (r < 0) {
    delete slot_data;
    subscription.slot = nullptr;
    return r;
  }
  sd_bus_slot_set_destroy_callback(subscription.slot, FreeSlotData);
  return 0;
}

bool WaitForWake(bus_client* client, int ms) {
  struct pollfd fd = {client->wake_fd, POLLIN, 0};
  if (poll(&fd, 1, ms) > 0) {
    uint64_t value;
    ssize_t ignored = read(client->wake_fd, &value, sizeof value);
    (void)ignored;
    return true;
  }
  return false;
}

// The bus went away: drops the dead connection, then reopens it with growing pauses and
// restores every subscription. Returns when connected again or stopping.
void Reconnect(bus_client* client) {
  {
    std::lock_guard<std::recursive_mutex> lock(client->signal_mutex);
    for (auto& entry : client->subscriptions)
      entry.second.slot = sd_bus_slot_unref(entry.second.slot);
    client->pending.clear();
    client->signal_bus = sd_bus_flush_close_unref(client->signal_bus);
  }
  int pause_ms = kFirstRetryMs;
  while (!client->stopping.load()) {
    WaitForWake(client, pause_ms);
    if (client->stopping.load()) return;
    sd_bus* bus = nullptr;
    if (OpenBus(client->name + "-signals", &bus) < 0) {
      pause_ms = std::min(pause_ms * 2, kMaxRetryMs);
      continue;
    }
    std::lock_guard<std::recursive_mutex> lock(client->signal_mutex);
    client->signal_bus = bus;
    int failed = 0;
    for (auto& entry : client->subscriptions)
      if (AddMatch(client, entry.first, entry.second) < 0) ++failed;
    if (failed == 0) {
      BUS_LOG(2, "%s: bus connection restored with %zu subscriptions", client->name.c_str(),
              client->subscriptions.size());
      return;
    }
    for (auto& entry : client->subscriptions)
      entry.second.slot = sd_bus_slot_unref(entry.second.slot);
    client->signal_bus = sd_bus_flush_close_unref(client->signal_bus);
    pause_ms = std::min(pause_ms * 2, kMaxRetryMs);
  }
}

void Deliver(bus_client* client, std::vector<Delivery>& batch) {
  // Handlers run without any lock held, so they may call methods or (un)subscribe.
  void* user_data = client->user_data.load();
  for (auto& delivery : batch) {
    try {
      delivery.handler(client, user_data, delivery.path.c_str(), delivery.payload.data(),
                       static_cast<int>(delivery.payload.size()));
    } catch (const std::exception& e) {
      BUS_LOG(0, "%s: signal handler of %s threw: %s", client->name.c_str(), delivery.path.c_str(),
              e.what());
    } catch (...) {
      BUS_LOG(0, "%s: signal handler of %s threw", client->name.c_str(), delivery.path.c_str());
    }
  }
  batch.clear();
}

void Dispatch(bus_client* client) {
  std::vector<Delivery> batch;
  while (!client->stopping.load()) {
    int fd = -1;
    short events = 0;
    uint64_t timeout_usec = UINT64_MAX;
    bool lost = false;
    {
      std::lock_guard<std::recursive_mutex> lock(client->signal_mutex);
      for (;;) {
        int r = sd_bus_process(client->signal_bus, nullptr);
        if (r < 0 || sd_bus_is_open(client->signal_bus) <= 0) {
          BUS_LOG(1, "%s: bus connection lost (%s); reconnecting", client->name.c_str(),
                  strerror(r < 0 ? -r : ECONNRESET));
          lost = true;
          break;
        }
        if (r == 0) break;
        if (client->pending.size() >= 256) break;  // deliver in bounded batches
      }
      batch.swap(client->pending);
      if (!lost) {
        fd = sd_bus_get_fd(client->signal_bus);
        int wanted = sd_bus_get_events(client->signal_bus);
        events = static_cast<short>(wanted > 0 ? wanted : POLLIN);
        sd_bus_get_timeout(client->signal_bus, &timeout_usec);
      }
    }
    bool more = !batch.empty();
    Deliver(client, batch);
    if (lost) {
      Reconnect(client);
      continue;
    }
    if (more || client->stopping.load()) continue;
    struct pollfd fds[2] = {{fd, events, 0}, {client->wake_fd, POLLIN, 0}};
    int wait_ms = -1;
    if (timeout_usec != UINT64_MAX) {
      struct timespec now;
      clock_gettime(CLOCK_MONOTONIC, &now);
      uint64_t now_usec = static_cast<uint64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
      wait_ms =
          timeout_usec <= now_usec ? 0 : static_cast<int>((timeout_usec - now_usec) / 1000 + 1);
    }
    poll(fds, 2, wait_ms);
    if (fds[1].revents & POLLIN) {
      uint64_t value;
      ssize_t ignored = read(client->wake_fd, &value, sizeof value);
      (void)ignored;
    }
  }
}

void Wake(bus_client* client) {
  uint64_t one = 1;
  ssize_t ignored = write(client->wake_fd, &one, sizeof one);
  (void)ignored;
}

}  // namespace

extern "C" int bus_init(void) {
  return 0;
}

extern "C" int bus_cleanup(void) {
  return 0;
}

extern "C" bus_client* bus_client_new(const char* name) {
  if (name == nullptr) return nullptr;
  auto* client = new (std::nothrow) bus_client();
  if (client == nullptr) return nullptr;
  client->name = name;
  return client;
}

extern "C" void bus_client_free(bus_client* client) {
  if (client == nullptr) return;
  bus_disconnect(client);
  delete client;
}

extern "C" int bus_connect(bus_client* client, int /*flags*/) {
  if (client == nullptr) return BUS_EINVAL;
  if (client->connected.load()) return 0;
  sd_bus* first_call = nullptr;
  int r = OpenBus(client->name + "-calls", &first_call);
  if (r >= 0) r = OpenBus(client->name + "-signals", &client->signal_bus);
  if (r >= 0) {
    client->wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (client->wake_fd < 0) r = -errno;
  }
  if (r < 0) {
    BUS_LOG(0, "%s: cannot connect to the system bus (%s)", client->name.c_str(), strerror(-r));
    sd_bus_flush_close_unref(first_call);
    client->signal_bus = sd_bus_flush_close_unref(client->signal_bus);
    if (client->wake_fd >= 0) close(client->wake_fd);
    client->wake_fd = -1;
    return BUS_ERROR;
  }
  {
    std::lock_guard<std::mutex> lock(client->pool_mutex);
    client->idle.push_back(first_call);
  }
  client->stopping = false;
  client->connected = true;
  client->dispatcher = std::thread(Dispatch, client);
  return 0;
}

extern "C" int bus_disconnect(bus_client* client) {
  if (client == nullptr) return BUS_EINVAL;
  if (!client->connected.load()) return 0;
  client->stopping = true;
  Wake(client);
  if (client->dispatcher.joinable()) client->dispatcher.join();
  {
    std::lock_guard<std::recursive_mutex> lock(client->signal_mutex);
    for (auto& entry : client->subscriptions) sd_bus_slot_unref(entry.second.slot);
    client->subscriptions.clear();
    client->pending.clear();
    client->signal_bus = sd_bus_flush_close_unref(client->signal_bus);
  }
  std::vector<sd_bus*> idle;
  {
    std::lock_guard<std::mutex> lock(client->pool_mutex);
    client->connected = false;
    idle.swap(client->idle);
    client->pool_changed.notify_all();
  }
  for (sd_bus* bus : idle) sd_bus_flush_close_unref(bus);
  close(client->wake_fd);
  client->wake_fd = -1;
  return 0;
}

extern "C" int bus_client_set_user_data(bus_client* client, void* user_data) {
  if (client == nullptr) return BUS_EINVAL;
  client->user_data = user_data;
  return 0;
}

extern "C" int bus_method_call(bus_client* client, const char* service, const char* method,
                               const char* request, int request_length, char** reply,
                               size_t* reply_length, unsigned timeout) {
  if (reply != nullptr) *reply = nullptr;
  if (reply_length != nullptr) *reply_length = 0;
  if (client == nullptr || service == nullptr || method == nullptr || request_length < 0 ||
      (request == nullptr && request_length > 0))
    return BUS_EINVAL;
  if (!zolo::bus::IsValidElement(service) || !zolo::bus::IsValidElement(method)) return BUS_EINVAL;
  std::string text = request ? std::string(request, strnlen(request, request_length)) : "";
  if (!IsValidUtf8(text)) {
    BUS_LOG(1, "%s: request to %s.%s is not valid UTF-8; not sent", client->name.c_str(), service,
            method);
    return BUS_ERROR;
  }
  zolo::bus::ServiceNames names = zolo::bus::NamesOf(service);
  uint64_t timeout_usec = static_cast<uint64_t>(timeout == 0 ? 25 : timeout) * 1000000;
  auto deadline = Clock::now() + std::chrono::microseconds(timeout_usec);

  int result = 0;
  sd_bus* bus = TakeConnection(client, deadline, &result);
  if (bus == nullptr) {
    if (result == BUS_ETIMEDOUT)
      BUS_LOG(1, "%s: %s.%s: no free connection in time", client->name.c_str(), service, method);
    return result;
  }
  // What is left of the timeout after waiting for a connection.
  auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
  uint64_t call_usec = left.count() > 0 ? static_cast<uint64_t>(left.count()) : 1;

  sd_bus_message* call = nullptr;
  sd_bus_message* answer = nullptr;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  int r =
      sd_bus_message_new_method_call(bus, &call, names.bus_name.c_str(), names.object_path.c_str(),
                                     names.interface.c_str(), method);
  if (r >= 0) r = sd_bus_message_append(call, "s", text.c_str());
  if (r >= 0) r = sd_bus_call(bus, call, call_usec, &error, &answer);
  bool reusable = r >= 0;
  if (r < 0) {
    result = (r == -ETIMEDOUT || sd_bus_error_has_name(&error, SD_BUS_ERROR_TIMEOUT) ||
              sd_bus_error_has_name(&error, SD_BUS_ERROR_NO_REPLY))
                 ? BUS_ETIMEDOUT
                 : BUS_ERROR;
    BUS_LOG(1, "%s: %s.%s failed: %s", client->name.c_str(), service, method,
            error.message ? error.message : strerror(-r));
    // An error the service answered leaves the connection clean; anything else (timeout,
    // broken connection) retires it.
    reusable = sd_bus_error_is_set(&error) && result != BUS_ETIMEDOUT && sd_bus_is_open(bus) > 0;
  } else {
    const char* answer_text = nullptr;
    if (sd_bus_message_read(answer, "s", &answer_text) < 0 || answer_text == nullptr)
      answer_text = "";
    size_t length = strlen(answer_text);
    if (reply_length != nullptr) *reply_length = length;
    if (reply != nullptr) {
      *reply = static_cast<char*>(malloc(length + 1));
      if (*reply == nullptr) {
        result = BUS_ERROR;
        if (reply_length != nullptr) *reply_length = 0;
      } else {
        memcpy(*reply, answer_text, length + 1);
      }
    }
  }
  sd_bus_error_free(&error);
  sd_bus_message_unref(call);
  sd_bus_message_unref(answer);
  ReturnConnection(client, bus, reusable);
  return result;
}

extern "C" int bus_method_call_sync(bus_client* client, const char* service, const char* method,
                                    const char* request, int request_length, char* reply,
                                    int* reply_length, unsigned timeout) {
  if (reply != nullptr) reply[0] = '\0';
  if (reply_length != nullptr) *reply_length = 0;
  char* whole = nullptr;
  size_t length = 0;
  int result = bus_method_call(client, service, method, request, request_length,
                               reply != nullptr || reply_length != nullptr ? &whole : nullptr,
                               &length, timeout);
  if (whole == nullptr) return result;
  if (length >= BUS_REPLY_BUFFER_SIZE) {
    BUS_LOG(1, "%s: reply of %s.%s cut from %zu to %d bytes", client->name.c_str(), service, method,
            length, BUS_REPLY_BUFFER_SIZE - 1);
    length = BUS_REPLY_BUFFER_SIZE - 1;
  }
  if (reply != nullptr) {
    memcpy(reply, whole, length);
    reply[length] = '\0';
  }
  if (reply_length != nullptr) *reply_length = static_cast<int>(length);
  free(whole);
  return result;
}

extern "C" size_t bus_client_queued_messages(bus_client* client) {
  if (client == nullptr) return 0;
  size_t queued = 0;
  {
    std::lock_guard<std::mutex> lock(client->pool_mutex);
    for (sd_bus* bus : client->idle) {
      uint64_t n = 0;
      if (sd_bus_get_n_queued_read(bus, &n) >= 0) queued += n;
    }
  }
  std::lock_guard<std::recursive_mutex> lock(client->signal_mutex);
  return queued + client->pending.size();
}

extern "C" int bus_signal_subscribe(bus_client* client, const char* service, const char* name,
                                    bus_signal_handler handler) {
  if (client == nullptr || service == nullptr || name == nullptr || handler == nullptr)
    return BUS_EINVAL;
  if (!zolo::bus::IsValidElement(service) || !zolo::bus::IsValidElement(name)) return BUS_EINVAL;
  std::lock_guard<std::recursive_mutex> lock(client->signal_mutex);
  if (!client->connected.load()) return BUS_ERROR;
  std::string key = std::string(service) + "/" + name;
  auto it = client->subscriptions.find(key);
  if (it != client->subscriptions.end()) {
    it->second.handler = handler;
    return 0;
  }
  Subscription subscription{handler, nullptr, service, name,
                            std::string(service) + "/signal/" + name + "/"};
  // While the bus is away the subscription is kept and its match added on reconnection.
  if (client->signal_bus != nullptr) {
    int r = AddMatch(client, key, subscription);
    if (r < 0) {
      BUS_LOG(0, "%s: cannot subscribe to %s.%s (%s)", client->name.c_str(), service, name,
              strerror(-r));
      return BUS_ERROR;
    }
  }
  client->subscriptions[key] = subscription;
  Wake(client);
  return 0;
}

extern "C" int bus_signal_unsubscribe(bus_client* client, const char* service, const char* name) {
  if (client == nullptr || service == nullptr || name == nullptr) return BUS_EINVAL;
  std::lock_guard<std::recursive_mutex> lock(client->signal_mutex);
  auto it = client->subscriptions.find(std::string(service) + "/" + name);
  if (it == client->subscriptions.end()) return BUS_ERROR;
  sd_bus_slot_unref(it->second.slot);
  client->subscriptions.erase(it);
  // Signals already read for this name are dropped rather than delivered late.
  std::string prefix = std::string(service) + "/signal/" + name + "/";
  auto& pending = client->pending;
  for (size_t i = 0; i < pending.size();)
    if (pending[i].path.compare(0, prefix.size(), prefix) == 0)
      pending.erase(pending.begin() + static_cast<long>(i));
    else
      ++i;
  return 0;
}
