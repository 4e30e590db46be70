// Path, file, shell and cJSON helpers, quirks included.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <zolo/utils.h>

#include <array>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <utility>

#include "log_capture.h"
#include "sandbox.h"

namespace {

using zolo::test::LogCapture;
using zolo::test::ReadFile;
using zolo::test::Sandbox;

using Text = const std::string&;
using Row = std::array<const char*, 3>;  // input, argument, expected result

template <class Helper>
void Check(Helper helper, std::initializer_list<Row> rows) {
  for (const auto& [input, argument, expected] : rows)
    EXPECT_EQ(helper(input, argument), expected) << input << " / " << argument;
}

TEST(PathHelpers, Table) {
  auto ext = [](Text in, Text) { return GetFileExt(in); };
  auto uri = [](Text in, std::string path) {
    GetFilepathFromUri(in, &path);
    return path;
  };
  auto new_name = [](std::string in, Text name) {
    return ReplaceFileName(&in, name) == 0 ? in : "-1";
  };
  auto match = [](Text pattern, Text text) { return std::to_string(MatchString(pattern, text)); };
  // clang-format off
  // The last dot at index 1 or later; without one, all but the first character.
  Check(ext, {
      {"a/b.c/d.tar.gz", "", "gz"},
      {"abc", "", "bc"},
      {".x", "", "x"},
      {"x", "", ""},
      {"name.", "", ""},
  });
  Check(ReplaceFileExt, {
      {"a/b.mp4", "jpg", "a/b.jpg"},
      {"abc", ".jpg", "a.jpg"},
      {"a", "jpg", "a"},
      {"", "jpg", "jpg"},
      {".x", "y", ".y"},
  });
  Check(AppendFileUri, {
      {"file:///m/a.mp4", "t_", "file:///m/t_a.mp4"},
      {"", "t_", "t_"},
      {"/a.mp4", "t_", "/t_a.mp4"},
      {"a.mp4", "t_", "at_.mp4"},
  });
  Check(ConcateFilePath, {
      {"", "x", "x"},
      {"/a/", "x", "/a/x"},
      {"/a", "x", "/a/x"},
      {"/a", "", "/a/"},
  });
  // Other schemes leave the path as it was.
  Check(uri, {
      {"rtsp://h/x", "unchanged", "unchanged"},
      {"/x", "", "/x"},
      {"file:///m/a.mp4", "", "/m/a.mp4"},
  });
  // Every occurrence of the old name is replaced; a leading dot or slash is refused.
  Check(new_name, {
      {"/r/rec/rec.mp4", "new", "/r/new/new.mp4"},
      {"rec.mp4", "a", "a.mp4"},
      {".hidden", "a", "-1"},
      {"/rec.mp4", "a", "-1"},
      {"/r/x.mp4", "", "/r/x.mp4"},
  });
  Check(match, {
      {"^Video-Capture[0-9]+$", "Video-Capture12", "0"},
      {"^Video-Capture[0-9]+$", "Video-Usb1", "-1"},
      {"([unclosed", "x", "-1"},
  });
  // clang-format on

  std::string s = "aaa";
  EXPECT_EQ(ReplaceString(&s, "a", "aa"), 0);  // inserted text is never rescanned
  s += ".y.z\n\n";
  ReplaceString(&s, "", "!");  // an empty pattern changes nothing
  ReplaceString(&s, ".", "");
  RemoveTrailingChar('\n', &s);
  EXPECT_EQ(s, "aaaaaayz");
}

class FileHelpers : public testing::Test {
 protected:
  std::string P(const std::string& name) { return sandbox_.Path("/" + name); }
  Sandbox sandbox_;
};

TEST_F(FileHelpers, ExistenceSizeRemovalAndRename) {
  sandbox_.WriteFile("/f.txt", "12345");
  EXPECT_TRUE(IsFile(P("f.txt")) && IsFile("file://" + P("f.txt")) && IsFile(sandbox_.root()));
  EXPECT_TRUE(!IsDir(P("f.txt")) && IsDir(sandbox_.root()));
  EXPECT_EQ(FileSize(P("f.txt")), 5);
  EXPECT_EQ(FileSize(P("absent")), -1);
  ASSERT_EQ(symlink(P("f.txt").c_str(), P("link").c_str()), 0);
  EXPECT_EQ(FileSize(P("link")), static_cast<int64_t>(P("f.txt").size()));  // the link itself

  EXPECT_EQ(Remove(P("absent")) + RemoveAll(P("absent")), 0);
  sandbox_.WriteFile("/tree/a/b.txt", "x");
  EXPECT_EQ(RemoveAll(P("tree")), 0);
  EXPECT_EQ(Remove("file://" + P("f.txt")), 0);
  EXPECT_FALSE(IsFile(P("tree")) || IsFile(P("f.txt")));
  sandbox_.WriteFile("/full/x", "x");
  LogCapture log;
  EXPECT_LT(Remove(P("full")), 0);
  EXPECT_TRUE(log.HasFragment("Failed to remove " + P("full"))) << log.Dump();
  EXPECT_EQ(Rename(P("full/x"), P("y")), 0);
  EXPECT_EQ(Rename(P("full/x"), P("z")), -1);
  EXPECT_TRUE(log.HasFragment("Rename file " + P("full/x") + " to " + P("z") + " failed. errno="));
}

TEST_F(FileHelpers, CopyKeepsModeAndTheTailOfALongerTargetAndReportsFailures) {
  sandbox_.WriteFile("/src", "short");
  chmod(P("src").c_str(), 0640);
  EXPECT_EQ(Copy(P("src"), "file://" + P("dst")), 0);
  EXPECT_EQ(ReadFile(P("dst")), "short");
  struct stat st;
  ASSERT_EQ(stat(P("dst").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  sandbox_.WriteFile("/longer", "0123456789");
  EXPECT_EQ(Copy(P("src"), P("longer")), 0);
  EXPECT_EQ(ReadFile(P("longer")), "short56789");
  std::string big(3 << 20, 'b');
  sandbox_.WriteFile("/big", big);
  EXPECT_EQ(Copy(P("big"), P("big2")), 0);
  EXPECT_EQ(ReadFile(P("big2")), big);

  LogCapture log;
  EXPECT_EQ(Copy(P("absent"), P("dst")), -1);
  EXPECT_TRUE(log.HasFragment("Get source file " + P("absent") + " error ")) << log.Dump();
  EXPECT_EQ(Copy(P("src"), P("no/dir/dst")), -1);
  EXPECT_TRUE(log.HasFragment("Open destination file " + P("no/dir/dst"))) << log.Dump();
  EXPECT_EQ(ReadFile(P("dst")), "short");
  // A source that exists but cannot be opened (a socket) syncs and closes descriptor 0;
  // run it in a child, where that is harmless.
  sockaddr_un address{AF_UNIX, {}};
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", P("sock").c_str());
  int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  auto copy_then_check_input = [&] {
    Copy(P("sock"), P("dst"));
    return fcntl(0, F_GETFD) != -1;
  };
  EXPECT_EXIT(_exit(copy_then_check_input()), testing::ExitedWithCode(0), "");
  close(sock);
}

TEST_F(FileHelpers, MakeDirRequiresItsLeadingComponentsAtDepth) {
  std::string root = sandbox_.root();
  int depth = 2;  // <root>/media exists; <root>/media/SD does not yet
  for (char c : root) depth += c == '/';
  std::string file = root + "/media/SD/rec/a.mp4";
  EXPECT_EQ(MakeDirByFilePath(file, 0755, depth), -1);
  EXPECT_FALSE(IsDir(root + "/media/SD/rec"));
  sandbox_.MakeDir("/media/SD");
  EXPECT_EQ(MakeDirByFilePath(file, 0755, depth), 0);
  EXPECT_TRUE(IsDir(root + "/media/SD/rec"));
  EXPECT_EQ(MakeDirByFilePath(file, 0755, 99), -1);
  EXPECT_EQ(MakeDirByFileUri("file://" + root + "/x/y/z.txt", 0755, 0), 0);
  EXPECT_TRUE(IsDir(root + "/x/y"));
}

TEST(ShellCommand, ReportsOutputExitCodesAndSignals) {
  std::string out = "kept:";
  EXPECT_EQ(ExecShellCmd("printf 'a\\nb\\n'", &out), 0);
  EXPECT_EQ(out, "kept:a\nb\n");
  EXPECT_EQ(ExecShellCmd("exit 3", nullptr), 3);
  EXPECT_EQ(ExecShellCmd("kill -9 $$", nullptr), -1);
  std::string long_line;
  EXPECT_EQ(ExecShellCmd("head -c 2000 /dev/zero | tr '\\0' x", &long_line), 0);
  EXPECT_EQ(long_line.size(), 2000u);
}

std::string Printed(cJSON* json) {
  char* text = cJSON_PrintUnformatted(json);
  std::string printed = text ? text : "";
  cJSON_free(text);
  return printed;
}

TEST(JsonHelpers, UpdateMovesTheMemberToTheEndAndAppendCopiesShallowly) {
  cJSON* obj = cJSON_Parse(R"({"a":1,"b":2})");
  EXPECT_EQ(cJSON_UpdateObjectItem(obj, "a", 5), 0);
  EXPECT_EQ(cJSON_UpdateObjectItem(obj, "c", 1.5), 0);
  EXPECT_EQ(Printed(obj), R"({"b":2,"a":5,"c":1.5})");
  EXPECT_EQ(cJSON_UpdateObjectItem(nullptr, "a", 1), -1);
  cJSON* empty = cJSON_CreateArray();
  cJSON* src = cJSON_Parse(R"([{"x":1},2])");
  cJSON* dst = cJSON_Parse("[0]");
  // clang-format off
  const std::pair<cJSON*, cJSON*> refused[] = {
      {empty, src},
      {nullptr, src},
      {dst, nullptr},
      {dst, empty},
  };
  // clang-format on
  for (auto [to, from] : refused) EXPECT_EQ(cJSON_AppendTwoArrays(to, from), -1);
  EXPECT_EQ(cJSON_GetArraySize(empty), 0);
  EXPECT_EQ(cJSON_AppendTwoArrays(dst, src), 0);
  EXPECT_EQ(Printed(dst), "[0,{},2]");
  for (cJSON* json : {obj, empty, src, dst}) cJSON_Delete(json);
}

}  // namespace
