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
#include "session.h"

namespace zolo::gateway {
namespace {

constexpr const char* kLogSource = "zolo-media-gateway";
constexpr off_t kMaxFileBytes = 64 << 20;
// Requests are read-only; a GET may carry a few bytes of body, no more.
constexpr goffset kMaxRequestBodyBytes = 4096;

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

std::string FormatLayoutName(unsigned id) {
  char name[32];
  std::snprintf(name, sizeof name, "layout_%03u.png", id);
  return name;
}

// Compares without stopping at the first difference, so that the time taken tells nothing
// about how much of a token was right.
// (Every token has the same length, so the length tells nothing.)
bool SameToken(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  unsigned char differ = 0;
  for (size_t i = 0; i < a.size(); ++i) differ |= static_cast<unsigned char>(a[i] ^ b[i]);
  return differ == 0;
}

bool IsGet(SoupServerMessage* msg) {
  const char* method = soup_server_message_get_method(msg);
  return std::strcmp(method, "GET") == 0 || std::strcmp(method, "HEAD") == 0;
}

}  // namespace

// A file on its way to a client: found and read on a file thread, so that a slow disk never
// holds the loop, and answered on the loop.
struct Gateway::FileRequest {
  Gateway* gateway = nullptr;
  SoupServerMessage* msg = nullptr;
  std::string folder;  // below the sandbox root; empty for a bookmark still
  std::string name;    // still escaped
  int recording = -1;  // a bookmark still's recording, or -1
  int layout = -1;     // a layout preview rendered when it is missing, or -1
  std::string if_none_match;
  // The answer.
  guint status = SOUP_STATUS_NOT_FOUND;
  const char* type = nullptr;
  std::string etag;
  gchar* contents = nullptr;
  gsize length = 0;
  bool outside = false;
};

void Gateway::ServeFile(SoupServerMessage* msg, const std::string& folder, const std::string& name,
                        int recording, int layout) {
  const char* match =
      soup_message_headers_get_one(soup_server_message_get_request_headers(msg), "If-None-Match");
  soup_server_message_pause(msg);
  g_object_ref(msg);
  ++files_pending_;
  auto* request = new FileRequest{};
  request->gateway = this;
  request->msg = msg;
  request->folder = folder;
  request->name = name;
  request->recording = recording;
  request->layout = layout;
  request->if_none_match = match != nullptr ? match : "";
  g_thread_pool_push(files_, request, nullptr);
}

void Gateway::RunFile(gpointer data, gpointer) {
  auto* request = static_cast<FileRequest*>(data);
  if (request->recording >= 0) {
    // A bookmark still: the recording's folder comes from the recording database, and the
    // still is named as its bookmark stores it or by its file name in the stills folder.
    std::vector<zm_recording> found;
    std::string folder;
    if (request->gateway->library_ready() &&
        zm_get_recording(request->recording, &found, 0, 1) == 0 && found.size() == 1)
      folder = found[0].folder;
    request->folder = folder.empty() ? "" : SysrootPath(folder);
    if (!Sysroot().empty() && folder.compare(0, Sysroot().size(), Sysroot()) == 0)
      request->folder = folder;
    struct stat info {};
    if (!request->folder.empty() &&
        stat((request->folder + "/" + request->name).c_str(), &info) != 0)
      request->name = "bookmark_snapshots/" + request->name;
  }
  ReadFile(request);
  // A layout whose preview was never rendered (or was lost) gets one now.
  if (request->layout > 0 && request->etag.empty() && !request->outside &&
      request->gateway->library_ready() && zm_render_layout_preview(request->layout) == 0)
    ReadFile(request);
  PostToLoop(
      request->gateway->context_,
      [](gpointer done) -> gboolean {
        std::unique_ptr<FileRequest> answered(static_cast<FileRequest*>(done));
        answered->gateway->FinishFile(*answered);
        return G_SOURCE_REMOVE;
      },
      request);
}

void Gateway::ReadFile(FileRequest* request) {
  // `name` is the still-escaped rest of the path: unescaping refuses escaped slashes and NULs.
  gchar* unescaped = g_uri_unescape_string(request->name.c_str(), "/");
  std::string relative = unescaped != nullptr ? unescaped : "";
  g_free(unescaped);
  std::string root = request->folder.empty() ? "" : RealPath(request->folder);
  const char* type = ContentType(relative);
  std::string real =
      relative.empty() || root.empty() || type == nullptr ? "" : RealPath(root + "/" + relative);
  struct stat info {};
  request->outside = !real.empty() && real.compare(0, root.size() + 1, root + "/") != 0;
  if (real.empty() || request->outside || stat(real.c_str(), &info) != 0 ||
      !S_ISREG(info.st_mode) || info.st_size > kMaxFileBytes)
    return;
  char etag[96];
  std::snprintf(
      etag, sizeof etag, "\"%llx-%llx-%llx\"", static_cast<unsigned long long>(info.st_ino),
      static_cast<unsigned long long>(info.st_size),
      static_cast<unsigned long long>(info.st_mtim.tv_sec * 1000000000LL + info.st_mtim.tv_nsec));
  request->etag = etag;
  request->type = type;
  if (request->if_none_match.find(etag) != std::string::npos) {
    request->status = SOUP_STATUS_NOT_MODIFIED;
  } else if (g_file_get_contents(real.c_str(), &request->contents, &request->length, nullptr)) {
    request->status = SOUP_STATUS_OK;
  } else {
    request->etag.clear();
  }
}

void Gateway::FinishFile(FileRequest& request) {
  SoupServerMessage* msg = request.msg;
  if (request.outside) {
    metrics_.Refused("path_outside");
    ZLOG(1, "refused file outside its folder: %s", request.name.c_str());
  }
  if (request.etag.empty()) {
    Answer(msg, SOUP_STATUS_NOT_FOUND, "text/plain", "not found\n");
  } else {
    SoupMessageHeaders* response = soup_server_message_get_response_headers(msg);
    soup_message_headers_replace(response, "ETag", request.etag.c_str());
    soup_message_headers_replace(response, "Cache-Control", "no-cache");
    soup_message_headers_replace(response, "X-Content-Type-Options", "nosniff");
    soup_server_message_set_status(msg, request.status, nullptr);
    if (request.status == SOUP_STATUS_OK) {
      soup_server_message_set_response(msg, request.type, SOUP_MEMORY_TAKE, request.contents,
                                       request.length);
      request.contents = nullptr;
    }
  }
  g_free(request.contents);
  soup_server_message_unpause(msg);
  g_object_unref(msg);
  --files_pending_;
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
    return gateway.ServeFile(msg, "", name.substr(id_end + 1), std::atoi(name.c_str()));
  std::string base = folder->second.empty() ? gateway.config_.recording_folder : folder->second;
  int layout = -1;
  if (folder->first == "layouts") {
    unsigned id = 0;
    char end = 0;
    if (std::sscanf(name.c_str(), "layout_%u.png%c", &id, &end) == 1 &&
        name == FormatLayoutName(id))
      layout = static_cast<int>(id);
  }
  gateway.ServeFile(msg, SysrootPath(base), name, -1, layout);
}

void Gateway::OnLive(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*, gpointer self) {
  Gateway& gateway = *static_cast<Gateway*>(self);
  if (!IsGet(msg)) return Answer(msg, SOUP_STATUS_METHOD_NOT_ALLOWED, "text/plain", "GET only\n");
  // Only a client that watches gets pictures: the token its watch_live_pictures answer holds.
  const char* header =
      soup_message_headers_get_one(soup_server_message_get_request_headers(msg), "Authorization");
  const std::string scheme = "Bearer ";
  std::string token = header != nullptr && g_str_has_prefix(header, scheme.c_str())
                          ? std::string(header + scheme.size())
                          : "";
  bool allowed = false;
  for (auto& [id, session] : gateway.sessions_)
    if (!session->closing && !session->live_token.empty() && !token.empty())
      allowed = SameToken(token, session->live_token) || allowed;
  SoupMessageHeaders* response = soup_server_message_get_response_headers(msg);
  soup_message_headers_replace(response, "Cache-Control", "no-store");
  if (!allowed) {
    gateway.metrics_.Refused("live_unauthorized");
    soup_message_headers_replace(response, "WWW-Authenticate", "Bearer realm=\"live pictures\"");
    return Answer(msg, SOUP_STATUS_UNAUTHORIZED, "text/plain",
                  "watch_live_pictures first: its token is needed\n");
  }
  int id = LivePictureId(g_uri_get_path(soup_server_message_get_uri(msg)));
  LivePicture picture;
  if (id < 0 || !gateway.live_.Find(id, &picture))
    return Answer(msg, SOUP_STATUS_NOT_FOUND, "text/plain", "not found\n");
  // Known, but no attempt gave a picture yet: no content, and the last attempt's code says
  // why (0: none finished yet). Not an error status: a page polls this twice a second.
  soup_message_headers_replace(response, "X-Live-Code", std::to_string(picture.code).c_str());
  if (picture.jpeg == nullptr) {
    soup_message_headers_replace(response, "X-Live-Reason",
                                 picture.code < 0 ? zm_strerror(picture.code) : "not taken yet");
    soup_server_message_set_status(msg, SOUP_STATUS_NO_CONTENT, nullptr);
    return;
  }
  gint64 age = (g_get_monotonic_time() - picture.taken) / 1000;
  soup_message_headers_replace(response, "X-Picture-Age-Ms", std::to_string(age).c_str());
  soup_message_headers_replace(response, "X-Content-Type-Options", "nosniff");
  soup_server_message_set_status(msg, SOUP_STATUS_OK, nullptr);
  // The bytes stay shared with the store; the message keeps them alive while it writes.
  auto* keep = new std::shared_ptr<const std::string>(picture.jpeg);
  GBytes* bytes = g_bytes_new_with_free_func(
      (*keep)->data(), (*keep)->size(),
      [](gpointer held) { delete static_cast<std::shared_ptr<const std::string>*>(held); }, keep);
  soup_message_headers_set_content_type(response, "image/jpeg", nullptr);
  soup_message_body_append_bytes(soup_server_message_get_response_body(msg), bytes);
  g_bytes_unref(bytes);
}

void Gateway::OnEarly(SoupServer*, SoupServerMessage* msg, const char*, GHashTable*,
                      gpointer self) {
  // Every path is read-only: anything but GET and HEAD, and any request announcing a body
  // beyond a few bytes (or of unknown length), is refused from its headers alone. The server
  // would read such a body before answering, so the answer is written to the socket here and
  // the connection shut: no client can make the gateway wait for or hold a body.
  Gateway& gateway = *static_cast<Gateway*>(self);
  SoupMessageHeaders* headers = soup_server_message_get_request_headers(msg);
  SoupEncoding encoding = soup_message_headers_get_encoding(headers);
  bool body = encoding != SOUP_ENCODING_NONE &&
              (encoding != SOUP_ENCODING_CONTENT_LENGTH ||
               soup_message_headers_get_content_length(headers) > kMaxRequestBodyBytes);
  bool method = !IsGet(msg);
  if (!method && !body) return;
  const char* reason = method ? "http_method" : "http_body";
  gateway.metrics_.Refused(reason);
  ZLOG(1, "refused HTTP %s %s: %s", soup_server_message_get_method(msg),
       g_uri_get_path(soup_server_message_get_uri(msg)), reason);
  const char* answer =
      method ? "HTTP/1.1 405 Method Not Allowed\r\nAllow: GET, HEAD\r\n"
               "Content-Type: text/plain\r\nContent-Length: 9\r\nConnection: close\r\n\r\n"
               "GET only\n"
             : "HTTP/1.1 413 Content Too Large\r\nContent-Type: text/plain\r\n"
               "Content-Length: 14\r\nConnection: close\r\n\r\nno body here\r\n";
  GSocket* socket = soup_server_message_get_socket(msg);
  if (socket != nullptr) {
    // Over TLS the plain answer cannot be sent; the connection is only shut.
    if (gateway.config_.tls_certificate.empty())
      g_socket_send(socket, answer, std::strlen(answer), nullptr, nullptr);
    g_socket_shutdown(socket, TRUE, TRUE, nullptr);
  }
  // The server finds the connection shut where it would read the body, and lets it go.
  Answer(msg, method ? SOUP_STATUS_METHOD_NOT_ALLOWED : SOUP_STATUS_REQUEST_ENTITY_TOO_LARGE,
         "text/plain", "refused\n");
  soup_message_headers_replace(soup_server_message_get_response_headers(msg), "Connection",
                               "close");
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
  gateway.ServeFile(msg, gateway.www_, path.substr(1));
}

}  // namespace zolo::gateway
