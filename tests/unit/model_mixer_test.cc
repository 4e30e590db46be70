// The mixer model: mixers, layouts and their groups, mixer assets and themes, on a fresh
// database made from initial.sql.
#include <gtest/gtest.h>
#include <zolo_model/media_model.h>
#include <zolo_model/mixer.h>

#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
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
  // The windows of a layout as "id x y z w h crop;" each, after "error N" when refused.
  static std::string Windows(const MixerConfig& config) {
    std::vector<MixerConfigVideoLayout*> windows;
    std::ostringstream text;
    if (int result = config.GetVideoLayout(&windows)) text << "error " << result;
    for (auto* w : windows)
      text << w->id() << ' ' << w->x() << ' ' << w->y() << ' ' << w->z() << ' ' << w->w() << ' '
           << w->h() << ' ' << w->crop() << ';';
    MediaModel::CleanQuery(&windows);
    return text.str();
  }
};

TEST_F(MixerModelTest, LookupsFollowBindingsAndRefuseUnknownKeys) {
  auto main = MixerNamed("zolo://video/mixer/0");
  ASSERT_TRUE(main->config() && main->background() && main->theme() && main->theme()->overlay());
  EXPECT_EQ(main->config()->group(0)->name(), "Single");
  EXPECT_EQ(main->background()->name(), "black.png");
  EXPECT_EQ(main->theme()->overlay()->name(), "logo.png");
  EXPECT_EQ(main->foreground(), nullptr);
  EXPECT_EQ(MixerNamed("zolo://video/display_mixer/0")->outputs(),
            std::vector<std::string>{"display1"});

  Mixer* mixer = nullptr;
  MixerConfig* config = nullptr;
  MixerConfigGroup* group = nullptr;
  MixerAsset* asset = nullptr;
  Theme* theme = nullptr;
  EXPECT_EQ(Mixer::QueryByName(0, "zolo://video/mixer/9", &mixer), -5);
  EXPECT_EQ(Mixer::QueryByName(1, "zolo://video/mixer/0", &mixer), -5);  // wrong type
  EXPECT_EQ(Mixer::QueryByName(0, static_cast<const char*>(nullptr), &mixer), -3);
  EXPECT_EQ(Mixer::QueryById(999, &mixer), -5);
  EXPECT_EQ(MixerConfig::QueryById(MixerConfig::kAudio, 1, &config), -5);
  EXPECT_EQ(MixerConfigGroup::QueryByTypeName(1, "Display", &group), -5);
  EXPECT_EQ(MixerConfigGroup::QueryByTypeName(0, nullptr, &group), -3);
  EXPECT_EQ(MixerAsset::QueryById(MixerAsset::kOverlay, 1, &asset), -5);
  EXPECT_EQ(MixerAsset::QueryById(0, 1, nullptr), -3);
  EXPECT_EQ(Theme::QueryById(99, &theme), -5);
  EXPECT_EQ(Theme::QueryEnabled(nullptr, true), -3);
  EXPECT_EQ(Theme::TakeFreeSlot(nullptr), -3);
  EXPECT_EQ(MixerAsset::Update(nullptr), -3);
  // Objects never stored have no row to write.
  EXPECT_EQ(Mixer::Update(std::make_unique<Mixer>().get()), -5);
  EXPECT_EQ(MixerConfig::Update(std::make_unique<MixerConfig>().get()), -5);
  EXPECT_EQ(MixerAsset().UpdateRank(1), -5);
  EXPECT_TRUE(!mixer && !config && !group && !asset && !theme);
}

