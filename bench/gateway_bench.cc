// The gateway against its parts, in-process with the simulated engine on a private bus:
// - a request's round trip through the gateway vs the same library call made directly plus
//   a bare echo round trip on the same WebSocket stack (libsoup server and client);
// - audio levels fanned out to many subscribed clients vs the library's own callback:
//   every client must get every event (counter "lost"), with the p99 delay from emission;
// - memory per idle identified client (counter "bytes_per_client", target <= 64 KiB).
// GATEWAY_BENCH_CLIENTS, GATEWAY_BENCH_RATE (signals/s) and GATEWAY_BENCH_SECONDS scale
// the fan-out (default 100 clients, 10,000/s, 5 s; the p99 target is 20 ms).
#include <benchmark/benchmark.h>
#include <poll.h>
#include <zolo/media.h>
#include <zolo_media_sim.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string_view>
#include <thread>
#include <vector>

#include "engine_appliance.h"
#include "gateway_client.h"
#include "private_bus.h"
#include "ratio_reporter.h"
#include "raw_rows.h"
#include "sandbox.h"

namespace {

using Clock = std::chrono::steady_clock;

zolo::sim::MediaSimulator* g_sim = nullptr;
int g_port = 0;
SoupSession* g_session = nullptr;

int EnvInt(const char* name, int fallback) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::atoi(value) : fallback;
}

gint64 NowUs() {
  return g_get_monotonic_time();
}

std::string Url(int port) {
  return "ws://127.0.0.1:" + std::to_string(port) + "/ws";
}

bool Identify(zolo::test::GatewayClient& client, const std::string& subscriptions = "") {
  if (client.NextOp(0) == nullptr) return false;
  std::string d = R"({"protocolVersion":1)" +
                  (subscriptions.empty() ? "" : ",\"subscriptions\":" + subscriptions) + "}";
  client.Send(R"({"op":1,"d":)" + d + "}");
  return client.NextOp(2) != nullptr;
}

void BM_gateway_get_state(benchmark::State& state) {
  zolo::test::GatewayClient client(g_session);
  if (!client.Connect(Url(g_port)) || !Identify(client)) return state.SkipWithError("no client");
  const std::string request = R"({"op":6,"d":{"requestType":"get_state","requestId":"b"}})";
  for (auto _ : state) {
    client.Send(request);
    if (client.NextOp(7) == nullptr) return state.SkipWithError("no response");
  }
}

// The echo server: a bare libsoup WebSocket handler on its own thread.
class EchoServer {
 public:
  int Start() {
    std::promise<int> started;
    thread_ = std::thread([this, &started] {
      GMainContext* context = g_main_context_new();
      g_main_context_push_thread_default(context);
      loop_ = g_main_loop_new(context, FALSE);
      SoupServer* server = soup_server_new(nullptr, nullptr);
      soup_server_add_websocket_handler(
          server, "/ws", nullptr, nullptr,
          [](SoupServer*, SoupServerMessage*, const char*, SoupWebsocketConnection* connection,
             gpointer) {
            g_object_ref(connection);
            g_signal_connect(connection, "message",
                             G_CALLBACK(+[](SoupWebsocketConnection* c, gint, GBytes* message) {
                               soup_websocket_connection_send_message(c, SOUP_WEBSOCKET_DATA_TEXT,
                                                                      message);
                             }),
                             nullptr);
            g_signal_connect(connection, "closed", G_CALLBACK(g_object_unref), nullptr);
          },
          nullptr, nullptr);
      soup_server_listen_local(server, 0, SOUP_SERVER_LISTEN_IPV4_ONLY, nullptr);
      GSList* uris = soup_server_get_uris(server);
      started.set_value(uris != nullptr ? g_uri_get_port(static_cast<GUri*>(uris->data)) : -1);
      g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
      g_main_loop_run(loop_);
      soup_server_disconnect(server);
      g_object_unref(server);
      g_main_context_pop_thread_default(context);
      g_main_context_unref(context);
    });
    return started.get_future().get();
  }
  void Stop() {
    g_main_context_invoke(
        g_main_loop_get_context(loop_),
        [](gpointer loop) -> gboolean {
          g_main_loop_quit(static_cast<GMainLoop*>(loop));
          return G_SOURCE_REMOVE;
        },
        loop_);
    thread_.join();
    g_main_loop_unref(loop_);
  }

 private:
  std::thread thread_;
  GMainLoop* loop_ = nullptr;
};
int g_echo_port = 0;

void BM_direct_call_plus_echo(benchmark::State& state) {
  zolo::test::GatewayClient client(g_session);
  if (!client.Connect(Url(g_echo_port))) return state.SkipWithError("no echo client");
  const std::string request = R"({"op":6,"d":{"requestType":"get_state","requestId":"b"}})";
  for (auto _ : state) {
    client.Send(request);
    if (client.Next() == nullptr) return state.SkipWithError("no echo");
    std::string name;
    if (zm_get_state(&name) < 0) return state.SkipWithError("zm_get_state failed");
  }
}

// Emits audio levels at `rate` per second for `seconds`, each named with its emission time
// so that receivers can measure the delay. The number emitted.
int EmitLevels(int rate, int seconds) {
  int total = rate * seconds;
  auto start = Clock::now();
  for (int i = 0; i < total; ++i) {
    std::this_thread::sleep_until(start + std::chrono::microseconds(1000000LL * i / rate));
    std::string payload =
        "{\"Name\":\"t" + std::to_string(NowUs()) + "\",\"Level\":-20,\"Left\":-21,\"Right\":-19}";
    while (g_sim->Emit("audio_level", payload) < 0) std::this_thread::yield();
  }
  return total;
}

