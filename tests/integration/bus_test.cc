// libzolo_bus against the simulated engine on a private dbus-daemon.
#include <gtest/gtest.h>
#include <zolo_bus.h>
#include <zolo_media_sim.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "private_bus.h"

namespace {

using zolo::sim::Forced;
using zolo::sim::MediaSimulator;
using zolo::test::PrivateBus;

struct Received {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> paths;
  std::vector<std::string> payloads;
  std::vector<void*> user_data;

  bool WaitFor(size_t count, int ms = 5000) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::milliseconds(ms),
                            [&] { return paths.size() >= count; });
  }
};

Received* g_received = nullptr;

void Record(bus_client*, void* user_data, const char* path, void* payload, int length) {
  std::lock_guard<std::mutex> lock(g_received->mutex);
  g_received->paths.push_back(path);
  g_received->payloads.push_back(std::string(static_cast<char*>(payload), length));
  g_received->user_data.push_back(user_data);
  g_received->changed.notify_all();
}

// A call without request text into a scratch buffer, or into `out` when given.
int CallSync(bus_client* client, const char* service, const char* method, int request_length = 0,
             unsigned timeout = 1, char* out = nullptr) {
  char buffer[BUS_REPLY_BUFFER_SIZE];
  int length = 0;
  return bus_method_call_sync(client, service, method, nullptr, request_length, out ? out : buffer,
                              &length, timeout);
}

class BusTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { bus_ = new PrivateBus(); }
  static void TearDownTestSuite() {
    delete bus_;
    bus_ = nullptr;
  }
  void SetUp() override {
    ASSERT_TRUE(bus_->ok()) << "dbus-daemon did not start";
    ASSERT_EQ(sim_.Start(), 0);
    client_ = bus_client_new("bus-test");
    ASSERT_EQ(bus_connect(client_, 0), 0);
    g_received = &received_;
  }
  void TearDown() override {
    bus_client_free(client_);
    sim_.Stop();
    g_received = nullptr;
  }
  int Call(const char* method, const char* request, std::string* reply, unsigned timeout = 2) {
    char buffer[BUS_REPLY_BUFFER_SIZE];
    int length = -1;
    int r = bus_method_call_sync(client_, "media", method, request,
                                 request ? static_cast<int>(std::strlen(request)) : 0, buffer,
                                 &length, timeout);
    if (reply) *reply = std::string(buffer, length > 0 ? static_cast<size_t>(length) : 0);
    return r;
  }

  static PrivateBus* bus_;
  MediaSimulator sim_;
  bus_client* client_ = nullptr;
  Received received_;
};

PrivateBus* BusTest::bus_ = nullptr;

TEST_F(BusTest, MethodRoundTripCarriesRequestAndReply) {
  std::string reply;
  EXPECT_EQ(Call("get_state", nullptr, &reply), 0);
  EXPECT_EQ(reply, R"({"id":1,"name":"idle","code":0})");
  EXPECT_EQ(Call("set_backup_mode", R"({"mode":1})", &reply), 0);
  auto requests = sim_.Requests("set_backup_mode");
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].payload, R"({"mode":1})");
  EXPECT_EQ(sim_.Requests("get_state")[0].payload, "");
}

TEST_F(BusTest, ForcedRepliesArriveAsGiven) {
  const std::pair<Forced, std::string> cases[] = {
      {Forced{Forced::kCode, -1012, 0, ""}, R"({"code":-1012})"},
      {Forced{Forced::kEmpty, 0, 0, ""}, ""},
      {Forced{Forced::kNoCode, 0, 0, R"({"id":3})"}, R"({"id":3})"}};
  for (const auto& [forced, expected] : cases) {
    std::string reply;
    sim_.Force("start", forced);
    EXPECT_EQ(Call("start", nullptr, &reply), 0);
    EXPECT_EQ(reply, expected);
  }
}

TEST_F(BusTest, TimeoutIsHonouredAndTheClientStaysUsable) {
  sim_.Force("stop", Forced{Forced::kNoReply, 0, 0, ""});
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Call("stop", nullptr, nullptr, 1), BUS_ETIMEDOUT);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  sim_.Force("stop", Forced{Forced::kCode, 0, 300, ""});  // late, but within the timeout
  EXPECT_EQ(Call("stop", nullptr, nullptr, 2), 0);
  EXPECT_EQ(Call("get_state", nullptr, nullptr), 0);
}

TEST_F(BusTest, AbsentOrDyingServiceGivesAnError) {
  sim_.Stop();
  EXPECT_EQ(Call("get_state", nullptr, nullptr), BUS_ERROR);
  ASSERT_EQ(sim_.Start(), 0);
  sim_.Force("restart", Forced{Forced::kNoReply, 0, 0, ""});
  std::thread killer([this] {
    sim_.WaitForRequests("restart", 1, 5000);
    sim_.Stop();
  });
  int r = Call("restart", nullptr, nullptr, 10);
  killer.join();
  EXPECT_LT(r, 0);
}

