// The layout string: a layout's windows as compact JSON text, printed and parsed.
#include <cjson/cJSON.h>
#include <zolo/media/mixer_config.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// cJSON prints doubles with 15 significant digits when they come close enough, which
// loses the last bits of some; this writes the shortest text that reads back exactly.
// A non-finite value has no JSON form and is written as null.
void AddExactNumber(cJSON* object, const char* key, double value) {
  if (!std::isfinite(value)) {
    cJSON_AddNullToObject(object, key);
    return;
  }
  char text[40];
  for (int digits = 15; digits <= 17; ++digits) {
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    if (std::strtod(text, nullptr) == value) break;
  }
  for (char* c = text; *c != '\0'; ++c)
    if (*c == ',') *c = '.';  // a locale's decimal comma
  cJSON_AddRawToObject(object, key, text);
}

}  // namespace

std::string zm_get_layout_string(const std::vector<zm_video_layout>& windows) {
  cJSON* root = cJSON_CreateObject();
  cJSON* array = cJSON_AddArrayToObject(root, "layout");
  for (const zm_video_layout& w : windows) {
    cJSON* item = cJSON_CreateObject();
    cJSON_AddNumberToObject(item, "id", w.id);
    AddExactNumber(item, "x", w.x);
    AddExactNumber(item, "y", w.y);
    cJSON_AddNumberToObject(item, "z", w.z);
    AddExactNumber(item, "w", w.w);
    AddExactNumber(item, "h", w.h);
    cJSON_AddNumberToObject(item, "crop", w.crop);
    cJSON_AddItemToArray(array, item);
  }
  char* text = cJSON_PrintUnformatted(root);
  std::string result = text != nullptr ? text : "{\"layout\":[]}";
  cJSON_free(text);
  cJSON_Delete(root);
  return result;
}

int zm_parse_layout_string(const char* text, std::vector<zm_video_layout>* out) {
  if (text == nullptr || out == nullptr) return -3;
  cJSON* root = cJSON_Parse(text);
  if (root == nullptr) return -1;
  const cJSON* array = cJSON_GetObjectItemCaseSensitive(root, "layout");
  int result = cJSON_IsArray(array) ? 0 : -1;
  for (const cJSON* item = result == 0 ? array->child : nullptr; item != nullptr;
       item = item->next) {
    const cJSON* id = cJSON_GetObjectItemCaseSensitive(item, "id");
    if (!cJSON_IsNumber(id)) {
      result = -1;
      break;
    }
    zm_video_layout window{};
    bool numbers = true;
    auto number = [&](const char* key, double fallback) {
      const cJSON* member = cJSON_GetObjectItemCaseSensitive(item, key);
      if (member == nullptr) return fallback;
      if (!cJSON_IsNumber(member) || !std::isfinite(member->valuedouble)) numbers = false;
      return member->valuedouble;
    };
    // Integers saturate the way cJSON's own valueint does.
    auto integer = [](double value) {
      if (!(value == value)) return 0;
      if (value >= INT_MAX) return INT_MAX;
      if (value <= INT_MIN) return INT_MIN;
      return static_cast<int>(value);
    };
    window.id = integer(number("id", 0));
    window.x = number("x", 0);
    window.y = number("y", 0);
    window.z = integer(number("z", 0));
    window.w = number("w", 0);
    window.h = number("h", 0);
    window.crop = integer(number("crop", 0));
    if (!numbers) {
      result = -1;
      break;
    }
    out->push_back(window);
  }
  cJSON_Delete(root);
  return result;
}
