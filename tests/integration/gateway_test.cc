// The gateway over real WebSocket and HTTP connections, against the simulated engine on a
// private bus. The server runs in-process on its own thread and main context.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zolo/media.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

#include "auth.h"
#include "engine_fixture.h"
#include "gateway.h"
#include "gateway_client.h"
#include "outbound.h"
#include "protocol.h"

#if defined(__SANITIZE_ADDRESS__)
// The TLS module GIO loads at run time leaves a dynamic TLS block that the leak checker's
// thread scan trips over at exit; without intercepting __tls_get_addr it scans cleanly.
extern "C" const char* __asan_default_options() {
  return "intercept_tls_get_addr=0";
}
#endif

namespace {

using zolo::JsonHolder;
using zolo::gateway::Config;
using zolo::gateway::Gateway;
using zolo::test::ClientFrame;
using zolo::test::D;
using zolo::test::GatewayClient;
using zolo::test::RawClient;
using zolo::test::RawCloseCode;

const char* Text(const cJSON* object, const char* key) {
  const cJSON* item = cJSON_GetObjectItem(object, key);
  return cJSON_IsString(item) ? item->valuestring : "";
}
int Number(const cJSON* object, const char* key) {
  const cJSON* item = cJSON_GetObjectItem(object, key);
  return cJSON_IsNumber(item) ? item->valueint : -99999;
}
const cJSON* Status(const JsonHolder& response) {
  return cJSON_GetObjectItem(D(response), "requestStatus");
}

class GatewayTest : public zolo::test::EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    context_ = g_main_context_new();
    g_main_context_push_thread_default(context_);
    session_ = soup_session_new_with_options("max-conns", 200, "max-conns-per-host", 200, nullptr);
    config_.port = 0;
    config_.engine_probe_ms = 200;
    config_.engine_timeout_ms = 600;
    config_.identify_timeout_ms = 3000;
  }
  void TearDown() override {
    StopGateway();
    g_object_unref(session_);
    int iterations = 0;
    while (g_main_context_iteration(context_, FALSE))
      if (++iterations == 100000) {
        ADD_FAILURE() << "the client's main context never ran dry";
        break;
      }
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
    EngineTest::TearDown();
  }

  // Runs a gateway with `config_` on its own thread.
  void StartGateway() {
    port_ = server_.Start(config_);
    ASSERT_GT(port_, 0);
  }
  void StopGateway() { server_.Stop(); }

  std::string Url(const char* scheme = "ws") const {
    return std::string(scheme) + "://127.0.0.1:" + std::to_string(port_) + "/ws";
  }

  // Reads Hello, answers it (with `password` when the gateway asks for one, its answer
  // passed through `alter` when given) and waits for Identified. True when identified.
  bool Identify(GatewayClient& client, const std::string& subscriptions = "",
                const std::string& password = "",
                const std::function<std::string(std::string)>& alter = nullptr) {
    JsonHolder hello = client.NextOp(0);
    if (hello == nullptr) return false;
    std::string d = "{\"protocolVersion\":1";
    const cJSON* auth = cJSON_GetObjectItem(D(hello), "authentication");
    if (auth != nullptr) {
      std::string answer = zolo::gateway::AuthenticationAnswer(password, Text(auth, "salt"),
                                                               Text(auth, "challenge"));
      d += ",\"authentication\":\"" + (alter ? alter(answer) : answer) + "\"";
    }
    if (!subscriptions.empty()) d += ",\"subscriptions\":" + subscriptions;
    client.Send("{\"op\":1,\"d\":" + d + "}}");
    JsonHolder identified = client.NextOp(2);
    return identified != nullptr && Number(D(identified), "negotiatedProtocolVersion") == 1;
  }
  std::unique_ptr<GatewayClient> Connected(const std::string& subscriptions = "") {
    auto client = std::make_unique<GatewayClient>(session_);
    EXPECT_TRUE(client->Connect(Url()));
    EXPECT_TRUE(Identify(*client, subscriptions));
    return client;
  }
  JsonHolder Request(GatewayClient& client, const std::string& type, const std::string& data = "{}",
                     const std::string& id = "r") {
    client.Send("{\"op\":6,\"d\":{\"requestType\":\"" + type + "\",\"requestId\":\"" + id +
                "\",\"requestData\":" + data + "}}");
    return client.NextOp(7);
  }

  // GET `path`; the status, and the body and ETag when given somewhere to put them.
  guint Get(const std::string& path, std::string* body = nullptr, std::string* etag = nullptr,
            const char* if_none_match = nullptr) {
    std::string url = "http://127.0.0.1:" + std::to_string(port_) + path;
    SoupMessage* msg = soup_message_new("GET", url.c_str());
    if (msg == nullptr) return 0;
    if (if_none_match != nullptr)
      soup_message_headers_replace(soup_message_get_request_headers(msg), "If-None-Match",
                                   if_none_match);
    GBytes* bytes = soup_session_send_and_read(session_, msg, nullptr, nullptr);
    guint status = soup_message_get_status(msg);
    if (body != nullptr && bytes != nullptr)
      body->assign(static_cast<const char*>(g_bytes_get_data(bytes, nullptr)),
                   g_bytes_get_size(bytes));
    const char* tag = soup_message_headers_get_one(soup_message_get_response_headers(msg), "ETag");
    if (etag != nullptr) *etag = tag != nullptr ? tag : "";
    if (bytes != nullptr) g_bytes_unref(bytes);
    g_object_unref(msg);
    return status;
  }
  // The value of the metric line that starts with `series` ("name{labels}"), or -1.
  double Metric(const std::string& series) {
    std::string text;
    EXPECT_EQ(Get("/metrics", &text), 200u);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      if (line.empty() || line[0] == '#') continue;
      size_t space = line.rfind(' ');
      EXPECT_NE(space, std::string::npos) << line;
      if (line.compare(0, space, series) == 0) return std::stod(line.substr(space + 1));
    }
    return -1;
  }

  Config config_;
  int port_ = 0;
  GMainContext* context_ = nullptr;
  SoupSession* session_ = nullptr;
  zolo::test::GatewayThread server_;
};

TEST_F(GatewayTest, PasswordHandshakeAndLockout) {
  const std::string password = "correct horse";
  config_.password_hash = zolo::gateway::HashPasswordLine(password);
  config_.auth_free_failures = 1;
  config_.auth_delay_ms = 10;
  config_.auth_lockout_failures = 3;
  StartGateway();
  struct Case {
    const char* name;
    std::string answer_password;
    int close_code;  // 0: identified
  } cases[] = {{"right password", password, 0},
               {"wrong password", "wrong", 4008},
               {"empty password", "", 4008},
               {"wrong again: locked out now", "wrong", 4008}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    GatewayClient client(session_);
    ASSERT_TRUE(client.Connect(Url()));
    bool identified = Identify(client, "", c.answer_password);
    EXPECT_EQ(identified, c.close_code == 0);
    if (c.close_code != 0) {
      EXPECT_EQ(client.WaitClosed(), c.close_code);
    }
  }
  GatewayClient locked(session_);
  ASSERT_TRUE(locked.Connect(Url()));
  EXPECT_EQ(locked.WaitClosed(), 4014);
  EXPECT_EQ(Metric("zolo_gateway_refusals_total{reason=\"authentication_failed\"}"), 3);
  EXPECT_EQ(Metric("zolo_gateway_refusals_total{reason=\"locked_out\"}"), 1);
}

