// The mixer model: mixers, layouts and their groups, mixer assets and themes, on a fresh
// database made from initial.sql.
#include <gtest/gtest.h>
#include <zolo_model/media_model.h>
#include <zolo_model/mixer.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "model_fixture.h"

namespace {

template <class T>
std::vector<int> Ids(std::vector<T*>* objects) {
  std::vector<int> ids;
  for (T* object : *objects) ids.push_back(object->id());
  MediaModel::CleanQuery(objects);
  return ids;
}

// The object a query by id or name finds, owned.
template <class T, class Query, class... Args>
std::unique_ptr<T> Load(Query query, Args... args) {
  T* object = nullptr;
  EXPECT_EQ(query(args..., &object), 0);
  return std::unique_ptr<T>(object);
}

class MixerModelTest : public zolo::test::ModelTest {
 protected:
  static std::unique_ptr<MixerConfig> Config(int id, int type = MixerConfig::kVideo) {
    return Load<MixerConfig>(MixerConfig::QueryById, type, id);
  }
  static std::unique_ptr<MixerAsset> Asset(int type, int id) {
    return Load<MixerAsset>(MixerAsset::QueryById, type, id);
  }
  static std::unique_ptr<Theme> LoadTheme(int id) { return Load<Theme>(Theme::QueryById, id); }
  static std::unique_ptr<Mixer> MixerNamed(const char* uri, int type = Mixer::kVideo) {
    return Load<Mixer>(static_cast<int (*)(int, const char*, Mixer**)>(Mixer::QueryByName), type,
                       uri);
  }
};

TEST_F(MixerModelTest, DefaultMixersShowAConfigurationOfTheirKind) {
  struct Case {
    const char* uri;
    const char* group;
    std::vector<std::string> outputs;
  } cases[] = {{"zolo://video/mixer/0", "Single", {}},
               {"zolo://video/mixer/2", "Single", {}},
               {"zolo://video/display_mixer/0", "Display", {"display1"}}};
  for (const auto& c : cases) {
    auto mixer = MixerNamed(c.uri);
    ASSERT_TRUE(mixer && mixer->config() && mixer->config()->group(0)) << c.uri;
    EXPECT_EQ(mixer->config()->group(0)->name(), c.group) << c.uri;
    EXPECT_EQ(mixer->outputs(), c.outputs) << c.uri;
  }
  auto main = MixerNamed("zolo://video/mixer/0");
  ASSERT_TRUE(main->background() && main->theme() && main->theme()->overlay());
  EXPECT_EQ(main->background()->name(), "black.png");
  EXPECT_EQ(main->theme()->overlay()->name(), "logo.png");
  EXPECT_EQ(main->foreground(), nullptr);
}

TEST_F(MixerModelTest, UnknownObjectsWrongTypesAndNullArgumentsAreRefused) {
  Mixer* mixer = nullptr;
  MixerConfig* config = nullptr;
  MixerConfigGroup* group = nullptr;
  MixerAsset* asset = nullptr;
  Theme* theme = nullptr;
  struct Case {
    const char* what;
    std::function<int()> call;
    int result;
  } cases[] = {
      {"mixer uri", [&] { return Mixer::QueryByName(0, "zolo://video/mixer/9", &mixer); }, -5},
      {"mixer type", [&] { return Mixer::QueryByName(1, "zolo://video/mixer/0", &mixer); }, -5},
      {"mixer null name",
       [&] { return Mixer::QueryByName(0, static_cast<const char*>(nullptr), &mixer); }, -3},
      {"mixer id", [&] { return Mixer::QueryById(999, &mixer); }, -5},
      {"config type", [&] { return MixerConfig::QueryById(MixerConfig::kAudio, 1, &config); }, -5},
      {"group", [&] { return MixerConfigGroup::QueryByTypeName(1, "Display", &group); }, -5},
      {"group null", [&] { return MixerConfigGroup::QueryByTypeName(0, nullptr, &group); }, -3},
      {"asset kind", [&] { return MixerAsset::QueryById(MixerAsset::kOverlay, 1, &asset); }, -5},
      {"asset null", [&] { return MixerAsset::QueryById(0, 1, nullptr); }, -3},
      {"theme id", [&] { return Theme::QueryById(99, &theme); }, -5},
      {"themes null", [&] { return Theme::QueryEnabled(nullptr, true); }, -3},
      {"slot null", [&] { return Theme::TakeFreeSlot(nullptr); }, -3},
      {"update null", [&] { return MixerAsset::Update(nullptr); }, -3},
      // Objects never stored have no row to write.
      {"unsaved mixer", [&] { return Mixer::Update(std::make_unique<Mixer>().get()); }, -5},
      {"unsaved config", [&] { return MixerConfig::Update(std::make_unique<MixerConfig>().get()); },
       -5},
      {"unsaved rank", [&] { return MixerAsset().UpdateRank(1); }, -5},
  };
  for (const auto& c : cases) EXPECT_EQ(c.call(), c.result) << c.what;
  EXPECT_EQ(mixer, nullptr);
  EXPECT_EQ(config, nullptr);
  EXPECT_EQ(asset, nullptr);
}

// One slot pool seen through its model class: take a slot (giving its id), list the free
// slots, load a slot by id.
struct Pool {
  const char* what;
  int free;
  std::function<int(int*)> take;
  std::function<int()> count_free;
  std::function<int(int)> release;  // frees the slot `id` through Update
  std::function<int(int)> rank;
};

template <class T>
Pool MakePool(const char* what, int free, std::function<int(T**)> take,
              std::function<int(std::vector<T*>*)> list_free, std::function<int(int, T**)> load) {
  auto loaded = [load](int id) {
    T* object = nullptr;
    EXPECT_EQ(load(id, &object), 0) << id;
    return std::unique_ptr<T>(object);
  };
  return {what,
          free,
          [take](int* id) {
            T* slot = nullptr;
            int result = take(&slot);
            *id = slot ? slot->id() : 0;
            delete slot;
            return result;
          },
          [list_free] {
            std::vector<T*> list;
            EXPECT_EQ(list_free(&list), 0);
            return static_cast<int>(Ids(&list).size());
          },
          [loaded](int id) {
            auto slot = loaded(id);
            slot->enabled(false);
            return T::Update(slot.get());
          },
          [loaded](int id) { return loaded(id)->rank(); }};
}

// Every pool: slots are taken until none is left, each goes to the end of its order, a
// freed slot leaves the order and is the next one taken.
TEST_F(MixerModelTest, SlotPoolsRunOutAndFreedSlotsComeBack) {
  const int video = MixerConfig::kVideo;
  const int overlay = MixerAsset::kOverlay;
  const Pool pools[] = {
      MakePool<MixerConfig>(
          "layouts", 32, [=](MixerConfig** out) { return MixerConfig::TakeFreeSlot(video, out); },
          [=](std::vector<MixerConfig*>* out) {
            return MixerConfig::QueryByType(video, out, false, false);
          },
          [=](int id, MixerConfig** out) { return MixerConfig::QueryById(video, id, out); }),
      MakePool<MixerAsset>(
          "overlays", 15, [=](MixerAsset** out) { return MixerAsset::TakeFreeSlot(overlay, out); },
          [=](std::vector<MixerAsset*>* out) {
            return MixerAsset::QueryByType(overlay, out, false);
          },
          [=](int id, MixerAsset** out) { return MixerAsset::QueryById(overlay, id, out); }),
      MakePool<Theme>(
          "themes", 15, Theme::TakeFreeSlot,
          [](std::vector<Theme*>* out) { return Theme::QueryEnabled(out, false); },
          Theme::QueryById),
  };
  for (const auto& pool : pools) {
    SCOPED_TRACE(pool.what);
    EXPECT_EQ(pool.count_free(), pool.free);
    std::vector<int> taken;
    int id = 0;
    while (static_cast<int>(taken.size()) <= pool.free && pool.take(&id) == 0) taken.push_back(id);
    ASSERT_EQ(static_cast<int>(taken.size()), pool.free);
    EXPECT_EQ(pool.take(&id), -2);
    EXPECT_EQ(pool.count_free(), 0);
    EXPECT_EQ(pool.rank(taken.back()), pool.rank(taken.front()) + pool.free - 1);

    ASSERT_EQ(pool.release(taken[3]), 0);
    EXPECT_EQ(pool.rank(taken[3]), -1);
    EXPECT_EQ(pool.count_free(), 1);
    ASSERT_EQ(pool.take(&id), 0);
    EXPECT_EQ(id, taken[3]);
  }
}

TEST_F(MixerModelTest, ThreadsTakingSlotsNeverShareOne) {
  std::vector<std::vector<int>> taken(4);
  std::vector<std::thread> threads;
  for (auto& mine : taken) {
    threads.emplace_back([&mine] {
      Theme* theme = nullptr;
      while (Theme::TakeFreeSlot(&theme) == 0) {
        mine.push_back(theme->id());
        delete theme;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  std::set<int> all;
  size_t total = 0;
  for (const auto& mine : taken) {
    all.insert(mine.begin(), mine.end());
    total += mine.size();
  }
  EXPECT_EQ(total, 15u);
  EXPECT_EQ(all.size(), 15u);
}

TEST_F(MixerModelTest, RankMovesRenumberOnlyTheirOwnOrder) {
  using Order = std::vector<std::pair<int, int>>;  // id, rank in list order
  auto backgrounds = [] {
    std::vector<MixerAsset*> assets;
    EXPECT_EQ(MixerAsset::QueryByType(MixerAsset::kBackground, &assets, true), 0);
    Order order;
    for (auto* asset : assets) order.emplace_back(asset->id(), asset->rank());
    MediaModel::CleanQuery(&assets);
    return order;
  };
  MixerAsset* taken = nullptr;
  ASSERT_EQ(MixerAsset::TakeFreeSlot(MixerAsset::kBackground, &taken), 0);
  std::unique_ptr<MixerAsset> slot(taken);
  const int id = slot->id();
  EXPECT_EQ(backgrounds(), (Order{{1, 1}, {2, 2}, {3, 3}, {id, 4}}));
  struct Move {
    int rank;
    int stored;
    Order order;
  } moves[] = {{1, 1, {{id, 1}, {1, 2}, {2, 3}, {3, 4}}},
               {3, 3, {{1, 1}, {2, 2}, {id, 3}, {3, 4}}},
               {99, 4, {{1, 1}, {2, 2}, {3, 3}, {id, 4}}},
               {2, 2, {{1, 1}, {id, 2}, {2, 3}, {3, 4}}},
               {0, -1, {{1, 1}, {2, 2}, {3, 3}, {id, -1}}}};
  for (const auto& move : moves) {
    ASSERT_EQ(slot->UpdateRank(move.rank), 0);
    EXPECT_EQ(slot->rank(), move.stored) << move.rank;
    EXPECT_EQ(backgrounds(), move.order) << "rank " << move.rank;
  }
  EXPECT_EQ(Asset(MixerAsset::kOverlay, 33)->rank(), 1);  // other kinds keep theirs

  // Layouts are ordered within their group only.
  ASSERT_EQ(Config(4)->UpdateRank(1), 0);
  MixerConfigGroup* group = nullptr;
  ASSERT_EQ(MixerConfigGroup::QueryByTypeName(MixerConfig::kVideo, "Single", &group), 0);
  std::unique_ptr<MixerConfigGroup> single(group);
  std::vector<int> ids;
  for (auto* config : single->configs()) ids.push_back(config->id());
  EXPECT_EQ(ids, (std::vector<int>{4, 1, 2, 3, 5}));
  EXPECT_EQ(Config(6)->rank(), 1);
}

// Removing a layout, background or overlay clears it from every theme that used it,
// enabled or not, and leaves the other bindings.
TEST_F(MixerModelTest, RemovalClearsTheReferenceFromEveryTheme) {
  struct Cascade {
    const char* what;
    int id;
    int (*query)(int, std::vector<Theme*>*);
    int (*remove)(int);
    int (*bound)(const Theme&);
  } cascades[] = {{"layout", 1, Theme::QueryByLayout, Theme::RemoveLayout,
                   [](const Theme& t) { return t.layout_id(); }},
                  {"background", 1, Theme::QueryByBackground, Theme::RemoveBackground,
                   [](const Theme& t) { return t.background_id(); }},
                  {"overlay", 33, Theme::QueryByOverlay, Theme::RemoveOverlay,
                   [](const Theme& t) { return t.overlay_id(); }}};
  // A disabled copy of the default theme.
  Exec("UPDATE theme SET layout_id = 1, background_id = 1, overlay_id = 33 WHERE id = 5");
  for (const auto& c : cascades) {
    SCOPED_TRACE(c.what);
    std::vector<Theme*> users;
    ASSERT_EQ(c.query(c.id, &users), 0);
    EXPECT_EQ(Ids(&users), (std::vector<int>{1, 5}));
    ASSERT_EQ(c.remove(c.id), 0);
    ASSERT_EQ(c.query(c.id, &users), 0);
    EXPECT_TRUE(users.empty());
    for (int id : {1, 5}) EXPECT_EQ(c.bound(*LoadTheme(id)), 0);
    EXPECT_EQ(c.remove(c.id), 0);  // nothing left to clear is not an error
  }
  EXPECT_EQ(LoadTheme(1)->name(), "Default");
}

TEST_F(MixerModelTest, ThemeBindingsAreWrittenByIdAndAMissingObjectChangesNothing) {
  auto theme = LoadTheme(1);
  theme->layout(Config(14).get());  // the theme keeps the id only
  theme->background(nullptr);
  theme->name("Quad");
  ASSERT_EQ(Theme::Update(theme.get()), 0);
  auto stored = LoadTheme(1);
  EXPECT_EQ(stored->name(), "Quad");
  ASSERT_NE(stored->layout(), nullptr);
  EXPECT_EQ(stored->layout()->id(), 14);
  EXPECT_EQ(stored->background(), nullptr);
  EXPECT_EQ(stored->overlay_id(), 33);

  auto gone = Config(12);
  Exec("PRAGMA foreign_keys=OFF; DELETE FROM mixer_config WHERE id = 12; PRAGMA foreign_keys=ON;");
  stored->name("Broken");
  stored->layout(gone.get());
  EXPECT_EQ(Theme::Update(stored.get()), -2);
  EXPECT_EQ(LoadTheme(1)->name(), "Quad");
  EXPECT_EQ(LoadTheme(1)->layout_id(), 14);
}

TEST_F(MixerModelTest, LayoutWindowsRoundTripThroughTheDatabase) {
  auto triple = Config(13);
  // Source id 0 keeps the window's source; the geometry and crop change.
  ASSERT_EQ(triple->SetVideoLayoutContent(1, MixerConfigVideoLayout(0, 0.3, 0.4, 0.1, 0.2, 5, 1)),
            0);
  ASSERT_EQ(triple->SetVideoLayoutContent(2, MixerConfigVideoLayout(9, 0.5, 0.5, 0.5, 0.5, 0, 0)),
            0);
  std::vector<MixerConfigVideoLayout*> windows;
  ASSERT_EQ(Config(13)->GetVideoLayout(&windows), 0);
  ASSERT_EQ(windows.size(), 3u);
  EXPECT_EQ(windows[0]->id(), 1);
  EXPECT_DOUBLE_EQ(windows[0]->w(), 0.5);
  const MixerConfigVideoLayout& changed = *windows[1];
  EXPECT_EQ(changed.id(), 2);
  EXPECT_EQ(std::vector<double>({changed.w(), changed.h(), changed.x(), changed.y()}),
            std::vector<double>({0.3, 0.4, 0.1, 0.2}));
  EXPECT_EQ(changed.z(), 5);
  EXPECT_EQ(changed.crop(), 1);
  EXPECT_EQ(windows[2]->id(), 9);
  MediaModel::CleanQuery(&windows);
  EXPECT_EQ(Config(13)->content(), triple->content());

  for (int index : {-1, 3, 1000})
    EXPECT_EQ(triple->SetVideoLayoutContent(index, MixerConfigVideoLayout()), -3) << index;
  EXPECT_EQ(Config(13)->content(), triple->content());
}

// Content is empty or a JSON object; only a list of window objects is a layout.
TEST_F(MixerModelTest, ContentThatIsNotALayoutYieldsNoWindows) {
  struct Case {
    const char* content;
    int stored;  // content() result; a refused text leaves the content as it was
    int result;
    size_t windows;
  } cases[] = {{"", 0, 0, 0},
               {"{\"layout\":[]}", 0, 0, 0},
               {"{\"layout\":[{\"x\":0.5}]}", 0, 0, 1},
               {"{\"sources\":[1]}", 0, -3, 0},
               {"{\"layout\":[{\"id\":1},7]}", 0, -3, 0},
               {"{\"layout\":{}}", 0, -3, 0},
               {"[1,2]", -3, 0, 1},
               {"{\"layout\":[", -3, 0, 1},
               {nullptr, -3, 0, 1}};
  auto config = Config(1);
  const std::string one_window = config->content();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.content ? c.content : "null");
    ASSERT_EQ(config->content(one_window), 0);
    EXPECT_EQ(config->content(c.content), c.stored);
    std::vector<MixerConfigVideoLayout*> windows;
    EXPECT_EQ(config->GetVideoLayout(&windows), c.result);
    EXPECT_EQ(windows.size(), c.windows);
    MediaModel::CleanQuery(&windows);
    if (c.result != 0) {
      EXPECT_EQ(config->SetVideoLayoutContent(0, MixerConfigVideoLayout()), -3);
    }
  }
  EXPECT_EQ(config->content("{\"a\":\"" + std::string(2 << 20, 'x') + "\"}"), -3);
}

TEST_F(MixerModelTest, AudioMixersAreFoundByTheOutputTheyFeed) {
  struct Case {
    const char* stream;
    bool fed;
  } cases[] = {{"audio-out1", true},
               {"audio-in1", false},  // an input
               {"display1", false},   // fed by the display mixer, a video mixer
               {"", false},
               {"audio-out", false}};
  for (const auto& c : cases) {
    std::unique_ptr<Mixer> mixer(query_mixer_from_audio_stream(c.stream));
    EXPECT_EQ(mixer != nullptr, c.fed) << c.stream;
    if (mixer) {
      EXPECT_EQ(mixer->name(), "zolo://audio/mixer/0");
    }
  }
  EXPECT_EQ(query_mixer_from_audio_stream(static_cast<const char*>(nullptr)), nullptr);

  std::unique_ptr<Mixer> line(query_mixer_from_audio_stream("audio-out1"));
  ASSERT_NE(line->config(), nullptr);
  EXPECT_TRUE(line->config()->IsAudioSourceContain(10));  // Audio-Mix
  EXPECT_FALSE(line->config()->IsAudioSourceContain(11));
}

TEST_F(MixerModelTest, AudioSourcesReadEitherFormAndNothingFromOtherContent) {
  struct Case {
    const char* content;
    bool contains_3;
  } cases[] = {{"{\"sources\":[3,4]}", true},
               {"{\"sources\":[{\"id\":3,\"volume\":80}]}", true},
               {"{\"sources\":[{\"id\":4}]}", false},
               {"", false},
               {"{\"layout\":[{\"id\":3}]}", false}};
  auto config = Config(51, MixerConfig::kAudio);
  for (const auto& c : cases) {
    ASSERT_EQ(config->content(c.content), 0);
    EXPECT_EQ(config->IsAudioSourceContain(3), c.contains_3) << c.content;
  }
  config->SetAudioSources({8, 0, -2, 9});
  ASSERT_EQ(MixerConfig::Update(config.get()), 0);
  std::vector<int> sources;
  ASSERT_EQ(Config(51, MixerConfig::kAudio)->GetAudioSources(&sources), 0);
  EXPECT_EQ(sources, (std::vector<int>{8, 9}));
}

TEST_F(MixerModelTest, MixerUpdateWritesBindingsAndOutputsAllOrNothing) {
  auto mixer = MixerNamed("zolo://audio/mixer/1", Mixer::kAudio);
  mixer->config(Config(53, MixerConfig::kAudio).get());
  mixer->outputs({"audio-usb-out", "", "phones \"left\""});
  ASSERT_EQ(Mixer::Update(mixer.get()), 0);
  std::unique_ptr<Mixer> phones(query_mixer_from_audio_stream("phones \"left\""));
  ASSERT_NE(phones, nullptr);
  EXPECT_EQ(phones->config_id(), 53);
  EXPECT_EQ(phones->outputs(), (std::vector<std::string>{"audio-usb-out", "phones \"left\""}));

  Exec(
      "CREATE TRIGGER refuse BEFORE INSERT ON mixer_output WHEN NEW.stream = 'bad' "
      "BEGIN SELECT RAISE(ABORT, 'refused'); END");
  mixer->config(nullptr);
  mixer->outputs({"other", "bad"});
  EXPECT_EQ(Mixer::Update(mixer.get()), -2);
  auto stored = MixerNamed("zolo://audio/mixer/1", Mixer::kAudio);
  EXPECT_EQ(stored->config_id(), 53);
  EXPECT_EQ(stored->outputs().size(), 2u);
}

TEST_F(MixerModelTest, AssetFilesResolveBelowTheSandboxRootAndStayInTheirFolder) {
  auto logo = Asset(MixerAsset::kOverlay, 33);
  const std::string folder = sandbox_->Path("/var/lib/zolo/media/assets/overlay/");
  EXPECT_EQ(logo->fullpath(), folder + "logo.png");
  EXPECT_EQ(logo->fullorigin(), folder + "logo.svg");
  struct Case {
    const char* path;
    const char* name;
    std::string expected;
  } cases[] = {{"/a/b/", "x.png", sandbox_->Path("/a/b/x.png")},
               {"file:///a/b", "x.png", sandbox_->Path("/a/b/x.png")},
               {"/a/b", "", ""},
               {"/a/b", "..", ""},
               {"/a/b", "../../etc/passwd", ""},
               {"", "x.png", ""},
               {"relative", "x.png", ""}};
  for (const auto& c : cases) {
    MixerAsset asset;
    asset.path(c.path);
    asset.name(c.name);
    EXPECT_EQ(asset.fullpath(), c.expected) << c.path << " + " << c.name;
    EXPECT_EQ(asset.fullpath(c.name), c.expected) << c.path << " + " << c.name;
  }
  EXPECT_EQ(MixerAsset().fullorigin(), "");
  EXPECT_EQ(logo->fullpath(static_cast<const char*>(nullptr)), "");
}

TEST_F(MixerModelTest, AssetOriginsAndLocationsRoundTrip) {
  auto slot = Asset(MixerAsset::kOverlay, 34);
  std::vector<std::string> origins;
  slot->origin("single.svg");
  ASSERT_EQ(slot->origins(&origins), 0);
  EXPECT_EQ(origins, std::vector<std::string>{"single.svg"});
  slot->origins(std::vector<std::string>{"a.svg", "", "b \"quoted\".svg"});
  slot->SetLocation({{0.25, 0.75}, {0.5, 0.5}});
  ASSERT_EQ(MixerAsset::Update(slot.get()), 0);
  auto stored = Asset(MixerAsset::kOverlay, 34);
  origins.clear();
  ASSERT_EQ(stored->origins(&origins), 0);
  EXPECT_EQ(origins, (std::vector<std::string>{"a.svg", "b \"quoted\".svg"}));
  double x = 0, y = 0;
  ASSERT_EQ(stored->ParseLocation(&x, &y), 0);
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(0.25, 0.75));

  struct Case {
    const char* location;
    int result;
    size_t count;
  } cases[] = {{"", 0, 0},
               {"[{\"x\":0.1,\"y\":0.2},{\"x\":0.3,\"y\":0.4}]", 0, 2},
               {"{\"x\":0.1,\"y\":0.2}", 0, 1},
               {"[{\"x\":0.1}]", -3, 0},
               {"0.5,0.5", -3, 0}};
  for (const auto& c : cases) {
    MixerAsset asset;
    asset.location(c.location);
    std::vector<MixerAssetLocation> positions;
    EXPECT_EQ(asset.ParseLocation(&positions), c.result) << c.location;
    EXPECT_EQ(positions.size(), c.count) << c.location;
    EXPECT_EQ(asset.ParseLocation(&x, &y), c.count > 0 ? 0 : -3) << c.location;
  }
}

TEST_F(MixerModelTest, BrokenDatabaseIsReportedNotThrown) {
  Exec("DROP TABLE mixer_output");
  Mixer* mixer = nullptr;
  EXPECT_EQ(Mixer::QueryByName(Mixer::kVideo, "zolo://video/mixer/0", &mixer), -1);
  EXPECT_EQ(mixer, nullptr);
  EXPECT_EQ(query_mixer_from_audio_stream("audio-out1"), nullptr);
}

TEST_F(MixerModelTest, EverythingFailsCleanlyWhileNotConnected) {
  auto mixer = MixerNamed("zolo://video/mixer/1");  // bindings not read yet
  auto config = Config(13);
  auto asset = Asset(MixerAsset::kBackground, 1);
  auto theme = LoadTheme(1);
  MediaModel::Instance()->Release();

  Mixer* out_mixer = nullptr;
  MixerConfig* out_config = nullptr;
  MixerAsset* out_asset = nullptr;
  Theme* out_theme = nullptr;
  std::vector<MixerConfig*> configs;
  std::vector<Theme*> themes;
  const int results[] = {
      Mixer::QueryByName(Mixer::kVideo, "zolo://video/mixer/0", &out_mixer),
      Mixer::Update(mixer.get()),
      MixerConfig::QueryById(MixerConfig::kVideo, 1, &out_config),
      MixerConfig::QueryByType(MixerConfig::kVideo, &configs, false, false),
      MixerConfig::TakeFreeSlot(MixerConfig::kVideo, &out_config),
      MixerConfig::Update(config.get()),
      config->UpdateRank(1),
      config->SetVideoLayoutContent(0, MixerConfigVideoLayout()),
      MixerAsset::QueryById(MixerAsset::kBackground, 1, &out_asset),
      MixerAsset::Count(MixerAsset::kBackground, true),
      MixerAsset::Update(asset.get()),
      asset->UpdateRank(2),
      Theme::QueryEnabled(&themes, true),
      Theme::TakeFreeSlot(&out_theme),
      Theme::RemoveBackground(1),
      Theme::Update(theme.get()),
  };
  for (size_t i = 0; i < sizeof(results) / sizeof(results[0]); ++i)
    EXPECT_EQ(results[i], -1) << "call " << i;
  EXPECT_EQ(query_mixer_from_audio_stream("audio-out1"), nullptr);
  EXPECT_EQ(mixer->config(), nullptr);
  EXPECT_EQ(mixer->background(), nullptr);
  EXPECT_NE(config->group(), nullptr);  // read with the configuration
  EXPECT_EQ(config->group(1), nullptr);
  EXPECT_EQ(asset->rank(), 1);
  EXPECT_TRUE(configs.empty() && themes.empty());
  EXPECT_TRUE(out_mixer == nullptr && out_config == nullptr && out_theme == nullptr);
}

}  // namespace
