#include "request_helpers.h"

namespace zolo::gateway {

void AddAudioRequests(RequestTable&) {}

}  // namespace zolo::gateway
