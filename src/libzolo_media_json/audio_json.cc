#include "zolo/media_json/audio_json.h"

namespace zolo::json {

ZOLO_JSON_RECORD(zm_audio_info, ZJ_FIELD(name), ZJ_FIELD(volume), ZJ_FIELD(mute), ZJ_FIELD(level),
                 ZJ_FIELD(audio_type), ZJ_FIELD(mixer_member), ZJ_FIELD(status), ZJ_FIELD(mode),
                 ZJ_FIELD(version), ZJ_FIELD(device_name), ZJ_FIELD(gain),
                 ZJ_FIELD(noise_reduction), ZJ_FIELD(xlr_channel), ZJ_FIELD(xlr_power),
                 ZJ_FIELD(left), ZJ_FIELD(right), ZJ_FIELD(monitor_mode),
                 ZJ_FIELD(monitor_duration_threshold), ZJ_FIELD(monitor_level_threshold),
                 ZJ_FLAG(warning_triggered))

}  // namespace zolo::json
