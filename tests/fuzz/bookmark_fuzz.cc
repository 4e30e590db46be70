// Feeds arbitrary bytes as a "bookmark.json" to the bookmark reader, searches it, and prints
// it back: the printer must write exactly what cJSON writes for the same items.
#include <cjson/cJSON.h>
#include <unistd.h>
#include <zolo/media/recordings.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "libzolo_media/bookmark_file.h"

namespace {

std::string CjsonText(const zm_recording_bookmark& bookmark) {
  cJSON* array = cJSON_CreateArray();
  for (const zm_bookmark_item& item : bookmark.items) {
    cJSON* object = cJSON_CreateObject();
    cJSON_AddNumberToObject(object, "time", static_cast<double>(item.time));
    cJSON_AddStringToObject(object, "text", item.text.c_str());
    cJSON_AddStringToObject(object, "snapshot", item.snapshot.c_str());
    cJSON_AddStringToObject(object, "category", item.category.c_str());
    cJSON_AddStringToObject(object, "description", item.description.c_str());
    cJSON_AddItemToArray(array, object);
  }
  char* printed = cJSON_PrintUnformatted(array);
  std::string text = printed != nullptr ? std::string(printed) + "\n" : "";
  cJSON_free(printed);
  cJSON_Delete(array);
  return text;
}

}  // namespace

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
  if (zolo::PrintBookmarks(bookmark) != CjsonText(bookmark)) __builtin_trap();
  return 0;
}
