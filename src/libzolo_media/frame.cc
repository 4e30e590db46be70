// Library lifecycle, the call to the media engine with its result-code table, settings
// and options.
#include <cjson/cJSON.h>
#include <glib.h>
#include <oviklog.h>
#include <zolo/config.h>
#include <zolo/media/frame.h>
#include <zolo/storage.h>
#include <zolo/sysroot.h>
#include <zolo_bus.h>
#include <zolo_info.h>
#include <zolo_model/media_model.h>
#include <zolo_model/media_setting.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include "common/log.h"
#include "libzolo_media/engine_reply.h"
#include "libzolo_media/media_call.h"
#include "libzolo_media/stream_writes.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";
// The option table is read by the signal thread while callers may change it, so it is
// guarded; option 0 (parsed records or raw text) is read for every signal and also kept in
// an atomic.
class OptionTable {
 public:
  int Get(int option, int fallback) const {
    if (option == 0) return option0_.load(std::memory_order_relaxed);
    std::shared_lock<std::shared_mutex> lock(mutex_);
    auto it = values_.find(option);
    return it == values_.end() ? fallback : it->second;
  }
  void Set(int option, int value) {
    std::unique_lock<std::shared_mutex> lock(mutex_);
    values_[option] = value;
    if (option == 0) option0_.store(value, std::memory_order_relaxed);
  }

 private:
  mutable std::shared_mutex mutex_;
  std::unordered_map<int, int> values_{{0, 1}};
  std::atomic<int> option0_{1};
};

struct FrameState {
  Config config{"/etc/media.conf"};
  bool initialized = false;
  bus_client* client = nullptr;
  int movie_resource = -1;
  OptionTable options;
};

FrameState& State() {
  static FrameState state;
  return state;
}

// Parses `text` as an integer in base 10 the way strtol does (leading number, else 0).
int ParseInt(const std::string& text) {
  return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

}  // namespace

