// Recordings and their videos, snapshots and images, and recording bookmarks.
#include <zolo/media/recordings.h>

#include "request_helpers.h"
#include "zolo/media_json/recordings_json.h"

namespace zolo::gateway {
namespace {

constexpr ParamType kInt = ParamType::kInteger;
constexpr ParamType kText = ParamType::kString;
constexpr ParamType kBool = ParamType::kBoolean;
constexpr ParamType kNumber = ParamType::kNumber;
constexpr ParamType kObject = ParamType::kObject;
constexpr const char* kBadTime = "must be a whole number from 0";

// A time argument (absent: 0); false when it is not a whole number from 0.
bool TimeArg(const cJSON* args, const char* name, uint64_t* time) {
  *time = 0;
  if (!Has(args, name)) return true;
  double value = UnsignedArg(args, name);
  if (value < 0) return false;
  *time = static_cast<uint64_t>(value);
  return true;
}
unsigned UnsignedInt(const cJSON* args, const char* name) {
  int value = IntArg(args, name);
  return value > 0 ? static_cast<unsigned>(value) : 0;
}

Outcome Recordings(int code, const std::vector<zm_recording>& out) {
  return WithList(code, "recordings", out);
}

// By `name`, by `id` (0: a page of `count` recordings), or by time range and `pattern`.
Outcome GetRecording(const cJSON* args) {
  std::vector<zm_recording> out;
  if (Has(args, "name"))
    return Recordings(zm_get_recording(StringArg(args, "name").c_str(), &out), out);
  if (Has(args, "id"))
    return Recordings(zm_get_recording(IntArg(args, "id"), &out, UnsignedInt(args, "page"),
                                       UnsignedInt(args, "count")),
                      out);
  uint64_t start = 0, end = 0;
  if (!TimeArg(args, "start", &start) || !TimeArg(args, "end", &end))
    return BadArgument(std::string("start and end ") + kBadTime);
  auto pattern = OptionalText(args, "pattern");
  bool with_videos = BoolArg(args, "with_videos");
  unsigned count = UnsignedInt(args, "count");
  if (count == 0)
    return Recordings(zm_get_recording(start, end, CStr(pattern), &out, with_videos), out);
  // A search answers one page and the number of matches, so that a common word never
  // makes an answer no client can take; videos are read for that page only.
  int code = zm_get_recording(start, end, CStr(pattern), &out, false);
  if (code < 0) return Code(code);
  size_t total = out.size();
  size_t first = std::min(total, static_cast<size_t>(UnsignedInt(args, "page")) * count);
  out.erase(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(first));
  if (out.size() > count) out.resize(count);
  for (zm_recording& recording : out) {
    if (!with_videos) break;
    code = zm_get_video_by_recording_id(recording.id, &recording.videos);
    if (code < 0 && code != -5) return Code(code);
  }
  Outcome outcome = Recordings(0, out);
  cJSON_AddNumberToObject(outcome.data.get(), "total", static_cast<double>(total));
  return outcome;
}

Outcome GetRecordingLite(const cJSON* args) {
  uint64_t start = 0, end = 0;
  if (!TimeArg(args, "start", &start) || !TimeArg(args, "end", &end))
    return BadArgument(std::string("start and end ") + kBadTime);
  std::vector<zm_recording> out;
  return Recordings(zm_get_recording_lite(start, end, &out), out);
}

Outcome GetOldRecording(const cJSON* args) {
  uint64_t before = 0;
  if (!TimeArg(args, "before", &before)) return BadArgument(std::string("before ") + kBadTime);
  std::vector<zm_recording> out;
  return Recordings(zm_get_old_recording_by_recorded_at(before, &out), out);
}

// By `id` (0: a page of snapshots) or by `folder` name.
Outcome GetSnapshot(const cJSON* args) {
  std::vector<zm_snapshot> out;
  unsigned page = UnsignedInt(args, "page"), count = UnsignedInt(args, "count");
  int with_images = BoolArg(args, "with_images") ? 1 : 0;
  if (Has(args, "id") == Has(args, "folder")) return BadArgument("give one of id and folder");
  if (Has(args, "id"))
    return WithList(zm_get_snapshot(IntArg(args, "id"), &out, page, count, with_images),
                    "snapshots", out);
  zm_snapshot snapshot{};
  int code =
      zm_get_snapshot(StringArg(args, "folder").c_str(), &snapshot, page, count, with_images);
  if (code >= 0) out.push_back(snapshot);
  return WithList(code, "snapshots", out);
}

Outcome SnapshotTime(const cJSON* args, bool create) {
  uint64_t time = 0;
  if (!TimeArg(args, "time", &time)) return BadArgument(std::string("time ") + kBadTime);
  int recording_id = IntArg(args, "recording_id");
  if (!create) return Code(zm_delete_recording_snapshot(recording_id, time));
  std::string folder;
  int code = zm_create_recording_snapshot(recording_id, time, &folder);
  return code < 0 ? Code(code) : WithText(code, "folder", folder);
}

// A bookmark file a client names: a "bookmark.json" inside the appliance's folders.
std::optional<std::string> BookmarkPath(const std::string& path) {
  auto confined = ConfinedPath(path, Opener::kLibrary);
  static const std::string kName = "/bookmark.json";
  if (!confined) return std::nullopt;
  if (confined->size() < kName.size() ||
      confined->compare(confined->size() - kName.size(), kName.size(), kName) != 0) {
    LogRefusal("not a bookmark file: " + path);
    return std::nullopt;
  }
  return confined;
}

// Decodes the `bookmark` record argument with its path confined.
bool BookmarkArg(const cJSON* args, zm_recording_bookmark* bookmark, Outcome* refusal) {
  if (!RecordArg(args, "bookmark", bookmark, refusal)) return false;
  auto path = BookmarkPath(bookmark->path);
  if (!path) {
    *refusal = Code(-3);
    return false;
  }
  bookmark->path = *path;
  return true;
}

Outcome LoadBookmark(const cJSON* args) {
  auto path = BookmarkPath(StringArg(args, "path"));
  if (!path) return Code(-3);
  zm_recording_bookmark bookmark;
  int code = zm_load_recording_bookmark(*path, &bookmark);
  return WithRecord(code, "bookmark", bookmark);
}

// The record form writes `bookmark`; the text form writes `json` to `path`.
Outcome SaveBookmark(const cJSON* args) {
  if (Has(args, "bookmark") == Has(args, "path"))
    return BadArgument("give one of bookmark and path with json");
  if (Has(args, "bookmark")) {
    zm_recording_bookmark bookmark;
    Outcome refusal;
    if (!BookmarkArg(args, &bookmark, &refusal)) return refusal;
    return Code(zm_save_recording_bookmark_file(&bookmark));
  }
  auto path = BookmarkPath(StringArg(args, "path"));
  if (!path) return Code(-3);
  if (!Has(args, "json")) return BadArgument("json is missing");
  return Code(zm_save_recording_bookmark_file(path->c_str(), StringArg(args, "json").c_str()));
}

Outcome AddRecordingBookmark(const cJSON* args) {
  uint64_t time = 0;
  if (!TimeArg(args, "time", &time)) return BadArgument(std::string("time ") + kBadTime);
  return Code(zm_add_recording_bookmark(
      IntArg(args, "recording_id"), StringArg(args, "text").c_str(), time,
      CStr(OptionalText(args, "snapshot")), CStr(OptionalText(args, "description"))));
}

Outcome UpdateBookmark(const cJSON* args) {
  uint64_t time = 0;
  if (!TimeArg(args, "time", &time)) return BadArgument(std::string("time ") + kBadTime);
  zm_recording_bookmark bookmark;
  Outcome refusal;
  if (!BookmarkArg(args, &bookmark, &refusal)) return refusal;
  int code = zm_update_recording_bookmark(&bookmark, StringArg(args, "text").c_str(), time,
                                          StringArg(args, "description").c_str());
  return WithRecord(code, "bookmark", bookmark);
}

// From a loaded `bookmark` record or from recording `recording_id`'s file.
Outcome DeleteBookmark(const cJSON* args) {
  uint64_t time = 0;
  if (!TimeArg(args, "time", &time)) return BadArgument(std::string("time ") + kBadTime);
  if (Has(args, "bookmark") == Has(args, "recording_id"))
    return BadArgument("give one of bookmark and recording_id");
  if (Has(args, "recording_id"))
    return Code(zm_delete_recording_bookmark(IntArg(args, "recording_id"), time));
  zm_recording_bookmark bookmark;
  Outcome refusal;
  if (!BookmarkArg(args, &bookmark, &refusal)) return refusal;
  int code = zm_delete_recording_bookmark(&bookmark, time);
  return WithRecord(code, "bookmark", bookmark);
}

// Pure: works on the record it is given, touches no file.
Outcome SearchBookmark(const cJSON* args) {
  uint64_t time = 0;
  if (!TimeArg(args, "time", &time)) return BadArgument(std::string("time ") + kBadTime);
  zm_recording_bookmark bookmark;
  Outcome refusal;
  if (!RecordArg(args, "bookmark", &bookmark, &refusal)) return refusal;
  return Value(zm_search_bookmark(&bookmark, time), "index");
}

// A thumbnail is stored relative to its video's folder: a plain relative path.
Outcome SetVideoThumbnail(const cJSON* args) {
  std::string path = StringArg(args, "path");
  if (path.empty() || path[0] == '/' || ("/" + path + "/").find("/../") != std::string::npos)
    return BadArgument("path must be relative to the video's folder");
  return Code(zm_set_video_thumbnail(IntArg(args, "id"), path));
}

Outcome Supported(int value) {
  return WithMember(0, "supported", cJSON_CreateBool(value != 0));
}

}  // namespace

void AddRecordingRequests(RequestTable& table) {
  const std::vector<Param> by_id = {{"id", kInt}};
  const std::vector<Param> by_status = {{"status", kText}};
  const std::vector<Param> id_status = {{"id", kInt}, {"status", kText}};
  table.insert(
      table.end(),
      {
          {"get_recording",
           {{"id", kInt, false},
            {"page", kInt, false},
            {"count", kInt, false},
            {"name", kText, false},
            {"start", kNumber, false},
            {"end", kNumber, false},
            {"pattern", kText, false},
            {"with_videos", kBool, false}},
           GetRecording,
           "Recordings by `name`, by `id` (0: page `page` of `count`, from 0), or by time range "
           "and `pattern` (with `count`: page `page` of the matches and their `total`)."},
          {"get_status_recording", by_status,
           [](const cJSON* a) {
             std::vector<zm_recording> out;
             return Recordings(zm_get_status_recording(StringArg(a, "status").c_str(), &out), out);
           },
           "Recordings with `status`."},
          {"get_no_thumbnail_recording",
           {},
           [](const cJSON*) {
             std::vector<zm_recording> out;
             return Recordings(zm_get_no_thumbnail_recording(&out), out);
           },
           "Recordings whose thumbnails are not made yet."},
          {"get_unfinished_recording",
           {},
           [](const cJSON*) {
             std::vector<zm_recording> out;
             return Recordings(zm_get_unfinished_recording(&out), out);
           },
           "Recordings that were cut off."},
          {"get_recording_lite",
           {{"start", kNumber, false}, {"end", kNumber, false}},
           GetRecordingLite,
           "Recordings in a time range, without videos."},
          {"get_old_recording_by_recorded_at",
           {{"before", kNumber}},
           GetOldRecording,
           "Recordings started before `before`, without videos."},
          {"get_video_by_recording_id",
           {{"recording_id", kInt}},
           [](const cJSON* a) {
             std::vector<zm_video> out;
             int code = zm_get_video_by_recording_id(IntArg(a, "recording_id"), &out);
             return WithList(code, "videos", out);
           },
           "The videos of recording `recording_id`."},
          {"get_recording_count",
           {},
           [](const cJSON*) { return Value(zm_get_recording_count(), "count"); },
           "Number of recordings."},
          {"get_recording_status_count", by_status,
           [](const cJSON* a) {
             return Value(zm_get_recording_status_count(StringArg(a, "status").c_str()), "count");
           },
           "Number of recordings with `status`."},
          {"get_recording_mode",
           {},
           [](const cJSON*) { return Value(zm_get_recording_mode(), "mode"); },
           "The recording mode setting."},
          {"support_channel_file_stream",
           {},
           [](const cJSON*) { return Supported(zm_support_channel_file_stream()); },
           "Whether channel file streams are offered."},
          {"support_movie_file_stream",
           {},
           [](const cJSON*) { return Supported(zm_support_movie_file_stream()); },
           "Whether movie file streams are offered."},
          {"support_customized_file_stream",
           {},
           [](const cJSON*) { return Supported(zm_support_customized_file_stream()); },
           "Whether customised file streams are offered."},
          {"remove_recording", by_id,
           [](const cJSON* a) { return Code(zm_remove_recording(IntArg(a, "id"))); },
           "Removes recording `id` with its files."},
          {"remove_oldest_recording",
           {{"notify", kBool, false}},
           [](const cJSON* a) { return Code(zm_remove_oldest_recording(BoolArg(a, "notify"))); },
           "Removes the oldest recording."},
          {"remove_video", by_id,
           [](const cJSON* a) { return Code(zm_remove_video(IntArg(a, "id"))); },
           "Removes video `id`."},
          {"fix_unfinished_recording", by_id,
           [](const cJSON* a) { return Code(zm_fix_unfinished_recording(IntArg(a, "id"))); },
           "Closes a recording that was cut off."},
          {"mark_crashed_video", by_id,
           [](const cJSON* a) { return Code(zm_mark_crashed_video(IntArg(a, "id"))); },
           "Marks video `id` crashed when it is still open."},
          {"set_video_thumbnail",
           {{"id", kInt}, {"path", kText}},
           SetVideoThumbnail,
           "Stores video `id`'s thumbnail path, relative to its folder."},
          {"set_recording_thumbnail_done", by_id,
           [](const cJSON* a) { return Code(zm_set_recording_thumbnail_done(IntArg(a, "id"))); },
           "Marks the thumbnails of recording `id` made."},
          {"set_recording_event_id",
           {{"id", kInt}, {"event_id", kText}},
           [](const cJSON* a) {
             return Code(zm_set_recording_event_id(IntArg(a, "id"), StringArg(a, "event_id")));
           },
           "Sets the event id of recording `id`."},
          {"set_recording_upload_setting",
           {{"id", kInt}, {"setting", kText}},
           [](const cJSON* a) {
             return Code(zm_set_recording_upload_setting(IntArg(a, "id"), StringArg(a, "setting")));
           },
           "Sets the upload setting of recording `id`."},
          {"set_recording_metadata",
           {{"id", kInt}, {"name", kText, false}, {"metadata", kText}},
           [](const cJSON* a) {
             return Code(zm_set_recording_metadata(IntArg(a, "id"), CStr(OptionalText(a, "name")),
                                                   StringArg(a, "metadata").c_str()));
           },
           "Sets the metadata (and name) of recording `id`."},
          {"set_recording_status", id_status,
           [](const cJSON* a) {
             return Code(zm_set_recording_status(IntArg(a, "id"), StringArg(a, "status").c_str()));
           },
           "Sets the status of recording `id`."},
          {"set_recording_mode",
           {{"mode", kInt}},
           [](const cJSON* a) { return Code(zm_set_recording_mode(IntArg(a, "mode"))); },
           "Sets the recording mode (bit 0 movie, bit 1 channel file streams)."},
          {"get_snapshot",
           {{"id", kInt, false},
            {"folder", kText, false},
            {"page", kInt, false},
            {"count", kInt, false},
            {"with_images", kBool, false}},
           GetSnapshot,
           "Snapshot `id` (0: page `page` of `count`) or the one in `folder`."},
          {"get_status_snapshot",
           {{"status", kText}, {"with_images", kBool, false}},
           [](const cJSON* a) {
             std::vector<zm_snapshot> out;
             int code = zm_get_status_snapshot(StringArg(a, "status").c_str(), &out,
                                               BoolArg(a, "with_images") ? 1 : 0);
             return WithList(code, "snapshots", out);
           },
           "Snapshots with `status`."},
          {"get_image", by_id,
           [](const cJSON* a) {
             zm_image image{};
             int code = zm_get_image(IntArg(a, "id"), &image);
             return code < 0 ? Code(code) : WithRecord(code, "image", image);
           },
           "Image `id`."},
          {"get_status_image", by_status,
           [](const cJSON* a) {
             std::vector<zm_image> out;
             int code = zm_get_status_image(StringArg(a, "status").c_str(), &out);
             return WithList(code, "images", out);
           },
           "Images with `status`."},
          {"get_snapshot_count",
           {},
           [](const cJSON*) { return Value(zm_get_snapshot_count(), "count"); },
           "Number of snapshots."},
          {"get_snapshot_status_count", by_status,
           [](const cJSON* a) {
             return Value(zm_get_snapshot_status_count(StringArg(a, "status").c_str()), "count");
           },
           "Number of snapshots with `status`."},
          {"get_snapshot_image_count",
           {{"snapshot_id", kInt}},
           [](const cJSON* a) {
             return Value(zm_get_snapshot_image_count(IntArg(a, "snapshot_id")), "count");
           },
           "Number of images of snapshot `snapshot_id`."},
          {"get_image_status_count", by_status,
           [](const cJSON* a) {
             return Value(zm_get_image_status_count(StringArg(a, "status").c_str()), "count");
           },
           "Number of images with `status`."},
          {"set_image_status", id_status,
           [](const cJSON* a) {
             return Code(zm_set_image_status(IntArg(a, "id"), StringArg(a, "status").c_str()));
           },
           "Sets the status of image `id`."},
          {"set_snapshot_status", id_status,
           [](const cJSON* a) {
             return Code(zm_set_snapshot_status(IntArg(a, "id"), StringArg(a, "status").c_str()));
           },
           "Sets the status of snapshot `id`."},
          {"remove_image", by_id,
           [](const cJSON* a) { return Code(zm_remove_image(IntArg(a, "id"))); },
           "Removes image `id`."},
          {"remove_snapshot", by_id,
           [](const cJSON* a) { return Code(zm_remove_snapshot(IntArg(a, "id"))); },
           "Removes snapshot `id`."},
          {"add_snapshot",
           {{"width", kInt}, {"height", kInt}},
           [](const cJSON* a) {
             return Code(zm_add_snapshot(IntArg(a, "width"), IntArg(a, "height")));
           },
           "Asks the engine for a snapshot."},
          {"create_recording_snapshot",
           {{"recording_id", kInt}, {"time", kNumber}},
           [](const cJSON* a) { return SnapshotTime(a, true); },
           "A pending snapshot of a recording at `time` ms; gives its folder."},
          {"delete_recording_snapshot",
           {{"recording_id", kInt}, {"time", kNumber}},
           [](const cJSON* a) { return SnapshotTime(a, false); },
           "Deletes the snapshot of a recording at `time` ms."},
          {"load_recording_bookmark",
           {{"path", kText}},
           LoadBookmark,
           "Loads a recording's bookmark.json."},
          {"save_recording_bookmark_file",
           {{"bookmark", kObject, false}, {"path", kText, false}, {"json", kText, false}},
           SaveBookmark,
           "Rewrites a recording's bookmark.json from a record or a JSON text."},
          {"add_recording_bookmark",
           {{"recording_id", kInt},
            {"text", kText},
            {"time", kNumber},
            {"snapshot", kText, false},
            {"description", kText, false}},
           AddRecordingBookmark,
           "Adds a manual bookmark to a recording."},
          {"update_recording_bookmark",
           {{"bookmark", kObject}, {"text", kText}, {"time", kNumber}, {"description", kText}},
           UpdateBookmark,
           "New text and description of the bookmark at `time`; saved."},
          {"delete_recording_bookmark",
           {{"bookmark", kObject, false}, {"recording_id", kInt, false}, {"time", kNumber}},
           DeleteBookmark,
           "Removes the bookmarks at `time`."},
          {"search_bookmark",
           {{"bookmark", kObject}, {"time", kNumber}},
           SearchBookmark,
           "Index of the bookmark nearest `time`."},
          {"add_bookmark",
           {{"text", kText, false}, {"counter", kBool, false}},
           [](const cJSON* a) {
             return Code(zm_add_bookmark(CStr(OptionalText(a, "text")), BoolArg(a, "counter")));
           },
           "A bookmark now in the running recording."},
          {"add_snapshot_bookmark",
           {{"width", kInt}, {"height", kInt}, {"text", kText, false}, {"counter", kBool, false}},
           [](const cJSON* a) {
             return Code(zm_add_snapshot_bookmark(IntArg(a, "width"), IntArg(a, "height"),
                                                  CStr(OptionalText(a, "text")),
                                                  BoolArg(a, "counter")));
           },
           "A bookmark with a snapshot now in the running recording."},
      });
}

}  // namespace zolo::gateway
