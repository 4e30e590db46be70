#include "zolo/media_json/codecs_json.h"

namespace zolo::json {

ZOLO_JSON_RECORD(zm_codec_parameter, ZJ_FIELD(name), ZJ_FIELD(value))

ZOLO_JSON_RECORD(zm_codec, ZJ_FIELD(id), ZJ_FIELD(type), ZJ_FIELD(name), ZJ_FIELD(parameters))

// Reading a preset: the name and both codecs are what a new preset needs.
ZOLO_JSON_RECORD(zm_codec_preset, ZJ_FIELD(id), ZJ_REQUIRED(name), ZJ_REQUIRED(video_codec),
                 ZJ_FIELD(video_codec_parameter), ZJ_REQUIRED(audio_codec),
                 ZJ_FIELD(audio_codec_parameter))

}  // namespace zolo::json
