// The recording database: recordings with videos, snapshots with images, their files,
// paging and patterns, a second process writing, and a database held by another writer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zolo_model/media_model.h>
#include <zolo_model/recording.h>
#include <zolo_model/recording_db.h>
#include <zolo_model/snapshot.h>

#include <cjson/cJSON.h>

#include <chrono>
#include <filesystem>
#include <memory>

#include "sandbox.h"

namespace {

using zolo::test::ReadFile;
using zolo::test::Sandbox;
namespace fs = std::filesystem;

class RecordingModelTest : public testing::Test {
 protected:
  void SetUp() override {
    sandbox_.WriteFile("/etc/media.conf",
                       "[Recording]\ndatabase=/data/rec.db\nfolder=/data/recordings/\n");
    ASSERT_EQ(RecordingDb::Instance()->Connect(), 0);
    folder_ = RecordingDb::Instance()->Folder();
  }
  void TearDown() override { RecordingDb::Instance()->Release(true); }

  // A recording "<name>" started at `at` in folder "<name>" with `videos` files of 60 s.
  int AddRecording(const std::string& name, uint64_t at, int videos = 2,
                   const std::string& metadata = "", uint64_t finished = 1) {
    Recording recording;
    recording.name(name);
    recording.file_name(name + "/" + name + ".mp4");
    recording.recorded_at(at);
    recording.finished_at(finished ? at + 60 * videos : 0);
    recording.duration(60000ull * videos);
    recording.status("ready");
    recording.metadata(metadata);
    EXPECT_EQ(Recording::Add(&recording), 0);
    for (int i = 1; i <= videos; ++i) {
      Video video;
      video.recording_id(recording.id());
      video.directory(name);
      video.file_name(name + "_" + std::to_string(i) + ".mp4");
      video.started_at(at + 60 * (i - 1));
      video.duration(60000);
      video.finished_at(finished ? at + 60 * i : 0);
      video.number(i);
      EXPECT_EQ(Video::Add(&video), 0);
      sandbox_.WriteFile(FolderPath(name + "/" + video.file_name()), "frames");
    }
    return recording.id();
  }
  std::string FolderPath(const std::string& relative) const {
    return folder_.substr(sandbox_.root().size()) + "/" + relative;
  }
  // The names of a query's rows, which it then releases.
  std::vector<std::string> Names(std::vector<Recording*>* rows) {
    std::vector<std::string> names;
    for (const Recording* row : *rows) names.push_back(row->name());
    MediaModel::CleanQuery(*rows);
    return names;
  }

