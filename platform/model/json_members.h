// Members of the JSON object texts that model objects keep (parameters, authentication):
// each text is parsed once into a cache and printed back after every change.
#pragma once

#include <cjson/cJSON.h>

#include <string>

namespace zolo::model {

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

// Sets member `key` to `value` (taking it) and prints the object back into `*text`.
// 0, or -1 when `value` could not be made.
inline int SetMember(std::string* text, cJSON** cache, const std::string& key, cJSON* value) {
  if (value == nullptr) return -1;
  cJSON* json = ParsedObject(*text, cache);
  if (cJSON_GetObjectItemCaseSensitive(json, key.c_str()) != nullptr)
    cJSON_ReplaceItemInObjectCaseSensitive(json, key.c_str(), value);
  else
    cJSON_AddItemToObject(json, key.c_str(), value);
  char* printed = cJSON_PrintUnformatted(json);
  *text = printed ? printed : "{}";
  cJSON_free(printed);
  return 0;
}

}  // namespace zolo::model