TEST_F(BusTest, LongRepliesAreCutAndTerminated) {
  std::string big = R"({"code":0,"x":")" + std::string(10000, 'x') + R"("})";
  sim_.Force("get_state", Forced{Forced::kNoCode, 0, 0, big});
  char buffer[BUS_REPLY_BUFFER_SIZE];
  std::memset(buffer, 'z', sizeof buffer);
  int length = 0;
  EXPECT_EQ(bus_method_call_sync(client_, "media", "get_state", nullptr, 0, buffer, &length, 2), 0);
  EXPECT_EQ(length, BUS_REPLY_BUFFER_SIZE - 1);
  EXPECT_EQ(buffer[BUS_REPLY_BUFFER_SIZE - 1], '\0');
  EXPECT_EQ(std::string(buffer), big.substr(0, BUS_REPLY_BUFFER_SIZE - 1));
}

// A stalled call holds up no other: each call ends at its own timeout.
TEST_F(BusTest, CallsRunConcurrentlyEachBoundByItsOwnTimeout) {
  sim_.Force("stop", Forced{Forced::kNoReply, 0, 0, ""});
  std::atomic<bool> stalled_done{false};
  std::thread stalled([&] {
    EXPECT_EQ(Call("stop", nullptr, nullptr, 2), BUS_ETIMEDOUT);
    stalled_done = true;
  });
  ASSERT_TRUE(sim_.WaitForRequests("stop", 1, 3000));
  EXPECT_EQ(Call("get_state", nullptr, nullptr, 2), 0);
  EXPECT_FALSE(stalled_done.load()) << "the healthy call waited for the stalled one";
  stalled.join();

  // Four stalled calls of 1 s each, side by side, take about 1 s, not 4.
  auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> calls;
  for (int i = 0; i < 4; ++i)
    calls.emplace_back([&] { EXPECT_EQ(Call("stop", nullptr, nullptr, 1), BUS_ETIMEDOUT); });
  for (auto& call : calls) call.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3000));
}

TEST_F(BusTest, WholeRepliesAndLateRepliesDropped) {
  std::string big = R"({"code":0,"x":")" + std::string(64 << 10, 'x') + R"("})";
  sim_.Force("get_state", Forced{Forced::kNoCode, 0, 0, big});
  char* reply = nullptr;
  size_t length = 0;
  ASSERT_EQ(bus_method_call(client_, "media", "get_state", nullptr, 0, &reply, &length, 2), 0);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(length, big.size());
  EXPECT_EQ(std::string(reply), big);
  free(reply);

  // Replies of 1 MiB that come after their calls gave up are not kept.
  sim_.Force("stop", Forced{Forced::kNoCode, 0, 1300,
                            R"({"code":0,"x":")" + std::string(1 << 20, 'x') + R"("})"});
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Call("stop", nullptr, nullptr, 1), BUS_ETIMEDOUT);
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  EXPECT_EQ(Call("get_state", nullptr, nullptr), 0);
  EXPECT_EQ(bus_client_queued_messages(client_), 0u);
}

TEST_F(BusTest, TextThatIsNotUtf8NeverStallsTheBus) {
  EXPECT_EQ(Call("set_backup_mode", "{\"x\":\"\xff\"}", nullptr), BUS_ERROR);
  EXPECT_TRUE(sim_.Requests("set_backup_mode").empty());
  // A reply the engine cannot send becomes an error reply, not a silent timeout.
  sim_.Force("get_state", Forced{Forced::kNoCode, 0, 0, "{\"code\":0,\"x\":\"\xc3\"}"});
  EXPECT_EQ(Call("get_state", nullptr, nullptr, 20), BUS_ERROR);
  sim_.Unforce("get_state");
  EXPECT_EQ(Call("get_state", nullptr, nullptr), 0);
}

TEST_F(BusTest, SignalsAndCallsResumeAfterTheBusItselfRestarts) {
  ASSERT_EQ(bus_signal_subscribe(client_, "media", "media_crashed", Record), 0);
  sim_.Stop();
  ASSERT_TRUE(bus_->Restart());
  ASSERT_EQ(sim_.Start(), 0);
  // The client reconnects by itself; signals flow again once it has.
  for (int i = 0; i < 100 && !received_.WaitFor(1, 100); ++i)
    sim_.Emit("media_crashed", R"({"Code":1})");
  EXPECT_TRUE(received_.WaitFor(1));
  EXPECT_EQ(Call("get_state", nullptr, nullptr), 0);
}

