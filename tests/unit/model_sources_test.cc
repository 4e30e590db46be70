// Device sources, user sources, channels and allowed-source lists against a fresh default
// database: queries, JSON members, changes, removal effects and failures.
#include <gtest/gtest.h>
#include <zolo_model/channel.h>
#include <zolo_model/channel_sources.h>
#include <zolo_model/media_model.h>
#include <zolo_model/source.h>
#include <zolo_model/stream.h>

#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "model_fixture.h"

namespace {

using Ids = std::vector<int>;

// Every stored field as one text, so a column written or read out of place shows.
std::string Fields(const MediaSource& s) {
  return s.name() + '|' + s.type() + '|' + s.category() + '|' + s.url() + '|' + s.sub_address() +
         '|' + s.authentication() + '|' + s.parameters() + '|' +
         std::to_string(s.fixed() * 1000 + s.available() * 100 + s.enabled() * 10 + s.visible()) +
         '|' + std::to_string(s.int_attr1()) + '|' + std::to_string(s.int_attr2()) + '|' +
         s.extra() + '|' + s.extra2();
}

// Source or channel `id`, which must exist.
template <class Kind>
std::unique_ptr<Kind> ById(int id) {
  Kind* found = nullptr;
  EXPECT_EQ(Kind::QueryById(id, &found), 0) << id;
  return std::unique_ptr<Kind>(found);
}

// The names of a channel's video, audio, video user and audio user sources ("-" for none).
std::string Linked(const Channel& c) {
  const MediaSource* linked[] = {c.video_source(), c.audio_source(), c.video_user_source(),
                                 c.audio_user_source()};
  std::string names;
  for (const MediaSource* s : linked) names += (names.empty() ? "" : "/") + (s ? s->name() : "-");
  return names;
}

Ids ListedIds(int channel, bool user, const char* key) {
  ChannelSources* lists = nullptr;
  EXPECT_EQ(ChannelSources::QueryByChannel(channel, &lists), 0);
  std::unique_ptr<ChannelSources> owned(lists);
  Ids ids;
  if (lists == nullptr) return ids;
  EXPECT_EQ(user ? lists->ObtainUserSources(key, &ids) : lists->ObtainChannelSources(key, &ids), 0);
  return ids;
}

// Runs a list query: the number of rows found, or its failure (-100 if it also left rows).
template <class T>
int Count(int (*query)(std::vector<T*>*)) {
  std::vector<T*> found;
  int result = query(&found);
  int rows = static_cast<int>(found.size());
  MediaModel::CleanQuery(&found);
  return result == 0 ? rows : rows == 0 ? result : -100;
}

// Both kinds of source share their fields and operations: one suite runs over each.
template <class Kind>
class SourceKindTest : public zolo::test::ModelTest {};
using SourceKinds = testing::Types<ChannelSource, UserSource>;
TYPED_TEST_SUITE(SourceKindTest, SourceKinds);

TYPED_TEST(SourceKindTest, RoundTripAndRefusedChanges) {
  const int rows = Count(&TypeParam::QueryAll);
  TypeParam source("Test \"src\" 'x' 100%", "video", "network", "rtsp://10.0.0.5/live?a=1&b=2");
  source.sub_address("sub");
  source.available(false);
  source.visible(false);
  source.int_attr1(-7);
  source.int_attr2(1 << 30);
  source.extra("e1");
  source.extra2("e2");
  source.UpdateParameter("latency", 300);
  source.UpdateAuthentication("passphrase", std::string("p@ss \"word\""));
  ASSERT_EQ(TypeParam::Add(&source), 0);
  auto read = ById<TypeParam>(source.id());
  ASSERT_TRUE(read);
  EXPECT_EQ(Fields(*read), Fields(source));
  read->category("listener");
  read->type("audio");
  read->enabled(false);
  read->available(true);
  ASSERT_EQ(TypeParam::Update(read.get()), 0);
  EXPECT_EQ(Fields(*ById<TypeParam>(source.id())), Fields(*read));
  ASSERT_EQ(TypeParam::Remove(source.id()), 0);
  EXPECT_EQ(TypeParam::Remove(source.id()), -5);
  EXPECT_EQ(TypeParam::Update(read.get()), -5);

  // Unknown type or category texts (case counts), a taken name and null are refused.
  const std::pair<const char*, const char*> refused[] = {
      {"picture", "network"},
      {"video", "satellite"},
      {"", ""},
      {"Video", "Network"},
  };
  for (const auto& [type, category] : refused) {
    TypeParam bad("new", type, category, "");
    EXPECT_EQ(TypeParam::Add(&bad), -3) << type << category;
  }
  auto first = ById<TypeParam>(1);
  const std::string stored = Fields(*first);
  TypeParam taken(first->name(), "video", "network", "");
  EXPECT_EQ(TypeParam::Add(&taken), -2);
  EXPECT_EQ(TypeParam::Add(nullptr), -3);
  EXPECT_EQ(TypeParam::Update(nullptr), -3);
  first->category("nowhere");
  EXPECT_EQ(TypeParam::Update(first.get()), -3);
  EXPECT_EQ(Count(&TypeParam::QueryAll), rows);
  EXPECT_EQ(Fields(*ById<TypeParam>(1)), stored);
}

TYPED_TEST(SourceKindTest, JsonMembersReadWithDefaults) {
  TypeParam source("json", "video", "network", "");
  source.parameters(R"({"frame_rate": 50, "codec": "H.264", "on": true, "list": [1]})");
  // key, read as number with fallback -1, as text with fallback "dflt", present
  // clang-format off
  const std::tuple<const char*, int, const char*, bool> parameters[] = {
      {"frame_rate", 50, "dflt", true},
      {"codec", -1, "H.264", true},
      {"on", 1, "dflt", true},
      {"list", -1, "dflt", true},
      {"absent", -1, "dflt", false},
      {"", -1, "dflt", false},
  };
  // clang-format on
  for (const auto& [key, number, text, exists] : parameters) {
    EXPECT_EQ(source.ObtainParameter(key, -1), number) << key;
    EXPECT_EQ(source.ObtainStrParameter(key, "dflt"), text) << key;
    EXPECT_EQ(source.IsParameterExisted(key), exists) << key;
  }
  // Updating replaces a member of another kind; copies keep their own parsed cache.
  EXPECT_EQ(source.UpdateParameter("codec", 7), 0);
  TypeParam copy(source);
  copy.UpdateParameter("codec", 8);
  TypeParam& same = copy;
  copy = same;  // self-assignment keeps the object usable
  EXPECT_EQ(source.ObtainParameter("codec", -1), 7);
  source = copy;
  EXPECT_EQ(source.ObtainParameter("codec", -1), 8);
  source.parameters("{}");  // replacing the text drops what was parsed before
  EXPECT_FALSE(source.IsParameterExisted("codec"));
  // Stored text that is no JSON object reads as an empty object; a blank one can be
  // written, any other is kept as it is and the change refused.
  for (const char* bad : {"", "not json", "[1,2]", "{\"a\":", "null"}) {
    source.authentication(bad);
    EXPECT_EQ(source.ObtainAuthentication("a", -2000), -2000) << bad;
    bool blank = *bad == '\0';
    EXPECT_EQ(source.UpdateAuthentication("a", std::string("b")), blank ? 0 : -1) << bad;
    EXPECT_EQ(source.authentication(), blank ? "{\"a\":\"b\"}" : bad) << bad;
  }
}

class SourceModelTest : public zolo::test::ModelTest {};

TEST_F(SourceModelTest, VisibleQueriesAndLookups) {
  // One device source and one user source are hidden by default; hide one channel.
  Exec("UPDATE channel SET visible = 0 WHERE name = 'Audio-Usb'");
  EXPECT_EQ(Count(&ChannelSource::QueryVisible), Count(&ChannelSource::QueryAll) - 1);
  EXPECT_EQ(Count(&UserSource::QueryVisible), 5);
  EXPECT_EQ(Count(&Channel::QueryVisible), 13);
  EXPECT_EQ(Count(&ChannelSources::QueryAll), 14);

  // Capture video and audio share a sub-address: the first by id is found. Stored numbers
  // read back as type and category texts.
  ChannelSource* source = nullptr;
  ASSERT_EQ(ChannelSource::QueryBySubAddress("SC0710:RAW 00.03 0404f71d", &source), 0);
  EXPECT_EQ(source->name() + "/" + source->category() + "/" + source->type(),
            "Capture5/capture/video");
  delete source;
  auto usb_audio = ById<ChannelSource>(17);
  EXPECT_EQ(usb_audio->category() + "/" + usb_audio->type(), "usb/audio");
  source = nullptr;
  EXPECT_EQ(ChannelSource::QueryBySubAddress("SC0710:RAW 09.00 0404f71d", &source), -5);
  EXPECT_EQ(ChannelSource::QueryByName("' OR 1 --", &source), -5);
  EXPECT_EQ(source, nullptr);
}

TEST_F(SourceModelTest, ChannelsCarryTheirSourcesAndStreams) {
  const std::pair<int, const char*> cases[] = {
      {1, "Capture1/Capture-Audio1/-/-"},
      {7, "RTSP1/RTSP1/Lobby Camera/-"},
      {8, "SRT-LISTENER1/SRT-LISTENER1/Remote Studio/Remote Studio"},
      {10, "-/Mix-Audio1/-/-"}};
  for (const auto& [id, linked] : cases) EXPECT_EQ(Linked(*ById<Channel>(id)), linked) << id;
  // Channel 1 has 13 of the 29 streams; two of them hidden (one by default).
  Exec("UPDATE stream SET hidden = 1 WHERE name = 'preview-ndi-sub'");
  auto capture = ById<Channel>(1);
  EXPECT_EQ(capture->streams(false).size(), 13u);
  EXPECT_EQ(capture->streams(true).size(), 11u);
  for (auto* stream : capture->streams(true)) EXPECT_NE(stream->name(), "preview-ndi-sub");
  EXPECT_TRUE(ById<Channel>(11)->streams(false).empty());
}

TEST_F(SourceModelTest, ChannelAddUpdateRemove) {
  Channel channel("RTSP2");
  channel.video_source(ById<ChannelSource>(2).get());
  channel.video_user_source(ById<UserSource>(1).get());
  channel.ordinal("2");
  channel.attribute(9);
  ASSERT_EQ(Channel::Add(&channel), 0);
  Channel* found = nullptr;
  ASSERT_EQ(Channel::QueryByName("RTSP2", &found), 0);
  std::unique_ptr<Channel> read(found);
  EXPECT_EQ(Linked(*read) + "/" + read->ordinal() + "/" + std::to_string(read->attribute()),
            "Capture2/-/Lobby Camera/-/2/9");

  read->video_source(nullptr);
  read->preview_url("rtsp://<MAC_ADDR>/preview");
  ASSERT_EQ(Channel::Update(read.get()), 0);
  auto again = ById<Channel>(channel.id());
  EXPECT_EQ(Linked(*again) + " " + again->preview_url(),
            "-/-/Lobby Camera/- rtsp://<MAC_ADDR>/preview");

  // A link to a source that no longer exists is refused.
  UserSource temporary("temp", "video", "network", "rtsp://x");
  ASSERT_EQ(UserSource::Add(&temporary), 0);
  ASSERT_EQ(UserSource::Remove(temporary.id()), 0);
  again->audio_user_source(&temporary);
  EXPECT_EQ(Channel::Update(again.get()), -2);

  ASSERT_EQ(Channel::Remove(channel.id()), 0);
  EXPECT_EQ(Channel::Remove(channel.id()), -5);
  EXPECT_EQ(Channel::Update(again.get()), -5);
}

TEST_F(SourceModelTest, RemovingASourceClearsEveryReference) {
  ASSERT_EQ(UserSource::Remove(1), 0);  // "Lobby Camera", RTSP1's video user source
  EXPECT_EQ(Linked(*ById<Channel>(7)), "RTSP1/RTSP1/-/-");
  EXPECT_EQ(ListedIds(7, true, "video_sources"), (Ids{3, 4}));
  EXPECT_EQ(ListedIds(7, true, "audio_sources"), Ids{});
  ASSERT_EQ(ChannelSource::Remove(11), 0);  // listed for channels 7 and 8
  EXPECT_EQ(ListedIds(7, false, "video_sources"), (Ids{7, 10}));
  EXPECT_EQ(ListedIds(8, false, "video_sources"), (Ids{8}));
  ASSERT_EQ(ChannelSource::Remove(12), 0);  // Video-Capture1's audio
  EXPECT_EQ(Linked(*ById<Channel>(1)), "Capture1/-/-/-");
  EXPECT_EQ(ListedIds(1, false, "audio_sources"), (Ids{19}));

  // Removing a channel takes its lists and leaves its streams without a channel.
  ASSERT_EQ(Channel::Remove(2), 0);
  ChannelSources* lists = nullptr;
  EXPECT_EQ(ChannelSources::QueryByChannel(2, &lists), -5);
  std::vector<Stream*> streams;
  ASSERT_EQ(Stream::QueryByTypeName(nullptr, "movie2", true, &streams), 0);
  ASSERT_EQ(streams.size(), 1u);
  EXPECT_EQ(streams[0]->channel(), nullptr);
  MediaModel::CleanQuery(&streams);
}

TEST_F(SourceModelTest, AllowedSourceLists) {
  EXPECT_EQ(ListedIds(10, false, "video_sources"), Ids{});  // no such key

  ChannelSources* lists = nullptr;
  ASSERT_EQ(ChannelSources::QueryByChannel(9, &lists), 0);
  std::unique_ptr<ChannelSources> owned(lists);
  Ids ids = {42};
  EXPECT_EQ(lists->ObtainChannelSources("video_sources", &ids), 0);
  EXPECT_EQ(ids, (Ids{42, 9}));  // appended, not replaced
  EXPECT_EQ(lists->ObtainChannelSources("video_sources", nullptr), -3);
  ASSERT_EQ(lists->UpdateChannelSources("video_sources", {9, 1, 2}), 0);
  ASSERT_EQ(lists->UpdateUserSources("audio_sources", {}), 0);
  ASSERT_EQ(ChannelSources::Update(lists), 0);
  EXPECT_EQ(ListedIds(9, false, "video_sources"), (Ids{9, 1, 2}));
  EXPECT_EQ(ListedIds(9, false, "audio_sources"), (Ids{9}));

  // A list that is not an array of ids is reported, not guessed at.
  Exec(
      "UPDATE channel_sources SET sources = '{\"video_sources\": [1, \"x\"], "
      "\"audio_sources\": 3}' WHERE channel_id = 1");
  ASSERT_EQ(ChannelSources::QueryByChannel(1, &lists), 0);
  owned.reset(lists);
  ids.clear();
  EXPECT_EQ(lists->ObtainChannelSources("video_sources", &ids), -2);
  EXPECT_EQ(lists->ObtainChannelSources("audio_sources", &ids), -2);
  EXPECT_TRUE(ids.empty());

  ChannelSources taken(1), orphan(999);
  EXPECT_EQ(ChannelSources::Add(&taken), -2);   // channel 1 has its lists
  EXPECT_EQ(ChannelSources::Add(&orphan), -2);  // no such channel
  EXPECT_EQ(ChannelSources::Update(&orphan), -5);
  EXPECT_EQ(ChannelSources::QueryByChannel(999, &lists), -5);
}

// Snapshot tasks write user sources from their own threads while callers read channels.
TEST_F(SourceModelTest, ConcurrentWritersAndReaders) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 25;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int round = 0; round < kRounds; ++round) {
        UserSource added("t" + std::to_string(t * 100 + round), "video", "network", "rtsp://x/");
        EXPECT_EQ(UserSource::Add(&added), 0);
        auto lobby = ById<UserSource>(1);
        if (!lobby) continue;
        lobby->UpdateParameter("preview_dest", "/snap/" + std::to_string(t));
        EXPECT_EQ(UserSource::Update(lobby.get()), 0);
        auto channel = ById<Channel>(7);
        EXPECT_TRUE(channel && channel->video_user_source() != nullptr);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(Count(&UserSource::QueryAll), 6 + kThreads * kRounds);
  EXPECT_EQ(ById<UserSource>(1)->ObtainStrParameter("preview_dest").rfind("/snap/", 0), 0u);
}

