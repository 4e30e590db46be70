// source, channel: the inputs, the channels that pair them, and commands on a channel's
// live input.
#include <oviklog.h>
#include <sys/stat.h>
#include <zolo/media.h>
#include <zolo/sysroot.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "context.h"
#include "zolo/media_json/sources_json.h"

namespace zmctl {

namespace {

struct Args {
  int id = 0;
  bool user = false;
  bool source = false;
  int value = 0;
  std::string uri;
  std::string sub_uri;
  int width = 1280;
  int height = 720;
  int auto_adjust = 0;
  int phase = 0;
  int position = 0;
  double wait = 10;
};

std::string Join(const std::vector<int32_t>& ids) {
  std::string text;
  for (int32_t id : ids) text += (text.empty() ? "" : ",") + std::to_string(id);
  return text;
}

void PrintSources(const Context& context, const std::vector<zm_source>& sources) {
  if (context.out().Records(sources)) return;
  std::vector<Row> rows;
  for (const auto& s : sources) {
    std::string input;
    zm_get_builtin_input_name(s.sub_address, &input);
    rows.push_back({std::to_string(s.id), s.name, s.type, s.category, input, s.url,
                    s.available ? "yes" : "no", s.preview_dest});
  }
  context.out().Table({"id", "name", "type", "category", "input", "url", "available", "preview"},
                      rows);
}

void PrintChannels(const Context& context, const std::vector<zm_channel>& channels) {
  if (context.out().Records(channels)) return;
  std::vector<Row> rows;
  for (const auto& c : channels)
    rows.push_back({std::to_string(c.id), c.name, c.video_source_name, c.audio_source_name,
                    c.video_user_source_name, c.audio_user_source_name, std::to_string(c.ordinal),
                    c.preview_url});
  context.out().Table(
      {"id", "name", "video", "audio", "video_user", "audio_user", "ordinal", "preview_url"}, rows);
}

long long FileBytes(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

// Waits for the library's preview snapshot task to finish (it logs its last line), so that
// the process does not end under it, and notes whether it stored the picture's path (it
// logs the user source's name only then).
class TaskEndWatch {
 public:
  TaskEndWatch() { OVIK_LOG_set_capture(&TaskEndWatch::Hook, this); }
  ~TaskEndWatch() { OVIK_LOG_set_capture(nullptr, nullptr); }
  TaskEndWatch(const TaskEndWatch&) = delete;
  TaskEndWatch& operator=(const TaskEndWatch&) = delete;
  bool Wait(double seconds) {
    std::unique_lock<std::mutex> lock(mutex_);
    return ended_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return done_; });
  }
  bool stored() {
    std::lock_guard<std::mutex> lock(mutex_);
    return stored_;
  }

 private:
  static void Hook(void* user, int, int, const char*, int, const char*, const char* message) {
    auto* self = static_cast<TaskEndWatch*>(user);
    std::string text = message;
    std::lock_guard<std::mutex> lock(self->mutex_);
    if (text.rfind("make_channel_preview_snapshot_task: user source name is ", 0) == 0)
      self->stored_ = true;
    if (text != "make_channel_preview_snapshot_task out") return;
    self->done_ = true;
    self->ended_.notify_all();
  }
  std::mutex mutex_;
  std::condition_variable ended_;
  bool done_ = false;
  bool stored_ = false;
};

}  // namespace

