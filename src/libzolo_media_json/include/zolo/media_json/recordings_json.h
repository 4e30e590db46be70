// Typed JSON of the recording, snapshot and bookmark records.
#pragma once

#include <zolo/media/recordings.h>

#include "zolo/media_json/record_json.h"

namespace zolo::json {

template <>
const RecordType& RecordTypeOf<zm_video>();
template <>
const RecordType& RecordTypeOf<zm_recording>();
template <>
const RecordType& RecordTypeOf<zm_image>();
template <>
const RecordType& RecordTypeOf<zm_snapshot>();
template <>
const RecordType& RecordTypeOf<zm_bookmark_item>();
template <>
const RecordType& RecordTypeOf<zm_recording_bookmark>();

}  // namespace zolo::json