TEST_F(SourceModelTest, MissingOutputsAndDisconnectedModel) {
  ChannelSource* source = nullptr;
  Channel* channel = nullptr;
  for (int result : {ChannelSource::QueryById(1, nullptr), UserSource::QueryVisible(nullptr),
                     Channel::QueryById(1, nullptr), Channel::QueryVisible(nullptr),
                     Channel::Add(nullptr), ChannelSources::QueryAll(nullptr)})
    EXPECT_EQ(result, -3);
  EXPECT_EQ(ChannelSource::QueryById(-1, &source), -5);
  EXPECT_EQ(Channel::QueryById(0, &channel), -5);

  auto kept = ById<Channel>(3);
  auto user = ById<UserSource>(2);
  MediaModel::Instance()->Release();
  ChannelSources* lists = nullptr;
  int i = 0;
  for (int result : {Count(&ChannelSource::QueryVisible), UserSource::Add(user.get()),
                     UserSource::Update(user.get()), ChannelSource::Remove(1),
                     Channel::QueryByName("RTSP1", &channel), Count(&Channel::QueryVisible),
                     Channel::Update(kept.get()), ChannelSources::QueryByChannel(1, &lists),
                     Count(&ChannelSources::QueryAll)})
    EXPECT_EQ(result, -1) << i++;
  // A channel read before keeps its sources; its streams cannot be read now.
  EXPECT_EQ(kept->video_source()->name(), "Capture3");
  EXPECT_TRUE(kept->streams(false).empty());
}

}  // namespace
