// Device sources, user sources, channels and allowed-source lists against a fresh default
// database: queries, JSON members, changes, removal effects and failures.
#include <gtest/gtest.h>
#include <zolo_model/channel.h>
#include <zolo_model/channel_sources.h>
#include <zolo_model/media_model.h>
#include <zolo_model/source.h>
#include <zolo_model/stream.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "model_fixture.h"

namespace {

template <class T>
std::vector<std::string> Names(const std::vector<T*>& objects) {
  std::vector<std::string> names;
  for (auto* object : objects) names.push_back(object->name());
  return names;
}

template <class Kind>
std::unique_ptr<Kind> ById(int id) {
  Kind* found = nullptr;
  EXPECT_EQ(Kind::QueryById(id, &found), 0) << id;
  return std::unique_ptr<Kind>(found);
}

std::unique_ptr<Channel> ChannelNamed(const std::string& name) {
  Channel* found = nullptr;
  EXPECT_EQ(Channel::QueryByName(name, &found), 0) << name;
  return std::unique_ptr<Channel>(found);
}

std::vector<int> ListedIds(int channel, bool user, const char* key) {
  ChannelSources* lists = nullptr;
  EXPECT_EQ(ChannelSources::QueryByChannel(channel, &lists), 0);
  std::vector<int> ids;
  if (lists == nullptr) return ids;
  EXPECT_EQ(user ? lists->ObtainUserSources(key, &ids) : lists->ObtainChannelSources(key, &ids), 0);
  delete lists;
  return ids;
}

// Both kinds of source share their fields and operations: one suite runs over each.
template <class Kind>
class SourceKindTest : public zolo::test::ModelTest {};
using SourceKinds = testing::Types<ChannelSource, UserSource>;
TYPED_TEST_SUITE(SourceKindTest, SourceKinds);

TYPED_TEST(SourceKindTest, AddReadUpdateRemoveRoundTrip) {
  TypeParam source("Test \"src\" 'x'", "video", "network", "rtsp://10.0.0.5/live?a=1&b=2");
  source.sub_address("sub");
  source.available(false);
  source.int_attr1(-7);
  source.int_attr2(1 << 30);
  source.extra("e1");
  source.extra2("e2");
  source.UpdateParameter("latency", 300);
  source.UpdateAuthentication("passphrase", std::string("p@ss \"word\""));
  ASSERT_EQ(TypeParam::Add(&source), 0);
  ASSERT_GT(source.id(), 0);

  auto read = ById<TypeParam>(source.id());
  ASSERT_TRUE(read);
  EXPECT_EQ(read->name(), source.name());
  EXPECT_EQ(read->type(), "video");
  EXPECT_EQ(read->category(), "network");
  EXPECT_EQ(read->url(), source.url());
  EXPECT_EQ(read->sub_address(), "sub");
  EXPECT_TRUE(read->fixed());
  EXPECT_FALSE(read->available());
  EXPECT_TRUE(read->enabled());
  EXPECT_EQ(read->int_attr1(), -7);
  EXPECT_EQ(read->int_attr2(), 1 << 30);
  EXPECT_EQ(read->extra(), "e1");
  EXPECT_EQ(read->extra2(), "e2");
  EXPECT_EQ(read->ObtainParameter("latency", -1), 300);
  EXPECT_EQ(read->ObtainStrAuthentication("passphrase"), "p@ss \"word\"");

  read->category("listener");
  read->type("audio");
  read->enabled(false);
  ASSERT_EQ(TypeParam::Update(read.get()), 0);
  auto again = ById<TypeParam>(source.id());
  EXPECT_EQ(again->category(), "listener");
  EXPECT_EQ(again->type(), "audio");
  EXPECT_FALSE(again->enabled());

  ASSERT_EQ(TypeParam::Remove(source.id()), 0);
  TypeParam* gone = nullptr;
  EXPECT_EQ(TypeParam::QueryById(source.id(), &gone), -5);
  EXPECT_EQ(TypeParam::Remove(source.id()), -5);
  EXPECT_EQ(TypeParam::Update(again.get()), -5);
}

TYPED_TEST(SourceKindTest, RefusedChangesStoreNothing) {
  std::vector<TypeParam*> before;
  ASSERT_EQ(TypeParam::QueryAll(&before), 0);
  ASSERT_FALSE(before.empty());
  struct Case {
    const char* name;
    const char* type;
    const char* category;
    int result;
  };
  const Case cases[] = {
      {"new-a", "picture", "network", -3},
      {"new-b", "video", "satellite", -3},
      {"new-c", "", "", -3},
      {before.front()->name().c_str(), "video", "network", -2},  // name taken
  };
  for (const auto& c : cases) {
    TypeParam source(c.name, c.type, c.category, "");
    EXPECT_EQ(TypeParam::Add(&source), c.result) << c.name;
  }
  EXPECT_EQ(TypeParam::Add(nullptr), -3);
  EXPECT_EQ(TypeParam::Update(nullptr), -3);
  before.front()->category("nowhere");
  EXPECT_EQ(TypeParam::Update(before.front()), -3);
  std::vector<TypeParam*> after;
  ASSERT_EQ(TypeParam::QueryAll(&after), 0);
  EXPECT_EQ(Names(after), Names(before));
  EXPECT_EQ(ById<TypeParam>(after.front()->id())->category(), after.front()->category());
  MediaModel::CleanQuery(&before);
  MediaModel::CleanQuery(&after);
}

TYPED_TEST(SourceKindTest, JsonMembersReadWithDefaults) {
  TypeParam source("json", "video", "network", "");
  source.parameters(R"({"frame_rate": 50, "codec": "H.264", "on": true, "list": [1]})");
  source.authentication(R"({"encryption": 1, "passphrase": "pw"})");
  struct Case {
    const char* key;
    int number;        // read with fallback -1
    const char* text;  // read with fallback "dflt"
    bool exists;
  };
  const Case parameters[] = {{"frame_rate", 50, "dflt", true}, {"codec", -1, "H.264", true},
                             {"on", 1, "dflt", true},          {"list", -1, "dflt", true},
                             {"absent", -1, "dflt", false},    {"", -1, "dflt", false}};
  for (const auto& c : parameters) {
    EXPECT_EQ(source.ObtainParameter(c.key, -1), c.number) << c.key;
    EXPECT_EQ(source.ObtainStrParameter(c.key, "dflt"), c.text) << c.key;
    EXPECT_EQ(source.IsParameterExisted(c.key), c.exists) << c.key;
  }
  EXPECT_EQ(source.ObtainAuthentication("encryption", -1), 1);
  EXPECT_EQ(source.ObtainAuthentication("key_length", -1), -1);
  EXPECT_EQ(source.ObtainStrAuthentication("passphrase", ""), "pw");
  EXPECT_FALSE(source.IsAuthenticationExisted("key_length"));

  // Updating replaces a member of another kind and keeps the text in step with the cache.
  EXPECT_EQ(source.UpdateParameter("codec", 7), 0);
  EXPECT_EQ(source.ObtainParameter("codec", -1), 7);
  EXPECT_EQ(source.UpdateAuthentication("key_length", 32), 0);
  EXPECT_NE(source.authentication().find("\"key_length\":32"), std::string::npos);
  // Replacing the whole text drops what was parsed before.
  source.parameters("{}");
  EXPECT_FALSE(source.IsParameterExisted("codec"));

  // Stored text that is no JSON object reads as an empty object and can be rewritten.
  for (const char* bad : {"", "not json", "[1,2]", "{\"a\":", "null"}) {
    source.parameters(bad);
    EXPECT_EQ(source.ObtainParameter("a", -2000), -2000) << bad;
    EXPECT_EQ(source.UpdateParameter("a", std::string("b")), 0) << bad;
    EXPECT_EQ(source.parameters(), "{\"a\":\"b\"}") << bad;
  }
}

TYPED_TEST(SourceKindTest, CopiesAreIndependent) {
  TypeParam source("orig", "video", "network", "");
  source.UpdateParameter("x", 1);
  TypeParam copy(source);
  copy.UpdateParameter("x", 2);
  TypeParam& same = copy;
  copy = same;  // self-assignment keeps the object usable
  EXPECT_EQ(source.ObtainParameter("x", 0), 1);
  EXPECT_EQ(copy.ObtainParameter("x", 0), 2);
  source = copy;
  EXPECT_EQ(source.ObtainParameter("x", 0), 2);
}

class SourceModelTest : public zolo::test::ModelTest {};

TEST_F(SourceModelTest, VisibleQueriesLeaveHiddenRowsOut) {
  std::vector<ChannelSource*> all;
  std::vector<ChannelSource*> visible;
  ASSERT_EQ(ChannelSource::QueryAll(&all), 0);
  ASSERT_EQ(ChannelSource::QueryVisible(&visible), 0);
  EXPECT_EQ(all.size(), visible.size() + 1);
  for (auto* source : visible) EXPECT_NE(source->name(), "Placeholder1");
  MediaModel::CleanQuery(&all);
  MediaModel::CleanQuery(&visible);

  std::vector<UserSource*> users;
  ASSERT_EQ(UserSource::QueryVisible(&users), 0);
  EXPECT_EQ(Names(users), (std::vector<std::string>{"Lobby Camera", "Remote Studio", "Stage NDI"}));
  MediaModel::CleanQuery(&users);

  Exec("UPDATE channel SET visible = 0 WHERE name = 'Audio-Usb'");
  std::vector<Channel*> channels;
  ASSERT_EQ(Channel::QueryVisible(&channels), 0);
  EXPECT_EQ(channels.size(), 10u);
  MediaModel::CleanQuery(&channels);
}

// The naming rules rely on these numbers: capture port 0, USB 5, network kinds 1 and 3.
TEST_F(SourceModelTest, TypeAndCategoryNumbers) {
  const std::pair<const char*, int> categories[] = {
      {"capture", 0}, {"usb", 5}, {"network", 1}, {"listener", 3}, {"Capture", -1}, {"", -1}};
  for (const auto& [text, number] : categories) {
    EXPECT_EQ(MediaSource::StringToCategory(text), number) << text;
    if (number >= 0) {
      EXPECT_EQ(MediaSource::CategoryToString(number), text);
    }
  }
  EXPECT_EQ(MediaSource::StringToType("video"), 0);
  EXPECT_EQ(MediaSource::StringToType("audio"), 1);
  EXPECT_EQ(MediaSource::CategoryToString(99), "unknown");
}

TEST_F(SourceModelTest, CaptureInputsFoundBySubAddress) {
  const std::pair<const char*, const char*> inputs[] = {{"SC0710:RAW 01.00 0401f717", "Capture1"},
                                                        {"SC0710:RAW 00.00 0404f71d", "Capture2"},
                                                        {"SC0710:RAW 00.01 0404f71d", "Capture3"},
                                                        {"SC0710:RAW 00.02 0404f71d", "Capture4"},
                                                        {"SC0710:RAW 00.03 0404f71d", "Capture5"}};
  for (const auto& [address, name] : inputs) {
    ChannelSource* source = nullptr;
    ASSERT_EQ(ChannelSource::QueryBySubAddress(address, &source), 0) << address;
    EXPECT_EQ(source->name(), name);
    EXPECT_EQ(source->category(), "capture");
    EXPECT_EQ(source->type(), "video");
    delete source;
  }
  ChannelSource* source = nullptr;
  EXPECT_EQ(ChannelSource::QueryBySubAddress("SC0710:RAW 09.00 0404f71d", &source), -5);
  EXPECT_EQ(ChannelSource::QueryByName("nope", &source), -5);
  EXPECT_EQ(source, nullptr);
}

TEST_F(SourceModelTest, ChannelsCarryTheirSources) {
  struct Case {
    const char* channel;
    const char* video;
    const char* audio;
    const char* video_user;
    const char* audio_user;
  };
  const Case cases[] = {
      {"Video-Capture1", "Capture1", "Capture-Audio1", nullptr, nullptr},
      {"Video-Usb1", "Usb1", "Usb-Audio1", nullptr, nullptr},
      {"RTSP1", "RTSP1", "RTSP1", "Lobby Camera", nullptr},
      {"SRT-LISTENER1", "SRT-LISTENER1", "SRT-LISTENER1", "Remote Studio", "Remote Studio"},
      {"Audio-Mix", nullptr, "Mix-Audio1", nullptr, nullptr},
  };
  auto name = [](const MediaSource* source) { return source ? source->name() : "-"; };
  for (const auto& c : cases) {
    auto channel = ChannelNamed(c.channel);
    ASSERT_TRUE(channel);
    EXPECT_EQ(name(channel->video_source()), c.video ? c.video : "-") << c.channel;
    EXPECT_EQ(name(channel->audio_source()), c.audio ? c.audio : "-") << c.channel;
    EXPECT_EQ(name(channel->video_user_source()), c.video_user ? c.video_user : "-") << c.channel;
    EXPECT_EQ(name(channel->audio_user_source()), c.audio_user ? c.audio_user : "-") << c.channel;
  }
  // Sources come with their JSON members, also on a stream's channel.
  auto srt = ChannelNamed("SRT-LISTENER1");
  EXPECT_EQ(srt->video_user_source()->ObtainStrAuthentication("passphrase"), "change-me-please");
  std::vector<Stream*> streams;
  ASSERT_EQ(Stream::QueryByTypeName("preview", "preview2", true, &streams), 0);
  ASSERT_EQ(streams.size(), 1u);
  ASSERT_NE(streams[0]->channel()->video_source(), nullptr);
  EXPECT_EQ(streams[0]->channel()->video_source()->sub_address(), "SC0710:RAW 00.01 0404f71d");
  MediaModel::CleanQuery(&streams);
}

TEST_F(SourceModelTest, ChannelStreamsHonourHiddenFlag) {
  Exec("UPDATE stream SET hidden = 1 WHERE name = 'preview-ndi-sub'");
  auto channel = ChannelNamed("Video-Capture1");
  auto has = [](const std::vector<Stream*>& list, const std::string& name) {
    for (auto* s : list)
      if (s->name() == name) return true;
    return false;
  };
  EXPECT_TRUE(has(channel->streams(false), "preview-ndi-sub"));
  EXPECT_FALSE(has(channel->streams(true), "preview-ndi-sub"));
  EXPECT_TRUE(has(channel->streams(true), "movie1"));
  EXPECT_FALSE(has(channel->streams(true), "movie2"));  // on channel 2
  EXPECT_TRUE(ChannelNamed("Audio-Usb")->streams(false).empty());
}

TEST_F(SourceModelTest, ChannelAddUpdateRemove) {
  auto lobby = ById<UserSource>(1);
  auto capture = ById<ChannelSource>(2);
  Channel channel("RTSP2");
  channel.video_source(capture.get());
  channel.video_user_source(lobby.get());
  channel.ordinal("2");
  channel.attribute(9);
  ASSERT_EQ(Channel::Add(&channel), 0);
  Channel duplicate("RTSP2");
  EXPECT_EQ(Channel::Add(&duplicate), -2);

  auto read = ChannelNamed("RTSP2");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->id(), channel.id());
  EXPECT_EQ(read->video_source()->id(), 2);
  EXPECT_EQ(read->video_user_source()->name(), "Lobby Camera");
  EXPECT_EQ(read->audio_source(), nullptr);
  EXPECT_EQ(read->ordinal(), "2");
  EXPECT_EQ(read->attribute(), 9);

