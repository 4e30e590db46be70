// The live mixer over the bus: payloads per mixer value, the engine-state rules, switches
// read back through the getters, signals, crop, snapshots and output colour.
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "engine_fixture.h"

namespace {

using zolo::sim::Forced;
using zolo::test::EngineTest;

std::mutex g_mutex;
std::vector<std::string> g_signals;

void OnMixerSignal(const char* name, void* data, void*) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (std::string(name) == "video_layout") {
    auto* layout = static_cast<media_sig_video_layout*>(data);
    g_signals.push_back("layout " + std::to_string(layout->id) + " " + layout->mixer);
  } else {
    auto* asset = static_cast<media_sig_video_background*>(data);
    g_signals.push_back(std::string(name) + " " + std::to_string(asset->id) + " " + asset->mixer);
  }
}

class MixerLiveTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    for (const char* name : {"video_layout", "video_background", "video_overlay"})
      ASSERT_EQ(zm_register_signal(name, OnMixerSignal), 0);
    ClearSignals();
  }
  static void ClearSignals() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_signals.clear();
  }
  // Payloads of every request of `method` so far, joined by " | ".
  std::string Sent(const std::string& method) {
    std::string out;
    for (const auto& r : sim_.Requests(method)) out += (out.empty() ? "" : " | ") + r.payload;
    return out;
  }
  std::vector<std::string> Signals(size_t count) {
    for (int i = 0; i < 200; ++i) {
      {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_signals.size() >= count) break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_signals;
  }
};

TEST_F(MixerLiveTest, LayoutPayloadAndSignalForEveryMixerValue) {
  const std::string kMain = "zolo://video/mixer/0", kDisplay = "zolo://video/display_mixer/0";
  const std::string kOne = "zolo://video/mixer/1", kTwo = "zolo://video/mixer/2";
  struct Case {
    int mixer;
    int result;
    std::string target;  // the mixer named in the payload; empty: all of them
    std::vector<std::string> signalled;
  };
  const Case cases[] = {
      {0, 0, kMain, {kMain}}, {1, 0, kMain, {kMain}}, {2, 0, kDisplay, {kDisplay}},
      {3, 0, kOne, {kOne}},   {4, 0, kTwo, {kTwo}},   {5, 0, "", {kMain, kOne, kTwo, kDisplay}},
      {6, -2, "", {}},        {-1, -2, "", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.mixer);
    sim_.ClearRequests();
    ClearSignals();
    EXPECT_EQ(zm_set_video_layout(6, static_cast<ZM_MIXER>(c.mixer), true, false), c.result);
    std::string payload = R"({"id":6,)" +
                          (c.target.empty() ? "" : R"("mixer":")" + c.target + "\",") +
                          R"("persist":true,"bookmark":false})";
    EXPECT_EQ(Sent("set_video_layout"), c.result == 0 ? payload : "");
    std::vector<std::string> got = Signals(c.signalled.size()), want;
    for (const auto& mixer : c.signalled) want.push_back("layout 6 " + mixer);
    std::sort(got.begin(), got.end());
    std::sort(want.begin(), want.end());
    EXPECT_EQ(got, want);
    if (c.result == 0 && c.mixer != 5) {
      EXPECT_EQ(zm_get_video_layout(static_cast<ZM_MIXER>(c.mixer)), 6);
    }
  }
}

