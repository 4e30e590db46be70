// libzolo_storage: facts about the appliance's storage devices.
//
// A storage of type T is the directory "/media/<NAME>" (below the sandbox root) named by
// the type table (0 SATA, 1 eSATA, 2 USB0, 3 USB1, 4 USB2, 5 SD, 6 TOUCH, 7 NETWORK,
// 8 USB3, 9 USB4). It is present only while a file system is mounted exactly there.
#pragma once

#include <cstdint>
#include <vector>

struct zs_storage {
  char name[32];        // storage name, e.g. "SD"
  char mount_dir[512];  // system path of the mount point, e.g. "/media/SD"
  char fs_type[64];     // file-system type from the mount table, e.g. "vfat"
  uint64_t total_size;  // bytes
  uint64_t free_size;   // bytes available to unprivileged writers
  bool present;         // a file system is mounted at the mount point
  bool formatted;       // that file system is one the appliance can record on
};

// Bring the library up / down; 0. Calls are counted, so each init needs one release.
int zs_storage_init();
int zs_storage_release();

// Appends the facts of storage `type` to `*list`. 0; -1 for an unknown type or a null
// list; -2 when nothing is mounted at its mount point (nothing appended). Thread-safe.
int zs_get_storage_info(int type, std::vector<zs_storage>* list);
