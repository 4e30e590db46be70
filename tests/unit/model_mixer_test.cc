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

using MixerModelTest = zolo::test::ModelTest;

std::unique_ptr<MixerConfig> Config(int id, int type = MixerConfig::kVideo) {
  return Load<MixerConfig>(MixerConfig::QueryById, type, id);
}
std::unique_ptr<MixerAsset> Asset(int type, int id) {
  return Load<MixerAsset>(MixerAsset::QueryById, type, id);
}
std::unique_ptr<Theme> LoadTheme(int id) {
  return Load<Theme>(Theme::QueryById, id);
}
std::unique_ptr<Mixer> MixerNamed(const char* uri, int type = Mixer::kVideo) {
  return Load<Mixer>(static_cast<int (*)(int, const char*, Mixer**)>(Mixer::QueryByName), type,
                     uri);
}
// The windows of a layout as "id x y z w h crop;" each, after "error N" when refused.
std::string Windows(const MixerConfig& config) {
  std::vector<MixerConfigVideoLayout*> windows;
  std::ostringstream text;
  if (int result = config.GetVideoLayout(&windows)) text << "error " << result;
  for (auto* w : windows)
    text << w->id() << ' ' << w->x() << ' ' << w->y() << ' ' << w->z() << ' ' << w->w() << ' '
         << w->h() << ' ' << w->crop() << ';';
  MediaModel::CleanQuery(&windows);
  return text.str();
}

// Slots are taken until none is left, each goes to the end of its order; a freed slot
// leaves the order, is the one listed free and the next one taken.
template <class T, class Take, class ListFree>
void CheckPool(const char* what, size_t free, Take take, ListFree list_free) {
  SCOPED_TRACE(what);
  std::vector<std::unique_ptr<T>> taken;
  T* slot = nullptr;
  for (; taken.size() <= free && take(&slot) == 0; slot = nullptr) taken.emplace_back(slot);
  ASSERT_EQ(taken.size(), free);
  EXPECT_EQ(take(&slot), -2);
  EXPECT_EQ(taken.back()->rank(), taken.front()->rank() + static_cast<int>(free) - 1);
  taken[3]->enabled(false);
  ASSERT_EQ(T::Update(taken[3].get()), 0);
  EXPECT_EQ(taken[3]->rank(), -1);
  std::vector<T*> listed;
  ASSERT_EQ(list_free(&listed), 0);
  EXPECT_EQ(Ids(&listed), std::vector<int>{taken[3]->id()});
  ASSERT_EQ(take(&slot), 0);
  EXPECT_EQ(std::unique_ptr<T>(slot)->id(), taken[3]->id());
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
  std::vector<int> taken[4];
  std::vector<std::thread> threads;
  for (auto& mine : taken)
    threads.emplace_back([&mine] {
      for (Theme* theme = nullptr; Theme::TakeFreeSlot(&theme) == 0; delete theme)
        mine.push_back(theme->id());
    });
  for (auto& thread : threads) thread.join();
  std::set<int> all;
  for (const auto& mine : taken) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), 15u);
  EXPECT_EQ(taken[0].size() + taken[1].size() + taken[2].size() + taken[3].size(), 15u);
}

TEST_F(MixerModelTest, RankMovesRenumberOnlyTheirOwnOrder) {
  auto slot = Load<MixerAsset>(MixerAsset::TakeFreeSlot, MixerAsset::kBackground);
  auto order = [&] {  // "id:rank" of the enabled backgrounds in list order; "s" the slot
    std::vector<MixerAsset*> assets;
    EXPECT_EQ(MixerAsset::QueryByType(MixerAsset::kBackground, &assets, true), 0);
    std::string text;
    for (auto* asset : assets)
      text += (asset->id() == slot->id() ? "s" : std::to_string(asset->id())) + ":" +
              std::to_string(asset->rank()) + " ";
    MediaModel::CleanQuery(&assets);
    return text;
  };
  const std::tuple<int, int, const char*> moves[] = {{1, 1, "s:1 1:2 2:3 3:4 "},
                                                     {3, 3, "1:1 2:2 s:3 3:4 "},
                                                     {99, 4, "1:1 2:2 3:3 s:4 "},
                                                     {2, 2, "1:1 s:2 2:3 3:4 "},
                                                     {0, -1, "1:1 2:2 3:3 s:-1 "}};
  for (const auto& [rank, stored, expected] : moves) {
    ASSERT_EQ(slot->UpdateRank(rank), 0);
    EXPECT_EQ(slot->rank(), stored) << rank;
    EXPECT_EQ(order(), expected) << rank;
  }
  EXPECT_EQ(Asset(MixerAsset::kOverlay, 33)->rank(), 1);  // other kinds keep theirs

  // Layouts are ordered within their group only.
  ASSERT_EQ(Config(4)->UpdateRank(1), 0);
  auto single = Load<MixerConfigGroup>(MixerConfigGroup::QueryById, 1);
  std::vector<int> ids;
  for (auto* config : single->configs()) ids.push_back(config->id());
  EXPECT_EQ(ids, (std::vector<int>{4, 1, 2, 3, 5}));
  EXPECT_EQ(Config(6)->rank(), 1);
}

