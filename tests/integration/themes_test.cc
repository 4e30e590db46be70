// Themes: listing, the bindings and their refusals, the slot pool and the notifications.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <zolo/media.h>

#include <cstdio>
#include <string>
#include <vector>

#include "engine_fixture.h"

namespace {

using zolo::test::EngineTest;

zm_theme Theme(const char* name, int layout, int background, int overlay, int rank = 0) {
  zm_theme theme{};
  std::snprintf(theme.name, sizeof theme.name, "%s", name);
  theme.layout = layout;
  theme.background = background;
  theme.overlay = overlay;
  theme.rank = rank;
  return theme;
}

class ThemesTest : public EngineTest {
 protected:
  // "name layout/background/overlay rank" of the theme `id`, or "error N".
  std::string Stored(int id) {
    std::vector<zm_theme> out;
    if (int result = zm_get_theme(id, &out)) return "error " + std::to_string(result);
    const zm_theme& t = out.at(0);
    return std::string(t.name) + " " + std::to_string(t.layout) + "/" +
           std::to_string(t.background) + "/" + std::to_string(t.overlay) + " " +
           std::to_string(t.rank);
  }
};

TEST_F(ThemesTest, BindingsAreCheckedBeforeAnythingIsWritten) {
  struct Case {
    zm_theme theme;
    int result;
    const char* stored;
  };
  // Bindings below 1 unbind; a free layout or overlay slot, and an overlay named as the
  // background, are refused.
  const Case cases[] = {
      {Theme("Quad", 14, 2, 33), 0, "Quad 14/2/33 1"},
      {Theme("None", 0, 0, 0), 0, "None 0/0/0 1"},
      {Theme("Lost", 999, 1, 33), -5, "None 0/0/0 1"},
      {Theme("Free", 17, 1, 33), -5, "None 0/0/0 1"},
      {Theme("Wrong", 1, 33, 33), -5, "None 0/0/0 1"},
      {Theme("Gone", 1, 1, 40), -5, "None 0/0/0 1"},
  };
  for (const Case& c : cases) {
    sim_.ClearRequests();
    EXPECT_EQ(zm_set_theme(1, c.theme, false, true), c.result) << c.theme.name;
    EXPECT_EQ(Stored(1), c.stored) << c.theme.name;
    EXPECT_EQ(Changes().size(), c.result == 0 ? 1u : 0u) << c.theme.name;
  }
  EXPECT_EQ(zm_set_theme(2, Theme("Off", 1, 1, 33), false, true), -5);  // free, not enabled
  EXPECT_EQ(zm_set_theme(99, Theme("No", 1, 1, 33), true, true), -5);
  EXPECT_EQ(Stored(2), "error -5");
  std::vector<zm_theme> all;
  EXPECT_EQ(zm_get_theme(0, nullptr), -3);
  ASSERT_EQ(zm_get_theme(0, &all), 0);
  EXPECT_EQ(all.size(), 1u);
}

TEST_F(ThemesTest, PoolAdditionRankAndRemoval) {
  sim_.ClearRequests();
  EXPECT_EQ(zm_add_theme(Theme("Second", 6, 2, 0)), 2);
  EXPECT_EQ(Changes(), std::vector<std::string>{"0/9/2"});  // announced once, as an addition
  EXPECT_EQ(Stored(2), "Second 6/2/0 2");
  EXPECT_EQ(zm_add_theme(Theme("Bad", 999, 0, 0)), -1);
  EXPECT_EQ(Stored(3), "error -5");  // the refused slot stays free

  EXPECT_EQ(zm_set_theme(2, Theme("Second", 6, 2, 0, 1), false, false), 0);  // move to front
  EXPECT_EQ(Stored(2), "Second 6/2/0 1");
  EXPECT_EQ(Stored(1), "Default 1/1/33 2");
  for (int id = 3; id <= 16; ++id) EXPECT_EQ(zm_add_theme(Theme("More", 0, 0, 0)), id);
  EXPECT_EQ(zm_add_theme(Theme("Full", 0, 0, 0)), -2);

  sim_.ClearRequests();
  EXPECT_EQ(zm_remove_theme(0), -3);
  EXPECT_EQ(zm_remove_theme(2), 0);
  EXPECT_EQ(zm_remove_theme(2), -5);
  EXPECT_EQ(Changes(), std::vector<std::string>{"2/9/2"});
  EXPECT_EQ(Stored(1), "Default 1/1/33 1");
  EXPECT_EQ(zm_add_theme(Theme("Again", 0, 0, 0)), 2);

  // An edit without a rank keeps the stored one, also 0 or below.
  ASSERT_EQ(zm_execute_db_command("UPDATE theme SET rank = 0 WHERE id = 3"), 0);
  EXPECT_EQ(zm_set_theme(3, Theme("Renamed", 0, 0, 0), false, false), 0);
  EXPECT_EQ(Stored(3), "Renamed 0/0/0 0");
}

}  // namespace
