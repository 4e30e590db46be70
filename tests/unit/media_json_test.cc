// The record layer: round trips of records with edge values, the JSON types each kind
// takes, decode errors naming the member, and the signal events.
#include <gtest/gtest.h>
#include <zolo/signals.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "zolo/media_json/audio_json.h"
#include "zolo/media_json/codecs_json.h"
#include "zolo/media_json/mixer_config_json.h"
#include "zolo/media_json/mixer_live_json.h"
#include "zolo/media_json/recordings_json.h"
#include "zolo/media_json/signals_json.h"
#include "zolo/media_json/sources_json.h"
#include "zolo/media_json/storage_info_json.h"
#include "zolo/media_json/streams_json.h"

namespace {

using zolo::JsonHolder;
using zolo::json::FromJson;
using zolo::json::ToJson;

std::string Print(const cJSON* json) {
  char* text = cJSON_PrintUnformatted(json);
  std::string out = text ? text : "";
  cJSON_free(text);
  return out;
}

// JSON text of `record`, and the JSON text of the record read back from it: equal when
// the round trip keeps everything.
template <class T>
std::pair<std::string, std::string> RoundTrip(const T& record) {
  JsonHolder json = ToJson(record);
  JsonHolder reparsed(cJSON_Parse(Print(json.get()).c_str()));
  T back{};
  std::string error = FromJson(reparsed.get(), "record", &back);
  EXPECT_EQ(error, "");
  return {Print(json.get()), Print(ToJson(back).get())};
}

template <size_t N>
void Fill(char (&text)[N], const std::string& value) {
  std::strncpy(text, value.c_str(), N - 1);
}

// 170 three-byte characters and one byte: 511 bytes, the most a 512-byte text holds.
std::string LongUtf8() {
  std::string text;
  for (int i = 0; i < 170; ++i) text += "\xe2\x82\xac";  // the euro sign
  return text + "x";
}

struct RoundTripCase {
  const char* what;
  std::function<std::pair<std::string, std::string>()> run;
};

TEST(MediaJson, RecordsSurviveARoundTrip) {
  const std::vector<RoundTripCase> cases = {
      {"stream with negative ids and long UTF-8 text",
       [] {
         zm_stream stream{};
         stream.id = -7;
         stream.channel_id = -2147483647 - 1;
         Fill(stream.name, LongUtf8());
         Fill(stream.destination, "srt://[::1]:9000?latency=\"120\"\\n");
         return RoundTrip(stream);
       }},
      {"empty stream", [] { return RoundTrip(zm_stream{}); }},
      {"codec without parameters", [] { return RoundTrip(zm_codec{}); }},
      {"codec with parameters",
       [] {
         zm_codec codec{};
         codec.id = 3;
         codec.parameters.resize(2);
         Fill(codec.parameters[1].value, "baseline,main,high");
         return RoundTrip(codec);
       }},
      {"layout with windows",
       [] {
         zm_layout layout{};
         layout.custom = 1;
         layout.video_layouts = {{1, 0.5, 0.25, -0.125, 1e-9, 3, 1}, {-4, 1, 1, 0, 0, 0, 0}};
         return RoundTrip(layout);
       }},
      {"overlay with origins and positions",
       [] {
         zm_overlay overlay{};
         overlay.origins = {"", "a.png"};
         overlay.positions = {{0.1, 0.9}};
         return RoundTrip(overlay);
       }},
      {"recording with videos and the largest exact times",
       [] {
         zm_recording recording{};
         recording.id = 4294967295u;
         recording.recorded_at = 9007199254740992ull;
         recording.videos.resize(1);
         recording.videos[0].note = "\xe6\x97\xa5\xe6\x9c\xac";
         return RoundTrip(recording);
       }},
      {"bookmark file with items",
       [] {
         zm_recording_bookmark bookmark;
         bookmark.path = "/r/bookmark.json";
         bookmark.items = {{0, "", "", "manual", ""}, {12, "goal", "s.jpg", "manual", "d"}};
         bookmark.count = 2;
         return RoundTrip(bookmark);
       }},
      {"channel sources",
       [] {
         zm_channel_sources sources{5, {1, -2}, {}};
         return RoundTrip(sources);
       }},
      {"source flags",
       [] {
         zm_source source{};
         source.fixed = 1;
         source.audio_delay = -2000;
         return RoundTrip(source);
       }},
      {"storage",
       [] {
         return RoundTrip(zm_storage{"SD", 1ull << 40, 0, -1});
       }},
      {"audio port", [] { return RoundTrip(zm_audio_info{}); }},
  };
  for (const RoundTripCase& c : cases) {
    auto [first, second] = c.run();
    EXPECT_EQ(first, second) << c.what;
  }
}

TEST(MediaJson, KindsHaveTheirJsonTypes) {
  zm_source source{};
  source.fixed = 1;
  Fill(source.name, "HDMI1");
  JsonHolder json = ToJson(source);
  EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(json.get(), "fixed")));
  EXPECT_TRUE(cJSON_IsFalse(cJSON_GetObjectItem(json.get(), "available")));
  EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItem(json.get(), "id")));
  EXPECT_STREQ(cJSON_GetObjectItem(json.get(), "name")->valuestring, "HDMI1");

  zm_layout layout{};
  layout.video_layouts.resize(1);
  json = ToJson(layout);
  EXPECT_TRUE(cJSON_IsFalse(cJSON_GetObjectItem(json.get(), "custom")));
  const cJSON* windows = cJSON_GetObjectItem(json.get(), "video_layouts");
  ASSERT_TRUE(cJSON_IsArray(windows));
  EXPECT_TRUE(cJSON_IsObject(windows->child));

  // A text that fills its array without a terminator is cut at the capacity.
  zm_metadata metadata{};
  std::memset(metadata.key, 'k', sizeof metadata.key);
  json = ToJson(metadata);
  EXPECT_EQ(std::strlen(cJSON_GetObjectItem(json.get(), "key")->valuestring), 512u);
}

