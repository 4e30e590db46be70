// Storage sizes and predicted recording time.
#include <zolo/media/storage_info.h>

#include "request_helpers.h"
#include "zolo/media_json/storage_info_json.h"

namespace zolo::gateway {
namespace {

// The storage selector 0 (main) or 1 (sub); anything else selects nothing.
Outcome StorageValue(uint64_t (*get)(ZM_STORAGE), const char* member, const cJSON* args) {
  int storage = IntArg(args, "storage");
  if (storage != ZM_STORAGE_MAIN && storage != ZM_STORAGE_SUB)
    return BadArgument("storage must be 0 (main) or 1 (sub)");
  return WithNumber(0, member, static_cast<double>(get(static_cast<ZM_STORAGE>(storage))));
}

Outcome Storages(int (*get)(std::vector<zm_storage>*)) {
  std::vector<zm_storage> out;
  int code = get(&out);
  return WithList(code, "storages", out);
}

}  // namespace

void AddStorageInfoRequests(RequestTable& table) {
  const std::vector<Param> storage = {{"storage", ParamType::kInteger}};
  table.insert(
      table.end(),
      {
          {"get_storage_info",
           {},
           [](const cJSON*) { return Storages(zm_get_storage_info); },
           "Main and sub storage with the predicted recording time."},
          {"get_origin_storage_info",
           {},
           [](const cJSON*) { return Storages(zm_get_origin_storage_info); },
           "Raw capacity of the storages without the recording policy."},
          {"get_available_recording_time", storage,
           [](const cJSON* a) {
             return StorageValue(zm_get_available_recording_time, "seconds", a);
           },
           "Seconds still recordable on storage 0 (main) or 1 (sub)."},
          {"get_storage_total_size", storage,
           [](const cJSON* a) { return StorageValue(zm_get_storage_total_size, "bytes", a); },
           "Total bytes of storage 0 (main) or 1 (sub)."},
          {"get_storage_available_size", storage,
           [](const cJSON* a) { return StorageValue(zm_get_storage_available_size, "bytes", a); },
           "Available bytes of storage 0 (main) or 1 (sub)."},
      });
}

}  // namespace zolo::gateway