// Removing a layout, background or overlay clears it from every theme that used it,
// enabled or not, and leaves the other bindings.
TEST_F(MixerModelTest, RemovalClearsTheReferenceFromEveryTheme) {
  const std::tuple<int, int (*)(int, std::vector<Theme*>*), int (*)(int)> cascades[] = {
      {1, Theme::QueryByLayout, Theme::RemoveLayout},
      {1, Theme::QueryByBackground, Theme::RemoveBackground},
      {33, Theme::QueryByOverlay, Theme::RemoveOverlay}};
  // A disabled copy of the default theme.
  Exec("UPDATE theme SET layout_id = 1, background_id = 1, overlay_id = 33 WHERE id = 5");
  for (const auto& [id, query, remove] : cascades) {
    std::vector<Theme*> users;
    ASSERT_EQ(query(id, &users), 0);
    EXPECT_EQ(Ids(&users), (std::vector<int>{1, 5}));  // the earlier removals left it
    ASSERT_EQ(remove(id), 0);
    ASSERT_EQ(query(id, &users), 0);
    EXPECT_TRUE(users.empty());
    EXPECT_EQ(remove(id), 0);  // nothing left to clear is not an error
  }
  EXPECT_EQ(LoadTheme(1)->name(), "Default");
}

// Bindings are kept as ids and loaded on first use; a binding to a missing object changes
// nothing.
TEST_F(MixerModelTest, BindingsLoadByIdAndAMissingObjectChangesNothing) {
  auto main = MixerNamed("zolo://video/mixer/0");
  ASSERT_TRUE(main->background() && main->theme() && !main->foreground());
  EXPECT_EQ(main->background()->name() + " " + main->theme()->name(), "black.png Default");

  auto theme = LoadTheme(1);
  theme->layout(Config(14).get());
  theme->background(nullptr);
  theme->name("Quad");
  ASSERT_EQ(Theme::Update(theme.get()), 0);
  auto stored = LoadTheme(1);
  ASSERT_TRUE(stored->layout() && stored->layout()->id() == 14 && !stored->background());
  EXPECT_EQ(stored->name() + " " + std::to_string(stored->overlay_id()), "Quad 33");

  auto gone = Config(12);
  Exec("PRAGMA foreign_keys=OFF; DELETE FROM mixer_config WHERE id = 12; PRAGMA foreign_keys=ON;");
  stored->name("Broken");
  stored->layout(gone.get());
  EXPECT_EQ(Theme::Update(stored.get()), -2);
  EXPECT_EQ(LoadTheme(1)->name() + " " + std::to_string(LoadTheme(1)->layout_id()), "Quad 14");
}

// Content is empty or a JSON object; only a list of window objects is a layout, only a
// "sources" list (ids or objects with "id") holds audio sources. Windows are written at once.
TEST_F(MixerModelTest, ContentIsReadAsWindowsOrSourcesAndWindowsRoundTrip) {
  auto triple = Config(13);
  // Source id 0 keeps the window's source; the geometry and crop change.
  ASSERT_EQ(triple->SetVideoLayoutContent(1, {0, 0.3, 0.4, 0.1, 0.2, 5, 1}), 0);
  ASSERT_EQ(triple->SetVideoLayoutContent(2, {9, 0.5, 0.5, 0.5, 0.5, 0, 0}), 0);
  for (int index : {-1, 3, 1000}) EXPECT_EQ(triple->SetVideoLayoutContent(index, {}), -3) << index;
  EXPECT_EQ(Windows(*Config(13)),
            "1 0 0.25 0 0.5 0.5 0;2 0.1 0.2 5 0.3 0.4 1;9 0.5 0.5 0 0.5 0.5 0;");

  // Windows, then whether channel 3 is an audio source; a refused text leaves the content.
  const char* kAsBefore = "1 0 0 0 1 1 0;";
  const std::tuple<const char*, int, std::string, bool> cases[] = {
      {"", 0, "", false},
      {"{\"layout\":[]}", 0, "", false},
      {"{\"layout\":[{\"x\":0.5,\"id\":3}]}", 0, "3 0.5 0 0 0 0 0;", false},
      {"{\"sources\":[3,4]}", 0, "error -3", true},
      {"{\"sources\":[{\"id\":3,\"volume\":8}]}", 0, "error -3", true},
      {"{\"sources\":[{\"id\":4}]}", 0, "error -3", false},
      {"{\"layout\":[{\"id\":1},7]}", 0, "error -3", false},
      {"{\"layout\":{}}", 0, "error -3", false},
      {"[1,2]", -3, kAsBefore, false},
      {"{\"layout\":[", -3, kAsBefore, false},
      {nullptr, -3, kAsBefore, false}};
  auto config = Config(1);
  const std::string one_window = config->content();
  for (const auto& [content, stored, windows, source_3] : cases) {
    SCOPED_TRACE(content ? content : "null");
    ASSERT_EQ(config->content(one_window), 0);
    EXPECT_EQ(config->content(content), stored);
    EXPECT_EQ(Windows(*config), windows);
    EXPECT_EQ(config->IsAudioSourceContain(3), source_3);
    if (windows.find(';') == std::string::npos) {  // no window to set
      EXPECT_EQ(config->SetVideoLayoutContent(0, {}), -3);
    }
  }
  EXPECT_EQ(config->content("{\"a\":\"" + std::string(2 << 20, 'x') + "\"}"), -3);
}

