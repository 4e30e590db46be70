// The gateway's loop is the only thread that runs loop work: engine signals that arrive
// before the loop runs (the daemon's start) wait for it instead of running on the bus thread.
// As in the daemon, the gateway runs on the global default context, which GLib would let
// any thread without a context of its own take.
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "engine_fixture.h"
#include "gateway.h"

namespace {

class GatewayLoopTest : public zolo::test::EngineTest {};

TEST_F(GatewayLoopTest, SignalsBeforeTheLoopRunsWaitForIt) {
  GMainContext* context = g_main_context_default();
  zolo::gateway::Config config;
  config.port = 0;
  {
    zolo::gateway::Gateway gateway(config);
    std::string error;
    ASSERT_TRUE(gateway.Start(&error)) << error;
    // Nobody iterates the context yet, as between the daemon's Start and its loop, while the
    // engine sends levels.
    sim_.set_level_interval_ms(10);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    sim_.set_level_interval_ms(0);
    // The bus thread delivered them without taking the loop: it is free for its owner.
    if (!g_main_context_acquire(context)) {
      // The bus thread holds the loop and the gateway's locks for good: nothing can stop the
      // gateway any more, so the test ends here rather than at the time limit.
      std::fprintf(stderr, "FAILED: the bus thread holds the gateway's loop\n");
      delete bus_;
      sandbox_.reset();
      std::_Exit(1);
    }
    g_main_context_release(context);
    while (g_main_context_iteration(context, FALSE)) {
    }
    gateway.Stop();
  }
}

}  // namespace
