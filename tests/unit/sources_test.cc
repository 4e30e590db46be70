// Source and channel records and queries on the default database and on hand-made rows.
#include <gtest/gtest.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>

#include <sstream>
#include <string>
#include <vector>

#include "log_capture.h"
#include "model_fixture.h"

namespace {

// The fields joined by '|', so one comparison shows every field out of place.
template <class... Fields>
std::string Joined(const Fields&... fields) {
  std::ostringstream text;
  ((text << fields << '|'), ...);
  return text.str();
}

class SourcesTest : public zolo::test::ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    sandbox_->WriteFile("/sys/class/net/eth0/address", "02:00:5e:10:2a:3b\n");
  }
  zm_source Source(int id, bool user = false) {
    std::vector<zm_source> out;
    EXPECT_EQ(user ? zm_get_user_source(id, &out) : zm_get_source(id, &out), 0) << id;
    return out.empty() ? zm_source{} : out.front();
  }
  zm_channel ChannelRecord(int id) {
    std::vector<zm_channel> out;
    EXPECT_EQ(zm_get_channel(id, &out), 0) << id;
    return out.empty() ? zm_channel{} : out.front();
  }
  // Adds device source `id` with the given texts.
  void AddSource(int id, const std::string& name, int category, const std::string& url,
                 const std::string& parameters = "{}", const std::string& authentication = "{}") {
    Exec(
        "INSERT INTO channel_source (id, name, type, category, url, parameters, authentication) "
        "VALUES (" +
        std::to_string(id) + ", '" + name + "', 0, " + std::to_string(category) + ", '" + url +
        "', '" + parameters + "', '" + authentication + "')");
  }
  std::vector<std::string> Offered(int channel) {
    std::vector<zm_source> out;
    EXPECT_EQ(zm_get_channel_available_sources(channel, &out), 0);
    std::vector<std::string> names;
    for (const auto& s : out) names.push_back(s.name);
    return names;
  }
};

// Parameters and authentication: present, absent, of another type, or not JSON at all.
TEST_F(SourcesTest, EveryFieldFromParametersAndAuthentication) {
  AddSource(30, "auth-no-key", 1, "rtsp://h/x", R"({"latency": 80})", R"({"encryption": 1})");
  AddSource(31, "broken", 1, "rtsp://h/x", R"({"frame_rate": )", "not json");
  AddSource(32, "wrong-types", 1, "rtsp://h/x",
            R"({"frame_rate": "60", "resolution": 1080, "audio_delay": null, "rotate": 1.5})",
            R"({"encryption": "aes", "passphrase": 7})");
  AddSource(33, "array", 1, "rtsp://h/x", "[1, 2]", "[]");
  struct Case {
    int id;
    bool user;
    const char* resolution;
    const char* codec;
    int frame_rate, rotate, encryption, key_length;
    const char* passphrase;
    int source_port, audio_delay, latency;
  };
  const Case cases[] = {
      {6, false, "1280x720", "MJPEG", 30, 0, -1, 0, "", -1, -2000, -1},
      {8, false, "", "", -1, -1, 0, 16, "", 9000, 0, 120},
      {9, false, "", "", -1, -1, -1, 0, "", -1, -2000, -1},
      {2, true, "", "", -1, -1, 1, 16, "change-me-please", 9001, 0, 200},
      {30, false, "", "", -1, -1, 1, -1, "", -1, -2000, 80},
      {31, false, "", "", -1, -1, -1, 0, "", -1, -2000, -1},
      {32, false, "", "", -1, 1, -1, -1, "", -1, -2000, -1},
      {33, false, "", "", -1, -1, -1, 0, "", -1, -2000, -1},
  };
  for (const Case& c : cases) {
    zm_source s = Source(c.id, c.user);
    SCOPED_TRACE(s.name);
    EXPECT_EQ(Joined(s.resolution, s.codec, s.frame_rate, s.rotate, s.encryption, s.key_length,
                     s.passphrase, s.source_port, s.audio_delay, s.latency),
              Joined(c.resolution, c.codec, c.frame_rate, c.rotate, c.encryption, c.key_length,
                     c.passphrase, c.source_port, c.audio_delay, c.latency));
  }
  Exec(
      "UPDATE channel_source SET fixed = 0, available = 0, enabled = 1, int_attr1 = -7, "
      "int_attr2 = 9, extra = 'e1', extra2 = 'e2', name = printf('%.600c', 'n') WHERE id = 1");
  zm_source capture = Source(1);
  EXPECT_EQ(std::string(capture.name).size(), 511u);
  EXPECT_EQ(Joined(capture.type, capture.category, capture.sub_address, capture.authentication,
                   capture.fixed + capture.available * 2 + capture.enabled_flag * 4,
                   capture.int_attr1, capture.int_attr2, capture.extra, capture.extra2),
            "video|capture|SC0710:RAW 01.00 0401f717|{}|4|-7|9|e1|e2|");
}

