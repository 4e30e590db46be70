#include "zolo/storage.h"

#include <glib.h>
#include <zolo_model/media_setting.h>
#include <zolo_model/stream.h>

#include <new>
#include <vector>

#include "common/log.h"

namespace {

constexpr const char* kLogSource = "storage";
constexpr uint64_t kFat32Limit = 3800000000ULL;

// Type numbers of the storage library, by storage name.
struct StorageType {
  const char* name;
  int type;
};
constexpr StorageType kStorageTypes[] = {
    {"SATA", 0}, {"eSATA", 1}, {"SD", 5},      {"USB0", 2}, {"USB1", 3},
    {"USB2", 4}, {"TOUCH", 6}, {"NETWORK", 7}, {"USB3", 8}, {"USB4", 9},
};
constexpr int kUnknownStorageType = 10;

int StorageTypeOf(const std::string& name) {
  for (const auto& entry : kStorageTypes)
    if (name == entry.name) return entry.type;
  return kUnknownStorageType;
}

unsigned long long Ull(uint64_t v) {
  return static_cast<unsigned long long>(v);
}

}  // namespace

std::string Storage::Root = "/media";
std::map<int, Storage*> Storage::storages_;
int Storage::cycling_ = 0;
uint64_t Storage::min_recording_time_ = 0;
uint64_t Storage::max_recording_time_ = 28800;

int Storage::Initialize() {
  return zs_storage_init();
}

int Storage::Deinitialize() {
  return zs_storage_release();
}

int Storage::ReleaseAll() {
  for (auto& entry : storages_) delete entry.second;
  storages_.clear();
  return 0;
}

void Storage::SetCycling(int cycling) {
  ZLOG(3, "set cycling %d", cycling);
  cycling_ = cycling;
}

int Storage::GetCycling() {
  return cycling_;
}

void Storage::SetMinRecordingTime(unsigned long seconds) {
  ZLOG(3, "set min recording time %llu", static_cast<unsigned long long>(seconds));
  min_recording_time_ = seconds;
}

uint64_t Storage::GetMinRecordingTime() {
  return min_recording_time_;
}

void Storage::SetMaxRecordingTime(unsigned long seconds) {
  ZLOG(3, "set max recording duration time %llu", static_cast<unsigned long long>(seconds));
  max_recording_time_ = seconds;
}

uint64_t Storage::GetMaxRecordingTime() {
  return max_recording_time_;
}

Storage* Storage::Get(std::string name, bool reset, bool sub, bool update) {
  ZLOG(3, "storage name: %s reset: %d, sub: %d, update: %d", name.c_str(), reset, sub, update);
  int key = sub ? 1 : 0;
  auto it = storages_.find(key);
  if (it != storages_.end()) {
    if (update) it->second->Update(name, sub);
  } else {
    try {
      it = storages_.emplace(key, new Storage(name, sub, key)).first;
    } catch (const std::bad_alloc& e) {
      ZLOG(0, "Allocate Storage class failed (%s)", e.what());
      return nullptr;
    }
  }
  if (reset) it->second->insufficient_size = false;
  return it->second;
}

Storage* Storage::Get(StorageEnum e, bool reset, bool update) {
  if (e != STORAGE_MAIN && e != STORAGE_SUB) return nullptr;
  std::string value;
  if (MediaSetting::QueryValue(e == STORAGE_MAIN ? "storage" : "sub_storage", &value) < 0)
    return nullptr;
  return Get(value, reset, e != STORAGE_MAIN, update);
}

Storage::Storage(const std::string& storage_name, bool is_sub, int storage_index)
    : index(storage_index),
      name(storage_name),
      directory(Root + "/" + storage_name),
      available_size(0),
      avail_recording_time(0),
      info(),
      insufficient_size(false),
      sub(is_sub),
      file_bitrate(0) {
  GetStorageInfo(name);
}

Storage::~Storage() = default;

int Storage::Update() {
  return GetStorageInfo(name);
}

int Storage::Update(const std::string& storage_name, bool is_sub) {
  name = storage_name;
  directory = Root + "/" + storage_name;
  sub = is_sub;
  index = is_sub ? 1 : 0;
  return GetStorageInfo(name);
}

int Storage::GetStorageInfo(const std::string& storage_name) {
  std::vector<zs_storage> list;
  int result = zs_get_storage_info(StorageTypeOf(storage_name), &list);
  info = zs_storage();
  if (result != 0) {
    if (!sub) ZLOG(3, "get storage %s fail!", storage_name.c_str());
    return result;
  }
  if (!list.empty()) info = list.front();
  return result;
}

bool Storage::Existed() const {
  return info.present;
}

bool Storage::Formatted() const {
  return info.formatted;
}

std::string Storage::Directory() const {
  return info.mount_dir;
}

std::string Storage::Type() const {
  return info.fs_type;
}

bool Storage::IsFAT32() const {
  return g_strcmp0(Type().c_str(), "vfat") == 0;
}

uint64_t Storage::TotalSize() const {
  return info.total_size;
}

