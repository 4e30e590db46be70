// Path, file, shell and cJSON helpers, quirks included.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <zolo/utils.h>

#include <cstring>
#include <string>

#include "log_capture.h"
#include "sandbox.h"

namespace {

using zolo::test::LogCapture;
using zolo::test::ReadFile;
using zolo::test::Sandbox;

struct TextCase {
  std::string input;
  std::string argument;
  std::string expected;
};

class FileExtTest : public testing::TestWithParam<TextCase> {};
TEST_P(FileExtTest, GetFileExtSearchesDownToIndexOne) {
  EXPECT_EQ(GetFileExt(GetParam().input), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(Table, FileExtTest,
                         testing::Values(TextCase{"video.mp4", "", "mp4"},
                                         TextCase{"a/b.c/d.tar.gz", "", "gz"},
                                         TextCase{"abc", "", "bc"}, TextCase{".x", "", "x"},
                                         TextCase{"x", "", ""}, TextCase{"", "", ""},
                                         TextCase{"name.", "", ""}));

class ReplaceExtTest : public testing::TestWithParam<TextCase> {};
TEST_P(ReplaceExtTest, ReplaceFileExtKeepsTheDot) {
  EXPECT_EQ(ReplaceFileExt(GetParam().input, GetParam().argument), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(Table, ReplaceExtTest,
                         testing::Values(TextCase{"a/b.mp4", "jpg", "a/b.jpg"},
                                         TextCase{"abc", ".jpg", "a.jpg"},
                                         TextCase{"a", "jpg", "a"}, TextCase{"", "jpg", "jpg"},
                                         TextCase{".x", "y", ".y"}));

class AppendUriTest : public testing::TestWithParam<TextCase> {};
TEST_P(AppendUriTest, PrefixGoesBeforeTheLastComponent) {
  EXPECT_EQ(AppendFileUri(GetParam().input, GetParam().argument), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(Table, AppendUriTest,
                         testing::Values(TextCase{"file:///m/a.mp4", "t_", "file:///m/t_a.mp4"},
                                         TextCase{"/a.mp4", "t_", "/t_a.mp4"},
                                         TextCase{"a.mp4", "t_", "at_.mp4"},
                                         TextCase{"", "t_", "t_"}));

class ConcatTest : public testing::TestWithParam<TextCase> {};
TEST_P(ConcatTest, JoinsWithExactlyOneSlash) {
  EXPECT_EQ(ConcateFilePath(GetParam().input, GetParam().argument), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(Table, ConcatTest,
                         testing::Values(TextCase{"", "x", "x"}, TextCase{"/a/", "x", "/a/x"},
                                         TextCase{"/a", "x", "/a/x"}, TextCase{"/a", "", "/a/"}));

TEST(PathHelpers, ReplaceStringNeverRescansInsertedText) {
  std::string s = "aaa";
  EXPECT_EQ(ReplaceString(&s, "a", "aa"), 0);
  EXPECT_EQ(s, "aaaaaa");
  s = "x.y.z";
  ReplaceString(&s, "", "!");
  EXPECT_EQ(s, "x.y.z");
  ReplaceString(&s, ".", "");
  EXPECT_EQ(s, "xyz");
}

TEST(PathHelpers, ReplaceFileNameReplacesEveryOccurrence) {
  std::string path = "/r/rec/rec.mp4";
  EXPECT_EQ(ReplaceFileName(&path, "new"), 0);
  EXPECT_EQ(path, "/r/new/new.mp4");
  path = "rec.mp4";
  EXPECT_EQ(ReplaceFileName(&path, "a"), 0);
  EXPECT_EQ(path, "a.mp4");
  path = ".hidden";
  EXPECT_EQ(ReplaceFileName(&path, "a"), -1);
  path = "/rec.mp4";
  EXPECT_EQ(ReplaceFileName(&path, "a"), -1);
  path = "/r/x.mp4";
  EXPECT_EQ(ReplaceFileName(&path, ""), 0);
  EXPECT_EQ(path, "/r/x.mp4");
}

TEST(PathHelpers, UriConversionKeepsOtherSchemesUntouched) {
  std::string path = "unchanged";
  GetFilepathFromUri("rtsp://h/x", &path);
  EXPECT_EQ(path, "unchanged");
  GetFilepathFromUri("/x", &path);
  EXPECT_EQ(path, "/x");
  GetFilepathFromUri("file:///m/a.mp4", &path);
  EXPECT_EQ(path, "/m/a.mp4");
  std::string dir, file;
  EXPECT_EQ(GetDirByFilePath("/a/b/c.mp4", &dir), 0);
  EXPECT_EQ(GetFileByFilePath("/a/b/c.mp4", &file), 0);
  EXPECT_EQ(dir, "/a/b");
  EXPECT_EQ(file, "c.mp4");
  std::string trailing = "name\n\n";
  RemoveTrailingChar('\n', &trailing);
  EXPECT_EQ(trailing, "name");
  EXPECT_TRUE(IntReverseSort(2, 1));
  EXPECT_FALSE(IntReverseSort(1, 1));
}

TEST(PathHelpers, MatchStringUsesGlibRegexAndRejectsBadPatterns) {
  EXPECT_EQ(MatchString("^Video-Capture[0-9]+$", "Video-Capture12"), 0);
  EXPECT_EQ(MatchString("^Video-Capture[0-9]+$", "Video-Usb1"), -1);
  EXPECT_EQ(MatchString("([unclosed", "x"), -1);
}

class FileHelpers : public testing::Test {
 protected:
  std::string P(const std::string& name) { return sandbox_.Path("/" + name); }
  Sandbox sandbox_;
};

TEST_F(FileHelpers, ExistenceAndSize) {
  sandbox_.WriteFile("/f.txt", "12345");
  EXPECT_TRUE(IsFile(P("f.txt")));
  EXPECT_TRUE(IsFile("file://" + P("f.txt")));
  EXPECT_TRUE(IsFile(sandbox_.root()));
  EXPECT_FALSE(IsDir(P("f.txt")));
  EXPECT_TRUE(IsDir(sandbox_.root()));
  EXPECT_EQ(FileSize(P("f.txt")), 5);
  EXPECT_EQ(FileSize(P("absent")), -1);
  ASSERT_EQ(symlink(P("f.txt").c_str(), P("link").c_str()), 0);
  EXPECT_EQ(FileSize(P("link")), static_cast<int64_t>(P("f.txt").size()));
  EXPECT_FALSE(IsFile("rtsp://x/f.txt"));
}

TEST_F(FileHelpers, RemovalOfMissingPathsDoesNothing) {
  EXPECT_EQ(Remove(P("absent")), 0);
  EXPECT_EQ(RemoveAll(P("absent")), 0);
  sandbox_.WriteFile("/tree/a/b.txt", "x");
  EXPECT_EQ(RemoveAll(P("tree")), 0);
  EXPECT_FALSE(IsFile(P("tree")));
  sandbox_.WriteFile("/one.txt", "x");
  EXPECT_EQ(Remove("file://" + P("one.txt")), 0);
  EXPECT_FALSE(IsFile(P("one.txt")));
  sandbox_.WriteFile("/full/x", "x");
  LogCapture log;
  EXPECT_LT(Remove(P("full")), 0);
  EXPECT_TRUE(log.HasFragment("Failed to remove " + P("full"))) << log.Dump();
}

TEST_F(FileHelpers, CopyKeepsModeAndTheTailOfALongerTarget) {
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
}

TEST_F(FileHelpers, CopyFailuresReportTheirCause) {
  LogCapture log;
  EXPECT_EQ(Copy(P("absent"), P("dst")), -1);
  EXPECT_TRUE(log.HasFragment("Get source file " + P("absent") + " error ")) << log.Dump();
  sandbox_.WriteFile("/src", "x");
  EXPECT_EQ(Copy(P("src"), P("no/dir/dst")), -1);
  EXPECT_TRUE(log.HasFragment("Open destination file " + P("no/dir/dst"))) << log.Dump();
  // A source that exists but cannot be opened (a socket) syncs and closes descriptor 0;
  // run it in a child, where that is harmless.
  int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string socket_path = P("sock");
  ASSERT_LT(socket_path.size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, socket_path.c_str());
  ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EXIT(
      {
        Copy(socket_path, P("dst"));
        _exit(fcntl(0, F_GETFD) == -1 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  close(sock);
}

TEST_F(FileHelpers, RenameReportsFailure) {
  sandbox_.WriteFile("/a", "x");
  EXPECT_EQ(Rename(P("a"), P("b")), 0);
  LogCapture log;
  EXPECT_EQ(Rename(P("a"), P("c")), -1);
  EXPECT_TRUE(log.HasFragment("Rename file " + P("a") + " to " + P("c") + " failed. errno="));
}

TEST_F(FileHelpers, MakeDirRequiresItsLeadingComponentsAtDepth) {
  std::string root = sandbox_.root();
  int root_slashes = 0;
  for (char c : root) root_slashes += c == '/';
  // <root>/media exists; <root>/media/SD does not yet.
  std::string file = root + "/media/SD/rec/a.mp4";
  EXPECT_EQ(MakeDirByFilePath(file, 0755, root_slashes + 2), -1);
  EXPECT_FALSE(IsDir(root + "/media/SD/rec"));
  sandbox_.MakeDir("/media/SD");
  EXPECT_EQ(MakeDirByFilePath(file, 0755, root_slashes + 2), 0);
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

TEST(JsonHelpers, UpdateMovesTheMemberToTheEnd) {
  cJSON* obj = cJSON_Parse(R"({"a":1,"b":2})");
  EXPECT_EQ(cJSON_UpdateObjectItem(obj, "a", 5), 0);
  EXPECT_EQ(cJSON_UpdateObjectItem(obj, "c", 1.5), 0);
  char* text = cJSON_PrintUnformatted(obj);
  EXPECT_STREQ(text, R"({"b":2,"a":5,"c":1.5})");
  cJSON_free(text);
  EXPECT_EQ(cJSON_UpdateObjectItem(nullptr, "a", 1), -1);
  cJSON_Delete(obj);
}

TEST(JsonHelpers, AppendTwoArraysCopiesShallowlyAndRefusesEmptyArrays) {
  cJSON* empty = cJSON_CreateArray();
  cJSON* src = cJSON_Parse(R"([{"x":1},2])");
  EXPECT_EQ(cJSON_AppendTwoArrays(empty, src), -1);
  EXPECT_EQ(cJSON_GetArraySize(empty), 0);
  cJSON* dst = cJSON_Parse("[0]");
  EXPECT_EQ(cJSON_AppendTwoArrays(dst, src), 0);
  char* text = cJSON_PrintUnformatted(dst);
  EXPECT_STREQ(text, "[0,{},2]");
  cJSON_free(text);
  EXPECT_EQ(cJSON_AppendTwoArrays(nullptr, src), -1);
  EXPECT_EQ(cJSON_AppendTwoArrays(dst, nullptr), -1);
  cJSON_Delete(empty);
  cJSON_Delete(src);
  cJSON_Delete(dst);
}

}  // namespace
