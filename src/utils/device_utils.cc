// Clock readings, time strings, IPv4 checks, device facts and the main-loop idle helper.
#include <arpa/inet.h>
#include <glib.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <zolo/sysroot.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "common/log.h"
#include "zolo/utils.h"

namespace {

constexpr const char* kLogSource = "utils";

// Reads at most `limit` bytes of the system file `path`; logs `shown_path` on failure.
std::string ReadSystemFile(const char* path, size_t limit, const char* shown_path,
                           const char* function) {
  std::string real = zolo::SysrootPath(path);
  FILE* file = std::fopen(real.c_str(), "r");
  if (file == nullptr) {
    ZLOG_AS(function, 0, "file open %s error %d", shown_path, errno);
    return std::string();
  }
  std::string text(limit, '\0');
  size_t n = std::fread(text.data(), 1, limit, file);
  std::fclose(file);
  text.resize(n);
  return text;
}

struct IdleCall {
  int (*fn)(void*);
  void* data;
  std::string name;
};

gboolean MainLoopHandler(gpointer user) {
  auto* call = static_cast<IdleCall*>(user);
  uint64_t start = GetTimeStampU();
  int result = call->fn(call->data);
  uint64_t spent = GetTimeStampU() - start;
  OVIK_LOG_write_newline(zolo::kLogModule, 4, "MainLoopHandler", __LINE__, "MainLoopHandler",
                         "%s time spent %llu us", call->name.c_str(),
                         static_cast<unsigned long long>(spent));
  return result != 0 ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

void FreeIdleCall(gpointer user) {
  delete static_cast<IdleCall*>(user);
}

}  // namespace

int64_t GetTimeStamp() {
  tzset();
  struct timeval now;
  gettimeofday(&now, nullptr);
  return static_cast<int64_t>(now.tv_sec);
}

uint64_t GetTimeStampU() {
  tzset();
  struct timeval now;
  gettimeofday(&now, nullptr);
  return static_cast<uint64_t>(now.tv_sec) * 1000000ULL + static_cast<uint64_t>(now.tv_usec);
}

int MakeTimeString(long t, std::string* stamp, std::string* day) {
  tzset();
  time_t when = static_cast<time_t>(t);
  struct tm local;
  localtime_r(&when, &local);
  char buffer[128];
  if (stamp != nullptr) {
    std::strftime(buffer, sizeof buffer, "%Y_%m_%d_%H_%M_%S", &local);
    *stamp = buffer;
  }
  if (day != nullptr) {
    std::strftime(buffer, sizeof buffer, "%Y_%m_%d", &local);
    *day = buffer;
  }
  return 0;
}

std::string TransferIso8601(unsigned long t, double offset_seconds) {
  auto shifted = static_cast<gint64>(static_cast<double>(t) + offset_seconds);
  GDateTime* when = g_date_time_new_from_unix_utc(shifted);
  if (when == nullptr) return std::string();
  gchar* iso = g_date_time_format_iso8601(when);
  g_date_time_unref(when);
  if (iso == nullptr) return std::string();
  int hours = static_cast<int>(offset_seconds / 3600);
  int minutes = static_cast<int>(60 * (offset_seconds - hours * 3600) / 3600);
  gchar* zone = g_strdup_printf("%+03d:%02d", hours, minutes);
  std::string result = std::string(iso) + zone;
  g_free(iso);
  g_free(zone);
  ReplaceString(&result, "Z", "");
  return result;
}

double GetCurrentTzOffset() {
  time_t now = time(nullptr);
  struct tm local;
  struct tm utc;
  localtime_r(&now, &local);
  gmtime_r(&now, &utc);
  return difftime(mktime(&local), mktime(&utc));
}

bool IsValidIpAddress(const std::string& address) {
  struct in_addr parsed;
  return inet_pton(AF_INET, address.c_str(), &parsed) != 0;
}

bool IsMulticastIpAddress(const std::string& address) {
  struct in_addr parsed;
  if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) return false;
  unsigned first = ntohl(parsed.s_addr) >> 24;
  return first >= 224 && first <= 239;
}

int GetIpAddress(const std::string& ifname, std::string* ip) {
  int fd = socket(AF_INET, SOCK_DGRAM, 0);
  if (fd < 0) return -1;
  struct ifreq request;
  std::memset(&request, 0, sizeof request);
  request.ifr_addr.sa_family = AF_INET;
  std::strncpy(request.ifr_name, ifname.c_str(), IFNAMSIZ - 1);
  int result = ioctl(fd, SIOCGIFADDR, &request);
  close(fd);
  if (result != 0) return -1;
  if (ip != nullptr) {
    char text[INET_ADDRSTRLEN] = {0};
    const auto* address = reinterpret_cast<const struct sockaddr_in*>(&request.ifr_addr);
    inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
    *ip = text;
  }
  return 0;
}

std::string GetDeviceHostname() {
  // The failure message names "/etc/description"; kept so for the log readers that match it.
  std::string name = ReadSystemFile("/etc/hostname", 32, "/etc/description", __func__);
  RemoveTrailingChar('\n', &name);
  return name;
}

std::string GetDeviceDescription() {
  std::string text = ReadSystemFile("/etc/description", 512, "/etc/description", __func__);
  RemoveTrailingChar('\n', &text);
  return text;
}

std::string GetMacAddressStr(bool keep_case) {
  const char* path = "/sys/class/net/eth0/address";
  std::string mac = ReadSystemFile(path, 1024, path, __func__);
  mac.erase(std::remove(mac.begin(), mac.end(), ':'), mac.end());
  if (!keep_case)
    std::transform(mac.begin(), mac.end(), mac.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  if (!mac.empty()) mac.pop_back();
  return mac;
}

int _GMainLoopIdleAdd(int (*fn)(void*), void* data, const char* name) {
  if (name == nullptr) {
    ZLOG(0, "Function name is NULL!!");
    return 0;
  }
  IdleCall* call = new (std::nothrow) IdleCall{fn, data, name};
  if (call == nullptr || fn == nullptr) {
    delete call;
    ZLOG(0, "Unable to allocate MainLoopData for function %s", name);
    return -1;
  }
  // GLib frees the record through FreeIdleCall once the idle source is removed.
  g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, MainLoopHandler, call, FreeIdleCall);
  return 0;
}
