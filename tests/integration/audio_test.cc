// Audio ports over the bus: the merge of stored rows with the engine's items, the mixer
// membership rules, every command's payload and result, and changes seen in the next read
// and in the engine's signals.
#include <gtest/gtest.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>

#include <glib.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine_fixture.h"

namespace {

using zolo::sim::Forced;
using zolo::test::EngineTest;

std::mutex g_mutex;
std::vector<std::string> g_signals;

void OnAudioSignal(const char* name, void* data, void*) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (std::string(name) == "audio_volume") {
    auto* volume = static_cast<media_sig_audio_volume*>(data);
    g_signals.push_back(std::string(volume->name) + " volume " + std::to_string(volume->volume) +
                        " mute " + std::to_string(volume->mute));
  } else {
    auto* type = static_cast<media_sig_audio_type*>(data);
    g_signals.push_back(std::string(type->name) + " type " + std::to_string(type->type));
  }
}

std::map<std::string, int> g_levels;

void OnLevel(const char*, void* data, void*) {
  auto* level = static_cast<media_sig_audio_level*>(data);
  std::lock_guard<std::mutex> lock(g_mutex);
  g_levels[level->name] = level->level;
}

class AudioTest : public EngineTest {
 protected:
  static std::string Names(const std::vector<zm_audio_info>& ports) {
    std::string names;
    for (const auto& p : ports) names += std::string(p.name) + " ";
    return names;
  }
  static zm_audio_info Port(bool output, const char* name) {
    std::vector<zm_audio_info> out;
    EXPECT_EQ(output ? zm_get_audio_output(name, &out) : zm_get_audio_input(name, &out), 0);
    EXPECT_EQ(out.size(), 1u) << name;
    return out.empty() ? zm_audio_info{} : out.front();
  }
  void ForceReply(const char* method, const std::string& reply) {
    sim_.Force(method, Forced{Forced::kNoCode, 0, 0, reply});
  }
  static void Exec(const std::string& sql) { ASSERT_EQ(zm_execute_db_command(sql.c_str()), 0); }
  static std::vector<int> Members() {
    std::vector<zm_audio_info> out;
    EXPECT_EQ(zm_get_audio_output(nullptr, &out), 0);
    std::vector<int> members;
    for (const auto& p : out) members.push_back(p.mixer_member);
    return members;
  }
};

TEST_F(AudioTest, PortsMergeStoredSettingsWithTheEnginesItems) {
  std::vector<zm_audio_info> inputs;
  ASSERT_EQ(zm_get_audio_input(nullptr, &inputs), 0);
  EXPECT_EQ(Names(inputs), "audio-in1 xlr-in1 xlr-in2 usb-audio-in1 playback1 ");
  const zm_audio_info& xlr = inputs[1];
  EXPECT_EQ(std::vector<int>({xlr.volume, xlr.mute, xlr.audio_type, xlr.gain, xlr.noise_reduction,
                              xlr.xlr_channel, xlr.xlr_power, xlr.status, xlr.mode}),
            std::vector<int>({70, 0, 2, 24, 1, 0, 1, 1, 0}));
  EXPECT_STREQ(xlr.device_name, "zolo-audio:xlr-in1");
  EXPECT_NE(xlr.version[0], '\0');
  const zm_audio_info& usb = inputs[3];  // stores no gain, noise reduction or XLR settings
  EXPECT_EQ(std::vector<int>({usb.gain, usb.noise_reduction, usb.xlr_channel, usb.xlr_power}),
            std::vector<int>({-100, -1, -1, -1}));
  EXPECT_EQ(inputs[4].mixer_member + inputs[4].monitor_mode, 0);  // output members stay 0

  std::vector<zm_audio_info> outputs;
  ASSERT_EQ(zm_get_audio_output(nullptr, &outputs), 0);
  EXPECT_EQ(Names(outputs), "audio-out1 audio-out2 audio-out3 ");
  const zm_audio_info& line = outputs[0];
  EXPECT_EQ(std::vector<int>({line.volume, line.monitor_mode, line.monitor_duration_threshold,
                              line.monitor_level_threshold, line.gain, line.status}),
            std::vector<int>({80, 1, 10, 60, 0, 0}));
  EXPECT_EQ(outputs[1].monitor_duration_threshold, -1);
  EXPECT_STREQ(line.device_name, "");

  // Appends without clearing; one port by name.
  ASSERT_EQ(zm_get_audio_input("xlr-in2", &inputs), 0);
  EXPECT_EQ(inputs.size(), 6u);
  EXPECT_STREQ(inputs.back().name, "xlr-in2");
  EXPECT_EQ(zm_get_audio_input("audio-out1", &inputs), 0);  // an output is no input
  EXPECT_EQ(zm_get_audio_output("xlr-in1", &outputs), 0);
  EXPECT_EQ(inputs.size() + outputs.size(), 9u);
}

