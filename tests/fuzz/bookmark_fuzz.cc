// Feeds arbitrary bytes as a "bookmark.json" to the bookmark reader, then searches it.
#include <unistd.h>
#include <zolo/media/recordings.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/tmp/zolo-bookmark-fuzz-" + std::to_string(getpid()) + ".json";
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  zm_recording_bookmark bookmark{};
  int result = zm_load_recording_bookmark(path, &bookmark);
  if (result != 0 && result != -2) __builtin_trap();  // the file exists: only valid or not
  if (static_cast<size_t>(bookmark.count) != bookmark.items.size()) __builtin_trap();
  for (uint64_t t : {uint64_t{0}, uint64_t{5000}, UINT64_MAX}) {
    int index = zm_search_bookmark(&bookmark, t);
    if (bookmark.count > 0 && (index < 0 || index >= bookmark.count)) __builtin_trap();
  }
  return 0;
}
