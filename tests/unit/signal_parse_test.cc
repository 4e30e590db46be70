// Signal payload parsers: every signal's keys, the irregular ones, and hostile payloads.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <zolo/signals.h>

#include <cstring>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace {

// A member of a record as text: texts up to their terminator (or capacity), flags as
// true/false, the status signal's streams as "name>destination" items.
template <class T>
std::string Show(const T& value) {
  if constexpr (std::is_same_v<T, bool>) {
    return value ? "true" : "false";
  } else if constexpr (std::is_same_v<T, int>) {
    return std::to_string(value);
  } else if constexpr (std::is_array_v<T>) {
    return std::string(value, strnlen(value, sizeof value));
  } else if constexpr (std::is_same_v<T, char*>) {
    return value != nullptr ? value : "(null)";
  } else {
    std::string items;
    for (const zm_stream& stream : value)
      items += (items.empty() ? "" : ",") + Show(stream.name) + ">" + Show(stream.destination);
    return "[" + items + "]";
  }
}

template <class... M>
std::string Join(const M&... members) {
  std::string out;
  size_t index = 0;
  ((out += (index++ != 0 ? "|" : "") + Show(members)), ...);
  return out;
}

// Every member of record R, in declaration order, joined by "|". N must be R's number of
// members: the structured binding does not compile otherwise, so no member is left out.
template <class R, int N>
std::string Members(const void* record) {
  const R& r = *static_cast<const R*>(record);
  if constexpr (N == 1) {
    const auto& [a] = r;
    return Join(a);
  } else if constexpr (N == 2) {
    const auto& [a, b] = r;
    return Join(a, b);
  } else if constexpr (N == 3) {
    const auto& [a, b, c] = r;
    return Join(a, b, c);
  } else if constexpr (N == 4) {
    const auto& [a, b, c, d] = r;
    return Join(a, b, c, d);
  } else {
    static_assert(N == 5, "records have one to five members");
    const auto& [a, b, c, d, e] = r;
    return Join(a, b, c, d, e);
  }
}

struct SignalCase {
  const char* stem;
  void* (*parse)(const char*);
  void (*release)(void*);
  std::string (*members)(const void*);
  const char* payload;                     // every key present, each with its own value
  const char* record;                      // the parsed record's members, joined by "|"
  std::vector<const char*> optional = {};  // every other key's absence gives no record
};

#define FN(stem, members)                                                                    \
#stem, media_sig_##stem##_parser, media_sig_##stem##_releaser, Members < media_sig_##stem, \
      members>

