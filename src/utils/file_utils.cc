// File, path, URI and shell helpers, and two small cJSON extensions.
#include <fcntl.h>
#include <glib.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "common/log.h"
#include "zolo/utils.h"

namespace {

constexpr const char* kLogSource = "utils";

// Position of the last `c` at index 1 or later (index 0 is never examined), or npos.
size_t FindLastFromOne(const std::string& s, char c) {
  for (size_t i = s.size(); i-- > 1;)
    if (s[i] == c) return i;
  return std::string::npos;
}

std::string PathOf(const std::string& path_or_uri) {
  std::string path;
  GetFilepathFromUri(path_or_uri, &path);
  return path;
}

}  // namespace

int ReplaceString(std::string* s, const std::string& from, const std::string& to) {
  if (s == nullptr || from.empty()) return 0;
  for (size_t pos = s->find(from); pos != std::string::npos; pos = s->find(from, pos)) {
    s->replace(pos, from.size(), to);
    pos += to.size();
  }
  return 0;
}

int ReplaceFileName(std::string* path, const std::string& name) {
  if (path == nullptr || name.empty()) return 0;
  size_t dot = path->rfind('.');
  size_t slash = path->find_last_of("/\\");
  if (dot == 0 || slash == 0) return -1;
  size_t start = slash == std::string::npos ? 0 : slash + 1;
  size_t end = (dot == std::string::npos || dot < start) ? path->size() : dot;
  std::string old = path->substr(start, end - start);
  return ReplaceString(path, old, name);
}

int MatchString(const std::string& pattern, const std::string& text) {
  GError* error = nullptr;
  GRegex* regex = g_regex_new(pattern.c_str(), static_cast<GRegexCompileFlags>(0),
                              static_cast<GRegexMatchFlags>(0), &error);
  if (regex == nullptr) {
    ZLOG(3, "Invalid pattern %s: %s", pattern.c_str(), error ? error->message : "");
    if (error != nullptr) g_error_free(error);
    return -1;
  }
  bool matched = g_regex_match(regex, text.c_str(), static_cast<GRegexMatchFlags>(0), nullptr);
  g_regex_unref(regex);
  return matched ? 0 : -1;
}

std::string ConcateFilePath(const std::string& dir, std::string name) {
  if (dir.empty()) return name;
  if (dir.back() == '/') return dir + name;
  return dir + "/" + name;
}

void GetFilepathFromUri(const std::string& uri, std::string* path) {
  if (path == nullptr) return;
  char* scheme = g_uri_parse_scheme(uri.c_str());
  if (scheme == nullptr) {
    *path = uri;
    return;
  }
  if (g_strcmp0(scheme, "file") == 0) *path = uri.size() >= 7 ? uri.substr(7) : std::string();
  g_free(scheme);
}

std::string AppendFileUri(const std::string& uri, const std::string& prefix) {
  if (uri.empty()) return prefix;
  size_t slash = FindLastFromOne(uri, '/');
  size_t split = slash == std::string::npos ? 1 : slash + 1;
  return uri.substr(0, split) + prefix + uri.substr(split);
}

std::string GetFileExt(const std::string& path) {
  if (path.size() < 2) return std::string();
  size_t dot = FindLastFromOne(path, '.');
  return dot == std::string::npos ? path.substr(1) : path.substr(dot + 1);
}

std::string ReplaceFileExt(const std::string& path, const std::string& ext) {
  if (path.empty()) return ext;
  if (path.size() == 1) return path;
  size_t dot = FindLastFromOne(path, '.');
  return dot == std::string::npos ? path.substr(0, 1) + ext : path.substr(0, dot + 1) + ext;
}

int GetDirByFilePath(const std::string& path, std::string* dir) {
  gchar* result = g_path_get_dirname(path.c_str());
  if (result == nullptr) return -1;
  if (dir != nullptr) *dir = result;
  g_free(result);
  return 0;
}

int GetFileByFilePath(const std::string& path, std::string* file) {
  gchar* result = g_path_get_basename(path.c_str());
  if (result == nullptr) return -1;
  if (file != nullptr) *file = result;
  g_free(result);
  return 0;
}

int RemoveTrailingChar(char c, std::string* s) {
  if (s == nullptr) return 0;
  while (!s->empty() && s->back() == c) s->pop_back();
  return 0;
}

bool IntReverseSort(int a, int b) {
  return a > b;
}

bool IsFile(const std::string& path) {
  return access(PathOf(path).c_str(), F_OK) == 0;
}

