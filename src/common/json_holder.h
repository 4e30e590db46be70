// The one owner of parsed or built cJSON documents across the tree.
#pragma once

#include <cjson/cJSON.h>

#include <memory>

namespace zolo {

struct JsonDeleter {
  void operator()(cJSON* json) const { cJSON_Delete(json); }
};
// Owns a cJSON document (a parsed text or a built tree); deletes it with cJSON_Delete.
using JsonHolder = std::unique_ptr<cJSON, JsonDeleter>;

}  // namespace zolo