struct DecodeCase {
  const char* json;
  std::function<std::string(const cJSON*)> decode;
  const char* error;
};

template <class T>
std::function<std::string(const cJSON*)> Decoder(const char* name) {
  return [name](const cJSON* json) {
    T record{};
    return FromJson(json, name, &record);
  };
}

TEST(MediaJson, DecodeErrorsNameTheMember) {
  const std::string long_name(512, 'n');
  const std::string too_long = R"({"name":")" + long_name + R"("})";
  const std::vector<DecodeCase> cases = {
      {R"({"id":1,"w":"a","h":1,"x":0,"y":0})", Decoder<zm_video_layout>("window"),
       "window.w must be a number"},
      {R"({"video_layouts":[{"id":1,"w":1,"h":1,"x":0}]})", Decoder<zm_layout>("layout"),
       "layout.video_layouts[0].y is missing"},
      {R"({"name":"a","video_codec":"H.264"})", Decoder<zm_codec_preset>("preset"),
       "preset.audio_codec is missing"},
      {R"({"nmae":"x"})", Decoder<zm_theme>("theme"), "theme.nmae is not a member of zm_theme"},
      {too_long.c_str(), Decoder<zm_stream>("stream"),
       "stream.name must be shorter than 512 bytes"},
      {R"({"auto_adjust":1.5,"phase":0,"position":0})", Decoder<zm_input_param>("param"),
       "param.auto_adjust must be a 32-bit integer"},
      {R"({"auto_adjust":2147483648,"phase":0,"position":0})", Decoder<zm_input_param>("param"),
       "param.auto_adjust must be a 32-bit integer"},
      {R"({"fixed":1})", Decoder<zm_source>("source"), "source.fixed must be a boolean"},
      {R"({"id":-1})", Decoder<zm_recording>("recording"),
       "recording.id must be an unsigned 32-bit integer"},
      {R"({"path":"b","items":{}})", Decoder<zm_recording_bookmark>("bookmark"),
       "bookmark.items must be an array"},
      {R"({"path":"b","items":[{"text":"t"}]})", Decoder<zm_recording_bookmark>("bookmark"),
       "bookmark.items[0].time is missing"},
      {R"({"origins":["a",1],"path":"p","name":"n"})", Decoder<zm_overlay>("overlay"),
       "overlay.origins[1] must be a string"},
      {R"({"name":"c","brightness":null,"contrast":0,"saturation":0,"hue":0})",
       Decoder<zm_output_color>("color"), "color.brightness must be a 32-bit integer"},
      {"[]", Decoder<zm_theme>(""), "zm_theme must be an object"},
  };
  for (const DecodeCase& c : cases) {
    JsonHolder json(cJSON_Parse(c.json));
    ASSERT_TRUE(json) << c.json;
    EXPECT_EQ(c.decode(json.get()), c.error) << c.json;
  }
  // A missing argument (null JSON) is refused too.
  EXPECT_EQ(Decoder<zm_theme>("theme")(nullptr), "theme must be an object");
}

TEST(MediaJson, SignalsHaveTypedEvents) {
  const auto& names = zolo::json::SignalNames();
  EXPECT_EQ(names.size(), 39u);
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());

  void* level =
      media_sig_audio_level_parser(R"({"Name":"in1","Level":-20,"Left":-21,"Right":-19})");
  ASSERT_NE(level, nullptr);
  EXPECT_EQ(Print(zolo::json::SignalToJson("audio_level", level).get()),
            R"({"name":"in1","level":-20,"left":-21,"right":-19})");
  media_sig_audio_level_releaser(level);

  void* status = media_sig_status_parser(
      R"({"State":"recording","Streams":[{"Name":"movie1","Destination":"file:///m"}],"Restart":true})");
  ASSERT_NE(status, nullptr);
  EXPECT_EQ(
      Print(zolo::json::SignalToJson("status", status).get()),
      R"({"state":"recording","streams":[{"name":"movie1","destination":"file:///m"}],"restart":true})");
  media_sig_status_releaser(status);

  void* content = media_sig_webrtc_content_parser(R"({"Name":"w","Content":"sdp"})");
  ASSERT_NE(content, nullptr);
  EXPECT_EQ(Print(zolo::json::SignalToJson("webrtc_content", content).get()),
            R"({"name":"w","content":"sdp"})");
  media_sig_webrtc_content_releaser(content);

  EXPECT_EQ(zolo::json::SignalToJson("no_such_signal", &names), nullptr);
  EXPECT_EQ(zolo::json::SignalToJson("audio_level", nullptr), nullptr);
}

}  // namespace
