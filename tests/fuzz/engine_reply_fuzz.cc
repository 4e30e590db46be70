// Feeds arbitrary bytes to the reading of an engine reply, as the call to the engine does.
#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>

#include "libzolo_media/engine_reply.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  cJSON* parsed = nullptr;
  int code = zolo::ReadEngineReply(reinterpret_cast<const char*>(data), size, &parsed);
  if (code > 0 || code < -15) __builtin_trap();  // every result lies in the library's range
  cJSON_Delete(parsed);
  zolo::ReadEngineReply(reinterpret_cast<const char*>(data), size, nullptr);
  return 0;
}