// Slots are taken until none is left, each goes to the end of its order, a freed slot
// leaves the order and is the next one taken.
template <class T, class Take, class ListFree>
void CheckPool(const char* what, size_t free, Take take, ListFree list_free) {
  SCOPED_TRACE(what);
  auto count_free = [&] {
    std::vector<T*> list;
    EXPECT_EQ(list_free(&list), 0);
    return Ids(&list).size();
  };
  EXPECT_EQ(count_free(), free);
  std::vector<std::unique_ptr<T>> taken;
  for (T* slot = nullptr; taken.size() <= free && take(&slot) == 0; slot = nullptr)
    taken.emplace_back(slot);
  ASSERT_EQ(taken.size(), free);
  T* none = nullptr;
  EXPECT_EQ(take(&none), -2);
  EXPECT_EQ(count_free(), 0u);
  EXPECT_EQ(taken.back()->rank(), taken.front()->rank() + static_cast<int>(free) - 1);

  taken[3]->enabled(false);
  ASSERT_EQ(T::Update(taken[3].get()), 0);
  EXPECT_EQ(taken[3]->rank(), -1);
  EXPECT_EQ(count_free(), 1u);
  ASSERT_EQ(take(&none), 0);
  EXPECT_EQ(std::unique_ptr<T>(none)->id(), taken[3]->id());
}

TEST_F(MixerModelTest, SlotPoolsRunOutAndFreedSlotsComeBack) {
  const int video = MixerConfig::kVideo, overlay = MixerAsset::kOverlay;
  CheckPool<MixerConfig>(
      "layouts", 32, [=](MixerConfig** out) { return MixerConfig::TakeFreeSlot(video, out); },
      [=](std::vector<MixerConfig*>* out) {
        return MixerConfig::QueryByType(video, out, false, false);
      });
  CheckPool<MixerAsset>(
      "overlays", 15, [=](MixerAsset** out) { return MixerAsset::TakeFreeSlot(overlay, out); },
      [=](std::vector<MixerAsset*>* out) { return MixerAsset::QueryByType(overlay, out, false); });
  CheckPool<Theme>("themes", 15, Theme::TakeFreeSlot,
                   [](std::vector<Theme*>* out) { return Theme::QueryEnabled(out, false); });
}

TEST_F(MixerModelTest, ThreadsTakingSlotsNeverShareOne) {
  std::vector<std::vector<int>> taken(4);
  std::vector<std::thread> threads;
  for (auto& mine : taken) {
    threads.emplace_back([&mine] {
      for (Theme* theme = nullptr; Theme::TakeFreeSlot(&theme) == 0; delete theme)
        mine.push_back(theme->id());
    });
  }
  for (auto& thread : threads) thread.join();
  std::multiset<int> all;
  for (const auto& mine : taken) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), 15u);
  EXPECT_EQ(std::set<int>(all.begin(), all.end()).size(), 15u);
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
  auto slot = Load<MixerAsset>(MixerAsset::TakeFreeSlot, MixerAsset::kBackground);
  const int id = slot->id();
  EXPECT_EQ(backgrounds(), (Order{{1, 1}, {2, 2}, {3, 3}, {id, 4}}));
  const struct {
    int rank, stored;
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
  auto single = Load<MixerConfigGroup>(
      static_cast<int (*)(int, const char*, MixerConfigGroup**)>(MixerConfigGroup::QueryByTypeName),
      MixerConfig::kVideo, "Single");
  std::vector<int> ids;
  for (auto* config : single->configs()) ids.push_back(config->id());
  EXPECT_EQ(ids, (std::vector<int>{4, 1, 2, 3, 5}));
  EXPECT_EQ(Config(6)->rank(), 1);
}

