// The engine's pictures on GStreamer with real frames: solid-colour inputs, the program
// mixer following layouts (position, size and stacking of every window), and snapshots of
// a channel and of the program, decoded and checked pixel by pixel.
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
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
    if (rgb.empty()) return 0xff000000;  // no picture: matches no colour
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

// A port nobody listens on now, for a sender the test starts.
int FreePort() {
  int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  close(fd);
  return ntohs(address.sin_port);
}

// A real network source: a process sending a solid colour as Matroska over SRT, listening
// on `port`, until killed.
class SrtSender {
 public:
  SrtSender(int port, unsigned colour) : port_(port), colour_(colour) {}
  ~SrtSender() { Kill(); }
  void Start() {
    char pipeline[512];
    std::snprintf(pipeline, sizeof pipeline,
                  "videotestsrc is-live=true pattern=solid-color foreground-color=%u ! "
                  "video/x-raw,width=%d,height=%d,framerate=15/1 ! jpegenc ! "
                  "matroskamux streamable=true ! srtsink uri=srt://:%d?mode=listener "
                  "wait-for-connection=false",
                  colour_, kWidth, kHeight, port_);
    pid_ = fork();
    if (pid_ == 0) {
      // Dies with the test, and keeps none of its output open.
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      int null = open("/dev/null", O_WRONLY);
      dup2(null, 1);
      dup2(null, 2);
      execlp("sh", "sh", "-c", ("exec gst-launch-1.0 -q " + std::string(pipeline)).c_str(),
             static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  void Kill() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  int port_;
  unsigned colour_;
  pid_t pid_ = -1;
};

int CountEntries(const char* folder) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    count += entry.exists() ? 1 : 0;
  return count;
}

long ResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  return 0;
}

class MediaTest : public zolo::test::EngineTest {
 protected:
  // The first pipeline of a process sometimes never goes live under the sanitizers (under
  // investigation); one throwaway start keeps that out of the cases below.
  static void SetUpTestSuite() {
    EngineTest::SetUpTestSuite();
    zolo::engine::GstMediaOptions options;
    options.width = 160;
    options.height = 90;
    options.fps = 15;
    zolo::engine::GstMedia first(options);
    std::string error;
    if (first.Start({{1, 1, "warm-up", ""}}, {1}, &error)) first.WaitUntilLive(15000);
    first.Stop();
  }
  void SetUp() override {
    EngineTest::SetUp();
    sim_.Stop();
    sandbox_->MakeDir("/shots");
  }
  // Starts the media with `inputs` (channel, source, uri) and the engine on the bus.
  void StartMedia(const std::vector<zolo::engine::InputSetup>& inputs) {
    zolo::engine::GstMediaOptions options;
    options.width = kWidth;
    options.height = kHeight;
    options.fps = 15;
    options.test_colours = true;
    options.stall_ms = 1000;
    media_ = std::make_shared<GstMedia>(options);
    std::string error;
    ASSERT_TRUE(media_->Start(inputs, {1, 2}, &error)) << error;
    sim_.set_media(media_);
    ASSERT_EQ(sim_.Start(), 0);
  }
  void StartThreeInputs() {
    StartMedia({{1, 1, "HDMI1", ""}, {2, 2, "HDMI2", ""}, {3, 3, "HDMI3", ""}});
    // The first pipeline of a process loads every plugin: slow under the sanitizers.
    ASSERT_TRUE(media_->WaitUntilLive(60000)) << "the inputs never delivered a frame";
  }
  void TearDown() override {
    sim_.Stop();
    if (media_ != nullptr) media_->Stop();
    EngineTest::TearDown();
  }
  // Waits until the program made `frames` more frames.
  void WaitFrames(guint64 frames) {
    guint64 until = media_->program_frames() + frames;
    for (int i = 0; i < 500 && media_->program_frames() < until; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_GE(media_->program_frames(), until) << "the program stopped producing frames";
  }
  // Waits up to `ms` for channel `channel` to have (or lose) its picture.
  bool WaitSignal(int channel, bool signal, int ms) {
    for (int i = 0; i < ms / 20; ++i) {
      if (media_->HasSignal(channel) == signal) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return media_->HasSignal(channel) == signal;
  }
  Picture Channel(int channel) {
    std::string name = "/shots/channel" + std::to_string(channel) + ".jpg";
    EXPECT_EQ(zm_make_channel_snapshot(channel, ("file://" + name).c_str(), kWidth, kHeight), 0);
    return Decode(sandbox_->Path(name));
  }
  Picture ProgramAfterLayout(int layout, ZM_MIXER mixer = ZM_MIXER_0) {
    EXPECT_EQ(zm_set_video_layout(layout, mixer, false, false), 0);
    WaitFrames(3);
    std::string name = "/shots/layout" + std::to_string(layout) + ".jpg";
    EXPECT_EQ(zm_make_video_snapshot(mixer, ("file://" + name).c_str(), kWidth, kHeight), 0);
    return Decode(sandbox_->Path(name));
  }
  std::shared_ptr<GstMedia> media_;
};

// Each window shows its source's colour at its position and size, the higher window on top,
// the background black where no window is; every layout switch shows whole.
TEST_F(MediaTest, ProgramFollowsEveryLayoutWindowByWindow) {
  StartThreeInputs();
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
  StartThreeInputs();
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

// A network source that dies leaves the mix running and its channel on the slate; it comes
// back by itself once the sender is back.
TEST_F(MediaTest, NetworkSourceThatDiesShowsTheSlateAndComesBack) {
  const int port = FreePort();
  const unsigned green = 0xff20c020;
  SrtSender sender(port, green);
  sender.Start();
  StartMedia({{1, 1, "HDMI1", ""},
              {4, 4, "Studio", "srt://127.0.0.1:" + std::to_string(port) + "?mode=caller"}});
  ASSERT_TRUE(WaitSignal(4, true, 10000)) << "the network source never showed";
  WaitFrames(5);
  EXPECT_TRUE(Near(Channel(4).At(0.5, 0.5), green & 0xffffff)) << Hex(Channel(4).At(0.5, 0.5));

  sender.Kill();
  ASSERT_TRUE(WaitSignal(4, false, 5000)) << "the dead source still counts as live";
  WaitFrames(10);
  unsigned slate = Channel(4).At(0.1, 0.1);
  EXPECT_TRUE(Near(slate, 0x202428)) << "not the slate: " << Hex(slate);

  sender.Start();
  EXPECT_TRUE(WaitSignal(4, true, 5000)) << "the picture did not return within 5 s";
  WaitFrames(5);
  EXPECT_TRUE(Near(Channel(4).At(0.5, 0.5), green & 0xffffff)) << Hex(Channel(4).At(0.5, 0.5));
}

// A source this engine cannot play, or a file outside the media folders, stays on the slate
// and never stops the others.
TEST_F(MediaTest, SourcesThatCannotPlayStayOnTheSlate) {
  StartMedia({{1, 1, "HDMI1", ""},
              {2, 2, "Elsewhere", "file:///etc/passwd"},
              {3, 3, "Remote", "ndi://STAGE/output"}});
  WaitFrames(10);
  EXPECT_TRUE(WaitSignal(1, true, 5000));
  EXPECT_FALSE(media_->HasSignal(2));
  EXPECT_FALSE(media_->HasSignal(3));
  EXPECT_TRUE(Near(Channel(2).At(0.1, 0.1), 0x202428)) << Hex(Channel(2).At(0.1, 0.1));
}

// Layout switches and reconnections many times over leave descriptors, threads and memory
// where they were, and the program never stops.
TEST_F(MediaTest, SwitchesAndReconnectionsLeaveNothingBehind) {
  StartThreeInputs();
  auto cycle = [this](int switches, int reconnects) {
    const int layouts[] = {1, 6, 9, 13, 2};
    for (int i = 0; i < switches; ++i)
      ASSERT_EQ(zm_set_video_layout(layouts[i % 5], ZM_MIXER_0, false, false), 0);
    for (int i = 0; i < reconnects; ++i) {
      ASSERT_EQ(zm_enable_channel_source(1, false, nullptr, nullptr), 0);
      ASSERT_EQ(zm_enable_channel_source(1, true, nullptr, nullptr), 0);
      ASSERT_TRUE(WaitSignal(1, true, 5000)) << "reconnection " << i;
    }
    WaitFrames(5);
  };
  cycle(10, 5);  // every pool and cache warmed up
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  int fds = CountEntries("/proc/self/fd"), threads = CountEntries("/proc/self/task");
  long rss = ResidentKiB();
  cycle(100, 50);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LE(CountEntries("/proc/self/fd"), fds + 2);
  EXPECT_LE(CountEntries("/proc/self/task"), threads + 4);
  EXPECT_LE(ResidentKiB(), rss + 16 * 1024);
  Picture program = ProgramAfterLayout(1);
  EXPECT_TRUE(Near(program.At(0.5, 0.5), GstMedia::TestColour(1) & 0xffffff));
}

}  // namespace
