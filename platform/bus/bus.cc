#include <oviklog.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
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

#define BUS_LOG(level, ...) \
  OVIK_LOG_write_newline(40, (level), kLogSource, __LINE__, __func__, __VA_ARGS__)

struct Subscription {
  bus_signal_handler handler = nullptr;
  sd_bus_slot* slot = nullptr;
  std::string path_prefix;  // "<service>/signal/<name>/"
};

struct Delivery {
  bus_signal_handler handler;
  std::string path;
  std::string payload;
};

}  // namespace

struct bus_client {
  std::string name;
  std::atomic<void*> user_data{nullptr};

  std::mutex call_mutex;  // guards call_bus
  sd_bus* call_bus = nullptr;

  std::recursive_mutex signal_mutex;  // guards signal_bus and subscriptions
  sd_bus* signal_bus = nullptr;
  std::map<std::string, Subscription> subscriptions;  // key: "<service>/<name>"
  std::vector<Delivery> pending;                      // filled while processing the bus

  std::thread dispatcher;
  int wake_fd = -1;
  std::atomic<bool> stopping{false};
  bool connected = false;
};

namespace {

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

void Dispatch(bus_client* client) {
  std::vector<Delivery> batch;
  while (!client->stopping.load()) {
    int fd = -1;
    short events = 0;
    uint64_t timeout_usec = UINT64_MAX;
    {
      std::lock_guard<std::recursive_mutex> lock(client->signal_mutex);
      for (;;) {
        int r = sd_bus_process(client->signal_bus, nullptr);
        if (r < 0) {
          BUS_LOG(0, "%s: bus connection lost (%s)", client->name.c_str(), strerror(-r));
          client->stopping = true;
          break;
        }
        if (r == 0) break;
        if (client->pending.size() >= 256) break;  // deliver in bounded batches
      }
      batch.swap(client->pending);
      fd = sd_bus_get_fd(client->signal_bus);
      int wanted = sd_bus_get_events(client->signal_bus);
      events = static_cast<short>(wanted > 0 ? wanted : POLLIN);
      sd_bus_get_timeout(client->signal_bus, &timeout_usec);
    }
    // Handlers run without any lock held, so they may call methods or (un)subscribe.
    void* user_data = client->user_data.load();
    for (auto& delivery : batch)
      delivery.handler(client, user_data, delivery.path.c_str(), delivery.payload.data(),
                       static_cast<int>(delivery.payload.size()));
    bool more = !batch.empty();
    batch.clear();
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

int OpenBus(const std::string& description, sd_bus** bus) {
  int r = sd_bus_open_system(bus);
  if (r < 0) return r;
  sd_bus_set_description(*bus, description.c_str());
  return 0;
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
  if (client->connected) return 0;
  int r = OpenBus(client->name + "-calls", &client->call_bus);
  if (r >= 0) r = OpenBus(client->name + "-signals", &client->signal_bus);
  if (r >= 0) {
    client->wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (client->wake_fd < 0) r = -errno;
  }
  if (r < 0) {
    BUS_LOG(0, "%s: cannot connect to the system bus (%s)", client->name.c_str(), strerror(-r));
    client->call_bus = sd_bus_flush_close_unref(client->call_bus);
    client->signal_bus = sd_bus_flush_close_unref(client->signal_bus);
    if (client->wake_fd >= 0) close(client->wake_fd);
    client->wake_fd = -1;
    return BUS_ERROR;
  }
  client->stopping = false;
  client->connected = true;
  client->dispatcher = std::thread(Dispatch, client);
  return 0;
}

extern "C" int bus_disconnect(bus_client* client) {
  if (client == nullptr) return BUS_EINVAL;
  if (!client->connected) return 0;
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
  {
    std::lock_guard<std::mutex> lock(client->call_mutex);
    client->call_bus = sd_bus_flush_close_unref(client->call_bus);
  }
  close(client->wake_fd);
  client->wake_fd = -1;
  client->connected = false;
  return 0;
}

extern "C" int bus_client_set_user_data(bus_client* client, void* user_data) {
  if (client == nullptr) return BUS_EINVAL;
  client->user_data = user_data;
  return 0;
}

extern "C" int bus_method_call_sync(bus_client* client, const char* service, const char* method,
                                    const char* request, int request_length, char* reply,
                                    int* reply_length, unsigned timeout) {
  if (reply != nullptr) reply[0] = '\0';
  if (reply_length != nullptr) *reply_length = 0;
  if (client == nullptr || service == nullptr || method == nullptr || request_length < 0 ||
      (request == nullptr && request_length > 0))
    return BUS_EINVAL;
  if (!zolo::bus::IsValidElement(service) || !zolo::bus::IsValidElement(method)) return BUS_EINVAL;
  std::string text = request ? std::string(request, strnlen(request, request_length)) : "";
  zolo::bus::ServiceNames names = zolo::bus::NamesOf(service);

  std::lock_guard<std::mutex> lock(client->call_mutex);
  if (client->call_bus == nullptr) return BUS_ERROR;
  sd_bus_message* call = nullptr;
  sd_bus_message* answer = nullptr;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  int r =
      sd_bus_message_new_method_call(client->call_bus, &call, names.bus_name.c_str(),
                                     names.object_path.c_str(), names.interface.c_str(), method);
  if (r >= 0) r = sd_bus_message_append(call, "s", text.c_str());
  if (r >= 0)
    r = sd_bus_call(client->call_bus, call, static_cast<uint64_t>(timeout) * 1000000, &error,
                    &answer);
  int result = 0;
  if (r < 0) {
    result = (r == -ETIMEDOUT || sd_bus_error_has_name(&error, SD_BUS_ERROR_TIMEOUT) ||
              sd_bus_error_has_name(&error, SD_BUS_ERROR_NO_REPLY))
                 ? BUS_ETIMEDOUT
                 : BUS_ERROR;
    BUS_LOG(1, "%s: %s.%s failed: %s", client->name.c_str(), service, method,
            error.message ? error.message : strerror(-r));
    if (r == -ECONNRESET || r == -ENOTCONN) {
      // The connection itself broke; reopen it for the next call.
      sd_bus_flush_close_unref(client->call_bus);
      client->call_bus = nullptr;
      OpenBus(client->name + "-calls", &client->call_bus);
    }
  } else {
    const char* answer_text = nullptr;
    if (sd_bus_message_read(answer, "s", &answer_text) < 0 || answer_text == nullptr) {
      answer_text = "";
    }
    size_t length = strlen(answer_text);
    if (length >= BUS_REPLY_BUFFER_SIZE) {
      BUS_LOG(1, "%s: reply of %s.%s cut from %zu to %d bytes", client->name.c_str(), service,
              method, length, BUS_REPLY_BUFFER_SIZE - 1);
      length = BUS_REPLY_BUFFER_SIZE - 1;
    }
    if (reply != nullptr) {
      memcpy(reply, answer_text, length);
      reply[length] = '\0';
    }
    if (reply_length != nullptr) *reply_length = static_cast<int>(length);
  }
  sd_bus_error_free(&error);
  sd_bus_message_unref(call);
  sd_bus_message_unref(answer);
  return result;
}

extern "C" int bus_signal_subscribe(bus_client* client, const char* service, const char* name,
                                    bus_signal_handler handler) {
  if (client == nullptr || service == nullptr || name == nullptr || handler == nullptr)
    return BUS_EINVAL;
  if (!zolo::bus::IsValidElement(service) || !zolo::bus::IsValidElement(name)) return BUS_EINVAL;
  std::lock_guard<std::recursive_mutex> lock(client->signal_mutex);
  if (client->signal_bus == nullptr) return BUS_ERROR;
  std::string key = std::string(service) + "/" + name;
  auto it = client->subscriptions.find(key);
  if (it != client->subscriptions.end()) {
    it->second.handler = handler;
    return 0;
  }
  zolo::bus::ServiceNames names = zolo::bus::NamesOf(service);
  auto* slot_data = new std::pair<bus_client*, std::string>(client, key);
  sd_bus_slot* slot = nullptr;
  // No sender in the match: the engine's unique name changes when it restarts, the object
  // path and signal interface do not.
  int r = sd_bus_match_signal(client->signal_bus, &slot, nullptr, names.object_path.c_str(),
                              names.signal_interface.c_str(), name, OnSignal, slot_data);
  if (r < 0) {
    delete slot_data;
    BUS_LOG(0, "%s: cannot subscribe to %s.%s (%s)", client->name.c_str(), service, name,
            strerror(-r));
    return BUS_ERROR;
  }
  sd_bus_slot_set_destroy_callback(slot, FreeSlotData);
  client->subscriptions[key] =
      Subscription{handler, slot, std::string(service) + "/signal/" + name + "/"};
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
