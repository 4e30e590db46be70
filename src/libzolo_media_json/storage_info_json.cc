#include "zolo/media_json/storage_info_json.h"

namespace zolo::json {

ZOLO_JSON_RECORD(zm_storage, ZJ_FIELD(name), ZJ_FIELD(total_size), ZJ_FIELD(available_size),
                 ZJ_FIELD(available_recording_time))

}  // namespace zolo::json
