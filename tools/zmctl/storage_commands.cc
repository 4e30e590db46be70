// storage info: the main and sub storage with their predicted recording time.
#include <zolo/media.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "context.h"
#include "zolo/media_json/storage_info_json.h"

namespace zmctl {

namespace {

// Seconds as h:mm; "-" for an unknown time.
std::string HoursMinutes(int seconds) {
  if (seconds < 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%d:%02d", seconds / 3600, seconds / 60 % 60);
  return text;
}

}  // namespace

void AddStorageInfoCommand(CLI::App& storage, Context& context) {
  auto* info = storage.add_subcommand(
      "info", "Main and sub storage with the predicted recording time (h:mm)");
  auto origin = std::make_shared<bool>(false);
  info->add_flag("--origin", *origin,
                 "Raw capacity: no loop recording, no longest-recording limit");
  info->callback([&context, origin] {
    std::vector<zm_storage> list;
    Session session;
    int result = session.result() != 0 ? session.result()
                 : *origin             ? zm_get_origin_storage_info(&list)
                                       : zm_get_storage_info(&list);
    if (result < 0) {
      context.status = Fail(*origin ? "zm_get_origin_storage_info" : "zm_get_storage_info", result);
      return;
    }
    if (context.out().Records(list)) return;
    std::vector<Row> rows;
    for (const auto& s : list) {
      if (context.json)
        rows.push_back({s.name, std::to_string(s.total_size), std::to_string(s.available_size),
                        std::to_string(s.available_recording_time)});
      else
        rows.push_back({s.name, HumanSize(s.total_size), HumanSize(s.available_size),
                        HoursMinutes(s.available_recording_time)});
    }
    if (context.json)
      context.out().Table({"name", "total_size", "available_size", "available_recording_time"},
                          rows);
    else
      context.out().Table({"name", "total", "available", "recording_time"}, rows);
  });
}

}  // namespace zmctl