TEST_F(SourcesTest, MacMarkersInUrls) {
  AddSource(30, "two", 1, "ndi://<MAC_ADDR>/a/<MAC_ADDR>");
  EXPECT_STREQ(Source(30).url, "ndi://2A3B/a/2A3B");
  EXPECT_STREQ(Source(10).url, "ndi://ZOLO-2A3B/live");
  EXPECT_STREQ(Source(7).url, "rtsp://0.0.0.0/fake");
  // Without a readable address the URL stays as stored.
  sandbox_->WriteFile("/sys/class/net/eth0/address", "0a:\n");
  EXPECT_STREQ(Source(30).url, "ndi://<MAC_ADDR>/a/<MAC_ADDR>");
}

TEST_F(SourcesTest, QueryFormsAppendAndReportFailures) {
  std::vector<zm_source> sources;
  EXPECT_EQ(zm_get_source(0, &sources), 0);
  EXPECT_EQ(sources.size(), 20u);  // Placeholder1 is hidden
  EXPECT_EQ(zm_get_source(8, &sources), 0);
  EXPECT_STREQ(sources.back().name, "SRT-LISTENER1");
  EXPECT_EQ(zm_get_user_source(0, &sources), 0);
  EXPECT_EQ(sources.size(), 26u);
  EXPECT_EQ(zm_get_source(999, &sources), -5);
  EXPECT_EQ(zm_get_user_source(-1, &sources), -5);
  EXPECT_EQ(sources.size(), 26u);
  EXPECT_EQ(Joined(zm_get_source(0, nullptr), zm_get_user_source(1, nullptr),
                   zm_get_channel(0, nullptr), zm_get_channel_available_user_sources(0, nullptr),
                   zm_get_channel_available_sources(1, nullptr)),
            "-3|-3|-1|-3|-3|");
  std::vector<zm_channel> channels;
  EXPECT_EQ(zm_get_channel(999, &channels), -5);
  EXPECT_EQ(zm_get_channel_count(), 14);

  Exec("DELETE FROM user_source");
  std::vector<zm_source> none;
  EXPECT_EQ(zm_get_user_source(0, &none), 0);
  EXPECT_TRUE(none.empty());

  MediaModel::Instance()->Release();
  std::vector<zm_channel_sources> lists;
  EXPECT_EQ(Joined(zm_get_source(0, &sources), zm_get_user_source(1, &sources),
                   zm_get_channel(0, &channels), zm_get_channel_available_user_sources(0, &lists),
                   zm_get_channel_available_sources(1, &sources), zm_get_channel_count()),
            "-5|-5|-5|-5|-5|0|");
  EXPECT_EQ(sources.size(), 26u);
  EXPECT_TRUE(channels.empty() && lists.empty());
}

