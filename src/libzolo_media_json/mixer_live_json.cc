#include "zolo/media_json/mixer_live_json.h"

namespace zolo::json {

ZOLO_JSON_RECORD(zm_output_color, ZJ_FIELD(name), ZJ_REQUIRED(brightness), ZJ_REQUIRED(contrast),
                 ZJ_REQUIRED(saturation), ZJ_REQUIRED(hue))

}  // namespace zolo::json
