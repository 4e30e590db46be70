// Typed JSON of the audio port record.
#pragma once

#include <zolo/media/audio.h>

#include "zolo/media_json/record_json.h"

namespace zolo::json {

template <>
const RecordType& RecordTypeOf<zm_audio_info>();

}  // namespace zolo::json
