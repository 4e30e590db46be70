// Playback over the bus: payloads, the engine-state rule, the engine's state machine and
// replies that break the contract.
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <string>
#include <vector>

#include "engine_fixture.h"

namespace {

using zolo::sim::Forced;
using zolo::test::EngineTest;

class PlaybackTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    sandbox_->WriteFile("/media/rec/clip.mp4", "video");
    sandbox_->WriteFile("/media/rec/information.json", R"({"duration": 5000})");
  }
  std::string Sent(const std::string& method) {
    std::string out;
    for (const auto& r : sim_.Requests(method)) out += (out.empty() ? "" : " | ") + r.payload;
    return out;
  }
  std::string State() {
    std::string state = "unchanged";
    int result = zm_get_playback_state(&state);
    return result == 0 ? state : "error " + std::to_string(result);
  }
};

TEST_F(PlaybackTest, PayloadsCarryFileUrlsAndUnsignedTimes) {
  EXPECT_EQ(zm_playback("/media/rec/clip.mp4", 1000, 2, true), 0);
  EXPECT_EQ(zm_change_playback("file:///media/rec/clip.mp4", 0, false), 0);
  EXPECT_EQ(zm_seek_playback(18446744073709551615ull), -3);  // beyond the file
  EXPECT_EQ(zm_playback(nullptr, 0, 0, false), 0);           // plays the file loaded before
  EXPECT_EQ(Sent("playback"),
            R"({"uri":"file:///media/rec/clip.mp4","time":1000,"show_layout":2,"loop":1} | )"
            R"({"time":0,"show_layout":0,"loop":0})");
  EXPECT_EQ(Sent("change_playback"), R"({"uri":"file:///media/rec/clip.mp4","time":0,"loop":0})");
  EXPECT_EQ(Sent("seek_playback"), R"({"time":1.8446744073709552e+19})");
  EXPECT_EQ(zm_set_playback_mode(3), 0);
  EXPECT_EQ(Sent("set_playback_mode"), R"({"mode":3})");
}

TEST_F(PlaybackTest, StateMachineThroughEveryTransition) {
  struct Step {
    const char* what;
    int (*call)();
    int result;
    const char* state;
  };
  const Step steps[] = {
      {"seek before start", [] { return zm_seek_playback(10); }, -1, "idle"},
      {"pause while idle", [] { return zm_pause_playback(); }, -1, "idle"},
      {"stop while idle", [] { return zm_stop_playback(); }, -1, "idle"},
      {"missing file", [] { return zm_playback("/media/none.mp4", 0, 0, false); }, -5, "idle"},
      {"nothing loaded", [] { return zm_playback(nullptr, 0, 0, false); }, -5, "idle"},
      {"start past the end", [] { return zm_playback("/media/rec/clip.mp4", 5000, 0, false); }, -3,
       "idle"},
      {"start", [] { return zm_playback("/media/rec/clip.mp4", 0, 0, false); }, 0, "playing"},
      {"resume while playing", [] { return zm_resume_playback(); }, -1, "playing"},
      {"seek", [] { return zm_seek_playback(4000); }, 0, "playing"},
      {"seek out of range", [] { return zm_seek_playback(5000); }, -3, "playing"},
      {"pause", [] { return zm_pause_playback(); }, 0, "paused"},
      {"pause again", [] { return zm_pause_playback(); }, -1, "paused"},
      {"seek while paused", [] { return zm_seek_playback(100); }, 0, "paused"},
      {"resume", [] { return zm_resume_playback(); }, 0, "playing"},
      {"change file", [] { return zm_change_playback("/media/rec/clip.mp4", 10, true); }, 0,
       "playing"},
      {"stop", [] { return zm_stop_playback(); }, 0, "idle"},
      {"restart what was loaded", [] { return zm_playback(nullptr, 0, 0, false); }, 0, "playing"},
      {"stop again", [] { return zm_stop_playback(); }, 0, "idle"},
      {"mode out of range", [] { return zm_set_playback_mode(4); }, -3, "idle"},
      {"negative mode", [] { return zm_set_playback_mode(-1); }, -3, "idle"},
      {"ringtone", [] { return zm_play_ringtone(); }, 0, "idle"},
      {"ringtone stop", [] { return zm_stop_ringtone(); }, 0, "idle"},
  };
  for (const Step& s : steps) {
    SCOPED_TRACE(s.what);
    EXPECT_EQ(s.call(), s.result);
    EXPECT_EQ(State(), s.state);
  }
}

TEST_F(PlaybackTest, EngineStateRuleRefusesWithoutFurtherRequests) {
  struct Case {
    const char* method;
    int (*call)();
    bool ruled;
  };
  const Case cases[] = {
      {"playback", [] { return zm_playback(nullptr, 0, 0, false); }, true},
      {"change_playback", [] { return zm_change_playback("/a.mp4", 0, false); }, true},
      {"pause_playback", [] { return zm_pause_playback(); }, true},
      {"resume_playback", [] { return zm_resume_playback(); }, true},
      {"stop_playback", [] { return zm_stop_playback(); }, true},
      {"seek_playback", [] { return zm_seek_playback(1); }, true},
      {"set_playback_mode", [] { return zm_set_playback_mode(1); }, false},
      {"play_ringtone", [] { return zm_play_ringtone(); }, false},
      {"stop_ringtone", [] { return zm_stop_ringtone(); }, false},
  };
  for (int state : {0, 2}) {
    sim_.set_state(state);
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.method) + " in state " + std::to_string(state));
      sim_.ClearRequests();
      int result = c.call();
      if (c.ruled) {
        EXPECT_EQ(result, -4);
        EXPECT_EQ(sim_.Requests().size(), 1u);  // get_state only
      } else {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(sim_.Requests(c.method).size(), 1u);
      }
    }
  }
  sim_.ClearRequests();
  EXPECT_EQ(zm_change_playback(nullptr, 0, false), -3);
  EXPECT_TRUE(sim_.Requests().empty());
}

TEST_F(PlaybackTest, StateRepliesThatBreakTheContract) {
  struct Case {
    Forced forced;
    const char* state;
  };
  const Case cases[] = {
      {Forced{Forced::kNoCode, 0, 0, R"({"code":0})"}, ""},
      {Forced{Forced::kNoCode, 0, 0, R"({"code":0,"state":7})"}, ""},
      {Forced{Forced::kNoCode, 0, 0, R"({"code":0,"state":"paused"})"}, "paused"},
      {Forced{Forced::kNoCode, 0, 0, R"({"state":"paused"})"}, "error -1"},
      {Forced{Forced::kNoCode, 0, 0, R"({"code":"0","state":"paused"})"}, "error -1"},
      {Forced{Forced::kCode, -1005, 0, ""}, "error -5"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.state);
    sim_.Force("get_playback_state", c.forced);
    EXPECT_EQ(State(), c.state);
  }
  EXPECT_EQ(zm_get_playback_state(nullptr), -3);
}

}  // namespace