// Only the whole answer authenticates: one differing in its first or last byte, one byte
// short, one byte more and an empty one are each refused and counted.
TEST_F(GatewayTest, OnlyTheWholeAnswerAuthenticates) {
  const std::string password = "correct horse";
  config_.password_hash = zolo::gateway::HashPasswordLine(password);
  config_.auth_free_failures = 100;  // no slowdown and no lockout: every answer is judged
  config_.auth_lockout_failures = 100;
  StartGateway();
  auto other = [](char c) { return c == 'A' ? 'B' : 'A'; };
  struct Case {
    const char* name;
    std::function<std::string(std::string)> alter;
    bool accepted;
  };
  const Case cases[] = {
      {"as computed", [](std::string a) { return a; }, true},
      {"first byte differs",
       [&](std::string a) {
         a.front() = other(a.front());
         return a;
       },
       false},
      {"last byte differs",
       [&](std::string a) {
         a.back() = other(a.back());
         return a;
       },
       false},
      {"one byte short", [](std::string a) { return a.substr(0, a.size() - 1); }, false},
      {"one byte more", [](std::string a) { return a + "A"; }, false},
      {"empty", [](std::string) { return std::string(); }, false},
  };
  int refused = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    GatewayClient client(session_);
    ASSERT_TRUE(client.Connect(Url()));
    EXPECT_EQ(Identify(client, "", password, c.alter), c.accepted);
    if (!c.accepted) {
      EXPECT_EQ(client.WaitClosed(), 4008);
      ++refused;
    }
  }
  EXPECT_EQ(Metric("zolo_gateway_refusals_total{reason=\"authentication_failed\"}"), refused);
}

TEST_F(GatewayTest, RequestsBatchesAndMetrics) {
  StartGateway();
  auto client = Connected();
  JsonHolder state = Request(*client, "get_state", "{}", "s1");
  ASSERT_NE(state, nullptr);
  EXPECT_STREQ(Text(D(state), "requestId"), "s1");
  EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(Status(state), "result")));
  EXPECT_EQ(Number(Status(state), "code"), 0);

  JsonHolder list = Request(*client, "get_request_list");
  ASSERT_NE(list, nullptr);
  const cJSON* requests =
      cJSON_GetObjectItem(cJSON_GetObjectItem(D(list), "responseData"), "requests");
  bool found = false;
  const cJSON* entry = nullptr;
  cJSON_ArrayForEach(entry, requests) {
    if (std::string(Text(entry, "requestType")) != "get_setting") continue;
    const cJSON* param = cJSON_GetArrayItem(cJSON_GetObjectItem(entry, "params"), 0);
    found =
        std::string(Text(param, "name")) == "name" && std::string(Text(param, "type")) == "string";
  }
  EXPECT_TRUE(found);

  client->Send(
      R"({"op":8,"d":{"requestId":"b","haltOnFailure":true,"requests":[)"
      R"({"requestType":"get_state","requestId":"1"},{"requestType":"get_setting","requestId":"2"},)"
      R"({"requestType":"get_state","requestId":"3"}]}})");
  JsonHolder batch = client->NextOp(9);
  ASSERT_NE(batch, nullptr);
  const cJSON* results = cJSON_GetObjectItem(D(batch), "results");
  ASSERT_EQ(cJSON_GetArraySize(results), 3);
  const int expected[] = {0, -101, -105};
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(Number(cJSON_GetObjectItem(cJSON_GetArrayItem(results, i), "requestStatus"), "code"),
              expected[i]);

  EXPECT_EQ(Metric("zolo_gateway_clients"), 1);
  EXPECT_GE(Metric("zolo_gateway_requests_total{request=\"get_state\",code=\"0\"}"), 2);
  EXPECT_GE(Metric("zolo_gateway_request_duration_seconds_count"), 3);
}

TEST_F(GatewayTest, RequestErrorsAreNegativeResponses) {
  StartGateway();
  auto client = Connected();
  struct Case {
    const char* message_d;
    int code;
  } cases[] = {
      {R"({"requestType":"no_such_request","requestId":"x"})", -100},
      {R"({"requestType":"get_setting","requestId":"x"})", -101},
      {R"({"requestType":"get_setting","requestId":"x","requestData":{"name":5}})", -102},
      {R"({"requestType":"get_setting","requestId":"x","requestData":[1]})", -103},
      {R"({"requestId":"x"})", -106},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message_d);
    client->Send(std::string("{\"op\":6,\"d\":") + c.message_d + "}");
    JsonHolder response = client->NextOp(7);
    ASSERT_NE(response, nullptr);
    EXPECT_FALSE(cJSON_IsTrue(cJSON_GetObjectItem(Status(response), "result")));
    EXPECT_EQ(Number(Status(response), "code"), c.code);
  }
  EXPECT_FALSE(client->closed());
}

// Every parameter of every request takes the values of its declared type and refuses the
// others with -102, naming the parameter; the other parameters hold good values meanwhile.
TEST(GatewayArguments, EveryParameterTakesOnlyItsType) {
  using zolo::gateway::ParamType;
  struct Values {
    ParamType type;
    std::vector<const char*> good;
    std::vector<const char*> bad;
  };
  // clang-format off
  const Values table[] = {
      {ParamType::kInteger, {"0", "-7", "2147483647", "-2147483648", "3.0", "1e3"}, {"1.5", "-0.5", "2147483647.5", "2147483648", "-2147483649", "1e300", "\"1\"", "true", "[1]", "{}"}},
      {ParamType::kNumber, {"0", "1.5", "-1e300"}, {"\"1.5\"", "false", "[]", "{}"}},
      {ParamType::kBoolean, {"true", "false"}, {"1", "0", "\"true\"", "[]", "{}"}},
      {ParamType::kString, {"\"\"", "\"x\""}, {"5", "true", "[]", "{}"}},
      {ParamType::kObject, {"{}", "{\"a\":1}"}, {"[]", "\"{}\"", "1", "true"}},
      {ParamType::kArray, {"[]", "[1,\"a\"]"}, {"{}", "\"[]\"", "1", "false"}},
  };
  // clang-format on
  auto values_of = [&](ParamType type) -> const Values& {
    return *std::find_if(std::begin(table), std::end(table),
                         [&](const Values& v) { return v.type == type; });
  };
  std::set<ParamType> seen;
  for (const zolo::gateway::RequestSpec& request : zolo::gateway::Requests()) {
    for (const zolo::gateway::Param& param : request.params) {
      seen.insert(param.type);
      const Values& values = values_of(param.type);
      for (const auto* list : {&values.good, &values.bad}) {
        for (const char* value : *list) {
          std::string data;
          for (const zolo::gateway::Param& other : request.params)
            data += std::string(data.empty() ? "" : ",") + "\"" + other.name +
                    "\":" + (&other == &param ? value : values_of(other.type).good[0]);
          std::string text = std::string(R"({"requestType":")") + request.name +
                             R"(","requestData":{)" + data + "}}";
          JsonHolder message(cJSON_Parse(text.c_str()));
          ASSERT_NE(message, nullptr) << text;
          const zolo::gateway::RequestSpec* known = nullptr;
          std::string comment;
          bool good = list == &values.good;
          int code = zolo::gateway::CheckRequest(message.get(), &known, &comment);
          EXPECT_EQ(code, good ? 0 : -102) << text;
          std::string refusal = std::string("argument \"") + param.name + "\" must be " +
                                zolo::gateway::ParamTypeName(param.type);
          EXPECT_EQ(comment, good ? "" : refusal);
        }
      }
    }
  }
  EXPECT_EQ(seen.size(), std::size(table)) << "a parameter type no request declares";
}

