#include "zolo/media_json/streams_json.h"

namespace zolo::json {

ZOLO_JSON_RECORD(zm_stream, ZJ_FIELD(id), ZJ_FIELD(name), ZJ_FIELD(type), ZJ_FIELD(channel_id),
                 ZJ_FIELD(channel_name), ZJ_FIELD(enable), ZJ_FIELD(enable_option1),
                 ZJ_FIELD(codec_preset_id), ZJ_FIELD(codec_preset_name), ZJ_FIELD(container),
                 ZJ_FIELD(audio_shift), ZJ_FIELD(destination), ZJ_FIELD(aux_text),
                 ZJ_FIELD(duration), ZJ_FIELD(start_time), ZJ_FIELD(stop_time),
                 ZJ_FIELD(enable_option2), ZJ_FIELD(enable_option3), ZJ_FIELD(error),
                 ZJ_FIELD(encryption), ZJ_FIELD(key_length), ZJ_FIELD(passphrase),
                 ZJ_FIELD(latency), ZJ_FIELD(source_port), ZJ_FIELD(suspend), ZJ_FIELD(multicast),
                 ZJ_FIELD(ttl), ZJ_FIELD(netmask), ZJ_FIELD(netprefix), ZJ_FIELD(video_source_id),
                 ZJ_FIELD(audio_source_id), ZJ_FIELD(ndi_group_name),
                 ZJ_FIELD(ndi_discovery_server), ZJ_FIELD(ndi_stream_bandwidth))

ZOLO_JSON_RECORD(zm_metadata, ZJ_FIELD(key_id), ZJ_FIELD(key), ZJ_FIELD(value))

}  // namespace zolo::json
