// Live pictures over real WebSocket and HTTP connections, against the simulated engine on a
// private bus: taken only while a client watches, served only to a watching client's token,
// and stopped when the last watcher stops or goes.
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

#include "engine_fixture.h"
#include "gateway.h"
#include "gateway_client.h"
#include "jpeg_decode.h"

#if defined(__SANITIZE_ADDRESS__)
// As in the gateway's other tests: GIO's run-time modules leave a dynamic TLS block that the
// leak checker's thread scan trips over at exit.
extern "C" const char* __asan_default_options() {
  return "intercept_tls_get_addr=0";
}
#endif

namespace {

using zolo::JsonHolder;
using zolo::test::D;
using zolo::test::GatewayClient;

constexpr const char* kChannel = "make_channel_snapshot";
constexpr const char* kProgram = "make_video_snapshot";

struct Reply {
  guint status = 0;
  std::string body;
  std::map<std::string, std::string> headers;
};

class LivePicturesTest : public zolo::test::EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    context_ = g_main_context_new();
    g_main_context_push_thread_default(context_);
    session_ = soup_session_new();
    config_.port = 0;
    config_.engine_probe_ms = 200;
    config_.live_interval_ms = 100;
    port_ = server_.Start(config_);
    ASSERT_GT(port_, 0);
  }
  void TearDown() override {
    server_.Stop();
    g_object_unref(session_);
    while (g_main_context_iteration(context_, FALSE)) {
    }
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
    EngineTest::TearDown();
  }

  std::unique_ptr<GatewayClient> Connected() {
    auto client = std::make_unique<GatewayClient>(session_);
    EXPECT_TRUE(client->Connect("ws://127.0.0.1:" + std::to_string(port_) + "/ws"));
    EXPECT_NE(client->NextOp(0), nullptr);
    client->Send(R"({"op":1,"d":{"protocolVersion":1,"subscriptions":{"events":[]}}})");
    EXPECT_NE(client->NextOp(2), nullptr);
    return client;
  }
  // Sends watch_live_pictures with `data`; the response's "d".
  JsonHolder Watch(GatewayClient& client, const std::string& data) {
    client.Send(R"({"op":6,"d":{"requestType":"watch_live_pictures","requestId":"w",)"
                R"("requestData":)" +
                data + "}}");
    return client.NextOp(7);
  }
  // Starts watching; the token.
  std::string StartWatching(GatewayClient& client) {
    JsonHolder answer = Watch(client, R"({"on":true})");
    const cJSON* data = cJSON_GetObjectItem(D(answer), "responseData");
    const cJSON* token = cJSON_GetObjectItem(data, "token");
    EXPECT_TRUE(cJSON_IsString(token));
    return cJSON_IsString(token) ? token->valuestring : "";
  }
  static int Code(const JsonHolder& answer) {
    const cJSON* status = cJSON_GetObjectItem(D(answer), "requestStatus");
    return cJSON_GetObjectItem(status, "code")->valueint;
  }

  // GET `path` with `authorization` as the Authorization header (none when empty).
  Reply Get(const std::string& path, const std::string& authorization) {
    Reply reply;
    SoupMessage* msg =
        soup_message_new("GET", ("http://127.0.0.1:" + std::to_string(port_) + path).c_str());
    if (msg == nullptr) return reply;
    if (!authorization.empty())
      soup_message_headers_replace(soup_message_get_request_headers(msg), "Authorization",
                                   authorization.c_str());
    GBytes* bytes = soup_session_send_and_read(session_, msg, nullptr, nullptr);
    reply.status = soup_message_get_status(msg);
    if (bytes != nullptr) {
      reply.body.assign(static_cast<const char*>(g_bytes_get_data(bytes, nullptr)),
                        g_bytes_get_size(bytes));
      g_bytes_unref(bytes);
    }
    SoupMessageHeadersIter iter;
    const char* name = nullptr;
    const char* value = nullptr;
    soup_message_headers_iter_init(&iter, soup_message_get_response_headers(msg));
    while (soup_message_headers_iter_next(&iter, &name, &value)) reply.headers[name] = value;
    g_object_unref(msg);
    return reply;
  }
  Reply Picture(const std::string& path, const std::string& token) {
    return Get(path, "Bearer " + token);
  }
  double Metric(const std::string& series) {
    std::istringstream lines(Get("/metrics", "").body);
    for (std::string line; std::getline(lines, line);)
      if (line.rfind(series + " ", 0) == 0) return std::stod(line.substr(series.size() + 1));
    return -1;
  }
  // Pumps the client's context for `ms`, so its connections keep being served.
  void Idle(int ms) {
    zolo::test::PumpUntil([] { return false; }, ms);
  }
  size_t Asked() { return sim_.Requests(kChannel).size() + sim_.Requests(kProgram).size(); }
  // True when the engine is asked for no picture during a few intervals (after one that may
  // have been running already).
  bool Quiet() {
    Idle(3 * config_.live_interval_ms);
    size_t before = Asked();
    Idle(5 * config_.live_interval_ms);
    return Asked() == before;
  }

  zolo::gateway::Config config_;
  int port_ = 0;
  GMainContext* context_ = nullptr;
  SoupSession* session_ = nullptr;
  zolo::test::GatewayThread server_;
};

