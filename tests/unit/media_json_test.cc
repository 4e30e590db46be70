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

struct SignalJsonCase {
  const char* name;
  void* (*parse)(const char*);
  void (*release)(void*);
  const char* payload;  // each key with its own value, so a member moved shows
  const char* json;
};

#define SIGNAL(name, stem) name, media_sig_##stem##_parser, media_sig_##stem##_releaser

// Every signal's parsed record as its event data, whole: member names, order and JSON types.
TEST(MediaJson, EverySignalsRecordHasItsWholeTypedJson) {
  // clang-format off
  const std::vector<SignalJsonCase> cases = {
      {SIGNAL("status", status), R"({"State":"recording","Streams":[{"Name":"movie1","Destination":"file:///m"},{"Name":"rtmp1"}],"Restart":true})", R"({"state":"recording","streams":[{"name":"movie1","destination":"file:///m"},{"name":"rtmp1","destination":""}],"restart":true})"},
      {SIGNAL("video_layout", video_layout), R"({"Id":3,"Group":4,"Mixer":"m0"})", R"({"id":3,"group":4,"mixer":"m0"})"},
      {SIGNAL("video_background", video_background), R"({"Id":2,"Mixer":"m1"})", R"({"id":2,"mixer":"m1"})"},
      {SIGNAL("video_foreground", video_foreground), R"({"Id":3,"Mixer":"m2"})", R"({"id":3,"mixer":"m2"})"},
      {SIGNAL("video_overlay", video_overlay), R"({"Id":4,"Mixer":"m3"})", R"({"id":4,"mixer":"m3"})"},
      {SIGNAL("video_system_overlay", video_system_overlay), R"({"Id":5,"Mixer":"m4"})", R"({"id":5,"mixer":"m4"})"},
      {SIGNAL("streaming_duration", streaming_duration), R"({"Name":"movie1","Duration":61,"Type":7})", R"({"name":"movie1","duration":61,"type":7})"},
      {SIGNAL("audio_level", audio_level), R"({"Name":"in1","Level":-20,"Left":-21,"Right":-19})", R"({"name":"in1","level":-20,"left":-21,"right":-19})"},
      {SIGNAL("audio_volume", audio_volume), R"({"Name":"out1","Volume":80,"Mute":1})", R"({"name":"out1","volume":80,"mute":true})"},
      {SIGNAL("audio_type", audio_type), R"({"Name":"in1","Type":2})", R"({"name":"in1","type":2})"},
      {SIGNAL("channel_status", channel_status), R"({"Id":6,"Name":"HDMI1","Status":3,"Capture":1})", R"({"id":6,"name":"HDMI1","status":3,"capture":true})"},
      {SIGNAL("video_file_status", rec_file_status), R"({"Stream":"movie1","Url":"file:///a.mp4","Status":1,"MaxSize":4096,"Backup":2})", R"({"stream":"file:///a.mp4","url":"file:///a.mp4","status":1,"max_size":4096,"backup":2})"},
      {SIGNAL("video_file_updated", rec_file_update), R"({"Stream":"movie1","Url":"file:///a.mp4","Offset":10,"Size":20,"Backup":30})", R"({"stream":"movie1","url":"file:///a.mp4","offset":10,"size":20,"backup":30})"},
      {SIGNAL("bookmark_added", bookmark_added), R"({"Time":12,"Text":"goal","Mode":13})", R"({"time":12,"text":"goal","mode":13})"},
      {SIGNAL("bookmark_removed", bookmark_removed), R"({"Time":14,"Text":"miss"})", R"({"time":14,"text":"miss"})"},
      {SIGNAL("recording_ready", recording_ready), R"({"Id":7,"Name":"rec7"})", R"({"id":7,"name":"rec7"})"},
      {SIGNAL("recording_created", recording_created), R"({"Id":8,"Name":"rec8"})", R"({"id":8,"name":"rec8"})"},
      {SIGNAL("storage_status", storage_status), R"({"Status":1,"Storage":"SD","Index":2})", R"({"status":1,"storage":"SD","index":2})"},
      {SIGNAL("channel_source_error", channel_source_error), R"({"Channel":"RTSP1","SourceType":1,"Address":"rtsp://x","Code":-3})", R"({"channel":"RTSP1","source_type":1,"address":"rtsp://x","code":-3})"},
      {SIGNAL("stream_error", stream_error), R"({"Stream":"rtmp1","Url":"rtmp://x","Code":5})", R"({"stream":"rtmp1","url":"rtmp://x","code":5})"},
      {SIGNAL("recording_bookmark_updated", recording_bookmark_updated), R"({"Url":"file:///b.json","Code":-4})", R"({"url":"file:///b.json","code":-4})"},
      {SIGNAL("record_limit_reached", record_limit_reached), R"({"Type":1,"Name":"movie1","Criteria":2,"Index":3})", R"({"type":1,"name":"movie1","criteria":2,"index":3})"},
      {SIGNAL("stream_status", stream_status), R"({"Name":"rtmp1","Status":"connected"})", R"({"name":"rtmp1","status":"connected"})"},
      {SIGNAL("streaming_state", streaming_state), R"({"State":"recording","Flags":"persist"})", R"({"state":"recording","flags":"persist"})"},
      {SIGNAL("output_color_changed", output_color_changed), R"({"Name":"hdmi","Brightness":1,"Contrast":2,"Saturation":3,"Hue":4})", R"({"name":"hdmi","brightness":1,"contrast":2,"saturation":3,"hue":4})"},
      {SIGNAL("display_changed", display_changed), R"({"Name":"hdmi","Resolution":5})", R"({"name":"hdmi","resolution":5})"},
      {SIGNAL("media_data_changed", media_data_changed), R"({"Type":1,"Data":2,"Id":3,"Payload":"p"})", R"({"type":1,"data":2,"id":3,"payload":"p"})"},
      {SIGNAL("hardware_error", hardware_error), R"({"Code":9})", R"({"code":9})"},
      {SIGNAL("media_crashed", media_crashed), R"({"Code":11})", R"({"code":11})"},
      {SIGNAL("recorder_file_stream_changed", recorder_file_stream_changed), R"({"CodecParamPreset":4})", R"({"codec_param_preset":4})"},
      {SIGNAL("audio_gain", audio_gain), R"({"Name":"in1","Gain":6})", R"({"name":"in1","gain":6})"},
      {SIGNAL("audio_mixer", audio_mixer), R"({"Config_id":2,"Mixer":"a0"})", R"({"config_id":2,"mixer":"a0"})"},
      {SIGNAL("audio_noise_reduction", audio_noise_reduction), R"({"Name":"in2","Level":3})", R"({"name":"in2","level":3})"},
      {SIGNAL("audio_xlr_channel", audio_xlr_channel), R"({"Name":"in3","Mode":1})", R"({"name":"in3","mode":1})"},
      {SIGNAL("audio_xlr_power", audio_xlr_power), R"({"Name":"in4","Mode":2})", R"({"name":"in4","mode":2})"},
      {SIGNAL("webrtc_content", webrtc_content), R"({"Name":"webrtc1","Content":"v=0"})", R"({"name":"webrtc1","content":"v=0"})"},
      {SIGNAL("mixer_resolution_changed", mixer_resolution_changed), R"({"Name":"m","Width":1920,"Height":1080})", R"({"name":"m","width":1920,"height":1080})"},
      {SIGNAL("audio_output_monitor_changed", audio_output_monitor_changed), R"({"Name":"out1","Mode":1,"Duration_Threshold":5,"Level_Threshold":-50})", R"({"name":"out1","mode":1,"duration_threshold":5,"level_threshold":-50})"},
      {SIGNAL("audio_output_monitor_warning", audio_output_monitor_warning), R"({"Name":"out2","Triggered":3})", R"({"name":"out2","triggered":3})"},
  };
  // clang-format on
  const auto& names = zolo::json::SignalNames();
  std::set<std::string> untested(names.begin(), names.end());
  EXPECT_EQ(untested.size(), 39u);
  EXPECT_EQ(names.size(), untested.size()) << "a name twice";
  for (const SignalJsonCase& c : cases) {
    EXPECT_EQ(untested.erase(c.name), 1u) << c.name << " is not a signal name, or tested twice";
    void* record = c.parse(c.payload);
    ASSERT_NE(record, nullptr) << c.payload;
    EXPECT_EQ(Print(zolo::json::SignalToJson(c.name, record).get()), c.json) << c.name;
    c.release(record);
  }
  EXPECT_EQ(untested.empty() ? "" : *untested.begin(), "") << "a signal without a case";
  EXPECT_EQ(zolo::json::SignalToJson("no_such_signal", &names), nullptr);
  EXPECT_EQ(zolo::json::SignalToJson("audio_level", nullptr), nullptr);
}

}  // namespace