uint64_t Storage::AvailableSize() const {
  uint64_t free_bytes = info.free_size;
  if (free_bytes >= kFat32Limit && IsFAT32()) return kFat32Limit;
  return free_bytes;
}

bool Storage::InsufficientSize() const {
  return insufficient_size;
}

void Storage::InsufficientSize(bool insufficient) {
  insufficient_size = insufficient;
}

// Seconds that `bytes` last at `bitrate` (kilobits of 1024 bits per second). The bitrate is
// truncated to whole bytes before scaling, as the engine does. A bitrate below 8 consumes
// no whole byte per second: such a storage never fills.
uint64_t Storage::SecondsOf(uint64_t bytes, uint64_t bitrate) const {
  uint64_t bytes_per_second = bitrate / 8 * 1024;
  if (bytes_per_second == 0) return UINT64_MAX;
  return bytes / bytes_per_second;
}

uint64_t Storage::AvailRecordingTime(bool current_bitrate) {
  uint64_t bitrate = current_bitrate ? Stream::TotalFileBitrate(sub) : file_bitrate;
  if (bitrate == 0) return Existed() ? max_recording_time_ : 0;
  if (!Existed()) return 0;
  uint64_t t = SecondsOf(AvailableSize(), bitrate);
  uint64_t remain = t >= min_recording_time_ ? t - min_recording_time_ : 0;
  ZLOG(3, "storage (%d, %s) time %llu cycling %d", sub, name.c_str(), Ull(remain), cycling_);
  if (cycling_ != 1 || sub) return remain < max_recording_time_ ? remain : max_recording_time_;
  if (remain < max_recording_time_) {
    ZLOG(3,
         "Insufficient remain size for loop recording!! (%d, %s) (available time (%llu) < "
         "maximum time (%llu) and cycling is on)",
         sub, name.c_str(), Ull(remain), Ull(max_recording_time_));
    insufficient_size = true;
  }
  return max_recording_time_;
}

int Storage::CheckAvailRecordingTime() {
  uint64_t bitrate = Stream::TotalFileBitrate(sub);
  if (bitrate == 0) return 0;
  uint64_t t = SecondsOf(AvailableSize(), bitrate);
  ZLOG(3, "Storage (%d, %s) remaining time %llu", sub, name.c_str(),
       Ull(t >= min_recording_time_ ? t - min_recording_time_ : 0));
  if (t > min_recording_time_) return 0;
  if (cycling_ == 1 && !sub) {
    ZLOG(2, "Loop recording is on but remain size is not enough, still return storage OK!!");
    return 0;
  }
  ZLOG(2, "Available recording time (%llu) of storage (%d, %s) is not enough!", 0ULL, sub,
       name.c_str());
  return -2;
}

int Storage::CheckAvailRecordingTime(bool recording, unsigned long elapsed) {
  uint64_t bitrate = recording ? file_bitrate : Stream::TotalFileBitrate(sub);
  if (!recording && bitrate == 0) return 0;
  if (bitrate != 0) {
    uint64_t t = SecondsOf(AvailableSize(), bitrate);
    ZLOG(3, "Storage (%d, %s) remaining time %llu", sub, name.c_str(),
         Ull(t >= min_recording_time_ ? t - min_recording_time_ : 0));
    if (t <= min_recording_time_) {
      ZLOG(2, "Available recording time (%llu) of storage (%d, %s) is not enough!", 0ULL, sub,
           name.c_str());
      return -2;
    }
    if (!recording) return 0;
  }
  if (avail_recording_time == 0 || avail_recording_time > elapsed) return 0;
  ZLOG(2,
       "Current recording time (%llu) of storage (%d, %s) reaches the prediction when starting "
       "recording!",
       static_cast<unsigned long long>(elapsed), sub, name.c_str());
  return -1;
}

int Storage::CheckMaxRecordingTime() {
  uint64_t bitrate = Stream::TotalFileBitrate(sub);
  if (bitrate == 0) return 0;
  uint64_t whole = SecondsOf(TotalSize(), bitrate);
  uint64_t free_time = SecondsOf(AvailableSize(), bitrate);
  uint64_t limit = whole < max_recording_time_ ? whole : max_recording_time_;
  if (limit <= free_time) return 0;
  ZLOG(2, "Available recording time (%llu) of storage (%d, %s) is not enough for %llu recording!",
       Ull(free_time), sub, name.c_str(), Ull(limit));
  return -2;
}

int Storage::SetAvailRecordingTime() {
  available_size = AvailableSize();
  file_bitrate = Stream::TotalFileBitrate(sub);
  avail_recording_time = AvailRecordingTime(false);
  ZLOG(3, "storage (%d, %s) available size %llu available time %llu", sub, name.c_str(),
       Ull(available_size), Ull(avail_recording_time));
  return 0;
}

uint64_t Storage::GetAvailRecordingTime() const {
  return avail_recording_time;
}

uint64_t Storage::GetAvailableSize() const {
  return available_size;
}
