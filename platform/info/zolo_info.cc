#include "zolo_info.h"

extern "C" {
#include <libuboot.h>
}
#include <zolo/sysroot.h>

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <vector>

namespace {

constexpr int kMaxDevices = 2;  // the environment and its redundant copy

struct Device {
  std::string path;
  long long offset = 0;
  unsigned long long size = 0;
  unsigned long long sector_size = 0;
  unsigned long sectors = 0;
};

// Parses fw_env.config lines: "device offset size [sector-size [sectors]]".
bool ReadConfig(const std::string& path, std::vector<Device>* devices) {
  std::ifstream in(path);
  if (!in) return false;
  std::string line;
  while (std::getline(in, line) && devices->size() < kMaxDevices) {
    size_t hash = line.find('#');
    if (hash != std::string::npos) line.resize(hash);
    std::istringstream fields(line);
    std::string name, offset, size, sector_size, sectors;
    if (!(fields >> name >> offset >> size)) continue;
    fields >> sector_size >> sectors;
    Device device;
    device.path = zolo::SysrootPath(name);
    device.offset = std::strtoll(offset.c_str(), nullptr, 0);
    device.size = std::strtoull(size.c_str(), nullptr, 0);
    device.sector_size = sector_size.empty() ? 0 : std::strtoull(sector_size.c_str(), nullptr, 0);
    device.sectors = sectors.empty() ? 0 : std::strtoul(sectors.c_str(), nullptr, 0);
    if (device.size == 0) return false;
    devices->push_back(device);
  }
  return !devices->empty();
}

std::mutex g_mutex;  // libubootenv keeps no state between calls, but is not documented as reentrant

// libubootenv reads device paths from a configuration file; the sandboxed paths go to it
// through a private temporary copy.
std::string WriteResolvedConfig(const std::vector<Device>& devices) {
  char path[] = "/tmp/zolo-fw-env-XXXXXX";
  int fd = mkstemp(path);
  if (fd < 0) return std::string();
  std::ostringstream text;
  for (const auto& device : devices) {
    // libubootenv reads the numbers as hexadecimal.
    text << device.path << std::hex << std::showbase << " " << device.offset << " " << device.size;
    if (device.sector_size != 0) text << " " << device.sector_size << " " << device.sectors;
    text << std::dec;
    text << "\n";
  }
  std::string content = text.str();
  bool written = write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
  close(fd);
  if (!written) {
    unlink(path);
    return std::string();
  }
  return path;
}

}  // namespace

int zi_get_fwprintenv(const char* name, std::string* value) {
  if (name == nullptr || value == nullptr) return -1;
  std::vector<Device> devices;
  if (!ReadConfig(zolo::SysrootPath("/etc/fw_env.config"), &devices)) return -1;
  std::string config = WriteResolvedConfig(devices);
  if (config.empty()) return -1;
  std::lock_guard<std::mutex> lock(g_mutex);
  uboot_ctx* ctx = nullptr;
  int result = -1;
  if (libuboot_initialize(&ctx, nullptr) == 0) {
    if (libuboot_read_config(ctx, config.c_str()) == 0 && libuboot_open(ctx) >= 0) {
      char* text = libuboot_get_env(ctx, name);
      if (text != nullptr) {
        *value = text;
        std::free(text);
        result = 0;
      } else {
        result = -2;
      }
      libuboot_close(ctx);
    }
    libuboot_exit(ctx);
  }
  unlink(config.c_str());
  return result;
}
