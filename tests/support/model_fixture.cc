#include "model_fixture.h"

#include <zolo_model/media_model.h>

namespace zolo::test {

std::string InitialSqlPath() {
  return SourceDir() + "/data/initial.sql";
}

void ModelTest::SetUp() {
  sandbox_ = std::make_unique<Sandbox>();
  sandbox_->MakeDir("/var/lib/zolo");
  MediaModel::Instance()->Release();
  ASSERT_EQ(MediaModel::Instance()->Initialize(DatabasePath(), InitialSqlPath()), 0);
}

void ModelTest::TearDown() {
  MediaModel::Instance()->Release();
  sandbox_.reset();
}

std::string ModelTest::DatabasePath() const {
  return sandbox_->Path("/var/lib/zolo/media.db");
}

void ModelTest::Exec(const std::string& sql) {
  auto* database = MediaModel::Instance()->database();
  ASSERT_NE(database, nullptr);
  auto lock = database->Lock();
  database->ExecScript(sql);
}

}  // namespace zolo::test
