// Typed JSON of the live mixer's records.
#pragma once

#include <zolo/media/mixer_live.h>

#include "zolo/media_json/record_json.h"

namespace zolo::json {

template <>
const RecordType& RecordTypeOf<zm_output_color>();

}  // namespace zolo::json
