// state, service, setting, signals: the engine's state and commands, media settings, and
// the engine's signals as they arrive.
#include <unistd.h>
#include <zolo/media.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "context.h"
#include "signal_records.h"

namespace zmctl {

namespace {

std::atomic<bool> g_interrupted{false};
std::atomic<int> g_seen{0};
bool g_json = false;
bool g_raw = false;

void OnInterrupt(int) {
  g_interrupted = true;
}

// Prints the record the library parsed, or with --raw the payload text as sent.
void PrintSignal(const char* name, void* data, void*) {
  std::string signal = name ? name : "";
  std::string text = g_raw ? static_cast<const char*>(data) : DescribeRecord(signal, data, g_json);
  if (g_json)
    std::printf("{\"signal\":\"%s\",\"%s\":%s}\n", signal.c_str(), g_raw ? "payload" : "record",
                text.c_str());
  else
    std::printf("%-28s %s\n", signal.c_str(), text.c_str());
  std::fflush(stdout);
  ++g_seen;
}

struct WatchArgs {
  std::vector<std::string> names;
  int seconds = 0;
  int count = 0;
  bool raw = false;
};

}  // namespace

void AddFrameCommands(CLI::App& app, Context& context) {
  auto* state = app.add_subcommand("state", "Show the media engine's state");
  state->callback([&context] {
    Session session;
    if (session.result() != 0) {
      context.status = Fail("zm_init", session.result());
      return;
    }
    std::string name;
    int id = zm_get_state(&name);
    if (id < 0) {
      context.status = Fail("zm_get_state", id);
      return;
    }
    context.out().Record({{"id", std::to_string(id)}, {"name", name}});
  });

  auto* service = app.add_subcommand("service", "Start, stop or restart the media engine");
  service->require_subcommand(1);
  struct Command {
    const char* name;
    const char* help;
    int (*call)();
  };
  static constexpr Command kCommands[] = {
      {"start", "Start the media engine", zm_start},
      {"stop", "Stop the media engine", zm_stop},
      {"restart", "Restart the media engine", zm_restart},
  };
  for (const auto& command : kCommands) {
    service->add_subcommand(command.name, command.help)->callback([&context, &command] {
      Session session;
      int result = session.result() != 0 ? session.result() : command.call();
      if (result != 0) {
        context.status = Fail(std::string("zm_") + command.name, result);
        return;
      }
      context.out().Message("ok");
    });
  }

  auto* setting = app.add_subcommand("setting", "Read or change a media setting");
  setting->require_subcommand(1);
  auto get_name = std::make_shared<std::string>();
  auto* get = setting->add_subcommand("get", "Print a setting's value");
  get->add_option("NAME", *get_name, "Setting name")->required();
  get->callback([&context, get_name] {
    Session session;
    std::string value;
    int result =
        session.result() != 0 ? session.result() : zm_get_setting(get_name->c_str(), &value);
    if (result < 0) {
      context.status = Fail("zm_get_setting " + *get_name, result);
      return;
    }
    context.out().Record({{"name", *get_name}, {"value", value}});
  });
  auto set_args = std::make_shared<std::pair<std::string, std::string>>();
  auto* set = setting->add_subcommand("set", "Change a setting (the engine must be idle)");
  set->add_option("NAME", set_args->first, "Setting name")->required();
  set->add_option("VALUE", set_args->second, "New value")->required();
  set->callback([&context, set_args] {
    Session session;
    int result = session.result() != 0 ? session.result()
                                       : zm_set_setting(set_args->first.c_str(), set_args->second);
    if (result != 0) {
      context.status = Fail("zm_set_setting " + set_args->first, result);
      return;
    }
    context.out().Message("ok");
  });

  auto* signals = app.add_subcommand("signals", "The media engine's signals");
  signals->require_subcommand(1);
  auto watch_args = std::make_shared<WatchArgs>();
  auto* watch = signals->add_subcommand(
      "watch", "Print each signal's parsed record as it arrives, until interrupted");
  watch->add_option("NAME", watch_args->names, "Signal names (default: all)");
  watch->add_option("--seconds", watch_args->seconds, "Stop after this many seconds");
  watch->add_option("--count", watch_args->count, "Stop after this many signals");
  watch->add_flag("--raw", watch_args->raw, "Print the payload text as sent instead");
  watch->callback([&context, watch_args] {
    Session session;
    if (session.result() != 0) {
      context.status = Fail("zm_init", session.result());
      return;
    }
    g_json = context.json;
    g_raw = watch_args->raw;
    zm_set_opt(0, g_raw ? 0 : 1);
    std::vector<std::string> names = watch_args->names;
    if (names.empty()) names = SignalNames();
    for (const auto& name : names) {
      int result = zm_register_signal(name.c_str(), PrintSignal);
      if (result != 0) {
        context.status = Fail("zm_register_signal " + name, result);
        return;
      }
    }
    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(watch_args->seconds);
    while (!g_interrupted && (watch_args->seconds <= 0 || std::chrono::steady_clock::now() < end) &&
           (watch_args->count <= 0 || g_seen.load() < watch_args->count))
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    for (const auto& name : names) zm_unregister_signal(name.c_str());
  });
}

}  // namespace zmctl
