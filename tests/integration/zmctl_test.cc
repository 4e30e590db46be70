// zmctl run as a process against the simulated engine: exit status, JSON, error text.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include <zolo/media.h>
#include <zolo_model/recording_db.h>

#include "engine_fixture.h"

namespace {

using zolo::test::EngineTest;

struct Result {
  int status;
  std::string out;
};

class ZmctlTest : public EngineTest {
 protected:
  Result Run(const std::string& arguments) {
    std::string command = zolo::test::BinaryDir() + "/tools/zmctl/zmctl --sandbox " +
                          sandbox_->root() + " " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    Result result{-1, ""};
    if (pipe == nullptr) return result;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) result.out.append(buffer, n);
    int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
  }
  // Runs with --json and returns the parsed output (owned by the caller).
  cJSON* Json(const std::string& arguments) {
    Result result = Run("--json " + arguments);
    EXPECT_EQ(result.status, 0) << result.out;
    cJSON* json = cJSON_Parse(result.out.c_str());
    EXPECT_NE(json, nullptr) << result.out;
    return json;
  }
};

TEST_F(ZmctlTest, EachFamilyAnswersInJson) {
  const char* commands[] = {"state",
                            "setting get storage",
                            "stream list --type file",
                            "stream list --pattern preview%",
                            "metadata list",
                            "metadata list --backup",
                            "status",
                            "network start rtmp1",
                            "network stop rtmp1",
                            "stream set-param rtmp1 latency 200",
                            "stream set-auth srt1 passphrase secret --text --type network",
                            "stream enable rtmp1 1",
                            "stream set-destination rtmp1 rtmp://x/live",
                            "config get Engine min_avail_recording_time"};
  for (const char* command : commands) {
    cJSON* json = Json(command);
    cJSON_Delete(json);
  }
  cJSON* state = Json("state");
  EXPECT_EQ(cJSON_GetObjectItem(state, "id")->valueint, 1);
  cJSON_Delete(state);
  // Listings print the record layer's typed records: every member, flags as booleans.
  cJSON* sources = Json("source list");
  const cJSON* source = cJSON_GetArrayItem(sources, 0);
  EXPECT_TRUE(cJSON_IsBool(cJSON_GetObjectItem(source, "available")));
  EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItem(source, "audio_delay")));
  cJSON_Delete(sources);
}

TEST_F(ZmctlTest, ARecordingFromTheCommandLine) {
  EXPECT_EQ(Run("record start --file movie1=take1").status, 0);
  EXPECT_EQ(sim_.Requests("start_streams").back().payload,
            R"({"persist":false,"filenames":[{"stream":"movie1","filename":"take1"}]})");
  EXPECT_EQ(Run("record pause").status, 0);
  EXPECT_EQ(Run("record resume").status, 0);
  cJSON* stopped = Json("record stop");
  cJSON_Delete(stopped);
  EXPECT_EQ(sim_.state(), zolo::sim::kIdle);
}