TEST_F(BusTest, BadArgumentsAreRefused) {
  bus_client* idle = bus_client_new("idle");  // never connected: errors, not a crash
  // A length without a text is refused too.
  const std::pair<int, int> cases[] = {
      {CallSync(nullptr, "media", "get_state"), BUS_EINVAL},
      {CallSync(client_, nullptr, "get_state"), BUS_EINVAL},
      {CallSync(client_, "media", "bad name!"), BUS_EINVAL},
      {CallSync(client_, "media", "x", 5), BUS_EINVAL},
      {bus_signal_subscribe(client_, "media", "audio_level", nullptr), BUS_EINVAL},
      {bus_signal_subscribe(nullptr, "media", "audio_level", Record), BUS_EINVAL},
      {bus_signal_unsubscribe(client_, "media", "never"), BUS_ERROR},
      {bus_connect(nullptr, 0), BUS_EINVAL},
      {bus_disconnect(nullptr), BUS_EINVAL},
      {CallSync(idle, "media", "get_state"), BUS_ERROR},
      {bus_signal_subscribe(idle, "media", "audio_level", Record), BUS_ERROR}};
  for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << i;
  EXPECT_EQ(bus_client_new(nullptr), nullptr);
  bus_client_free(idle);
}

TEST_F(BusTest, SignalsReachTheHandlerWithPathAndUserData) {
  int marker = 0;
  ASSERT_EQ(bus_client_set_user_data(client_, &marker), 0);
  ASSERT_EQ(bus_signal_subscribe(client_, "media", "audio_level", Record), 0);
  ASSERT_EQ(sim_.Emit("audio_level", R"({"Name":"in1","Level":-3})"), 0);
  ASSERT_EQ(sim_.Emit("streaming_state", R"({"State":"x"})"), 0);  // not subscribed
  ASSERT_EQ(sim_.Emit("audio_level", "second"), 0);
  ASSERT_TRUE(received_.WaitFor(2));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  std::lock_guard<std::mutex> lock(received_.mutex);
  ASSERT_EQ(received_.paths.size(), 2u);
  EXPECT_EQ(received_.paths[0].rfind("media/signal/audio_level/", 0), 0u) << received_.paths[0];
  EXPECT_NE(received_.paths[0], received_.paths[1]);
  EXPECT_EQ(received_.payloads[0], R"({"Name":"in1","Level":-3})");
  EXPECT_EQ(received_.payloads[1], "second");
  EXPECT_EQ(received_.user_data[0], &marker);
}

TEST_F(BusTest, UnsubscribedSignalsStopAndSubscriptionsSurviveAnEngineRestart) {
  ASSERT_EQ(bus_signal_subscribe(client_, "media", "media_crashed", Record), 0);
  sim_.Stop();
  ASSERT_EQ(sim_.Start(), 0);
  ASSERT_EQ(sim_.Emit("media_crashed", R"({"Code":1})"), 0);
  ASSERT_TRUE(received_.WaitFor(1));
  ASSERT_EQ(bus_signal_unsubscribe(client_, "media", "media_crashed"), 0);
  ASSERT_EQ(sim_.Emit("media_crashed", R"({"Code":2})"), 0);
  std::string reply;
  EXPECT_EQ(Call("get_state", nullptr, &reply), 0);  // the emit has been through the bus
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  std::lock_guard<std::mutex> lock(received_.mutex);
  EXPECT_EQ(received_.paths.size(), 1u);
}

bus_client* g_calling_client = nullptr;
std::atomic<int> g_call_result{1};

void CallFromHandler(bus_client*, void*, const char*, void*, int) {
  g_call_result = CallSync(g_calling_client, "media", "get_state", 0, 2);
}

TEST_F(BusTest, AHandlerMayCallMethodsAndCallsRunFromManyThreads) {
  g_calling_client = client_;
  ASSERT_EQ(bus_signal_subscribe(client_, "media", "hardware_error", CallFromHandler), 0);
  ASSERT_EQ(sim_.Emit("hardware_error", "{}"), 0);
  for (int i = 0; i < 200 && g_call_result.load() == 1; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(g_call_result.load(), 0);

  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        char buffer[BUS_REPLY_BUFFER_SIZE] = "";
        if (CallSync(client_, "media", "get_state", 0, 2, buffer) != 0 ||
            std::strstr(buffer, "\"code\":0") == nullptr)
          ++failures;
        sim_.Emit("hardware_error", "{}");
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
}

TEST_F(BusTest, DisconnectJoinsAndReconnectWorks) {
  ASSERT_EQ(bus_signal_subscribe(client_, "media", "audio_level", Record), 0);
  EXPECT_EQ(bus_disconnect(client_), 0);
  EXPECT_EQ(bus_disconnect(client_), 0);
  EXPECT_EQ(Call("get_state", nullptr, nullptr), BUS_ERROR);
  ASSERT_EQ(bus_connect(client_, 0), 0);
  EXPECT_EQ(Call("get_state", nullptr, nullptr), 0);
}

}  // namespace