TEST_F(GatewayTest, MessageErrorsClose) {
  StartGateway();
  std::string deep = std::string(40, '[') + std::string(40, ']');
  std::string large = R"({"op":6,"d":{"requestType":")" + std::string(1100000, 'a') + "\"}}";
  struct Case {
    const char* name;
    bool identify_first;
    std::string frame;
    bool binary;
    int close_code;
  } cases[] = {
      {"not JSON", true, "{op:", false, 4000},
      {"d not an object", true, R"({"op":6,"d":3})", false, 4000},
      {"binary frame", true, "\x01\x02", true, 4001},
      {"too large", true, large, false, 4003},
      {"too deep", true, R"({"op":6,"d":{"a":)" + deep + "}}", false, 4004},
      {"unknown op", true, R"({"op":42,"d":{}})", false, 4005},
      {"request before Identify", false, R"({"op":6,"d":{"requestType":"get_state"}})", false,
       4006},
      {"second Identify", true, R"({"op":1,"d":{"protocolVersion":1}})", false, 4007},
      {"bad subscriptions", true, R"({"op":3,"d":{"subscriptions":{"events":["nope"]}}})", false,
       4015},
      {"rate too high", true, R"({"op":3,"d":{"subscriptions":{"rates":{"audio_level":61}}}})",
       false, 4015},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    GatewayClient client(session_);
    ASSERT_TRUE(client.Connect(Url()));
    if (c.identify_first) {
      ASSERT_TRUE(Identify(client));
    }
    if (c.binary) {
      client.SendBinary(c.frame);
    } else {
      client.Send(c.frame);
    }
    EXPECT_EQ(client.WaitClosed(), c.close_code);
  }
  GatewayClient silent(session_);
  ASSERT_TRUE(silent.Connect(Url()));
  EXPECT_EQ(silent.WaitClosed(6000), 4013);
  EXPECT_GE(Metric("zolo_gateway_refusals_total{reason=\"too_deep\"}"), 1);
}

TEST_F(GatewayTest, BrowserOriginsAndInFlightLimit) {
  config_.max_in_flight = 4;
  StartGateway();
  std::string own = "http://127.0.0.1:" + std::to_string(port_);
  struct Case {
    const char* origin;
    bool allowed;
  } cases[] = {{nullptr, true},
               {own.c_str(), true},
               {"http://evil.example", false},
               {"http://127.0.0.1:1", false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.origin ? c.origin : "no Origin");
    GatewayClient client(session_);
    ASSERT_TRUE(client.Connect(Url(), c.origin));
    if (c.allowed) {
      EXPECT_TRUE(Identify(client));
    } else {
      EXPECT_EQ(client.WaitClosed(), 4017);
    }
  }
  // Requests waiting for a stalled engine count against the client's limit.
  zolo::sim::Forced slow;
  slow.delay_ms = 1500;
  sim_.Force("get_state", slow);
  auto client = Connected();
  for (int i = 0; i < 5; ++i) client->Send(R"({"op":6,"d":{"requestType":"get_state"}})");
  EXPECT_EQ(client->WaitClosed(), 4010);
  sim_.Unforce("get_state");
}

TEST_F(GatewayTest, SubscriptionsFiltersAndPeakCoalescing) {
  StartGateway();
  auto everything = Connected();  // default: no high-volume events
  auto filtered =
      Connected(R"({"events":["audio_level","system"],"filters":{"audio_level":["xlr-in1"]}})");
  auto coalesced = Connected(R"({"events":["audio_level","streaming_duration"],)"
                             R"("rates":{"audio_level":2,"streaming_duration":2}})");
  // The first record of each object goes out at once; the rest fall in one half-second slot,
  // whose message is the newest record with each peak member at its largest since the last.
  // clang-format off
  const std::pair<const char*, const char*> emitted[] = {
      {"audio_level", R"({"Name":"xlr-in1","Level":10,"Left":11,"Right":12})"},
      {"audio_level", R"({"Name":"xlr-in2","Level":5,"Left":6,"Right":7})"},
      {"audio_level", R"({"Name":"xlr-in1","Level":90,"Left":1,"Right":95})"},
      {"audio_level", R"({"Name":"xlr-in1","Level":20,"Left":80,"Right":2})"},
      {"streaming_duration", R"({"Name":"movie1","Duration":100,"Type":1})"},
      {"streaming_duration", R"({"Name":"movie1","Duration":300,"Type":2})"},
      {"streaming_duration", R"({"Name":"movie1","Duration":200,"Type":3})"},
  };
  // clang-format on
  for (const auto& [signal, payload] : emitted) ASSERT_EQ(sim_.Emit(signal, payload), 0);
  ASSERT_EQ(sim_.Emit("media_data_changed", R"({"Type":1,"Data":2,"Id":3})"), 0);

  std::vector<std::string> seen;
  // Events until a pause; a few more than expected, never endlessly.
  for (JsonHolder event = filtered->NextOp(5, 2000); event && seen.size() < 10;
       event = filtered->NextOp(5, 300))
    seen.push_back(std::string(Text(D(event), "eventType")) + ":" +
                   Text(cJSON_GetObjectItem(D(event), "eventData"), "name"));
  EXPECT_EQ(seen, (std::vector<std::string>{"audio_level:xlr-in1", "audio_level:xlr-in1",
                                            "audio_level:xlr-in1", "media_data_changed:"}));

  JsonHolder only = everything->NextOp(5, 2000);
  ASSERT_NE(only, nullptr);
  EXPECT_STREQ(Text(D(only), "eventType"), "media_data_changed");

  std::map<std::string, std::vector<std::string>> sent;  // "level/left/right", "duration/type"
  int messages = 0;
  for (JsonHolder event = coalesced->NextOp(5, 2000); event && ++messages <= 10;
       event = coalesced->NextOp(5, 1000)) {
    const cJSON* data = cJSON_GetObjectItem(D(event), "eventData");
    bool level = std::string(Text(D(event), "eventType")) == "audio_level";
    std::string values;
    for (const char* member : level ? std::vector<const char*>{"level", "left", "right"}
                                    : std::vector<const char*>{"duration", "type"})
      values += (values.empty() ? "" : "/") + std::to_string(Number(data, member));
    sent[Text(data, "name")].push_back(values);
  }
  EXPECT_EQ(sent,
            (std::map<std::string, std::vector<std::string>>{{"xlr-in1", {"10/11/12", "90/80/95"}},
                                                             {"xlr-in2", {"5/6/7"}},
                                                             {"movie1", {"100/1", "300/3"}}}));
}

