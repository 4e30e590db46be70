// Typed JSON of the storage record.
#pragma once

#include <zolo/media/storage_info.h>

#include "zolo/media_json/record_json.h"

namespace zolo::json {

template <>
const RecordType& RecordTypeOf<zm_storage>();

}  // namespace zolo::json
