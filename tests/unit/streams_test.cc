// Stream records and queries on the default database.
#include <gtest/gtest.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>

#include <string>
#include <vector>

#include "model_fixture.h"

namespace {

class StreamQueryTest : public zolo::test::ModelTest {
 protected:
  zm_stream One(const char* name) {
    std::vector<zm_stream> out;
    EXPECT_EQ(zm_get_stream_by_pattern(name, &out), 0);
    EXPECT_EQ(out.size(), 1u) << name;
    return out.empty() ? zm_stream{} : out.front();
  }
};

TEST_F(StreamQueryTest, RecordsCarryChannelPresetParametersAndAuthentication) {
  zm_stream movie = One("movie1");
  EXPECT_STREQ(movie.type, "file");
  EXPECT_STREQ(movie.channel_name, "Movie");
  EXPECT_EQ(movie.video_source_id, 9);
  EXPECT_STREQ(movie.codec_preset_name, "1080p60 High");
  EXPECT_STREQ(movie.container, "mp4");
  EXPECT_EQ(movie.enable, 1);
  EXPECT_EQ(movie.audio_shift, 0);
  EXPECT_EQ(movie.encryption, -1);  // no "encryption" authentication
  EXPECT_EQ(movie.key_length, 0);
  EXPECT_STREQ(movie.passphrase, "");
  EXPECT_EQ(movie.latency, -1);
  EXPECT_EQ(movie.duration, 0);
  zm_stream srt = One("srt1");
  EXPECT_EQ(srt.encryption, 0);
  EXPECT_EQ(srt.key_length, 16);
  EXPECT_EQ(srt.latency, 120);
  EXPECT_EQ(srt.source_port, 9000);
  EXPECT_EQ(srt.audio_shift, -1);
  zm_stream udp = One("udp1");
  EXPECT_EQ(udp.multicast, 1);
  EXPECT_EQ(udp.ttl, 16);
  EXPECT_STREQ(udp.netmask, "255.255.255.0");
  zm_stream ndi = One("ndi1");
  EXPECT_STREQ(ndi.ndi_group_name, "public");
  EXPECT_EQ(ndi.ndi_stream_bandwidth, 1);
  zm_stream meta = One("backupmeta");  // no channel, preset or container
  EXPECT_EQ(meta.channel_id, 0);
  EXPECT_STREQ(meta.channel_name, "");
  EXPECT_EQ(meta.codec_preset_id, 0);
  EXPECT_STREQ(meta.container, "");
}

TEST_F(StreamQueryTest, SelectionsAppendWithoutClearing) {
  std::vector<zm_stream> out;
  EXPECT_EQ(zm_get_stream("file", nullptr, &out), 0);
  EXPECT_EQ(out.size(), 4u);
  EXPECT_EQ(zm_get_stream("file", "movie1", &out), 0);
  EXPECT_EQ(out.size(), 5u);
  EXPECT_EQ(zm_get_schedule_stream(&out), 0);
  EXPECT_EQ(out.size(), 7u);
  EXPECT_EQ(zm_get_webrtc_stream(&out), 0);
  EXPECT_STREQ(out.back().name, "webrtc1");
  EXPECT_EQ(zm_get_stream(out.front().id, &out), 0);
  EXPECT_STREQ(out.back().name, out.front().name);
}

TEST_F(StreamQueryTest, MissingArgumentsAndFailedQueries) {
  std::vector<zm_stream> out;
  EXPECT_EQ(zm_get_stream(nullptr, "movie1", &out), -3);
  EXPECT_EQ(zm_get_stream(0, &out), -3);
  EXPECT_EQ(zm_get_stream(-4, &out), -3);
  EXPECT_EQ(zm_get_stream(99999, &out), -5);
  EXPECT_EQ(zm_get_stream_by_pattern(nullptr, &out), -3);
  EXPECT_EQ(zm_get_webrtc_stream(nullptr), -3);
  EXPECT_EQ(zm_get_stream_channel_id(nullptr, nullptr), -3);
  EXPECT_TRUE(out.empty());
  MediaModel::Instance()->Release();
  EXPECT_EQ(zm_get_stream("file", nullptr, &out), -5);
  EXPECT_EQ(zm_get_stream_channel_id("file", "movie1"), -5);
  EXPECT_TRUE(out.empty());
}

TEST_F(StreamQueryTest, ChannelIdAndCodecParameters) {
  EXPECT_EQ(zm_get_stream_channel_id("file", "movie2"), 2);
  EXPECT_EQ(zm_get_stream_channel_id(nullptr, "backupmeta"), 0);
  EXPECT_EQ(zm_get_stream_channel_id("file", "nothing"), 0);
  std::string parameters;
  EXPECT_EQ(zm_get_stream_codec_param("preview", "preview", &parameters), 0);
  EXPECT_NE(parameters.find("\"width\":640"), std::string::npos) << parameters;
  EXPECT_EQ(zm_get_stream_codec_param("file", nullptr, &parameters), -3);
  EXPECT_EQ(zm_get_stream_codec_param("file", "backupmeta", &parameters), -5);
}

TEST_F(StreamQueryTest, LongTextsAreCutToTheirFields) {
  Exec(
      "UPDATE stream SET destination = 'rtmp://h/' || printf('%.3000c', 'x') WHERE name = "
      "'rtmp1'");
  zm_stream rtmp = One("rtmp1");
  EXPECT_EQ(std::string(rtmp.destination).size(), 2047u);
}

}  // namespace
