// Stream queries, recording and streaming control, stream flags, destinations, parameters
// and metadata.
#include <zolo/media/streams.h>

#include <map>

#include "request_helpers.h"
#include "zolo/media_json/streams_json.h"

namespace zolo::gateway {
namespace {

constexpr ParamType kInt = ParamType::kInteger;
constexpr ParamType kText = ParamType::kString;
constexpr ParamType kBool = ParamType::kBoolean;
constexpr size_t kMaxFilenames = 64;
constexpr size_t kMaxDestinations = 64;

// Stream -> file name map of start_stream: plain file names only (the engine puts them in
// the recording folder), at most kMaxFilenames.
bool ReadFilenames(const cJSON* object, std::map<std::string, std::string>* out, Outcome* refusal) {
  if (cJSON_GetArraySize(object) > static_cast<int>(kMaxFilenames)) {
    *refusal = BadArgument("filenames has more than 64 members");
    return false;
  }
  for (const cJSON* item = object->child; item; item = item->next) {
    std::string name = cJSON_IsString(item) ? item->valuestring : "";
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
        name.size() > 255) {
      *refusal =
          BadArgument(std::string("filenames.") + item->string + " must be a plain file name");
      return false;
    }
    (*out)[item->string] = name;
  }
  return true;
}

Outcome StreamList(int code, const std::vector<zm_stream>& streams) {
  return WithList(code, "streams", streams);
}

Outcome GetStream(const cJSON* args) {
  std::vector<zm_stream> out;
  int code = Has(args, "id") ? zm_get_stream(IntArg(args, "id"), &out)
                             : zm_get_stream(CStr(OptionalText(args, "type")),
                                             CStr(OptionalText(args, "name")), &out);
  return StreamList(code, out);
}

Outcome StartStream(const cJSON* args) {
  std::map<std::string, std::string> filenames;
  const cJSON* names = cJSON_GetObjectItemCaseSensitive(args, "filenames");
  Outcome refusal;
  if (names && !ReadFilenames(names, &filenames, &refusal)) return refusal;
  std::vector<zm_stream> out;
  int code = zm_start_stream(&out, BoolArg(args, "persist"), names ? &filenames : nullptr);
  return StreamList(code, out);
}

Outcome StopStream(const cJSON* args) {
  std::vector<zm_stream> out;
  unsigned recording_id = 0;
  int code = zm_stop_stream(&out, &recording_id, BoolArg(args, "persist"));
  Outcome outcome = StreamList(code, out);
  cJSON_AddNumberToObject(outcome.data.get(), "recording_id", recording_id);
  return outcome;
}

// The name form sets the first flag; with option1 and option2 the pattern form sets three
// (four with option3).
Outcome EnableStream(const cJSON* args) {
  int enable = IntArg(args, "enable");
  if (!Has(args, "option1") && !Has(args, "option2") && !Has(args, "option3")) {
    auto name = OptionalText(args, "name");
    return Code(zm_enable_stream(CStr(name), enable));
  }
  auto pattern = OptionalText(args, "pattern");
  if (!pattern || !Has(args, "option1") || !Has(args, "option2"))
    return BadArgument("the pattern form needs pattern, option1 and option2");
  if (Has(args, "option3"))
    return Code(zm_enable_stream(pattern->c_str(), enable, IntArg(args, "option1"),
                                 IntArg(args, "option2"), IntArg(args, "option3")));
  return Code(
      zm_enable_stream(pattern->c_str(), enable, IntArg(args, "option1"), IntArg(args, "option2")));
}

Outcome SetStreamDestination(const cJSON* args) {
  std::string destination = StringArg(args, "destination");
  if (!NetworkOrConfined(destination)) return Code(-3);
  return Code(zm_set_stream_destination(StringArg(args, "name").c_str(), destination.c_str()));
}

Outcome SetScheduleStreamDestination(const cJSON* args) {
  const cJSON* list = cJSON_GetObjectItemCaseSensitive(args, "destinations");
  if (cJSON_GetArraySize(list) > static_cast<int>(kMaxDestinations))
    return BadArgument("destinations has more than 64 items");
  std::vector<std::string> destinations;
  for (const cJSON* item = list->child; item; item = item->next) {
    if (!cJSON_IsString(item)) return BadArgument("destinations must hold strings");
    if (!NetworkOrConfined(item->valuestring)) return Code(-3);
    destinations.push_back(item->valuestring);
  }
  return Code(zm_set_schedule_stream_destination(destinations));
}

// Parameter and authentication values are numbers or texts: exactly one of `value` (text)
// and `number` is given.
template <int (*SetNumber)(const char*, const char*, const char*, int),
          int (*SetText)(const char*, const char*, const char*, const char*)>
Outcome SetKeyValue(const cJSON* args) {
  auto type = OptionalText(args, "type");
  auto name = OptionalText(args, "name");
  std::string key = StringArg(args, "key");
  if (Has(args, "value") == Has(args, "number"))
    return BadArgument("give exactly one of value (text) and number");
  if (Has(args, "number"))
    return Code(SetNumber(CStr(type), CStr(name), key.c_str(), IntArg(args, "number")));
  return Code(SetText(CStr(type), CStr(name), key.c_str(), StringArg(args, "value").c_str()));
}

Outcome Metadata(int (*get)(int, std::vector<zm_metadata>*), const cJSON* args) {
  std::vector<zm_metadata> out;
  int code = get(IntArg(args, "id"), &out);
  return WithList(code, "metadata", out);
}

}  // namespace

