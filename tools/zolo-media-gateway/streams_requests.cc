#include "request_helpers.h"

namespace zolo::gateway {

void AddStreamRequests(RequestTable&) {}

}  // namespace zolo::gateway