  read->video_source(nullptr);
  read->preview_url("rtsp://<MAC_ADDR>/preview");
  ASSERT_EQ(Channel::Update(read.get()), 0);
  auto again = ChannelNamed("RTSP2");
  EXPECT_EQ(again->video_source(), nullptr);
  EXPECT_EQ(again->preview_url(), "rtsp://<MAC_ADDR>/preview");

  // A link to a source that no longer exists is refused.
  UserSource temporary("temp", "video", "network", "rtsp://x");
  ASSERT_EQ(UserSource::Add(&temporary), 0);
  ASSERT_EQ(UserSource::Remove(temporary.id()), 0);
  again->audio_user_source(&temporary);
  EXPECT_EQ(Channel::Update(again.get()), -2);

  ASSERT_EQ(Channel::Remove(channel.id()), 0);
  EXPECT_EQ(Channel::Remove(channel.id()), -5);
  EXPECT_EQ(Channel::Update(again.get()), -5);
  EXPECT_EQ(Channel::Add(nullptr), -3);
}

TEST_F(SourceModelTest, RemovingASourceClearsEveryReference) {
  ASSERT_EQ(UserSource::Remove(1), 0);  // "Lobby Camera", RTSP1's video user source
  auto rtsp = ChannelNamed("RTSP1");
  EXPECT_EQ(rtsp->video_user_source(), nullptr);
  EXPECT_EQ(rtsp->video_source()->id(), 7);
  EXPECT_EQ(ListedIds(7, true, "video_sources"), (std::vector<int>{3, 4}));
  EXPECT_EQ(ListedIds(7, true, "audio_sources"), std::vector<int>{});

  ASSERT_EQ(ChannelSource::Remove(11), 0);  // listed for channels 7 and 8
  EXPECT_EQ(ListedIds(7, false, "video_sources"), (std::vector<int>{7, 10}));
  EXPECT_EQ(ListedIds(8, false, "video_sources"), (std::vector<int>{8}));

  ASSERT_EQ(ChannelSource::Remove(12), 0);  // Video-Capture1's audio
  auto capture = ChannelNamed("Video-Capture1");
  EXPECT_EQ(capture->audio_source(), nullptr);
  EXPECT_EQ(capture->video_source()->name(), "Capture1");
  EXPECT_EQ(ListedIds(1, false, "audio_sources"), (std::vector<int>{19}));

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
  std::vector<ChannelSources*> all;
  ASSERT_EQ(ChannelSources::QueryAll(&all), 0);
  ASSERT_EQ(all.size(), 11u);
  EXPECT_EQ(all.front()->channel(), 1);
  MediaModel::CleanQuery(&all);
  EXPECT_EQ(ListedIds(7, false, "video_sources"), (std::vector<int>{7, 10, 11}));
  EXPECT_EQ(ListedIds(7, true, "video_sources"), (std::vector<int>{1, 3, 4}));
  EXPECT_EQ(ListedIds(10, false, "video_sources"), std::vector<int>{});

  ChannelSources* lists = nullptr;
  ASSERT_EQ(ChannelSources::QueryByChannel(9, &lists), 0);
  std::unique_ptr<ChannelSources> owned(lists);
  std::vector<int> ids = {42};
  EXPECT_EQ(lists->ObtainChannelSources("video_sources", &ids), 0);
  EXPECT_EQ(ids, (std::vector<int>{42, 9}));  // appended, not replaced
  EXPECT_EQ(lists->ObtainChannelSources("video_sources", nullptr), -3);
  ASSERT_EQ(lists->UpdateChannelSources("video_sources", {9, 1, 2}), 0);
  ASSERT_EQ(lists->UpdateUserSources("audio_sources", {}), 0);
  ASSERT_EQ(ChannelSources::Update(lists), 0);
  EXPECT_EQ(ListedIds(9, false, "video_sources"), (std::vector<int>{9, 1, 2}));
  EXPECT_EQ(ListedIds(9, false, "audio_sources"), (std::vector<int>{9}));

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

  ChannelSources taken(1);
  EXPECT_EQ(ChannelSources::Add(&taken), -2);  // channel 1 has its lists
  ChannelSources orphan(999);
  EXPECT_EQ(ChannelSources::Add(&orphan), -2);  // no such channel
  EXPECT_EQ(ChannelSources::Update(&orphan), -5);
  EXPECT_EQ(ChannelSources::QueryByChannel(999, &lists), -5);
}

