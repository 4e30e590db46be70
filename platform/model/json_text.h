// JSON texts of the model's rows (not installed): parsed trees that delete themselves,
// compact printing, name and id lists, and the members of the JSON object texts that model
// objects keep (parameters, authentication), each parsed once into a cache and printed back
// after every change.
#pragma once

#include <cjson/cJSON.h>

#include <memory>
#include <string>
#include <vector>
#include "common/json_holder.h"

namespace zolo::model {

using Json = zolo::JsonHolder;

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

// `ids` as a JSON array, for "json_each(?)" in a query.
inline std::string IdList(const std::vector<int>& ids) {
  std::string list = "[";
  for (int id : ids) {
    if (list.size() > 1) list += ',';
    list += std::to_string(id);
  }
  return list + "]";
}

// The parsed form of `text`, made once into `*cache`; an unparsable text counts as an
// empty object.
inline cJSON* ParsedObject(const std::string& text, cJSON** cache) {
  if (*cache == nullptr) {
    *cache = cJSON_Parse(text.c_str());
    if (!cJSON_IsObject(*cache)) {
      cJSON_Delete(*cache);
      *cache = cJSON_CreateObject();
    }
  }
  return *cache;
}

inline bool HasMember(const cJSON* json, const std::string& key) {
  return cJSON_GetObjectItemCaseSensitive(json, key.c_str()) != nullptr;
}

// An integer member (true and false read as 1 and 0), or `fallback`.
inline int IntMember(const cJSON* json, const std::string& key, int fallback) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(json, key.c_str());
  if (cJSON_IsNumber(item)) return item->valueint;
  if (cJSON_IsBool(item)) return cJSON_IsTrue(item) ? 1 : 0;
  return fallback;
}

// A text member, or null when `key` is missing or not text.
inline const char* TextMember(const cJSON* json, const std::string& key) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(json, key.c_str());
  return cJSON_IsString(item) ? item->valuestring : nullptr;
}

// Whether `text` is a JSON object, or blank (an object not yet written).
inline bool IsObjectText(const std::string& text) {
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) return true;
  Json parsed = ParseJson(text);
  return cJSON_IsObject(parsed.get());
}

// Sets member `key` to `value` (taking it) and prints the object back into `*text`.
// 0, or -1 when `value` could not be made or `*text` holds something other than a JSON
// object: a text that does not parse is never replaced by one member.
inline int SetMember(std::string* text, cJSON** cache, const std::string& key, cJSON* value) {
  if (value == nullptr) return -1;
  if (!IsObjectText(*text)) {
    cJSON_Delete(value);
    return -1;
  }
  cJSON* json = ParsedObject(*text, cache);
  if (cJSON_GetObjectItemCaseSensitive(json, key.c_str()) != nullptr)
    cJSON_ReplaceItemInObjectCaseSensitive(json, key.c_str(), value);
  else
    cJSON_AddItemToObject(json, key.c_str(), value);
  std::string printed = PrintJson(json);
  *text = printed.empty() ? "{}" : printed;
  return 0;
}

}  // namespace zolo::model
