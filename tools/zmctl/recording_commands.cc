// recording, bookmark, snapshot, image: the recordings the engine made, their bookmarks,
// and still pictures with their images. Tables show local times and human sizes; --json
// gives the raw numbers (seconds since the epoch, milliseconds, bytes).
#include <cjson/cJSON.h>
#include <sys/stat.h>
#include <zolo/media.h>

#include <cstdio>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "context.h"
#include "zolo/media_json/recordings_json.h"

namespace zmctl {

namespace {

// Milliseconds as h:mm:ss.
std::string Length(uint64_t ms) {
  uint64_t seconds = ms / 1000;
  char text[48];
  std::snprintf(text, sizeof text, "%llu:%02llu:%02llu",
                static_cast<unsigned long long>(seconds / 3600),
                static_cast<unsigned long long>(seconds / 60 % 60),
                static_cast<unsigned long long>(seconds % 60));
  return text;
}

uint64_t FileBytes(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

// A time on the command line: seconds since the epoch, or a local "YYYY-MM-DD[ HH:MM[:SS]]"
// (also with "T"). 0 when it does not read as either.
uint64_t ParseTime(const std::string& text) {
  if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos)
    return std::stoull(text);
  for (const char* format :
       {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M", "%Y-%m-%d"}) {
    struct tm local = {};
    const char* end = strptime(text.c_str(), format, &local);
    if (end != nullptr && *end == '\0') {
      local.tm_isdst = -1;
      time_t seconds = mktime(&local);
      return seconds > 0 ? static_cast<uint64_t>(seconds) : 0;
    }
  }
  return 0;
}

std::string Num(uint64_t value) {
  return std::to_string(value);
}

void PrintRecordings(const Context& context, const std::vector<zm_recording>& recordings) {
  if (context.out().Records(recordings)) return;
  std::vector<Row> rows;
  for (const auto& r : recordings)
    rows.push_back({Num(r.id), r.name, LocalTime(r.recorded_at), Length(r.duration), r.status,
                    r.videos.empty() ? "-" : Num(r.videos.size())});
  context.out().Table({"id", "name", "recorded", "length", "status", "videos"}, rows);
}

// The "bookmark.json" of recording `id` loaded into `*bookmark`. The library's result.
int LoadBookmarks(int id, zm_recording_bookmark* bookmark) {
  std::vector<zm_recording> found;
  int result = zm_get_recording(id, &found, 0, 0);
  if (result < 0) return result;
  if (found.empty()) return -5;
  return zm_load_recording_bookmark(found.front().folder + "/bookmark.json", bookmark);
}

Row BookmarkRow(const Context& context, const zm_bookmark_item& item) {
  return {context.json ? Num(item.time) : Length(item.time) + "." + Num(item.time % 1000 / 100),
          item.text, item.category, item.snapshot, item.description};
}

const Row kBookmarkHeaders = {"time", "text", "category", "snapshot", "description"};

void PrintBookmarks(const Context& context, const zm_recording_bookmark& bookmark) {
  if (context.out().Records(bookmark.items)) return;
  std::vector<Row> rows;
  for (const auto& item : bookmark.items) rows.push_back(BookmarkRow(context, item));
  context.out().Table(kBookmarkHeaders, rows);
}

// One recording with its videos and bookmarks: three blocks, or one JSON object.
void ShowRecording(const Context& context, const zm_recording& r,
                   const zm_recording_bookmark& bookmark) {
  if (context.json) {
    // The record with its bookmarks, and each video with the size of its file.
    zolo::JsonHolder object = zolo::json::ToJson(r);
    cJSON* video = cJSON_GetObjectItem(object.get(), "videos")->child;
    for (const auto& v : r.videos) {
      cJSON_AddNumberToObject(video, "size", static_cast<double>(FileBytes(v.path)));
      video = video->next;
    }
    cJSON_AddItemToObject(object.get(), "bookmarks",
                          zolo::json::ListToJson(bookmark.items).release());
    char* text = cJSON_Print(object.get());
    if (text != nullptr) std::cout << text << '\n';
    cJSON_free(text);
    return;
  }
  context.out().Record({{"id", Num(r.id)},
                        {"name", r.name},
                        {"folder", r.folder},
                        {"recorded", LocalTime(r.recorded_at)},
                        {"finished", LocalTime(r.finished_at)},
                        {"length", Length(r.duration)},
                        {"status", r.status},
                        {"event id", r.event_id},
                        {"upload", r.upload_setting}});
  std::vector<Row> rows;
  for (const auto& v : r.videos)
    rows.push_back({Num(v.id), Num(v.number), v.file_name, v.status, LocalTime(v.started_at),
                    Length(v.duration), HumanSize(FileBytes(v.path))});
  std::cout << "\nvideos:\n";
  context.out().Table({"id", "number", "file", "status", "started", "length", "size"}, rows);
  std::cout << "\nbookmarks:\n";
  PrintBookmarks(context, bookmark);
}

void PrintSnapshots(const Context& context, const std::vector<zm_snapshot>& snapshots) {
  if (context.out().Records(snapshots)) return;
  std::vector<Row> rows;
  for (const auto& s : snapshots)
    rows.push_back(
        {Num(s.id), s.folder, s.status, s.recording_id == 0 ? "-" : std::to_string(s.recording_id),
         LocalTime(s.created_at), Num(s.width) + "x" + Num(s.height), Num(s.images.size())});
  context.out().Table({"id", "folder", "status", "recording", "created", "size", "images"}, rows);
}

void PrintImages(const Context& context, const std::vector<zm_image>& images) {
  if (context.out().Records(images)) return;
  std::vector<Row> rows;
  for (const auto& i : images)
    rows.push_back({Num(i.id), i.path, i.status, Num(i.width) + "x" + Num(i.height),
                    HumanSize(i.size), i.format});
  context.out().Table({"id", "path", "status", "pixels", "size", "format"}, rows);
}

struct Args {
  int id = 0;
  unsigned page = 0;
  unsigned count = 20;
  std::string status;
  std::string name;
  std::string since;
  std::string until;
  bool unfinished = false;
  bool no_thumbnail = false;
  bool oldest = false;
  std::string metadata;
  std::string event_id;
  std::string upload;
  int mode = -1;
  uint64_t time = 0;
  std::string text;
  std::string snapshot;
  std::string description;
  bool still = false;
  bool counter = false;
  int width = 640;
  int height = 360;
  int recording = 0;
};

void AddRecordingGroup(CLI::App& app, Context& context, std::shared_ptr<Args> a) {
  auto* recording = app.add_subcommand("recording", "Recordings and their videos");
  recording->require_subcommand(1);

  auto* list = recording->add_subcommand(
      "list", "List recordings, newest first (a page, or by status, name, time or state)");
  list->add_option("--page", a->page, "Page number, from 0")->capture_default_str();
  list->add_option("--count", a->count, "Recordings a page (0: all)")->capture_default_str();
  list->add_option("--status", a->status, "Only recordings with this status, e.g. ready");
  list->add_option("--name", a->name, "Only names or metadata containing this text");
  list->add_option("--since", a->since, "Started at or after: YYYY-MM-DD[ HH:MM[:SS]] or seconds");
  list->add_option("--until", a->until, "Started at or before (same forms)");
  list->add_flag("--unfinished", a->unfinished, "Only recordings that were never closed");
  list->add_flag("--no-thumbnail", a->no_thumbnail, "Only recordings without thumbnails");
  list->callback([&context, a] {
    uint64_t since = a->since.empty() ? 0 : ParseTime(a->since);
    uint64_t until = a->until.empty() ? 0 : ParseTime(a->until);
    if ((!a->since.empty() && since == 0) || (!a->until.empty() && until == 0)) {
      context.status = Fail("reading --since/--until", -3);
      return;
    }
    std::vector<zm_recording> found;
    if (Run(context, "listing recordings", [&] {
          if (a->unfinished) return zm_get_unfinished_recording(&found);
          if (a->no_thumbnail) return zm_get_no_thumbnail_recording(&found);
          if (!a->status.empty()) return zm_get_status_recording(a->status.c_str(), &found);
          if (!a->name.empty() || since != 0 || until != 0)
            return zm_get_recording(since, until, a->name.c_str(), &found, true);
          return zm_get_recording(0, &found, a->page, a->count);
        }))
      PrintRecordings(context, found);
  });

  auto* show = recording->add_subcommand("show", "One recording with its videos and bookmarks");
  show->add_option("ID", a->id, "Recording id")->required();
  show->callback([&context, a] {
    std::vector<zm_recording> found;
    zm_recording_bookmark bookmark{};
    if (!Run(context, "zm_get_recording", [&] {
          int result = zm_get_recording(a->id, &found, 0, 0);
          return result == 0 && found.empty() ? -5 : result;
        }))
      return;
    // A recording without a bookmark file simply has no bookmarks.
    Run(context, "zm_load_recording_bookmark", [&] {
      int result = zm_load_recording_bookmark(found.front().folder + "/bookmark.json", &bookmark);
      return result == -1 ? 0 : result;
    });
    ShowRecording(context, found.front(), bookmark);
  });

  auto* count = recording->add_subcommand("count", "Number of recordings (with a status)");
  count->add_option("--status", a->status, "Count only this status");
  count->callback([&context, a] {
    int n = 0;
    if (Run(context, "counting recordings", [&] {
          return n = a->status.empty() ? zm_get_recording_count()
                                       : zm_get_recording_status_count(a->status.c_str());
        }))
      context.out().Record({{"count", Num(static_cast<uint64_t>(n))}});
  });

  auto* remove = recording->add_subcommand("remove", "Remove a recording with its files");
  auto* remove_id = remove->add_option("ID", a->id, "Recording id");
  auto* oldest = remove->add_flag("--oldest", a->oldest, "Remove the oldest recording instead");
  remove_id->excludes(oldest);
  remove->callback([&context, a, remove_id] {
    if (remove_id->count() == 0 && !a->oldest) {
      context.status = Fail("recording remove (give ID or --oldest)", -3);
      return;
    }
    if (Run(context, a->oldest ? "zm_remove_oldest_recording" : "zm_remove_recording", [&] {
          return a->oldest ? zm_remove_oldest_recording(true) : zm_remove_recording(a->id);
        }))
      context.out().Message("removed");
  });

  auto* repair = recording->add_subcommand(
      "repair", "Close a recording that was cut off (videos re-read, status ready)");
  repair->add_option("ID", a->id, "Recording id")->required();
  repair->callback([&context, a] {
    if (Run(context, "zm_fix_unfinished_recording",
            [&] { return zm_fix_unfinished_recording(a->id); }))
      context.out().Message("repaired");
  });

  auto* set = recording->add_subcommand(
      "set", "Set a recording's status, metadata (and name), event id or upload setting");
  set->add_option("ID", a->id, "Recording id")->required();
  auto* status = set->add_option("--status", a->status, "New status");
  auto* metadata = set->add_option("--metadata", a->metadata,
                                   "New metadata text (JSON or plain); rewrites information.json");
  auto* name = set->add_option("--name", a->name, "New name (with --metadata)");
  auto* event = set->add_option("--event-id", a->event_id, "New event id");
  auto* upload = set->add_option("--upload", a->upload, "New upload setting");
  name->needs(metadata);
  set->callback([&context, a, status, metadata, event, upload] {
    if (status->count() + metadata->count() + event->count() + upload->count() == 0) {
      context.status =
          Fail("recording set (give --status, --metadata, --event-id or --upload)", -3);
      return;
    }
    bool ok = true;
    if (ok && status->count() > 0)
      ok = Run(context, "zm_set_recording_status",
               [&] { return zm_set_recording_status(a->id, a->status.c_str()); });
    if (ok && metadata->count() > 0)
      ok = Run(context, "zm_set_recording_metadata", [&] {
        return zm_set_recording_metadata(a->id, a->name.empty() ? nullptr : a->name.c_str(),
                                         a->metadata.c_str());
      });
    if (ok && event->count() > 0)
      ok = Run(context, "zm_set_recording_event_id",
               [&] { return zm_set_recording_event_id(a->id, a->event_id); });
    if (ok && upload->count() > 0)
      ok = Run(context, "zm_set_recording_upload_setting",
               [&] { return zm_set_recording_upload_setting(a->id, a->upload); });
    if (ok) context.out().Message("ok");
  });

  auto* mode = recording->add_subcommand(
      "mode", "Show or set the recording mode (bit 0 movie files, bit 1 channel files; 4 none)");
  auto* mode_value = mode->add_option("MODE", a->mode, "New mode");
  mode->callback([&context, a, mode_value] {
    if (mode_value->count() > 0) {
      if (Run(context, "zm_set_recording_mode", [&] { return zm_set_recording_mode(a->mode); }))
        context.out().Message("ok");
      return;
    }
    int value = 0;
    if (Run(context, "zm_get_recording_mode", [&] { return value = zm_get_recording_mode(); }))
      context.out().Record({{"mode", std::to_string(value)}});
  });
}

void AddBookmarkGroup(CLI::App& app, Context& context, std::shared_ptr<Args> a) {
  auto* bookmark = app.add_subcommand("bookmark", "Bookmarks of recordings (bookmark.json)");
  bookmark->require_subcommand(1);

  auto* list = bookmark->add_subcommand("list", "The bookmarks of a recording");
  list->add_option("ID", a->id, "Recording id")->required();
  list->callback([&context, a] {
    zm_recording_bookmark loaded{};
    if (Run(context, "loading bookmarks", [&] { return LoadBookmarks(a->id, &loaded); }))
      PrintBookmarks(context, loaded);
  });

  auto* add = bookmark->add_subcommand(
      "add",
      "Add a bookmark to recording ID at --time; without ID, the engine takes one now while it "
      "records (--still: with a picture)");
  auto* id = add->add_option("ID", a->id, "Recording id");
  auto* time = add->add_option("--time", a->time, "Milliseconds into the recording");
  add->add_option("--text", a->text, "Bookmark text");
  add->add_option("--snapshot", a->snapshot, "Still of the bookmark (path under the recording)");
  add->add_option("--description", a->description, "Description");
  auto* still = add->add_flag("--still", a->still, "Live: take a picture with the bookmark");
  add->add_option("--width", a->width, "Live still width")->capture_default_str();
  add->add_option("--height", a->height, "Live still height")->capture_default_str();
  auto* counter = add->add_flag("--counter", a->counter, "Live: number the bookmark's text");
  id->needs(time);
  id->excludes(still)->excludes(counter);
  add->callback([&context, a, id] {
    const char* text = a->text.empty() ? nullptr : a->text.c_str();
    bool ok = false;
    if (id->count() > 0)
      ok = Run(context, "zm_add_recording_bookmark", [&] {
        return zm_add_recording_bookmark(a->id, text, a->time,
                                         a->snapshot.empty() ? nullptr : a->snapshot.c_str(),
                                         a->description.c_str());
      });
    else if (a->still)
      ok = Run(context, "zm_add_snapshot_bookmark",
               [&] { return zm_add_snapshot_bookmark(a->width, a->height, text, a->counter); });
    else
      ok = Run(context, "zm_add_bookmark", [&] { return zm_add_bookmark(text, a->counter); });
    if (ok) context.out().Message("added");
  });

  auto* update = bookmark->add_subcommand("update", "New text of the bookmark at --time");
  update->add_option("ID", a->id, "Recording id")->required();
  update->add_option("--time", a->time, "Milliseconds into the recording")->required();
  update->add_option("--text", a->text, "New text")->required();
  update->add_option("--description", a->description, "New description");
  update->callback([&context, a] {
    zm_recording_bookmark loaded{};
    if (Run(context, "zm_update_recording_bookmark", [&] {
          int result = LoadBookmarks(a->id, &loaded);
          return result < 0 ? result
                            : zm_update_recording_bookmark(&loaded, a->text.c_str(), a->time,
                                                           a->description.c_str());
        }))
      context.out().Message("updated");
  });

  auto* remove = bookmark->add_subcommand("remove", "Remove the bookmarks at --time (and stills)");
  remove->add_option("ID", a->id, "Recording id")->required();
  remove->add_option("--time", a->time, "Milliseconds into the recording")->required();
  remove->callback([&context, a] {
    if (Run(context, "zm_delete_recording_bookmark",
            [&] { return zm_delete_recording_bookmark(a->id, a->time); }))
      context.out().Message("removed");
  });

  auto* search = bookmark->add_subcommand("search", "The bookmark nearest --time");
  search->add_option("ID", a->id, "Recording id")->required();
  search->add_option("--time", a->time, "Milliseconds into the recording")->required();
  search->callback([&context, a] {
    zm_recording_bookmark loaded{};
    int index = -1;
    if (!Run(context, "zm_search_bookmark", [&] {
          int result = LoadBookmarks(a->id, &loaded);
          return result < 0 ? result : index = zm_search_bookmark(&loaded, a->time);
        }))
      return;
    auto it = loaded.items.begin();
    std::advance(it, index);
    Row row = BookmarkRow(context, *it);
    row.insert(row.begin(), std::to_string(index));
    Row headers = kBookmarkHeaders;
    headers.insert(headers.begin(), "index");
    context.out().Table(headers, {row});
  });
}

void AddSnapshotGroups(CLI::App& app, Context& context, std::shared_ptr<Args> a) {
  auto* snapshot = app.add_subcommand("snapshot",
                                      "Still pictures, taken on request or from "
                                      "recordings");
  snapshot->require_subcommand(1);
  auto* list = snapshot->add_subcommand("list", "List snapshots (a page, one id, or by status)");
  list->add_option("--page", a->page, "Page number, from 0")->capture_default_str();
  list->add_option("--count", a->count, "Snapshots a page (0: all)")->capture_default_str();
  list->add_option("--id", a->id, "Only this snapshot");
  list->add_option("--status", a->status, "Only snapshots with this status");
  list->callback([&context, a] {
    std::vector<zm_snapshot> found;
    if (Run(context, "listing snapshots", [&] {
          if (!a->status.empty()) return zm_get_status_snapshot(a->status.c_str(), &found, 1);
          return zm_get_snapshot(a->id, &found, a->id != 0 ? 0 : a->page, a->id != 0 ? 0 : a->count,
                                 1);
        }))
      PrintSnapshots(context, found);
  });
  auto* count = snapshot->add_subcommand("count", "Number of snapshots (with a status)");
  count->add_option("--status", a->status, "Count only this status");
  count->callback([&context, a] {
    int n = 0;
    if (Run(context, "counting snapshots", [&] {
          return n = a->status.empty() ? zm_get_snapshot_count()
                                       : zm_get_snapshot_status_count(a->status.c_str());
        }))
      context.out().Record({{"count", std::to_string(n)}});
  });
  auto* take = snapshot->add_subcommand(
      "take", "Ask the engine for a snapshot now, or (--recording) make one of a recording");
  take->add_option("--width", a->width, "Picture width")->capture_default_str();
  take->add_option("--height", a->height, "Picture height")->capture_default_str();
  auto* from = take->add_option("--recording", a->recording, "Recording id");
  take->add_option("--time", a->time, "Milliseconds into the recording (with --recording)");
  take->callback([&context, a, from] {
    if (from->count() > 0) {
      std::string folder;
      if (Run(context, "zm_create_recording_snapshot",
              [&] { return zm_create_recording_snapshot(a->recording, a->time, &folder); }))
        context.out().Record({{"folder", folder}});
      return;
    }
    if (Run(context, "zm_add_snapshot", [&] { return zm_add_snapshot(a->width, a->height); }))
      context.out().Message("taken");
  });
  auto* remove = snapshot->add_subcommand("remove", "Remove a snapshot with its images");
  remove->add_option("ID", a->id, "Snapshot id")->required();
  remove->callback([&context, a] {
    if (Run(context, "zm_remove_snapshot", [&] { return zm_remove_snapshot(a->id); }))
      context.out().Message("removed");
  });

  auto* image = app.add_subcommand("image", "The images of snapshots");
  image->require_subcommand(1);
  auto* ilist = image->add_subcommand("list", "Images of a snapshot, or with a status");
  auto* of = ilist->add_option("SNAPSHOT", a->id, "Snapshot id");
  ilist->add_option("--status", a->status, "Only images with this status")->excludes(of);
  ilist->callback([&context, a, of] {
    if (of->count() == 0 && a->status.empty()) {
      context.status = Fail("image list (give SNAPSHOT or --status)", -3);
      return;
    }
    std::vector<zm_image> images;
    if (Run(context, "listing images", [&] {
          if (!a->status.empty()) return zm_get_status_image(a->status.c_str(), &images);
          std::vector<zm_snapshot> found;
          int result = zm_get_snapshot(a->id, &found, 0, 0, 1);
          if (result == 0 && found.empty()) return -5;
          if (result == 0) images = found.front().images;
          return result;
        }))
      PrintImages(context, images);
  });
  auto* set_status = image->add_subcommand("set-status", "Set an image's status");
  set_status->add_option("ID", a->id, "Image id")->required();
  set_status->add_option("STATUS", a->status, "New status")->required();
  set_status->callback([&context, a] {
    if (Run(context, "zm_set_image_status",
            [&] { return zm_set_image_status(a->id, a->status.c_str()); }))
      context.out().Message("ok");
  });
  auto* iremove = image->add_subcommand("remove", "Remove an image with its file");
  iremove->add_option("ID", a->id, "Image id")->required();
  iremove->callback([&context, a] {
    if (Run(context, "zm_remove_image", [&] { return zm_remove_image(a->id); }))
      context.out().Message("removed");
  });
}

}  // namespace

void AddRecordingCommands(CLI::App& app, Context& context) {
  auto args = std::make_shared<Args>();
  AddRecordingGroup(app, context, args);
  AddBookmarkGroup(app, context, args);
  AddSnapshotGroups(app, context, args);
}

}  // namespace zmctl
