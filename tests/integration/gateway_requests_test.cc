// The gateway's request handlers against the simulated engine: one request of every
// family, refused client paths, library failure codes, and the table against the
// library's exported functions.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zolo/media.h>

#include <cerrno>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "recording_fixture.h"
#include "request_helpers.h"
#include "request_table.h"

namespace {

using zolo::JsonHolder;
using zolo::gateway::FindRequest;
using zolo::gateway::Outcome;
using zolo::sim::Forced;

// The calls the protocol document lists as not served (its section "Library calls the
// gateway does not serve"), without the prefix.
std::set<std::string> DocumentedUnserved() {
  std::ifstream document(zolo::test::SourceDir() + "/docs/gateway-protocol.md");
  std::set<std::string> names;
  bool inside = false;
  for (std::string line; std::getline(document, line);) {
    if (line.rfind("### ", 0) == 0) inside = line.find("does not serve") != std::string::npos;
    if (!inside || line.rfind("| `zm_", 0) != 0) continue;
    std::string calls = line.substr(0, line.find(" |", 2));
    for (size_t at = calls.find("`zm_"); at != std::string::npos; at = calls.find("`zm_", at)) {
      size_t end = calls.find('`', at + 1);
      names.insert(calls.substr(at + 4, end - at - 4));
      at = end;
    }
  }
  return names;
}

// The zm_ functions the shared library exports (without the prefix), from its symbols file:
// mangled ("_Z12zm_get_state...") or plain ("zm_strerror@Base").
std::set<std::string> ExportedFunctions() {
  std::ifstream symbols(zolo::test::SourceDir() + "/debian/libzolo-media2.symbols");
  std::set<std::string> names;
  for (std::string line; std::getline(symbols, line);) {
    size_t start = line.find_first_not_of(' ');
    if (start == std::string::npos) continue;
    std::string symbol = line.substr(start, line.find('@') - start);
    if (symbol.rfind("_Z", 0) == 0) {
      size_t digits = symbol.find_first_not_of("0123456789", 2);
      if (digits == 2 || digits == std::string::npos) continue;
      symbol = symbol.substr(digits, std::stoul(symbol.substr(2, digits - 2)));
    }
    if (symbol.rfind("zm_", 0) == 0) names.insert(symbol.substr(3));
  }
  return names;
}

class GatewayRequestsTest : public zolo::test::RecordingTest {
 protected:
  Outcome Run(const std::string& request, const std::string& args) {
    const zolo::gateway::RequestSpec* known = FindRequest(request);
    if (!known) {
      ADD_FAILURE() << "no request " << request;
      return Outcome{-999, nullptr};
    }
    JsonHolder parsed(cJSON_Parse(args.c_str()));
    EXPECT_TRUE(parsed) << args;
    return known->handler(parsed.get());
  }
  static std::string Print(const cJSON* json) {
    if (!json) return "";
    char* text = cJSON_PrintUnformatted(json);
    std::string out = text;
    cJSON_free(text);
    return out;
  }
};

TEST_F(GatewayRequestsTest, TableHoldsEveryFrontEndCallAndNothingElse) {
  std::set<std::string> exported = ExportedFunctions();
  ASSERT_GT(exported.size(), 100u);
  std::set<std::string> listed;
  for (const auto& known : zolo::gateway::Requests()) {
    EXPECT_TRUE(exported.count(known.name)) << known.name << " is not an exported function";
    EXPECT_TRUE(listed.insert(known.name).second) << known.name << " twice";
    std::string description = known.description;
    EXPECT_TRUE(!description.empty() && description.find('\n') == std::string::npos) << known.name;
    std::set<std::string> params;
    for (const auto& param : known.params)
      EXPECT_TRUE(params.insert(param.name).second) << known.name << "." << param.name;
    EXPECT_NE(known.handler, nullptr) << known.name;
  }
  // Every exported call is a request or documented as not served, and never both.
  std::set<std::string> unserved = DocumentedUnserved();
  EXPECT_GE(unserved.size(), 10u);
  for (const std::string& name : exported)
    EXPECT_TRUE(listed.count(name) != unserved.count(name))
        << name << (listed.count(name) ? " is served and listed as not" : " has no request");
  for (const std::string& name : unserved)
    EXPECT_TRUE(exported.count(name)) << name << " is listed but not exported";
}

// One request per family; `member` is a member of the response data, `kind` its cJSON type.
TEST_F(GatewayRequestsTest, EveryFamilyAnswersWithTypedRecords) {
  AddRecording("morning", 1000);
  struct Case {
    const char* request;
    const char* args;
    int code;
    const char* member;  // "" for no data
    int kind;
  };
  const Case cases[] = {
      {"get_state", "{}", 0, "state", cJSON_Number},
      {"get_stream_by_pattern", R"({"pattern":"%"})", 0, "streams", cJSON_Array},
      {"get_channel", R"({"id":0})", 0, "channels", cJSON_Array},
      {"get_audio_input", "{}", 0, "ports", cJSON_Array},
      {"get_codec", "{}", 0, "codecs", cJSON_Array},
      {"get_layout", R"({"id":0})", 0, "layouts", cJSON_Array},
      {"get_video_layout", R"({"mixer":1})", 0, "id", cJSON_Number},
      {"get_recording", R"({"id":0})", 0, "recordings", cJSON_Array},
      {"get_storage_info", "{}", 0, "storages", cJSON_Array},
      {"get_recording_count", "{}", 0, "count", cJSON_Number},
      {"mixer_uri", R"({"mixer":9})", -2, "", 0},
      {"get_storage_total_size", R"({"storage":7})", -3, "error", cJSON_String},
      {"add_theme", R"({"theme":{"name":"t","layuot":1}})", -3, "error", cJSON_String},
      {"get_recording", R"({"start":-5})", -3, "error", cJSON_String},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.request) + " " + c.args);
    Outcome outcome = Run(c.request, c.args);
    EXPECT_EQ(outcome.code, c.code) << Print(outcome.data.get());
    if (*c.member == '\0') {
      EXPECT_EQ(outcome.data, nullptr);
      continue;
    }
    const cJSON* member = cJSON_GetObjectItemCaseSensitive(outcome.data.get(), c.member);
    ASSERT_NE(member, nullptr) << Print(outcome.data.get());
    EXPECT_EQ(member->type & 0xff, c.kind) << Print(member);
    if (cJSON_IsArray(member) && c.code == 0) {
      EXPECT_GT(cJSON_GetArraySize(member), 0);
      EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItem(member->child, "id")) ||
                  cJSON_IsString(cJSON_GetObjectItem(member->child, "name")));
    }
  }
}