  Sandbox sandbox_;
  std::string folder_;
};

TEST_F(RecordingModelTest, PathsComeFromTheConfigurationBelowTheSandbox) {
  EXPECT_EQ(folder_, sandbox_.Path("/data/recordings"));
  EXPECT_TRUE(fs::exists(sandbox_.Path("/data/rec.db")));
  EXPECT_EQ(RecordingDb::Instance()->SnapshotFolder(), folder_ + "/snapshots");
  EXPECT_EQ(RecordingDb::Instance()->RecordingSnapshotFolder("a/b"), folder_ + "/a/b/snapshots");
}

TEST_F(RecordingModelTest, PagesComeNewestFirstWithTheirVideos) {
  for (int i = 0; i < 25; ++i) AddRecording("r" + std::to_string(i), 1000 + i, i % 3 + 1);
  struct Case {
    unsigned page, count;
    size_t size;
    std::string first;
  } cases[] = {{0, 10, 10, "r24"}, {2, 10, 5, "r4"}, {3, 10, 0, ""}, {0, 0, 25, "r24"}};
  for (const Case& c : cases) {
    std::vector<Recording*> rows;
    ASSERT_EQ(Recording::QueryByPage(c.page, c.count, &rows), 0);
    ASSERT_EQ(rows.size(), c.size) << c.page << "/" << c.count;
    if (!rows.empty()) {
      EXPECT_EQ(rows[0]->name(), c.first);
    }
    for (Recording* row : rows) {
      int index = std::stoi(row->name().substr(1));
      ASSERT_EQ(row->videos().size(), static_cast<size_t>(index % 3 + 1));
      EXPECT_EQ(row->videos()[0]->number(), 1u);
      EXPECT_EQ(row->videos()[0]->recording_id(), row->id());
    }
    MediaModel::CleanQuery(rows);
  }
}

TEST_F(RecordingModelTest, PatternsMatchTheirTextLiterallyWithinTheTimeRange) {
  AddRecording("plain", 100, 1, R"({"title":"Town hall"})");
  AddRecording("percent", 200, 1, R"({"title":"50% off"})");
  AddRecording("quote", 300, 1, R"({"title":"it's"})");
  AddRecording("under_score", 400, 1, "");
  // LIKE ignores ASCII case.
  struct Case {
    uint64_t start, end;
    std::string pattern;
    std::vector<std::string> names;
  } cases[] = {
      {0, 0, "", {"under_score", "quote", "percent", "plain"}},
      {0, 0, "%", {"percent"}},
      {0, 0, "_", {"under_score"}},
      {0, 0, "it's", {"quote"}},
      {0, 0, "town", {"plain"}},
      {150, 0, "", {"under_score", "quote", "percent"}},
      {150, 300, "", {"quote", "percent"}},
      {0, 150, "off", {}},
      {0, 0, "'; DROP TABLE recording; --", {}},
  };
  for (const Case& c : cases) {
    std::vector<Recording*> rows;
    ASSERT_EQ(Recording::QueryByTimeAndMetadataPattern(c.start, c.end, c.pattern, &rows), 0);
    EXPECT_EQ(Names(&rows), c.names) << c.pattern << " " << c.start << "-" << c.end;
  }
  EXPECT_EQ(Recording::Count(), 4);
}

TEST_F(RecordingModelTest, StatusFinishAndAgeQueries) {
  int open = AddRecording("open", 500, 1, "", 0);
  AddRecording("old", 100);
  AddRecording("new", 900);
  std::vector<Recording*> rows;
  ASSERT_EQ(Recording::QueryByFinshedAt(0, &rows), 0);
  EXPECT_EQ(Names(&rows), std::vector<std::string>{"open"});
  ASSERT_EQ(Recording::QueryByRecordedAtLessThan(600, &rows), 0);
  EXPECT_EQ(Names(&rows), (std::vector<std::string>{"open", "old"}));
  // Unfinished recordings are not ready for thumbnails yet.
  ASSERT_EQ(Recording::QueryByNoThumbnail(&rows), 0);
  EXPECT_EQ(Names(&rows), (std::vector<std::string>{"new", "old"}));

  Recording* row = nullptr;
  ASSERT_EQ(Recording::QueryById(open, &row), 0);
  row->status("recording");
  EXPECT_EQ(Recording::Update(row), 0);
  delete row;
  EXPECT_EQ(std::make_pair(Recording::Count("recording"), Recording::Count("ready")),
            std::make_pair(1, 2));
  ASSERT_EQ(Recording::QueryOldest(&row), 0);
  EXPECT_EQ(row->name(), "old");
  delete row;
}

TEST_F(RecordingModelTest, RemovingDeletesRowsAndFilesButNothingOutsideTheFolder) {
  int first = AddRecording("first", 100);
  int second = AddRecording("second", 200);
  std::string snapshot;
  Recording* row = nullptr;
  ASSERT_EQ(Recording::QueryById(first, &row), 0);
  ASSERT_EQ(row->GenerateSnapshot(5000, &snapshot), 0);
  delete row;

  EXPECT_EQ(Recording::RemoveOldest(), 0);
  EXPECT_EQ(Recording::QueryById(first, &row), -5);
  EXPECT_FALSE(fs::exists(folder_ + "/first"));
  EXPECT_TRUE(fs::exists(folder_ + "/second/second_1.mp4"));
  std::vector<Video*> videos;
  ASSERT_EQ(Video::QueryByRecordingId(first, &videos), 0);
  EXPECT_TRUE(videos.empty());
  Snapshot* gone = nullptr;
  EXPECT_EQ(Snapshot::QueryByFolder(snapshot, &gone), -5);

  // A recording naming files outside the folder loses its rows, never those files.
  sandbox_.WriteFile("/data/keep.txt", "keep");
  Recording escaping;
  escaping.file_name("../keep.txt");
  ASSERT_EQ(Recording::Add(&escaping), 0);
  EXPECT_EQ(Recording::Remove(escaping.id()), 0);
  EXPECT_EQ(ReadFile(sandbox_.Path("/data/keep.txt")), "keep");

  EXPECT_EQ(Recording::Remove(first), -5);
  EXPECT_EQ(Recording::Remove(second), 0);
  EXPECT_EQ(Recording::RemoveOldest(), -5);
  EXPECT_EQ(Recording::QueryOldest(&row), -5);
}

TEST_F(RecordingModelTest, RepairsAnUnfinishedRecordingFromItsFiles) {
  int id = AddRecording("cut", 1000, 2, R"({"title":"cut off"})", 0);
  fs::remove(folder_ + "/cut/cut_2.mp4");
  // The first file was last written 90 s after the recording started.
  std::string first = folder_ + "/cut/cut_1.mp4";
  struct timespec times[2] = {{1090, 0}, {1090, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, first.c_str(), times, 0), 0);

  Recording* row = nullptr;
  ASSERT_EQ(Recording::QueryById(id, &row), 0);
  std::unique_ptr<Recording> recording(row);
  row->duration(0);
  ASSERT_EQ(row->UpdateVideos(), 0);
  ASSERT_EQ(row->videos().size(), 2u);
  const Video& first_video = *row->videos()[0];
  EXPECT_EQ(first_video.status() + " " + std::to_string(first_video.finished_at()) + " " +
                std::to_string(first_video.duration()) + " " + row->videos()[1]->status() + " " +
                std::to_string(row->duration()),
            "Finished 1090 90000 Missing 90000");

  ASSERT_EQ(row->UpdateMetaDataFiles(), 0);
  cJSON* info = cJSON_Parse(ReadFile(folder_ + "/cut/information.json").c_str());
  ASSERT_NE(info, nullptr);
  EXPECT_STREQ(cJSON_GetObjectItem(cJSON_GetObjectItem(info, "metadata"), "title")->valuestring,
               "cut off");
  EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(info, "videos")), 2);
  cJSON_Delete(info);

