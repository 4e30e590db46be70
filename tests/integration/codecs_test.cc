// Codecs and presets over the default database: records, refused edits that change
// nothing, the NDI preview policy with the configuration key on and off, removal effects.
#include <gtest/gtest.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "engine_fixture.h"
#include "log_capture.h"

namespace {

using zolo::test::EngineTest;

constexpr int kUserPreset = 6;  // "My Event 1080p", used by the NDI stream "ndi1"
constexpr int kPreviewProfile = 4;

class CodecsTest : public EngineTest {
 protected:
  void SetNdiFollowUp(bool on) {
    sandbox_->WriteFile("/etc/media.conf", "[Engine]\nadd_ndi_preview_stream_simultaneously=" +
                                               std::string(on ? "1" : "0") + "\n");
    zm_release();  // the configuration is read when the library starts
    ASSERT_EQ(zm_init(true), 0);
  }
  static zm_codec_preset Preset(int id) {
    std::vector<zm_codec_preset> out;
    EXPECT_EQ(zm_get_codec_preset(id, &out), 0) << id;
    return out.empty() ? zm_codec_preset{} : out.front();
  }
  static zm_codec_preset Record(const char* name, const char* video, const char* video_parameter,
                                const char* audio = "AAC", const char* audio_parameter = "{}") {
    zm_codec_preset record{};
    auto copy = [](auto& to, const char* from) { std::snprintf(to, sizeof to, "%s", from); };
    copy(record.name, name);
    copy(record.video_codec, video);
    copy(record.video_codec_parameter, video_parameter);
    copy(record.audio_codec, audio);
    copy(record.audio_codec_parameter, audio_parameter);
    return record;
  }
  static std::string Summary(const zm_codec_preset& p) {
    return std::string(p.name) + "|" + p.video_codec + " " + p.video_codec_parameter + "|" +
           p.audio_codec + " " + p.audio_codec_parameter;
  }
  // "name=enable" of every NDI stream.
  static std::string NdiFlags() {
    std::vector<zm_stream> out;
    zm_get_stream_by_pattern("%", &out);
    std::string flags;
    for (const auto& s : out)
      if (std::string(s.destination).rfind("ndi://", 0) == 0)
        flags += std::string(s.name) + "=" + std::to_string(s.enable) + " ";
    return flags;
  }
  std::vector<std::string> Notifications() {
    std::vector<std::string> payloads;
    for (const auto& r : sim_.Requests("change_media_data")) payloads.push_back(r.payload);
    return payloads;
  }
};

TEST_F(CodecsTest, CodecRecordsCarryTheirParameterEntries) {
  std::vector<zm_codec> all;
  ASSERT_EQ(zm_get_codec(nullptr, &all), 0);
  ASSERT_EQ(all.size(), 6u);
  const zm_codec& h264 = all.front();
  EXPECT_EQ(std::string(h264.type) + " " + h264.name, "video H.264");
  ASSERT_EQ(h264.parameters.size(), 3u);
  EXPECT_EQ(std::string(h264.parameters[0].name) + "=" + h264.parameters[0].value,
            "profile=baseline,main,high");
  EXPECT_TRUE(all[2].parameters.empty());  // RAW

  // "result: names" of one query into a fresh vector.
  auto run = [](auto query) {
    std::vector<zm_codec> out;
    std::string text = std::to_string(query(&out)) + ":";
    for (const auto& codec : out) text += std::string(" ") + codec.name;
    return text;
  };
  using Out = std::vector<zm_codec>*;
  EXPECT_EQ(run([](Out out) { return zm_get_codec("OPUS", out); }), "0: OPUS");
  EXPECT_EQ(run([](Out out) { return zm_get_codec("audio", nullptr, out); }), "0: AAC PCM OPUS");
  EXPECT_EQ(run([](Out out) { return zm_get_codec("video", "AAC", out); }), "0:");
  EXPECT_EQ(run([](Out out) { return zm_get_codec(2, out); }), "0: H.265");
  EXPECT_EQ(run([](Out out) { return zm_get_codec("h.264", out); }), "-5:");
  EXPECT_EQ(run([](Out out) { return zm_get_codec(404, out); }), "-5:");
  EXPECT_EQ(zm_get_codec(nullptr, nullptr), -3);
  EXPECT_EQ(zm_get_codec(1, nullptr), -3);
  EXPECT_EQ(zm_get_codec_preset(0, nullptr), -3);
}

TEST_F(CodecsTest, PresetRecordsAndAddedPresets) {
  std::vector<zm_codec_preset> all;
  ASSERT_EQ(zm_get_codec_preset(0, &all), 0);
  ASSERT_EQ(all.size(), 6u);
  EXPECT_EQ(Summary(all[3]),
            "NDI Preview Profile|H.264 "
            R"({"width":640,"height":360,"frame_rate":30,"bitrate":1000,"gop":30})"
            R"(|AAC {"bitrate":96,"samplerate":48000,"channels":2})");
  EXPECT_EQ(zm_get_codec_preset(404, &all), -5);
  EXPECT_EQ(all.size(), 6u);

  zm_codec_preset added = Record("Talk", "H.265", R"({"frame_rate":25})", "OPUS");
  sim_.ClearRequests();
  ASSERT_EQ(zm_add_codec_preset(&added), 0);
  EXPECT_GT(added.id, kUserPreset);
  EXPECT_EQ(Summary(Preset(added.id)), R"(Talk|H.265 {"frame_rate":25}|OPUS {})");
  EXPECT_EQ(
      Notifications(),
      std::vector<std::string>{"{\"type\":0,\"data\":13,\"id\":" + std::to_string(added.id) + "}"});
}

// Refused adds and edits store nothing and announce nothing.
TEST_F(CodecsTest, RefusedChangesLeaveTheDatabaseAlone) {
  const std::string before = Summary(Preset(kUserPreset));
  const std::string builtin = Summary(Preset(1));
  zm_codec_preset good = Record("Renamed", "H.264", R"({"frame_rate":30})");
  struct Case {
    const char* what;
    int result;
    int expected;
  };
  zm_codec_preset records[] = {
      Record("X", "H.266", "{}"),       Record("X", "H.264", "{}", "MP3"),
      Record("X", "H.264", "not json"), Record("X", "H.264", "{}", "AAC", "[1, 2]"),
      Record("", "H.264", "{}"),        Record("1080p60 High", "H.264", "{}"),
      Record("X", "H.264", R"({"a":)")};
  const Case cases[] = {
      {"unknown video codec", zm_set_codec_preset(kUserPreset, &records[0]), -3},
      {"unknown audio codec", zm_set_codec_preset(kUserPreset, &records[1]), -3},
      {"video text not JSON", zm_set_codec_preset(kUserPreset, &records[2]), -3},
      {"audio text not an object", zm_set_codec_preset(kUserPreset, &records[3]), -3},
      {"empty name", zm_set_codec_preset(kUserPreset, &records[4]), -3},
      {"name taken", zm_set_codec_preset(kUserPreset, &records[5]), -2},
      {"null record", zm_set_codec_preset(kUserPreset, nullptr), -3},
      {"built in", zm_set_codec_preset(1, &good), -2},
      {"no such preset", zm_set_codec_preset(404, &good), -5},
      {"add unknown codec", zm_add_codec_preset(&records[0]), -3},
      {"add cut JSON", zm_add_codec_preset(&records[6]), -3},
      {"add name taken", zm_add_codec_preset(&records[5]), -2},
      {"add null", zm_add_codec_preset(nullptr), -3},
      {"remove built in", zm_remove_codec_preset(1), -2},
      {"remove missing", zm_remove_codec_preset(404), -5},
  };
  for (const auto& c : cases) EXPECT_EQ(c.result, c.expected) << c.what;
  EXPECT_EQ(Summary(Preset(kUserPreset)), before);
  EXPECT_EQ(Summary(Preset(1)), builtin);
  std::vector<zm_codec_preset> all;
  ASSERT_EQ(zm_get_codec_preset(0, &all), 0);
  EXPECT_EQ(all.size(), 6u);
  EXPECT_TRUE(Notifications().empty());
}

TEST_F(CodecsTest, NdiPreviewFollowsAnEditedPresetWhenConfigured) {
  // The preview profile's video codec, frame rate and gop afterwards (30 and 30 with H.264
  // when untouched), and whether the NDI streams are enabled afterwards. A frame rate alone
  // leaves the profile's gop as it was.
  struct Case {
    bool on;
    const char *codec, *parameters, *profile_codec;
    int frame_rate, gop;
    bool ndi_enabled;
  };
  const Case cases[] = {
      {true, "H.264", R"({"frame_rate":60,"gop":120})", "H.264", 30, 120, true},
      {true, "H.265", R"({"frame_rate":50,"gop":50})", "H.265", 25, 50, true},
      {true, "H.264", R"({"frame_rate":59,"gop":59})", "H.264", 59, 59, true},
      {true, "H.264", R"({"frame_rate":24})", "H.264", 24, 30, true},
      {true, "RAW", R"({"frame_rate":60})", "H.264", 30, 30, false},
      {false, "H.264", R"({"frame_rate":60,"gop":60})", "H.264", 30, 30, true},
      {false, "RAW", R"({"frame_rate":60})", "H.264", 30, 30, true},
  };
  for (const auto& c : cases) {
    SetNdiFollowUp(c.on);
    const std::string label = std::string(c.on ? "on " : "off ") + c.codec + " " + c.parameters;
    ASSERT_EQ(zm_execute_db_command(
                  "UPDATE stream SET enable = 1 WHERE destination LIKE 'ndi://%'; "
                  "UPDATE codec_parameter_preset SET video_codec_id = 1, video_codec_parameter = "
                  "'{\"width\":640,\"height\":360,\"frame_rate\":30,\"bitrate\":1000,\"gop\":30}' "
                  "WHERE id = 4"),
              0);
    zolo::test::LogCapture log;
    sim_.ClearRequests();
    zm_codec_preset edit = Record("My Event", c.codec, c.parameters);
    ASSERT_EQ(zm_set_codec_preset(kUserPreset, &edit), 0) << label;
    zm_codec_preset profile = Preset(kPreviewProfile);
    EXPECT_EQ(std::string(profile.video_codec) + " " + profile.video_codec_parameter,
              std::string(c.profile_codec) + R"( {"width":640,"height":360,"frame_rate":)" +
                  std::to_string(c.frame_rate) + R"(,"bitrate":1000,"gop":)" +
                  std::to_string(c.gop) + "}")
        << label;
    EXPECT_EQ(NdiFlags(), c.ndi_enabled ? "ndi1=1 preview-ndi-sub=1 " : "ndi1=0 preview-ndi-sub=0 ")
        << label;
    bool raw = std::string(c.codec) == "RAW";
    EXPECT_EQ(log.Has(std::string(raw ? "Disable" : "Enable") + " NDI|HX preview stream: ndi1", 2),
              c.on)
        << label << log.Dump();
    EXPECT_EQ(Notifications(), std::vector<std::string>{R"({"type":1,"data":13,"id":6})"});
  }
}

// Only a preset that an NDI stream uses moves the preview; a stream pointed at another
// preset brings that one into the policy.
TEST_F(CodecsTest, OnlyPresetsOfNdiStreamsMoveThePreview) {
  zm_codec_preset added = Record("Side", "H.264", R"({"frame_rate":60})");
  ASSERT_EQ(zm_add_codec_preset(&added), 0);
  ASSERT_EQ(zm_execute_db_command("UPDATE stream SET enable = 0 WHERE name = 'ndi1'"), 0);
  ASSERT_EQ(zm_set_codec_preset(added.id, &added), 0);
  EXPECT_EQ(NdiFlags(), "ndi1=0 preview-ndi-sub=0 ");

  std::vector<Stream*> found;
  ASSERT_EQ(Stream::QueryByTypeName("network", "ndi1", true, &found), 0);
  ASSERT_EQ(found.size(), 1u);
  CodecParameterPreset* preset = nullptr;
  ASSERT_EQ(CodecParameterPreset::QueryById(added.id, &preset), 0);
  found[0]->codec_parameter_preset(preset);
  delete preset;
  ASSERT_EQ(Stream::Update(found[0]), 0);
  MediaModel::CleanQuery(&found);
  EXPECT_EQ(zm_set_codec_preset(added.id, &added), 0);
  EXPECT_EQ(NdiFlags(), "ndi1=1 preview-ndi-sub=1 ");
  std::vector<zm_stream> ndi;
  ASSERT_EQ(zm_get_stream("network", "ndi1", &ndi), 0);
  EXPECT_EQ(ndi.front().codec_preset_id, added.id);
}

TEST_F(CodecsTest, RemovalLeavesStreamsWithoutThePreset) {
  sim_.ClearRequests();
  ASSERT_EQ(zm_remove_codec_preset(kUserPreset), 0);
  EXPECT_EQ(zm_remove_codec_preset(kUserPreset), -5);
  EXPECT_EQ(Notifications(), std::vector<std::string>{R"({"type":2,"data":13,"id":6})"});
  std::vector<zm_stream> ndi;
  ASSERT_EQ(zm_get_stream("network", "ndi1", &ndi), 0);
  EXPECT_EQ(ndi.front().codec_preset_id, 0);
  std::vector<zm_codec_preset> all;
  ASSERT_EQ(zm_get_codec_preset(0, &all), 0);
  EXPECT_EQ(all.size(), 5u);
}

}  // namespace