// Audio mixers are found by the output they feed; sources are written as objects and
// outputs all or nothing.
TEST_F(MixerModelTest, AudioMixersSourcesAndOutputs) {
  auto fed = [](const char* stream) {  // "name config: outputs" of the mixer feeding `stream`
    std::unique_ptr<Mixer> mixer(query_mixer_from_audio_stream(stream));
    if (!mixer) return std::string("none");
    std::string text =
        mixer->name() + " " + std::to_string(mixer->config() ? mixer->config()->id() : 0) + ":";
    for (const auto& output : mixer->outputs()) text += " " + output;
    return text;
  };
  for (const char* stream : {"display1", "audio-out", "", "audio-in1"})
    EXPECT_EQ(fed(stream), "none") << stream;
  EXPECT_EQ(query_mixer_from_audio_stream(static_cast<const char*>(nullptr)), nullptr);
  EXPECT_EQ(fed("audio-out1"), "zolo://audio/mixer/0 51: audio-out1");

  auto config = Config(51, MixerConfig::kAudio);
  config->SetAudioSources({8, 0, -2, 9});
  ASSERT_EQ(MixerConfig::Update(config.get()), 0);
  std::vector<int> sources;
  ASSERT_EQ(Config(51, MixerConfig::kAudio)->GetAudioSources(&sources), 0);
  EXPECT_EQ(sources, (std::vector<int>{8, 9}));

  auto mixer = MixerNamed("zolo://audio/mixer/1", Mixer::kAudio);
  mixer->config(Config(53, MixerConfig::kAudio).get());
  mixer->outputs({"audio-usb-out", "", "phones \"left\""});
  ASSERT_EQ(Mixer::Update(mixer.get()), 0);
  const std::string written = "zolo://audio/mixer/1 53: audio-usb-out phones \"left\"";
  EXPECT_EQ(fed("phones \"left\""), written);
  Exec(
      "CREATE TRIGGER refuse BEFORE INSERT ON mixer_output WHEN NEW.stream = 'bad' "
      "BEGIN SELECT RAISE(ABORT, 'refused'); END");
  mixer->config(nullptr);
  mixer->outputs({"other", "bad"});
  EXPECT_EQ(Mixer::Update(mixer.get()), -2);
  EXPECT_EQ(fed("audio-usb-out"), written);
}

// A file is a plain name inside an absolute folder, below the sandbox root.
TEST_F(MixerModelTest, AssetFilesStayInTheirFolderAndOriginsAndLocationsRoundTrip) {
  const std::string file = sandbox_->Path("/a/b/x.png");
  // clang-format off
  const std::tuple<const char*, const char*, std::string> cases[] = {
      {"/a/b/", "x.png", file},
      {"file:///a/b", "x.png", file},
      {"/a/b", "", ""},
      {"/a/b", "..", ""},
      {"/a/b", "../../etc/passwd", ""},
      {"", "x.png", ""},
      {"relative", "x.png", ""},
  };
  // clang-format on
  for (const auto& [path, name, expected] : cases) {
    MixerAsset asset;
    asset.path(path);
    asset.name(name);
    asset.origin(name);
    EXPECT_EQ(asset.fullpath() + "|" + asset.fullpath(name) + "|" + asset.fullorigin(),
              expected + "|" + expected + "|" + expected)
        << path << " + " << name;
  }
  EXPECT_EQ(MixerAsset().fullpath(static_cast<const char*>(nullptr)), "");

  // Origins and locations survive a write, quotes included; broken locations are refused.
  auto slot = Asset(MixerAsset::kOverlay, 34);
  std::vector<std::string> origins;
  slot->origin("single.svg");
  ASSERT_EQ(slot->origins(&origins), 0);  // no list: the one origin
  slot->origins(std::vector<std::string>{"a.svg", "", "b \"quoted\".svg"});
  slot->SetLocation({{0.25, 0.75}, {0.5, 0.5}});
  ASSERT_EQ(MixerAsset::Update(slot.get()), 0);
  auto stored = Asset(MixerAsset::kOverlay, 34);
  ASSERT_EQ(stored->origins(&origins), 0);  // appends
  EXPECT_EQ(origins, (std::vector<std::string>{"single.svg", "a.svg", "b \"quoted\".svg"}));
  double x = 0, y = 0;
  ASSERT_EQ(stored->ParseLocation(&x, &y), 0);
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(0.25, 0.75));

  const std::tuple<const char*, int, size_t> locations[] = {
      {"", 0, 0},
      {"[{\"x\":0.1,\"y\":0.2},{\"x\":0.3,\"y\":0.4}]", 0, 2},
      {"{\"x\":0.1,\"y\":0.2}", 0, 1},
      {"[{\"x\":0.1}]", -3, 0},
      {"0.5,0.5", -3, 0}};
  for (const auto& [location, result, count] : locations) {
    MixerAsset asset;
    asset.location(location);
    std::vector<MixerAssetLocation> positions;
    EXPECT_EQ(asset.ParseLocation(&positions), result) << location;
    EXPECT_EQ(positions.size(), count) << location;
    EXPECT_EQ(asset.ParseLocation(&x, &y), count > 0 ? 0 : -3) << location;
  }
}