namespace zolo {

Config& MediaConfig() {
  return State().config;
}

bus_client* MediaBusClient() {
  return State().client;
}

int MovieResource() {
  return State().movie_resource;
}

int MediaOption(int option, int fallback) {
  return State().options.Get(option, fallback);
}

bool IsValidUtf8(const char* text) {
  return text != nullptr && g_utf8_validate(text, -1, nullptr);
}

void RequireText(const char* text) {
  if (text == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
}

int NotifyMediaDataChange(ChangeType type, DataKind kind, int id) {
  cJSON* payload = cJSON_CreateObject();
  if (payload == nullptr) return -1;
  cJSON_AddNumberToObject(payload, "type", static_cast<int>(type));
  cJSON_AddNumberToObject(payload, "data", static_cast<int>(kind));
  cJSON_AddNumberToObject(payload, "id", id);
  int result = zm_call_media_method("change_media_data", payload, nullptr, kCallTimeout);
  cJSON_Delete(payload);
  return result;
}

}  // namespace zolo

int zm_call_media_method(const char* method, const cJSON* payload, cJSON** reply,
                         unsigned timeout) {
  char* text = payload != nullptr ? cJSON_PrintUnformatted(payload) : nullptr;
  char* answer = nullptr;
  size_t length = 0;
  int result =
      bus_method_call(State().client, "media", method, text,
                      text ? static_cast<int>(std::strlen(text)) : 0, &answer, &length, timeout);
  cJSON_free(text);
  if (length > zolo::kMaxReplySize) {
    ZLOG(0, "reply of %s too large (%zu bytes)", method ? method : "", length);
    free(answer);
    return -1;
  }
  // No reply text: the bus call's own result, mapped.
  if (length > 0)
    result = zolo::ReadEngineReply(answer, length, reply);
  else
    result = zolo::MapResultCode(result);
  free(answer);
  return result;
}

int zm_init(bool initialize_db) {
  FrameState& state = State();
  if (state.initialized) {
    ZLOG(0, "Media library already initialized");
    return 0;
  }
  if (state.config.AssignPath(zolo::SysrootPath("/etc/media.conf").c_str()) != 0) return -1;
  if (state.config.Load() != 0) return -1;

  MediaModel* model = MediaModel::Instance();
  if (!model->IsConnected()) {
    std::string database;
    std::string initial;
    state.config.GetValue("Application", "database", "/var/lib/zolo/media.db", &database);
    state.config.GetValue("Application", "database_initial", "/usr/share/media/initial.sql",
                          &initial);
    int connected = initialize_db
                        ? model->Initialize(zolo::SysrootPath(database), zolo::SysrootPath(initial))
                        : model->Connect(zolo::SysrootPath(database));
    if (connected < 0) return -1;
  }

  std::string movie_resource;
  if (zi_get_fwprintenv("movie_resource", &movie_resource) != 0) {
    ZLOG_AS("zi_info_init", 3, "movie_resource does not found");
  } else {
    ZLOG_AS("zi_info_init", 3, "movie_resource: %s", movie_resource.c_str());
    state.movie_resource = ParseInt(movie_resource);
  }

  if (Storage::Initialize() < 0) return -1;

  if (state.client == nullptr) {
    bus_init();
    state.client = bus_client_new("libzolo_media");
    if (state.client == nullptr) {
      ZLOG(0, "Bus initial error");
      return -1;
    }
    if (bus_connect(state.client, 0) < 0) {
      ZLOG(0, "Bus connect failed");
      return -1;
    }
  }
  state.initialized = true;
  return 0;
}

int zm_release() {
  FrameState& state = State();
  if (!state.initialized) {
    ZLOG(0, "Media library not initialized");
    return 0;
  }
  if (state.client != nullptr) {
    if (bus_disconnect(state.client) < 0) ZLOG(0, "Bus disconnect failed");
    bus_client_free(state.client);
    bus_cleanup();
  }
  MediaModel::Instance()->Release();
  Storage::ReleaseAll();
  Storage::Deinitialize();
  state.initialized = false;
  state.client = nullptr;
  return 0;
}

int zm_set_user_data(void* user_data) {
  bus_client* client = State().client;
  if (client == nullptr) return -1;
  return bus_client_set_user_data(client, user_data) != 0 ? -1 : 0;
}

int zm_execute_db_patch(const char* path) {
  zolo::RequireText(path);
  return MediaModel::Instance()->ExecuteFromFile(path);
}

int zm_execute_db_command(const char* sql) {
  zolo::RequireText(sql);
  return MediaModel::Instance()->Execute(sql);
}

int zm_get_setting(const char* name, std::string* value) {
  zolo::RequireText(name);
  if (value == nullptr) return -3;
  return MediaSetting::QueryValue(name, value);
}

int zm_set_setting(const char* name, const std::string& value) {
  if (zm_get_state(nullptr) != 1) return -4;
  zolo::RequireText(name);
  MediaSetting* setting = nullptr;
  if (MediaSetting::Query(name, &setting) < 0 || setting == nullptr) return -5;
  setting->value(value);
  int saved = setting->Save();
  delete setting;
  if (saved < 0) return -1;

  std::string key(name);
  if (key == "storage" || key == "sub_storage") {
    cJSON* payload = cJSON_CreateObject();
    cJSON_AddBoolToObject(payload, "update", true);
    cJSON_AddNumberToObject(payload, "index", key == "storage" ? 0 : 1);
    zm_call_media_method("check_storage_status", payload, nullptr, zolo::kCallTimeout);
    cJSON_Delete(payload);
    return 0;
  }
  if (key == "cycling") {
    zm_call_media_method("check_storage_status", nullptr, nullptr, zolo::kCallTimeout);
    return 0;
  }
  static const std::unordered_map<std::string, const char*> kModeMethods = {
      {"framerate_mode", "set_framerate_mode"},
      {"backup", "set_backup_mode"},
      {"interactive", "set_interactive_mode"},
  };
  auto method = kModeMethods.find(key);
  if (method == kModeMethods.end()) return 0;
  cJSON* payload = cJSON_CreateObject();
  cJSON_AddNumberToObject(payload, "mode", ParseInt(value));
  int result = zm_call_media_method(method->second, payload, nullptr, zolo::kCallTimeout);
  cJSON_Delete(payload);
  return result;
}

int zm_set_opt(int option, int value) {
  try {
    State().options.Set(option, value);
  } catch (const std::exception&) {
    return -3;
  }
  return 0;
}

int zm_start() {
  return zm_call_media_method("start", nullptr, nullptr, zolo::kCallTimeout);
}

int zm_stop() {
  return zm_call_media_method("stop", nullptr, nullptr, zolo::kCallTimeout);
}

int zm_restart() {
  return zm_call_media_method("restart", nullptr, nullptr, zolo::kCallTimeout);
}

int zm_get_state(std::string* name) {
  cJSON* reply = nullptr;
  int result = zm_call_media_method("get_state", nullptr, &reply, zolo::kCallTimeout);
  if (result != 0) {
    cJSON_Delete(reply);
    return result;
  }
  const cJSON* id = cJSON_GetObjectItem(reply, "id");
  int state = cJSON_IsNumber(id) ? id->valueint : -1;
  if (name != nullptr) {
    const cJSON* text = cJSON_GetObjectItem(reply, "name");
    *name = cJSON_IsString(text) ? text->valuestring : "";
  }
  cJSON_Delete(reply);
  return state;
}
