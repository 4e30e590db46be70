// Codecs and codec parameter presets against a fresh default database: queries, preset
// changes, the refusal of built-in presets, removal effects and failures.
#include <gtest/gtest.h>
#include <zolo_model/codec.h>
#include <zolo_model/codec_parameter_preset.h>
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "model_fixture.h"

namespace {

using Preset = CodecParameterPreset;

class CodecModelTest : public zolo::test::ModelTest {
 protected:
  // The codec or preset called `name`, owned.
  template <class T>
  static std::unique_ptr<T> Named(const std::string& name) {
    T* object = nullptr;
    EXPECT_EQ(T::QueryByName(name, &object), 0) << name;
    return std::unique_ptr<T>(object);
  }
  static std::string Summary(const Preset& p) {
    return std::string(p.builtin() ? "builtin " : "user ") + p.video_codec_name() + "/" +
           p.audio_codec_name() + " " + p.video_codec_parameter();
  }
  // Ids of the presets the streams `names` use; 0 for none.
  static std::vector<int> PresetIdsOf(std::initializer_list<const char*> names) {
    std::vector<int> ids;
    for (const char* name : names) {
      std::vector<Stream*> found;
      EXPECT_EQ(Stream::QueryByTypeName(nullptr, name, true, &found), 0);
      auto* preset = found.size() == 1 ? found[0]->codec_parameter_preset() : nullptr;
      ids.push_back(preset ? preset->id() : 0);
      MediaModel::CleanQuery(&found);
    }
    return ids;
  }
};

TEST_F(CodecModelTest, CodecsAreFoundByTypeAndNameWithTheirParameters) {
  // Names match exactly, not ignoring case.
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {nullptr, nullptr, "H.264 H.265 RAW AAC PCM OPUS "},
      {"video", nullptr, "H.264 H.265 RAW "},
      {"audio", "AAC", "AAC "},
      {"video", "AAC", ""},
      {nullptr, "OPUS", "OPUS "},
      {nullptr, "h.264", ""},
      {nullptr, "%", ""},
      {"subtitle", nullptr, ""},
      {"video", "'; DROP TABLE codec; --", ""},
  };
  for (const auto& [type, name, expected] : cases) {
    std::vector<Codec*> found;
    EXPECT_EQ(Codec::QueryByTypeName(type, name, &found), 0);
    std::string names;
    for (auto* codec : found) names += codec->name() + " ";
    EXPECT_EQ(names, expected) << (type ? type : "-") << "/" << (name ? name : "-");
    MediaModel::CleanQuery(&found);
  }
  Codec* by_id = nullptr;
  ASSERT_EQ(Codec::QueryById(Named<Codec>("AAC")->id(), &by_id), 0);
  EXPECT_EQ(std::unique_ptr<Codec>(by_id)->type(), "audio");
  EXPECT_EQ(Codec::QueryById(404, &by_id), -5);

  // Stored parameter lists that are damaged give what can be read, never a crash.
  const std::pair<const char*, const char*> stored[] = {
      {"[]", ""},
      {"not json", ""},
      {"{\"name\": \"a\"}", ""},
      {"[1, \"x\", {\"name\": \"a\", \"value\": \"b\"}, {\"name\": 3}]", "a=b;=;"},
  };
  for (const auto& [text, entries] : stored) {
    Exec(std::string("UPDATE codec SET parameters = '") + text + "' WHERE name = 'PCM'");
    std::string read;
    auto pcm = Named<Codec>("PCM");
    for (const auto& entry : pcm->parameters()) read += entry.name + "=" + entry.value + ";";
    EXPECT_EQ(read, entries) << text;
  }
}