// Snapshot tasks write user sources from their own threads while callers read channels.
TEST_F(SourceModelTest, ConcurrentWritersAndReaders) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 25;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failures] {
      for (int round = 0; round < kRounds; ++round) {
        UserSource added("t" + std::to_string(t) + "-" + std::to_string(round), "video", "network",
                         "rtsp://10.0.0.1/" + std::to_string(round));
        UserSource* lobby = nullptr;
        Channel* channel = nullptr;
        if (UserSource::Add(&added) != 0) ++failures;
        if (UserSource::QueryById(1, &lobby) != 0) {
          ++failures;
          continue;
        }
        lobby->UpdateParameter("preview_dest", "/snap/" + std::to_string(t));
        if (UserSource::Update(lobby) != 0) ++failures;
        if (Channel::QueryByName("RTSP1", &channel) != 0 || channel->video_user_source() == nullptr)
          ++failures;
        delete lobby;
        delete channel;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
  std::vector<UserSource*> all;
  ASSERT_EQ(UserSource::QueryAll(&all), 0);
  EXPECT_EQ(all.size(), 4u + kThreads * kRounds);
  MediaModel::CleanQuery(&all);
  EXPECT_EQ(ById<UserSource>(1)->ObtainStrParameter("preview_dest").rfind("/snap/", 0), 0u);
}

TEST_F(SourceModelTest, MissingOutputsAndDisconnectedModel) {
  EXPECT_EQ(ChannelSource::QueryById(1, nullptr), -3);
  EXPECT_EQ(UserSource::QueryVisible(nullptr), -3);
  EXPECT_EQ(Channel::QueryById(1, nullptr), -3);
  EXPECT_EQ(Channel::QueryVisible(nullptr), -3);
  EXPECT_EQ(ChannelSources::QueryAll(nullptr), -3);
  ChannelSource* source = nullptr;
  Channel* channel = nullptr;
  EXPECT_EQ(ChannelSource::QueryById(-1, &source), -5);
  EXPECT_EQ(Channel::QueryById(0, &channel), -5);

  auto kept = ChannelNamed("Video-Capture3");
  auto user = ById<UserSource>(2);
  MediaModel::Instance()->Release();
  std::vector<ChannelSource*> sources;
  std::vector<Channel*> channels;
  std::vector<ChannelSources*> lists;
  ChannelSources* one = nullptr;
  const int results[] = {
      ChannelSource::QueryById(1, &source),
      ChannelSource::QueryVisible(&sources),
      UserSource::Update(user.get()),
      UserSource::Add(user.get()),
      ChannelSource::Remove(1),
      Channel::QueryByName("RTSP1", &channel),
      Channel::QueryVisible(&channels),
      Channel::Update(kept.get()),
      Channel::Remove(3),
      ChannelSources::QueryByChannel(1, &one),
      ChannelSources::QueryAll(&lists),
  };
  for (size_t i = 0; i < std::size(results); ++i) EXPECT_EQ(results[i], -1) << i;
  EXPECT_TRUE(sources.empty());
  EXPECT_TRUE(channels.empty());
  EXPECT_TRUE(lists.empty());
  // A channel read before keeps its sources; its streams cannot be read now.
  EXPECT_EQ(kept->video_source()->name(), "Capture3");
  EXPECT_TRUE(kept->streams(false).empty());
}

}  // namespace
