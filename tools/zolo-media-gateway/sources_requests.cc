#include "request_helpers.h"

namespace zolo::gateway {

void AddSourceRequests(RequestTable&) {}

}  // namespace zolo::gateway