// Removing a layout, background or overlay clears it from every theme that used it,
// enabled or not, and leaves the other bindings.
TEST_F(MixerModelTest, RemovalClearsTheReferenceFromEveryTheme) {
  const struct {
    int id;
    int (*query)(int, std::vector<Theme*>*);
    int (*remove)(int);
    int (*bound)(const Theme&);
  } cascades[] = {
      {1, Theme::QueryByLayout, Theme::RemoveLayout, [](const Theme& t) { return t.layout_id(); }},
      {1, Theme::QueryByBackground, Theme::RemoveBackground,
       [](const Theme& t) { return t.background_id(); }},
      {33, Theme::QueryByOverlay, Theme::RemoveOverlay,
       [](const Theme& t) { return t.overlay_id(); }}};
  // A disabled copy of the default theme.
  Exec("UPDATE theme SET layout_id = 1, background_id = 1, overlay_id = 33 WHERE id = 5");
  for (const auto& c : cascades) {
    SCOPED_TRACE(&c - cascades);
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
  const std::string windows = "1 0 0.25 0 0.5 0.5 0;2 0.1 0.2 5 0.3 0.4 1;9 0.5 0.5 0 0.5 0.5 0;";
  EXPECT_EQ(Windows(*Config(13)), windows);
  for (int index : {-1, 3, 1000})
    EXPECT_EQ(triple->SetVideoLayoutContent(index, MixerConfigVideoLayout()), -3) << index;
  EXPECT_EQ(Windows(*Config(13)), windows);
}

// Content is empty or a JSON object; only a list of window objects is a layout.
TEST_F(MixerModelTest, ContentThatIsNotALayoutYieldsNoWindows) {
  const char* kAsBefore = "1 0 0 0 1 1 0;";  // a refused text leaves the content as it was
  const struct {
    const char* content;
    int stored;
    std::string windows;
  } cases[] = {{"", 0, ""},
               {"{\"layout\":[]}", 0, ""},
               {"{\"layout\":[{\"x\":0.5}]}", 0, "0 0.5 0 0 0 0 0;"},
               {"{\"sources\":[1]}", 0, "error -3"},
               {"{\"layout\":[{\"id\":1},7]}", 0, "error -3"},
               {"{\"layout\":{}}", 0, "error -3"},
               {"[1,2]", -3, kAsBefore},
               {"{\"layout\":[", -3, kAsBefore},
               {nullptr, -3, kAsBefore}};
  auto config = Config(1);
  const std::string one_window = config->content();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.content ? c.content : "null");
    ASSERT_EQ(config->content(one_window), 0);
    EXPECT_EQ(config->content(c.content), c.stored);
    EXPECT_EQ(Windows(*config), c.windows);
    if (c.windows.find(';') == std::string::npos) {  // no window to set
      EXPECT_EQ(config->SetVideoLayoutContent(0, MixerConfigVideoLayout()), -3);
    }
  }
  EXPECT_EQ(config->content("{\"a\":\"" + std::string(2 << 20, 'x') + "\"}"), -3);
}

// Audio mixers are found by the output they feed; sources read in either form, written
// as objects; outputs are written all or nothing.
TEST_F(MixerModelTest, AudioMixersSourcesAndOutputs) {
  for (const char* stream : {"display1", "audio-out", "", "audio-in1"})
    EXPECT_EQ(query_mixer_from_audio_stream(stream), nullptr) << stream;
  EXPECT_EQ(query_mixer_from_audio_stream(static_cast<const char*>(nullptr)), nullptr);
  std::unique_ptr<Mixer> line(query_mixer_from_audio_stream("audio-out1"));
  ASSERT_NE(line, nullptr);
  EXPECT_EQ(line->name(), "zolo://audio/mixer/0");
  ASSERT_NE(line->config(), nullptr);
  EXPECT_TRUE(line->config()->IsAudioSourceContain(10));

  const std::pair<const char*, bool> contents[] = {
      {"{\"sources\":[3,4]}", true},
      {"{\"sources\":[{\"id\":3,\"volume\":8}]}", true},
      {"{\"sources\":[{\"id\":4}]}", false},
      {"", false},
      {"{\"layout\":[{\"id\":3}]}", false}};
  auto config = Config(51, MixerConfig::kAudio);
  for (const auto& [content, contains_3] : contents) {
    ASSERT_EQ(config->content(content), 0);
    EXPECT_EQ(config->IsAudioSourceContain(3), contains_3) << content;
  }
  config->SetAudioSources({8, 0, -2, 9});
  ASSERT_EQ(MixerConfig::Update(config.get()), 0);
  std::vector<int> sources;
  ASSERT_EQ(Config(51, MixerConfig::kAudio)->GetAudioSources(&sources), 0);
  EXPECT_EQ(sources, (std::vector<int>{8, 9}));

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
  EXPECT_EQ(stored->outputs(), phones->outputs());
}

