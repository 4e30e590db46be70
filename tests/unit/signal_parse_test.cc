// Signal payload parsers: every signal's keys, the irregular ones, and hostile payloads.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <zolo/signals.h>

#include <set>
#include <string>
#include <vector>

namespace {

struct SignalCase {
  const char* stem;
  void* (*parse)(const char*);
  void (*release)(void*);
  const char* payload;                     // every key present
  std::vector<const char*> optional = {};  // every other key's absence gives no record
};

#define FN(stem) #stem, media_sig_##stem##_parser, media_sig_##stem##_releaser

const std::vector<SignalCase>& Cases() {
  static const std::vector<SignalCase> cases = {
      {FN(status),
       R"({"State":"recording","Streams":[{"Name":"movie1","Destination":"file:///m"}],"Restart":true})",
       {"Restart"}},
      {FN(video_layout), R"({"Id":3,"Group":1,"Mixer":"zolo://video/mixer/0"})"},
      {FN(video_background), R"({"Id":2,"Mixer":"m"})"},
      {FN(video_foreground), R"({"Id":2,"Mixer":"m"})"},
      {FN(video_overlay), R"({"Id":2,"Mixer":"m"})"},
      {FN(video_system_overlay), R"({"Id":2,"Mixer":"m"})"},
      {FN(streaming_duration), R"({"Name":"movie1","Duration":61,"Type":1})"},
      {FN(audio_level), R"({"Name":"in1","Level":-20,"Left":-21,"Right":-19})"},
      {FN(audio_volume), R"({"Name":"out1","Volume":80,"Mute":1})", {"Mute"}},
      {FN(audio_type), R"({"Name":"in1","Type":2})"},
      {FN(channel_status), R"({"Id":1,"Name":"Video-Capture1","Status":0,"Capture":1})"},
      {FN(rec_file_status),
       R"({"Stream":"movie1","Url":"file:///media/SD/a.mp4","Status":1.9,"MaxSize":4096.5,"Backup":0})"},
      {FN(rec_file_update),
       R"({"Stream":"movie1","Url":"file:///a.mp4","Offset":10,"Size":20,"Backup":1})",
       {"Stream"}},
      {FN(bookmark_added), R"({"Time":12,"Text":"goal","Mode":0})"},
      {FN(bookmark_removed), R"({"Time":12,"Text":"goal"})"},
      {FN(recording_ready), R"({"Id":7,"Name":"rec7"})"},
      {FN(recording_created), R"({"Id":7,"Name":"rec7"})"},
      {FN(storage_status), R"({"Status":1,"Storage":"SD","Index":0})"},
      {FN(channel_source_error),
       R"({"Channel":"RTSP1","SourceType":1,"Address":"rtsp://x","Code":-3})"},
      {FN(stream_error), R"({"Stream":"rtmp1","Url":"rtmp://x","Code":5})"},
      {FN(recording_bookmark_updated), R"({"Url":"file:///b.json","Code":0})"},
      {FN(record_limit_reached), R"({"Type":1,"Name":"movie1","Criteria":2,"Index":0})"},
      {FN(stream_status), R"({"Name":"rtmp1","Status":"connected"})"},
      {FN(streaming_state), R"({"State":"recording","Flags":"persist"})"},
      {FN(output_color_changed),
       R"({"Name":"hdmi","Brightness":1,"Contrast":2,"Saturation":3,"Hue":4})"},
      {FN(display_changed), R"({"Name":"hdmi","Resolution":5})"},
      {FN(media_data_changed), R"({"Type":1,"Data":2,"Id":3,"Payload":"{}"})", {"Payload"}},
      {FN(hardware_error), R"({"Code":9})"},
      {FN(media_crashed), R"({"Code":11})"},
      {FN(recorder_file_stream_changed), R"({"CodecParamPreset":4})"},
      {FN(audio_gain), R"({"Name":"in1","Gain":6})"},
      {FN(audio_mixer), R"({"Config_id":2,"Mixer":"zolo://audio/mixer/0"})"},
      {FN(audio_noise_reduction), R"({"Name":"in1","Level":2})"},
      {FN(audio_xlr_channel), R"({"Name":"in1","Mode":1})"},
      {FN(audio_xlr_power), R"({"Name":"in1","Mode":0})"},
      {FN(webrtc_content), R"({"Name":"webrtc1","Content":"v=0"})"},
      {FN(mixer_resolution_changed), R"({"Name":"m","Width":1920,"Height":1080})"},
      {FN(audio_output_monitor_changed),
       R"({"Name":"out1","Mode":1,"Duration_Threshold":5,"Level_Threshold":-50})"},
      {FN(audio_output_monitor_warning), R"({"Name":"out1","Triggered":1})"},
  };
  return cases;
}

// The payload with `key` replaced by `value`, or removed when `value` is null.
std::string Edited(const char* payload, const char* key, cJSON* value = nullptr) {
  cJSON* json = cJSON_Parse(payload);
  if (value) {
    cJSON_ReplaceItemInObject(json, key, value);
  } else {
    cJSON_DeleteItemFromObject(json, key);
  }
  char* text = cJSON_PrintUnformatted(json);
  std::string result = text;
  cJSON_free(text);
  cJSON_Delete(json);
  return result;
}

class EverySignal : public testing::TestWithParam<SignalCase> {};

TEST_P(EverySignal, CompletePayloadGivesARecordAndEachRequiredKeyIsNeeded) {
  const auto& c = GetParam();
  void* record = c.parse(c.payload);
  ASSERT_NE(record, nullptr);
  c.release(record);
  const std::set<std::string> optional(c.optional.begin(), c.optional.end());
  cJSON* keys = cJSON_Parse(c.payload);
  for (const cJSON* member = keys->child; member != nullptr; member = member->next) {
    const char* key = member->string;
    if (optional.count(key)) continue;
    EXPECT_EQ(c.parse(Edited(c.payload, key).c_str()), nullptr) << "without " << key;
    // A value of the wrong kind still gives a record: presence is all a key needs.
    cJSON* other = cJSON_IsString(member) ? cJSON_CreateNumber(1) : cJSON_CreateString("1");
    void* odd = c.parse(Edited(c.payload, key, other).c_str());
    EXPECT_NE(odd, nullptr) << "wrong kind for " << key;
    c.release(odd);
  }
  cJSON_Delete(keys);
}

TEST_P(EverySignal, HostilePayloadsGiveNoRecord) {
  const auto& c = GetParam();
  std::string deep(5000, '[');
  std::string huge_key = "{\"" + std::string(1 << 20, 'k') + "\":1}";
  const std::string cut(c.payload, std::string(c.payload).size() - 1);
  const std::string bad[] = {deep, huge_key,   cut, "",           "null",      "[]",
                             "42", "\"text\"", "{", "{\"Name\":", "\xff\xfe{}"};
  EXPECT_EQ(c.parse(nullptr), nullptr);
  for (const auto& text : bad) EXPECT_EQ(c.parse(text.c_str()), nullptr) << text.substr(0, 20);
  c.release(nullptr);
}

INSTANTIATE_TEST_SUITE_P(All, EverySignal, testing::ValuesIn(Cases()),
                         [](const auto& test_case) { return std::string(test_case.param.stem); });

template <class R>
struct Parsed {
  Parsed(void* (*parse)(const char*), void (*release)(void*), const std::string& payload)
      : record(static_cast<R*>(parse(payload.c_str()))), release_(release) {}
  ~Parsed() { release_(record); }
  R* operator->() const { return record; }
  R* record;
  void (*release_)(void*);
};
// The record `payload` parses to as signal `stem`, released at the end of the scope.
#define PARSE(stem, payload) \
  Parsed<media_sig_##stem>(media_sig_##stem##_parser, media_sig_##stem##_releaser, payload)

TEST(SignalFields, NumbersTextsAndFlagsLandInTheirFields) {
  auto level = PARSE(audio_level, R"({"Name":"in1","Level":-20,"Left":-21,"Right":-19})");
  ASSERT_NE(level.record, nullptr);
  EXPECT_STREQ(level->name, "in1");
  EXPECT_EQ(std::vector<int>({level->level, level->left, level->right}),
            std::vector<int>({-20, -21, -19}));
  auto channel = PARSE(channel_status, R"({"Id":1,"Name":"c","Status":0,"Capture":2})");
  ASSERT_NE(channel.record, nullptr);
  EXPECT_FALSE(channel->capture);  // only 1 is true
  auto volume = PARSE(audio_volume, R"({"Name":"o","Volume":3})");
  ASSERT_NE(volume.record, nullptr);
  EXPECT_FALSE(volume->mute);
}

TEST(SignalFields, VideoFileStatusTakesBothTextsFromUrlAndTruncatesNumbers) {
  auto status = PARSE(
      rec_file_status,
      R"({"Stream":"movie1","Url":"file:///a.mp4","Status":1.9,"MaxSize":-4096.7,"Backup":0.2})");
  ASSERT_NE(status.record, nullptr);
  EXPECT_STREQ(status->stream, "file:///a.mp4");
  EXPECT_STREQ(status->url, "file:///a.mp4");
  EXPECT_EQ(std::vector<int>({status->status, status->max_size, status->backup}),
            std::vector<int>({1, -4096, 0}));
  auto update = PARSE(rec_file_update, R"({"Url":"u","Offset":1,"Size":2,"Backup":3})");
  ASSERT_NE(update.record, nullptr);
  EXPECT_STREQ(update->stream, "");
  EXPECT_EQ(update->size, 2);
}

TEST(SignalFields, TextsAreCutToCapacityButWebrtcContentIsWhole) {
  std::string long_url(5000, 'u');
  auto error = PARSE(stream_error, R"({"Stream":")" + std::string(600, 's') + R"(","Url":")" +
                                       long_url + R"(","Code":1})");
  ASSERT_NE(error.record, nullptr);
  EXPECT_EQ(std::string(error->stream), std::string(511, 's'));
  EXPECT_EQ(std::string(error->url), std::string(2047, 'u'));
  std::string content(100000, 'c');
  auto webrtc = PARSE(webrtc_content, R"({"Name":"w","Content":")" + content + R"("})");
  ASSERT_NE(webrtc.record, nullptr);
  EXPECT_EQ(std::string(webrtc->content), content);
  auto data = PARSE(media_data_changed,
                    R"({"Type":0,"Data":1,"Id":2,"Payload":")" + std::string(5000, 'p') + R"("})");
  ASSERT_NE(data.record, nullptr);
  EXPECT_EQ(std::string(data->payload).size(), 4095u);
}

TEST(SignalFields, StatusBuildsOneStreamRecordPerItem) {
  auto status = PARSE(
      status,
      R"({"State":"recording","Restart":true,"Streams":[{"Name":"movie1","Destination":"file:///m1"},)"
      R"({"Name":"rtmp1"},7,{"Destination":"rtmp://x/live"}]})");
  ASSERT_NE(status.record, nullptr);
  EXPECT_STREQ(status->state, "recording");
  EXPECT_TRUE(status->restart);
  ASSERT_EQ(status->streams.size(), 4u);
  EXPECT_STREQ(status->streams[0].name, "movie1");
  EXPECT_STREQ(status->streams[0].destination, "file:///m1");
  EXPECT_EQ(status->streams[1].destination + std::to_string(status->streams[1].id), "0");
  EXPECT_STREQ(status->streams[3].destination, "rtmp://x/live");
  auto no_array = PARSE(status, R"({"State":7,"Streams":{}})");
  ASSERT_NE(no_array.record, nullptr);
  EXPECT_STREQ(no_array->state, "");
  EXPECT_TRUE(no_array->streams.empty());
}

// Values of another kind read as 0 (a flag only for the number 1) or empty text.
TEST(SignalFields, MistypedValuesReadAsZeroOrEmpty) {
  auto level = PARSE(audio_level, R"({"Name":7,"Level":"5","Left":null,"Right":[1]})");
  ASSERT_NE(level.record, nullptr);
  EXPECT_STREQ(level->name, "");
  EXPECT_EQ(level->level, 0);
  EXPECT_EQ(level->left, 0);
  auto status = PARSE(channel_status, R"({"Id":"3","Name":"HDMI-1","Status":{},"Capture":true})");
  ASSERT_NE(status.record, nullptr);
  EXPECT_EQ(status->id, 0);
  EXPECT_STREQ(status->name, "HDMI-1");
  EXPECT_FALSE(status->capture);
  auto content = PARSE(webrtc_content, R"({"Name":"w1","Content":{"sdp":1}})");
  ASSERT_NE(content.record, nullptr);
  EXPECT_STREQ(content->content, "");
}

}  // namespace
