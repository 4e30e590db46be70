// Naming rules: the channel a user source feeds, slot and taken-name patterns, and the
// built-in capture input names.
#include <gtest/gtest.h>
#include <zolo/media.h>
#include <zolo_model/source.h>

#include <string>

#include "libzolo_media/source_naming.h"
#include "log_capture.h"
#include "model_fixture.h"

namespace {

using zolo::test::LogCapture;

TEST(SourceNamingTest, ChannelNameOfAUserSource) {
  struct Case {
    const char* type;
    const char* category;
    const char* url;
    int number;
    int result;
    const char* name;  // or the message logged for a refusal
  };
  const Case cases[] = {
      {"video", "capture", "", 3, 0, "Video-Capture3"},
      {"video", "usb", "v4l2:///dev/video1", 3, 0, "Video-Usb3"},
      {"video", "capture", "", -2, 0, "Video-Capture-2"},
      {"video", "network", "rtmp://h/live", 4, 0, "RTMP4"},
      {"video", "network", "ndi://STAGE/out", 1, 0, "NDI1"},
      {"video", "listener", "rtsp://0.0.0.0:554/x", 12, 0, "RTSP12"},
      {"video", "network", "srt://h:1?mode=caller", 1, 0, "SRT-CALLER1"},
      {"video", "listener", "srt://h:1?mode=listener", 2, 0, "SRT-LISTENER2"},
      {"video", "network", "srt://h:1?mode=caller&x=mode=listener", 1, 0, "SRT-LISTENER1"},
      {"video", "network", "srt://h:1?mode=rendezvous", 1, -2,
       "Not supported srt mode srt://h:1?mode=rendezvous"},
      {"video", "network", "no scheme here", 1, -2, "NULL schema for user source 0"},
      {"audio", "network", "rtsp://h/x", 1, -2, ""},
      {"video", "file", "file:///x.mp4", 1, -2, ""},
      {"video", "placeholder", "rtsp://0.0.0.0/fake", 1, -2, ""},
  };
  for (const Case& c : cases) {
    LogCapture log;
    UserSource source("s", c.type, c.category, c.url);
    std::string name = "untouched";
    EXPECT_EQ(_zm_get_channel_name_by_user_source(c.number, &source, &name), c.result) << c.url;
    if (c.result == 0) {
      EXPECT_EQ(name, c.name);
    } else {
      EXPECT_EQ(name, "untouched");
      if (*c.name) {
        EXPECT_TRUE(log.Has(c.name, 0)) << log.Dump();
      }
    }
  }
  EXPECT_EQ(_zm_get_source_id_by_user_source_id(1, nullptr), -3);
}

TEST(SourceNamingTest, TakenNamesClaimSlots) {
  struct Case {
    const char* taken;
    int independent;
    const char* pattern;
  };
  const Case patterns[] = {
      {"HDMI1", 0, "[A-Za-z]+[0-9]_1"},       {"HDMI1", 1, "HDMI[0-9]_1"},
      {"HDMI12", 1, "HDMI[0-9]_12"},          {"HDMI1_2", 0, "[A-Za-z]+2.*|[A-Za-z]+[0-9]_2"},
      {"HDMI1_2", 7, "HDMI[0-9]_2"},          {"_2", 1, "_2[0-9]_2"},
      {"SRT-CALLER1", 0, "[A-Za-z]+[0-9]_1"},
  };
  for (const Case& c : patterns) {
    std::string pattern;
    ASSERT_EQ(_zm_taken_name_pattern(c.taken, c.independent, &pattern), 0) << c.taken;
    EXPECT_EQ(pattern, c.pattern) << c.taken << " " << c.independent;
  }
  std::string untouched = "x";
  EXPECT_EQ(_zm_taken_name_pattern("Movie", 0, &untouched), -1);  // no digit, no underscore
  EXPECT_EQ(untouched, "x");

  struct Claim {
    const char* candidate;
    const char* taken;
    int independent;
    int claims;
  };
  // Any head claims the slot when engines share sources, only the same head when they are
  // independent.
  const Claim claims[] = {
      {"SDI2_1", "HDMI1", 0, 1},   {"SDI2_1", "HDMI1", 1, 0},    {"HDMI2_1", "HDMI1", 1, 1},
      {"HDMI1", "HDMI2", 0, 0},    {"NDI2", "HDMI1_2", 0, 1},    {"NDI3_2", "HDMI1_2", 0, 1},
      {"NDI3_2", "HDMI1_2", 1, 0}, {"HDMI3_2", "HDMI1_2", 1, 1}, {"Capture1", "Movie", 0, -1},
  };
  for (const Claim& c : claims)
    EXPECT_EQ(_zm_taken_name_claims(c.candidate, c.taken, c.independent), c.claims)
        << c.candidate << " / " << c.taken << " / " << c.independent;
}

TEST(SourceNamingTest, SlotPatternIsAnUnanchoredSearch) {
  EXPECT_EQ(_zm_channel_slot_pattern(2), "[A-Za-z]+2.*");
  // clang-format off
  const std::pair<const char*, bool> names[] = {
      {"HDMI1", true},
      {"HDMI12", true},
      {"x-SDI10", true},
      {"HDMI2", false},
      {"1", false},
      {"_1", false},
  };
  // clang-format on
  for (const auto& [name, fits] : names) EXPECT_EQ(_zm_fits_channel_slot(name, 1), fits) << name;
}

TEST(SourceNamingTest, BuiltinCaptureInputs) {
  const std::pair<const char*, const char*> inputs[] = {{"SC0710:RAW 01.00 0401f717", "HDMI1"},
                                                        {"SC0710:RAW 00.00 0404f71d", "HDMI2"},
                                                        {"SC0710:RAW 00.01 0404f71d", "HDMI3"},
                                                        {"SC0710:RAW 00.02 0404f71d", "HDMI4"},
                                                        {"SC0710:RAW 00.03 0404f71d", "SDI1"}};
  for (const auto& [sub_address, expected] : inputs) {
    std::string name;
    EXPECT_EQ(zm_get_builtin_input_name(sub_address, &name), 0);
    EXPECT_EQ(name, expected);
  }
  std::string name;
  EXPECT_EQ(zm_get_builtin_input_name("SC0710:RAW 00.00 0401f717", &name), -5);
  EXPECT_EQ(zm_get_builtin_input_name(nullptr, &name), -3);
  EXPECT_EQ(zm_get_builtin_input_name("SC0710:RAW 01.00 0401f717", nullptr), -3);
}

// Every default user source feeds channel number 1 of its kind; that channel's video source.
class SourceMappingTest : public zolo::test::ModelTest {};

TEST_F(SourceMappingTest, UserSourcesMapToTheirChannelsVideoSource) {
  const std::pair<int, int> mapped[] = {{1, 7}, {2, 8}, {3, 10}, {4, 20}, {5, 21}, {6, 6}};
  for (const auto& [user_source, video_source] : mapped) {
    UserSource* source = nullptr;
    ASSERT_EQ(UserSource::QueryById(user_source, &source), 0);
    std::unique_ptr<UserSource> owned(source);
    EXPECT_EQ(_zm_get_source_id_by_user_source_id(1, source), video_source) << user_source;
  }
  UserSource lobby("x", "video", "network", "rtsp://h/x");
  LogCapture log;
  EXPECT_EQ(_zm_get_source_id_by_user_source_id(9, &lobby), -2);
  EXPECT_TRUE(log.Has("channel RTSP9 is not found", 0)) << log.Dump();
  Exec("UPDATE channel SET video_source_id = NULL WHERE name = 'RTSP1'");
  EXPECT_EQ(_zm_get_source_id_by_user_source_id(1, &lobby), -5);
  EXPECT_TRUE(log.Has("source not found!", 3)) << log.Dump();
}

}  // namespace
