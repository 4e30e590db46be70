// stream, record, status: the engine's outputs, recording control and live status.
#include <zolo/media.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "context.h"

namespace zmctl {

namespace {

struct ListArgs {
  std::string type;
  std::string name;
  std::string pattern;
  int id = 0;
};

struct RecordArgs {
  bool persist = false;
  std::vector<std::string> files;  // STREAM=NAME
};

void PrintStreams(const Context& context, const std::vector<zm_stream>& streams) {
  std::vector<Row> rows;
  for (const auto& s : streams)
    rows.push_back({std::to_string(s.id), s.name, s.type, s.channel_name, s.codec_preset_name,
                    s.enable ? "yes" : "no", s.suspend ? "yes" : "no", s.destination});
  context.out().Table(
      {"id", "name", "type", "channel", "preset", "enabled", "suspended", "destination"}, rows);
}

void PrintLive(const Context& context, const std::vector<zm_stream>& streams) {
  std::vector<Row> rows;
  for (const auto& s : streams)
    rows.push_back({s.name, s.type, s.channel_name, std::to_string(s.start_time),
                    std::to_string(s.stop_time), std::to_string(s.duration), s.destination});
  context.out().Table({"name", "type", "channel", "start", "stop", "duration", "destination"},
                      rows);
}

// Runs `call` in a library session; prints the failure and sets the exit status.
template <class Call>
bool Run(Context& context, const std::string& what, Call call) {
  Session session;
  int result = session.result() != 0 ? session.result() : call();
  if (result < 0) {
    context.status = Fail(what, result);
    return false;
  }
  return true;
}

}  // namespace

void AddStreamCommands(CLI::App& app, Context& context) {
  auto* stream = app.add_subcommand("stream", "The engine's outputs");
  stream->require_subcommand(1);
  auto list_args = std::make_shared<ListArgs>();
  auto* list = stream->add_subcommand("list", "List streams (all, or by type, name, pattern, id)");
  list->add_option("--type", list_args->type, "Stream type: file, network, preview, ...");
  list->add_option("--name", list_args->name, "Stream name (with --type)");
  list->add_option("--pattern", list_args->pattern, "SQL LIKE pattern on the name");
  list->add_option("--id", list_args->id, "Stream id");
  list->callback([&context, list_args] {
    std::vector<zm_stream> streams;
    const ListArgs& a = *list_args;
    Run(context, "listing streams",
        [&] {
          if (a.id != 0) return zm_get_stream(a.id, &streams);
          if (!a.type.empty())
            return zm_get_stream(a.type.c_str(), a.name.empty() ? nullptr : a.name.c_str(),
                                 &streams);
          return zm_get_stream_by_pattern(a.pattern.empty() ? "%" : a.pattern.c_str(), &streams);
        }) &&
        (PrintStreams(context, streams), true);
  });

  auto* record = app.add_subcommand("record", "Start, pause, resume or stop recording");
  record->require_subcommand(1);
  auto record_args = std::make_shared<RecordArgs>();
  auto* start = record->add_subcommand("start", "Start recording and streaming");
  start->add_flag("--persist", record_args->persist, "Keep running across engine restarts");
  start->add_option("--file", record_args->files, "File name of a stream: STREAM=NAME");
  start->callback([&context, record_args] {
    std::map<std::string, std::string> names;
    for (const auto& file : record_args->files) {
      size_t equals = file.find('=');
      if (equals == std::string::npos || equals == 0) {
        context.status = Fail("--file " + file + " (want STREAM=NAME)", -3);
        return;
      }
      names[file.substr(0, equals)] = file.substr(equals + 1);
    }
    std::vector<zm_stream> started;
    if (Run(context, "zm_start_stream", [&] {
          return zm_start_stream(&started, record_args->persist, names.empty() ? nullptr : &names);
        }))
      PrintLive(context, started);
  });
  record->add_subcommand("pause", "Pause recording")->callback([&context] {
    if (Run(context, "zm_pause_stream", [] { return zm_pause_stream(false); }))
      context.out().Message("paused");
  });
  record->add_subcommand("resume", "Resume recording")->callback([&context] {
    if (Run(context, "zm_resume_stream", [] { return zm_resume_stream(false); }))
      context.out().Message("recording");
  });
  record->add_subcommand("stop", "Stop recording")->callback([&context] {
    std::vector<zm_stream> stopped;
    unsigned recording = 0;
    if (!Run(context, "zm_stop_stream",
             [&] { return zm_stop_stream(&stopped, &recording, false); }))
      return;
    PrintLive(context, stopped);
    context.out().Record({{"recording", std::to_string(recording)}});
  });

  app.add_subcommand("status", "Live status of the running streams")->callback([&context] {
    std::vector<zm_stream> live;
    if (Run(context, "zm_get_streaming_status", [&] { return zm_get_streaming_status(&live); }))
      PrintLive(context, live);
  });
}

}  // namespace zmctl
