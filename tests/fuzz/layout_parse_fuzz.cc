// Feeds arbitrary bytes, as zero-terminated text, to the layout-string parser, and checks
// that whatever it read prints and parses back to the same windows.
#include <zolo/media/mixer_config.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  std::vector<zm_video_layout> windows;
  zm_parse_layout_string(text.c_str(), &windows);
  std::vector<zm_video_layout> again;
  if (zm_parse_layout_string(zm_get_layout_string(windows).c_str(), &again) != 0) abort();
  if (again.size() != windows.size()) abort();
  for (size_t i = 0; i < windows.size(); ++i) {
    const zm_video_layout& a = windows[i];
    const zm_video_layout& b = again[i];
    if (a.id != b.id || a.z != b.z || a.crop != b.crop || a.x != b.x || a.y != b.y || a.w != b.w ||
        a.h != b.h)
      abort();
  }
  return 0;
}
