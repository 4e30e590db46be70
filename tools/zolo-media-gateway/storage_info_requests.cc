#include "request_helpers.h"

namespace zolo::gateway {

void AddStorageInfoRequests(RequestTable&) {}

}  // namespace zolo::gateway
