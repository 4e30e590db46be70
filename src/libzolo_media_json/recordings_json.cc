#include "zolo/media_json/recordings_json.h"

namespace zolo::json {

ZOLO_JSON_RECORD(zm_video, ZJ_FIELD(id), ZJ_FIELD(directory), ZJ_FIELD(file_name), ZJ_FIELD(path),
                 ZJ_FIELD(status), ZJ_FIELD(started_at), ZJ_FIELD(duration), ZJ_FIELD(finished_at),
                 ZJ_FIELD(thumbnail), ZJ_FIELD(number), ZJ_FIELD(note))

ZOLO_JSON_RECORD(zm_recording, ZJ_FIELD(id), ZJ_FIELD(name), ZJ_FIELD(folder),
                 ZJ_FIELD(recorded_at), ZJ_FIELD(finished_at), ZJ_FIELD(duration), ZJ_FIELD(videos),
                 ZJ_FIELD(extra), ZJ_FIELD(file_path), ZJ_FIELD(information_file), ZJ_FIELD(status),
                 ZJ_FIELD(event_id), ZJ_FIELD(upload_setting))

ZOLO_JSON_RECORD(zm_image, ZJ_FIELD(id), ZJ_FIELD(directory), ZJ_FIELD(file_name), ZJ_FIELD(path),
                 ZJ_FIELD(status), ZJ_FIELD(width), ZJ_FIELD(height), ZJ_FIELD(time),
                 ZJ_FIELD(size), ZJ_FIELD(format), ZJ_FIELD(note), ZJ_FIELD(thumbnail))

ZOLO_JSON_RECORD(zm_snapshot, ZJ_FIELD(id), ZJ_FIELD(folder), ZJ_FIELD(images), ZJ_FIELD(status),
                 ZJ_FIELD(recording_id), ZJ_FIELD(time), ZJ_FIELD(created_at), ZJ_FIELD(width),
                 ZJ_FIELD(height), ZJ_FIELD(note))

ZOLO_JSON_RECORD(zm_bookmark_item, ZJ_REQUIRED(time), ZJ_FIELD(text), ZJ_FIELD(snapshot),
                 ZJ_FIELD(category), ZJ_FIELD(description))

ZOLO_JSON_RECORD(zm_recording_bookmark, ZJ_REQUIRED(path), ZJ_REQUIRED(items), ZJ_FIELD(count))

}  // namespace zolo::json
