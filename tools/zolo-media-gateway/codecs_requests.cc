// Codecs and codec parameter presets.
#include <zolo/media/codecs.h>

#include "request_helpers.h"
#include "zolo/media_json/codecs_json.h"

namespace zolo::gateway {
namespace {

constexpr ParamType kInt = ParamType::kInteger;
constexpr ParamType kText = ParamType::kString;

// By `id`, or by `type` and / or `name` (absent: any).
Outcome GetCodec(const cJSON* args) {
  std::vector<zm_codec> out;
  int code = 0;
  if (Has(args, "id"))
    code = zm_get_codec(IntArg(args, "id"), &out);
  else if (Has(args, "type"))
    code = zm_get_codec(CStr(OptionalText(args, "type")), CStr(OptionalText(args, "name")), &out);
  else
    code = zm_get_codec(CStr(OptionalText(args, "name")), &out);
  return WithList(code, "codecs", out);
}

Outcome AddCodecPreset(const cJSON* args) {
  zm_codec_preset preset{};
  Outcome refusal;
  if (!RecordArg(args, "preset", &preset, &refusal)) return refusal;
  int code = zm_add_codec_preset(&preset);
  return code < 0 ? Code(code) : WithNumber(code, "id", preset.id);
}

Outcome SetCodecPreset(const cJSON* args) {
  zm_codec_preset preset{};
  Outcome refusal;
  if (!RecordArg(args, "preset", &preset, &refusal)) return refusal;
  return Code(zm_set_codec_preset(IntArg(args, "id"), &preset));
}

}  // namespace

void AddCodecRequests(RequestTable& table) {
  table.insert(table.end(),
               {
                   {"get_codec",
                    {{"id", kInt, false}, {"type", kText, false}, {"name", kText, false}},
                    GetCodec,
                    "Codec `id`, or the codecs of `type` and `name` (absent: any)."},
                   {"get_codec_preset",
                    {{"id", kInt}},
                    [](const cJSON* a) {
                      std::vector<zm_codec_preset> out;
                      int code = zm_get_codec_preset(IntArg(a, "id"), &out);
                      return WithList(code, "presets", out);
                    },
                    "Codec preset `id`, or every visible preset for 0."},
                   {"add_codec_preset",
                    {{"preset", ParamType::kObject}},
                    AddCodecPreset,
                    "Adds a user preset (name, codecs, parameter texts); gives its id."},
                   {"set_codec_preset",
                    {{"id", kInt}, {"preset", ParamType::kObject}},
                    SetCodecPreset,
                    "Replaces the user preset `id`."},
                   {"remove_codec_preset",
                    {{"id", kInt}},
                    [](const cJSON* a) { return Code(zm_remove_codec_preset(IntArg(a, "id"))); },
                    "Removes the user preset `id`."},
               });
}

}  // namespace zolo::gateway
