// The engine's storage prediction: the main and sub storage as mounted below the sandbox
// root (sizes from statvfs through libzolo_storage) and the seconds still recordable at the
// enabled file streams' bitrate, under the same policy the library applies: the reserve
// "min_avail_recording_time", loop recording ("cycling") on the main storage, and the
// longest recording of the first file stream.
#include <glib.h>
#include <zolo/sysroot.h>
#include <zolo_model/media_model.h>
#include <zolo_model/media_setting.h>
#include <zolo_model/stream.h>
#include <zolo_storage.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "engine_methods.h"

namespace zolo::sim {

namespace {

constexpr const char* kStorageNames[] = {"SATA", "eSATA", "USB0",    "USB1", "USB2",
                                         "SD",   "TOUCH", "NETWORK", "USB3", "USB4"};
constexpr uint64_t kFat32Limit = 3800000000ULL;

struct Policy {
  uint64_t reserve = 0;
  uint64_t longest = 28800;
  bool cycling = false;
};

Policy ReadPolicy() {
  Policy policy;
  GKeyFile* file = g_key_file_new();
  std::string path = zolo::SysrootPath("/etc/media.conf");
  if (g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr)) {
    GError* error = nullptr;
    guint64 reserve = g_key_file_get_uint64(file, "Engine", "min_avail_recording_time", &error);
    if (error == nullptr) policy.reserve = reserve;
    g_clear_error(&error);
  }
  g_key_file_free(file);
  int cycling = 0;
  policy.cycling = MediaSetting::QueryValue("cycling", &cycling) == 0 && cycling == 1;
  std::vector<Stream*> files;
  if (Stream::QueryByTypeName("file", nullptr, true, &files) == 0 && !files.empty()) {
    int longest = files.front()->ObtainParameter("max_duration", -1);
    if (longest >= 0) policy.longest = static_cast<uint64_t>(longest);
  }
  MediaModel::CleanQuery(&files);
  return policy;
}

cJSON* StorageObject(const std::string& name, uint64_t total, uint64_t available,
                     uint64_t seconds) {
  cJSON* object = cJSON_CreateObject();
  cJSON_AddStringToObject(object, "name", name.c_str());
  cJSON_AddNumberToObject(object, "total_size", static_cast<double>(total));
  cJSON_AddNumberToObject(object, "available_size", static_cast<double>(available));
  cJSON_AddNumberToObject(object, "available_recording_time",
                          static_cast<double>(std::min<uint64_t>(seconds, INT_MAX)));
  return object;
}

// The storage named by setting `key` as a reply object; null without the setting, and for
// the sub storage when nothing is mounted (the main storage then reports zeros).
cJSON* Predict(const char* key, bool sub, const Policy& policy) {
  std::string name;
  if (MediaSetting::QueryValue(key, &name) != 0) return nullptr;
  int type = 10;
  for (int i = 0; i < static_cast<int>(std::size(kStorageNames)); ++i)
    if (name == kStorageNames[i]) type = i;
  std::vector<zs_storage> found;
  if (zs_get_storage_info(type, &found) != 0 || found.empty())
    return sub ? nullptr : StorageObject(name, 0, 0, 0);
  const zs_storage& info = found.front();
  uint64_t available = info.free_size;
  if (available >= kFat32Limit && std::string(info.fs_type) == "vfat") available = kFat32Limit;
  uint64_t bitrate = Stream::TotalFileBitrate(sub);
  uint64_t seconds = policy.longest;
  uint64_t bytes_per_second = bitrate / 8 * 1024;
  if (bitrate != 0 && !(policy.cycling && !sub)) {
    uint64_t whole = bytes_per_second == 0 ? 0 : available / bytes_per_second;
    uint64_t remain = whole >= policy.reserve ? whole - policy.reserve : 0;
    seconds = std::min(policy.longest, remain);
  }
  return StorageObject(name, info.total_size, available, seconds);
}

}  // namespace

void RegisterStorageInfoMethods(MediaSimulator& sim) {
  sim.Handle("get_storage_pred_info", [](const std::string&, MediaSimulator& engine) {
    engine.ConnectModel();
    Policy policy = ReadPolicy();
    cJSON* reply = cJSON_CreateObject();
    cJSON* main = Predict("storage", false, policy);
    cJSON_AddItemToObject(reply, "storage", main != nullptr ? main : cJSON_CreateObject());
    if (cJSON* sub = Predict("sub_storage", true, policy))
      cJSON_AddItemToObject(reply, "sub_storage", sub);
    return Reply(0, reply);
  });
}

}  // namespace zolo::sim
