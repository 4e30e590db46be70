// Destinations, parameters, authentication and metadata of streams, and the URL parser.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>
#include <zolo/media.h>
#include <zolo_model/database.h>
#include <zolo_model/media_model.h>

#include <string>
#include <vector>

#include "model_fixture.h"

namespace {

class StreamSettingsTest : public zolo::test::ModelTest {
 protected:
  zm_stream One(const char* name) {
    std::vector<zm_stream> out;
    zm_get_stream_by_pattern(name, &out);
    EXPECT_EQ(out.size(), 1u) << name;
    return out.empty() ? zm_stream{} : out.front();
  }
};

TEST_F(StreamSettingsTest, PreviewDestinationCarriesPortAndCredentialsToItsCompanions) {
  ASSERT_EQ(zm_set_stream_destination("preview", "rtsp://u:p@192.168.1.5:9000/main"), 0);
  EXPECT_STREQ(One("preview").destination, "rtsp://u:p@192.168.1.5:9000/main");
  // Each companion keeps its own scheme, host and path.
  EXPECT_STREQ(One("preview1").destination, "rtsp://u:p@0.0.0.0:9000/preview1");
  EXPECT_STREQ(One("preview2").destination, "rtsp://u:p@0.0.0.0:9000/preview2");
  // An empty port and user in the new address remove them from the companions.
  ASSERT_EQ(zm_set_stream_destination("preview", "rtsp://10.0.0.1/x"), 0);
  EXPECT_STREQ(One("preview1").destination, "rtsp://0.0.0.0/preview1");
  EXPECT_STREQ(One("preview-ndi-sub").destination, "ndi://0.0.0.0");  // not a companion
  ASSERT_EQ(zm_set_stream_destination("rtmp1", "rtmp://a.example/live/key"), 0);
  EXPECT_STREQ(One("rtmp1").destination, "rtmp://a.example/live/key");
  EXPECT_EQ(zm_set_stream_destination("no such stream", "x"), 0);
  EXPECT_EQ(zm_set_stream_destination(nullptr, "x"), -3);
  EXPECT_THROW(zm_set_stream_destination("rtmp1", nullptr), std::logic_error);
}

TEST_F(StreamSettingsTest, CompanionsKeepTheirOwnAddressExactly) {
  ASSERT_EQ(zm_set_stream_destination("preview1", "rtsp://[fe80::1]:8554/p/q?x=1#f"), 0);
  ASSERT_EQ(zm_set_stream_destination("preview2", "rtsp://cam.local:8554x/p"), 0);
  ASSERT_EQ(zm_set_stream_destination("preview", "rtsp://u:p@10.0.0.9:9000/main"), 0);
  EXPECT_STREQ(One("preview1").destination, "rtsp://u:p@[fe80::1]:9000/p/q?x=1#f");
  EXPECT_STREQ(One("preview2").destination, "rtsp://cam.local:8554x/p");  // does not parse
  EXPECT_EQ(zm_set_stream_destination("preview", "rtsp://h/\xff"), -3);
  EXPECT_STREQ(One("preview").destination, "rtsp://u:p@10.0.0.9:9000/main");
}

TEST_F(StreamSettingsTest, ScheduleDestinationsWriteOnlyTheStreamsThatReceiveOne) {
  ASSERT_EQ(zm_execute_db_command("CREATE TABLE writes (n INTEGER); INSERT INTO writes VALUES (0);"
                                  "CREATE TRIGGER count_writes AFTER UPDATE ON stream "
                                  "BEGIN UPDATE writes SET n = n + 1; END;"),
            0);
  ASSERT_EQ(zm_set_schedule_stream_destination({"rtmp://one/a"}), 0);
  SQLite::Database db(MediaModel::Instance()->database()->path(), SQLite::OPEN_READONLY);
  EXPECT_EQ(db.execAndGet("SELECT n FROM writes").getInt(), 1);
}

// A write the database refuses is reported, whether it is read-only or a trigger aborts.
TEST_F(StreamSettingsTest, RefusedWritesAreFailures) {
  const char* refusals[] = {"PRAGMA query_only = ON",
                            "CREATE TRIGGER refuse BEFORE UPDATE ON stream "
                            "BEGIN SELECT RAISE(ABORT, 'refused'); END;"};
  const char* undo[] = {"PRAGMA query_only = OFF", "DROP TRIGGER refuse"};
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(zm_execute_db_command(refusals[i]), 0);
    EXPECT_EQ(zm_set_stream_destination("rtmp1", "rtmp://b/c"), -1) << refusals[i];
    EXPECT_EQ(zm_set_stream_param("network", "srt1", "latency", 9), -1) << refusals[i];
    EXPECT_EQ(zm_set_stream_auth("network", "srt1", "passphrase", "x"), -1) << refusals[i];
    EXPECT_EQ(zm_set_schedule_stream_destination({"rtmp://one/a"}), -1) << refusals[i];
    ASSERT_EQ(zm_execute_db_command(undo[i]), 0);
    EXPECT_STREQ(One("rtmp1").destination, "rtmp://0.0.0.0/fake");
  }
}

