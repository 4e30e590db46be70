// The request table: every front-end call of the library, one file per family.
//
// Left out on purpose:
// - zm_init, zm_release, zm_set_user_data, zm_set_opt: the gateway process owns the
//   library's lifecycle, callback pointer and options; a client must not change them.
// - zm_execute_db_command, zm_execute_db_patch: raw SQL text / a SQL file a client names.
// - zm_register_signal, zm_unregister_signal, zm_signal_handler: the gateway owns the
//   signal subscriptions; clients receive signals as events through their subscriptions.
// - zm_convert_stream_data, zm_convert_source_data: they take in-process model objects.
// - zm_strerror, zm_version: every answer carries the meaning of its code, and the
//   gateway's greeting carries the library version.
// Confined (refused with -3 outside the recording, image, asset and storage folders, after
// resolving "..", "." and symbolic links): snapshot targets, playback files, foreground and
// overlay files, file-like stream destinations and input addresses, bookmark files (only a
// "bookmark.json"); start_stream takes plain file names; asset records are checked for
// links leading out of the asset folders; thumbnails are relative paths.
#include "request_table.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <zolo/sysroot.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "common/log.h"
#include "request_helpers.h"

namespace {
constexpr const char* kLogSource = "gateway-requests";
std::atomic<uint64_t> g_refused{0};
}  // namespace

namespace zolo::gateway {

const RequestTable& Requests() {
  static const RequestTable table = [] {
    RequestTable built;
    AddFrameRequests(built);
    AddStreamRequests(built);
    AddSourceRequests(built);
    AddAudioRequests(built);
    AddCodecRequests(built);
    AddMixerConfigRequests(built);
    AddMixerLiveRequests(built);
    AddRecordingRequests(built);
    AddStorageInfoRequests(built);
    std::sort(built.begin(), built.end(), [](const RequestSpec& a, const RequestSpec& b) {
      return std::strcmp(a.name, b.name) < 0;
    });
    return built;
  }();
  return table;
}

const RequestSpec* FindRequest(const std::string& name) {
  const RequestTable& table = Requests();
  auto found = std::lower_bound(
      table.begin(), table.end(), name,
      [](const RequestSpec& known, const std::string& key) { return key.compare(known.name) > 0; });
  return found != table.end() && name == found->name ? &*found : nullptr;
}

int IntArg(const cJSON* args, const char* name, int fallback) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  return cJSON_IsNumber(item) ? item->valueint : fallback;
}

double NumberArg(const cJSON* args, const char* name, double fallback) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  return cJSON_IsNumber(item) ? item->valuedouble : fallback;
}

bool BoolArg(const cJSON* args, const char* name, bool fallback) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  return cJSON_IsBool(item) ? cJSON_IsTrue(item) : fallback;
}

std::string StringArg(const cJSON* args, const char* name, const std::string& fallback) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  return cJSON_IsString(item) ? std::string(item->valuestring) : fallback;
}

uint64_t RefusedArguments() {
  return g_refused.load();
}

void LogRefusal(const std::string& reason) {
  ++g_refused;
  ZLOG(1, "Refused request argument: %s", reason.c_str());
}

Outcome BadArgument(const std::string& message) {
  LogRefusal(message);
  Outcome outcome{-3, JsonHolder(cJSON_CreateObject())};
  cJSON_AddStringToObject(outcome.data.get(), "error", message.c_str());
  return outcome;
}

std::optional<std::string> OptionalText(const cJSON* args, const char* name) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  if (!cJSON_IsString(item)) return std::nullopt;
  return std::string(item->valuestring);
}

double UnsignedArg(const cJSON* args, const char* name) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  if (!cJSON_IsNumber(item)) return -1;
  double number = item->valuedouble;
  bool whole = number >= 0 && number <= 9007199254740992.0 &&
               static_cast<double>(static_cast<uint64_t>(number)) == number;
  return whole ? number : -1;
}

std::vector<std::string> AllowedFolders() {
  return {"/var/lib/zolo/recordings", "/var/lib/zolo/media/images", "/var/lib/zolo/media/assets",
          "/media"};
}

namespace {

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? resolved : "";
}

// `path` with its existing folders resolved (symbolic links, "..", "."); the part that does
// not exist yet must be one plain file name. Empty when it cannot be resolved.
std::string ResolveExisting(const std::string& path) {
  std::string resolved = RealPath(path);
  if (!resolved.empty()) return resolved;
  struct stat link;
  if (lstat(path.c_str(), &link) == 0) return "";  // a dangling link could lead anywhere
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return "";
  std::string name = path.substr(slash + 1);
  if (name.empty() || name == "." || name == "..") return "";
  std::string folder = RealPath(slash == 0 ? "/" : path.substr(0, slash));
  return folder.empty() ? "" : (folder == "/" ? "" : folder) + "/" + name;
}

bool Inside(const std::string& path, const std::string& folder) {
  return !folder.empty() && path.size() > folder.size() &&
         path.compare(0, folder.size(), folder) == 0 && path[folder.size()] == '/';
}

// The real path of `path`, inside an allowed folder, or "".
std::string ConfinedRealPath(const std::string& path) {
  if (path.empty() || path[0] != '/') return "";
  std::string resolved = ResolveExisting(path);
  if (resolved.empty()) return "";
  for (const std::string& folder : AllowedFolders())
    if (Inside(resolved, RealPath(SysrootPath(folder)))) return resolved;
  return "";
}

}  // namespace

std::optional<std::string> ConfinedPath(const std::string& path_or_uri, Opener opener) {
  static const std::string kScheme = "file://";
  std::string path = path_or_uri.compare(0, kScheme.size(), kScheme) == 0
                         ? path_or_uri.substr(kScheme.size())
                         : path_or_uri;
  if (opener == Opener::kLibrary) {
    std::string real = ConfinedRealPath(path);
    if (!real.empty()) return real;
  } else if (!path.empty() && path[0] == '/') {
    // The engine looks the system path up below the sandbox root: check it there and hand
    // it back as a system path.
    std::string real = ConfinedRealPath(SysrootPath(path));
    std::string root = Sysroot().empty() ? "" : RealPath(Sysroot());
    if (!real.empty() && (root.empty() || Inside(real, root))) return real.substr(root.size());
  }
  LogRefusal("a path outside the appliance's folders: " + path_or_uri);
  return std::nullopt;
}

}  // namespace zolo::gateway
