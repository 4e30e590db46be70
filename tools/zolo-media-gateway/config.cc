#include "config.h"

#include <gio/gio.h>
#include <zolo/sysroot.h>

#include <memory>

namespace zolo::gateway {
namespace {

struct KeyFileDeleter {
  void operator()(GKeyFile* file) const { g_key_file_free(file); }
};

std::string Text(GKeyFile* file, const char* group, const char* key, const std::string& fallback) {
  gchar* value = g_key_file_get_string(file, group, key, nullptr);
  if (value == nullptr) return fallback;
  std::string text = g_strstrip(value);
  g_free(value);
  return text;
}

}  // namespace

bool LoadConfig(const std::string& path, bool system_file, Config* config, std::string* error) {
  std::unique_ptr<GKeyFile, KeyFileDeleter> file(g_key_file_new());
  std::string real = system_file ? SysrootPath(path) : path;
  GError* failure = nullptr;
  if (!g_key_file_load_from_file(file.get(), real.c_str(), G_KEY_FILE_NONE, &failure)) {
    bool missing = system_file && g_error_matches(failure, G_FILE_ERROR, G_FILE_ERROR_NOENT);
    if (!missing) *error = real + ": " + failure->message;
    g_error_free(failure);
    return missing;
  }
  GKeyFile* f = file.get();
  config->address = Text(f, "Gateway", "address", config->address);
  std::string port = Text(f, "Gateway", "port", "");
  if (!port.empty()) {
    gchar* end = nullptr;
    long value = strtol(port.c_str(), &end, 10);
    if (*end != '\0' || value < 0 || value > 65535) {
      *error = "[Gateway] port is not a port number: " + port;
      return false;
    }
    config->port = static_cast<int>(value);
  }
  config->password_hash = Text(f, "Gateway", "password_hash", config->password_hash);
  if (!config->password_hash.empty() && config->password_hash.find(':') == std::string::npos) {
    *error = "[Gateway] password_hash is not a line printed by --hash-password";
    return false;
  }
  config->tls_certificate = Text(f, "Gateway", "tls_certificate", config->tls_certificate);
  config->tls_key = Text(f, "Gateway", "tls_key", config->tls_key);
  std::string origins = Text(f, "Gateway", "allowed_origins", "");
  if (!origins.empty()) {
    config->allowed_origins.clear();
    gchar** parts = g_strsplit(origins.c_str(), ";", -1);
    for (gchar** part = parts; *part != nullptr; ++part) {
      std::string origin = g_strstrip(*part);
      if (!origin.empty()) config->allowed_origins.push_back(origin);
    }
    g_strfreev(parts);
  }
  config->www = Text(f, "Gateway", "www", config->www);
  config->database = Text(f, "Application", "database", config->database);
  config->recording_folder = Text(f, "Recording", "folder", config->recording_folder);
  return true;
}

std::string WwwFolder(const Config& config) {
  if (!config.www_option.empty()) return config.www_option;
  if (!config.www.empty()) return SysrootPath(config.www);
  std::string sandboxed = SysrootPath(ZOLO_GATEWAY_WWW);
  if (!Sysroot().empty() && g_file_test(sandboxed.c_str(), G_FILE_TEST_IS_DIR)) return sandboxed;
  return ZOLO_GATEWAY_WWW;
}

bool IsLoopback(const std::string& address) {
  if (address == "localhost") return true;
  GInetAddress* inet = g_inet_address_new_from_string(address.c_str());
  if (inet == nullptr) return false;
  bool loopback = g_inet_address_get_is_loopback(inet);
  g_object_unref(inet);
  return loopback;
}

}  // namespace zolo::gateway