// The watcher prints the library's parsed record of each signal, in both output forms.
TEST_F(ZmctlTest, SignalsWatchPrintsParsedRecords) {
  struct Case {
    const char* options;
    std::string first_line;
  } cases[] = {
      {"--json",
       R"({"signal":"audio_level","record":{"name":"Audio Mix","level":-12,"left":-1,"right":-2}})"},
      {"", R"(audio_level                  name="Audio Mix" level=-12 left=-1 right=-2)"},
  };
  for (const Case& c : cases) {
    std::atomic<bool> done{false};
    Result watched;
    std::thread watcher([&] {
      watched = Run(std::string(c.options) + " signals watch audio_level --count 1 --seconds 10");
      done = true;
    });
    // Until the watcher has subscribed, signals pass unseen: repeat until it has one (it
    // gives up after its 10 s itself).
    for (int i = 0; !done && i < 200; ++i) {
      sim_.Emit("audio_level", R"({"Name":"Audio Mix","Level":-12,"Left":-1,"Right":-2})");
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    watcher.join();
    EXPECT_EQ(watched.status, 0);
    EXPECT_EQ(watched.out.substr(0, watched.out.find('\n')), c.first_line);
  }
}

TEST_F(ZmctlTest, RefusedCallsPrintTheCodeAndFail) {
  Result pause = Run("record pause");  // idle engine
  EXPECT_EQ(pause.status, 1);
  EXPECT_NE(pause.out.find("zm_pause_stream failed: -4"), std::string::npos) << pause.out;
  Result unknown = Run("setting get no_such_setting");
  EXPECT_EQ(unknown.status, 1);
  EXPECT_NE(unknown.out.find("-5 (object or setting not found)"), std::string::npos);
  EXPECT_NE(Run("stream list --id 0").status, 0);
  EXPECT_NE(Run("record start --file =x").status, 0);
  EXPECT_EQ(Run("--help").status, 0);
  EXPECT_EQ(Run("stream --help").status, 0);
  Result codec = Run("codec list --name NOPE");
  EXPECT_EQ(codec.status, 1);
  EXPECT_NE(codec.out.find("-5"), std::string::npos) << codec.out;
  // A change of several settings that fails part-way says what was and was not applied.
  Result partial = Run("audio set-input xlr-in1 --volume 5 --gain -200");
  EXPECT_EQ(partial.status, 1);
  EXPECT_NE(partial.out.find("applied: zm_set_audio_input; not applied: zm_set_audio_input_gain"),
            std::string::npos)
      << partial.out;
}

// Live status tables give local times and fill type and channel from the configuration.
TEST_F(ZmctlTest, LiveStatusFillsEveryColumn) {
  ASSERT_EQ(Run("record start").status, 0);
  for (const char* command : {"status", "record stop"}) {
    Result table = Run(command);
    ASSERT_EQ(table.status, 0) << table.out;
    size_t line = table.out.find("\nmovie1 ");
    ASSERT_NE(line, std::string::npos) << table.out;
    std::string row = table.out.substr(line + 1, table.out.find('\n', line + 1) - line - 1);
    EXPECT_NE(row.find(" file "), std::string::npos) << command << ": " << row;
    EXPECT_NE(row.find(" Movie "), std::string::npos) << command << ": " << row;
    EXPECT_NE(row.find(":"), std::string::npos) << command << ": " << row;  // a local time
  }
}

// Usage errors exit 2 with the help of the command reached; --version names both versions;
// completion offers what may follow.
TEST_F(ZmctlTest, UsageErrorsVersionAndCompletion) {
  // Window numbers out of range or not integral name their field.
  struct Case {
    const char* arguments;
    const char* help_of;
  } usage[] = {{"", "Subcommands:"},
               {"no-such-command", "Subcommands:"},
               {"stream", "set-destination"},
               {"stream list --no-such-option", "--pattern"},
               {"layout add 0,0,1,1,0,0,99999999999", "source '99999999999'"},
               {"layout add 0,0,1,1,1.5,0,1", "z '1.5'"},
               {"layout add 0,0,1,1,0,nan,1", "crop 'nan'"},
               {"layout add 0,0,inf,1,0,0,1", "w 'inf'"},
               {"layout add 0,0,1,1,0,0", "seven numbers"},
               {"layout set 1 --replace 1:99999999999", "OLD:NEW"}};
  for (const auto& c : usage) {
    Result result = Run(c.arguments);
    EXPECT_EQ(result.status, 2) << c.arguments;
    EXPECT_NE(result.out.find(c.help_of), std::string::npos) << c.arguments << result.out;
  }
  Result version = Run("--version");
  EXPECT_EQ(version.status, 0);
  EXPECT_NE(version.out.find(std::string("library ") + zm_version()), std::string::npos);
  EXPECT_NE(Run("__complete stream").out.find("set-destination\n"), std::string::npos);
  EXPECT_NE(Run("__complete").out.find("--json\n"), std::string::npos);
}

// A recording with a live bookmark and one with a still, seen through the recording,
// bookmark, snapshot and image commands.
TEST_F(ZmctlTest, RecordingsBookmarksAndSnapshots) {
  // The in-process engine keeps its recording database open between tests; this test's
  // sandbox has its own.
  RecordingDb::Instance()->Release(true);
  ASSERT_EQ(Run("record start").status, 0);
  EXPECT_EQ(Run("bookmark add --text Kickoff").status, 0);
  EXPECT_EQ(Run("bookmark add --still --width 64 --height 36 --text Goal").status, 0);
  ASSERT_EQ(Run("record stop").status, 0);

  cJSON* list = Json("recording list --count 1");
  ASSERT_EQ(cJSON_GetArraySize(list), 1);
  const cJSON* listed = cJSON_GetArrayItem(list, 0);
  int id = cJSON_GetObjectItem(listed, "id")->valueint;
  EXPECT_EQ(id, sim_.last_recording_id());
  EXPECT_STREQ(cJSON_GetObjectItem(listed, "status")->valuestring, "ready");
  int videos = cJSON_GetArraySize(cJSON_GetObjectItem(listed, "videos"));
  EXPECT_GT(videos, 0);
  cJSON_Delete(list);

  cJSON* shown = Json("recording show " + std::to_string(id));
  EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(shown, "videos")), videos);
  const cJSON* bookmarks = cJSON_GetObjectItem(shown, "bookmarks");
  ASSERT_EQ(cJSON_GetArraySize(bookmarks), 2);
  const cJSON* with_still = cJSON_GetArrayItem(bookmarks, 1);
  EXPECT_STREQ(cJSON_GetObjectItem(with_still, "text")->valuestring, "Goal");
  std::string still = std::string(cJSON_GetObjectItem(shown, "folder")->valuestring) + "/" +
                      cJSON_GetObjectItem(with_still, "snapshot")->valuestring;
  FILE* jpeg = std::fopen(still.c_str(), "rb");
  ASSERT_NE(jpeg, nullptr) << still;
  EXPECT_EQ(std::fgetc(jpeg), 0xFF);  // a JPEG starts with its SOI marker
  std::fclose(jpeg);
  cJSON_Delete(shown);

  cJSON* nearest = Json("bookmark search " + std::to_string(id) + " --time 0");
  EXPECT_EQ(cJSON_GetObjectItem(cJSON_GetArrayItem(nearest, 0), "index")->valueint, 0);
  cJSON_Delete(nearest);

  EXPECT_EQ(Run("snapshot take --width 64 --height 36").status, 0);
  cJSON* images = Json("image list 1");
  ASSERT_EQ(cJSON_GetArraySize(images), 1);
  EXPECT_GT(cJSON_GetObjectItem(cJSON_GetArrayItem(images, 0), "size")->valueint, 0);
  cJSON_Delete(images);
}

// Refusals of the new groups: the code and its meaning, or a usage error.
TEST_F(ZmctlTest, RecordingCommandsRefuse) {
  struct Case {
    const char* arguments;
    int status;
    const char* text;
  };
  // A bookmark now needs a recording going on; one of a recording needs its time.
  const Case cases[] = {
      {"bookmark add --text x", 1, "zm_add_bookmark failed: -4"},
      {"recording show 999", 1, "failed: -5"},
      {"bookmark list 999", 1, "failed: -5"},
      {"recording list --since yesterday", 1, "failed: -3"},
      {"recording set 1", 1, "failed: -3"},
      {"bookmark add 1 --text x", 2, "--time"},
  };
  for (const Case& c : cases) {
    Result result = Run(c.arguments);
    EXPECT_EQ(result.status, c.status) << c.arguments << result.out;
    EXPECT_NE(result.out.find(c.text), std::string::npos) << c.arguments << result.out;
  }
}

}  // namespace
