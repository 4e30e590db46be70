#include "request_helpers.h"

namespace zolo::gateway {

void AddMixerConfigRequests(RequestTable&) {}

}  // namespace zolo::gateway
