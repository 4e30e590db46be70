// The stream model against a fresh default database: queries, patterns, parameters,
// updates, removal cascades, metadata, and failures that must change nothing.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>
#include <zolo_model/stream_metadata.h>

#include <memory>
#include <string>
#include <vector>

#include "model_fixture.h"

namespace {

class StreamModelTest : public zolo::test::ModelTest {
 protected:
  // The names of a query's streams, which it then releases.
  std::vector<std::string> Names(std::vector<Stream*>* streams) {
    std::vector<std::string> names;
    for (auto* s : *streams) names.push_back(s->name());
    MediaModel::CleanQuery(streams);
    return names;
  }
  std::unique_ptr<Stream> ByName(const char* name) {
    std::vector<Stream*> found;
    EXPECT_EQ(Stream::QueryByTypeName(nullptr, name, true, &found), 0);
    EXPECT_EQ(found.size(), 1u) << name;
    if (found.empty()) return nullptr;
    for (size_t i = 1; i < found.size(); ++i) delete found[i];
    return std::unique_ptr<Stream>(found[0]);
  }
};

TEST_F(StreamModelTest, QueriesByTypeNameAndPattern) {
  struct Case {
    const char* type;
    const char* name;
    size_t count;
  };
  const Case cases[] = {{"file", nullptr, 4},
                        {"file", "movie1", 1},
                        {nullptr, "preview", 1},
                        {"network", "x", 0},
                        {"nothing", nullptr, 0}};
  for (const auto& c : cases) {
    std::vector<Stream*> found;
    EXPECT_EQ(Stream::QueryByTypeName(c.type, c.name, true, &found), 0);
    EXPECT_EQ(found.size(), c.count) << (c.type ? c.type : "-") << "/" << (c.name ? c.name : "-");
    MediaModel::CleanQuery(&found);
  }
  std::vector<Stream*> found;
  EXPECT_EQ(Stream::QueryByPattern("%sched%", &found), 0);
  EXPECT_EQ(Names(&found), (std::vector<std::string>{"sched-rtmp1", "sched-rtmp2"}));
  // "_" is LIKE's one-character wildcard.
  EXPECT_EQ(Stream::QueryByPattern("preview_", true, &found), 0);
  EXPECT_EQ(Names(&found), (std::vector<std::string>{"preview1", "preview2"}));
  EXPECT_EQ(Stream::QueryByDestPattern("webrtc://%", true, &found), 0);
  EXPECT_EQ(Names(&found), (std::vector<std::string>{"webrtc1"}));
  // Quotes and SQL in a pattern are just text.
  for (const char* odd : {"'; DROP TABLE stream; --", "it's", "\"", "%'%", ""}) {
    EXPECT_EQ(Stream::QueryByPattern(odd, true, &found), 0) << odd;
    MediaModel::CleanQuery(&found);
  }
  EXPECT_EQ(Stream::QueryByTypeName(nullptr, nullptr, true, &found), 0);
  EXPECT_EQ(found.size(), 25u);
  MediaModel::CleanQuery(&found);
  EXPECT_EQ(Stream::QueryByPattern("%", nullptr), -3);
}

TEST_F(StreamModelTest, HiddenStreamsOnlyInQueriesThatAskForAll) {
  Exec("UPDATE stream SET hidden = 1 WHERE name = 'preview2'");
  std::vector<Stream*> found;
  EXPECT_EQ(Stream::QueryByPattern("preview_", true, &found), 0);
  EXPECT_EQ(Names(&found), std::vector<std::string>{"preview1"});
  EXPECT_EQ(Stream::QueryByPattern("preview_", &found), 0);
  EXPECT_EQ(Names(&found), (std::vector<std::string>{"preview1", "preview2"}));
}

TEST_F(StreamModelTest, RelatedObjectsTypesAndById) {
  auto movie = ByName("movie1");
  ASSERT_TRUE(movie);
  ASSERT_TRUE(movie->channel() && movie->channel()->video_source() &&
              movie->codec_parameter_preset());
  EXPECT_EQ(movie->channel()->name() + " " +
                std::to_string(movie->channel()->video_source()->id()) + " " +
                movie->codec_parameter_preset()->video_codec_name() + " " + movie->container(),
            "Movie 9 H.264 mp4");
  auto meta = ByName("backupmeta");
  EXPECT_TRUE(!meta->channel() && !meta->codec_parameter_preset());
  Stream* by_id = nullptr;
  ASSERT_EQ(Stream::QueryById(movie->id(), true, &by_id), 0);
  EXPECT_EQ(by_id->name(), "movie1");
  delete by_id;
  EXPECT_EQ(Stream::QueryById(99999, true, &by_id), -5);
  // Streams of one query share their channel; it stays alive for the streams still held.
  std::vector<Stream*> outputs;
  ASSERT_EQ(Stream::QueryByTypeName("network", nullptr, true, &outputs), 0);
  ASSERT_GE(outputs.size(), 2u);
  EXPECT_EQ(outputs[0]->channel(), outputs[1]->channel());  // rtsp1 and rtmp1: Video-Capture1
  Stream* first = outputs.front();
  outputs.erase(outputs.begin());
  MediaModel::CleanQuery(&outputs);
  ASSERT_TRUE(first->channel() && first->channel()->video_source());
  EXPECT_EQ(first->channel()->name(), "Video-Capture1");
  delete first;
  EXPECT_EQ(Stream::TypeToString(Stream::StringToType("file")), "file");
  EXPECT_EQ(Stream::StringToType("network"), 2);
  EXPECT_EQ(Stream::TypeToString(Stream::StringToType("bogus")), "unknown");
}

TEST_F(StreamModelTest, ParametersAndAuthenticationRoundTrip) {
  auto srt = ByName("srt1");
  EXPECT_TRUE(srt->IsParameterExisted("latency"));
  EXPECT_EQ(srt->ObtainParameter("latency", -1), 120);
  EXPECT_EQ(srt->ObtainParameter("absent", -1), -1);
  EXPECT_TRUE(srt->IsAuthenticationExisted("encryption"));
  EXPECT_EQ(srt->ObtainAuthentication("key_length", -1), 16);
  std::string text = "unchanged";
  EXPECT_EQ(srt->ObtainStrParameter("latency", &text), -5);  // a number, not text
  EXPECT_EQ(text, "unchanged");
  EXPECT_EQ(srt->UpdateParameter("latency", 250), 0);
  EXPECT_EQ(srt->UpdateParameter("note", std::string("a \"quoted\" 'text'")), 0);
  EXPECT_EQ(srt->UpdateAuthentication("passphrase", std::string("s3cret")), 0);
  srt->destination("srt://10.0.0.9:9000?mode=caller");
  srt->enable(false);
  srt->enable_option(2, true);
  srt->suspend(true);
  ASSERT_EQ(Stream::Update(srt.get()), 0);
  auto again = ByName("srt1");
  EXPECT_EQ(again->ObtainParameter("latency", -1), 250);
  std::string passphrase;
  EXPECT_EQ(again->ObtainStrParameter("note", &text), 0);
  EXPECT_EQ(again->ObtainStrAuthentication("passphrase", &passphrase), 0);
  EXPECT_EQ(text + " " + passphrase + " " + again->destination(),
            "a \"quoted\" 'text' s3cret srt://10.0.0.9:9000?mode=caller");
  EXPECT_EQ(std::vector<bool>({again->enable(), again->enable_option(1), again->enable_option(2),
                               again->suspend()}),
            std::vector<bool>({false, false, true, true}));
}

TEST_F(StreamModelTest, FileBitrateCountsEnabledStreamsPerStorage) {
  EXPECT_EQ(Stream::TotalFileBitrate(false), 12288u);
  EXPECT_EQ(Stream::TotalFileBitrate(true), 0u);
  Exec("UPDATE stream SET enable = 1 WHERE name IN ('movie2', 'backup1')");
  EXPECT_EQ(Stream::TotalFileBitrate(false), 12288u + 6144u);
  EXPECT_EQ(Stream::TotalFileBitrate(true), 4096u);
  Exec("UPDATE stream SET suspend = 1 WHERE name = 'movie1'");
  EXPECT_EQ(Stream::TotalFileBitrate(false), 6144u);
}

TEST_F(StreamModelTest, RemovalTakesTheStreamsMetadataAlong) {
  auto meta = ByName("backupmeta");
  std::vector<StreamMetadata*> rows;
  ASSERT_EQ(meta->QueryMetadata(&rows), 0);
  EXPECT_EQ(rows.size(), 2u);
  MediaModel::CleanQuery(&rows);
  ASSERT_EQ(Stream::Remove(meta->id()), 0);
  EXPECT_EQ(Stream::Remove(meta->id()), -5);
  ASSERT_EQ(StreamMetadata::QueryAll(&rows), 0);
  EXPECT_EQ(rows.size(), 3u);  // the three default rows remain
  MediaModel::CleanQuery(&rows);
}

TEST_F(StreamModelTest, MetadataKeysAddRenameAndRemove) {
  StreamMetadataKey key("Camera");
  ASSERT_EQ(key.Add(), 0);
  EXPECT_GT(key.id(), 0);
  StreamMetadataKey duplicate("Camera");
  EXPECT_EQ(duplicate.Add(), -2);
  StreamMetadata row(nullptr, &key, "Cam A");
  ASSERT_EQ(StreamMetadata::Add(&row), 0);
  StreamMetadata* read = nullptr;
  ASSERT_EQ(StreamMetadata::QueryById(row.id(), &read), 0);
  EXPECT_EQ(read->key() + "|" + read->value() + "|" + std::to_string(read->stream_id()),
            "Camera|Cam A|0");
  read->key_obj()->key("Title");  // taken by another key
  EXPECT_EQ(read->key_obj()->Update(), -2);
  read->key_obj()->key("Camera 1");
  EXPECT_EQ(read->key_obj()->Update(), 0);
  read->value("Cam B");
  EXPECT_EQ(StreamMetadata::Update(read), 0);
  delete read;
  ASSERT_EQ(StreamMetadata::QueryById(row.id(), &read), 0);
  EXPECT_EQ(read->key() + "|" + read->value(), "Camera 1|Cam B");
  delete read;
  EXPECT_EQ(StreamMetadataKey::Remove(key.id()), 0);
  EXPECT_EQ(StreamMetadata::QueryById(row.id(), &read), -5);
  EXPECT_EQ(StreamMetadataKey::Remove(key.id()), -5);
}

TEST_F(StreamModelTest, FailuresChangeNothing) {
  auto movie = ByName("movie1");
  // A write lock held by another connection: the update fails, the row keeps its value.
  {
    SQLite::Database other(DatabasePath(), SQLite::OPEN_READWRITE);
    other.exec("BEGIN IMMEDIATE");
    movie->destination("file:///elsewhere");
    EXPECT_LT(Stream::Update(movie.get()), 0);
    other.exec("ROLLBACK");
  }
  EXPECT_EQ(ByName("movie1")->destination(), "file:///media/SD/recordings");
  // Not connected: every query is negative, nothing crashes.
  MediaModel::Instance()->Release();
  std::vector<Stream*> found;
  Stream* one = nullptr;
  for (int result :
       {Stream::QueryByTypeName("file", nullptr, true, &found), Stream::QueryById(1, true, &one),
        Stream::Update(movie.get()), Stream::Remove(1)})
    EXPECT_EQ(result, -1);
  EXPECT_EQ(Stream::TotalFileBitrate(false), 0u);
  EXPECT_TRUE(found.empty());
  // A read-only file: reads work, writes fail.
  chmod(DatabasePath().c_str(), 0444);
  if (geteuid() != 0) {
    ASSERT_EQ(MediaModel::Instance()->Connect(DatabasePath()), 0);
    EXPECT_LT(Stream::Update(movie.get()), 0);
  }
}

}  // namespace
