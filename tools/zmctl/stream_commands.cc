// stream, record, status: the engine's outputs, recording control and live status.
#include <zolo/media.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "context.h"
#include "zolo/media_json/streams_json.h"

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
  if (context.out().Records(streams)) return;
  std::vector<Row> rows;
  for (const auto& s : streams)
    rows.push_back({std::to_string(s.id), s.name, s.type, s.channel_name, s.codec_preset_name,
                    s.enable ? "yes" : "no", s.suspend ? "yes" : "no", s.destination});
  context.out().Table(
      {"id", "name", "type", "channel", "preset", "enabled", "suspended", "destination"}, rows);
}

// The engine's live answers name a stream but not always its type or channel: fill those from
// the configured stream of the same name. Runs inside the library session.
void CompleteFromConfiguration(std::vector<zm_stream>* live) {
  std::vector<zm_stream> configured;
  if (zm_get_stream_by_pattern("%", &configured) != 0) return;
  std::map<std::string, const zm_stream*> by_name;
  for (const auto& s : configured) by_name.emplace(s.name, &s);
  for (auto& s : *live) {
    auto found = by_name.find(s.name);
    if (found == by_name.end()) continue;
    if (s.type[0] == '\0') std::snprintf(s.type, sizeof s.type, "%s", found->second->type);
    if (s.channel_name[0] == '\0')
      std::snprintf(s.channel_name, sizeof s.channel_name, "%s", found->second->channel_name);
  }
}

