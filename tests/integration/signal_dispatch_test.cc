// Signals from the simulated engine to registered callbacks, parsed and raw.
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "engine_fixture.h"
#include "log_capture.h"

namespace {

using zolo::test::EngineTest;

struct Seen {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> names;
  std::vector<std::string> texts;  // a field of the record, or the raw payload
  std::vector<void*> user_data;
  bool WaitFor(size_t n) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(5), [&] { return names.size() >= n; });
  }
  void Add(const char* name, std::string text, void* user) {
    std::lock_guard<std::mutex> lock(mutex);
    names.push_back(name ? name : "(null)");
    texts.push_back(std::move(text));
    user_data.push_back(user);
    changed.notify_all();
  }
};
Seen* g_seen = nullptr;

void OnAudioLevel(const char* name, void* data, void* user) {
  auto* level = static_cast<media_sig_audio_level*>(data);
  g_seen->Add(name, std::string(level->name) + ":" + std::to_string(level->level), user);
}

void OnRaw(const char* name, void* data, void* user) {
  g_seen->Add(name, static_cast<const char*>(data), user);
}

void OnRecording(const char* name, void* data, void* user) {
  auto* created = static_cast<media_sig_recording_created*>(data);
  g_seen->Add(name, std::to_string(created->id), user);
}

class SignalDispatchTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    g_seen = &seen_;
  }
  void TearDown() override {
    zm_set_opt(0, 1);
    for (const char* name : {"audio_level", "recording_created", "status", "streaming_state",
                             "streaming_duration", "stream_status"})
      zm_unregister_signal(name);
    EngineTest::TearDown();
    g_seen = nullptr;
  }
  // Emits, then makes one call so that everything emitted before has crossed the bus.
  void EmitAndSettle(const char* name, const char* payload) {
    ASSERT_EQ(sim_.Emit(name, payload), 0);
    zm_get_state(nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  Seen seen_;
};

TEST_F(SignalDispatchTest, ParsedRecordsReachTheCallbackWithNameAndUserData) {
  int marker;
  ASSERT_EQ(zm_set_user_data(&marker), 0);
  ASSERT_EQ(zm_register_signal("audio_level", OnAudioLevel), 0);
  ASSERT_EQ(zm_register_signal("recording_created", OnRecording), 0);
  ASSERT_EQ(sim_.Emit("audio_level", R"({"Name":"in1","Level":-12,"Left":-1,"Right":-2})"), 0);
  ASSERT_EQ(sim_.Emit("recording_created", R"({"Id":41,"Name":"rec"})"), 0);
  ASSERT_TRUE(seen_.WaitFor(2));
  EXPECT_EQ(seen_.names[0], "audio_level");
  EXPECT_EQ(seen_.texts[0], "in1:-12");
  EXPECT_EQ(seen_.user_data[0], &marker);
  EXPECT_EQ(seen_.names[1], "recording_created");
  EXPECT_EQ(seen_.texts[1], "41");
}

// A recording as the engine announces it: state changes, the file stream's status, its
// duration once a second, and the new recording once stopped.
TEST_F(SignalDispatchTest, ARecordingIsSignalledFromStartToStop) {
  ASSERT_EQ(zm_set_opt(0, 0), 0);
  for (const char* name :
       {"streaming_state", "streaming_duration", "stream_status", "recording_created"})
    ASSERT_EQ(zm_register_signal(name, OnRaw), 0);
  ASSERT_EQ(zm_start_stream(nullptr, false, nullptr), 0);
  ASSERT_TRUE(seen_.WaitFor(3));  // state, status, then the first second
  ASSERT_EQ(zm_stop_stream(nullptr, nullptr, false), 0);
  ASSERT_TRUE(seen_.WaitFor(6));
  std::lock_guard<std::mutex> lock(seen_.mutex);
  std::vector<std::string> expected = {
      R"(streaming_state {"State":"recording","Flags":""})",
      R"(stream_status {"Name":"movie1","Status":"streaming"})",
      R"(streaming_duration {"Name":"movie1","Duration":1,"Type":1})",
      R"(streaming_state {"State":"idle","Flags":""})",
      R"(stream_status {"Name":"movie1","Status":"stopped"})"};
  for (size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(seen_.names[i] + " " + seen_.texts[i], expected[i]);
  EXPECT_EQ(seen_.names[5], "recording_created");
  EXPECT_NE(seen_.texts[5].find(R"("Id":)" + std::to_string(sim_.last_recording_id())),
            std::string::npos);
}

TEST_F(SignalDispatchTest, IncompletePayloadsAndUnregisteredNamesCallNothing) {
  ASSERT_EQ(zm_register_signal("audio_level", OnAudioLevel), 0);
  EmitAndSettle("audio_level", R"({"Name":"in1","Level":-12,"Left":-1})");  // no "Right"
  EmitAndSettle("audio_level", "garbage");
  EmitAndSettle("status", R"({"State":"x","Streams":[]})");  // nobody registered
  ASSERT_EQ(zm_unregister_signal("audio_level"), 0);
  EmitAndSettle("audio_level", R"({"Name":"in1","Level":1,"Left":1,"Right":1})");
  std::lock_guard<std::mutex> lock(seen_.mutex);
  EXPECT_TRUE(seen_.names.empty());
}

TEST_F(SignalDispatchTest, OptionZeroHandsOverTheRawPayload) {
  ASSERT_EQ(zm_set_opt(0, 0), 0);
  ASSERT_EQ(zm_register_signal("status", OnRaw), 0);
  ASSERT_EQ(sim_.Emit("status", "not even json"), 0);
  ASSERT_TRUE(seen_.WaitFor(1));
  EXPECT_EQ(seen_.names[0], "status");
  EXPECT_EQ(seen_.texts[0], "not even json");
}

TEST_F(SignalDispatchTest, UnknownNamesAndOddPaths) {
  EXPECT_EQ(zm_register_signal("audio_levels", OnAudioLevel), -3);
  EXPECT_EQ(zm_unregister_signal("audio_levels"), -3);
  EXPECT_THROW(zm_register_signal(nullptr, OnAudioLevel), std::logic_error);
  ASSERT_EQ(zm_register_signal("audio_level", OnAudioLevel), 0);
  const char payload[] = R"({"Name":"x","Level":1,"Left":2,"Right":3})";
  // A path with an extra component still reaches the callback of its signal.
  zm_signal_handler(nullptr, nullptr, "media/signal/audio_level/x", const_cast<char*>(payload), 0);
  ASSERT_TRUE(seen_.WaitFor(1));
  EXPECT_EQ(seen_.names[0], "audio_level");
  zm_signal_handler(nullptr, nullptr, "media/signal/audio_level", const_cast<char*>(payload), 0);
  zm_signal_handler(nullptr, nullptr, "audio_level", const_cast<char*>(payload), 0);
  zm_signal_handler(nullptr, nullptr, nullptr, const_cast<char*>(payload), 0);
  zm_signal_handler(nullptr, nullptr, "media/signal/audio_level/1", nullptr, 0);
  std::lock_guard<std::mutex> lock(seen_.mutex);
  EXPECT_EQ(seen_.names.size(), 1u);
}

std::atomic<int> g_storm_calls{0};
void CountStorm(const char*, void*, void*) {
  ++g_storm_calls;
}

TEST_F(SignalDispatchTest, AStormWhileRegisteringAndUnregisteringIsHarmless) {
  std::atomic<bool> done{false};
  std::thread emitter([&] {
    for (int i = 0; i < 2000; ++i)
      sim_.Emit("audio_level", R"({"Name":"in1","Level":-12,"Left":-1,"Right":-2})");
    done = true;
  });
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!done && std::chrono::steady_clock::now() < deadline) {
    zm_register_signal("audio_level", CountStorm);
    zm_unregister_signal("audio_level");
  }
  bool finished = done;
  emitter.join();
  ASSERT_TRUE(finished) << "2000 signals took more than 30 s";
  ASSERT_EQ(zm_register_signal("audio_level", CountStorm), 0);
  g_storm_calls = 0;
  EmitAndSettle("audio_level", R"({"Name":"in1","Level":-12,"Left":-1,"Right":-2})");
  for (int i = 0; i < 100 && g_storm_calls.load() == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_GE(g_storm_calls.load(), 1);
}

TEST_F(SignalDispatchTest, OptionsChangeFreelyDuringAStorm) {
  ASSERT_EQ(zm_register_signal("audio_level", CountStorm), 0);
  g_storm_calls = 0;
  std::atomic<bool> done{false};
  std::thread emitter([&] {
    for (int i = 0; i < 2000; ++i)
      sim_.Emit("audio_level", R"({"Name":"in1","Level":-12,"Left":-1,"Right":-2})");
    done = true;
  });
  // New keys make the table grow while the signal thread reads option 0.
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  int failed = 0;
  for (int i = 0; !done && std::chrono::steady_clock::now() < deadline; ++i)
    failed += (zm_set_opt(0, i % 2) != 0) + (zm_set_opt(1000 + i % 5000, i) != 0);
  bool finished = done;
  emitter.join();
  ASSERT_TRUE(finished) << "2000 signals took more than 30 s";
  EXPECT_EQ(failed, 0);
  ASSERT_EQ(zm_set_opt(0, 1), 0);
  for (int i = 0; i < 200 && g_storm_calls.load() < 1; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_GE(g_storm_calls.load(), 1);
}

void Throwing(const char*, void*, void*) {
  throw std::out_of_range("map::at");
}

TEST_F(SignalDispatchTest, AThrowingCallbackIsLoggedAndDeliveryGoesOn) {
  zolo::test::LogCapture log;
  ASSERT_EQ(zm_register_signal("audio_level", Throwing), 0);
  EmitAndSettle("audio_level", R"({"Name":"in1","Level":-12,"Left":-1,"Right":-2})");
  for (int i = 0; i < 200 && !log.HasFragment("threw: map::at"); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_TRUE(log.HasFragment("callback of audio_level threw: map::at")) << log.Dump();
  ASSERT_EQ(zm_register_signal("audio_level", OnAudioLevel), 0);
  EmitAndSettle("audio_level", R"({"Name":"in2","Level":-3,"Left":-1,"Right":-2})");
  ASSERT_TRUE(seen_.WaitFor(1));
  EXPECT_EQ(seen_.texts[0], "in2:-3");
}

}  // namespace
