// Feeds arbitrary frames to the gateway's message decoder, then the decoded message to the
// request checks, the subscription reader and the coalescer, as a client's message would go.
#include <cstddef>
#include <cstdint>
#include <string>

#include "events.h"
#include "protocol.h"

using namespace zolo::gateway;
using zolo::JsonHolder;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Limits limits;
  limits.max_bytes = 65536;
  Decoded decoded = DecodeMessage(reinterpret_cast<const char*>(data), size, limits);
  if (!decoded.ok) return 0;
  const RequestSpec* known = nullptr;
  std::string comment;
  CheckRequest(decoded.d, &known, &comment);
  RequestId(decoded.d);
  const cJSON* request = nullptr;
  cJSON_ArrayForEach(request, cJSON_GetObjectItemCaseSensitive(decoded.d, "requests")) {
    CheckRequest(request, &known, &comment);
    RequestId(request);
  }
  Subscriptions subscriptions;
  if (ParseSubscriptions(cJSON_GetObjectItemCaseSensitive(decoded.d, "subscriptions"),
                         &subscriptions, &comment))
    subscriptions.Wants("audio_level", decoded.d);
  Coalescer coalescer;
  for (gint64 now : {0, 1000, 2000000}) {
    JsonHolder record(cJSON_Duplicate(decoded.d, true));
    coalescer.Offer("audio_level", 30, &record, now);
  }
  coalescer.TakeDue(4000000);
  Message(kEvent, JsonHolder(cJSON_Duplicate(decoded.d, true)));
  return 0;
}
