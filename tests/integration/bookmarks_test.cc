// Recording bookmarks: the file read, edited, searched and written back atomically, each
// write announced; the engine asked instead while it records.
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "recording_fixture.h"
#include "sandbox.h"

namespace {

using zolo::test::ReadFile;
using zolo::test::RecordingTest;

constexpr char kThree[] =
    R"([{"time":10,"text":"a","snapshot":""},{"time":20,"text":"b","snapshot":"s/b.jpg",)"
    R"("category":"manual","description":"d"},{"time":30,"text":"c","snapshot":""}])";

class BookmarksTest : public RecordingTest {
 protected:
  void SetUp() override {
    RecordingTest::SetUp();
    // The engine's acknowledgements; what the engine itself does is its own tests' concern.
    for (const char* method : {"update_recording_bookmark", "remove_bookmark"})
      sim_.Force(method, zolo::sim::Forced{zolo::sim::Forced::kCode, 0, 0, ""});
    id_ = AddRecording("talk", 1000, 1, true, "ready", kThree);
    path_ = RecordingPath("talk/bookmark.json");
  }
  std::vector<uint64_t> Times() {
    zm_recording_bookmark b{};
    EXPECT_EQ(zm_load_recording_bookmark(path_, &b), 0);
    std::vector<uint64_t> times;
    for (const auto& item : b.items) times.push_back(item.time);
    return times;
  }
  int id_ = 0;
  std::string path_;
};

TEST_F(BookmarksTest, LoadEditSaveRoundTripsEachWriteAnnounced) {
  zm_recording_bookmark b{};
  ASSERT_EQ(zm_load_recording_bookmark(path_, &b), 0);
  ASSERT_EQ(b.count, 3);
  EXPECT_EQ(b.items.begin()->category, "");
  EXPECT_EQ(std::next(b.items.begin())->description, "d");
  sim_.ClearRequests();
  ASSERT_EQ(zm_update_recording_bookmark(&b, "B", 20, "D"), 0);
  EXPECT_EQ(ReadFile(path_),
            R"([{"time":10,"text":"a","snapshot":"","category":"","description":""},)"
            R"({"time":20,"text":"B","snapshot":"s/b.jpg","category":"manual","description":"D"},)"
            R"({"time":30,"text":"c","snapshot":"","category":"","description":""}])"
            "\n");
  ASSERT_EQ(zm_add_recording_bookmark(id_, "new", 15, "/x/talk/bookmark_snapshots/n.jpg", "why"),
            0);
  EXPECT_EQ(Times(), (std::vector<uint64_t>{10, 15, 20, 30}));
  EXPECT_EQ(zm_add_recording_bookmark(id_, "again", 15, nullptr, nullptr), -1);
  sandbox_->WriteFile(RecordingPath("talk/s/b.jpg").substr(sandbox_->root().size()), "jpeg");
  ASSERT_EQ(zm_load_recording_bookmark(path_, &b), 0);
  ASSERT_EQ(zm_delete_recording_bookmark(&b, 20), 0);  // idle engine: edited here
  EXPECT_EQ(Times(), (std::vector<uint64_t>{10, 15, 30}));
  EXPECT_FALSE(std::filesystem::exists(RecordingPath("talk/s/b.jpg")));
  ASSERT_EQ(zm_delete_recording_bookmark(id_, 10), 0);
  EXPECT_EQ(Times(), (std::vector<uint64_t>{15, 30}));
  auto notices = sim_.Requests("update_recording_bookmark");
  ASSERT_EQ(notices.size(), 4u);
  EXPECT_EQ(notices[0].payload, R"({"url":")" + path_ + R"(","code":0})");
  EXPECT_NE(ReadFile(path_).find(R"("snapshot":"bookmark_snapshots/n.jpg")"), std::string::npos);
  EXPECT_EQ(Holders(), 0);
}

TEST_F(BookmarksTest, NearestBookmarkSearch) {
  zm_recording_bookmark b{};
  ASSERT_EQ(zm_load_recording_bookmark(path_, &b), 0);
  struct Case {
    uint64_t time;
    int index;
  } cases[] = {{5, 0}, {10, 0}, {14, 0}, {15, 1}, {22, 1}, {25, 2}, {29, 2}, {99, 2}};
  for (const auto& c : cases) EXPECT_EQ(zm_search_bookmark(&b, c.time), c.index) << c.time;
  EXPECT_EQ(zm_search_bookmark(nullptr, 1), -3);
  zm_recording_bookmark empty{};
  EXPECT_EQ(zm_search_bookmark(&empty, 1), -1);
}

// A file that is not a bookmark file is refused and left as it was.
TEST_F(BookmarksTest, InvalidFilesAreRefusedAndLeftUntouched) {
  struct Case {
    const char* content;
    int result;
    int items;
  } cases[] = {{"", -2, 0},
               {"not json", -2, 0},
               {R"({"time":1})", -2, 0},
               {R"([{"time":1,"text":"a","snapshot":""},{"time":2,"text":"b"}])", -2, 1},
               {"[7]", -2, 0},
               {"[]", 0, 0}};
  for (const auto& c : cases) {
    sandbox_->WriteFile(path_.substr(sandbox_->root().size()), c.content);
    zm_recording_bookmark b{};
    EXPECT_EQ(zm_load_recording_bookmark(path_, &b), c.result) << c.content;
    EXPECT_EQ(b.count, c.items) << c.content;
    EXPECT_EQ(zm_add_recording_bookmark(id_, "x", 1, nullptr, nullptr),
              c.result < 0 ? c.result : 0);
    if (c.result < 0) {
      EXPECT_EQ(ReadFile(path_), c.content);
    }
  }
  zm_recording_bookmark b{};
  EXPECT_EQ(zm_load_recording_bookmark("", &b), -3);
  EXPECT_EQ(zm_load_recording_bookmark(path_ + ".none", &b), -1);
  // A recording without its folder has no file to load: the load's -1 whatever the still,
  // with nothing announced and nothing made where the folder should be.
  std::filesystem::remove_all(RecordingPath("talk"));
  sim_.ClearRequests();
  for (const char* still : {static_cast<const char*>(nullptr), "bookmark_snapshots/s.jpg"})
    EXPECT_EQ(zm_add_recording_bookmark(id_, "x", 1, still, nullptr), -1) << (still ? still : "");
  EXPECT_TRUE(sim_.Requests("update_recording_bookmark").empty());
  EXPECT_FALSE(std::filesystem::exists(RecordingPath("talk")));
  EXPECT_EQ(Holders(), 0);
}

TEST_F(BookmarksTest, TextSavesNeedAnExistingFileAndValidJson) {
  sim_.ClearRequests();
  EXPECT_EQ(zm_save_recording_bookmark_file(nullptr, "[]"), -3);
  EXPECT_EQ(zm_save_recording_bookmark_file((path_ + ".none").c_str(), "[]"), -5);
  EXPECT_TRUE(sim_.Requests("update_recording_bookmark").empty());
  EXPECT_EQ(zm_save_recording_bookmark_file(path_.c_str(), "[{broken"), 0);
  EXPECT_EQ(ReadFile(path_), kThree);  // kept, and the engine told of the failure
  EXPECT_EQ(sim_.Requests("update_recording_bookmark").back().payload,
            R"({"url":")" + path_ + R"(","code":-3})");
  ASSERT_EQ(zm_save_recording_bookmark_file(path_.c_str(), "[]"), 0);
  EXPECT_EQ(ReadFile(path_), "[]\n");
}

// A reader never sees half a file while it is being rewritten.
TEST_F(BookmarksTest, RewritesAreAtomic) {
  std::string big = "[";
  for (int i = 0; i < 3000; ++i)
    big += std::string(i ? "," : "") + R"({"time":)" + std::to_string(i) +
           R"(,"text":"bookmark text of some length","snapshot":""})";
  big += "]";
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::thread reader([&] {
    while (!done) {
      zm_recording_bookmark b{};
      int r = zm_load_recording_bookmark(path_, &b);
      if (r != 0 || (b.count != 3 && b.count != 3000)) ++torn;
    }
  });
  int failed = 0;
  for (int i = 0; i < 60; ++i)
    failed += zm_save_recording_bookmark_file(path_.c_str(), i % 2 ? kThree : big.c_str()) != 0;
  done = true;
  reader.join();
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(torn.load(), 0);
}

// Two writers of one file: every addition reported as saved is in the file.
TEST_F(BookmarksTest, ConcurrentAdditionsAreAllKept) {
  std::atomic<int> saved{0};
  auto add = [&](uint64_t first) {
    for (uint64_t t = first; t < first + 100; ++t)
      if (zm_add_recording_bookmark(id_, "c", t, nullptr, nullptr) == 0) ++saved;
  };
  std::thread a(add, 1000);
  std::thread b(add, 2000);
  a.join();
  b.join();
  EXPECT_EQ(saved.load(), 200);
  EXPECT_EQ(Times().size(), 3u + saved.load());
}

// A still named by bookmark text never leads outside the recording's folder.
TEST_F(BookmarksTest, StillsOutsideTheRecordingAreRefusedAndNeverRemoved) {
  std::string victim = RecordingPath("../victim.conf");
  sandbox_->WriteFile(victim.substr(sandbox_->root().size()), "keep");
  for (const char* still : {"../../victim.conf", "/etc/victim.conf", "a/../../x.jpg"})
    EXPECT_EQ(zm_add_recording_bookmark(id_, "t", 5, still, nullptr), -3) << still;
  std::string hostile = R"([{"time":5,"text":"t","snapshot":"../../victim.conf"}])";
  ASSERT_EQ(zm_save_recording_bookmark_file(path_.c_str(), hostile.c_str()), 0);
  EXPECT_EQ(zm_delete_recording_bookmark(id_, 5), 0);
  EXPECT_EQ(ReadFile(victim), "keep");
  EXPECT_TRUE(Times().empty());
}

TEST_F(BookmarksTest, WhileRecordingTheEngineKeepsTheBookmarks) {
  sim_.set_state(3);
  zm_recording_bookmark b{};
  ASSERT_EQ(zm_load_recording_bookmark(path_, &b), 0);
  ASSERT_EQ(zm_delete_recording_bookmark(&b, 20), 0);
  EXPECT_EQ(sim_.Requests("remove_bookmark").at(0).payload, R"({"time":20})");
  EXPECT_EQ(Times().size(), 3u);  // the file is the engine's to change
  sim_.set_state(1);
  EXPECT_EQ(zm_add_bookmark("x", true), -4);
  EXPECT_TRUE(sim_.Requests("add_bookmark").empty());
  zm_add_snapshot_bookmark(640, 360, nullptr, false);  // no state rule: always asked
  EXPECT_EQ(sim_.Requests("add_snapshot_bookmark").at(0).payload,
            R"({"width":640,"height":360,"counter":false})");
}

}  // namespace
