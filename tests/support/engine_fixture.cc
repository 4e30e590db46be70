#include "engine_fixture.h"
#include <cjson/cJSON.h>

#include <zolo/media.h>
#include <zolo_model/recording_db.h>

#include <cstdlib>

namespace zolo::test {

PrivateBus* EngineTest::bus_ = nullptr;

void EngineTest::SetUpTestSuite() {
  bus_ = new PrivateBus();
}

void EngineTest::TearDownTestSuite() {
  delete bus_;
  bus_ = nullptr;
}

void EngineTest::PrepareSandbox() {
  sandbox_ = std::make_unique<Sandbox>();
  sandbox_->WriteFile("/etc/media.conf", ReadFile(SourceDir() + "/data/media.conf"));
  sandbox_->WriteFile("/usr/share/media/initial.sql", ReadFile(SourceDir() + "/data/initial.sql"));
  sandbox_->MakeDir("/var/lib/zolo");
  std::string command =
      SourceDir() + "/scripts/make-fw-env.sh " + sandbox_->root() + " movie_resource=2 >/dev/null";
  ASSERT_EQ(std::system(command.c_str()), 0);
}

void EngineTest::SetUp() {
  ASSERT_TRUE(bus_ != nullptr && bus_->ok()) << "dbus-daemon did not start";
  PrepareSandbox();
  ASSERT_EQ(sim_.Start(), 0);
  ASSERT_EQ(zm_init(true), 0);
  initialized_ = true;
}

void EngineTest::TearDown() {
  if (initialized_) zm_release();
  initialized_ = false;
  sim_.Stop();
  // The recording database stays open between calls; each test's sandbox has its own.
  RecordingDb::Instance()->Release(true);
  sandbox_.reset();
}

std::vector<std::string> EngineTest::Changes() const {
  std::vector<std::string> out;
  for (const auto& request : sim_.Requests("change_media_data")) {
    cJSON* notice = cJSON_Parse(request.payload.c_str());
    auto number = [notice](const char* key) {
      const cJSON* item = cJSON_GetObjectItem(notice, key);
      return cJSON_IsNumber(item) ? std::to_string(item->valueint) : std::string("?");
    };
    const cJSON* payload = cJSON_GetObjectItem(notice, "payload");
    out.push_back(number("type") + "/" + number("data") + "/" + number("id") +
                  (cJSON_IsString(payload) ? "/" + std::string(payload->valuestring) : ""));
    cJSON_Delete(notice);
  }
  return out;
}

}  // namespace zolo::test
