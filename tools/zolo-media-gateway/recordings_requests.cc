#include "request_helpers.h"

namespace zolo::gateway {

void AddRecordingRequests(RequestTable&) {}

}  // namespace zolo::gateway