TEST_F(LivePicturesTest, TakenOnlyWhileWatchedAndServedFromTheRound) {
  auto client = Connected();
  EXPECT_TRUE(Quiet());
  EXPECT_EQ(Asked(), 0u) << "pictures asked for while nobody watches";

  std::string token = StartWatching(*client);
  ASSERT_EQ(token.size(), 32u);
  // Rounds repeat: the program three times means three rounds.
  ASSERT_TRUE(sim_.WaitForRequests(kProgram, 3, 5000));
  for (const auto& request : sim_.Requests(kChannel))
    EXPECT_NE(request.payload.find(R"("uri":"file:///var/lib/zolo/media/images/live/channel_)"),
              std::string::npos)
        << request.payload;

  // The channels the library lists: those with a video source each have a slot; the library
  // takes snapshots only of channels up to "Movie" (the others answer -2).
  std::vector<zm_channel> channels;
  ASSERT_EQ(zm_get_channel(0, &channels), 0);
  int movie = 0;
  for (const zm_channel& c : channels)
    if (std::string(c.name) == "Movie") movie = c.id;
  ASSERT_GT(movie, 0);
  struct Case {
    std::string path;
    guint status;
    std::string code;  // X-Live-Code, "" when none
  };
  std::vector<Case> cases = {{"/live/program.jpg", 200, "0"}};
  for (const zm_channel& c : channels) {
    std::string path = "/live/channels/" + std::to_string(c.id) + ".jpg";
    if (c.video_source_id <= 0)
      cases.push_back({path, 404, ""});
    else if (c.id <= movie)
      cases.push_back({path, 200, "0"});
    else
      cases.push_back({path, 204, "-2"});
  }
  for (const char* path :
       {"/live/channels/999.jpg", "/live/channels/01.jpg", "/live/channels/0.jpg",
        "/live/channels/1.png", "/live/channels/-1.jpg", "/live/channels/.jpg",
        "/live/channels/1.jpg/x", "/live/", "/live/program.jpeg", "/live/channels/99999999999.jpg"})
    cases.push_back({path, 404, ""});
  size_t served = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    Reply reply = Picture(c.path, token);
    EXPECT_EQ(reply.status, c.status) << reply.body;
    EXPECT_EQ(reply.headers["Cache-Control"], "no-store");
    EXPECT_EQ(reply.headers["X-Live-Code"], c.code);
    if (c.status != 200) continue;
    ++served;
    EXPECT_EQ(reply.headers["Content-Type"], "image/jpeg");
    EXPECT_GE(std::stoi(reply.headers["X-Picture-Age-Ms"]), 0);
    std::string copy = sandbox_->Path("/picture.jpg");
    sandbox_->WriteFile("/picture.jpg", reply.body);
    unsigned width = 0, height = 0;
    std::vector<unsigned char> pixels;
    ASSERT_TRUE(zolo::test::DecodeJpeg(copy, JCS_RGB, &width, &height, &pixels));
    EXPECT_EQ(width, 320u);
    EXPECT_EQ(height, 180u);
  }
  EXPECT_GE(served, 3u);
  // Pictures live in memory: the engine's folder keeps none, and no picture wrote a row.
  // (A round may be between writing a file and reading it back: give it a moment.)
  const std::string live_folder = sandbox_->Path("/var/lib/zolo/media/images/live");
  for (int i = 0; i < 100 && !std::filesystem::is_empty(live_folder); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_TRUE(std::filesystem::is_empty(live_folder));
  EXPECT_EQ(Changes(), std::vector<std::string>{});
  EXPECT_GE(Metric("zolo_gateway_live_rounds_total"), 3);

  // Stopped: nothing more is asked, and the token opens nothing.
  EXPECT_EQ(Code(Watch(*client, R"({"on":false})")), 0);
  EXPECT_TRUE(Quiet());
  EXPECT_EQ(Picture("/live/program.jpg", token).status, 401u);
}

TEST_F(LivePicturesTest, OnlyAWatchingClientsTokenOpensThem) {
  auto watching = Connected();
  auto other = Connected();
  std::string token = StartWatching(*watching);
  ASSERT_TRUE(sim_.WaitForRequests(kProgram, 1, 5000));
  Idle(2 * config_.live_interval_ms);
  std::string tail = token.substr(0, token.size() - 1) + (token.back() == 'A' ? "B" : "A");
  struct Case {
    const char* name;
    std::string authorization;
    guint status;
  };
  const Case cases[] = {
      {"no header", "", 401},
      {"another scheme", "Basic " + token, 401},
      {"empty token", "Bearer ", 401},
      {"last character differs", "Bearer " + tail, 401},
      {"one character short", "Bearer " + token.substr(1), 401},
      {"one character more", "Bearer " + token + "A", 401},
      {"the watching client's", "Bearer " + token, 200},
  };
  int refused = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Reply reply = Get("/live/program.jpg", c.authorization);
    EXPECT_EQ(reply.status, c.status);
    EXPECT_EQ(reply.headers["Cache-Control"], "no-store");
    if (c.status == 401) {
      ++refused;
      EXPECT_EQ(reply.headers.count("X-Live-Code"), 0u) << "said something about the picture";
    }
  }
  // Unknown ids are not told apart from known ones without the token.
  EXPECT_EQ(Get("/live/channels/999.jpg", "").status, 401u);
  ++refused;
  EXPECT_EQ(Metric("zolo_gateway_refusals_total{reason=\"live_unauthorized\"}"), refused);
  // A client's own token is its own: the other one gets a different one.
  EXPECT_NE(StartWatching(*other), token);
}