// Items the engine leaves out, adds, or sends with other types never throw and never
// invent ports.
TEST_F(AudioTest, EngineItemsMissingExtraOrMistyped) {
  ForceReply("get_audio_input_info",
             R"({"code":0,"xlr-in1":{"level":-20,"left":-21,"right":-19},)"
             R"("xlr-in2":{"level":"loud","status":"up","mode":null,"version":5,"device_name":[]},)"
             R"("usb-audio-in1":7,"ghost":{"level":-1},"playback1":{}})");
  std::vector<zm_audio_info> inputs;
  ASSERT_EQ(zm_get_audio_input(nullptr, &inputs), 0);
  ASSERT_EQ(Names(inputs), "xlr-in1 xlr-in2 playback1 ");
  EXPECT_EQ(std::vector<int>({inputs[0].level, inputs[0].left, inputs[0].right, inputs[0].status,
                              inputs[0].mode}),
            std::vector<int>({-20, -21, -19, -1, -1}));
  EXPECT_EQ(std::vector<int>({inputs[1].level, inputs[1].status, inputs[1].mode}),
            std::vector<int>({0, -1, -1}));
  EXPECT_EQ(std::string(inputs[1].version) + inputs[1].device_name, "");
  EXPECT_EQ(inputs[2].volume, 100);

  ForceReply("get_audio_output_info",
             R"({"code":0,"audio-out1":{"level":-3,"warning_triggered":true},)"
             R"("audio-out3":{"warning_triggered":"yes"}})");
  std::vector<zm_audio_info> outputs;
  ASSERT_EQ(zm_get_audio_output(nullptr, &outputs), 0);
  ASSERT_EQ(Names(outputs), "audio-out1 audio-out3 ");
  EXPECT_EQ(outputs[0].warning_triggered + 10 * outputs[1].warning_triggered, 1);

  // A failed read appends nothing and returns the mapped engine result.
  sim_.Force("get_audio_output_info", Forced{Forced::kCode, -1012, 0, ""});
  EXPECT_EQ(zm_get_audio_output(nullptr, &outputs), -7);
  ForceReply("get_audio_input_info", "not json");
  EXPECT_EQ(zm_get_audio_input(nullptr, &inputs), -1);
  EXPECT_EQ(inputs.size() + outputs.size(), 5u);
  EXPECT_EQ(zm_get_audio_input(nullptr, nullptr), -3);
  EXPECT_EQ(zm_get_audio_output(nullptr, nullptr), -3);
  sim_.Unforce("get_audio_input_info");
  MediaModel::Instance()->Release();  // both stream queries fail
  EXPECT_EQ(zm_get_audio_input(nullptr, &inputs), -5);
  EXPECT_EQ(inputs.size(), 3u);
}

// Outputs whose channel is an "Audio-Out" channel ask the mixer that feeds them whether it
// mixes "Audio-Mix" (or, without that channel, "Audio-Usb").
TEST_F(AudioTest, MixerMembershipOfOutputs) {
  // audio-out1: mixer 0 mixes Audio-Mix; audio-out2: mixer 1 mixes Audio-Usb only;
  // audio-out3: no mixer.
  EXPECT_EQ(Members(), std::vector<int>({1, 0, -1}));
  Exec("UPDATE channel SET name = 'Mix' WHERE name = 'Audio-Mix'");
  EXPECT_EQ(Members(), std::vector<int>({0, 1, -1}));
  Exec("UPDATE channel SET name = 'Usb' WHERE name = 'Audio-Usb'");
  EXPECT_EQ(Members(), std::vector<int>({0, 0, 0}));
  Exec(
      "UPDATE channel SET name = 'Audio-Mix' WHERE name = 'Mix'; "
      "UPDATE channel SET name = 'Line-Out' WHERE name = 'Audio-Out-Line1'");
  EXPECT_EQ(Members(), std::vector<int>({-1, 0, -1}));
}