// Unknown keys, wrong kinds and missing arguments are refused; a damaged database and a
// released one give -1, never a throw. Nothing is returned in any of these cases.
TEST_F(MixerModelTest, BadKeysAndBrokenOrReleasedDatabaseGiveNegativeResults) {
  auto mixer = MixerNamed("zolo://video/mixer/1");  // bindings not read yet
  auto config = Config(13);
  auto asset = Asset(MixerAsset::kBackground, 1);
  Mixer* out_mixer = nullptr;
  MixerConfig* out_config = nullptr;
  MixerConfigGroup* out_group = nullptr;
  MixerAsset* out_asset = nullptr;
  // The first asks for a mixer of the wrong type; the last three update objects never
  // stored, which have no row to write.
  const std::pair<int, int> refused[] = {
      {Mixer::QueryByName(1, "zolo://video/mixer/0", &out_mixer), -5},
      {Mixer::QueryByName(0, static_cast<const char*>(nullptr), &out_mixer), -3},
      {Mixer::QueryById(999, &out_mixer), -5},
      {MixerConfig::QueryById(MixerConfig::kAudio, 1, &out_config), -5},
      {MixerConfigGroup::QueryByTypeName(1, "Display", &out_group), -5},
      {MixerConfigGroup::QueryByTypeName(0, nullptr, &out_group), -3},
      {MixerAsset::QueryById(MixerAsset::kOverlay, 1, &out_asset), -5},
      {MixerAsset::QueryById(0, 1, nullptr), -3},
      {Theme::QueryEnabled(nullptr, true), -3},
      {Theme::TakeFreeSlot(nullptr), -3},
      {MixerAsset::Update(nullptr), -3},
      {Mixer::Update(std::make_unique<Mixer>().get()), -5},
      {MixerConfig::Update(std::make_unique<MixerConfig>().get()), -5},
      {MixerAsset().UpdateRank(1), -5},
  };
  for (size_t i = 0; i < std::size(refused); ++i)
    EXPECT_EQ(refused[i].first, refused[i].second) << "refused " << i;

  Exec("DROP TABLE mixer_output");
  EXPECT_EQ(Mixer::QueryByName(Mixer::kVideo, "zolo://video/mixer/0", &out_mixer), -1);
  EXPECT_EQ(query_mixer_from_audio_stream("audio-out1"), nullptr);
  MediaModel::Instance()->Release();
  std::vector<MixerConfig*> configs;
  const int results[] = {
      Mixer::Update(mixer.get()),
      MixerConfig::QueryByType(MixerConfig::kVideo, &configs, false, false),
      MixerConfig::TakeFreeSlot(MixerConfig::kVideo, &out_config),
      MixerConfig::Update(config.get()),
      config->UpdateRank(1),
      config->SetVideoLayoutContent(0, {}),
      MixerAsset::Count(MixerAsset::kBackground, true),
      MixerAsset::Update(asset.get()),
      Theme::RemoveBackground(1),
  };
  for (size_t i = 0; i < std::size(results); ++i) EXPECT_EQ(results[i], -1) << "call " << i;
  EXPECT_TRUE(!mixer->config() && !mixer->background() && configs.empty());
  // The group was read with the configuration; a failed write keeps the rank.
  EXPECT_TRUE(config->group() && !config->group(1) && asset->rank() == 1);
  EXPECT_TRUE(!out_mixer && !out_config && !out_group && !out_asset);
}

}  // namespace
