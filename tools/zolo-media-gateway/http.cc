// Plain HTTP beside the WebSocket: appliance images, health, metrics and the console page.
// Files come only from their own folders: a name is resolved with realpath and must stay
// inside the folder, whatever dots, escapes or symbolic links it holds.
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>

#include <zolo/media.h>
#include <zolo/sysroot.h>

#include <vector>

#include "common/log.h"
#include "gateway.h"

namespace zolo::gateway {
namespace {

constexpr const char* kLogSource = "zolo-media-gateway";
constexpr off_t kMaxFileBytes = 64 << 20;

// Image kinds and the appliance folder each is served from ("" for the recording folder).
const std::map<std::string, std::string>& ImageFolders() {
  static const std::map<std::string, std::string> folders = {
      {"layouts", "/var/lib/zolo/media/images/layout"},
      {"channels", "/var/lib/zolo/media/images/snapshot"},
      {"previews", "/var/lib/zolo/media/images/preview"},
      {"snapshots", ""},
      {"bookmarks", ""},
  };
  return folders;
}

const char* ContentType(const std::string& name) {
  static const std::map<std::string, const char*> types = {
      {".png", "image/png"},
      {".jpg", "image/jpeg"},
      {".jpeg", "image/jpeg"},
      {".html", "text/html; charset=utf-8"},
      {".js", "text/javascript; charset=utf-8"},
      {".css", "text/css; charset=utf-8"},
      {".svg", "image/svg+xml"},
      {".json", "application/json"},
      {".ico", "image/x-icon"},
  };
  size_t dot = name.rfind('.');
  if (dot == std::string::npos) return nullptr;
  std::string extension = name.substr(dot);
  for (char& c : extension) c = static_cast<char>(g_ascii_tolower(c));
  auto it = types.find(extension);
  return it == types.end() ? nullptr : it->second;
}

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}

void Answer(SoupServerMessage* msg, guint status, const char* type, const std::string& body) {
  soup_server_message_set_status(msg, status, nullptr);
  soup_server_message_set_response(msg, type, SOUP_MEMORY_COPY, body.data(), body.size());
}

bool IsGet(SoupServerMessage* msg) {
  const char* method = soup_server_message_get_method(msg);
  return std::strcmp(method, "GET") == 0 || std::strcmp(method, "HEAD") == 0;
}

}  // namespace

