// audio: the audio ports with their live levels, and the port commands.
#include <zolo/media.h>

#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "context.h"
#include "zolo/media_json/audio_json.h"

namespace zmctl {

namespace {

struct PortArgs {
  std::string name;
  int volume = -1;
  int mute = -1;
  int type = 0;
  int gain = 0;
  int noise_reduction = 0;
  int xlr_channel = 0;
  int xlr_power = 0;
  int mode = 0;
  int loop_through = 0;
  std::vector<int> monitor;  // mode, duration threshold, level threshold
};

std::string Number(int value) {
  return std::to_string(value);
}

void PrintPorts(const Context& context, bool outputs, const std::vector<zm_audio_info>& ports) {
  if (context.out().Records(ports)) return;
  std::vector<Row> rows;
  for (const auto& p : ports) {
    if (outputs)
      rows.push_back({p.name, Number(p.volume), Number(p.mute), Number(p.audio_type),
                      Number(p.level), Number(p.left), Number(p.right), Number(p.mixer_member),
                      Number(p.monitor_mode), Number(p.monitor_duration_threshold),
                      Number(p.monitor_level_threshold), Number(p.warning_triggered)});
    else
      rows.push_back({p.name, Number(p.volume), Number(p.mute), Number(p.audio_type),
                      Number(p.level), Number(p.left), Number(p.right), Number(p.status),
                      Number(p.mode), Number(p.gain), Number(p.noise_reduction),
                      Number(p.xlr_channel), Number(p.xlr_power), p.device_name, p.version});
  }
  if (outputs)
    context.out().Table({"name", "volume", "mute", "type", "level", "left", "right", "mixer_member",
                         "monitor_mode", "monitor_seconds", "monitor_level", "warning"},
                        rows);
  else
    context.out().Table(
        {"name", "volume", "mute", "type", "level", "left", "right", "status", "mode", "gain",
         "noise_reduction", "xlr_channel", "xlr_power", "device", "version"},
        rows);
}

using Command = std::pair<std::string, std::function<int()>>;

// The names of commands[from, to), joined by ", "; "nothing" when empty.
std::string Names(const std::vector<Command>& commands, size_t from, size_t to) {
  std::string names;
  for (size_t i = from; i < to; ++i) names += (names.empty() ? "" : ", ") + commands[i].first;
  return names.empty() ? "nothing" : names;
}

// Runs the chosen commands in order in one library session; stops at the first failure and
// says which changes were applied before it and which were not.
void RunCommands(Context& context, const std::vector<Command>& commands) {
  if (commands.empty()) {
    context.status = Fail("a port change without any setting (see --help)", -3);
    return;
  }
  Session session;
  if (session.result() != 0) {
    context.status = Fail("zm_init", session.result());
    return;
  }
  for (size_t i = 0; i < commands.size(); ++i) {
    int result = commands[i].second();
    if (result < 0) {
      context.status = Fail(commands[i].first, result);
      std::cerr << "zmctl: applied: " << Names(commands, 0, i)
                << "; not applied: " << Names(commands, i, commands.size()) << '\n';
      return;
    }
  }
  context.out().Message("ok");
}

}  // namespace

void AddAudioCommands(CLI::App& app, Context& context) {
  auto* audio = app.add_subcommand("audio", "Audio ports: live levels and settings");
  audio->require_subcommand(1);
  auto args = std::make_shared<PortArgs>();
  for (bool outputs : {false, true}) {
    auto* list = audio->add_subcommand(outputs ? "outputs" : "inputs",
                                       outputs ? "List the audio outputs with their live levels"
                                               : "List the audio inputs with their live levels");
    list->add_option("NAME", args->name, "Only the port of this name");
    list->callback([&context, args, outputs] {
      std::vector<zm_audio_info> ports;
      Session session;
      const char* name = args->name.empty() ? nullptr : args->name.c_str();
      int result = session.result() != 0 ? session.result()
                                         : (outputs ? zm_get_audio_output(name, &ports)
                                                    : zm_get_audio_input(name, &ports));
      if (result < 0) {
        context.status = Fail(outputs ? "zm_get_audio_output" : "zm_get_audio_input", result);
        return;
      }
      PrintPorts(context, outputs, ports);
    });
  }

  auto* input = audio->add_subcommand("set-input", "Change an audio input");
  input->add_option("NAME", args->name, "Port name")->required();
  auto* volume = input->add_option("--volume", args->volume, "Volume 0-100 (-1: keep)");
  auto* mute = input->add_option("--mute", args->mute, "Mute 1 or 0 (-1: keep)");
  auto* type = input->add_option("--type", args->type, "Audio type (1 or more)");
  auto* gain = input->add_option("--gain", args->gain, "Gain in dB");
  auto* noise = input->add_option("--noise-reduction", args->noise_reduction, "Level (0 off)");
  auto* channel = input->add_option("--xlr-channel", args->xlr_channel, "XLR channel mode");
  auto* power = input->add_option("--xlr-power", args->xlr_power, "XLR phantom power 1 or 0");
  auto* mode = input->add_option("--mode", args->mode, "Input mode");
  auto* loop = input->add_option("--loop-through", args->loop_through, "Hardware loop-through 1|0");
  input->callback([&context, args, volume, mute, type, gain, noise, channel, power, mode, loop] {
    const PortArgs& a = *args;
    const char* name = a.name.c_str();
    std::vector<Command> commands;
    if (volume->count() + mute->count() > 0)
      commands.emplace_back("zm_set_audio_input",
                            [&a, name] { return zm_set_audio_input(name, a.volume, a.mute); });
    if (type->count() > 0)
      commands.emplace_back("zm_set_audio_input_type",
                            [&a, name] { return zm_set_audio_input_type(name, a.type); });
    if (gain->count() > 0)
      commands.emplace_back("zm_set_audio_input_gain",
                            [&a, name] { return zm_set_audio_input_gain(name, a.gain); });
    if (noise->count() > 0)
      commands.emplace_back("zm_set_audio_input_noise_reduction", [&a, name] {
        return zm_set_audio_input_noise_reduction(name, a.noise_reduction);
      });
    if (channel->count() > 0)
      commands.emplace_back("zm_set_audio_input_xlr_channel", [&a, name] {
        return zm_set_audio_input_xlr_channel(name, a.xlr_channel);
      });
    if (power->count() > 0)
      commands.emplace_back("zm_set_audio_input_xlr_power",
                            [&a, name] { return zm_set_audio_input_xlr_power(name, a.xlr_power); });
    if (mode->count() > 0)
      commands.emplace_back("zm_set_audio_input_mode",
                            [&a, name] { return zm_set_audio_input_mode(name, a.mode); });
    if (loop->count() > 0)
      commands.emplace_back("zm_set_audio_input_hw_loop_through", [&a, name] {
        return zm_set_audio_input_hw_loop_through(name, a.loop_through != 0);
      });
    RunCommands(context, commands);
  });

  auto* output = audio->add_subcommand("set-output", "Change an audio output");
  output->add_option("NAME", args->name, "Port name")->required();
  auto* out_volume = output->add_option("--volume", args->volume, "Volume 0-100");
  auto* out_mute = output->add_option("--mute", args->mute, "Mute 1 or 0");
  auto* out_type = output->add_option("--type", args->type, "Audio type (0 or more)");
  auto* monitor = output->add_option(
      "--monitor", args->monitor, "Level monitoring: MODE DURATION LEVEL (thresholds 1 or more)");
  monitor->expected(3);
  output->callback([&context, args, out_volume, out_mute, out_type, monitor] {
    const PortArgs& a = *args;
    const char* name = a.name.c_str();
    std::vector<Command> commands;
    if (out_volume->count() + out_mute->count() > 0)
      commands.emplace_back("zm_set_audio_output",
                            [&a, name] { return zm_set_audio_output(name, a.volume, a.mute); });
    if (out_type->count() > 0)
      commands.emplace_back("zm_set_audio_output_type",
                            [&a, name] { return zm_set_audio_output_type(name, a.type); });
    if (monitor->count() > 0)
      commands.emplace_back("zm_set_audio_output_monitor", [&a, name] {
        return zm_set_audio_output_monitor(name, a.monitor[0], a.monitor[1], a.monitor[2]);
      });
    RunCommands(context, commands);
  });
}

}  // namespace zmctl