TEST_F(GatewayTest, StalledEngineDelaysNoOtherClient) {
  StartGateway();
  auto stalled = Connected();
  auto other = Connected();
  zolo::sim::Forced slow;
  slow.delay_ms = 2500;
  sim_.Force("get_state", slow);
  stalled->Send(R"({"op":6,"d":{"requestType":"get_state","requestId":"slow"}})");
  // While that call waits for the engine, another client's request and an event go through.
  gint64 asked = g_get_monotonic_time();
  JsonHolder setting = Request(*other, "get_setting", R"({"name":"no_such_setting"})");
  ASSERT_NE(setting, nullptr);
  ASSERT_EQ(sim_.Emit("media_data_changed", R"({"Type":1,"Data":2,"Id":3})"), 0);
  JsonHolder event = other->NextOp(5);
  ASSERT_NE(event, nullptr);
  EXPECT_STREQ(Text(D(event), "eventType"), "media_data_changed");
  std::printf("request and event through in %lld ms while the engine stalls\n",
              static_cast<long long>((g_get_monotonic_time() - asked) / 1000));
  for (const std::string& message : stalled->inbox())
    EXPECT_EQ(message.find("\"op\":7"), std::string::npos) << "answered before the engine did";
  // The engine watch notices; once the engine answers again, it says so.
  JsonHolder lost = other->NextOp(5);
  ASSERT_NE(lost, nullptr);
  EXPECT_STREQ(Text(D(lost), "eventType"), "engine_lost");
  std::string health;
  EXPECT_EQ(Get("/healthz", &health), 503u);
  EXPECT_NE(health.find("\"engine\":false"), std::string::npos) << health;
  JsonHolder late = stalled->NextOp(7);
  ASSERT_NE(late, nullptr);
  EXPECT_STREQ(Text(D(late), "requestId"), "slow");
  sim_.Unforce("get_state");
  JsonHolder restored = other->NextOp(5);
  ASSERT_NE(restored, nullptr);
  EXPECT_STREQ(Text(D(restored), "eventType"), "engine_restored");
}

TEST_F(GatewayTest, InvalidUtf8Closes) {
  StartGateway();
  int fd = RawClient(port_);
  ASSERT_GE(fd, 0);
  std::string frame = ClientFrame("{\"op\":6,\"d\":{\"requestType\":\"\xff\xfe\"}}");
  ASSERT_GT(write(fd, frame.data(), frame.size()), 0);
  int code = RawCloseCode(fd);
  // The WebSocket layer may refuse it (1007) before the gateway sees it (4002).
  EXPECT_TRUE(code == 4002 || code == 1007) << code;
  EXPECT_TRUE(zolo::test::PumpUntil(
      [&] { return Metric("zolo_gateway_refusals_total{reason=\"invalid_utf8\"}") == 1; }, 3000));
  close(fd);
}

TEST_F(GatewayTest, ClientThatNeverReadsIsClosedOthersGetEverything) {
  StartGateway();
  auto reader = Connected(R"({"events":["system"]})");
  int stuck = RawClient(port_, 4096);
  ASSERT_GE(stuck, 0);
  zolo::test::PumpUntil([] { return false; }, 300);
  const int kEvents = 8000;
  std::string filler(200, 'x');
  std::thread emitter([&] {
    for (int i = 0; i < kEvents; ++i)
      sim_.Emit("media_data_changed", "{\"Type\":1,\"Data\":2,\"Id\":" + std::to_string(i) +
                                          ",\"Payload\":\"" + filler + "\"}");
  });
  int received = 0;
  zolo::test::PumpUntil(
      [&] {
        while (!reader->inbox().empty()) {
          reader->inbox().pop_front();
          ++received;
        }
        return received >= kEvents;
      },
      30000);
  emitter.join();
  EXPECT_EQ(received, kEvents);
  EXPECT_EQ(Metric("zolo_gateway_refusals_total{reason=\"slow_consumer\"}"), 1);
  close(stuck);
}

TEST_F(GatewayTest, SixtyFourClientsThenRefused) {
  StartGateway();
  std::vector<std::unique_ptr<GatewayClient>> clients;
  for (int i = 0; i < 64; ++i) {
    clients.push_back(std::make_unique<GatewayClient>(session_));
    ASSERT_TRUE(clients.back()->Connect(Url()));
    ASSERT_TRUE(Identify(*clients.back())) << i;
  }
  GatewayClient extra(session_);
  ASSERT_TRUE(extra.Connect(Url()));
  EXPECT_EQ(extra.WaitClosed(), 4012);
  ASSERT_EQ(sim_.Emit("media_data_changed", R"({"Type":1,"Data":2,"Id":3})"), 0);
  for (auto& client : clients) EXPECT_NE(client->NextOp(5), nullptr);
}

// Connections are counted whatever they carry: one over the limit is shut at once, an HTTP
// connection that says nothing is dropped after its idle time, and a WebSocket is not.
TEST_F(GatewayTest, ConnectionsAreBoundedAndSilentOnesDropped) {
  config_.max_connections = 3;
  config_.http_idle_seconds = 1;
  StartGateway();
  auto client = Connected();
  auto raw_connect = [this] {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port_));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
  };
  // True when the server closed `fd` within `ms`.
  auto closed_within = [](int fd, int ms) {
    pollfd wait{fd, POLLIN, 0};
    char byte;
    return poll(&wait, 1, ms) == 1 && recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
  };
  int silent[2] = {raw_connect(), raw_connect()};
  zolo::test::PumpUntil([] { return false; }, 100);
  int extra = raw_connect();
  EXPECT_TRUE(closed_within(extra, 500));
  for (int fd : silent) EXPECT_FALSE(closed_within(fd, 0));
  for (int fd : silent) EXPECT_TRUE(closed_within(fd, 3000));
  zolo::test::PumpUntil([] { return false; }, 500);
  JsonHolder state = Request(*client, "get_state");
  ASSERT_NE(state, nullptr) << "the idle WebSocket was dropped";
  EXPECT_EQ(Number(Status(state), "code"), 0);
  EXPECT_EQ(Metric("zolo_gateway_refusals_total{reason=\"too_many_connections\"}"), 1);
  for (int fd : {silent[0], silent[1], extra}) close(fd);
}