TEST_F(GatewayRequestsTest, RecordArgumentsReachTheLibrary) {
  Outcome added = Run("add_theme", R"({"theme":{"name":"from the network","layout":1}})");
  ASSERT_GT(added.code, -1) << Print(added.data.get());
  int id = cJSON_GetObjectItem(added.data.get(), "id")->valueint;
  Outcome read = Run("get_theme", "{\"id\":" + std::to_string(id) + "}");
  ASSERT_EQ(read.code, 0);
  const cJSON* theme = cJSON_GetArrayItem(cJSON_GetObjectItem(read.data.get(), "themes"), 0);
  EXPECT_STREQ(cJSON_GetObjectItem(theme, "name")->valuestring, "from the network");

  Outcome text = Run("get_layout_string", R"({"windows":[{"id":2,"w":0.5,"h":1,"x":0,"y":0}]})");
  ASSERT_EQ(text.code, 0);
  Outcome windows =
      Run("parse_layout_string",
          R"({"text":)" + Print(cJSON_GetObjectItem(text.data.get(), "layout_string")) + "}");
  EXPECT_EQ(Print(cJSON_GetObjectItem(windows.data.get(), "windows")),
            R"([{"id":2,"w":0.5,"h":1,"x":0,"y":0,"z":0,"crop":0}])");
}