TEST_F(MixerLiveTest, EngineStateRulesRefuseWithoutFurtherRequests) {
  struct Case {
    const char* method;
    int (*call)();
  };
  // Commands sent only while idle or live (states 1 and 3).
  const Case idle_or_live[] = {
      {"set_video_layout", [] { return zm_set_video_layout(1, ZM_MIXER_DEFAULT, false, false); }},
      {"set_video_background", [] { return zm_set_video_background(2, ZM_MIXER_1); }},
      {"set_video_overlay", [] { return zm_set_video_logo(33, 0.5, 0.5, ZM_MIXER_0); }},
      {"set_video_system_overlay",
       [] { return zm_set_video_system_overlay(49, 0.1, 0.1, ZM_MIXER_0); }},
      {"set_video_theme", [] { return zm_set_video_theme(1, ZM_MIXER_0); }}};
  // Commands also sent while paused (state 4).
  const Case also_paused[] = {
      {"set_video_layout", [] { return zm_set_video_layout(1, ZM_MIXER_0, false, false); }},
      {"set_video_layout", [] { return zm_set_display_layout(48, false); }},
      {"set_video_foreground", [] { return zm_set_video_foreground(ZM_MIXER_0, 17); }},
      {"set_intermission_mode", [] { return zm_set_video_intermission(1); }}};
  auto check = [this](const auto& cases, bool paused_too) {
    for (const Case& c : cases) {
      for (int state = 0; state <= 4; ++state) {
        SCOPED_TRACE(std::string(c.method) + " #" + std::to_string(&c - cases) + " in state " +
                     std::to_string(state));
        sim_.set_state(state);
        sim_.ClearRequests();
        bool allowed = state == 1 || state == 3 || (paused_too && state == 4);
        EXPECT_EQ(c.call(), allowed ? 0 : -4);
        EXPECT_EQ(sim_.Requests(c.method).size(), allowed ? 1u : 0u);
        EXPECT_EQ(sim_.Requests().size(), allowed ? 2u : 1u);  // get_state first
      }
    }
  };
  check(idle_or_live, false);
  check(also_paused, true);
}

TEST_F(MixerLiveTest, BadArgumentsAreRefusedBeforeAnyRequest) {
  using Call = int (*)();
  const std::pair<Call, int> cases[] = {
      {[] { return zm_set_video_layout(-1, ZM_MIXER_0, false, false); }, -3},
      {[] { return zm_set_display_layout(-1, false); }, -3},
      {[] { return zm_set_video_theme(0, ZM_MIXER_0); }, -3},
      {[] {
         return zm_set_video_theme(zm_theme{0, "", 0, 0, -1, 0}, ZM_MIXER_0);
       },
       -3},
      {[] { return zm_make_video_snapshot(ZM_MIXER_0, "/tmp/a.jpg", 64, 36); }, -3},
      {[] { return zm_make_video_snapshot(ZM_MIXER_0, nullptr, 64, 36); }, -3},
      {[] {
         return zm_set_output_color("display1", zm_output_color{"", 0, 0, 0, -1});
       },
       -3},
      {[] { return zm_get_video_background(nullptr, ZM_MIXER_0); }, -3},
      {[] { return zm_get_video_layout(ZM_MIXER_ALL); }, -2},
      {[] { return zm_make_video_snapshot(ZM_MIXER_ALL, "file:///tmp/a.jpg", 64, 36); }, -2},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    sim_.ClearRequests();
    EXPECT_EQ(cases[i].first(), cases[i].second);
    EXPECT_TRUE(sim_.Requests().empty());
  }
}

