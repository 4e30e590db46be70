// What the engine benchmarks share: a sandboxed appliance on a private bus with the simulated
// engine and the library up, taken down in reverse order when it goes out of scope.
#pragma once

#include <zolo/media.h>
#include <zolo_media_sim.h>

#include <cstdio>

#include "private_bus.h"
#include "raw_rows.h"
#include "sandbox.h"

namespace zolo::bench {

class EngineAppliance {
 public:
  // Starts the engine and the library; false (after a line on stderr naming `program`) when
  // the bus, the engine or the library did not come up.
  bool Start(const char* program) {
    if (bus_.ok() && sim.Start() == 0 && zm_init(true) == 0) {
      started_ = true;
      return true;
    }
    std::fprintf(stderr, "%s: cannot set up the bus, the simulator or the library\n", program);
    return false;
  }
  ~EngineAppliance() {
    if (started_) zm_release();
    sim.Stop();
  }

 private:
  // Members come up in this order: the environment, the bus, the laid-out sandbox, the engine.
  bool environment_ = (SetBenchEnvironment(), true);
  zolo::test::PrivateBus bus_;

 public:
  zolo::test::Sandbox sandbox;

 private:
  bool laid_out_ = (LayOutAppliance(sandbox), true);

 public:
  zolo::sim::MediaSimulator sim;

 private:
  bool started_ = false;
};

}  // namespace zolo::bench
