// Feeds arbitrary bytes as the configuration file and reads keys of every type from it.
#include <unistd.h>
#include <zolo/config.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/tmp/zolo-config-fuzz-" + std::to_string(getpid()) + ".conf";
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  Config config(path.c_str());
  if (config.Load() == 0) {
    std::string text;
    int32_t i32;
    uint32_t u32;
    int64_t i64;
    uint64_t u64;
    bool flag;
    for (const char* group : {"Application", "Engine", "Recording", "a"}) {
      for (const char* key : {"database", "min_avail_recording_time", "folder", "a"}) {
        config.GetValue(group, key, &text);
        config.GetValue(group, key, "fallback", &text);
        // Text that is not a number (or out of range) throws by contract; nothing else may.
        auto typed = [](auto get) {
          try {
            get();
          } catch (const std::invalid_argument&) {
          } catch (const std::out_of_range&) {
          }
        };
        typed([&] { config.GetInt32(group, key, 7, &i32); });
        typed([&] { config.GetUint32(group, key, &u32); });
        typed([&] { config.GetInt64(group, key, &i64); });
        typed([&] { config.GetUint64(group, key, 9, &u64); });
        typed([&] { config.GetBool(group, key, true, &flag); });
      }
    }
  }
  return 0;
}