// Reads server frames from every raw client until each has `expected` events or the
// deadline; collects each event's delay (microseconds) and returns the events received.
long ReceiveAll(const std::vector<int>& fds, int expected, std::vector<gint64>* delays,
                Clock::time_point deadline) {
  std::vector<std::string> buffers(fds.size());
  std::vector<pollfd> polls;
  for (int fd : fds) polls.push_back({fd, POLLIN, 0});
  long total = 0, wanted = static_cast<long>(expected) * static_cast<long>(fds.size());
  char chunk[65536];
  while (total < wanted && Clock::now() < deadline) {
    if (poll(polls.data(), polls.size(), 100) <= 0) continue;
    gint64 now = NowUs();
    for (size_t i = 0; i < fds.size(); ++i) {
      if (!(polls[i].revents & POLLIN)) continue;
      ssize_t got = read(fds[i], chunk, sizeof chunk);
      if (got <= 0) continue;
      buffers[i].append(chunk, static_cast<size_t>(got));
      zolo::test::TakeServerFrames(&buffers[i], [&](int, std::string_view frame) {
        size_t mark = frame.find("\"name\":\"t");
        if (mark != std::string_view::npos) {
          ++total;
          delays->push_back(now - std::strtoll(frame.data() + mark + 9, nullptr, 10));
        }
        return true;
      });
    }
  }
  return total;
}

void BM_gateway_fanout(benchmark::State& state) {
  int clients = EnvInt("GATEWAY_BENCH_CLIENTS", 100);
  int rate = EnvInt("GATEWAY_BENCH_RATE", 10000);
  int seconds = EnvInt("GATEWAY_BENCH_SECONDS", 5);
  std::vector<int> fds;
  std::string subscribe =
      zolo::test::ClientFrame(R"({"op":3,"d":{"subscriptions":{"events":["audio_level"]}}})");
  for (int i = 0; i < clients; ++i) {
    int fd = zolo::test::RawClient(g_port);
    if (fd < 0 || write(fd, subscribe.data(), subscribe.size()) < 0)
      return state.SkipWithError("raw client failed");
    fds.push_back(fd);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  for (int fd : fds) {  // drop Hello and Identified
    char drain[4096];
    while (recv(fd, drain, sizeof drain, MSG_DONTWAIT) > 0) {
    }
  }
  for (auto _ : state) {
    std::vector<gint64> delays;
    delays.reserve(static_cast<size_t>(clients) * rate * seconds);
    auto start = Clock::now();
    std::thread emitter([&] { EmitLevels(rate, seconds); });
    long received =
        ReceiveAll(fds, rate * seconds, &delays, start + std::chrono::seconds(seconds + 30));
    emitter.join();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    std::sort(delays.begin(), delays.end());
    state.counters["lost"] =
        static_cast<double>(static_cast<long>(clients) * rate * seconds - received);
    state.counters["p99_ms"] = delays.empty() ? 0 : delays[delays.size() * 99 / 100] / 1000.0;
  }
  for (int fd : fds) close(fd);
}

// The baseline of the fan-out: the same emission with nothing to wait for, so the ratio is
// how far the last client's last event trails the engine.
void BM_emission_only(benchmark::State& state) {
  int rate = EnvInt("GATEWAY_BENCH_RATE", 10000);
  int seconds = EnvInt("GATEWAY_BENCH_SECONDS", 5);
  for (auto _ : state) {
    auto start = Clock::now();
    EmitLevels(rate, seconds);
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
  }
}

long RssBytes() {
  long pages = 0, resident = 0;
  FILE* file = std::fopen("/proc/self/statm", "r");
  if (file == nullptr) return 0;
  if (std::fscanf(file, "%ld %ld", &pages, &resident) != 2) resident = 0;
  std::fclose(file);
  return resident * sysconf(_SC_PAGESIZE);
}

void BM_idle_client_memory(benchmark::State& state) {
  const int kClients = 200;
  for (auto _ : state) {
    long before = RssBytes();
    std::vector<int> fds;
    for (int i = 0; i < kClients; ++i) fds.push_back(zolo::test::RawClient(g_port));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    long after = RssBytes();
    state.counters["bytes_per_client"] = static_cast<double>(after - before) / kClients;
    for (int fd : fds) close(fd);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
  }
}

BENCHMARK(BM_idle_client_memory)->Unit(benchmark::kMillisecond)->Iterations(1);
// Round trips: seven interleaved repetitions each, compared by their medians.
BENCHMARK(BM_gateway_get_state)->Unit(benchmark::kMicrosecond)->MinTime(0.5)->Repetitions(7);
BENCHMARK(BM_direct_call_plus_echo)->Unit(benchmark::kMicrosecond)->MinTime(0.5)->Repetitions(7);
BENCHMARK(BM_gateway_fanout)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1);
BENCHMARK(BM_emission_only)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
  zolo::bench::EngineAppliance appliance;
  g_sim = &appliance.sim;
  if (!appliance.Start("gateway_bench")) return 1;
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  g_session = soup_session_new();
  zolo::gateway::Config config;
  config.port = 0;
  config.max_clients = 256;
  zolo::test::GatewayThread gateway;
  EchoServer echo;
  g_port = gateway.Start(config);
  g_echo_port = echo.Start();
  if (g_port <= 0 || g_echo_port <= 0) {
    std::fprintf(stderr, "gateway_bench: the gateway or the echo server did not start\n");
    return 1;
  }
  // Repetitions of the round trips alternate, so that noise falls on both sides alike.
  std::vector<char*> args(argv, argv + argc);
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave);
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  int result = zolo::bench::RunWithRatios({{"BM_gateway_get_state", "BM_direct_call_plus_echo"},
                                           {"BM_gateway_fanout", "BM_emission_only"}});
  gateway.Stop();
  echo.Stop();
  g_object_unref(g_session);
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
  return result;
}