TEST_F(StreamSettingsTest, ScheduleDestinationsSkipSuspendedAndDisabledStreams) {
  ASSERT_EQ(zm_suspend_stream("sched-rtmp1", 1), 0);  // (no engine: the notice just fails)
  ASSERT_EQ(zm_set_schedule_stream_destination({"rtmp://one/a", "rtmp://two/b"}), 0);
  EXPECT_STREQ(One("sched-rtmp1").destination, "rtmp://0.0.0.0/fake");
  EXPECT_STREQ(One("sched-rtmp2").destination, "rtmp://one/a");
  EXPECT_EQ(zm_set_schedule_stream_destination({}), -3);
}

TEST_F(StreamSettingsTest, ParametersAndAuthenticationByTypeOrName) {
  EXPECT_EQ(zm_set_stream_param(nullptr, nullptr, "latency", 120), -3);
  EXPECT_EQ(zm_set_stream_param("network", "srt1", nullptr, 1), -3);
  ASSERT_EQ(zm_set_stream_param("network", nullptr, "latency", 300), 0);
  EXPECT_EQ(One("srt1").latency, 300);
  EXPECT_EQ(One("rtmp1").latency, 300);
  EXPECT_EQ(One("movie1").latency, -1);
  ASSERT_EQ(zm_set_stream_param(nullptr, "udp1", "netmask", "255.255.0.0"), 0);
  EXPECT_STREQ(One("udp1").netmask, "255.255.0.0");
  ASSERT_EQ(zm_set_stream_auth("network", "srt1", "passphrase", "0123456789abcdef"), 0);
  ASSERT_EQ(zm_set_stream_auth("network", "srt1", "key_length", 32), 0);
  zm_stream srt = One("srt1");
  EXPECT_STREQ(srt.passphrase, "0123456789abcdef");
  EXPECT_EQ(srt.key_length, 32);
  EXPECT_EQ(zm_set_stream_param("network", "srt1", "x", static_cast<const char*>(nullptr)), -3);
  // Stored parameters that do not parse are kept; the change is refused.
  ASSERT_EQ(zm_execute_db_command(
                R"(UPDATE stream SET parameters = '{"latency":2,' WHERE name = 'srt1')"),
            0);
  EXPECT_EQ(zm_set_stream_param("network", "srt1", "latency", 9), -1);
  SQLite::Database db(MediaModel::Instance()->database()->path(), SQLite::OPEN_READONLY);
  EXPECT_EQ(db.execAndGet("SELECT parameters FROM stream WHERE name = 'srt1'").getString(),
            R"({"latency":2,)");
}

