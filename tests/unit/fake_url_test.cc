// Placeholder URLs per scheme.
#include <gtest/gtest.h>
#include <zolo/utils.h>

#include "log_capture.h"

namespace {

using zolo::test::LogCapture;

struct UrlCase {
  const char* url;
  bool fake;
  bool logs;
};
class FakeUrlTest : public testing::TestWithParam<UrlCase> {};
TEST_P(FakeUrlTest, RecognisesPlaceholders) {
  LogCapture log;
  EXPECT_EQ(isFakeUrl(GetParam().url), GetParam().fake) << GetParam().url;
  EXPECT_EQ(log.Has(std::string("Not supported url ") + GetParam().url + "!", 3), GetParam().logs)
      << log.Dump();
}
INSTANTIATE_TEST_SUITE_P(
    Table, FakeUrlTest,
    testing::Values(
        UrlCase{"rtsp://0.0.0.0/fake", true, false}, UrlCase{"rtsp://0.0.0.0/fake/", false, false},
        UrlCase{"rtmp://0.0.0.0/fake", true, false}, UrlCase{"rtmps://0.0.0.0/fake", true, false},
        UrlCase{"rtp://0.0.0.0", true, false}, UrlCase{"udp://0.0.0.0", true, false},
        UrlCase{"ndi://0.0.0.0", true, false}, UrlCase{"srt://0.0.0.0/fake", true, false},
        UrlCase{"srt://0.0.0.0/fake?latency=200", true, false},
        UrlCase{"srt://0.0.0.0/fake&x", true, false}, UrlCase{"srt://0.0.0.0/fak", false, false},
        UrlCase{"rtsp://10.0.0.2/live", false, false}, UrlCase{"file:///media/a.mp4", false, true},
        UrlCase{"no scheme at all", false, false}, UrlCase{"", false, false}));

TEST(FakeSubUrl, OnlyNdiHasASecondaryPlaceholder) {
  LogCapture log;
  EXPECT_TRUE(isFakeSubUrl("ndi://0.0.0.0", "FAKE"));
  EXPECT_TRUE(isFakeSubUrl("ndi://10.0.0.1", "FAKE"));
  EXPECT_FALSE(isFakeSubUrl("ndi://0.0.0.0", "fake"));
  EXPECT_FALSE(isFakeSubUrl("rtsp://0.0.0.0/fake", "FAKE"));
  EXPECT_TRUE(log.Has("Not supported url rtsp://0.0.0.0/fake!", 3));
  EXPECT_FALSE(isFakeSubUrl("nothing", "FAKE"));
}

TEST(GetFake, ByScheme) {
  LogCapture log;
  std::string url = "old";
  EXPECT_EQ(getFakeUrl("srt", &url), 0);
  EXPECT_EQ(url, "srt://0.0.0.0/fake");
  EXPECT_EQ(getFakeUrl("udp", &url), 0);
  EXPECT_EQ(url, "udp://0.0.0.0");
  EXPECT_EQ(getFakeSubUrl("ndi", &url), 0);
  EXPECT_EQ(url, "FAKE");
  EXPECT_EQ(getFakeSubUrl("rtsp", &url), -1);
  EXPECT_TRUE(log.Has("Not supported url rtsp!", 0));
  EXPECT_EQ(getFakeUrl("http", &url), -1);
  EXPECT_EQ(url, "FAKE");
  EXPECT_EQ(getFakeUrl(nullptr, &url), -1);
  EXPECT_EQ(getFakeUrl("rtsp", nullptr), -1);
}

}  // namespace