TEST_F(CodecModelTest, PresetsAreListedAddedUpdatedAndRemoved) {
  Exec("UPDATE codec_parameter_preset SET visible = 0 WHERE name = 'Raw Capture'");
  std::vector<Preset*> visible;
  ASSERT_EQ(Preset::QueryVisible(&visible), 0);
  std::string names;
  for (auto* preset : visible) names += preset->name() + ";";
  MediaModel::CleanQuery(&visible);
  EXPECT_EQ(names, "1080p60 High;1080p30 HEVC;720p30 Stream;NDI Preview Profile;My Event 1080p;");

  Preset preset("Talk 720p", R"({"gop":60})", R"({"bitrate":96})");
  preset.video_codec(Named<Codec>("H.265").get());
  preset.audio_codec(Named<Codec>("OPUS").get());
  ASSERT_EQ(Preset::Add(&preset), 0);
  Preset duplicate("Talk 720p", "{}", "{}");
  EXPECT_EQ(Preset::Add(&duplicate), -2);
  Preset* by_id = nullptr;
  ASSERT_EQ(Preset::QueryById(preset.id(), &by_id), 0);
  std::unique_ptr<Preset> read(by_id);
  EXPECT_EQ(Summary(*read), "user H.265/OPUS {\"gop\":60}");

  read->name("Talk 1080p");
  read->video_codec(Named<Codec>("H.264").get());
  read->audio_codec(nullptr);
  read->video_codec_parameter(R"({"gop":30})");
  ASSERT_EQ(Preset::Update(read.get()), 0);
  auto again = Named<Preset>("Talk 1080p");
  EXPECT_EQ(Summary(*again), "user H.264/ {\"gop\":30}");

  // Renaming onto a taken name is refused; the stored preset keeps its name.
  again->name("1080p60 High");
  EXPECT_EQ(Preset::Update(again.get()), -2);
  EXPECT_EQ(Named<Preset>("Talk 1080p")->id(), preset.id());

  // The engine's own policies keep built-in presets in step, so they can be stored.
  auto ndi = Named<Preset>("NDI Preview Profile");
  ndi->video_codec_parameter(R"({"gop":50})");
  EXPECT_EQ(Preset::Update(ndi.get()), 0);
  EXPECT_EQ(Summary(*Named<Preset>("NDI Preview Profile")), "builtin H.264/AAC {\"gop\":50}");

  // Built-in presets are never removed; removing another clears it from its streams.
  const int builtin = Named<Preset>("1080p60 High")->id();
  EXPECT_EQ(Preset::Remove(builtin), -2);

  auto user = Named<Preset>("My Event 1080p");
  Exec("UPDATE stream SET codec_parameter_preset_id = " + std::to_string(user->id()) +
       " WHERE name IN ('movie2', 'rtmp1')");
  ASSERT_EQ(Preset::Remove(user->id()), 0);
  EXPECT_EQ(Preset::Remove(user->id()), -5);
  EXPECT_EQ(PresetIdsOf({"movie1", "movie2", "rtmp1"}), (std::vector<int>{builtin, 0, 0}));
  EXPECT_EQ(Preset::Update(user.get()), -5);
}

// Missing outputs are refused before the database is asked; with no database every call
// fails and returns nothing.
TEST_F(CodecModelTest, MissingOutputsAndDisconnectedModel) {
  auto kept = Named<Preset>("My Event 1080p");
  MediaModel::Instance()->Release();
  std::vector<Codec*> codecs;
  std::vector<Preset*> presets;
  Codec* codec = nullptr;
  Preset* preset = nullptr;
  const std::pair<int, int> results[] = {
      {Codec::QueryAll(nullptr), -3},
      {Codec::QueryById(1, nullptr), -3},
      {Codec::QueryByTypeName("video", nullptr, nullptr), -3},
      {Preset::QueryById(1, nullptr), -3},
      {Preset::QueryVisible(nullptr), -3},
      {Preset::Add(nullptr), -3},
      {Preset::Update(nullptr), -3},
      {Codec::QueryAll(&codecs), -1},
      {Codec::QueryByName("H.264", &codec), -1},
      {Codec::QueryByTypeName(nullptr, nullptr, &codecs), -1},
      {Preset::QueryById(1, &preset), -1},
      {Preset::QueryVisible(&presets), -1},
      {Preset::Add(kept.get()), -1},
      {Preset::Update(kept.get()), -1},
      {Preset::Remove(kept->id()), -1},
  };
  for (size_t i = 0; i < std::size(results); ++i)
    EXPECT_EQ(results[i].first, results[i].second) << i;
  EXPECT_TRUE(codecs.empty() && presets.empty());
  EXPECT_TRUE(codec == nullptr && preset == nullptr);
}

}  // namespace