TEST_F(GatewayTest, ImagesStayInTheirFolders) {
  namespace fs = std::filesystem;
  sandbox_->WriteFile("/var/lib/zolo/media/images/layout/layout_001.png", zolo::test::TinyPng());
  sandbox_->WriteFile("/var/lib/zolo/media/secret.png", zolo::test::TinyPng());
  fs::create_symlink(sandbox_->Path("/var/lib/zolo/media/secret.png"),
                     sandbox_->Path("/var/lib/zolo/media/images/layout/link.png"));
  config_.www = "/www";
  sandbox_->WriteFile("/www/index.html", "<html></html>");
  StartGateway();
  std::string body, etag;
  ASSERT_EQ(Get("/images/layouts/layout_001.png", &body, &etag), 200u);
  EXPECT_EQ(body, zolo::test::TinyPng());
  EXPECT_EQ(Get("/images/layouts/layout_001.png", nullptr, nullptr, etag.c_str()), 304u);
  EXPECT_EQ(Get("/", &body), 200u);
  EXPECT_EQ(body, "<html></html>");
  for (const char* path : {"/images/layouts/../secret.png", "/images/layouts/%2e%2e/secret.png",
                           "/images/layouts/%2E%2E%2Fsecret.png", "/images/layouts/link.png",
                           "/images/layouts/%2Fetc%2Fpasswd", "/images/layouts/..%5Csecret.png",
                           "/images/nope/layout_001.png", "/images/layouts/",
                           "/%2e%2e/var/lib/zolo/media/secret.png"}) {
    SCOPED_TRACE(path);
    guint status = Get(path, &body);
    EXPECT_TRUE(status == 404 || status == 400) << status;
    EXPECT_NE(body, zolo::test::TinyPng());
  }
  EXPECT_GE(Metric("zolo_gateway_refusals_total{reason=\"path_outside\"}"), 1);
  // A bookmark still by its recording's id, looked up in the recording database.
  ASSERT_EQ(zolo::sim::MediaSimulator::GenerateRecordings(1, 1), 0);
  std::vector<zm_recording> recordings;
  ASSERT_EQ(zm_get_recording(0, &recordings, 0, 1), 0);
  ASSERT_EQ(recordings.size(), 1u);
  std::string still = "/images/bookmarks/" + std::to_string(recordings[0].id);
  EXPECT_EQ(Get(still + "/bookmark_21500.jpg", &body), 200u);
  EXPECT_EQ(body.substr(0, 2), "\xff\xd8");
  EXPECT_EQ(Get(still + "/bookmark_snapshots/bookmark_21500.jpg"), 200u);
  EXPECT_EQ(Get(still + "/%2e%2e/%2e%2e/%2e%2e/media/secret.png"), 404u);
  EXPECT_EQ(Get("/images/bookmarks/999999/bookmark_21500.jpg"), 404u);
  EXPECT_EQ(Get("/healthz", &body), 200u);
  SoupMessage* post = soup_message_new(
      "POST", ("http://127.0.0.1:" + std::to_string(port_) + "/images/layouts/x.png").c_str());
  GBytes* upload = g_bytes_new(body.data(), body.size());
  soup_message_set_request_body_from_bytes(post, "application/octet-stream", upload);
  GBytes* answer = soup_session_send_and_read(session_, post, nullptr, nullptr);
  EXPECT_EQ(soup_message_get_status(post), 405u);
  if (answer != nullptr) g_bytes_unref(answer);
  g_bytes_unref(upload);
  g_object_unref(post);
  EXPECT_EQ(Metric("zolo_gateway_refusals_total{reason=\"http_method\"}"), 1);
}

// A folder whose name begins with a served folder's name ("layout_old" beside "layout") is
// outside it, whether reached with escaped dots or through a symbolic link inside.
TEST_F(GatewayTest, SiblingsOfServedFoldersAreOutside) {
  namespace fs = std::filesystem;
  ASSERT_EQ(zolo::sim::MediaSimulator::GenerateRecordings(1, 1), 0);
  std::vector<zm_recording> recordings;
  ASSERT_EQ(zm_get_recording(0, &recordings, 0, 1), 0);
  ASSERT_EQ(recordings.size(), 1u);
  std::string own = recordings[0].folder;  // a bookmark still's folder
  if (own.rfind(sandbox_->Path("/"), 0) == 0) own = own.substr(sandbox_->Path("").size());
  config_.www = "/www";
  struct Case {
    std::string prefix;  // of the URL
    std::string folder;  // it serves
    bool dots;           // try escaped dots too (from a recording's folder they lead to
                         // the recording folder, which "/images/bookmarks/" serves)
  };
  const Case cases[] = {
      {"/images/layouts/", "/var/lib/zolo/media/images/layout", true},
      {"/images/channels/", "/var/lib/zolo/media/images/snapshot", true},
      {"/images/previews/", "/var/lib/zolo/media/images/preview", true},
      {"/images/snapshots/", config_.recording_folder, true},
      {"/images/bookmarks/", config_.recording_folder, true},
      {"/images/bookmarks/" + std::to_string(recordings[0].id) + "/", own, false},
      {"/", config_.www, true},
  };
  for (const Case& c : cases) {
    sandbox_->WriteFile(c.folder + "/inside.png", zolo::test::TinyPng());
    sandbox_->WriteFile(c.folder + "_old/sibling.png", "sibling");
    std::error_code exists;  // the recording folder serves two kinds
    fs::create_symlink(sandbox_->Path(c.folder + "_old/sibling.png"),
                       sandbox_->Path(c.folder + "/file_link.png"), exists);
    fs::create_symlink(sandbox_->Path(c.folder + "_old"), sandbox_->Path(c.folder + "/folder_link"),
                       exists);
  }
  StartGateway();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.prefix);
    std::string body;
    EXPECT_EQ(Get(c.prefix + "inside.png", &body), 200u);
    EXPECT_EQ(body, zolo::test::TinyPng());
    std::string sibling = fs::path(c.folder).filename().string() + "_old";
    std::vector<std::string> names = {"file_link.png", "folder_link/sibling.png"};
    if (c.dots)
      names.insert(names.end(), {"%2e%2e/" + sibling + "/sibling.png",
                                 "%2E%2E%2F" + sibling + "%2Fsibling.png"});
    for (const std::string& name : names) {
      guint status = Get(c.prefix + name, &body);
      EXPECT_TRUE(status == 404 || status == 400) << name << ": " << status;
      EXPECT_NE(body, "sibling") << name;
    }
  }
  // Each link reached the check and was refused there.
  EXPECT_GE(Metric("zolo_gateway_refusals_total{reason=\"path_outside\"}"), 2 * std::size(cases));
}

TEST_F(GatewayTest, RefusesToStartUnsafelyOrWithoutItsConfiguration) {
  std::string program = zolo::test::BinaryDir() + "/tools/zolo-media-gateway/zolo-media-gateway";
  struct Case {
    std::vector<std::string> args;
    const char* message;
  } cases[] = {{{"--address", "0.0.0.0"}, "without a password"},
               {{"--config", "/nonexistent/gateway.conf"}, "/nonexistent/gateway.conf"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    std::vector<gchar*> argv = {program.data()};
    for (const std::string& arg : c.args) argv.push_back(const_cast<gchar*>(arg.c_str()));
    argv.push_back(nullptr);
    gchar* error_text = nullptr;
    gint status = 0;
    ASSERT_TRUE(g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr,
                             nullptr, &error_text, &status, nullptr));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << status;
    EXPECT_NE(std::string(error_text).find(c.message), std::string::npos) << error_text;
    g_free(error_text);
  }
}