TEST_F(LivePicturesTest, StopsWhenTheLastWatcherLeaves) {
  auto first = Connected();
  auto second = Connected();
  std::string first_token = StartWatching(*first);
  std::string second_token = StartWatching(*second);
  ASSERT_TRUE(sim_.WaitForRequests(kProgram, 1, 5000));
  first.reset();  // goes away without a word
  Idle(2 * config_.live_interval_ms);
  size_t asked = sim_.Requests(kProgram).size();
  EXPECT_TRUE(sim_.WaitForRequests(kProgram, asked + 2, 5000)) << "the second watcher lost them";
  EXPECT_EQ(Picture("/live/program.jpg", first_token).status, 401u);
  EXPECT_EQ(Picture("/live/program.jpg", second_token).status, 200u);
  second.reset();
  EXPECT_TRUE(Quiet());
  EXPECT_EQ(Picture("/live/program.jpg", second_token).status, 401u);
  // A new watcher starts from nothing, not from the pictures of before.
  auto third = Connected();
  sim_.Force(kProgram, zolo::sim::Forced{zolo::sim::Forced::kCode, -1, 0, ""});
  std::string third_token = StartWatching(*third);
  size_t before = sim_.Requests(kProgram).size();
  ASSERT_TRUE(sim_.WaitForRequests(kProgram, before + 1, 5000));
  Idle(2 * config_.live_interval_ms);
  Reply reply = Picture("/live/program.jpg", third_token);
  EXPECT_EQ(reply.status, 204u);
  EXPECT_EQ(reply.headers["X-Live-Code"], "-1");
  EXPECT_EQ(reply.body, "");
}

// A slow engine never piles rounds up: ticks that find a round running are skipped, and the
// connection answers other requests meanwhile.
TEST_F(LivePicturesTest, ASlowEngineSkipsRoundsInsteadOfQueueingThem) {
  sim_.Force(kProgram, zolo::sim::Forced{zolo::sim::Forced::kCode, 0, 800, ""});
  auto client = Connected();
  StartWatching(*client);
  ASSERT_TRUE(sim_.WaitForRequests(kProgram, 1, 5000));
  client->Send(R"({"op":6,"d":{"requestType":"get_state","requestId":"s"}})");
  JsonHolder state = client->NextOp(7);
  ASSERT_NE(state, nullptr);
  EXPECT_EQ(Code(state), 0);
  Idle(2000);
  EXPECT_GT(Metric("zolo_gateway_live_rounds_skipped_total"), 0);
  // Every round started reached the engine, but for the one running now: none waits in a
  // queue behind the slow one.
  double rounds = Metric("zolo_gateway_live_rounds_total");
  EXPECT_GE(rounds, 1);
  EXPECT_LE(rounds, static_cast<double>(sim_.Requests(kProgram).size()) + 1);
}

TEST_F(LivePicturesTest, RefusesMalformedWatchesAndBatches) {
  auto client = Connected();
  struct Case {
    const char* data;
    int code;
  };
  const Case cases[] = {{"{}", -101},
                        {R"({"on":null})", -101},
                        {R"({"on":"yes"})", -102},
                        {R"({"on":1})", -102},
                        {"[]", -103},
                        {"5", -103}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.data);
    EXPECT_EQ(Code(Watch(*client, c.data)), c.code);
  }
  client->Send(R"({"op":8,"d":{"requestId":"b","requests":[)"
               R"({"requestType":"get_state"},)"
               R"({"requestType":"watch_live_pictures","requestData":{"on":true}}]}})");
  JsonHolder batch = client->NextOp(9);
  ASSERT_NE(batch, nullptr);
  const cJSON* results = cJSON_GetObjectItem(D(batch), "results");
  ASSERT_EQ(cJSON_GetArraySize(results), 2);
  const cJSON* refused = cJSON_GetObjectItem(cJSON_GetArrayItem(results, 1), "requestStatus");
  EXPECT_EQ(cJSON_GetObjectItem(refused, "code")->valueint, -109);
  EXPECT_TRUE(Quiet());
  EXPECT_EQ(Asked(), 0u);
}

}  // namespace
