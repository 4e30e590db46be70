#include "request_table.h"

#include <algorithm>
#include <cstring>

namespace zolo::gateway {

const RequestTable& Requests() {
  static const RequestTable table = [] {
    RequestTable built;
    AddFrameRequests(built);
    AddStreamRequests(built);
    AddSourceRequests(built);
    AddAudioRequests(built);
    AddCodecRequests(built);
    AddMixerConfigRequests(built);
    AddMixerLiveRequests(built);
    AddRecordingRequests(built);
    AddStorageInfoRequests(built);
    std::sort(built.begin(), built.end(), [](const RequestSpec& a, const RequestSpec& b) {
      return std::strcmp(a.name, b.name) < 0;
    });
    return built;
  }();
  return table;
}

const RequestSpec* FindRequest(const std::string& name) {
  const RequestTable& table = Requests();
  auto found = std::lower_bound(
      table.begin(), table.end(), name,
      [](const RequestSpec& spec, const std::string& key) { return key.compare(spec.name) > 0; });
  return found != table.end() && name == found->name ? &*found : nullptr;
}

int IntArg(const cJSON* args, const char* name, int fallback) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  return cJSON_IsNumber(item) ? item->valueint : fallback;
}

double NumberArg(const cJSON* args, const char* name, double fallback) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  return cJSON_IsNumber(item) ? item->valuedouble : fallback;
}

bool BoolArg(const cJSON* args, const char* name, bool fallback) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  return cJSON_IsBool(item) ? cJSON_IsTrue(item) : fallback;
}

std::string StringArg(const cJSON* args, const char* name, const std::string& fallback) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  return cJSON_IsString(item) ? std::string(item->valuestring) : fallback;
}

}  // namespace zolo::gateway
