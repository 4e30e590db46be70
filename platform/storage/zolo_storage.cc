#include "zolo_storage.h"

#include <sys/statvfs.h>
#include <zolo/sysroot.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

constexpr const char* kStorageNames[] = {"SATA", "eSATA", "USB0",    "USB1", "USB2",
                                         "SD",   "TOUCH", "NETWORK", "USB3", "USB4"};

// File systems the appliance records on.
constexpr const char* kRecordableTypes[] = {"vfat", "exfat", "ext4", "ext3",   "ext2",
                                            "ntfs", "ntfs3", "xfs",  "btrfs",  "tmpfs",
                                            "nfs",  "nfs4",  "cifs", "fuseblk"};

std::atomic<int> g_users{0};

// mountinfo escapes blanks and backslashes in paths as octal sequences.
std::string Unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      out += static_cast<char>(std::strtol(text.substr(i + 1, 3).c_str(), nullptr, 8));
      i += 3;
    } else {
      out += text[i];
    }
  }
  return out;
}

// The file-system type mounted exactly at `dir` (last mount wins), or "".
std::string MountedType(const std::string& dir) {
  std::ifstream in("/proc/self/mountinfo");
  std::string line, type;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string id, parent, device, root, mount_point;
    if (!(fields >> id >> parent >> device >> root >> mount_point)) continue;
    if (Unescape(mount_point) != dir) continue;
    size_t dash = line.find(" - ");
    if (dash == std::string::npos) continue;
    std::istringstream rest(line.substr(dash + 3));
    rest >> type;
  }
  return type;
}

bool Recordable(const std::string& type) {
  for (const char* known : kRecordableTypes)
    if (type == known) return true;
  return false;
}

}  // namespace

int zs_storage_init() {
  ++g_users;
  return 0;
}

int zs_storage_release() {
  int users = g_users.load();
  while (users > 0 && !g_users.compare_exchange_weak(users, users - 1)) {
  }
  return 0;
}

int zs_get_storage_info(int type, std::vector<zs_storage>* list) {
  if (list == nullptr || type < 0 || type >= static_cast<int>(std::size(kStorageNames))) return -1;
  std::string system_dir = std::string("/media/") + kStorageNames[type];
  std::string dir = zolo::SysrootPath(system_dir);
  char resolved[PATH_MAX];
  if (realpath(dir.c_str(), resolved) == nullptr) return -2;
  std::string fs_type = MountedType(resolved);
  if (fs_type.empty()) return -2;
  struct statvfs vfs;
  if (statvfs(resolved, &vfs) != 0) return -2;
  zs_storage info{};
  std::snprintf(info.name, sizeof info.name, "%s", kStorageNames[type]);
  std::snprintf(info.mount_dir, sizeof info.mount_dir, "%s", system_dir.c_str());
  std::snprintf(info.fs_type, sizeof info.fs_type, "%s", fs_type.c_str());
  info.total_size = static_cast<uint64_t>(vfs.f_blocks) * vfs.f_frsize;
  info.free_size = static_cast<uint64_t>(vfs.f_bavail) * vfs.f_frsize;
  info.present = true;
  info.formatted = Recordable(fs_type);
  list->push_back(info);
  return 0;
}
