// codec, preset: the codecs the engine can use and the codec parameter presets.
#include <zolo/media.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "context.h"
#include "zolo/media_json/codecs_json.h"

namespace zmctl {

namespace {

struct CodecArgs {
  std::string type;
  std::string name;
  int id = 0;
};

// Preset fields given on the command line; unset ones keep the stored value on "set".
struct PresetArgs {
  int id = 0;
  std::string name;
  std::string video;
  std::string video_parameter;
  std::string audio;
  std::string audio_parameter;
};

template <size_t N>
void Put(char (&field)[N], const std::string& text) {
  if (!text.empty()) std::snprintf(field, N, "%s", text.c_str());
}

void AddPresetOptions(CLI::App* command, PresetArgs* args, bool required) {
  auto* name = command->add_option("--name", args->name, "Preset name");
  auto* video = command->add_option("--video", args->video, "Video codec, e.g. H.264");
  auto* audio = command->add_option("--audio", args->audio, "Audio codec, e.g. AAC");
  command->add_option("--video-param", args->video_parameter,
                      "Video parameters as a JSON object, e.g. '{\"frame_rate\":30}'");
  command->add_option("--audio-param", args->audio_parameter, "Audio parameters as a JSON object");
  if (required) {
    name->required();
    video->required();
    audio->required();
  }
}

void PrintPresets(const Context& context, const std::vector<zm_codec_preset>& presets) {
  if (context.out().Records(presets)) return;
  std::vector<Row> rows;
  for (const auto& p : presets)
    rows.push_back({std::to_string(p.id), p.name, p.video_codec, p.video_codec_parameter,
                    p.audio_codec, p.audio_codec_parameter});
  context.out().Table({"id", "name", "video", "video_param", "audio", "audio_param"}, rows);
}

}  // namespace

void AddCodecCommands(CLI::App& app, Context& context) {
  auto* codec = app.add_subcommand("codec", "Codecs the engine can use");
  codec->require_subcommand(1);
  auto codec_args = std::make_shared<CodecArgs>();
  auto* list = codec->add_subcommand("list", "List codecs (all, or by type, name or id)");
  list->add_option("--type", codec_args->type, "video or audio");
  list->add_option("--name", codec_args->name, "Codec name, e.g. H.264");
  CLI::Option* id_option = list->add_option("--id", codec_args->id, "Codec id");
  list->callback([&context, codec_args, id_option] {
    std::vector<zm_codec> codecs;
    const CodecArgs& a = *codec_args;
    if (!Run(context, "listing codecs", [&] {
          if (id_option->count() > 0) return zm_get_codec(a.id, &codecs);
          if (a.type.empty() && !a.name.empty()) return zm_get_codec(a.name.c_str(), &codecs);
          int result = zm_get_codec(a.type.empty() ? nullptr : a.type.c_str(),
                                    a.name.empty() ? nullptr : a.name.c_str(), &codecs);
          // A name or type that matches nothing is "not found", like a lookup by name.
          return result == 0 && codecs.empty() && !(a.type.empty() && a.name.empty()) ? -5 : result;
        }))
      return;
    if (context.out().Records(codecs)) return;
    std::vector<Row> rows;
    for (const auto& c : codecs) {
      std::string parameters;
      for (const auto& p : c.parameters)
        parameters += (parameters.empty() ? "" : "; ") + std::string(p.name) + "=" + p.value;
      rows.push_back({std::to_string(c.id), c.type, c.name, parameters});
    }
    context.out().Table({"id", "type", "name", "parameters"}, rows);
  });

  auto* preset = app.add_subcommand("preset", "Codec parameter presets");
  preset->require_subcommand(1);
  auto args = std::make_shared<PresetArgs>();
  auto* plist = preset->add_subcommand("list", "List the visible presets (or one by --id)");
  plist->add_option("--id", args->id, "Preset id");
  plist->callback([&context, args] {
    std::vector<zm_codec_preset> presets;
    if (Run(context, "zm_get_codec_preset",
            [&] { return zm_get_codec_preset(args->id, &presets); }))
      PrintPresets(context, presets);
  });

  auto* add = preset->add_subcommand("add", "Add a user preset");
  AddPresetOptions(add, args.get(), true);
  add->callback([&context, args] {
    zm_codec_preset record{};
    std::snprintf(record.video_codec_parameter, sizeof record.video_codec_parameter, "{}");
    std::snprintf(record.audio_codec_parameter, sizeof record.audio_codec_parameter, "{}");
    Put(record.name, args->name);
    Put(record.video_codec, args->video);
    Put(record.video_codec_parameter, args->video_parameter);
    Put(record.audio_codec, args->audio);
    Put(record.audio_codec_parameter, args->audio_parameter);
    if (Run(context, "zm_add_codec_preset", [&] { return zm_add_codec_preset(&record); }))
      context.out().Record({{"id", std::to_string(record.id)}});
  });

  auto* set = preset->add_subcommand("set", "Change a user preset; unset fields are kept");
  set->add_option("ID", args->id, "Preset id")->required();
  AddPresetOptions(set, args.get(), false);
  set->callback([&context, args] {
    bool ok = Run(context, "zm_set_codec_preset", [&] {
      std::vector<zm_codec_preset> found;
      int result = zm_get_codec_preset(args->id, &found);
      if (result != 0 || args->id == 0) return result != 0 ? result : -3;
      zm_codec_preset record = found.front();
      Put(record.name, args->name);
      Put(record.video_codec, args->video);
      Put(record.video_codec_parameter, args->video_parameter);
      Put(record.audio_codec, args->audio);
      Put(record.audio_codec_parameter, args->audio_parameter);
      return zm_set_codec_preset(args->id, &record);
    });
    if (ok) context.out().Message("ok");
  });

  auto* remove = preset->add_subcommand("remove", "Remove a user preset");
  remove->add_option("ID", args->id, "Preset id")->required();
  remove->callback([&context, args] {
    if (Run(context, "zm_remove_codec_preset", [&] { return zm_remove_codec_preset(args->id); }))
      context.out().Message("ok");
  });
}

}  // namespace zmctl
