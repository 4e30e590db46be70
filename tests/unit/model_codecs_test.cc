// Codecs and codec parameter presets against a fresh default database: queries, preset
// changes, the refusal of built-in presets, removal effects and failures.
#include <gtest/gtest.h>
#include <zolo_model/codec.h>
#include <zolo_model/codec_parameter_preset.h>
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

#include <memory>
#include <string>
#include <vector>

#include "model_fixture.h"

namespace {

class CodecModelTest : public zolo::test::ModelTest {
 protected:
  static std::vector<std::string> Names(const std::vector<Codec*>& codecs) {
    std::vector<std::string> names;
    for (auto* codec : codecs) names.push_back(codec->name());
    return names;
  }
  static std::unique_ptr<Codec> CodecNamed(const std::string& name) {
    Codec* codec = nullptr;
    EXPECT_EQ(Codec::QueryByName(name, &codec), 0) << name;
    return std::unique_ptr<Codec>(codec);
  }
  static std::unique_ptr<CodecParameterPreset> PresetNamed(const std::string& name) {
    CodecParameterPreset* preset = nullptr;
    EXPECT_EQ(CodecParameterPreset::QueryByName(name, &preset), 0) << name;
    return std::unique_ptr<CodecParameterPreset>(preset);
  }
  static std::unique_ptr<Stream> StreamNamed(const char* name) {
    std::vector<Stream*> found;
    EXPECT_EQ(Stream::QueryByTypeName(nullptr, name, true, &found), 0);
    EXPECT_EQ(found.size(), 1u) << name;
    return std::unique_ptr<Stream>(found.empty() ? nullptr : found[0]);
  }
};

TEST_F(CodecModelTest, CodecQueriesByTypeAndName) {
  struct Case {
    const char* type;
    const char* name;
    std::vector<std::string> names;
  };
  const Case cases[] = {
      {nullptr, nullptr, {"H.264", "H.265", "RAW", "AAC", "PCM", "OPUS"}},
      {"video", nullptr, {"H.264", "H.265", "RAW"}},
      {"audio", "AAC", {"AAC"}},
      {"video", "AAC", {}},
      {nullptr, "OPUS", {"OPUS"}},
      {"subtitle", nullptr, {}},
      {"video", "'; DROP TABLE codec; --", {}},
  };
  for (const auto& c : cases) {
    std::vector<Codec*> found;
    EXPECT_EQ(Codec::QueryByTypeName(c.type, c.name, &found), 0);
    EXPECT_EQ(Names(found), c.names) << (c.type ? c.type : "-") << "/" << (c.name ? c.name : "-");
    MediaModel::CleanQuery(&found);
  }
  std::vector<Codec*> all;
  ASSERT_EQ(Codec::QueryAll(&all), 0);
  EXPECT_EQ(all.size(), 6u);
  Codec* by_id = nullptr;
  ASSERT_EQ(Codec::QueryById(all[3]->id(), &by_id), 0);
  EXPECT_EQ(by_id->name(), "AAC");
  EXPECT_EQ(by_id->type(), "audio");
  delete by_id;
  MediaModel::CleanQuery(&all);
  EXPECT_EQ(Codec::QueryById(404, &by_id), -5);
  EXPECT_EQ(Codec::QueryByName("h.264", &by_id), -5);  // names match exactly
}

TEST_F(CodecModelTest, CodecParameterEntries) {
  auto h264 = CodecNamed("H.264");
  ASSERT_EQ(h264->parameters().size(), 3u);
  EXPECT_EQ(h264->parameters()[0].name, "profile");
  EXPECT_EQ(h264->parameters()[0].value, "baseline,main,high");
  EXPECT_TRUE(CodecNamed("RAW")->parameters().empty());
  // Stored lists that are damaged give what can be read, never a crash.
  const std::pair<const char*, size_t> stored[] = {
      {"not json", 0},
      {"{\"name\": \"a\"}", 0},
      {"[1, \"x\", {\"name\": \"a\", \"value\": \"b\"}, {\"name\": 3}]", 2},
  };
  for (const auto& [text, count] : stored) {
    auto* db = MediaModel::Instance()->database();
    {
      auto lock = db->Lock();
      auto& update = db->Prepared("UPDATE codec SET parameters = ? WHERE name = 'PCM'");
      update.bind(1, text);
      update.exec();
    }
    auto pcm = CodecNamed("PCM");
    EXPECT_EQ(pcm->parameters().size(), count) << text;
    if (count == 2) {
      EXPECT_EQ(pcm->parameters()[0].value, "b");
      EXPECT_EQ(pcm->parameters()[1].name, "");
    }
  }
}

TEST_F(CodecModelTest, PresetQueries) {
  Exec("UPDATE codec_parameter_preset SET visible = 0 WHERE name = 'Raw Capture'");
  std::vector<CodecParameterPreset*> visible;
  ASSERT_EQ(CodecParameterPreset::QueryVisible(&visible), 0);
  ASSERT_EQ(visible.size(), 5u);
  for (auto* preset : visible) EXPECT_NE(preset->name(), "Raw Capture");
  MediaModel::CleanQuery(&visible);

  auto ndi = PresetNamed("NDI Preview Profile");
  EXPECT_TRUE(ndi->builtin());
  EXPECT_EQ(ndi->video_codec_name(), "H.264");
  EXPECT_EQ(ndi->audio_codec_name(), "AAC");
  CodecParameterPreset* by_id = nullptr;
  ASSERT_EQ(CodecParameterPreset::QueryById(ndi->id(), &by_id), 0);
  EXPECT_EQ(by_id->video_codec_parameter(), ndi->video_codec_parameter());
  delete by_id;
  EXPECT_FALSE(PresetNamed("My Event 1080p")->builtin());
  EXPECT_EQ(CodecParameterPreset::QueryByName("my event 1080p", &by_id), -5);
  EXPECT_EQ(CodecParameterPreset::QueryById(0, &by_id), -5);
}

TEST_F(CodecModelTest, PresetAddUpdateAndCodecs) {
  CodecParameterPreset preset("Talk 720p", R"({"frame_rate":30,"gop":60})", R"({"bitrate":96})");
  auto h265 = CodecNamed("H.265");
  auto opus = CodecNamed("OPUS");
  preset.video_codec(h265.get());
  preset.audio_codec(opus.get());
  ASSERT_EQ(CodecParameterPreset::Add(&preset), 0);
  ASSERT_GT(preset.id(), 0);
  CodecParameterPreset duplicate("Talk 720p", "{}", "{}");
  EXPECT_EQ(CodecParameterPreset::Add(&duplicate), -2);

  auto read = PresetNamed("Talk 720p");
  EXPECT_FALSE(read->builtin());
  EXPECT_EQ(read->video_codec_name(), "H.265");
  EXPECT_EQ(read->audio_codec_name(), "OPUS");
  EXPECT_EQ(read->video_codec_parameter(), R"({"frame_rate":30,"gop":60})");

  read->name("Talk 1080p");
  read->video_codec(CodecNamed("H.264").get());
  read->audio_codec(nullptr);
  read->video_codec_parameter(R"({"frame_rate":60})");
  read->audio_codec_parameter("{}");
  ASSERT_EQ(CodecParameterPreset::Update(read.get()), 0);
  auto again = PresetNamed("Talk 1080p");
  EXPECT_EQ(again->video_codec_name(), "H.264");
  EXPECT_EQ(again->audio_codec_name(), "");
  EXPECT_EQ(again->audio_codec_id(), 0);
  EXPECT_EQ(again->video_codec_parameter(), R"({"frame_rate":60})");

  // Renaming onto a taken name is refused; the stored preset keeps its name.
  again->name("1080p60 High");
  EXPECT_EQ(CodecParameterPreset::Update(again.get()), -2);
  EXPECT_EQ(PresetNamed("Talk 1080p")->id(), preset.id());

  // The engine's own policies keep built-in presets in step, so they can be stored.
  auto ndi = PresetNamed("NDI Preview Profile");
  ndi->video_codec_parameter(R"({"frame_rate":25,"gop":50})");
  EXPECT_EQ(CodecParameterPreset::Update(ndi.get()), 0);
  EXPECT_EQ(PresetNamed("NDI Preview Profile")->video_codec_parameter(),
            R"({"frame_rate":25,"gop":50})");
}

TEST_F(CodecModelTest, RemovalRefusesBuiltInAndClearsStreams) {
  auto builtin = PresetNamed("1080p60 High");
  EXPECT_EQ(CodecParameterPreset::Remove(builtin->id()), -2);
  EXPECT_EQ(StreamNamed("movie1")->codec_parameter_preset()->id(), builtin->id());

  auto user = PresetNamed("My Event 1080p");
  Exec("UPDATE stream SET codec_parameter_preset_id = " + std::to_string(user->id()) +
       " WHERE name IN ('movie2', 'rtmp1')");
  ASSERT_EQ(CodecParameterPreset::Remove(user->id()), 0);
  EXPECT_EQ(CodecParameterPreset::Remove(user->id()), -5);
  for (const char* name : {"movie2", "rtmp1"}) {
    auto stream = StreamNamed(name);
    EXPECT_EQ(stream->codec_parameter_preset(), nullptr) << name;
  }
  EXPECT_NE(StreamNamed("movie1")->codec_parameter_preset(), nullptr);
  EXPECT_EQ(CodecParameterPreset::Update(user.get()), -5);
}

TEST_F(CodecModelTest, MissingOutputsAndDisconnectedModel) {
  EXPECT_EQ(Codec::QueryAll(nullptr), -3);
  EXPECT_EQ(Codec::QueryById(1, nullptr), -3);
  EXPECT_EQ(Codec::QueryByTypeName("video", nullptr, nullptr), -3);
  EXPECT_EQ(CodecParameterPreset::QueryById(1, nullptr), -3);
  EXPECT_EQ(CodecParameterPreset::QueryVisible(nullptr), -3);
  EXPECT_EQ(CodecParameterPreset::Add(nullptr), -3);
  EXPECT_EQ(CodecParameterPreset::Update(nullptr), -3);

  auto kept = PresetNamed("My Event 1080p");
  MediaModel::Instance()->Release();
  std::vector<Codec*> codecs;
  std::vector<CodecParameterPreset*> presets;
  Codec* codec = nullptr;
  CodecParameterPreset* preset = nullptr;
  const int results[] = {
      Codec::QueryAll(&codecs),
      Codec::QueryByName("H.264", &codec),
      Codec::QueryByTypeName(nullptr, nullptr, &codecs),
      CodecParameterPreset::QueryById(1, &preset),
      CodecParameterPreset::QueryVisible(&presets),
      CodecParameterPreset::Add(kept.get()),
      CodecParameterPreset::Update(kept.get()),
      CodecParameterPreset::Remove(kept->id()),
  };
  for (size_t i = 0; i < std::size(results); ++i) EXPECT_EQ(results[i], -1) << i;
  EXPECT_TRUE(codecs.empty());
  EXPECT_TRUE(presets.empty());
  EXPECT_EQ(codec, nullptr);
  EXPECT_EQ(preset, nullptr);
}

}  // namespace
