// An appliance in a box for integration tests: a private bus (one per test program), a
// sandbox root with the default configuration and a fresh database, the simulated engine,
// and the library initialised against them.
#pragma once

#include <gtest/gtest.h>
#include <zolo_media_sim.h>

#include <memory>
#include <string>
#include <vector>

#include "private_bus.h"
#include "sandbox.h"

namespace zolo::test {

class EngineTest : public testing::Test {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
  void SetUp() override;
  void TearDown() override;

  // Lays out the sandbox's configuration, initial SQL and firmware environment.
  void PrepareSandbox();
  // The "change_media_data" notices the engine received so far, each as
  // "type/data/id", followed by "/payload" when the notice carries one.
  std::vector<std::string> Changes() const;

  static PrivateBus* bus_;
  std::unique_ptr<Sandbox> sandbox_;
  zolo::sim::MediaSimulator sim_;
  bool initialized_ = false;
};

}  // namespace zolo::test