// clang-format off
const std::vector<SignalCase>& Cases() {
  static const std::vector<SignalCase> cases = {
      {FN(status, 3), R"({"State":"recording","Streams":[{"Name":"movie1","Destination":"file:///m"},{"Name":"rtmp1","Destination":"rtmp://x"}],"Restart":true})", "recording|[movie1>file:///m,rtmp1>rtmp://x]|true", {"Restart"}},
      {FN(video_layout, 3), R"({"Id":3,"Group":4,"Mixer":"zolo://video/mixer/0"})", "3|4|zolo://video/mixer/0"},
      {FN(video_background, 2), R"({"Id":2,"Mixer":"m1"})", "2|m1"},
      {FN(video_foreground, 2), R"({"Id":3,"Mixer":"m2"})", "3|m2"},
      {FN(video_overlay, 2), R"({"Id":4,"Mixer":"m3"})", "4|m3"},
      {FN(video_system_overlay, 2), R"({"Id":5,"Mixer":"m4"})", "5|m4"},
      {FN(streaming_duration, 3), R"({"Name":"movie1","Duration":61,"Type":7})", "movie1|61|7"},
      {FN(audio_level, 4), R"({"Name":"in1","Level":-20,"Left":-21,"Right":-19})", "in1|-20|-21|-19"},
      {FN(audio_volume, 3), R"({"Name":"out1","Volume":80,"Mute":1})", "out1|80|true", {"Mute"}},
      {FN(audio_type, 2), R"({"Name":"in1","Type":2})", "in1|2"},
      {FN(channel_status, 4), R"({"Id":6,"Name":"Video-Capture1","Status":3,"Capture":1})", "6|Video-Capture1|3|true"},
      {FN(rec_file_status, 5), R"({"Stream":"movie1","Url":"file:///media/SD/a.mp4","Status":1.9,"MaxSize":4096.5,"Backup":-2.7})", "file:///media/SD/a.mp4|file:///media/SD/a.mp4|1|4096|-2"},
      {FN(rec_file_update, 5), R"({"Stream":"movie1","Url":"file:///a.mp4","Offset":10,"Size":20,"Backup":30})", "movie1|file:///a.mp4|10|20|30", {"Stream"}},
      {FN(bookmark_added, 3), R"({"Time":12,"Text":"goal","Mode":13})", "12|goal|13"},
      {FN(bookmark_removed, 2), R"({"Time":14,"Text":"miss"})", "14|miss"},
      {FN(recording_ready, 2), R"({"Id":7,"Name":"rec7"})", "7|rec7"},
      {FN(recording_created, 2), R"({"Id":8,"Name":"rec8"})", "8|rec8"},
      {FN(storage_status, 3), R"({"Status":1,"Storage":"SD","Index":2})", "1|SD|2"},
      {FN(channel_source_error, 4), R"({"Channel":"RTSP1","SourceType":1,"Address":"rtsp://x","Code":-3})", "RTSP1|1|rtsp://x|-3"},
      {FN(stream_error, 3), R"({"Stream":"rtmp1","Url":"rtmp://x","Code":5})", "rtmp1|rtmp://x|5"},
      {FN(recording_bookmark_updated, 2), R"({"Url":"file:///b.json","Code":-4})", "file:///b.json|-4"},
      {FN(record_limit_reached, 4), R"({"Type":1,"Name":"movie1","Criteria":2,"Index":3})", "1|movie1|2|3"},
      {FN(stream_status, 2), R"({"Name":"rtmp1","Status":"connected"})", "rtmp1|connected"},
      {FN(streaming_state, 2), R"({"State":"recording","Flags":"persist"})", "recording|persist"},
      {FN(output_color_changed, 5), R"({"Name":"hdmi","Brightness":1,"Contrast":2,"Saturation":3,"Hue":4})", "hdmi|1|2|3|4"},
      {FN(display_changed, 2), R"({"Name":"hdmi","Resolution":5})", "hdmi|5"},
      {FN(media_data_changed, 4), R"({"Type":1,"Data":2,"Id":3,"Payload":"{}"})", "1|2|3|{}", {"Payload"}},
      {FN(hardware_error, 1), R"({"Code":9})", "9"},
      {FN(media_crashed, 1), R"({"Code":11})", "11"},
      {FN(recorder_file_stream_changed, 1), R"({"CodecParamPreset":4})", "4"},
      {FN(audio_gain, 2), R"({"Name":"in1","Gain":6})", "in1|6"},
      {FN(audio_mixer, 2), R"({"Config_id":2,"Mixer":"zolo://audio/mixer/0"})", "2|zolo://audio/mixer/0"},
      {FN(audio_noise_reduction, 2), R"({"Name":"in2","Level":3})", "in2|3"},
      {FN(audio_xlr_channel, 2), R"({"Name":"in3","Mode":1})", "in3|1"},
      {FN(audio_xlr_power, 2), R"({"Name":"in4","Mode":2})", "in4|2"},
      {FN(webrtc_content, 2), R"({"Name":"webrtc1","Content":"v=0"})", "webrtc1|v=0"},
      {FN(mixer_resolution_changed, 3), R"({"Name":"m","Width":1920,"Height":1080})", "m|1920|1080"},
      {FN(audio_output_monitor_changed, 4), R"({"Name":"out1","Mode":1,"Duration_Threshold":5,"Level_Threshold":-50})", "out1|1|5|-50"},
      {FN(audio_output_monitor_warning, 2), R"({"Name":"out2","Triggered":3})", "out2|3"},
  };
  return cases;
}
// clang-format on

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

void PrintTo(const SignalCase& c, std::ostream* out) {
  *out << c.stem;
}

class EverySignal : public testing::TestWithParam<SignalCase> {};

TEST_P(EverySignal, CompletePayloadGivesItsWholeRecordAndEachRequiredKeyIsNeeded) {
  const auto& c = GetParam();
  void* record = c.parse(c.payload);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(c.members(record), c.record) << "from " << c.payload;
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
