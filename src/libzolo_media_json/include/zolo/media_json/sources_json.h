// Typed JSON of the source and channel records.
#pragma once

#include <zolo/media/sources.h>

#include "zolo/media_json/record_json.h"

namespace zolo::json {

template <>
const RecordType& RecordTypeOf<zm_source>();
template <>
const RecordType& RecordTypeOf<zm_channel>();
template <>
const RecordType& RecordTypeOf<zm_channel_sources>();
template <>
const RecordType& RecordTypeOf<zm_input_param>();

}  // namespace zolo::json
