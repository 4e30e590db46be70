// Typed JSON of the layout, asset and theme records.
#pragma once

#include <zolo/media/mixer_config.h>

#include "zolo/media_json/record_json.h"

namespace zolo::json {

template <>
const RecordType& RecordTypeOf<zm_video_layout>();
template <>
const RecordType& RecordTypeOf<zm_layout>();
template <>
const RecordType& RecordTypeOf<zm_background>();
template <>
const RecordType& RecordTypeOf<zm_foreground>();
template <>
const RecordType& RecordTypeOf<zm_position>();
template <>
const RecordType& RecordTypeOf<zm_overlay>();
template <>
const RecordType& RecordTypeOf<zm_logo>();
template <>
const RecordType& RecordTypeOf<zm_system_overlay>();
template <>
const RecordType& RecordTypeOf<zm_theme>();

}  // namespace zolo::json