// A file is a plain name inside an absolute folder, below the sandbox root.
TEST_F(MixerModelTest, AssetFilesResolveBelowTheSandboxRootAndStayInTheirFolder) {
  const struct {
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
    asset.origin(c.name);
    EXPECT_EQ(asset.fullpath(), c.expected) << c.path << " + " << c.name;
    EXPECT_EQ(asset.fullpath(c.name), c.expected) << c.path << " + " << c.name;
    EXPECT_EQ(asset.fullorigin(), c.expected) << c.path << " + " << c.name;
  }
  EXPECT_EQ(MixerAsset().fullpath(static_cast<const char*>(nullptr)), "");
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

  const std::tuple<const char*, int, size_t> cases[] = {
      {"", 0, 0},
      {"[{\"x\":0.1,\"y\":0.2},{\"x\":0.3,\"y\":0.4}]", 0, 2},
      {"{\"x\":0.1,\"y\":0.2}", 0, 1},
      {"[{\"x\":0.1}]", -3, 0},
      {"0.5,0.5", -3, 0}};
  for (const auto& [location, result, count] : cases) {
    MixerAsset asset;
    asset.location(location);
    std::vector<MixerAssetLocation> positions;
    EXPECT_EQ(asset.ParseLocation(&positions), result) << location;
    EXPECT_EQ(positions.size(), count) << location;
    EXPECT_EQ(asset.ParseLocation(&x, &y), count > 0 ? 0 : -3) << location;
  }
}

// A damaged database and a released one both give negative results, never a throw.
TEST_F(MixerModelTest, EverythingFailsCleanlyOnABrokenOrReleasedDatabase) {
  auto mixer = MixerNamed("zolo://video/mixer/1");  // bindings not read yet
  auto config = Config(13);
  auto asset = Asset(MixerAsset::kBackground, 1);
  auto theme = LoadTheme(1);
  Mixer* out_mixer = nullptr;
  Exec("DROP TABLE mixer_output");
  EXPECT_EQ(Mixer::QueryByName(Mixer::kVideo, "zolo://video/mixer/0", &out_mixer), -1);
  EXPECT_EQ(query_mixer_from_audio_stream("audio-out1"), nullptr);
  MediaModel::Instance()->Release();

  MixerConfig* out_config = nullptr;
  Theme* out_theme = nullptr;
  std::vector<MixerConfig*> configs;
  std::vector<Theme*> themes;
  const int results[] = {
      Mixer::Update(mixer.get()),
      MixerConfig::QueryByType(MixerConfig::kVideo, &configs, false, false),
      MixerConfig::TakeFreeSlot(MixerConfig::kVideo, &out_config),
      MixerConfig::Update(config.get()),
      config->UpdateRank(1),
      config->SetVideoLayoutContent(0, MixerConfigVideoLayout()),
      MixerAsset::Count(MixerAsset::kBackground, true),
      MixerAsset::Update(asset.get()),
      Theme::QueryEnabled(&themes, true),
      Theme::TakeFreeSlot(&out_theme),
      Theme::RemoveBackground(1),
      Theme::Update(theme.get()),
  };
  for (size_t i = 0; i < std::size(results); ++i) EXPECT_EQ(results[i], -1) << "call " << i;
  EXPECT_EQ(mixer->config(), nullptr);
  EXPECT_EQ(mixer->background(), nullptr);
  EXPECT_NE(config->group(), nullptr);  // read with the configuration
  EXPECT_EQ(config->group(1), nullptr);
  EXPECT_EQ(asset->rank(), 1);
  EXPECT_TRUE(configs.empty() && themes.empty());
  EXPECT_TRUE(out_mixer == nullptr && out_config == nullptr && out_theme == nullptr);
}

}  // namespace