TEST_F(MixerLiveTest, SwitchesAgreeWithTheGettersAndSignals) {
  EXPECT_EQ(zm_set_video_background(3, ZM_MIXER_1), 0);
  EXPECT_EQ(zm_set_video_overlay(33, 0.5, 0.25, ZM_MIXER_1), 0);
  EXPECT_EQ(zm_set_video_system_overlay(50, 0.1, 0.1, ZM_MIXER_1), 0);
  EXPECT_EQ(zm_set_video_foreground(ZM_MIXER_1, 17), 0);
  zm_background background;
  zm_logo logo;
  zm_system_overlay system;
  zm_foreground foreground;
  ASSERT_EQ(zm_get_video_background(&background, ZM_MIXER_1), 0);
  ASSERT_EQ(zm_get_video_logo(&logo, ZM_MIXER_1), 0);
  ASSERT_EQ(zm_get_video_system_overlay(&system, ZM_MIXER_1), 0);
  ASSERT_EQ(zm_get_video_foreground(ZM_MIXER_1, &foreground), 0);
  EXPECT_EQ(
      std::string(background.name) + " " + logo.name + " " + system.name + " " + foreground.name,
      "blue.png logo.png clock.png intermission_1.png");
  EXPECT_DOUBLE_EQ(logo.x, 0.85);  // the asset's stored position
  EXPECT_EQ(Signals(2), (std::vector<std::string>{"video_background 3 zolo://video/mixer/1",
                                                  "video_overlay 33 zolo://video/mixer/1"}));
  // The main mixer is untouched.
  ASSERT_EQ(zm_get_video_background(&background, ZM_MIXER_0), 0);
  EXPECT_EQ(background.id, 1);

  // The theme record form binds its layout, background and overlay.
  EXPECT_EQ(zm_set_video_theme(zm_theme{0, "", 7, 2, 0, 0}, ZM_MIXER_2), 0);
  EXPECT_EQ(Sent("set_video_theme"),
            R"({"layout":7,"overlay":0,"background":2,"mixer":"zolo://video/mixer/2"})");
  EXPECT_EQ(zm_get_video_layout(ZM_MIXER_2), 7);
  ASSERT_EQ(zm_get_video_background(&background, ZM_MIXER_2), 0);
  EXPECT_EQ(background.id, 2);
  EXPECT_EQ(zm_get_video_theme(ZM_MIXER_0), 1);
  zm_overlay overlay;
  ASSERT_EQ(zm_get_video_overlay(&overlay, ZM_MIXER_2), 0);
  EXPECT_EQ(overlay.id, 0);  // none: left zeroed
}

TEST_F(MixerLiveTest, EngineRefusalsChangeNothing) {
  struct Case {
    int result;
    int (*call)();
  };
  // Layout 20 and background 5 are free slots.
  const Case cases[] = {
      {-5, [] { return zm_set_video_layout(999, ZM_MIXER_0, true, false); }},
      {-5, [] { return zm_set_video_layout(20, ZM_MIXER_0, true, false); }},
      {-5, [] { return zm_set_video_layout(0, ZM_MIXER_0, true, false); }},
      {-5, [] { return zm_set_video_background(5, ZM_MIXER_0); }},
      {-3, [] { return zm_set_video_overlay(33, 1.5, 0.2, ZM_MIXER_0); }},
      {-3, [] { return zm_set_video_overlay(33, 0.5, -0.2, ZM_MIXER_0); }},
      {-5, [] { return zm_set_video_theme(2, ZM_MIXER_0); }},
      {-5, [] { return zm_set_video_foreground(ZM_MIXER_0, "/media/missing.png"); }},
      {-1, [] { return zm_make_video_snapshot(ZM_MIXER_0, "file:///no/such/dir/a.jpg", 64, 36); }},
      {-3, [] { return zm_make_video_snapshot(ZM_MIXER_0, "file:///tmp/a.jpg", 0, 36); }},
      {-5,
       [] {
         return zm_set_output_color("nowhere", {"nowhere", 1, 1, 1, 1});
       }},
      {-3,
       [] {
         return zm_set_output_color("display1", {"display1", 1000, 1, 1, 1});
       }},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(cases[i].call(), cases[i].result);
    zm_background background;
    ASSERT_EQ(zm_get_video_background(&background, ZM_MIXER_0), 0);
    zm_overlay overlay;
    ASSERT_EQ(zm_get_video_overlay(&overlay, ZM_MIXER_0), 0);
    EXPECT_EQ(zm_get_video_layout(ZM_MIXER_0), 1);
    EXPECT_EQ(background.id * 100 + overlay.id, 100);
  }
  std::vector<zm_output_color> colors;
  ASSERT_EQ(zm_get_output_color("display1", &colors), 0);
  ASSERT_EQ(colors.size(), 1u);
  EXPECT_EQ(colors[0].brightness, 50);
}

TEST_F(MixerLiveTest, PathsAndIntelligentLayout) {
  sandbox_->WriteFile("/media/a.png", "png");
  EXPECT_EQ(zm_set_video_foreground(ZM_MIXER_ALL, "/media/a.png"), 0);
  EXPECT_EQ(zm_set_video_foreground(ZM_MIXER_0, "file:///media/a.png"), 0);
  EXPECT_EQ(
      Sent("set_video_foreground"),
      R"({"path":"file:///media/a.png"} | {"path":"file:///media/a.png","mixer":"zolo://video/mixer/0"})");
  EXPECT_EQ(zm_set_intelligent_display_layout(49, true, true), 0);
  EXPECT_EQ(Sent("set_intelligent_layout"),
            R"({"id":49,"mixer":"zolo://video/display_mixer/0","persist":true,"bookmark":true})");

  // Without the setting nothing is sent.
  sandbox_->WriteFile("/etc/media.conf", "[Application]\n[Engine]\n");
  zm_release();
  ASSERT_EQ(zm_init(false), 0);
  sim_.ClearRequests();
  EXPECT_EQ(zm_set_intelligent_layout(6, ZM_MIXER_0, false, false), -2);
  EXPECT_TRUE(sim_.Requests("set_intelligent_layout").empty());
}

TEST_F(MixerLiveTest, CropWritesGeometryAndCropOnlyThenShowsTheLayout) {
  ASSERT_EQ(zm_set_video_layout(6, ZM_MIXER_1, false, false), 0);
  sim_.ClearRequests();
  // Source 2 is the second window: the window is found by its source, not by index.
  EXPECT_EQ(zm_set_video_layout_crop(2, 1, ZM_MIXER_1, true, false), 0);
  std::vector<zm_layout> layouts;
  ASSERT_EQ(zm_get_layout(6, &layouts), 0);
  EXPECT_EQ(zm_get_layout_string(layouts.at(0).video_layouts),
            zm_get_layout_string({{1, 0.5, 0.5, 0, 0.25, 0, 0}, {2, 0.5, 0.5, 0.5, 0.25, 0, 1}}));
  EXPECT_EQ(Sent("set_video_layout"),
            R"({"id":6,"mixer":"zolo://video/mixer/1","persist":true,"bookmark":false})");

  sim_.ClearRequests();
  EXPECT_EQ(zm_set_video_layout_crop(9, 1, ZM_MIXER_1, true, false), -5);
  EXPECT_EQ(zm_set_video_layout_crop(2, 1, ZM_MIXER_ALL, true, false), -2);
  EXPECT_TRUE(sim_.Requests("set_video_layout").empty());
  // The stored crop stays when the engine refuses to show the layout again.
  sim_.Force("set_video_layout", Forced{Forced::kCode, -1001, 0, ""});
  EXPECT_EQ(zm_set_video_layout_crop(1, 2, ZM_MIXER_1, false, false), -1);
  layouts.clear();
  ASSERT_EQ(zm_get_layout(6, &layouts), 0);
  EXPECT_EQ(layouts.at(0).video_layouts.at(0).crop * 10 + layouts.at(0).video_layouts.at(0).id, 21);
}

TEST_F(MixerLiveTest, SnapshotWritesAJpegAndColourRoundTrips) {
  sandbox_->MakeDir("/tmp/shots");
  EXPECT_EQ(zm_make_video_snapshot(ZM_MIXER_DISPLAY, "file:///tmp/shots/a.jpg", 64, 36), 0);
  EXPECT_EQ(
      Sent("make_video_snapshot"),
      R"({"mixer":"zolo://video/display_mixer/0","uri":"file:///tmp/shots/a.jpg","width":64,"height":36})");
  EXPECT_EQ(zolo::test::ReadFile(sandbox_->Path("/tmp/shots/a.jpg")).substr(0, 2), "\xFF\xD8");

  zm_output_color color{"display1", 60, 40, 55, 10};
  EXPECT_EQ(zm_set_output_color("display1", color), 0);
  std::vector<zm_output_color> colors;
  ASSERT_EQ(zm_get_output_color(nullptr, &colors), 0);
  ASSERT_EQ(colors.size(), 1u);
  EXPECT_EQ(std::vector<int>(
                {colors[0].brightness, colors[0].contrast, colors[0].saturation, colors[0].hue}),
            std::vector<int>({60, 40, 55, 10}));
  colors.clear();
  ASSERT_EQ(zm_get_output_color("other", &colors), 0);
  EXPECT_TRUE(colors.empty());
}

TEST_F(MixerLiveTest, StalledEngineTimesOutWithoutChanges) {
  sim_.Force("set_video_background", Forced{Forced::kNoReply, 0, 0, ""});
  EXPECT_LT(zm_set_video_background(2, ZM_MIXER_0), 0);
  zm_background background;
  ASSERT_EQ(zm_get_video_background(&background, ZM_MIXER_0), 0);
  EXPECT_EQ(background.id, 1);
}

}  // namespace
