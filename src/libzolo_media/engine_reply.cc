// Engine replies: the result-code table and the reading of a reply's "code".
#include "libzolo_media/engine_reply.h"

#include <stdexcept>
#include <unordered_map>

namespace zolo {

namespace {

// Engine reply codes and the library codes they become. Codes absent here become -1.
const std::unordered_map<int, int>& ResultCodeTable() {
  static const std::unordered_map<int, int> table = {
      {-5, -6},     {-1001, -1},  {-1002, -2},  {-1003, -3},  {-1004, -4}, {-1005, -5},
      {-1006, -10}, {-1009, -11}, {-1011, -7},  {-1012, -7},  {-1013, -8}, {-1014, -9},
      {-1015, -12}, {-1016, -13}, {-1017, -14}, {-1018, -15},
  };
  return table;
}

}  // namespace

int MapResultCode(int code) {
  const auto& table = ResultCodeTable();
  if (code == 0) return 0;
  try {
    return table.at(code);
  } catch (const std::out_of_range&) {
    return -1;
  }
}

int ReadEngineReply(const char* text, size_t length, cJSON** parsed) {
  cJSON* json = cJSON_ParseWithLength(text, length);
  // Only a number counts as the engine's code; anything else is a failure.
  const cJSON* code = cJSON_GetObjectItem(json, "code");
  int result = cJSON_IsNumber(code) ? code->valueint : -1;
  if (parsed != nullptr)
    *parsed = json;
  else
    cJSON_Delete(json);
  return MapResultCode(result);
}

}  // namespace zolo