// Start and stop as local times in tables; JSON has the whole records.
void PrintLive(const Context& context, const std::vector<zm_stream>& streams) {
  if (context.out().Records(streams)) return;
  std::vector<Row> rows;
  for (const auto& s : streams)
    rows.push_back({s.name, s.type, s.channel_name, LocalTime(s.start_time), LocalTime(s.stop_time),
                    std::to_string(s.duration), s.destination});
  context.out().Table({"name", "type", "channel", "start", "stop", "duration", "destination"},
                      rows);
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
  CLI::Option* id_option = list->add_option("--id", list_args->id, "Stream id");
  list->callback([&context, list_args, id_option] {
    std::vector<zm_stream> streams;
    const ListArgs& a = *list_args;
    Run(context, "listing streams",
        [&] {
          if (id_option->count() > 0) return zm_get_stream(a.id, &streams);
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
          int result =
              zm_start_stream(&started, record_args->persist, names.empty() ? nullptr : &names);
          CompleteFromConfiguration(&started);
          return result;
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
    if (!Run(context, "zm_stop_stream", [&] {
          int result = zm_stop_stream(&stopped, &recording, false);
          CompleteFromConfiguration(&stopped);
          return result;
        }))
      return;
    PrintLive(context, stopped);
    context.out().Record({{"recording", std::to_string(recording)}});
  });

  app.add_subcommand("status", "Live status of the running streams")->callback([&context] {
    std::vector<zm_stream> live;
    if (Run(context, "zm_get_streaming_status", [&] {
          int result = zm_get_streaming_status(&live);
          CompleteFromConfiguration(&live);
          return result;
        }))
      PrintLive(context, live);
  });

  // Stream flags and settings in the database.
  struct Flags {
    std::string name;
    int value = 1;
    std::string key;
    std::string text;
    bool text_value = false;
    std::string type;
  };
  auto flags = std::make_shared<Flags>();
  auto* enable = stream->add_subcommand("enable", "Enable (1) or disable (0) streams by name");
  enable->add_option("NAME", flags->name, "Stream name")->required();
  enable->add_option("VALUE", flags->value, "1 or 0")->required();
  enable->callback([&context, flags] {
    if (Run(context, "zm_enable_stream",
            [&] { return zm_enable_stream(flags->name.c_str(), flags->value); }))
      context.out().Message("ok");
  });
  auto* suspend = stream->add_subcommand("suspend", "Suspend (1) or resume (0) streams by pattern");
  suspend->add_option("PATTERN", flags->name, "SQL LIKE pattern on the name")->required();
  suspend->add_option("VALUE", flags->value, "1 or 0")->required();
  suspend->callback([&context, flags] {
    if (Run(context, "zm_suspend_stream",
            [&] { return zm_suspend_stream(flags->name.c_str(), flags->value); }))
      context.out().Message("ok");
  });
  auto* remove = stream->add_subcommand("remove", "Remove a stream by id");
  remove->add_option("ID", flags->value, "Stream id")->required();
  remove->callback([&context, flags] {
    if (Run(context, "zm_remove_stream", [&] { return zm_remove_stream(flags->value); }))
      context.out().Message("ok");
  });
  auto* destination = stream->add_subcommand("set-destination", "Set a stream's destination");
  destination->add_option("NAME", flags->name, "Stream name")->required();
  destination->add_option("URL", flags->text, "New destination")->required();
  destination->callback([&context, flags] {
    if (Run(context, "zm_set_stream_destination",
            [&] { return zm_set_stream_destination(flags->name.c_str(), flags->text.c_str()); }))
      context.out().Message("ok");
  });
  for (bool auth : {false, true}) {
    auto* set = stream->add_subcommand(
        auth ? "set-auth" : "set-param",
        auth ? "Set an authentication value of streams" : "Set a parameter of streams");
    set->add_option("NAME", flags->name, "Stream name (empty: every stream of --type)")->required();
    set->add_option("KEY", flags->key, "Key, e.g. latency")->required();
    set->add_option("VALUE", flags->text, "Value (a number unless --text)")->required();
    set->add_option("--type", flags->type, "Stream type");
    set->add_flag("--text", flags->text_value, "Store the value as text");
    set->callback([&context, flags, auth] {
      const char* type = flags->type.empty() ? nullptr : flags->type.c_str();
      const char* name = flags->name.empty() ? nullptr : flags->name.c_str();
      bool ok = Run(context, auth ? "zm_set_stream_auth" : "zm_set_stream_param", [&] {
        if (flags->text_value)
          return auth ? zm_set_stream_auth(type, name, flags->key.c_str(), flags->text.c_str())
                      : zm_set_stream_param(type, name, flags->key.c_str(), flags->text.c_str());
        int number = 0;
        try {
          number = std::stoi(flags->text);
        } catch (const std::exception&) {
          return -3;
        }
        return auth ? zm_set_stream_auth(type, name, flags->key.c_str(), number)
                    : zm_set_stream_param(type, name, flags->key.c_str(), number);
      });
      if (ok) context.out().Message("ok");
    });
  }

  auto* network = app.add_subcommand("network", "Start or stop a network stream");
  network->require_subcommand(1);
  for (bool stop : {false, true}) {
    auto* command = network->add_subcommand(
        stop ? "stop" : "start", stop ? "Stop a network stream" : "Start a network stream");
    command->add_option("NAME", flags->name, "Stream name")->required();
    command->callback([&context, flags, stop] {
      std::vector<zm_stream> streams;
      if (Run(context, stop ? "zm_stop_network_streams" : "zm_start_network_streams", [&] {
            int result = stop ? zm_stop_network_streams(flags->name.c_str(), &streams)
                              : zm_start_network_streams(flags->name.c_str(), &streams);
            CompleteFromConfiguration(&streams);
            return result;
          }))
        PrintLive(context, streams);
    });
  }

  auto* metadata = app.add_subcommand("metadata", "Stream metadata keys and values");
  metadata->require_subcommand(1);
  auto* mlist = metadata->add_subcommand("list", "List metadata rows (--backup: of backupmeta)");
  auto backup = std::make_shared<bool>(false);
  mlist->add_flag("--backup", *backup, "Rows of the backupmeta stream only");
  mlist->callback([&context, backup] {
    std::vector<zm_metadata> rows;
    if (!Run(context, "listing metadata", [&] {
          return *backup ? zm_get_backup_stream_metadata(0, &rows)
                         : zm_get_stream_metadata(0, &rows);
        }))
      return;
    if (context.out().Records(rows)) return;
    std::vector<Row> table;
    for (const auto& r : rows) table.push_back({std::to_string(r.key_id), r.key, r.value});
    context.out().Table({"key_id", "key", "value"}, table);
  });
  auto* add_key = metadata->add_subcommand("add-key", "Add a key with its default value");
  add_key->add_option("KEY", flags->key, "Key text")->required();
  add_key->add_option("DEFAULT", flags->text, "Default value")->required();
  add_key->callback([&context, flags] {
    if (Run(context, "zm_add_stream_metadata_key",
            [&] { return zm_add_stream_metadata_key(flags->key.c_str(), flags->text.c_str()); }))
      context.out().Message("ok");
  });
  auto* rename = metadata->add_subcommand("rename-key", "Rename the key of a metadata row");
  rename->add_option("ROW", flags->value, "Metadata row id")->required();
  rename->add_option("KEY", flags->key, "New key text")->required();
  rename->callback([&context, flags] {
    if (Run(context, "zm_set_stream_metadata_key",
            [&] { return zm_set_stream_metadata_key(flags->value, flags->key.c_str()); }))
      context.out().Message("ok");
  });
  auto* mset = metadata->add_subcommand("set", "Set the value of a metadata row");
  mset->add_option("ROW", flags->value, "Metadata row id")->required();
  mset->add_option("VALUE", flags->text, "New value")->required();
  mset->callback([&context, flags] {
    if (Run(context, "zm_set_stream_metadata",
            [&] { return zm_set_stream_metadata(flags->value, flags->text.c_str()); }))
      context.out().Message("ok");
  });
  auto* remove_key = metadata->add_subcommand("remove-key", "Remove a key and its rows");
  remove_key->add_option("KEY_ID", flags->value, "Key id")->required();
  remove_key->callback([&context, flags] {
    if (Run(context, "zm_remove_stream_metadata_key",
            [&] { return zm_remove_stream_metadata_key(flags->value); }))
      context.out().Message("ok");
  });
}

}  // namespace zmctl
