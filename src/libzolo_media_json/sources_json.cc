#include "zolo/media_json/sources_json.h"

namespace zolo::json {

ZOLO_JSON_RECORD(zm_source, ZJ_FIELD(id), ZJ_FIELD(name), ZJ_FIELD(type), ZJ_FIELD(category),
                 ZJ_FIELD(url), ZJ_FIELD(sub_address), ZJ_FIELD(authentication), ZJ_FIELD(fixed),
                 ZJ_FIELD(available), ZJ_FIELD(int_attr1), ZJ_FIELD(int_attr2),
                 ZJ_FIELD(enabled_flag), ZJ_FIELD(extra), ZJ_FIELD(resolution), ZJ_FIELD(codec),
                 ZJ_FIELD(frame_rate), ZJ_FIELD(rotate), ZJ_FIELD(encryption), ZJ_FIELD(key_length),
                 ZJ_FIELD(passphrase), ZJ_FIELD(source_port), ZJ_FIELD(audio_delay),
                 ZJ_FIELD(preview_dest), ZJ_FIELD(extra2), ZJ_FIELD(latency))

ZOLO_JSON_RECORD(zm_channel, ZJ_FIELD(id), ZJ_FIELD(name), ZJ_FIELD(video_source_id),
                 ZJ_FIELD(video_source_name), ZJ_FIELD(audio_source_id),
                 ZJ_FIELD(audio_source_name), ZJ_FIELD(video_user_source_id),
                 ZJ_FIELD(video_user_source_name), ZJ_FIELD(audio_user_source_id),
                 ZJ_FIELD(audio_user_source_name), ZJ_FIELD(preview_url), ZJ_FIELD(ordinal),
                 ZJ_FIELD(attribute))

ZOLO_JSON_RECORD(zm_channel_sources, ZJ_FIELD(channel_id), ZJ_FIELD(sources),
                 ZJ_FIELD(user_sources))

ZOLO_JSON_RECORD(zm_input_param, ZJ_REQUIRED(auto_adjust), ZJ_REQUIRED(phase),
                 ZJ_REQUIRED(position))

}  // namespace zolo::json