TEST_F(GatewayTest, TlsWithOwnCertificate) {
  std::string dir = sandbox_->Path("/etc/gateway");
  sandbox_->MakeDir("/etc/gateway");
  std::string command =
      "openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=127.0.0.1 -keyout " + dir +
      "/key.pem -out " + dir + "/cert.pem >/dev/null 2>&1";
  ASSERT_EQ(std::system(command.c_str()), 0);
  config_.tls_certificate = "/etc/gateway/cert.pem";
  config_.tls_key = "/etc/gateway/key.pem";
  StartGateway();
  GatewayClient client(session_);
  ASSERT_TRUE(client.Connect(Url("wss")));
  ASSERT_TRUE(Identify(client));
  JsonHolder state = Request(client, "get_state");
  ASSERT_NE(state, nullptr);
  EXPECT_EQ(Number(Status(state), "code"), 0);
  GatewayClient plain(session_);
  EXPECT_FALSE(plain.Connect(Url("ws")));
}

// An answer too large for any client's queue is a response asking for a page, never a
// close; searches answer a page (from 0, newest first) and the number of matches.
TEST_F(GatewayTest, LargeAnswersAskForAPageAndSearchesArePaged) {
  config_.max_answer_bytes = 64 * 1024;
  ASSERT_EQ(zolo::sim::MediaSimulator::GenerateRecordings(250, 0), 0);
  StartGateway();
  auto client = Connected();
  JsonHolder all = Request(*client, "get_recording", R"({"pattern":"generated"})");
  ASSERT_NE(all, nullptr);
  EXPECT_EQ(Number(Status(all), "code"), -107);
  EXPECT_STREQ(Text(Status(all), "comment"), "answer too large: ask for a page");
  client->Send(R"({"op":8,"d":{"requestId":"b","requests":[{"requestType":"get_state"},)"
               R"({"requestType":"get_recording","requestData":{"pattern":"generated"}}]}})");
  JsonHolder batch = client->NextOp(9);
  ASSERT_NE(batch, nullptr);
  const cJSON* results = cJSON_GetObjectItem(D(batch), "results");
  ASSERT_EQ(cJSON_GetArraySize(results), 2);
  EXPECT_EQ(Number(cJSON_GetObjectItem(cJSON_GetArrayItem(results, 0), "requestStatus"), "code"),
            0);
  EXPECT_EQ(Number(cJSON_GetObjectItem(cJSON_GetArrayItem(results, 1), "requestStatus"), "code"),
            -107);
  struct Case {
    int page;
    int count;
    int expected;
  } cases[] = {{0, 20, 20}, {12, 20, 10}, {13, 20, 0}, {0, 1, 1}};
  double newest = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.page);
    JsonHolder page =
        Request(*client, "get_recording",
                R"({"pattern":"generated","with_videos":true,"page":)" + std::to_string(c.page) +
                    ",\"count\":" + std::to_string(c.count) + "}");
    ASSERT_NE(page, nullptr);
    ASSERT_EQ(Number(Status(page), "code"), 0);
    const cJSON* data = cJSON_GetObjectItem(D(page), "responseData");
    EXPECT_EQ(Number(data, "total"), 250);
    const cJSON* list = cJSON_GetObjectItem(data, "recordings");
    ASSERT_EQ(cJSON_GetArraySize(list), c.expected);
    if (c.expected == 0) continue;
    const cJSON* first = cJSON_GetArrayItem(list, 0);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(first, "videos")), 3);
    double at = cJSON_GetNumberValue(cJSON_GetObjectItem(first, "recorded_at"));
    if (c.page == 0) newest = std::max(newest, at);
    if (c.page > 0) {
      EXPECT_LT(at, newest) << "pages run from the newest";
    }
  }
  JsonHolder state = Request(*client, "get_state");
  ASSERT_NE(state, nullptr) << "the client was closed";
}

// Hello names the appliance's time zone, so that every client shows the appliance's clock.
TEST_F(GatewayTest, HelloNamesTheApplianceTimeZone) {
  const char* before = std::getenv("TZ");
  std::string saved = before != nullptr ? before : "";
  setenv("TZ", "Europe/Berlin", 1);
  StartGateway();
  GatewayClient client(session_);
  ASSERT_TRUE(client.Connect(Url()));
  JsonHolder hello = client.NextOp(0);
  if (before != nullptr)
    setenv("TZ", saved.c_str(), 1);
  else
    unsetenv("TZ");
  ASSERT_NE(hello, nullptr);
  const cJSON* zone = cJSON_GetObjectItem(D(hello), "timeZone");
  EXPECT_STREQ(Text(zone, "name"), "Europe/Berlin");
  std::string abbreviation = Text(zone, "abbreviation");
  EXPECT_TRUE(abbreviation == "CET" || abbreviation == "CEST") << abbreviation;
  int offset = Number(zone, "offsetSeconds");
  EXPECT_TRUE(offset == 3600 || offset == 7200) << offset;
}

int TcpConnect(int port) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return fd;
}

// What the server sends on `fd` until it closes the connection or `ms` pass; "<open>" is
// appended when it did not close.
std::string ReadUntilClosed(int fd, int ms) {
  std::string got;
  gint64 deadline = g_get_monotonic_time() + ms * 1000LL;
  for (;;) {
    int left = static_cast<int>((deadline - g_get_monotonic_time()) / 1000);
    pollfd wait{fd, POLLIN, 0};
    if (left <= 0 || poll(&wait, 1, left) != 1) return got + "<open>";
    char buffer[4096];
    ssize_t n = recv(fd, buffer, sizeof buffer, 0);
    if (n <= 0) return got;
    got.append(buffer, static_cast<size_t>(n));
  }
}