void Gateway::ServeFile(SoupServerMessage* msg, const std::string& folder,
                        const std::string& name) {
  // `name` is the still-escaped rest of the path: unescaping refuses escaped slashes and NULs.
  gchar* unescaped = g_uri_unescape_string(name.c_str(), "/");
  std::string relative = unescaped != nullptr ? unescaped : "";
  g_free(unescaped);
  std::string root = RealPath(folder);
  const char* type = ContentType(relative);
  std::string real =
      relative.empty() || root.empty() || type == nullptr ? "" : RealPath(root + "/" + relative);
  struct stat info {};
  if (real.empty() || real.compare(0, root.size() + 1, root + "/") != 0 ||
      stat(real.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kMaxFileBytes) {
    if (!real.empty() && real.compare(0, root.size() + 1, root + "/") != 0) {
      metrics_.Refused("path_outside");
      ZLOG(1, "refused file outside its folder: %s", name.c_str());
    }
    return Answer(msg, SOUP_STATUS_NOT_FOUND, "text/plain", "not found\n");
  }
  char etag[96];
  std::snprintf(
      etag, sizeof etag, "\"%llx-%llx-%llx\"", static_cast<unsigned long long>(info.st_ino),
      static_cast<unsigned long long>(info.st_size),
      static_cast<unsigned long long>(info.st_mtim.tv_sec * 1000000000LL + info.st_mtim.tv_nsec));
  SoupMessageHeaders* response = soup_server_message_get_response_headers(msg);
  soup_message_headers_replace(response, "ETag", etag);
  soup_message_headers_replace(response, "Cache-Control", "no-cache");
  soup_message_headers_replace(response, "X-Content-Type-Options", "nosniff");
  const char* match =
      soup_message_headers_get_one(soup_server_message_get_request_headers(msg), "If-None-Match");
  if (match != nullptr && std::strstr(match, etag) != nullptr) {
    soup_server_message_set_status(msg, SOUP_STATUS_NOT_MODIFIED, nullptr);
    return;
  }
  gchar* contents = nullptr;
  gsize length = 0;
  if (!g_file_get_contents(real.c_str(), &contents, &length, nullptr))
    return Answer(msg, SOUP_STATUS_NOT_FOUND, "text/plain", "not found\n");
  soup_server_message_set_status(msg, SOUP_STATUS_OK, nullptr);
  soup_server_message_set_response(msg, type, SOUP_MEMORY_TAKE, contents, length);
}

void Gateway::OnImage(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*,
                      gpointer self) {
  Gateway& gateway = *static_cast<Gateway*>(self);
  if (!IsGet(msg)) return Answer(msg, SOUP_STATUS_METHOD_NOT_ALLOWED, "text/plain", "GET only\n");
  // The path as it came, still escaped: "/images/<kind>/<name>".
  std::string path = g_uri_get_path(soup_server_message_get_uri(msg));
  std::string rest = path.substr(std::strlen("/images"));
  size_t slash = rest.size() > 1 ? rest.find('/', 1) : std::string::npos;
  auto folder = slash == std::string::npos ? ImageFolders().end()
                                           : ImageFolders().find(rest.substr(1, slash - 1));
  if (folder == ImageFolders().end() || std::strchr(path.c_str(), '\\') != nullptr)
    return Answer(msg, SOUP_STATUS_NOT_FOUND, "text/plain", "not found\n");
  std::string name = rest.substr(slash + 1);
  size_t id_end = name.find('/');
  if (folder->first == "bookmarks" && id_end != std::string::npos && id_end > 0 &&
      name.find_first_not_of("0123456789") == id_end)
    return gateway.ServeBookmarkStill(msg, std::atoi(name.c_str()), name.substr(id_end + 1));
  std::string base = folder->second.empty() ? gateway.config_.recording_folder : folder->second;
  gateway.ServeFile(msg, SysrootPath(base), name);
}

void Gateway::ServeBookmarkStill(SoupServerMessage* msg, int recording, const std::string& name) {
  // The recording's folder comes from the recording database: looked up on a worker, with
  // the answer held until then.
  struct Lookup {
    Gateway* gateway;
    SoupServerMessage* msg;
    int recording;
    std::string name;
    std::string folder;
  };
  soup_server_message_pause(msg);
  g_object_ref(msg);
  ++lookups_;
  GTask* task = g_task_new(nullptr, nullptr, nullptr, nullptr);
  g_task_set_task_data(task, new Lookup{this, msg, recording, name, ""},
                       [](gpointer data) { delete static_cast<Lookup*>(data); });
  g_task_run_in_thread(task, [](GTask* done, gpointer, gpointer data, GCancellable*) {
    auto* lookup = static_cast<Lookup*>(data);
    std::vector<zm_recording> found;
    if (zm_get_recording(lookup->recording, &found, 0, 1) == 0 && found.size() == 1)
      lookup->folder = found[0].folder;
    g_main_context_invoke_full(
        lookup->gateway->context_, G_PRIORITY_DEFAULT,
        [](gpointer pending) -> gboolean {
          auto* answered = static_cast<Lookup*>(g_task_get_task_data(G_TASK(pending)));
          std::string root = answered->folder.empty() ? "" : SysrootPath(answered->folder);
          if (!Sysroot().empty() && answered->folder.compare(0, Sysroot().size(), Sysroot()) == 0)
            root = answered->folder;
          // A still is named as its bookmark stores it, or by its file name in the stills folder.
          std::string still = answered->name;
          struct stat info {};
          if (!root.empty() && stat((root + "/" + still).c_str(), &info) != 0)
            still = "bookmark_snapshots/" + still;
          if (root.empty()) {
            Answer(answered->msg, SOUP_STATUS_NOT_FOUND, "text/plain", "not found\n");
          } else {
            answered->gateway->ServeFile(answered->msg, root, still);
          }
          soup_server_message_unpause(answered->msg);
          g_object_unref(answered->msg);
          --answered->gateway->lookups_;
          g_object_unref(pending);
          return G_SOURCE_REMOVE;
        },
        g_object_ref(done), nullptr);
  });
  g_object_unref(task);
}

void Gateway::OnEarly(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*,
                      gpointer self) {
  // Every path is read-only: anything but GET and HEAD is answered before its body is read,
  // so no client can make the server hold a request body.
  if (IsGet(msg)) return;
  Gateway& gateway = *static_cast<Gateway*>(self);
  gateway.metrics_.Refused("http_method");
  ZLOG(1, "refused HTTP %s %s", soup_server_message_get_method(msg),
       g_uri_get_path(soup_server_message_get_uri(msg)));
  Answer(msg, SOUP_STATUS_METHOD_NOT_ALLOWED, "text/plain", "GET only\n");
}

void Gateway::OnHealth(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*,
                       gpointer self) {
  Gateway& gateway = *static_cast<Gateway*>(self);
  bool ok = gateway.engine_up_ && gateway.database_ok_;
  std::string body = std::string("{\"status\":\"") + (ok ? "ok" : "failing") +
                     "\",\"engine\":" + (gateway.engine_up_ ? "true" : "false") +
                     ",\"database\":" + (gateway.database_ok_ ? "true" : "false") + "}\n";
  Answer(msg, ok ? SOUP_STATUS_OK : SOUP_STATUS_SERVICE_UNAVAILABLE, "application/json", body);
}

void Gateway::OnMetrics(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*,
                        gpointer self) {
  Gateway& gateway = *static_cast<Gateway*>(self);
  Answer(msg, SOUP_STATUS_OK, "text/plain; version=0.0.4; charset=utf-8", gateway.metrics_.Text());
}

void Gateway::OnStatic(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*,
                       gpointer self) {
  Gateway& gateway = *static_cast<Gateway*>(self);
  if (!IsGet(msg)) return Answer(msg, SOUP_STATUS_METHOD_NOT_ALLOWED, "text/plain", "GET only\n");
  std::string path = g_uri_get_path(soup_server_message_get_uri(msg));
  if (path.empty() || path.back() == '/') path += "index.html";
  gateway.ServeFile(msg, SysrootPath(gateway.config_.www), path.substr(1));
}

}  // namespace zolo::gateway
