#include "signal_records.h"

#include <cjson/cJSON.h>

#include <memory>

#include "zolo/media_json/signals_json.h"

namespace zmctl {

namespace {

// `object` as key=value pairs; text values with spaces are quoted.
std::string AsPairs(const cJSON* object) {
  std::string text;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, object) {
    if (!text.empty()) text += ' ';
    text += item->string;
    text += '=';
    if (cJSON_IsString(item)) {
      std::string value = item->valuestring;
      text += value.find(' ') == std::string::npos && !value.empty() ? value : '"' + value + '"';
    } else {
      std::unique_ptr<char, void (*)(void*)> printed(cJSON_PrintUnformatted(item), cJSON_free);
      text += printed ? printed.get() : "";
    }
  }
  return text;
}

}  // namespace

const std::vector<std::string>& SignalNames() {
  return zolo::json::SignalNames();
}

// The record layer's JSON of the record, the same the gateway sends as an event.
std::string DescribeRecord(const std::string& name, const void* record, bool json) {
  zolo::JsonHolder object = zolo::json::SignalToJson(name, record);
  if (!object) return std::string();
  if (!json) return AsPairs(object.get());
  std::unique_ptr<char, void (*)(void*)> printed(cJSON_PrintUnformatted(object.get()), cJSON_free);
  return printed ? printed.get() : "{}";
}

}  // namespace zmctl
