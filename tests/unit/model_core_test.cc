// MediaModel connection handling: initialise, connect, release, bad files.
#include <gtest/gtest.h>
#include <zolo_model/media_model.h>

#include <fstream>

#include "model_fixture.h"
#include "sandbox.h"

namespace {

using zolo::test::InitialSqlPath;
using zolo::test::Sandbox;

class MediaModelConnection : public testing::Test {
 protected:
  void TearDown() override { MediaModel::Instance()->Release(); }
  Sandbox sandbox_;
};

TEST_F(MediaModelConnection, InitializeCreatesOnceThenConnectReopens) {
  std::string db = sandbox_.Path("/media.db");
  auto* model = MediaModel::Instance();
  EXPECT_FALSE(model->IsConnected());
  EXPECT_EQ(model->database(), nullptr);
  ASSERT_EQ(model->Initialize(db, InitialSqlPath()), 0);
  EXPECT_TRUE(model->IsConnected());
  model->Release();
  EXPECT_FALSE(model->IsConnected());
  EXPECT_EQ(model->Connect(db), 0);
  EXPECT_TRUE(model->IsConnected());
}

TEST_F(MediaModelConnection, RefusesMissingCorruptAndUnfillableFiles) {
  auto* model = MediaModel::Instance();
  EXPECT_EQ(model->Connect(sandbox_.Path("/absent.db")), -1);
  sandbox_.WriteFile("/corrupt.db", std::string(4096, 'x'));
  EXPECT_EQ(model->Connect(sandbox_.Path("/corrupt.db")), -1);
  EXPECT_EQ(model->Initialize(sandbox_.Path("/new.db"), sandbox_.Path("/no.sql")), -1);
  sandbox_.WriteFile("/bad.sql", "CREATE TABLE t(;");
  EXPECT_EQ(model->Initialize(sandbox_.Path("/new.db"), sandbox_.Path("/bad.sql")), -1);
  // A database that could not be filled is not left behind half made.
  EXPECT_FALSE(std::ifstream(sandbox_.Path("/new.db")).good());
  EXPECT_FALSE(model->IsConnected());
}

TEST_F(MediaModelConnection, ExecuteFromFileIsAllOrNothing) {
  auto* model = MediaModel::Instance();
  sandbox_.WriteFile("/init.sql", "CREATE TABLE t(x INTEGER);");
  ASSERT_EQ(model->Initialize(sandbox_.Path("/m.db"), sandbox_.Path("/init.sql")), 0);
  sandbox_.WriteFile("/patch.sql", "INSERT INTO t VALUES (1); INSERT INTO missing VALUES (2);");
  EXPECT_EQ(model->ExecuteFromFile(sandbox_.Path("/patch.sql")), -1);
  EXPECT_EQ(model->ExecuteFromFile(sandbox_.Path("/absent.sql")), -1);
  auto* database = model->database();
  auto lock = database->Lock();
  auto& count = database->Prepared("SELECT count(*) FROM t");
  ASSERT_TRUE(count.executeStep());
  EXPECT_EQ(count.getColumn(0).getInt(), 0);
}

}  // namespace