bool IsDir(const std::string& path) {
  struct stat st;
  return stat(PathOf(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

int64_t FileSize(const std::string& path) {
  struct stat st;
  if (lstat(PathOf(path).c_str(), &st) != 0) return -1;
  return static_cast<int64_t>(st.st_size);
}

int Remove(const std::string& path_or_uri) {
  std::string path = PathOf(path_or_uri);
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return 0;
  int result = remove(path.c_str());
  if (result < 0) ZLOG(1, "Failed to remove %s (%d)", path.c_str(), result);
  return result;
}

int RemoveAll(const std::string& path_or_uri) {
  std::string path = PathOf(path_or_uri);
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return 0;
  std::string command = "rm -rf " + path;
  int result = system(command.c_str());
  if (result < 0) {
    ZLOG(0, "Failed to perform %s", command.c_str());
    ZLOG(0, "Failed to RemoveAll %s (%d)", path.c_str(), result);
  }
  return result;
}

int Copy(const std::string& from_uri, const std::string& to_uri) {
  std::string from = PathOf(from_uri);
  std::string to = PathOf(to_uri);
  struct stat st;
  if (stat(from.c_str(), &st) != 0) {
    ZLOG(0, "Get source file %s error %d", from.c_str(), errno);
    return -1;
  }
  int from_fd = open(from.c_str(), O_RDONLY);
  if (from_fd < 0) {
    ZLOG(0, "Open srouce file %s error %d", from.c_str(), errno);
    // The destination descriptor is still 0 here; it is synced and closed as is.
    int synced = fsync(0);
    close(0);
    return synced;
  }
  int to_fd = open(to.c_str(), O_WRONLY | O_CREAT, st.st_mode & 07777);
  if (to_fd < 0) {
    ZLOG(0, "Open destination file %s error %d", to.c_str(), errno);
    int synced = fsync(to_fd);
    close(from_fd);
    return synced;
  }
  off_t offset = 0;
  size_t remaining = static_cast<size_t>(st.st_size);
  while (offset < st.st_size) {
    ssize_t sent = sendfile(to_fd, from_fd, &offset, remaining);
    if (sent < 0) {
      ZLOG(0, "sendfile error %d", errno);
      close(from_fd);
      close(to_fd);
      return -1;
    }
    if (sent == 0) break;  // the source shrank while being copied
    // The kernel has already advanced `offset`; it is advanced once more on purpose, so
    // only a copy that completes in one call is exact.
    remaining -= static_cast<size_t>(sent);
    offset += sent;
  }
  int synced = fsync(to_fd);
  close(from_fd);
  close(to_fd);
  return synced;
}

int Rename(const std::string& from, const std::string& to) {
  int result = rename(from.c_str(), to.c_str());
  if (result != 0)
    ZLOG(0, "Rename file %s to %s failed. errno=%d", from.c_str(), to.c_str(), errno);
  return result;
}

int MakeDirByFilePath(const std::string& path, unsigned mode, int depth) {
  gchar* dir_text = g_path_get_dirname(path.c_str());
  std::string dir = dir_text ? dir_text : "";
  g_free(dir_text);
  if (depth < 1) return g_mkdir_with_parents(dir.c_str(), static_cast<int>(mode));
  std::vector<size_t> slashes;
  for (size_t i = 0; i < dir.size(); ++i)
    if (dir[i] == '/') slashes.push_back(i);
  size_t wanted = static_cast<size_t>(depth);
  if (slashes.size() < wanted) return -1;
  std::string base = slashes.size() == wanted ? dir : dir.substr(0, slashes[wanted]);
  if (!IsDir(base)) return -1;
  return g_mkdir_with_parents(dir.c_str(), static_cast<int>(mode));
}

int MakeDirByFileUri(const std::string& uri, unsigned mode, int depth) {
  return MakeDirByFilePath(PathOf(uri), mode, depth);
}

int ExecShellCmd(const std::string& cmd, std::string* output) {
  FILE* pipe = popen(cmd.c_str(), "r");
  if (pipe == nullptr) {
    ZLOG(2, "pipe create failed!");
    return -1;
  }
  char line[512];
  while (fgets(line, sizeof line, pipe) != nullptr)
    if (output != nullptr) output->append(line);
  int status = pclose(pipe);
  if (status < 0) return errno == ECHILD ? 0 : -1;
  if (WIFSIGNALED(status)) return -1;
  return WEXITSTATUS(status);
}

int cJSON_UpdateObjectItem(cJSON* obj, const char* key, int value) {
  return cJSON_UpdateObjectItem(obj, key, static_cast<double>(value));
}

int cJSON_UpdateObjectItem(cJSON* obj, const char* key, double value) {
  if (obj == nullptr || key == nullptr) return -1;
  if (cJSON_GetObjectItem(obj, key) != nullptr) cJSON_DeleteItemFromObject(obj, key);
  cJSON_AddNumberToObject(obj, key, value);
  return 0;
}

int cJSON_AppendTwoArrays(cJSON* dst, cJSON* src) {
  if (dst == nullptr || src == nullptr) return -1;
  if (cJSON_GetArraySize(dst) == 0 || cJSON_GetArraySize(src) == 0) return -1;
  for (cJSON* item = src->child; item != nullptr; item = item->next)
    cJSON_AddItemToArray(dst, cJSON_Duplicate(item, false));
  return 0;
}