TEST_F(StreamSettingsTest, MetadataKeysRowsAndTheBackupStream) {
  std::vector<zm_metadata> all;
  ASSERT_EQ(zm_get_stream_metadata(0, &all), 0);
  ASSERT_EQ(all.size(), 5u);  // three defaults, two of "backupmeta"
  EXPECT_STREQ(all[0].key, "Title");
  ASSERT_EQ(zm_add_stream_metadata_key("Camera", "Cam A"), 0);
  EXPECT_EQ(zm_add_stream_metadata_key("Camera", "again"), -1);
  std::vector<zm_metadata> rows;
  ASSERT_EQ(zm_get_stream_metadata(0, &rows), 0);
  ASSERT_EQ(rows.size(), 6u);
  int row_id = 6;
  std::vector<zm_metadata> one;
  ASSERT_EQ(zm_get_stream_metadata(row_id, &one), 0);
  ASSERT_EQ(one.size(), 1u);
  EXPECT_STREQ(one[0].value, "Cam A");
  ASSERT_EQ(zm_set_stream_metadata(row_id, "Cam B"), 0);
  ASSERT_EQ(zm_set_stream_metadata_key(row_id, "Camera 2"), 0);
  EXPECT_EQ(zm_set_stream_metadata_key(row_id, nullptr), 0);
  one.clear();
  zm_get_stream_metadata(row_id, &one);
  EXPECT_STREQ(one[0].key, "Camera 2");
  EXPECT_STREQ(one[0].value, "Cam B");
  EXPECT_EQ(zm_set_stream_metadata(999, "x"), -1);
  EXPECT_EQ(zm_set_stream_metadata_key(999, "x"), -1);
  EXPECT_EQ(zm_remove_stream_metadata_key(one[0].key_id), 0);
  EXPECT_EQ(zm_remove_stream_metadata_key(one[0].key_id), -1);
  std::vector<zm_metadata> backup;
  ASSERT_EQ(zm_get_backup_stream_metadata(0, &backup), 0);
  ASSERT_EQ(backup.size(), 2u);
  EXPECT_STREQ(backup[0].value, "Backup recording");
  EXPECT_THROW(zm_add_stream_metadata_key(nullptr, "x"), std::logic_error);
  std::string long_value(5000, 'v');
  ASSERT_EQ(zm_set_stream_metadata(1, long_value.c_str()), 0);
  one.clear();
  zm_get_stream_metadata(1, &one);
  EXPECT_EQ(std::string(one[0].value).size(), 4095u);
}

struct UrlCase {
  const char* text;
  const char* scheme;
  const char* user;
  const char* host;
  const char* port;
  const char* path;
  const char* written;
};
class UrlTest : public testing::TestWithParam<UrlCase> {};
TEST_P(UrlTest, SplitsAndWritesBack) {
  const auto& c = GetParam();
  UrlParser::Url url(c.text);
  EXPECT_EQ(url.scheme, c.scheme);
  EXPECT_EQ(url.user, c.user);
  EXPECT_EQ(url.host, c.host);
  EXPECT_EQ(url.port, c.port);
  EXPECT_EQ(url.path, c.path);
  EXPECT_EQ(url.ToString(), c.written);
}
INSTANTIATE_TEST_SUITE_P(
    Table, UrlTest,
    testing::Values(UrlCase{"rtsp://u:p@h:554/a/b?x=1#f", "rtsp", "u", "h", "554", "a/b",
                            "rtsp://u:p@h:554/a/b?x=1#f"},
                    UrlCase{"srt://0.0.0.0/fake?mode=caller", "srt", "", "0.0.0.0", "", "fake",
                            "srt://0.0.0.0/fake?mode=caller"},
                    UrlCase{"ndi://0.0.0.0", "ndi", "", "0.0.0.0", "", "", "ndi://0.0.0.0"},
                    UrlCase{"file:///media/SD/a.mp4", "file", "", "", "", "media/SD/a.mp4",
                            "file:/media/SD/a.mp4"},
                    UrlCase{"rtsp://[fe80::1]:8554/p", "rtsp", "", "fe80::1", "8554", "p",
                            "rtsp://[fe80::1]:8554/p"},
                    UrlCase{"relative/path", "", "", "", "", "relative/path", "/relative/path"},
                    UrlCase{"", "", "", "", "", "", ""}));

}  // namespace