void AddSourceCommands(CLI::App& app, Context& context) {
  auto args = std::make_shared<Args>();

  auto* source = app.add_subcommand("source", "Device sources and user sources");
  source->require_subcommand(1);
  auto* list = source->add_subcommand("list", "List the visible sources, or one by id");
  list->add_flag("--user", args->user, "User sources instead of device sources");
  list->add_option("--id", args->id, "Source id (0: every visible source)");
  list->callback([&context, args] {
    std::vector<zm_source> sources;
    if (Run(context, args->user ? "zm_get_user_source" : "zm_get_source", [&] {
          return args->user ? zm_get_user_source(args->id, &sources)
                            : zm_get_source(args->id, &sources);
        }))
      PrintSources(context, sources);
  });

  auto* channel = app.add_subcommand("channel", "Channels and their live input");
  channel->require_subcommand(1);
  auto* channels = channel->add_subcommand("list", "List the visible channels, or one by id");
  channels->add_option("--id", args->id, "Channel id (0: every visible channel)");
  channels->callback([&context, args] {
    std::vector<zm_channel> found;
    if (Run(context, "zm_get_channel", [&] { return zm_get_channel(args->id, &found); }))
      PrintChannels(context, found);
  });
  channel->add_subcommand("count", "Number of visible channels")->callback([&context] {
    int count = 0;
    if (Run(context, "zm_get_channel_count", [&] { return count = zm_get_channel_count(), 0; }))
      context.out().Record({{"count", std::to_string(count)}});
  });
  auto* lists = channel->add_subcommand("sources", "Sources a channel may switch to (0: all)");
  lists->add_option("ID", args->id, "Channel id")->required();
  lists->callback([&context, args] {
    std::vector<zm_channel_sources> found;
    if (!Run(context, "zm_get_channel_available_user_sources",
             [&] { return zm_get_channel_available_user_sources(args->id, &found); }))
      return;
    if (context.out().Records(found)) return;
    std::vector<Row> rows;
    for (const auto& l : found)
      rows.push_back({std::to_string(l.channel_id), Join(l.sources), Join(l.user_sources)});
    context.out().Table({"channel", "sources", "user_sources"}, rows);
  });
  auto* available =
      channel->add_subcommand("available", "Device sources the naming rules offer a channel");
  available->add_option("ID", args->id, "Channel id")->required();
  available->callback([&context, args] {
    std::vector<zm_source> found;
    if (Run(context, "zm_get_channel_available_sources",
            [&] { return zm_get_channel_available_sources(args->id, &found); }))
      PrintSources(context, found);
  });

  auto* connect = channel->add_subcommand("connect", "Connect (1) or disconnect (0) an input");
  connect->add_option("ID", args->id, "Channel id (with --source: device source id)")->required();
  connect->add_option("VALUE", args->value, "1 or 0")->required();
  connect->add_option("--uri", args->uri, "New input address");
  connect->add_option("--sub-uri", args->sub_uri, "New secondary address");
  connect->add_flag("--source", args->source, "ID names a device source");
  connect->callback([&context, args] {
    const char* uri = args->uri.empty() ? nullptr : args->uri.c_str();
    const char* sub_uri = args->sub_uri.empty() ? nullptr : args->sub_uri.c_str();
    bool on = args->value != 0;
    if (Run(context, args->source ? "zm_enable_source" : "zm_enable_channel_source", [&] {
          return args->source ? zm_enable_source(args->id, on, uri, sub_uri)
                              : zm_enable_channel_source(args->id, on, uri, sub_uri);
        }))
      context.out().Message("ok");
  });
  auto* update = channel->add_subcommand("update", "Make the engine re-read a channel");
  update->add_option("ID", args->id, "Channel id")->required();
  update->callback([&context, args] {
    if (Run(context, "zm_update_channel_parameter",
            [&] { return zm_update_channel_parameter(args->id); }))
      context.out().Message("ok");
  });
  auto* rotate = channel->add_subcommand("rotate", "Rotate a channel's picture");
  rotate->add_option("ID", args->id, "Channel id")->required();
  rotate->add_option("DEGREES", args->value, "0, 90, 180 or 270")->required();
  rotate->callback([&context, args] {
    if (Run(context, "zm_rotate_channel_source",
            [&] { return zm_rotate_channel_source(args->id, args->value); }))
      context.out().Message("ok");
  });
  auto* delay = channel->add_subcommand("delay", "Delay a channel's sound");
  delay->add_option("ID", args->id, "Channel id")->required();
  delay->add_option("MS", args->value, "Delay in milliseconds")->required();
  delay->callback([&context, args] {
    if (Run(context, "zm_set_channel_audio_delay",
            [&] { return zm_set_channel_audio_delay(args->id, args->value); }))
      context.out().Message("ok");
  });

  auto* input = channel->add_subcommand("input", "Adjustment of a channel's analogue input");
  input->require_subcommand(1);
  auto* get = input->add_subcommand("get", "Read auto adjust, phase and position");
  get->add_option("ID", args->id, "Channel id")->required();
  get->callback([&context, args] {
    zm_input_param param = {-1, -1, -1};
    if (Run(context, "zm_get_channel_input_param",
            [&] { return zm_get_channel_input_param(args->id, &param); }))
      context.out().Record({{"auto_adjust", std::to_string(param.auto_adjust)},
                            {"phase", std::to_string(param.phase)},
                            {"position", std::to_string(param.position)}});
  });
  auto* set = input->add_subcommand("set", "Set auto adjust, phase and position");
  set->add_option("ID", args->id, "Channel id")->required();
  set->add_option("AUTO", args->auto_adjust, "Auto adjust (0 or 1)")->required();
  set->add_option("PHASE", args->phase, "Phase")->required();
  set->add_option("POSITION", args->position, "Position")->required();
  set->callback([&context, args] {
    if (Run(context, "zm_set_channel_input_param", [&] {
          return zm_set_channel_input_param(args->id,
                                            {args->auto_adjust, args->phase, args->position});
        }))
      context.out().Message("ok");
  });

  auto* snapshot = channel->add_subcommand("snapshot", "Write a JPEG of a channel to a file URI");
  snapshot->add_option("ID", args->id, "Channel id")->required();
  snapshot->add_option("URI", args->uri, "file:// URI of the picture")->required();
  snapshot->add_option("--width", args->width, "Width")->capture_default_str();
  snapshot->add_option("--height", args->height, "Height")->capture_default_str();
  snapshot->callback([&context, args] {
    if (!Run(context, "zm_make_channel_snapshot", [&] {
          return zm_make_channel_snapshot(args->id, args->uri.c_str(), args->width, args->height);
        }))
      return;
    std::string path = zolo::SysrootPath(args->uri.substr(7));
    context.out().Record(
        {{"file", args->uri.substr(7)}, {"bytes", std::to_string(FileBytes(path))}});
  });
  auto* preview = channel->add_subcommand(
      "preview-snapshot", "Snapshot a channel's video user source into its preview file");
  preview->add_option("ID", args->id, "Channel id")->required();
  preview->add_option("--width", args->width, "Width")->capture_default_str();
  preview->add_option("--height", args->height, "Height")->capture_default_str();
  preview->add_option("--wait", args->wait, "Seconds to wait for the picture")
      ->capture_default_str();
  preview->callback([&context, args] {
    TaskEndWatch watch;
    int user_source = 0;
    std::vector<zm_source> sources;
    bool ok = Run(context, "zm_make_channel_preview_snapshot", [&] {
      int result = zm_make_channel_preview_snapshot(args->id, args->width, args->height);
      if (result < 0) return result;
      // The task reports nothing back: a picture the engine refused leaves no path stored.
      if (!watch.Wait(args->wait) || !watch.stored()) return -1;
      std::vector<zm_channel> found;
      if (zm_get_channel(args->id, &found) == 0 && !found.empty())
        user_source = found[0].video_user_source_id;
      return zm_get_user_source(user_source, &sources);
    });
    if (!ok || sources.empty()) return;
    std::string file = sources[0].preview_dest;
    context.out().Record({{"user_source", std::to_string(user_source)},
                          {"preview_dest", file},
                          {"bytes", std::to_string(FileBytes(zolo::SysrootPath(file)))}});
  });
}

}  // namespace zmctl
