// A sandbox root with a fresh media database made from data/initial.sql, connected
// through MediaModel for the life of the fixture.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "sandbox.h"

namespace zolo::test {

class ModelTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Path of the media database file inside the sandbox.
  std::string DatabasePath() const;
  // Runs SQL directly on the connected database (test setup only).
  void Exec(const std::string& sql);

  std::unique_ptr<Sandbox> sandbox_;
};

// The initial SQL file of the source tree.
std::string InitialSqlPath();

}  // namespace zolo::test