TEST_F(AudioTest, CommandsSendTheirPayloadsAndMapResults) {
  struct Case {
    const char* what;
    std::function<int()> call;
    int result;
    const char* method = nullptr;  // nullptr: nothing may be sent
    const char* payload = nullptr;
  };
  const Case cases[] = {
      {"input volume, mute only", [] { return zm_set_audio_input("xlr-in1", -1, 1); }, 0,
       "set_audio_input_volume", R"({"name":"xlr-in1","volume":-1,"mute":1})"},
      {"input volume, neither", [] { return zm_set_audio_input("xlr-in1", -1, -1); }, -3},
      {"input volume, null name", [] { return zm_set_audio_input(nullptr, 5, 0); }, -3},
      {"input volume, unknown port", [] { return zm_set_audio_input("nope", 5, 0); }, -5,
       "set_audio_input_volume", R"({"name":"nope","volume":5,"mute":0})"},
      {"input volume, too loud", [] { return zm_set_audio_input("xlr-in1", 1000, 0); }, -3,
       "set_audio_input_volume", R"({"name":"xlr-in1","volume":1000,"mute":0})"},
      {"input volume of an output", [] { return zm_set_audio_input("audio-out1", 5, 0); }, -5,
       "set_audio_input_volume", R"({"name":"audio-out1","volume":5,"mute":0})"},
      {"input type 0", [] { return zm_set_audio_input_type("xlr-in1", 0); }, -3},
      {"input type", [] { return zm_set_audio_input_type("xlr-in1", 3); }, 0,
       "set_audio_input_type", R"({"name":"xlr-in1","type":3})"},
      {"gain below zero", [] { return zm_set_audio_input_gain("xlr-in1", -12); }, 0,
       "set_audio_input_gain", R"({"name":"xlr-in1","gain":-12})"},
      {"gain out of range", [] { return zm_set_audio_input_gain("xlr-in1", -100000); }, -3,
       "set_audio_input_gain", R"({"name":"xlr-in1","gain":-100000})"},
      {"gain, empty name", [] { return zm_set_audio_input_gain("", 1); }, -3},
      {"noise reduction", [] { return zm_set_audio_input_noise_reduction("xlr-in1", 2); }, 0,
       "set_audio_input_noise_reduction", R"({"name":"xlr-in1","level":2})"},
      {"noise reduction -1", [] { return zm_set_audio_input_noise_reduction("xlr-in1", -1); }, -3},
      {"xlr channel", [] { return zm_set_audio_input_xlr_channel("xlr-in2", 0); }, 0,
       "set_audio_input_xlr_channel", R"({"name":"xlr-in2","mode":0})"},
      {"xlr power -1", [] { return zm_set_audio_input_xlr_power("xlr-in2", -1); }, -3},
      {"xlr power", [] { return zm_set_audio_input_xlr_power("xlr-in2", 1); }, 0,
       "set_audio_input_xlr_power", R"({"name":"xlr-in2","mode":1})"},
      {"mode refused", [] { return zm_set_audio_input_mode("xlr-in1", 9); }, -3,
       "set_audio_input_mode", R"({"name":"xlr-in1","mode":9})"},
      {"mode -1", [] { return zm_set_audio_input_mode("xlr-in1", -1); }, -3},
      {"loop-through", [] { return zm_set_audio_input_hw_loop_through("xlr-in1", true); }, 0,
       "set_audio_input_hw_loopthrough", R"({"name":"xlr-in1","enable":true})"},
      {"loop-through, null: sent all the same",
       [] { return zm_set_audio_input_hw_loop_through(nullptr, false); }, -3,
       "set_audio_input_hw_loopthrough", R"({"enable":false})"},
      {"output volume unchecked", [] { return zm_set_audio_output("audio-out1", -7, -7); }, 0,
       "set_audio_output_volume", R"({"name":"audio-out1","volume":-7,"mute":-7})"},
      {"output volume too loud", [] { return zm_set_audio_output("audio-out1", 101, 0); }, -3,
       "set_audio_output_volume", R"({"name":"audio-out1","volume":101,"mute":0})"},
      {"output type 0", [] { return zm_set_audio_output_type("audio-out2", 0); }, 0,
       "set_audio_output_type", R"({"name":"audio-out2","type":0})"},
      {"output type -1", [] { return zm_set_audio_output_type("audio-out2", -1); }, -3},
      {"monitor, duration 0", [] { return zm_set_audio_output_monitor("audio-out1", 0, 0, 5); },
       -3},
      {"monitor, level 0", [] { return zm_set_audio_output_monitor("audio-out1", 1, 5, 0); }, -3},
      {"monitor", [] { return zm_set_audio_output_monitor("audio-out1", 0, 1, 1); }, 0,
       "set_audio_output_monitor",
       R"({"name":"audio-out1","mode":0,"duration_threshold":1,"level_threshold":1})"},
  };
  for (const auto& c : cases) {
    sim_.ClearRequests();
    EXPECT_EQ(c.call(), c.result) << c.what;
    auto requests = sim_.Requests();
    if (c.method == nullptr) {
      EXPECT_TRUE(requests.empty()) << c.what;
      continue;
    }
    ASSERT_EQ(requests.size(), 1u) << c.what;
    EXPECT_EQ(requests[0].method, c.method) << c.what;
    EXPECT_EQ(requests[0].payload, c.payload) << c.what;
  }
  sim_.Force("set_audio_input_gain", Forced{Forced::kCode, -1012, 0, ""});
  EXPECT_EQ(zm_set_audio_input_gain("xlr-in1", 3), -7);
  // What was refused left the stored settings alone.
  zm_audio_info xlr = Port(false, "xlr-in1");
  EXPECT_EQ(std::vector<int>({xlr.volume, xlr.mute, xlr.audio_type, xlr.gain, xlr.mode}),
            std::vector<int>({70, 1, 3, -12, 0}));
}

