#include "zolo/config.h"

#include <glib.h>

#include <stdexcept>

#include "common/log.h"

namespace {

constexpr const char* kLogSource = "config";

const char* OrEmpty(const char* text) {
  return text ? text : "";
}

}  // namespace

Config::Config(const char* path) {
  if (path == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
  path_ = path;
}

Config::~Config() {
  Release();
}

int Config::AssignPath(const char* path) {
  if (path == nullptr) return -1;
  path_ = path;
  return 0;
}

const char* Config::GetPath() const {
  return path_.c_str();
}

int Config::Load() {
  Release();
  key_file_ = g_key_file_new();
  if (key_file_ == nullptr) {
    ZLOG(0, "Could not create the keyfile");
    return -1;
  }
  if (!g_key_file_load_from_file(key_file_, path_.c_str(), G_KEY_FILE_NONE, nullptr)) {
    ZLOG(0, "Could not load the config file: %s", path_.c_str());
    return -1;
  }
  ZLOG(2, "Complete load config file: %s", path_.c_str());
  return 0;
}

void Config::Release() {
  if (key_file_ != nullptr) g_key_file_free(key_file_);
  key_file_ = nullptr;
}

int Config::GetValue(const char* group, const char* key, std::string* value) {
  if (key_file_ == nullptr || group == nullptr || key == nullptr) {
    ZLOG(0, "Failed to get config value: Unknown error!");
    return -1;
  }
  GError* error = nullptr;
  gchar* text = g_key_file_get_value(key_file_, group, key, &error);
  if (text != nullptr) {
    if (value != nullptr) *value = text;
    g_free(text);
    return 0;
  }
  if (error != nullptr && error->domain == G_KEY_FILE_ERROR &&
      error->code == G_KEY_FILE_ERROR_KEY_NOT_FOUND)
    ZLOG(3, "Failed to get config value %s/%s: Key not found!", group, key);
  else if (error != nullptr && error->domain == G_KEY_FILE_ERROR &&
           error->code == G_KEY_FILE_ERROR_GROUP_NOT_FOUND)
    ZLOG(3, "Failed to get config value %s/%s: Group not found!", group, key);
  else
    ZLOG(0, "Failed to get config value: Unknown error!");
  if (error != nullptr) g_error_free(error);
  return -1;
}

int Config::GetValue(const char* group, const char* key, const char* fallback, std::string* value) {
  gchar* text = nullptr;
  if (key_file_ != nullptr && group != nullptr && key != nullptr)
    text = g_key_file_get_value(key_file_, group, key, nullptr);
  if (value != nullptr) *value = text != nullptr ? text : OrEmpty(fallback);
  g_free(text);
  return 0;
}

template <class T, class Convert>
int Config::GetNumber(const char* group, const char* key, T* value, Convert convert) {
  std::string text;
  if (GetValue(group, key, &text) != 0) return -1;
  T number = static_cast<T>(convert(text));
  if (value != nullptr) *value = number;
  return 0;
}

template <class T, class Convert>
int Config::GetNumber(const char* group, const char* key, T fallback, T* value, Convert convert) {
  std::string text;
  if (GetValue(group, key, &text) != 0) {
    if (value != nullptr) *value = fallback;
    return -1;
  }
  T number = static_cast<T>(convert(text));
  if (value != nullptr) *value = number;
  return 0;
}

namespace {
long ToLong(const std::string& s) {
  return std::stol(s, nullptr, 10);
}
unsigned long ToULong(const std::string& s) {
  return std::stoul(s, nullptr, 10);
}
long long ToLongLong(const std::string& s) {
  return std::stoll(s, nullptr, 10);
}
unsigned long long ToULongLong(const std::string& s) {
  return std::stoull(s, nullptr, 10);
}
bool ToBool(const std::string& s) {
  return ToLong(s) != 0;
}
}  // namespace

int Config::GetInt32(const char* group, const char* key, int32_t* value) {
  return GetNumber(group, key, value, ToLong);
}
int Config::GetInt32(const char* group, const char* key, int32_t fallback, int32_t* value) {
  return GetNumber(group, key, fallback, value, ToLong);
}
int Config::GetBool(const char* group, const char* key, bool* value) {
  return GetNumber(group, key, value, ToBool);
}
int Config::GetBool(const char* group, const char* key, bool fallback, bool* value) {
  return GetNumber(group, key, fallback, value, ToBool);
}
int Config::GetUint32(const char* group, const char* key, uint32_t* value) {
  return GetNumber(group, key, value, ToULong);
}
int Config::GetUint32(const char* group, const char* key, uint32_t fallback, uint32_t* value) {
  return GetNumber(group, key, fallback, value, ToULong);
}
int Config::GetInt64(const char* group, const char* key, int64_t* value) {
  return GetNumber(group, key, value, ToLongLong);
}
int Config::GetInt64(const char* group, const char* key, int64_t fallback, int64_t* value) {
  return GetNumber(group, key, fallback, value, ToLongLong);
}
int Config::GetUint64(const char* group, const char* key, uint64_t* value) {
  return GetNumber(group, key, value, ToULongLong);
}
int Config::GetUint64(const char* group, const char* key, uint64_t fallback, uint64_t* value) {
  return GetNumber(group, key, fallback, value, ToULongLong);
}