TEST_F(GatewayRequestsTest, ClientPathsOutsideTheAppliancesFoldersAreRefused) {
  // The engine takes system paths (it looks them up below the sandbox root); the library
  // opens bookmark files by their real path.
  const std::string images = "/var/lib/zolo/media/images";
  sandbox_->MakeDir(images);
  ASSERT_EQ(symlink("/tmp", sandbox_->Path(images + "/escape").c_str()), 0);
  ASSERT_EQ(symlink("/no/such/file", sandbox_->Path(images + "/dangling.jpg").c_str()), 0);
  std::string bookmark = RecordingPath("morning/bookmark.json");
  AddRecording("morning", 1000);
  struct Case {
    const char* request;
    std::string args;
    int code;
  };
  // The last two are allowed: inside the image folder, and a recording's own bookmark file.
  const Case cases[] = {
      {"make_video_snapshot", R"({"mixer":1,"uri":"file:///tmp/a.jpg","width":64,"height":36})",
       -3},
      {"make_video_snapshot",
       R"({"mixer":1,"uri":"file://)" + images +
           R"(/../../../../etc/a.jpg","width":64,"height":36})",
       -3},
      {"make_video_snapshot",
       R"({"mixer":1,"uri":")" + images + R"(/escape/a.jpg","width":64,"height":36})", -3},
      {"make_video_snapshot",
       R"({"mixer":1,"uri":")" + images + R"(/dangling.jpg","width":64,"height":36})", -3},
      {"make_channel_snapshot", R"({"channel":1,"uri":"relative.jpg","width":64,"height":36})", -3},
      {"playback", R"({"uri":"/etc/passwd","time":0})", -3},
      {"set_stream_destination", R"({"name":"movie1","destination":"file:///etc/x.mp4"})", -3},
      {"load_recording_bookmark", R"({"path":"/etc/bookmark.json"})", -3},
      {"save_recording_bookmark_file",
       R"({"path":")" + sandbox_->Path(images) + R"(/a.json","json":"[]"})", -3},
      {"start_stream", R"({"filenames":{"movie1":"../../etc/x.mp4"}})", -3},
      {"set_video_thumbnail", R"({"id":1,"path":"../../x.jpg"})", -3},
      {"make_video_snapshot",
       R"({"mixer":1,"uri":"file://)" + images + R"(/shot.jpg","width":64,"height":36})", 0},
      {"load_recording_bookmark", R"({"path":")" + bookmark + R"("})", 0},
  };
  uint64_t refused_before = zolo::gateway::RefusedArguments();
  int refusals = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.request) + " " + c.args);
    refusals += c.code == -3;
    sim_.ClearRequests();
    Outcome outcome = Run(c.request, c.args);
    EXPECT_EQ(outcome.code, c.code) << Print(outcome.data.get());
    if (c.code == -3) {
      EXPECT_TRUE(sim_.Requests().empty());
    }
  }
  EXPECT_EQ(access(sandbox_->Path(images + "/shot.jpg").c_str(), F_OK), 0);
  EXPECT_EQ(zolo::gateway::RefusedArguments() - refused_before, static_cast<uint64_t>(refusals));
}

