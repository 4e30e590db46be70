// The bookmark file: read into a list, printed back, searched for the nearest bookmark.
#include <cjson/cJSON.h>
#include <zolo/media/recordings.h>
#include <zolo/utils.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "common/json_holder.h"
#include "libzolo_media/bookmark_file.h"

namespace {

// A bookmark file larger than this is not a bookmark file.
constexpr int64_t kMaxBookmarkFile = 64 << 20;

using Json = zolo::JsonHolder;

// A JSON number as the file's unsigned 64-bit time: values from 2^63 up go through the
// unsigned range, negative ones wrap as a signed conversion would.
uint64_t TimeOf(const cJSON* item) {
  if (!cJSON_IsNumber(item)) return 0;
  double value = item->valuedouble;
  constexpr double kTwo63 = 9223372036854775808.0;
  if (std::isnan(value)) return 0;
  if (value >= 2 * kTwo63) return UINT64_MAX;
  if (value >= kTwo63) return static_cast<uint64_t>(value - kTwo63) + (1ull << 63);
  if (value <= -kTwo63) return 1ull << 63;
  return static_cast<uint64_t>(static_cast<int64_t>(value));
}

// Reads the open file `fd` to its end into `text`; false when it cannot be read or is
// larger than a bookmark file can be.
bool ReadWhole(int fd, std::string* text) {
  struct stat st;
  if (fstat(fd, &st) != 0 || st.st_size > kMaxBookmarkFile) return false;
  text->resize(static_cast<size_t>(st.st_size));
  size_t filled = 0;
  for (;;) {
    if (filled == text->size()) {
      if (text->size() >= static_cast<size_t>(kMaxBookmarkFile)) break;
      text->resize(text->size() + 4096);
    }
    ssize_t got = read(fd, text->data() + filled, text->size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    filled += static_cast<size_t>(got);
  }
  text->resize(filled);
  return true;
}

std::string TextOf(const cJSON* object, const char* key) {
  const cJSON* item = cJSON_GetObjectItem(object, key);
  return cJSON_IsString(item) ? item->valuestring : "";
}

}  // namespace

namespace zolo {

std::string PrintBookmarks(const zm_recording_bookmark& bookmark) {
  // The text cJSON_PrintUnformatted gives for the array of items, written item by item: each
  // value goes through cJSON's own printer from one stack node, so no tree of some fifty
  // thousand nodes is built and freed for a large file.
  std::string text = "[";
  std::vector<char> buffer(64);
  cJSON value{};
  auto append = [&](size_t needed) {
    if (buffer.size() < needed) buffer.resize(needed);
    if (cJSON_PrintPreallocated(&value, buffer.data(), static_cast<int>(buffer.size()), false))
      text += buffer.data();
  };
  auto append_text = [&](const char* key, const std::string& member) {
    text += key;
    value.type = cJSON_String | cJSON_IsReference;
    value.valuestring = const_cast<char*>(member.c_str());
    append(member.size() * 6 + 8);  // every byte escaped as \u00XX at the most
  };
  for (const zm_bookmark_item& item : bookmark.items) {
    text += text.size() == 1 ? "{\"time\":" : ",{\"time\":";
    value.type = cJSON_Number;
    value.valuestring = nullptr;
    cJSON_SetNumberValue(&value, static_cast<double>(item.time));
    append(64);
    append_text(",\"text\":", item.text);
    append_text(",\"snapshot\":", item.snapshot);
    append_text(",\"category\":", item.category);
    append_text(",\"description\":", item.description);
    text += '}';
  }
  return text + "]\n";
}

}  // namespace zolo

int zm_load_recording_bookmark(const std::string& path, zm_recording_bookmark* out) {
  if (path.empty() || out == nullptr) return -3;
  out->items.clear();
  out->count = 0;
  // The size and the bytes come from the one open file: a replace between the open and
  // the read cannot make the old file look short.
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  out->path = path;
  std::string text;
  bool whole = ReadWhole(fd, &text);
  close(fd);
  if (!whole) return -2;
  Json root(cJSON_ParseWithLength(text.data(), text.size()));
  if (!cJSON_IsArray(root.get())) return -2;
  const cJSON* element = nullptr;
  cJSON_ArrayForEach(element, root.get()) {
    if (!cJSON_IsObject(element) || !cJSON_HasObjectItem(element, "time") ||
        !cJSON_HasObjectItem(element, "text") || !cJSON_HasObjectItem(element, "snapshot"))
      return -2;
    zm_bookmark_item item{};
    item.time = TimeOf(cJSON_GetObjectItem(element, "time"));
    item.text = TextOf(element, "text");
    item.snapshot = TextOf(element, "snapshot");
    item.category = TextOf(element, "category");
    item.description = TextOf(element, "description");
    out->items.push_back(std::move(item));
    ++out->count;
  }
  return 0;
}

int zm_search_bookmark(zm_recording_bookmark* bookmark, uint64_t t) {
  if (bookmark == nullptr) return -3;
  if (bookmark->items.empty()) return -1;
  if (bookmark->items.size() == 1) return 0;
  std::vector<uint64_t> times;
  times.reserve(bookmark->items.size());
  for (const zm_bookmark_item& item : bookmark->items) times.push_back(item.time);
  auto diff = [&](size_t i) { return static_cast<int64_t>(t - times[i]); };
  size_t lo = 0;
  size_t hi = times.size() - 1;
  size_t mid = 0;
  for (;;) {
    mid = (lo + hi) / 2;
    if (mid == lo || mid == hi) break;
    if (diff(lo) < 1 || diff(mid) < 1)
      hi = mid;
    else
      lo = mid;
    if (lo >= hi) return static_cast<int>(mid);
  }
  int64_t d_lo = diff(lo);
  int64_t d_hi = diff(hi);
  auto magnitude = [](int64_t v) {
    return v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
  };
  return static_cast<int>(magnitude(d_lo) < magnitude(d_hi) ? lo : hi);
}
