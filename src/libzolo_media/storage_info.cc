// Storage information: the recording policy prepared from configuration, settings and the
// file streams, then the main and sub storage measured here or, while recording, as the
// engine predicts them.
#include <cjson/cJSON.h>
#include <zolo/media/frame.h>
#include <zolo/media/storage_info.h>
#include <zolo/storage.h>
#include <zolo_model/media_model.h>
#include <zolo_model/media_setting.h>
#include <zolo_model/stream.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <memory>

#include "common/log.h"
#include "libzolo_media/media_call.h"
#include "common/json_holder.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";
constexpr unsigned long kUnlimitedRecording = 2147483647;

using Json = zolo::JsonHolder;

bool ToStorageEnum(ZM_STORAGE selector, StorageEnum* e) {
  switch (selector) {
    case ZM_STORAGE_MAIN:
      *e = STORAGE_MAIN;
      return true;
    case ZM_STORAGE_SUB:
      *e = STORAGE_SUB;
      return true;
  }
  return false;
}

void SetReserveFromConfig() {
  uint64_t reserve = 0;
  zolo::MediaConfig().GetUint64("Engine", "min_avail_recording_time", 0, &reserve);
  Storage::SetMinRecordingTime(reserve);
}

// Reserve, loop recording and the longest recording (from the first file stream named
// `stream`, any file stream for null), logged under `function`.
void PreparePolicy(const char* function, const char* stream) {
  SetReserveFromConfig();
  int cycling = 0;
  if (MediaSetting::QueryValue("cycling", &cycling) != 0) {
    ZLOG_AS(function, 0, "Query cycling fail!");
    cycling = 0;
  }
  Storage::SetCycling(cycling);
  std::vector<Stream*> streams;
  if (Stream::QueryByTypeName("file", stream, true, &streams) != 0) {
    ZLOG_AS(function, 0, "Query max recording duration fail!");
  } else if (!streams.empty()) {
    // A first stream without a longest recording keeps the previous one.
    int longest = streams.front()->ObtainParameter("max_duration", -1);
    if (longest >= 0) Storage::SetMaxRecordingTime(static_cast<unsigned long>(longest));
  }
  MediaModel::CleanQuery(&streams);
}

int ToSeconds32(uint64_t seconds) {
  return static_cast<int>(std::min<uint64_t>(seconds, INT_MAX));
}

// Appends the storage `e` measured now; false when it has no setting or, for the sub
// storage, is not present.
bool AppendLocal(StorageEnum e, std::vector<zm_storage>* out) {
  Storage* storage = Storage::Get(e, true, true);
  if (storage == nullptr || (e == STORAGE_SUB && !storage->Existed())) return false;
  zm_storage& record = out->emplace_back();  // value-initialised: all zero
  std::snprintf(record.name, sizeof record.name, "%s", storage->name.c_str());
  record.total_size = storage->TotalSize();
  record.available_size = storage->AvailableSize();
  record.available_recording_time = ToSeconds32(storage->AvailRecordingTime(true));
  return true;
}

void AppendMainAndSub(std::vector<zm_storage>* out) {
  AppendLocal(STORAGE_MAIN, out);
  AppendLocal(STORAGE_SUB, out);
}

uint64_t Bytes(const cJSON* object, const char* key) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, key);
  if (!cJSON_IsNumber(item) || !(item->valuedouble > 0)) return 0;
  if (item->valuedouble >= 18446744073709551615.0) return UINT64_MAX;
  return static_cast<uint64_t>(item->valuedouble);
}

void AppendPredicted(const cJSON* object, std::vector<zm_storage>* out) {
  zm_storage& record = out->emplace_back();
  const char* name = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, "name"));
  std::snprintf(record.name, sizeof record.name, "%s", name ? name : "");
  record.total_size = Bytes(object, "total_size");
  record.available_size = Bytes(object, "available_size");
  const cJSON* time = cJSON_GetObjectItemCaseSensitive(object, "available_recording_time");
  record.available_recording_time = cJSON_IsNumber(time) ? time->valueint : -1;
}

template <class Read>
uint64_t ReadStorage(ZM_STORAGE selector, Read read) {
  StorageEnum e;
  if (!ToStorageEnum(selector, &e)) return 0;
  Storage* storage = Storage::Get(e, true, true);
  return storage == nullptr ? 0 : read(storage);
}

}  // namespace

int zm_get_storage_info(std::vector<zm_storage>* out) {
  if (out == nullptr) return -3;
  int state = zm_get_state(nullptr);
  PreparePolicy("zm_get_storage_info", nullptr);
  if (state != 3 && state != 4) {
    AppendMainAndSub(out);
    return 0;
  }
  cJSON* raw = nullptr;
  int result = zm_call_media_method("get_storage_pred_info", nullptr, &raw, zolo::kCallTimeout);
  Json reply(raw);
  if (result != 0) return result;
  AppendPredicted(cJSON_GetObjectItemCaseSensitive(reply.get(), "storage"), out);
  const cJSON* sub = cJSON_GetObjectItemCaseSensitive(reply.get(), "sub_storage");
  if (cJSON_IsObject(sub)) AppendPredicted(sub, out);
  return 0;
}

int zm_get_origin_storage_info(std::vector<zm_storage>* out) {
  if (out == nullptr) return -3;
  SetReserveFromConfig();
  Storage::SetCycling(0);
  Storage::SetMaxRecordingTime(kUnlimitedRecording);
  AppendMainAndSub(out);
  return 0;
}

uint64_t zm_get_available_recording_time(ZM_STORAGE selector) {
  StorageEnum e;
  if (!ToStorageEnum(selector, &e)) return 0;
  PreparePolicy("zm_get_available_recording_time", "movie1");
  Storage* storage = Storage::Get(e, true, true);
  return storage == nullptr ? 0 : storage->AvailRecordingTime(true);
}

uint64_t zm_get_storage_total_size(ZM_STORAGE selector) {
  return ReadStorage(selector, [](Storage* storage) { return storage->TotalSize(); });
}

uint64_t zm_get_storage_available_size(ZM_STORAGE selector) {
  return ReadStorage(selector, [](Storage* storage) { return storage->AvailableSize(); });
}