TEST_F(SourcesTest, ChannelsCarryLinksOrdinalAndPreviewUrl) {
  zm_channel srt = ChannelRecord(8), mix = ChannelRecord(10);
  EXPECT_EQ(Joined(srt.video_source_id, srt.video_source_name, srt.audio_user_source_id,
                   srt.audio_user_source_name, srt.ordinal),
            "8|SRT-LISTENER1|2|Remote Studio|1|");
  EXPECT_EQ(Joined(mix.video_source_id, mix.video_source_name, mix.attribute), "0||1|");
  EXPECT_EQ(ChannelRecord(9).ordinal, 0);  // "Movie": empty text

  // The preview stream (whole lower-case address), else a network source's own URL (last
  // four digits), else nothing.
  EXPECT_STREQ(ChannelRecord(1).preview_url,
               "rtsp://zolo-02005e102a3b.local:8554/preview/capture1");
  EXPECT_STREQ(ChannelRecord(12).preview_url, "ndi://ZOLO-2a3b/live");
  EXPECT_STREQ(ChannelRecord(9).preview_url, "");
  Exec("UPDATE stream SET enable_option2 = 1 WHERE name IN ('preview-capture1', 'preview-rtsp1')");
  Exec("UPDATE stream SET name = 'Preview-usb1' WHERE name = 'preview-usb1'");
  Exec("UPDATE stream SET name = 'xpreview-srt-listener1' WHERE name = 'preview-srt-listener1'");
  Exec("UPDATE stream SET enable_option1 = 0 WHERE name = 'preview-rtmp1'");
  for (int id : {1, 6, 8, 14}) EXPECT_STREQ(ChannelRecord(id).preview_url, "") << id;
  EXPECT_STREQ(ChannelRecord(7).preview_url, "rtsp://0.0.0.0/fake");

  // Both query forms build the same records.
  std::vector<zm_channel> all;
  ASSERT_EQ(zm_get_channel(0, &all), 0);
  ASSERT_EQ(all.size(), 14u);
  for (const zm_channel& c : all) {
    zm_channel one = ChannelRecord(c.id);
    EXPECT_EQ(std::string(one.name) + one.preview_url, std::string(c.name) + c.preview_url);
  }
}

TEST_F(SourcesTest, AllowedListsAreReadUnderVideoSources) {
  std::vector<zm_channel_sources> lists;
  ASSERT_EQ(zm_get_channel_available_user_sources(0, &lists), 0);
  EXPECT_EQ(lists.size(), 14u);
  ASSERT_EQ(zm_get_channel_available_user_sources(7, &lists), 0);
  EXPECT_EQ(lists.back().channel_id, 7);
  EXPECT_EQ(lists.back().sources, (std::vector<int32_t>{7, 10, 11}));
  EXPECT_EQ(lists.back().user_sources, (std::vector<int32_t>{1, 3, 4}));
  EXPECT_EQ(zm_get_channel_available_user_sources(999, &lists), -5);

  Exec("UPDATE channel_sources SET sources = '{\"video_sources\": \"1\"}' WHERE channel_id = 6");
  zolo::test::LogCapture log;
  ASSERT_EQ(zm_get_channel_available_user_sources(6, &lists), 0);
  EXPECT_TRUE(log.Has("get channel sources 6 sources failed", 3)) << log.Dump();
  EXPECT_TRUE(lists.back().sources.empty());
  EXPECT_EQ(lists.back().user_sources, std::vector<int32_t>{6});
}

TEST_F(SourcesTest, AvailableSourcesFollowTheNamingRules) {
  EXPECT_EQ(Offered(1), std::vector<std::string>{"Capture1"});
  EXPECT_TRUE(Offered(12).empty());  // no network source named for slot 12
  // Another entry of the same input, named for the slot, is offered once available.
  AddSource(30, "HDMI2", 0, "capture://video/1");
  AddSource(31, "SDI2", 0, "capture://video/1");
  Exec("UPDATE channel_source SET available = 0 WHERE id = 31");
  EXPECT_EQ(Offered(2), (std::vector<std::string>{"Capture2", "HDMI2"}));
  // A source of another input that a channel uses claims slot 2 for every head, also when
  // that channel is hidden.
  AddSource(32, "SDI3_2", 0, "capture://video/9");
  Exec("UPDATE channel SET audio_source_id = 32, visible = 0 WHERE id = 3");
  EXPECT_TRUE(Offered(2).empty());
  std::vector<zm_source> out;
  EXPECT_EQ(zm_get_channel_available_sources(999, &out), -5);
  // A used source whose name has no digit cannot be read by the slot rule.
  AddSource(33, "Spare", 0, "capture://video/8");
  Exec("UPDATE channel SET audio_source_id = 33 WHERE id = 4");
  EXPECT_EQ(zm_get_channel_available_sources(1, &out), -1);
  EXPECT_TRUE(out.empty());
}

}  // namespace
