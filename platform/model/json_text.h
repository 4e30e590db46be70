// JSON texts of the model's rows (not installed): parsed trees that delete themselves and
// compact printing.
#pragma once

#include <cjson/cJSON.h>

#include <memory>
#include <string>
#include <vector>

namespace zolo::model {

struct JsonDeleter {
  void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

// `text` parsed (bounded by its length, not by a NUL); null when it is not JSON.
inline Json ParseJson(const std::string& text) {
  return Json(cJSON_ParseWithLength(text.data(), text.size()));
}

// `json` printed without spaces; "" when printing fails.
inline std::string PrintJson(const cJSON* json) {
  char* printed = json != nullptr ? cJSON_PrintUnformatted(json) : nullptr;
  if (printed == nullptr) return std::string();
  std::string text(printed);
  cJSON_free(printed);
  return text;
}

// `names` as a JSON array of strings in `*text`; false (and `*text` untouched) when memory
// runs out.
inline bool PrintNames(const std::vector<std::string>& names, std::string* text) {
  Json root(cJSON_CreateArray());
  if (!root) return false;
  for (const auto& name : names) {
    cJSON* item = cJSON_CreateString(name.c_str());
    if (item == nullptr || !cJSON_AddItemToArray(root.get(), item)) {
      cJSON_Delete(item);
      return false;
    }
  }
  std::string printed = PrintJson(root.get());
  if (printed.empty()) return false;
  *text = std::move(printed);
  return true;
}

// The non-empty strings of the JSON array `text`; none when it is not an array.
inline std::vector<std::string> ParseNames(const std::string& text) {
  std::vector<std::string> names;
  Json root = ParseJson(text);
  const cJSON* list = cJSON_IsArray(root.get()) ? root.get() : nullptr;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, list) {
    if (cJSON_IsString(item) && item->valuestring[0] != '\0') names.emplace_back(item->valuestring);
  }
  return names;
}

}  // namespace zolo::model
