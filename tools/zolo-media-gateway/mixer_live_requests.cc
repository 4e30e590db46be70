#include "request_helpers.h"

namespace zolo::gateway {

void AddMixerLiveRequests(RequestTable&) {}

}  // namespace zolo::gateway