  Video* stored = nullptr;
  ASSERT_EQ(Video::QueryById(row->videos()[1]->id(), &stored), 0);
  EXPECT_EQ(stored->status(), "Missing");
  delete stored;
}

TEST_F(RecordingModelTest, SnapshotsOfRecordingsAndOnRequestWithTheirImages) {
  int id = AddRecording("show", 100);
  Recording* row = nullptr;
  ASSERT_EQ(Recording::QueryById(id, &row), 0);
  std::unique_ptr<Recording> recording(row);
  std::string folder, again;
  ASSERT_EQ(row->GenerateSnapshot(65000, &folder), 0);
  ASSERT_EQ(row->GenerateSnapshot(65000, &again), 0);
  EXPECT_EQ(folder, again);
  EXPECT_EQ(row->GenerateSnapshot(1, nullptr), -3);
  EXPECT_TRUE(fs::is_directory(folder_ + "/show/snapshots/" + folder));

  Snapshot request;
  request.folder("manual-1");
  request.status("ready");
  request.created_at(50);
  ASSERT_EQ(Snapshot::Add(&request), 0);
  Snapshot duplicate;
  duplicate.folder("manual-1");
  EXPECT_EQ(Snapshot::Add(&duplicate), -2);
  for (int i = 0; i < 5; ++i) {
    Image image;
    image.snapshot_id(request.id());
    image.directory("manual-1");
    image.file_name("img" + std::to_string(i) + ".jpg");
    image.status(i < 2 ? "new" : "seen");
    ASSERT_EQ(Image::Add(&image), 0);
    sandbox_.WriteFile(FolderPath("snapshots/manual-1/" + image.file_name()), "jpeg");
  }
  Image orphan;
  orphan.snapshot_id(9999);
  EXPECT_EQ(Image::Add(&orphan), -2);

  EXPECT_EQ(std::vector<int>({Snapshot::Count(), Snapshot::Count("pending"),
                              Image::Count(request.id()), Image::Count("new")}),
            std::vector<int>({2, 1, 5, 2}));

  Snapshot* found = nullptr;
  ASSERT_EQ(Snapshot::QueryByFolder("manual-1", &found), 0);
  std::unique_ptr<Snapshot> snapshot(found);
  EXPECT_EQ(found->recording(), nullptr);
  EXPECT_EQ(found->BaseFolder(), folder_ + "/snapshots");
  ASSERT_EQ(found->images(1, 2).size(), 2u);
  EXPECT_EQ(found->images(1, 2)[0]->file_name(), "img2.jpg");
  EXPECT_EQ(found->images(0, 0).size(), 5u);

  int first_image = found->images(0, 1)[0]->id();
  EXPECT_EQ(Image::Remove(first_image, true), 0);
  EXPECT_FALSE(fs::exists(folder_ + "/snapshots/manual-1/img0.jpg"));
  EXPECT_EQ(Image::Remove(first_image, true), -5);

  std::vector<Snapshot*> pending;
  ASSERT_EQ(Snapshot::QueryByStatus("pending", &pending), 0);
  ASSERT_EQ(pending.size(), 1u);
  ASSERT_NE(pending[0]->recording(), nullptr);
  EXPECT_EQ(pending[0]->recording()->name(), "show");
  EXPECT_EQ(pending[0]->time(), 65000u);
  MediaModel::CleanQuery(pending);

  EXPECT_EQ(row->RemoveSnapshot(65000), 0);
  EXPECT_EQ(row->RemoveSnapshot(65000), -5);
  EXPECT_FALSE(fs::exists(folder_ + "/show/snapshots/" + folder));
  EXPECT_EQ(Snapshot::Remove(request.id()), 0);
  EXPECT_FALSE(fs::exists(folder_ + "/snapshots/manual-1"));
  EXPECT_EQ(Image::Count(request.id()), 0);
}

