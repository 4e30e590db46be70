// Storage: one of the two recording targets (main and sub storage) and how many seconds
// can still be recorded on it at the current total bitrate of the file streams.
//
// Device facts come from libzolo_storage, the bitrate from the model
// (Stream::TotalFileBitrate). Policy values are process-wide statics; nothing here takes a
// lock, so callers serialise use of the class.
#pragma once

#include <zolo/export.h>
#include <zolo_storage.h>

#include <cstdint>
#include <map>
#include <string>

// Selects the main (0) or sub (1) storage; also the "sub" flag of the bitrate query.
enum StorageEnum { STORAGE_MAIN = 0, STORAGE_SUB = 1 };

class ZM_EXPORT Storage {
 public:
  // Parent of every storage's mount directory.
  static std::string Root;

  // Brings the storage library up / down; their results.
  static int Initialize();
  static int Deinitialize();
  // Deletes every Storage object and empties the map; 0.
  static int ReleaseAll();

  // Loop recording: 1 = on.
  static void SetCycling(int cycling);
  static int GetCycling();
  // Reserve in seconds that is never counted as available.
  static void SetMinRecordingTime(unsigned long seconds);
  static uint64_t GetMinRecordingTime();
  // Longest recording in seconds; also the answer when no bitrate is known.
  static void SetMaxRecordingTime(unsigned long seconds);
  static uint64_t GetMaxRecordingTime();

  // The object kept under key `sub` (0 or 1), created for `name` when absent and
  // re-read for `name` when `update`; `reset` clears its shortage flag. An existing object
  // is returned unchanged when `update` is false. Owned by the class; null on allocation
  // failure.
  static Storage* Get(std::string name, bool reset, bool sub, bool update);
  // The storage named by the media setting "storage" (main) or "sub_storage" (sub); null
  // for another enum value or a missing setting.
  static Storage* Get(StorageEnum e, bool reset, bool update);

  Storage(const std::string& name, bool sub, int index);
  virtual ~Storage();

  // Re-reads the device facts of the current name / of a new name and storage kind.
  int Update();
  int Update(const std::string& name, bool sub);
  // Reads the device facts of `name` into `info` (zeroed first); the storage library's
  // result.
  int GetStorageInfo(const std::string& name);

  bool Existed() const;
  bool Formatted() const;
  std::string Directory() const;
  std::string Type() const;
  bool IsFAT32() const;
  uint64_t TotalSize() const;
  // Free bytes; a FAT32 file system counts at most 3,800,000,000 (its largest file).
  uint64_t AvailableSize() const;
  bool InsufficientSize() const;
  void InsufficientSize(bool insufficient);

  // Seconds still recordable, with the current bitrate or the one noted last.
  uint64_t AvailRecordingTime(bool current_bitrate);
  // Before starting: 0, or -2 when the storage cannot hold more than the reserve.
  int CheckAvailRecordingTime();
  // During a recording: 0; -1 when `elapsed` reached the prediction noted at the start;
  // -2 when the storage cannot hold more than the reserve.
  int CheckAvailRecordingTime(bool recording, unsigned long elapsed);
  // 0, or -2 when a maximum-length recording does not fit.
  int CheckMaxRecordingTime();
  // Notes free bytes, bitrate and prediction for the recording about to start; 0.
  int SetAvailRecordingTime();
  uint64_t GetAvailRecordingTime() const;
  uint64_t GetAvailableSize() const;

  int index;
  std::string name;
  std::string directory;
  uint64_t available_size;
  uint64_t avail_recording_time;
  zs_storage info;
  bool insufficient_size;
  bool sub;
  uint64_t file_bitrate;

  static std::map<int, Storage*> storages_;
  static int cycling_;
  static uint64_t min_recording_time_;
  static uint64_t max_recording_time_;

 private:
  uint64_t SecondsOf(uint64_t bytes, uint64_t bitrate) const;
};
