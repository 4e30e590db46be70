// Storage information: the main and the sub storage as callers see them, with the
// predicted recording time under the appliance's recording policy.
#pragma once

#include <zolo/export.h>

#include <cstdint>
#include <vector>

// Selects the main (0) or the sub (1) storage. Other values select nothing.
enum ZM_STORAGE : int { ZM_STORAGE_MAIN = 0, ZM_STORAGE_SUB = 1 };

// One storage. Flat; the name is cut to its capacity.
struct zm_storage {
  char name[512];                // "SD", "USB0" ...
  uint64_t total_size;           // bytes
  uint64_t available_size;       // bytes (a FAT32 file system counts at most 3,800,000,000)
  int available_recording_time;  // seconds; -1 when the engine's answer lacks it
};

// Main storage, then the sub storage when one is present, appended to `out` (never
// cleared). While the engine records (state 3 or 4) it is asked ("get_storage_pred_info");
// its missing members read as "" / 0 / -1. Otherwise the storages are measured here under
// the policy: the reserve "min_avail_recording_time" of group "Engine", loop recording
// (setting "cycling") and the longest recording ("max_duration" of the first file stream).
// A storage whose setting ("storage", "sub_storage") is missing is left out. 0; -3 when
// `out` is null; the engine call's mapped result when it fails (nothing appended).
ZM_EXPORT int zm_get_storage_info(std::vector<zm_storage>* out);
// The raw capacity, measured here without loop recording and without a longest recording
// (2147483647 s); these policy values stay set afterwards. 0; -3 when `out` is null.
ZM_EXPORT int zm_get_origin_storage_info(std::vector<zm_storage>* out);
// Seconds still recordable on the storage (policy with the file stream "movie1"); 0 for an
// unknown selector or a storage whose setting is missing.
ZM_EXPORT uint64_t zm_get_available_recording_time(ZM_STORAGE storage);
// Total / available bytes of the storage (re-read now); 0 for an unknown selector or a
// storage whose setting is missing.
ZM_EXPORT uint64_t zm_get_storage_total_size(ZM_STORAGE storage);
ZM_EXPORT uint64_t zm_get_storage_available_size(ZM_STORAGE storage);
