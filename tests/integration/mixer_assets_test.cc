// Mixer assets: queries, the file check, the slot pool, removal with its files, and the
// notifications of each kind.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "engine_fixture.h"

namespace {

namespace fs = std::filesystem;
using zolo::test::EngineTest;

constexpr const char* kBackgrounds = "/var/lib/zolo/media/assets/background";
constexpr const char* kOverlays = "/var/lib/zolo/media/assets/overlay";

template <class Record>
Record Picture(const char* path, const char* name, const char* origin = "", int rank = 0) {
  Record record{};
  std::snprintf(record.path, sizeof record.path, "%s", path);
  std::snprintf(record.name, sizeof record.name, "%s", name);
  std::snprintf(record.origin, sizeof record.origin, "%s", origin);
  record.rank = rank;
  return record;
}

class MixerAssetsTest : public EngineTest {
 protected:
  std::string Put(const std::string& folder, const std::string& name) {
    sandbox_->WriteFile(folder + "/" + name, zolo::test::TinyPng());
    return sandbox_->Path(folder + "/" + name);
  }
  std::string Backgrounds() {
    std::vector<zm_background> out;
    EXPECT_EQ(zm_get_background(0, &out), 0);
    std::string text;
    for (const auto& b : out) text += std::to_string(b.id) + ":" + b.name + " ";
    return text;
  }
};

TEST_F(MixerAssetsTest, QueriesShowAssetsInUseAndEveryForegroundForIntermission) {
  EXPECT_EQ(Backgrounds(), "1:black.png 2:grey.png 3:blue.png ");
  std::vector<zm_foreground> fg, im;
  ASSERT_EQ(zm_get_foreground(0, &fg), 0);
  ASSERT_EQ(zm_get_intermission(0, &im), 0);
  EXPECT_EQ(fg.size(), 1u);
  EXPECT_EQ(im.size(), 16u);  // every foreground slot, whatever its name, in use or not
  EXPECT_EQ(zm_get_foreground(18, &fg), -5);
  ASSERT_EQ(zm_get_intermission(18, &im), 0);
  EXPECT_STREQ(im.back().name, "intermission_2.png");

  std::vector<zm_overlay> overlays;
  ASSERT_EQ(zm_get_overlay(0, &overlays), 0);
  ASSERT_EQ(overlays.size(), 1u);
  EXPECT_EQ(overlays[0].origins, std::vector<std::string>{"logo.svg"});
  ASSERT_EQ(overlays[0].positions.size(), 1u);
  EXPECT_DOUBLE_EQ(overlays[0].positions[0].x, 0.85);
  std::vector<zm_logo> logos;
  ASSERT_EQ(zm_get_logo(33, &logos), 0);
  EXPECT_TRUE(logos[0].x == 0.85 && logos[0].y == 0.05 && !strcmp(logos[0].origin, "logo.svg"));
  std::vector<zm_system_overlay> system;
  ASSERT_EQ(zm_get_system_overlay(0, &system), 0);
  ASSERT_EQ(system.size(), 2u);
  EXPECT_STREQ(system[1].content, "{\"kind\":\"clock\",\"format\":\"%H:%M:%S\"}");
  EXPECT_EQ(zm_get_background_count(), 3);
  EXPECT_EQ(zm_get_overlay_count(), 1);
  EXPECT_EQ(zm_get_background(0, nullptr), -3);
  std::vector<zm_background> none;
  EXPECT_EQ(zm_get_background(17, &none), -5);  // a foreground

  // The default rows name files that exist.
  std::vector<zm_background> bg;
  ASSERT_EQ(zm_get_background(0, &bg), 0);
  std::vector<std::string> files;
  for (const auto& a : bg) files.push_back(std::string(a.path) + "/" + a.name);
  for (const auto& a : im)
    if (a.name[0] != '\0') files.push_back(std::string(a.path) + "/" + a.name);
  for (const auto& a : system) files.push_back(std::string(a.path) + "/" + a.name);
  files.push_back(std::string(overlays[0].path) + "/" + overlays[0].name);
  files.push_back(std::string(overlays[0].path) + "/" + overlays[0].origins[0]);
  for (const auto& f : files) EXPECT_TRUE(fs::is_regular_file(sandbox_->Path(f))) << f;
}

TEST_F(MixerAssetsTest, FilesMustBeRegularFilesInsideTheAssetFolder) {
  sandbox_->WriteFile("/etc/secret.png", zolo::test::TinyPng());
  sandbox_->WriteFile("/var/lib/zolo/media/assets_old/secret.png", zolo::test::TinyPng());
  sandbox_->MakeDir(std::string(kBackgrounds) + "/folder.png");
  struct Case {
    const char* path;
    const char* name;
  };
  const Case refused[] = {
      {kBackgrounds, "missing.png"},
      {kBackgrounds, "folder.png"},
      {kBackgrounds, ""},
      {"/etc", "secret.png"},
      {"/var/lib/zolo/media/assets/../../../../etc", "secret.png"},
      {kBackgrounds, "../../../../../etc/secret.png"},
      {"var/lib/zolo/media/assets/background", "black.png"},
      {"/var/lib/zolo/media/assets", "background"},
      {"/var/lib/zolo/media/assets_old", "secret.png"},
      {"file:///var/lib/zolo/media/assets_old", "secret.png"},
  };
  for (const Case& c : refused) {
    auto record = Picture<zm_background>(c.path, c.name);
    EXPECT_EQ(zm_set_background(2, record, false), -3) << c.path << " " << c.name;
    EXPECT_EQ(zm_add_background(record), -3) << c.path << " " << c.name;
  }
  EXPECT_EQ(Backgrounds(), "1:black.png 2:grey.png 3:blue.png ");
  EXPECT_TRUE(Changes().empty());

  Put(kBackgrounds, "new.png");
  auto record = Picture<zm_background>("file:///var/lib/zolo/media/assets/background", "new.png");
  EXPECT_EQ(zm_set_background(2, record, false), 0);
  EXPECT_EQ(zm_set_background(4, record, false), -5);  // a free slot needs enable
  EXPECT_EQ(zm_set_background(0, record, true), -3);
  EXPECT_EQ(Changes(), std::vector<std::string>{"1/7/2"});
  // An edit without a rank keeps the stored one, also 0 or below.
  ASSERT_EQ(zm_execute_db_command("UPDATE mixer_asset SET rank = -1 WHERE id = 3"), 0);
  EXPECT_EQ(zm_set_background(3, record, false), 0);
  std::vector<zm_background> third;
  ASSERT_EQ(zm_get_background(3, &third), 0);
  EXPECT_EQ(third.at(0).rank, -1);
}

TEST_F(MixerAssetsTest, BackgroundPoolRanksAndRemovalDeletesFiles) {
  std::string file = Put(kBackgrounds, "a.png");
  std::string origin = Put(kBackgrounds, "a.jpg");
  auto record = Picture<zm_background>(kBackgrounds, "a.png", "a.jpg", 1);
  int first = zm_add_background(record);
  EXPECT_EQ(first, 4);
  EXPECT_EQ(Backgrounds(), "4:a.png 1:black.png 2:grey.png 3:blue.png ");
  record.rank = 0;  // goes last, keeps its place when changed again
  for (int id = 5; id <= 16; ++id) EXPECT_EQ(zm_add_background(record), id);
  EXPECT_EQ(zm_add_background(record), -2);
  EXPECT_EQ(zm_get_background_count(), 16);

  sim_.ClearRequests();
  ASSERT_EQ(zm_execute_db_command("UPDATE theme SET background_id = 4 WHERE id IN (1, 3)"), 0);
  ASSERT_EQ(zm_remove_background(4), 0);
  EXPECT_FALSE(fs::exists(file));
  EXPECT_FALSE(fs::exists(origin));
  EXPECT_EQ(Changes(), (std::vector<std::string>{"2/7/4", "1/9/1", "1/9/3"}));
  EXPECT_EQ(zm_remove_background(4), -5);
  EXPECT_EQ(zm_remove_background(0), -3);
  std::vector<zm_theme> themes;
  ASSERT_EQ(zm_get_theme(1, &themes), 0);
  EXPECT_EQ(themes[0].background, 0);

  // A stored folder outside the asset folders is never deleted from.
  std::string outside = sandbox_->Path("/etc/media.conf");
  ASSERT_EQ(zm_execute_db_command("UPDATE mixer_asset SET path = '/etc', name = 'media.conf' "
                                  "WHERE id = 5"),
            0);
  ASSERT_EQ(zm_remove_background(5), 0);
  EXPECT_TRUE(fs::exists(outside));
}

TEST_F(MixerAssetsTest, IntermissionSlotsOnly) {
  Put("/var/lib/zolo/media/assets/foreground", "intermission_9.png");
  auto record =
      Picture<zm_foreground>("/var/lib/zolo/media/assets/foreground", "intermission_9.png");
  EXPECT_EQ(zm_set_intermission(20, record, true), -5);   // a foreground without the name
  EXPECT_EQ(zm_set_intermission(18, record, false), -5);  // free
  ASSERT_EQ(zm_set_intermission(18, record, true), 0);
  EXPECT_EQ(Changes(), std::vector<std::string>{"1/12/18"});
  std::vector<zm_foreground> fg;
  ASSERT_EQ(zm_get_foreground(0, &fg), 0);
  EXPECT_EQ(fg.size(), 2u);
}

TEST_F(MixerAssetsTest, OverlaysKeepSeveralOriginsAndPositions) {
  Put(kOverlays, "o.png");
  std::string a = Put(kOverlays, "o-a.svg");
  std::string b = Put(kOverlays, "o-b.svg");
  zm_overlay overlay{};
  std::snprintf(overlay.path, sizeof overlay.path, "%s", kOverlays);
  std::snprintf(overlay.name, sizeof overlay.name, "o.png");
  overlay.origins = {"o-a.svg", "o-missing.svg"};
  EXPECT_EQ(zm_add_overlay(overlay), -3);
  overlay.origins = {"o-a.svg", "o-b.svg"};
  overlay.positions = {{0.1, 0.2}, {0.7, 0.8}};
  int id = zm_add_overlay(overlay);
  ASSERT_EQ(id, 34);
  std::vector<zm_overlay> out;
  ASSERT_EQ(zm_get_overlay(id, &out), 0);
  EXPECT_EQ(out[0].origins, overlay.origins);
  ASSERT_EQ(out[0].positions.size(), 2u);
  EXPECT_DOUBLE_EQ(out[0].positions[1].y, 0.8);

  overlay.positions.clear();  // keeps the stored positions
  ASSERT_EQ(zm_set_overlay(id, overlay, false), 0);
  std::vector<zm_logo> logo;
  ASSERT_EQ(zm_get_logo(id, &logo), 0);
  EXPECT_DOUBLE_EQ(logo[0].x, 0.1);

  ASSERT_EQ(zm_remove_overlay(id), 0);
  EXPECT_FALSE(fs::exists(a) || fs::exists(b) || fs::exists(sandbox_->Path(kOverlays) + "/o.png"));
  EXPECT_EQ(Changes(), (std::vector<std::string>{"0/6/34", "1/6/34", "2/6/34"}));

  // System overlays change without a notification.
  zm_system_overlay system{};
  std::snprintf(system.path, sizeof system.path, "/usr/share/media/overlay");
  std::snprintf(system.name, sizeof system.name, "clock.png");
  std::snprintf(system.content, sizeof system.content, "{\"kind\":\"clock\"}");
  system.x = 0.5;
  sim_.ClearRequests();
  // A folder beside the system overlay folder is not one.
  sandbox_->WriteFile("/usr/share/media/overlay_old/clock.png", zolo::test::TinyPng());
  std::snprintf(system.path, sizeof system.path, "/usr/share/media/overlay_old");
  EXPECT_EQ(zm_set_system_overlay(50, system, false), -3);
  std::snprintf(system.path, sizeof system.path, "/usr/share/media/overlay");
  ASSERT_EQ(zm_set_system_overlay(50, system, false), 0);
  std::vector<zm_system_overlay> stored;
  ASSERT_EQ(zm_get_system_overlay(50, &stored), 0);
  EXPECT_TRUE(stored[0].x == 0.5 && !strcmp(stored[0].content, "{\"kind\":\"clock\"}"));
  EXPECT_TRUE(Changes().empty());
}

}  // namespace
