#include "request_helpers.h"

namespace zolo::gateway {

void AddCodecRequests(RequestTable&) {}

}  // namespace zolo::gateway
