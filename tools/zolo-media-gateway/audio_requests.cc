// Audio ports: their settings and live state, and the commands that change them.
#include <zolo/media/audio.h>

#include "request_helpers.h"
#include "zolo/media_json/audio_json.h"

namespace zolo::gateway {
namespace {

constexpr ParamType kInt = ParamType::kInteger;
constexpr ParamType kText = ParamType::kString;

Outcome Ports(int (*get)(const char*, std::vector<zm_audio_info>*), const cJSON* args) {
  std::vector<zm_audio_info> out;
  int code = get(CStr(OptionalText(args, "name")), &out);
  return WithList(code, "ports", out);
}

// The port commands that take one integer after the port's name.
Outcome PortValue(int (*call)(const char*, int), const char* value, const cJSON* args) {
  return Code(call(StringArg(args, "name").c_str(), IntArg(args, value)));
}

}  // namespace

void AddAudioRequests(RequestTable& table) {
  table.insert(
      table.end(),
      {
          {"get_audio_input",
           {{"name", kText, false}},
           [](const cJSON* a) { return Ports(zm_get_audio_input, a); },
           "Audio inputs named `name` (absent: every input) with their live state."},
          {"get_audio_output",
           {{"name", kText, false}},
           [](const cJSON* a) { return Ports(zm_get_audio_output, a); },
           "Audio outputs named `name` (absent: every output) with their live state."},
          {"set_audio_input",
           {{"name", kText}, {"volume", kInt}, {"mute", kInt}},
           [](const cJSON* a) {
             return Code(zm_set_audio_input(StringArg(a, "name").c_str(), IntArg(a, "volume"),
                                            IntArg(a, "mute")));
           },
           "Sets an input's volume and mute (a negative value keeps it)."},
          {"set_audio_input_type",
           {{"name", kText}, {"type", kInt}},
           [](const cJSON* a) { return PortValue(zm_set_audio_input_type, "type", a); },
           "Sets an input's audio type."},
          {"set_audio_input_gain",
           {{"name", kText}, {"gain", kInt}},
           [](const cJSON* a) { return PortValue(zm_set_audio_input_gain, "gain", a); },
           "Sets an input's gain."},
          {"set_audio_input_noise_reduction",
           {{"name", kText}, {"level", kInt}},
           [](const cJSON* a) { return PortValue(zm_set_audio_input_noise_reduction, "level", a); },
           "Sets an input's noise reduction level."},
          {"set_audio_input_xlr_channel",
           {{"name", kText}, {"mode", kInt}},
           [](const cJSON* a) { return PortValue(zm_set_audio_input_xlr_channel, "mode", a); },
           "Sets an input's XLR channel mode."},
          {"set_audio_input_xlr_power",
           {{"name", kText}, {"mode", kInt}},
           [](const cJSON* a) { return PortValue(zm_set_audio_input_xlr_power, "mode", a); },
           "Sets an input's XLR phantom power mode."},
          {"set_audio_input_mode",
           {{"name", kText}, {"mode", kInt}},
           [](const cJSON* a) { return PortValue(zm_set_audio_input_mode, "mode", a); },
           "Sets an input's mode."},
          {"set_audio_output_type",
           {{"name", kText}, {"type", kInt}},
           [](const cJSON* a) { return PortValue(zm_set_audio_output_type, "type", a); },
           "Sets an output's audio type."},
          {"set_audio_input_hw_loop_through",
           {{"name", kText}, {"enable", ParamType::kBoolean}},
           [](const cJSON* a) {
             return Code(zm_set_audio_input_hw_loop_through(StringArg(a, "name").c_str(),
                                                            BoolArg(a, "enable")));
           },
           "Switches an input's hardware loop-through."},
          {"set_audio_output",
           {{"name", kText}, {"volume", kInt}, {"mute", kInt}},
           [](const cJSON* a) {
             return Code(zm_set_audio_output(StringArg(a, "name").c_str(), IntArg(a, "volume"),
                                             IntArg(a, "mute")));
           },
           "Sets an output's volume and mute."},
          {"set_audio_output_monitor",
           {{"name", kText},
            {"mode", kInt},
            {"duration_threshold", kInt},
            {"level_threshold", kInt}},
           [](const cJSON* a) {
             return Code(zm_set_audio_output_monitor(
                 StringArg(a, "name").c_str(), IntArg(a, "mode"), IntArg(a, "duration_threshold"),
                 IntArg(a, "level_threshold")));
           },
           "Sets an output's silence monitor."},
      });
}

}  // namespace zolo::gateway