long RssKib() {
  FILE* file = std::fopen("/proc/self/statm", "r");
  long pages = 0, resident = 0;
  if (file != nullptr && std::fscanf(file, "%ld %ld", &pages, &resident) != 2) resident = 0;
  if (file != nullptr) std::fclose(file);
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// A request that announces a body, or any method but GET and HEAD, is answered from its
// headers and the connection shut: the body is never waited for nor kept.
TEST_F(GatewayTest, RequestBodiesAreRefusedFromTheirHeaders) {
  StartGateway();
  struct Case {
    const char* request;
    const char* status;
  } cases[] = {
      {"POST /healthz HTTP/1.1\r\nHost: a\r\nContent-Length: 100000000\r\n\r\n", "HTTP/1.1 405"},
      {"PUT / HTTP/1.1\r\nHost: a\r\n\r\n", "HTTP/1.1 405"},
      {"GET / HTTP/1.1\r\nHost: a\r\nContent-Length: 67108864\r\n\r\n", "HTTP/1.1 413"},
      {"GET /metrics HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n", "HTTP/1.1 413"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.request);
    int fd = TcpConnect(port_);
    ASSERT_GT(send(fd, c.request, std::strlen(c.request), MSG_NOSIGNAL), 0);
    std::string answer = ReadUntilClosed(fd, 2000);
    EXPECT_EQ(answer.substr(0, 12), c.status) << answer;
    EXPECT_EQ(answer.find("<open>"), std::string::npos) << "not closed";
    close(fd);
  }
  // Bodies sent anyway are not kept: memory stays flat under many such connections.
  long before = RssKib();
  std::string chunk(1 << 20, 'x');
  std::vector<int> open;
  for (int i = 0; i < 48; ++i) {
    int fd = TcpConnect(port_);
    std::string head =
        "POST /images/layouts/x.png HTTP/1.1\r\nHost: a\r\nContent-Length: 67108864\r\n\r\n";
    send(fd, head.data(), head.size(), MSG_NOSIGNAL);
    fcntl(fd, F_SETFL, O_NONBLOCK);
    for (int j = 0; j < 2; ++j) send(fd, chunk.data(), chunk.size(), MSG_NOSIGNAL);
    open.push_back(fd);
  }
  zolo::test::PumpUntil([] { return false; }, 500);
  long grown = RssKib() - before;
  EXPECT_LT(grown, 24 * 1024) << "KiB kept for refused bodies";
  for (int fd : open) close(fd);
  EXPECT_GE(Metric("zolo_gateway_refusals_total{reason=\"http_body\"}"), 2);
  EXPECT_GE(Metric("zolo_gateway_refusals_total{reason=\"http_method\"}"), 2);
}

// A frame announcing far more than the limit is refused at its header with a close frame.
TEST_F(GatewayTest, FramesFarOverTheLimitCloseWithTooBig) {
  StartGateway();
  int fd = RawClient(port_);
  ASSERT_GE(fd, 0);
  std::string header = {'\x81', '\xff', 0, 0, 0, 0, 0, '\x30', 0, 0, 1, 2, 3, 4};  // 3 MiB
  std::string frame = header + std::string(1000, 'a');
  ASSERT_GT(send(fd, frame.data(), frame.size(), MSG_NOSIGNAL), 0);
  int code = RawCloseCode(fd);
  EXPECT_TRUE(code == 1009 || code == 4003) << code;
  close(fd);
  EXPECT_TRUE(zolo::test::PumpUntil(
      [&] { return Metric("zolo_gateway_refusals_total{reason=\"too_large\"}") == 1; }, 3000));
}

// Every silent HTTP connection goes after its idle time, however many there are.
TEST_F(GatewayTest, EverySilentConnectionIsDropped) {
  config_.http_idle_seconds = 1;
  StartGateway();
  std::vector<int> silent;
  for (int i = 0; i < 300; ++i) silent.push_back(TcpConnect(port_));
  int still_open = 0;
  for (int fd : silent) {
    if (ReadUntilClosed(fd, 4000).find("<open>") != std::string::npos) ++still_open;
    close(fd);
  }
  EXPECT_EQ(still_open, 0);
}

// A client that never reads and only wants high-volume events loses them first, and is
// closed once its queue has stayed full for the bound, so it cannot keep its slot.
TEST_F(GatewayTest, ClientStuckOnHighVolumeEventsIsClosed) {
  config_.slow_consumer_ms = 800;
  config_.max_queue_messages = 32;
  StartGateway();
  int stuck = RawClient(port_, 4096, R"({"events":["audio_level"]})");
  ASSERT_GE(stuck, 0);
  zolo::test::PumpUntil([] { return false; }, 200);
  sim_.set_level_interval_ms(2);
  bool closed = zolo::test::PumpUntil(
      [&] { return Metric("zolo_gateway_refusals_total{reason=\"slow_consumer\"}") == 1; }, 8000);
  sim_.set_level_interval_ms(0);
  EXPECT_TRUE(closed);
  EXPECT_GE(Metric("zolo_gateway_events_dropped_total"), 1);
  EXPECT_EQ(RawCloseCode(stuck), 4011);
  close(stuck);
}

// A stalled engine is announced within three seconds with the gateway's own watch settings.
TEST_F(GatewayTest, StalledEngineIsAnnouncedWithinThreeSeconds) {
  config_.engine_probe_ms = Config{}.engine_probe_ms;
  config_.engine_timeout_ms = Config{}.engine_timeout_ms;
  StartGateway();
  auto client = Connected();
  zolo::test::PumpUntil([] { return false; }, 300);
  zolo::sim::Forced silent;
  silent.kind = zolo::sim::Forced::kNoReply;
  sim_.Force("get_state", silent);
  gint64 stalled = g_get_monotonic_time();
  JsonHolder lost = client->NextOp(5, 6000);
  ASSERT_NE(lost, nullptr);
  EXPECT_STREQ(Text(D(lost), "eventType"), "engine_lost");
  gint64 ms = (g_get_monotonic_time() - stalled) / 1000;
  std::printf("engine_lost %lld ms after the engine stalled\n", static_cast<long long>(ms));
  EXPECT_LE(ms, 3000);
  sim_.Unforce("get_state");
  JsonHolder restored = client->NextOp(5, 15000);
  ASSERT_NE(restored, nullptr);
  EXPECT_STREQ(Text(D(restored), "eventType"), "engine_restored");
}

// A missing layout preview is rendered when it is asked for; other names stay 404.
TEST_F(GatewayTest, MissingLayoutPreviewsAreRenderedOnDemand) {
  std::filesystem::remove(sandbox_->Path("/var/lib/zolo/media/images/layout/layout_001.png"));
  StartGateway();
  std::string body;
  ASSERT_EQ(Get("/images/layouts/layout_001.png", &body), 200u);
  EXPECT_EQ(body.substr(1, 3), "PNG");
  for (const char* name : {"layout_999.png", "layout_1.png", "layout_001.png.png"})
    EXPECT_EQ(Get(std::string("/images/layouts/") + name), 404u) << name;
}

// The daemon listens before the media database exists and starts the library once it
// appears; its console folder can be given on the command line, outside the sandbox root.
TEST_F(GatewayTest, DaemonStartsBeforeItsDatabaseAndServesAGivenFolder) {
  namespace fs = std::filesystem;
  gchar* made = g_dir_make_tmp("zolo-fresh-XXXXXX", nullptr);
  ASSERT_NE(made, nullptr);
  fs::path base = made;
  g_free(made);
  // A fresh appliance: its configuration, initial SQL and firmware, no database yet.
  fs::path root = base / "root";
  for (const char* file :
       {"etc/media.conf", "etc/fw_env.config", "usr/share/media/initial.sql", "var/lib/zolo"}) {
    fs::create_directories((root / file).parent_path());
    fs::copy(fs::path(sandbox_->root()) / file, root / file, fs::copy_options::recursive);
  }
  for (const auto& entry : fs::directory_iterator(root / "var/lib/zolo"))
    if (entry.path().filename() != "uboot.env") fs::remove_all(entry.path());
  fs::path www = base / "console";
  fs::create_directories(www);
  { std::ofstream(www / "index.html") << "<p>console</p>"; }
  std::string program = zolo::test::BinaryDir() + "/tools/zolo-media-gateway/zolo-media-gateway";
  std::string www_text = www.string();
  std::vector<gchar*> argv = {program.data(),          const_cast<gchar*>("--port"),
                              const_cast<gchar*>("0"), const_cast<gchar*>("--www"),
                              www_text.data(),         nullptr};
  gchar** env = g_environ_setenv(g_get_environ(), "ZOLO_SYSROOT", root.c_str(), TRUE);
  GPid daemon = 0;
  gint out = -1;
  ASSERT_TRUE(g_spawn_async_with_pipes(nullptr, argv.data(), env, G_SPAWN_DO_NOT_REAP_CHILD,
                                       nullptr, nullptr, &daemon, nullptr, &out, nullptr, nullptr));
  g_strfreev(env);
  std::string line;
  for (int i = 0; i < 100 && line.find('\n') == std::string::npos; ++i) {
    pollfd wait{out, POLLIN, 0};
    char c = 0;
    if (poll(&wait, 1, 100) == 1 && read(out, &c, 1) == 1) line += c;
  }
  size_t at = line.find("port ");
  ASSERT_NE(at, std::string::npos) << line;
  port_ = std::atoi(line.c_str() + at + 5);
  std::string body;
  EXPECT_EQ(Get("/healthz", &body), 503u);
  EXPECT_NE(body.find("\"database\":false"), std::string::npos) << body;
  EXPECT_EQ(Get("/", &body), 200u);
  EXPECT_EQ(body, "<p>console</p>");
  {
    GatewayClient client(session_);
    ASSERT_TRUE(client.Connect(Url()));
    ASSERT_TRUE(Identify(client));
    JsonHolder early = Request(client, "get_state");
    ASSERT_NE(early, nullptr);
    EXPECT_EQ(Number(Status(early), "code"), -108);
    // The database appears (the first library user makes it): the gateway starts by itself.
    std::string zmctl = zolo::test::BinaryDir() + "/tools/zmctl/zmctl --sandbox " + root.string() +
                        " state >/dev/null 2>&1";
    ASSERT_EQ(std::system(zmctl.c_str()), 0);
    EXPECT_TRUE(zolo::test::PumpUntil([&] { return Get("/healthz") == 200u; }, 8000));
    JsonHolder later = Request(client, "get_state");
    ASSERT_NE(later, nullptr);
    EXPECT_EQ(Number(Status(later), "code"), 0);
  }
  kill(daemon, SIGTERM);
  int status = 0;
  waitpid(daemon, &status, 0);
  g_spawn_close_pid(daemon);
  close(out);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  fs::remove_all(base);
}

// The outbound queue over a socket that takes a few KiB at a time: frames arrive whole and in
// order with the WebSocket layer's own bytes between them, at the limits high-volume frames
// are the ones dropped, and after Stop the stream still ends in a whole close frame.
TEST(GatewayOutbound, PartialWritesKeepFramesWholeAndDropHighVolumeFirst) {
  using zolo::gateway::Outbound;
  int fds[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds), 0);
  int small = 4096;
  setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  GSocket* socket = g_socket_new_from_fd(fds[0], nullptr);
  ASSERT_NE(socket, nullptr);
  GSocketConnection* connection = g_socket_connection_factory_create_connection(socket);
  GMainContext* context = g_main_context_new();
  auto outbound =
      std::make_shared<Outbound>(G_IO_STREAM(connection), context, Outbound::Limits{4, 1 << 20});
  std::string received;
  // Reads until nothing came for 20 rounds; fails when the bytes never stop.
  auto drain = [&] {
    char buffer[8192];
    int rounds = 0;
    for (int idle = 0; idle < 20; ++rounds) {
      if (rounds == 20000) {
        ADD_FAILURE() << "the socket never stopped sending";
        return;
      }
      for (int i = 0; i < 1000 && g_main_context_iteration(context, FALSE); ++i) {
      }
      ssize_t got = read(fds[1], buffer, sizeof buffer);
      if (got > 0) {
        received.append(buffer, static_cast<size_t>(got));
        idle = 0;
      } else {
        ++idle;
        g_usleep(5000);
      }
    }
  };
  auto payload = [](int i) { return "frame " + std::to_string(i) + " " + std::string(3000, 'x'); };

  std::map<Outbound::Added, int> outcomes;
  std::vector<int> expected_normal;
  for (int i = 0; i < 40; ++i) {
    bool high_volume = i % 3 != 0;
    Outbound::Added added = outbound->Add(zolo::gateway::TextFrame(payload(i)), high_volume);
    ++outcomes[added];
    if (!high_volume && added != Outbound::Added::kFull) expected_normal.push_back(i);
    if (i == 10) outbound->AddRaw("\x8a\x00", 2);  // a pong, while a frame may be half out
    outbound->Flush();
  }
  drain();
  std::vector<int> texts;
  int pongs = 0;
  bool whole = true;
  zolo::test::TakeServerFrames(&received, [&](int opcode, std::string_view data) {
    if (opcode == 0xa) ++pongs;
    if (opcode != 1) return true;
    int index = std::atoi(std::string(data.substr(6)).c_str());
    whole = whole && data == payload(index);
    texts.push_back(index);
    return true;
  });
  EXPECT_TRUE(received.empty()) << "a frame arrived cut";
  EXPECT_TRUE(whole);
  EXPECT_EQ(pongs, 1);
  EXPECT_TRUE(std::is_sorted(texts.begin(), texts.end()));
  for (int index : expected_normal)
    EXPECT_NE(std::find(texts.begin(), texts.end(), index), texts.end()) << index;
  int lost_high_volume = 40 - static_cast<int>(texts.size()) - outcomes[Outbound::Added::kFull];
  EXPECT_GT(lost_high_volume, 0);
  EXPECT_EQ(lost_high_volume,
            outcomes[Outbound::Added::kDropped] + outcomes[Outbound::Added::kQueuedDroppingOlder]);

  // Fill it with frames only, then stop as a closing session does: the half-written frame is
  // finished, the rest dropped, and the layer's close frame still goes.
  int filled = 0;
  while (outbound->Add(zolo::gateway::TextFrame(payload(99)), false) != Outbound::Added::kFull)
    ASSERT_LT(++filled, 100) << "the queue of 4 frames never reported full";
  outbound->Stop();
  EXPECT_EQ(outbound->Add(zolo::gateway::TextFrame(payload(99)), false), Outbound::Added::kStopped);
  outbound->AddRaw("\x88\x02\x03\xe8", 4);
  drain();
  int last_opcode = -1;
  zolo::test::TakeServerFrames(&received, [&](int opcode, std::string_view data) {
    last_opcode = opcode;
    return opcode != 1 || data == payload(99);
  });
  EXPECT_TRUE(received.empty());
  EXPECT_EQ(last_opcode, 8);

  outbound->Close();
  outbound.reset();
  g_object_unref(connection);
  g_object_unref(socket);
  g_main_context_unref(context);
  close(fds[1]);
}

}  // namespace
