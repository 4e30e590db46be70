// The engine's pictures on GStreamer with real frames: solid-colour inputs, the program
// mixer following layouts (position, size and stacking of every window), and snapshots of
// a channel and of the program, decoded and checked pixel by pixel.
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine_fixture.h"
#include "gst_media.h"
#include "jpeg_decode.h"

namespace {

using zolo::engine::GstMedia;

constexpr int kWidth = 320;
constexpr int kHeight = 180;

struct Picture {
  int width = 0;
  int height = 0;
  std::vector<unsigned char> rgb;
  // The colour at (fx, fy), fractions of the picture, as 0xRRGGBB.
  unsigned At(double fx, double fy) const {
    size_t i = (static_cast<size_t>(fy * height) * width + static_cast<size_t>(fx * width)) * 3;
    return (unsigned{rgb[i]} << 16) | (unsigned{rgb[i + 1]} << 8) | rgb[i + 2];
  }
};

Picture Decode(const std::string& path) {
  Picture picture;
  unsigned width = 0, height = 0;
  if (zolo::test::DecodeJpeg(path, JCS_RGB, &width, &height, &picture.rgb)) {
    picture.width = static_cast<int>(width);
    picture.height = static_cast<int>(height);
  }
  return picture;
}

// Colours compared per channel within a margin: JPEG and the colour conversions move them.
bool Near(unsigned got, unsigned want) {
  for (int shift : {16, 8, 0}) {
    int a = static_cast<int>((got >> shift) & 0xff), b = static_cast<int>((want >> shift) & 0xff);
    if (std::abs(a - b) > 40) return false;
  }
  return true;
}

std::string Hex(unsigned colour) {
  char text[16];
  std::snprintf(text, sizeof text, "#%06x", colour);
  return text;
}

class MediaTest : public zolo::test::EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    sim_.Stop();
    zolo::engine::GstMediaOptions options;
    options.width = kWidth;
    options.height = kHeight;
    options.fps = 15;
    options.test_colours = true;
    media_ = std::make_shared<GstMedia>(options);
    std::string error;
    ASSERT_TRUE(media_->Start({{1, "HDMI1"}, {2, "HDMI2"}, {3, "HDMI3"}}, &error)) << error;
    sim_.set_media(media_);
    ASSERT_EQ(sim_.Start(), 0);
    ASSERT_TRUE(media_->WaitUntilLive(20000)) << "the inputs never delivered a frame";
    sandbox_->MakeDir("/shots");
  }
  void TearDown() override {
    sim_.Stop();
    media_->Stop();
    EngineTest::TearDown();
  }
  // Waits until the program made `frames` more frames.
  void WaitFrames(guint64 frames) {
    guint64 until = media_->program_frames() + frames;
    for (int i = 0; i < 500 && media_->program_frames() < until; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_GE(media_->program_frames(), until) << "the program stopped producing frames";
  }
  Picture ProgramAfterLayout(int layout) {
    EXPECT_EQ(zm_set_video_layout(layout, ZM_MIXER_0, false, false), 0);
    WaitFrames(3);
    std::string name = "/shots/layout" + std::to_string(layout) + ".jpg";
    EXPECT_EQ(zm_make_video_snapshot(ZM_MIXER_0, ("file://" + name).c_str(), kWidth, kHeight), 0);
    return Decode(sandbox_->Path(name));
  }
  std::shared_ptr<GstMedia> media_;
};

// Each window shows its source's colour at its position and size, the higher window on top,
// the background black where no window is; every layout switch shows whole.
TEST_F(MediaTest, ProgramFollowsEveryLayoutWindowByWindow) {
  const unsigned one = GstMedia::TestColour(1) & 0xffffff;
  const unsigned two = GstMedia::TestColour(2) & 0xffffff;
  const unsigned three = GstMedia::TestColour(3) & 0xffffff;
  struct Probe {
    double x, y;
    unsigned colour;
  };
  struct Case {
    int layout;
    std::vector<Probe> probes;
  } cases[] = {
      {1, {{0.1, 0.1, one}, {0.9, 0.9, one}}},
      {6, {{0.25, 0.5, one}, {0.75, 0.5, two}, {0.5, 0.1, 0x000000}, {0.5, 0.9, 0x000000}}},
      {9, {{0.2, 0.2, one}, {0.8, 0.8, two}, {0.6, 0.8, one}}},
      {13, {{0.25, 0.5, one}, {0.75, 0.25, two}, {0.75, 0.75, three}, {0.25, 0.1, 0x000000}}},
      {2, {{0.5, 0.5, two}, {0.05, 0.05, two}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("layout " + std::to_string(c.layout));
    Picture program = ProgramAfterLayout(c.layout);
    ASSERT_EQ(program.width, kWidth);
    ASSERT_EQ(program.height, kHeight);
    for (const Probe& p : c.probes)
      EXPECT_TRUE(Near(program.At(p.x, p.y), p.colour))
          << "at " << p.x << "," << p.y << ": " << Hex(program.At(p.x, p.y)) << " not "
          << Hex(p.colour);
  }
}

// A channel snapshot is its input's live frame at the size asked.
TEST_F(MediaTest, ChannelSnapshotIsTheInputsFrame) {
  WaitFrames(2);
  std::vector<zm_channel> channels;
  ASSERT_EQ(zm_get_channel(0, &channels), 0);
  int channel = 0;
  for (const zm_channel& c : channels)
    if (c.video_source_id == 2) channel = c.id;
  ASSERT_GT(channel, 0);
  ASSERT_EQ(zm_make_channel_snapshot(channel, "file:///shots/channel.jpg", 160, 90), 0);
  Picture picture = Decode(sandbox_->Path("/shots/channel.jpg"));
  ASSERT_EQ(picture.width, 160);
  EXPECT_TRUE(Near(picture.At(0.5, 0.5), GstMedia::TestColour(2) & 0xffffff))
      << Hex(picture.At(0.5, 0.5));
}

}  // namespace
