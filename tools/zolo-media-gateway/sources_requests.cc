// Sources, channels and commands on a channel's live input.
#include <zolo/media/sources.h>

#include "request_helpers.h"
#include "zolo/media_json/sources_json.h"

namespace zolo::gateway {
namespace {

constexpr ParamType kInt = ParamType::kInteger;
constexpr ParamType kText = ParamType::kString;
constexpr ParamType kBool = ParamType::kBoolean;

template <class T>
Outcome ListById(int (*get)(int, std::vector<T>*), const char* member, const cJSON* args) {
  std::vector<T> out;
  int code = get(IntArg(args, "id"), &out);
  return WithList(code, member, out);
}

// Connects an input: addresses that name files must lie in the appliance's folders.
Outcome EnableInput(int (*enable)(int, bool, const char*, const char*), const char* id_name,
                    const cJSON* args) {
  auto uri = OptionalText(args, "uri");
  auto sub_uri = OptionalText(args, "sub_uri");
  if ((uri && !NetworkOrConfined(*uri)) || (sub_uri && !NetworkOrConfined(*sub_uri)))
    return Code(-3);
  return Code(enable(IntArg(args, id_name), BoolArg(args, "connect"), CStr(uri), CStr(sub_uri)));
}

Outcome SetInputParam(const cJSON* args) {
  zm_input_param param{};
  Outcome refusal;
  if (!RecordArg(args, "param", &param, &refusal)) return refusal;
  return Code(zm_set_channel_input_param(IntArg(args, "channel"), param));
}

Outcome MakeChannelSnapshot(const cJSON* args) {
  auto url = ConfinedFileUrl(StringArg(args, "uri"));
  if (!url) return Code(-3);
  return Code(zm_make_channel_snapshot(IntArg(args, "channel"), url->c_str(), IntArg(args, "width"),
                                       IntArg(args, "height")));
}

}  // namespace

void AddSourceRequests(RequestTable& table) {
  const std::vector<Param> input = {
      {"connect", kBool}, {"uri", kText, false}, {"sub_uri", kText, false}};
  std::vector<Param> channel_input = input, source_input = input;
  channel_input.insert(channel_input.begin(), {"channel", kInt});
  source_input.insert(source_input.begin(), {"source", kInt});
  table.insert(
      table.end(),
      {
          {"get_source",
           {{"id", kInt}},
           [](const cJSON* a) { return ListById(zm_get_source, "sources", a); },
           "Device source `id`, or every visible one for 0."},
          {"get_user_source",
           {{"id", kInt}},
           [](const cJSON* a) { return ListById(zm_get_user_source, "sources", a); },
           "User source `id`, or every visible one for 0."},
          {"get_channel",
           {{"id", kInt}},
           [](const cJSON* a) { return ListById(zm_get_channel, "channels", a); },
           "Channel `id`, or every visible channel for 0."},
          {"get_channel_count",
           {},
           [](const cJSON*) { return Value(zm_get_channel_count(), "count"); },
           "Number of visible channels."},
          {"get_channel_available_user_sources",
           {{"id", kInt}},
           [](const cJSON* a) {
             return ListById(zm_get_channel_available_user_sources, "channel_sources", a);
           },
           "Sources channel `id` (0: every channel) may switch to."},
          {"get_channel_available_sources",
           {{"id", kInt}},
           [](const cJSON* a) { return ListById(zm_get_channel_available_sources, "sources", a); },
           "Device sources offered to channel `id` by the naming rules."},
          {"get_builtin_input_name",
           {{"sub_address", kText}},
           [](const cJSON* a) {
             std::string name;
             int code = zm_get_builtin_input_name(StringArg(a, "sub_address").c_str(), &name);
             return code < 0 ? Code(code) : WithText(code, "name", name);
           },
           "Front-panel name of a capture chip sub-address."},
          {"enable_channel_source", channel_input,
           [](const cJSON* a) { return EnableInput(zm_enable_channel_source, "channel", a); },
           "Connects or disconnects the input of channel `channel`."},
          {"enable_source", source_input,
           [](const cJSON* a) { return EnableInput(zm_enable_source, "source", a); },
           "Connects or disconnects the input of source `source`."},
          {"update_channel_parameter",
           {{"channel", kInt}},
           [](const cJSON* a) { return Code(zm_update_channel_parameter(IntArg(a, "channel"))); },
           "Makes the engine re-read channel `channel`'s parameters."},
          {"rotate_channel_source",
           {{"id", kInt}, {"rotate", kInt}},
           [](const cJSON* a) {
             return Code(zm_rotate_channel_source(IntArg(a, "id"), IntArg(a, "rotate")));
           },
           "Rotates the input of channel `id`."},
          {"set_channel_audio_delay",
           {{"id", kInt}, {"delay", kInt}},
           [](const cJSON* a) {
             return Code(zm_set_channel_audio_delay(IntArg(a, "id"), IntArg(a, "delay")));
           },
           "Sets the audio delay of channel `id`."},
          {"get_channel_input_param",
           {{"channel", kInt}},
           [](const cJSON* a) {
             zm_input_param param{};
             int code = zm_get_channel_input_param(IntArg(a, "channel"), &param);
             return code < 0 ? Code(code) : WithRecord(code, "param", param);
           },
           "The analogue input adjustment of channel `channel`."},
          {"set_channel_input_param",
           {{"channel", kInt}, {"param", ParamType::kObject}},
           SetInputParam,
           "Sets the analogue input adjustment of channel `channel`."},
          {"make_channel_snapshot",
           {{"channel", kInt}, {"uri", kText}, {"width", kInt}, {"height", kInt}},
           MakeChannelSnapshot,
           "Writes a JPEG of channel `channel` to `uri` inside the appliance's folders."},
          {"make_channel_preview_snapshot",
           {{"channel", kInt}, {"width", kInt}, {"height", kInt}},
           [](const cJSON* a) {
             return Code(zm_make_channel_preview_snapshot(IntArg(a, "channel"), IntArg(a, "width"),
                                                          IntArg(a, "height")));
           },
           "Starts a preview snapshot of channel `channel`'s video user source."},
      });
}

}  // namespace zolo::gateway