TEST_F(RecordingModelTest, BadArgumentsAndUnknownIds) {
  Recording* recording = nullptr;
  Video* video = nullptr;
  Snapshot* snapshot = nullptr;
  Image* image = nullptr;
  EXPECT_EQ(Recording::QueryById(42, &recording), -5);
  EXPECT_EQ(Recording::QueryById(42, nullptr), -3);
  EXPECT_EQ(Recording::QueryByPage(0, 10, nullptr), -3);
  EXPECT_EQ(Video::QueryById(42, &video), -5);
  EXPECT_EQ(Snapshot::QueryById(42, &snapshot), -5);
  EXPECT_EQ(Image::QueryById(42, &image), -5);
  EXPECT_EQ(Recording::Update(nullptr), -3);
  Recording ghost;
  EXPECT_EQ(Recording::Update(&ghost), -5);
  EXPECT_EQ(Video::Remove(42), -5);
  EXPECT_EQ(Snapshot::Remove(42), -5);
  std::vector<Recording*> rows;
  EXPECT_EQ(Recording::QueryByName("nobody", &rows), 0);
  EXPECT_TRUE(rows.empty());
}

TEST_F(RecordingModelTest, NothingWorksWithoutAConnectionAndBadFilesAreRefused) {
  RecordingDb::Instance()->Release(true);
  std::vector<Recording*> rows;
  for (int result : {Recording::QueryAll(&rows), Recording::Count(), Snapshot::Count()})
    EXPECT_EQ(result, -1);

  sandbox_.WriteFile("/etc/media.conf", "[Recording]\ndatabase=/data/corrupt.db\n");
  sandbox_.WriteFile("/data/corrupt.db", std::string(4096, 'x'));
  EXPECT_EQ(RecordingDb::Instance()->Connect(), -1);
  EXPECT_FALSE(RecordingDb::Instance()->IsConnected());
  EXPECT_EQ(RecordingDb::Instance()->Folder(), sandbox_.Path("/var/lib/zolo/recordings"));
  // Restored for TearDown and the next case.
  sandbox_.WriteFile("/etc/media.conf", "[Recording]\ndatabase=/data/rec.db\n");
  EXPECT_EQ(RecordingDb::Instance()->Connect(), 0);
}

TEST_F(RecordingModelTest, ReferenceCountKeepsTheConnectionForItsHolders) {
  auto* db = RecordingDb::Instance();
  ASSERT_EQ(db->Connect(), 0);
  db->Release(true);  // one holder remains: still open
  EXPECT_TRUE(db->IsConnected());
  db->Release(false);  // idle but kept
  EXPECT_TRUE(db->IsConnected());
  ASSERT_EQ(db->Connect(), 0);
}

// Reads stay possible while another connection holds the write lock; writes give up
// with -1 after the busy timeout instead of hanging, and succeed once it is released.
TEST_F(RecordingModelTest, AHeldWriteLockFailsWritesButNotReads) {
  AddRecording("before", 100);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(sandbox_.Path("/data/rec.db").c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_EQ(Recording::Count(), 1);
  Recording blocked;
  EXPECT_EQ(Recording::Add(&blocked), -1);
  ASSERT_EQ(sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(other);
  EXPECT_EQ(Recording::Add(&blocked), 0);
  EXPECT_EQ(Recording::Count(), 2);
}

// The engine writes recordings from its own process while the library reads them.
TEST_F(RecordingModelTest, ASecondProcessWritesWhileThisOneReads) {
  constexpr int kRecordings = 150;
  RecordingDb::Instance()->Release(true);
  pid_t writer = fork();
  ASSERT_GE(writer, 0);
  if (writer == 0) {
    int failures = RecordingDb::Instance()->Connect() == 0 ? 0 : 1;
    for (int i = 0; i < kRecordings; ++i) {
      Recording recording;
      recording.name("w" + std::to_string(i));
      recording.recorded_at(i + 1);
      failures += Recording::Add(&recording) != 0;
      Video video;
      video.recording_id(recording.id());
      failures += Video::Add(&video) != 0;
    }
    _exit(failures == 0 ? 0 : 1);
  }
  ASSERT_EQ(RecordingDb::Instance()->Connect(), 0);
  int status = 0, reads = 0;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (waitpid(writer, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(writer, SIGKILL);
      waitpid(writer, &status, 0);
      FAIL() << "the writer did not finish within 30 s";
    }
    std::vector<Recording*> rows;
    ASSERT_EQ(Recording::QueryByPage(0, 20, &rows), 0);
    // A recording is never seen with more videos than were written for it.
    for (Recording* row : rows) EXPECT_LE(row->videos().size(), 1u);
    MediaModel::CleanQuery(rows);
    ++reads;
  }
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_GT(reads, 0);
  EXPECT_EQ(Recording::Count(), kRecordings);
}

}  // namespace
