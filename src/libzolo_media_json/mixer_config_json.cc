#include "zolo/media_json/mixer_config_json.h"

namespace zolo::json {

// A window needs its source and geometry; stacking and crop default to 0.
ZOLO_JSON_RECORD(zm_video_layout, ZJ_REQUIRED(id), ZJ_REQUIRED(w), ZJ_REQUIRED(h), ZJ_REQUIRED(x),
                 ZJ_REQUIRED(y), ZJ_FIELD(z), ZJ_FIELD(crop))

ZOLO_JSON_RECORD(zm_layout, ZJ_FIELD(id), ZJ_FIELD(name), ZJ_FIELD(group),
                 ZJ_REQUIRED(video_layouts), ZJ_FIELD(image), ZJ_FIELD(rank), ZJ_FLAG(custom))

ZOLO_JSON_RECORD(zm_background, ZJ_FIELD(id), ZJ_REQUIRED(path), ZJ_REQUIRED(name),
                 ZJ_FIELD(origin), ZJ_FIELD(rank))

ZOLO_JSON_RECORD(zm_foreground, ZJ_FIELD(id), ZJ_REQUIRED(path), ZJ_REQUIRED(name),
                 ZJ_FIELD(origin), ZJ_FIELD(rank))

ZOLO_JSON_RECORD(zm_position, ZJ_REQUIRED(x), ZJ_REQUIRED(y))

ZOLO_JSON_RECORD(zm_overlay, ZJ_FIELD(id), ZJ_REQUIRED(path), ZJ_REQUIRED(name), ZJ_FIELD(origins),
                 ZJ_FIELD(positions), ZJ_FIELD(rank))

ZOLO_JSON_RECORD(zm_logo, ZJ_FIELD(id), ZJ_REQUIRED(path), ZJ_REQUIRED(name), ZJ_FIELD(origin),
                 ZJ_FIELD(x), ZJ_FIELD(y), ZJ_FIELD(rank))

ZOLO_JSON_RECORD(zm_system_overlay, ZJ_FIELD(id), ZJ_REQUIRED(path), ZJ_REQUIRED(name), ZJ_FIELD(x),
                 ZJ_FIELD(y), ZJ_FIELD(content), ZJ_FIELD(rank))

ZOLO_JSON_RECORD(zm_theme, ZJ_FIELD(id), ZJ_FIELD(name), ZJ_FIELD(layout), ZJ_FIELD(background),
                 ZJ_FIELD(overlay), ZJ_FIELD(rank))

}  // namespace zolo::json