void AddStreamRequests(RequestTable& table) {
  const std::vector<Param> key_value = {{"type", kText, false},
                                        {"name", kText, false},
                                        {"key", kText},
                                        {"value", kText, false},
                                        {"number", kInt, false}};
  table.insert(
      table.end(),
      {
          {"get_stream",
           {{"id", kInt, false}, {"type", kText, false}, {"name", kText, false}},
           GetStream,
           "Streams by `id`, or of `type` (required then) and `name` (absent: any)."},
          {"get_stream_by_pattern",
           {{"pattern", kText}},
           [](const cJSON* a) {
             std::vector<zm_stream> out;
             int code = zm_get_stream_by_pattern(StringArg(a, "pattern").c_str(), &out);
             return StreamList(code, out);
           },
           "Streams whose name matches the LIKE `pattern`."},
          {"get_schedule_stream",
           {},
           [](const cJSON*) {
             std::vector<zm_stream> out;
             int code = zm_get_schedule_stream(&out);
             return StreamList(code, out);
           },
           "Schedule streams."},
          {"get_webrtc_stream",
           {},
           [](const cJSON*) {
             std::vector<zm_stream> out;
             int code = zm_get_webrtc_stream(&out);
             return StreamList(code, out);
           },
           "WebRTC streams."},
          {"get_stream_channel_id",
           {{"type", kText, false}, {"name", kText, false}},
           [](const cJSON* a) {
             return Value(zm_get_stream_channel_id(CStr(OptionalText(a, "type")),
                                                   CStr(OptionalText(a, "name"))),
                          "channel_id");
           },
           "Channel id of the first stream of `type` and `name`."},
          {"get_stream_codec_param",
           {{"type", kText}, {"name", kText}},
           [](const cJSON* a) {
             std::string text;
             int code = zm_get_stream_codec_param(StringArg(a, "type").c_str(),
                                                  StringArg(a, "name").c_str(), &text);
             return code < 0 ? Code(code) : WithText(code, "codec_param", text);
           },
           "Video codec parameters (JSON text) of a stream's preset."},
          {"start_stream",
           {{"persist", kBool, false}, {"filenames", ParamType::kObject, false}},
           StartStream,
           "Starts recording and streaming; `filenames` maps stream names to file names."},
          {"pause_stream",
           {{"persist", kBool, false}},
           [](const cJSON* a) { return Code(zm_pause_stream(BoolArg(a, "persist"))); },
           "Pauses recording."},
          {"resume_stream",
           {{"persist", kBool, false}},
           [](const cJSON* a) { return Code(zm_resume_stream(BoolArg(a, "persist"))); },
           "Resumes a paused recording."},
          {"stop_stream",
           {{"persist", kBool, false}},
           StopStream,
           "Stops recording and streaming; gives the new recording's id."},
          {"start_network_streams",
           {{"name", kText}},
           [](const cJSON* a) {
             std::vector<zm_stream> out;
             int code = zm_start_network_streams(StringArg(a, "name").c_str(), &out);
             return StreamList(code, out);
           },
           "Starts the network stream `name`."},
          {"stop_network_streams",
           {{"name", kText}},
           [](const cJSON* a) {
             std::vector<zm_stream> out;
             int code = zm_stop_network_streams(StringArg(a, "name").c_str(), &out);
             return StreamList(code, out);
           },
           "Stops the network stream `name`."},
          {"get_streaming_status",
           {},
           [](const cJSON*) {
             std::vector<zm_stream> out;
             int code = zm_get_streaming_status(&out);
             return StreamList(code, out);
           },
           "Live status of the running streams."},
          {"enable_stream",
           {{"name", kText, false},
            {"pattern", kText, false},
            {"enable", kInt},
            {"option1", kInt, false},
            {"option2", kInt, false},
            {"option3", kInt, false}},
           EnableStream,
           "Sets the enable flag of streams `name`, or flags of streams matching `pattern`."},
          {"suspend_stream",
           {{"pattern", kText}, {"suspend", kInt}},
           [](const cJSON* a) {
             return Code(zm_suspend_stream(StringArg(a, "pattern").c_str(), IntArg(a, "suspend")));
           },
           "Sets the suspend flag of the streams matching `pattern`."},
          {"enable_movie_file_stream",
           {{"enable", kBool}},
           [](const cJSON* a) { return Code(zm_enable_movie_file_stream(BoolArg(a, "enable"))); },
           "Switches the movie file streams."},
          {"enable_channel_file_stream",
           {{"enable", kBool}},
           [](const cJSON* a) { return Code(zm_enable_channel_file_stream(BoolArg(a, "enable"))); },
           "Switches the channel file streams."},
          {"remove_stream",
           {{"id", kInt}},
           [](const cJSON* a) { return Code(zm_remove_stream(IntArg(a, "id"))); },
           "Removes stream `id`."},
          {"set_stream_destination",
           {{"name", kText}, {"destination", kText}},
           SetStreamDestination,
           "Sets the destination of the streams `name` (files only in the appliance's folders)."},
          {"set_schedule_stream_destination",
           {{"destinations", ParamType::kArray}},
           SetScheduleStreamDestination,
           "Hands destinations in order to the enabled schedule streams."},
          {"set_stream_param", key_value, SetKeyValue<zm_set_stream_param, zm_set_stream_param>,
           "Sets parameter `key` of streams of `type`/`name` to `value` (text) or `number`."},
          {"set_stream_auth", key_value, SetKeyValue<zm_set_stream_auth, zm_set_stream_auth>,
           "Sets authentication `key` of streams of `type`/`name` to `value` or `number`."},
          {"add_stream_metadata_key",
           {{"key", kText}, {"default_value", kText}},
           [](const cJSON* a) {
             return Code(zm_add_stream_metadata_key(StringArg(a, "key").c_str(),
                                                    StringArg(a, "default_value").c_str()));
           },
           "Adds metadata key `key` with a default row."},
          {"set_stream_metadata_key",
           {{"id", kInt}, {"key", kText, false}},
           [](const cJSON* a) {
             return Code(zm_set_stream_metadata_key(IntArg(a, "id"), CStr(OptionalText(a, "key"))));
           },
           "Renames the key of metadata row `id`."},
          {"set_stream_metadata",
           {{"id", kInt}, {"value", kText, false}},
           [](const cJSON* a) {
             return Code(zm_set_stream_metadata(IntArg(a, "id"), CStr(OptionalText(a, "value"))));
           },
           "Sets the value of metadata row `id`."},
          {"remove_stream_metadata_key",
           {{"id", kInt}},
           [](const cJSON* a) { return Code(zm_remove_stream_metadata_key(IntArg(a, "id"))); },
           "Removes metadata key `id` and its rows."},
          {"get_stream_metadata",
           {{"id", kInt}},
           [](const cJSON* a) { return Metadata(zm_get_stream_metadata, a); },
           "Metadata row `id` (0: every row)."},
          {"get_backup_stream_metadata",
           {{"id", kInt}},
           [](const cJSON* a) { return Metadata(zm_get_backup_stream_metadata, a); },
           "Metadata row `id` (0: every row) of the backup stream."},
      });
}

}  // namespace zolo::gateway
