// Typed JSON of the stream records.
#pragma once

#include <zolo/media/streams.h>

#include "zolo/media_json/record_json.h"

namespace zolo::json {

template <>
const RecordType& RecordTypeOf<zm_stream>();
template <>
const RecordType& RecordTypeOf<zm_metadata>();

}  // namespace zolo::json