TEST_F(AudioTest, ChangesShowInTheNextReadAndInSignals) {
  ASSERT_EQ(zm_register_signal("audio_volume", OnAudioSignal), 0);
  ASSERT_EQ(zm_register_signal("audio_type", OnAudioSignal), 0);
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_signals.clear();
  }
  ASSERT_EQ(zm_set_audio_input("xlr-in1", 55, -1), 0);
  ASSERT_EQ(zm_set_audio_output("audio-out2", 30, 1), 0);
  ASSERT_EQ(zm_set_audio_input_type("usb-audio-in1", 2), 0);
  ASSERT_EQ(zm_set_audio_input_mode("xlr-in2", 2), 0);
  ASSERT_EQ(zm_set_audio_output_monitor("audio-out2", 2, 30, 45), 0);
  zm_audio_info xlr = Port(false, "xlr-in1");
  EXPECT_EQ(xlr.volume * 10 + xlr.mute, 550);
  EXPECT_EQ(Port(false, "usb-audio-in1").audio_type, 2);
  EXPECT_EQ(Port(false, "xlr-in2").mode, 2);
  zm_audio_info usb = Port(true, "audio-out2");
  EXPECT_EQ(std::vector<int>({usb.volume, usb.mute, usb.monitor_mode,
                              usb.monitor_duration_threshold, usb.monitor_level_threshold}),
            std::vector<int>({30, 1, 2, 30, 45}));
  const std::vector<std::string> expected = {"xlr-in1 volume 55 mute 0",
                                             "audio-out2 volume 30 mute 1", "usb-audio-in1 type 2"};
  for (int i = 0; i < 200; ++i) {
    {
      std::lock_guard<std::mutex> lock(g_mutex);
      if (g_signals.size() >= expected.size()) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  std::lock_guard<std::mutex> lock(g_mutex);
  EXPECT_EQ(g_signals, expected);
}

// The engine announces the level of every configured port and of the program mix; a muted
// port stays at the floor. Both the in-process engine and the daemon, which finds the media
// database through the sandbox's configuration as the library does.
TEST_F(AudioTest, LevelsOfEveryPortAndTheProgramMix) {
  std::set<std::string> expected = {"Audio-Mix"};
  std::vector<zm_audio_info> ports;
  ASSERT_EQ(zm_get_audio_input(nullptr, &ports), 0);
  ASSERT_EQ(zm_get_audio_output(nullptr, &ports), 0);
  for (const auto& port : ports) expected.insert(port.name);
  ASSERT_GE(expected.size(), 6u);
  ASSERT_EQ(zm_register_signal("audio_level", OnLevel), 0);
  auto heard_all = [&] {
    for (int i = 0; i < 300; ++i) {
      {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_levels.size() >= expected.size()) break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::lock_guard<std::mutex> lock(g_mutex);
    std::set<std::string> heard;
    for (const auto& [name, level] : g_levels) heard.insert(name);
    EXPECT_EQ(heard, expected);
    EXPECT_EQ(g_levels["xlr-in2"], -90) << "a muted port is silent";
    EXPECT_GT(g_levels["Audio-Mix"], -90);
    g_levels.clear();
  };
  sim_.set_level_interval_ms(20);
  heard_all();
  sim_.set_level_interval_ms(0);
  sim_.Stop();

  std::string program = zolo::test::BinaryDir() + "/engine/sim/zolo-media-sim";
  std::string root = sandbox_->root();
  std::vector<gchar*> argv = {program.data(),
                              const_cast<gchar*>("--sandbox"),
                              root.data(),
                              const_cast<gchar*>("--level-rate"),
                              const_cast<gchar*>("30"),
                              nullptr};
  GPid daemon = 0;
  ASSERT_TRUE(g_spawn_async(nullptr, argv.data(), nullptr, G_SPAWN_DO_NOT_REAP_CHILD, nullptr,
                            nullptr, &daemon, nullptr));
  heard_all();
  kill(daemon, SIGTERM);
  int status = 0;
  waitpid(daemon, &status, 0);
  g_spawn_close_pid(daemon);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  ASSERT_EQ(sim_.Start(), 0);
}

}  // namespace
