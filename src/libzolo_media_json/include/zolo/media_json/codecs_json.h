// Typed JSON of the codec and preset records.
#pragma once

#include <zolo/media/codecs.h>

#include "zolo/media_json/record_json.h"

namespace zolo::json {

template <>
const RecordType& RecordTypeOf<zm_codec_parameter>();
template <>
const RecordType& RecordTypeOf<zm_codec>();
template <>
const RecordType& RecordTypeOf<zm_codec_preset>();

}  // namespace zolo::json