// A folder whose name begins with an allowed folder's name ("recordings_old" beside
// "recordings") is outside it, named directly or through a symbolic link inside the allowed
// folder, for every request that names a file. Inside, the same request is not refused.
TEST_F(GatewayRequestsTest, SiblingsOfAllowedFoldersAreOutside) {
  AddRecording("morning", 1000);
  struct Case {
    const char* request;
    const char* args;  // "%s": the folder of the file
    bool real;         // the library opens it: a real path, not a system path
  };
  // clang-format off
  const Case requests[] = {
      {"make_video_snapshot", R"({"mixer":1,"uri":"file://%s/a.jpg","width":64,"height":36})", false},
      {"make_channel_snapshot", R"({"channel":1,"uri":"file://%s/a.jpg","width":64,"height":36})", false},
      {"playback", R"({"uri":"%s/a.mp4","time":0})", false},
      {"change_playback", R"({"uri":"file://%s/a.mp4","time":0})", false},
      {"set_video_foreground", R"({"path":"%s/a.png"})", false},
      {"set_video_overlay", R"({"path":"file://%s/a.png","x":0,"y":0})", false},
      {"set_stream_destination", R"({"name":"movie1","destination":"file://%s/a.mp4"})", false},
      {"set_schedule_stream_destination", R"({"destinations":["rtmp://x/live","%s/a.mp4"]})", false},
      {"enable_channel_source", R"({"channel":1,"connect":true,"uri":"file://%s/a.mp4"})", false},
      {"enable_source", R"({"source":1,"connect":true,"sub_uri":"%s/a.mp4"})", false},
      {"load_recording_bookmark", R"({"path":"%s/bookmark.json"})", true},
      {"save_recording_bookmark_file", R"({"path":"%s/bookmark.json","json":"[]"})", true},
      {"save_recording_bookmark_file", R"({"bookmark":{"path":"%s/bookmark.json","items":[]}})", true},
      {"update_recording_bookmark", R"({"bookmark":{"path":"%s/bookmark.json","items":[]},"text":"t","time":0,"description":""})", true},
      {"delete_recording_bookmark", R"({"bookmark":{"path":"%s/bookmark.json","items":[]},"time":0})", true},
  };
  // Asset folders are checked by their text in the library, by their real path here.
  const Case assets[] = {
      {"add_background", R"({"background":{"path":"%s","name":"a.png"}})", false},
      {"set_background", R"({"id":1,"background":{"path":"%s","name":"a.png"}})", false},
      {"set_intermission", R"({"id":1,"intermission":{"path":"%s","name":"a.png"}})", false},
      {"add_overlay", R"({"overlay":{"path":"%s","name":"a.png"}})", false},
      {"set_overlay", R"({"id":1,"overlay":{"path":"%s","name":"a.png"}})", false},
      {"set_system_overlay", R"({"id":50,"overlay":{"path":"%s","name":"a.png"}})", false},
  };
  // clang-format on
  auto run = [&](const Case& c, const std::string& folder, bool refused) {
    std::string args = c.args;
    std::string path = c.real ? sandbox_->Path(folder) : folder;
    for (size_t at = args.find("%s"); at != std::string::npos; at = args.find("%s", at))
      args.replace(at, 2, path);
    SCOPED_TRACE(std::string(c.request) + " " + args);
    sim_.ClearRequests();
    uint64_t refused_before = zolo::gateway::RefusedArguments();
    Outcome outcome = Run(c.request, args);
    EXPECT_EQ(zolo::gateway::RefusedArguments() - refused_before, refused ? 1u : 0u);
    if (refused) {
      EXPECT_EQ(outcome.code, -3) << Print(outcome.data.get());
      EXPECT_TRUE(sim_.Requests().empty());
    }
  };
  auto check = [&](const std::vector<std::string>& folders, const Case* begin, const Case* end) {
    for (const std::string& folder : folders) {
      for (const char* file : {"a.jpg", "a.png", "a.mp4", "bookmark.json"})
        sandbox_->WriteFile(folder + "_old/" + file, "[]");
      sandbox_->MakeDir(folder);
      int linked = symlink(sandbox_->Path(folder + "_old").c_str(),
                           sandbox_->Path(folder + "/link").c_str());
      ASSERT_TRUE(linked == 0 || errno == EEXIST) << folder;
      for (const Case* c = begin; c != end; ++c) {
        run(*c, folder + "_old", true);
        run(*c, folder + "/link", true);
        run(*c, folder, false);
      }
    }
  };
  check(zolo::gateway::AllowedFolders(), std::begin(requests), std::end(requests));
  check({"/var/lib/zolo/media/assets", "/usr/share/media/overlay"}, std::begin(assets),
        std::end(assets));
}

TEST_F(GatewayRequestsTest, LibraryFailureCodesComeBack) {
  sim_.Force("set_audio_input_gain", Forced{Forced::kCode, -1012, 0, ""});
  int direct = zm_set_audio_input_gain("xlr-in1", 3);
  ASSERT_LT(direct, 0);
  EXPECT_EQ(Run("set_audio_input_gain", R"({"name":"xlr-in1","gain":3})").code, direct);
  EXPECT_EQ(Run("get_layout", R"({"id":9999})").code, -5);
  EXPECT_EQ(Run("get_setting", R"({"name":"no_such_setting"})").code, [] {
    std::string value;
    return zm_get_setting("no_such_setting", &value);
  }());
}

}  // namespace
