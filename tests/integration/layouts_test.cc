// Layouts: the layout string, listings and their order, the slot pool, editing with its
// notifications, and the preview rendering task.
#include <SQLiteCpp/SQLiteCpp.h>
#include <cairo.h>
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <zolo/media.h>
#include <zolo_model/media_model.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "engine_fixture.h"
#include "log_capture.h"

namespace {

namespace fs = std::filesystem;
using zolo::test::EngineTest;

bool WaitFor(const std::function<bool()>& done, int timeout_ms = 30000) {
  auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

size_t ThreadCount() {
  size_t n = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/self/task")) ++n;
  return n;
}

zm_layout Layout(std::vector<zm_video_layout> windows) {
  zm_layout layout{};
  layout.video_layouts = std::move(windows);
  return layout;
}

const zm_layout kPip = Layout({{1, 1, 1, 0, 0, 0, 0}, {2, 0.25, 0.25, 0.7, 0.7, 1, 0}});

// A decoded PNG: its size and the colour (0xRRGGBB) at fractions of the picture.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<uint32_t> pixels;
  uint32_t At(double x, double y) const {
    int px = static_cast<int>(x * width), py = static_cast<int>(y * height);
    return pixels[static_cast<size_t>(py) * width + px] & 0xffffff;
  }
};

bool Decode(const std::string& path, Picture* out) {
  cairo_surface_t* s = cairo_image_surface_create_from_png(path.c_str());
  bool ok = cairo_surface_status(s) == CAIRO_STATUS_SUCCESS;
  if (ok) {
    cairo_surface_flush(s);
    out->width = cairo_image_surface_get_width(s);
    out->height = cairo_image_surface_get_height(s);
    int stride = cairo_image_surface_get_stride(s);
    const unsigned char* data = cairo_image_surface_get_data(s);
    for (int y = 0; y < out->height; ++y) {
      const auto* row = reinterpret_cast<const uint32_t*>(data + static_cast<size_t>(y) * stride);
      out->pixels.insert(out->pixels.end(), row, row + out->width);
    }
  }
  cairo_surface_destroy(s);
  return ok;
}

class LayoutsTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    threads_ = ThreadCount();
  }
  // Rendering tasks still running would outlive the sandbox.
  void TearDown() override {
    EXPECT_TRUE(WaitFor([&] { return ThreadCount() <= threads_; })) << ThreadCount();
    EngineTest::TearDown();
  }
  void Exec(const std::string& sql) { ASSERT_EQ(zm_execute_db_command(sql.c_str()), 0) << sql; }
  std::string Image(int id) {
    char name[64];
    std::snprintf(name, sizeof name, "/var/lib/zolo/media/images/layout/layout_%03d.png", id);
    return sandbox_->Path(name);
  }
  // Waits until `n` rendering tasks have logged their end.
  bool TasksDone(size_t n) {
    return WaitFor([&] {
      size_t done = 0;
      for (const auto& line : log_.Lines())
        done += line.message.rfind("layout_image_task: done!", 0) == 0;
      return done >= n;
    });
  }
  // Replaces the renderer by a script that only records that it ran.
  std::string StubRenderer() {
    sandbox_->MakeDir("/tmp");
    std::string marker = sandbox_->Path("/tmp/renderer-ran");
    std::string path = sandbox_->Path("/usr/share/media/gen_layout_image");
    fs::remove(path);
    sandbox_->WriteFile("/usr/share/media/gen_layout_image",
                        "#!/bin/sh\necho \"$@\" >> '" + marker + "'\n");
    fs::permissions(path, fs::perms::owner_all);
    return marker;
  }
  std::vector<zm_layout> All() {
    std::vector<zm_layout> out;
    EXPECT_EQ(zm_get_layout(0, &out), 0);
    return out;
  }
  zolo::test::LogCapture log_;
  size_t threads_ = 0;
};

TEST(LayoutStringTest, PrintsCompactlyAndParsesBack) {
  std::vector<zm_video_layout> windows = {{3, 0.5, 0.25, 0.125, 1, 2, 1}, {-7, 0, 0, 0, 0, 0, 0}};
  std::string text = zm_get_layout_string(windows);
  EXPECT_EQ(text,
            "{\"layout\":[{\"id\":3,\"x\":0.125,\"y\":1,\"z\":2,\"w\":0.5,\"h\":0.25,\"crop\":1},"
            "{\"id\":-7,\"x\":0,\"y\":0,\"z\":0,\"w\":0,\"h\":0,\"crop\":0}]}");
  EXPECT_EQ(zm_get_layout_string({}), "{\"layout\":[]}");
  std::vector<zm_video_layout> back;
  ASSERT_EQ(zm_parse_layout_string(text.c_str(), &back), 0);
  ASSERT_EQ(back.size(), 2u);
  auto fields = [](const zm_video_layout& w) {
    return std::make_tuple(w.id, w.w, w.h, w.x, w.y, w.z, w.crop);
  };
  EXPECT_EQ(fields(back[0]), fields(windows[0]));
  EXPECT_EQ(fields(back[1]), fields(windows[1]));
  // Doubles that need all their digits survive the trip.
  std::vector<zm_video_layout> third = {{1, 1.0 / 3, 2.0 / 3, 0.1, 7.7777777777777785e+100, 0, 0}};
  back.clear();
  ASSERT_EQ(zm_parse_layout_string(zm_get_layout_string(third).c_str(), &back), 0);
  EXPECT_TRUE(back[0].w == third[0].w && back[0].h == third[0].h && back[0].y == third[0].y);
}

TEST(LayoutStringTest, RejectedFormsKeepTheWindowsReadBefore) {
  struct Case {
    const char* text;
    int result;
    size_t windows;
  };
  // Refused: a window without "id" (the one before it is kept), a text or a number that is
  // not finite where a number belongs.
  const Case cases[] = {
      {"not json", -1, 0},
      {"{\"windows\":[]}", -1, 0},
      {"{\"layout\":{}}", -1, 0},
      {"{\"layout\":[]}", 0, 0},
      {"{\"layout\":[{\"id\":1},{\"x\":1},{\"id\":3}]}", -1, 1},
      {"{\"layout\":[{\"id\":1,\"x\":\"0.5\"}]}", -1, 0},
      {"{\"layout\":[{\"id\":\"1\"}]}", -1, 0},
      {"{\"layout\":[{\"id\":1,\"z\":2.9,\"w\":1e300}]}", 0, 1},
      {"{\"layout\":[{\"id\":1,\"x\":1e999}]}", -1, 0},
  };
  for (const Case& c : cases) {
    std::vector<zm_video_layout> out;
    EXPECT_EQ(zm_parse_layout_string(c.text, &out), c.result) << c.text;
    EXPECT_EQ(out.size(), c.windows) << c.text;
  }
  std::vector<zm_video_layout> out;
  ASSERT_EQ(zm_parse_layout_string("{\"layout\":[{\"id\":1,\"z\":2.9}]}", &out), 0);
  EXPECT_EQ(out[0].z, 2);  // truncated
  EXPECT_EQ(zm_parse_layout_string(nullptr, &out), -3);
}

TEST_F(LayoutsTest, ListingsSortByKindThenRankAndSplitAtDisplay) {
  // An unknown kind made after "Display", and a "PBP" layout ranked first in its kind.
  Exec("INSERT INTO mixer_config_group (id, type, name) VALUES (20, 0, 'Zeta')");
  Exec(
      "UPDATE mixer_config SET group_id = 20, enabled = 1, rank = 1, content = "
      "'{\"layout\":[]}' WHERE id = 16");
  Exec("UPDATE mixer_config SET rank = 0 WHERE id = 11");
  auto all = All();
  ASSERT_EQ(all.size(), 19u);
  // Kinds in rank order; "Dual", "PIP" and "PBP" share a rank, then the layout's own rank.
  // clang-format off
  const std::map<std::string, int> kind_rank = {
      {"Single", 1},
      {"Dual", 2},
      {"PIP", 2},
      {"PBP", 2},
      {"Triple", 3},
      {"Quad", 4},
      {"Pentuple", 5},
      {"Display", 50},
      {"Zeta", 100},
  };
  // clang-format on
  for (size_t i = 1; i < all.size(); ++i) {
    auto key = [&](const zm_layout& l) { return std::make_pair(kind_rank.at(l.group), l.rank); };
    EXPECT_LE(key(all[i - 1]), key(all[i])) << all[i - 1].id << " before " << all[i].id;
  }
  EXPECT_EQ(all[5].id, 11);
  EXPECT_EQ(all.back().id, 16);
  for (const auto& l : all) {
    bool display = std::string(l.group) == "Display" || std::string(l.group) == "Zeta";
    char url[128];
    std::snprintf(url, sizeof url, "file:///var/lib/zolo/media/images/layout/layout_%03d.png",
                  l.id);
    EXPECT_EQ(std::string(l.image), display ? "" : url) << l.id;
  }
  EXPECT_STREQ(all[0].name, "HDMI1");

  // Recording mixers see ordinary and manual layouts, without names.
  std::vector<zm_layout> record;
  ASSERT_EQ(zm_get_record_layout(0, &record), 0);
  EXPECT_EQ(record.size(), 15u);
  for (const auto& l : record) EXPECT_TRUE(l.name[0] == '\0' && l.id <= 15) << l.id;
  std::vector<zm_layout> dual;
  ASSERT_EQ(zm_get_layout_by_group("Dual", &dual), 0);
  ASSERT_EQ(dual.size(), 3u);
  EXPECT_TRUE(dual[0].id == 6 && dual[0].name[0] == '\0' && dual[0].video_layouts.size() == 2);

  // Earlier contents of the vector are sorted along.
  std::vector<zm_layout> mixed;
  ASSERT_EQ(zm_get_layout_by_group("Display", &mixed), 0);
  ASSERT_EQ(zm_get_layout(16, &mixed), 0);
  ASSERT_EQ(zm_get_layout(9, &mixed), 0);
  std::vector<int> mixed_ids;
  for (const auto& l : mixed) mixed_ids.push_back(l.id);
  EXPECT_EQ(mixed_ids, (std::vector<int>{9, 48, 49, 50, 16}));

  // Without a "Display" kind every layout has a preview.
  Exec("DELETE FROM mixer_config_group WHERE name = 'Display'");
  for (const auto& l : All()) EXPECT_NE(l.image[0], '\0') << l.id;

  std::vector<zm_layout> out;
  EXPECT_EQ(zm_get_layout(0, nullptr), -3);
  EXPECT_EQ(zm_get_layout(17, &out), -5);  // a free slot
  EXPECT_EQ(zm_get_layout(999, &out), -5);
  EXPECT_EQ(zm_get_layout_by_group("Nope", &out), -5);
  EXPECT_EQ(zm_get_record_layout(48, &out), -5);  // "Display" is gone: 48 has no kind now
  EXPECT_EQ(zm_get_display_layout(), 49);
}

// An edit stores the windows only: the layout's group and rank stay as they are, and a
// group id below 1 is "no group" for every query.
TEST_F(LayoutsTest, EditsKeepGroupAndRankAndGroupsBelowOneAreNone) {
  Exec("UPDATE mixer_config SET rank = 0 WHERE id = 11");
  Exec("UPDATE mixer_config SET rank = -1 WHERE id = 12");
  Exec("UPDATE mixer_config SET group_id = NULL, rank = 3 WHERE id = 13");
  for (int id : {11, 12, 13}) ASSERT_EQ(zm_set_layout(id, kPip, true, false), 0) << id;
  ASSERT_TRUE(TasksDone(3));
  SQLite::Database db(MediaModel::Instance()->database()->path(), SQLite::OPEN_READONLY);
  SQLite::Statement rows(
      db, "SELECT id, COALESCE(group_id, 0) > 0, rank FROM mixer_config WHERE id IN (11, 12, 13)");
  std::vector<std::string> stored;
  while (rows.executeStep())
    stored.push_back(rows.getColumn(0).getString() + ":" + rows.getColumn(1).getString() + ":" +
                     rows.getColumn(2).getString());
  EXPECT_EQ(stored, (std::vector<std::string>{"11:1:0", "12:1:-1", "13:0:3"}));

  Exec("INSERT INTO mixer_config_group (id, type, name) VALUES (-5, 0, 'Below')");
  Exec("UPDATE mixer_config SET group_id = -5 WHERE id = 14");
  std::vector<zm_layout> out;
  EXPECT_EQ(zm_get_layout(14, &out), -5);
  EXPECT_EQ(zm_get_layout_by_group("Below", &out), -5);
  EXPECT_TRUE(out.empty());
}

TEST_F(LayoutsTest, SlotPoolRunsOutAndFreedSlotsComeBackUnlisted) {
  std::vector<int> added;
  for (int id; (id = zm_add_layout(kPip)) > 0;) added.push_back(id);
  ASSERT_EQ(added.size(), 32u);
  EXPECT_EQ(added.front(), 16);
  EXPECT_EQ(zm_add_layout(kPip), -2);
  ASSERT_TRUE(TasksDone(32));

  std::vector<zm_layout> manual;
  ASSERT_EQ(zm_get_layout_by_group("Manual", &manual), 0);
  ASSERT_EQ(manual.size(), 32u);
  EXPECT_EQ(manual.back().rank, 32);  // each went last of "Manual"
  EXPECT_EQ(zm_remove_layout(20), 0);
  EXPECT_EQ(zm_remove_layout(20), -5);
  EXPECT_EQ(zm_remove_layout(0), -3);
  EXPECT_EQ(zm_remove_layout(49), -2);  // display layouts stay
  EXPECT_EQ(All().size(), 15u + 3 + 31);
  std::vector<zm_layout> out;
  EXPECT_EQ(zm_get_layout(20, &out), -5);
  EXPECT_EQ(zm_add_layout(Layout({{1, -1, 1, 0, 0, 0, 0}})), -1);  // refused windows
  EXPECT_EQ(zm_add_layout(kPip), 20);  // the refused one gave the slot back
}

TEST_F(LayoutsTest, CustomFlagDecidesAdditionOrUpdateAndRendering) {
  struct Case {
    int id;
    bool custom_before;
    bool custom;
    const char* change;  // the notification the task sends
    bool rendered;
  };
  // An ordinary layout made custom is an addition, one already custom an update; without
  // the custom flag it stays ordinary; display layouts are never rendered.
  const Case cases[] = {
      {2, false, true, "0/8/2/Single", true},
      {3, true, true, "1/8/3/Single", true},
      {4, false, false, "0/8/4/Single", true},
      {48, false, true, "1/8/48/Display", false},
  };
  for (const Case& c : cases) {
    Exec("UPDATE mixer_config SET custom = " + std::to_string(c.custom_before) +
         " WHERE id = " + std::to_string(c.id));
    sim_.ClearRequests();
    log_.Clear();
    ASSERT_EQ(zm_set_layout(c.id, kPip, c.custom, true), 0);
    ASSERT_TRUE(sim_.WaitForRequests("change_media_data", 1, 10000)) << c.id;
    EXPECT_EQ(Changes(), std::vector<std::string>{c.change});
    EXPECT_EQ(fs::exists(Image(c.id)), c.rendered) << c.id;
    std::vector<zm_layout> out;
    ASSERT_EQ(zm_get_layout(c.id, &out), 0);
    EXPECT_EQ(out[0].custom, c.custom ? 1 : 0);
    EXPECT_EQ(out[0].video_layouts.size(), 2u);
  }
  // Without notify nothing is sent, but the preview is made.
  sim_.ClearRequests();
  fs::remove(Image(5));
  ASSERT_EQ(zm_set_layout(5, kPip, false, false), 0);
  ASSERT_TRUE(WaitFor([&] { return fs::exists(Image(5)); }));
  EXPECT_TRUE(Changes().empty());

  // Bad windows and missing slots write nothing.
  zm_layout bad = Layout({{1, -0.5, 1, 0, 0, 0, 0}});
  EXPECT_EQ(zm_set_layout(6, bad, true, true), -3);
  bad.video_layouts[0].w = std::nan("");
  EXPECT_EQ(zm_set_layout(6, bad, true, true), -3);
  EXPECT_EQ(zm_set_layout(999, kPip, true, true), -5);
  std::vector<zm_layout> out;
  ASSERT_EQ(zm_get_layout(6, &out), 0);
  EXPECT_EQ(out[0].custom, 0);
}

TEST_F(LayoutsTest, SourceFormsNeedACustomLayoutAndKeepGeometry) {
  auto windows = [](int id) {
    std::vector<zm_layout> out;
    zm_get_layout(id, &out);
    std::vector<int> ids;
    for (const auto& w : out.at(0).video_layouts) ids.push_back(w.id);
    return ids;
  };
  EXPECT_EQ(zm_set_layout(14, std::vector<int>{9}, false, true), -5);  // not custom
  EXPECT_EQ(zm_set_layout(14, 1, 9, false, true), -5);
  EXPECT_EQ(windows(14), (std::vector<int>{1, 2, 3, 4}));
  EXPECT_EQ(zm_set_layout(14, std::vector<int>{1, 2, 3, 4, 5}, true, true), -3);
  EXPECT_EQ(zm_set_layout(17, std::vector<int>{1}, true, true), -1);  // a free slot: no windows

  sim_.ClearRequests();
  ASSERT_EQ(zm_set_layout(14, std::vector<int>{7, 8}, true, true), 0);
  EXPECT_EQ(windows(14), (std::vector<int>{7, 8, 3, 4}));
  ASSERT_EQ(zm_set_layout(14, 3, 7, false, false), 0);  // custom now
  EXPECT_EQ(windows(14), (std::vector<int>{7, 8, 7, 4}));
  EXPECT_EQ(Changes(), std::vector<std::string>{"1/8/14/Quad"});

  // Window content of custom layouts only; the source stays.
  zm_video_layout w{99, 0.5, 0.5, 0.25, 0.25, 3, 1};
  EXPECT_EQ(zm_set_video_layout_content(13, 0, &w), -5);
  ASSERT_EQ(zm_set_video_layout_content(14, 1, &w), 0);
  EXPECT_EQ(zm_set_video_layout_content(14, 9, &w), -3);
  std::vector<zm_layout> out;
  ASSERT_EQ(zm_get_layout(14, &out), 0);
  const zm_video_layout& stored = out[0].video_layouts[1];
  EXPECT_TRUE(stored.id == 8 && stored.x == 0.25 && stored.z == 3 && stored.crop == 1);
}

TEST_F(LayoutsTest, RemovalUnbindsThemesAndAnnouncesEach) {
  ASSERT_EQ(zm_set_layout(3, kPip, true, false), 0);
  Exec("UPDATE theme SET layout_id = 3 WHERE id IN (1, 4)");
  sim_.ClearRequests();
  ASSERT_EQ(zm_remove_layout(3), 0);
  EXPECT_EQ(Changes(), (std::vector<std::string>{"2/8/3/Single", "1/9/1", "1/9/4"}));
  std::vector<zm_theme> themes;
  ASSERT_EQ(zm_get_theme(1, &themes), 0);
  EXPECT_EQ(themes[0].layout, 0);
}

TEST_F(LayoutsTest, FailedRenderingIsLoggedAndNotAnnounced) {
  // No renderer at all.
  fs::remove(sandbox_->Path("/usr/share/media/gen_layout_image"));
  ASSERT_EQ(zm_set_layout(2, kPip, true, true), 0);
  ASSERT_TRUE(TasksDone(1));
  std::string command = sandbox_->Path("/usr/share/media/gen_layout_image") + " -c '" +
                        zm_get_layout_string(kPip.video_layouts) + "' -f " + Image(2);
  EXPECT_TRUE(log_.Has("layout_image_task: failed! command: " + command, 0)) << log_.Dump();
  EXPECT_TRUE(log_.Has("layout_image_task: done! command: " + command, 0));

  EXPECT_TRUE(log_.HasFragment("ret -1 output: Failed to execute child process")) << log_.Dump();
  EXPECT_TRUE(Changes().empty());

  // A stored text holding a single quote reaches the renderer as it is, never a shell.
  std::string marker = StubRenderer();
  Exec(
      "CREATE TRIGGER quote AFTER UPDATE OF content ON mixer_config WHEN NEW.id = 4 BEGIN "
      "UPDATE mixer_config SET content = '{\"layout\":[],\"x\":\"'';touch " +
      sandbox_->Path("/tmp/pwned") + ";''\"}' WHERE id = 4; END");
  ASSERT_EQ(zm_set_layout(4, kPip, true, true), 0);
  ASSERT_TRUE(sim_.WaitForRequests("change_media_data", 1, 10000));
  EXPECT_NE(zolo::test::ReadFile(marker).find("';touch "), std::string::npos);
  EXPECT_FALSE(fs::exists(sandbox_->Path("/tmp/pwned")));
}

// A layout too long for one argument reaches the renderer in a file and is drawn.
TEST_F(LayoutsTest, LayoutsOfThousandsOfWindowsAreRendered) {
  std::vector<zm_video_layout> windows;
  for (int i = 0; i < 3000; ++i)
    windows.push_back({i % 16 + 1, 0.01, 0.01, (i % 100) / 100.0, (i / 100) / 30.0, i, 0});
  ASSERT_GT(zm_get_layout_string(windows).size(), 128u * 1024);
  ASSERT_EQ(zm_set_layout(2, Layout(windows), true, true), 0);
  ASSERT_TRUE(sim_.WaitForRequests("change_media_data", 1, 30000)) << log_.Dump();
  Picture picture;
  ASSERT_TRUE(Decode(Image(2), &picture));
  EXPECT_EQ(picture.width, 480);
  for (const auto& entry : fs::directory_iterator(Image(2).substr(0, Image(2).rfind('/'))))
    EXPECT_NE(entry.path().extension(), ".json") << entry.path();  // the layout file is gone
}

TEST_F(LayoutsTest, RendererDrawsWindowsByColourAndStacking) {
  // Window 2 lies above window 1 although it comes first; window 3 shows source 1 again.
  zm_layout layout = Layout(
      {{2, 0.5, 0.5, 0.25, 0.25, 5, 0}, {1, 1, 1, 0, 0, 0, 0}, {1, 0.2, 0.2, 0.0, 0.8, 6, 0}});
  std::string text = zm_get_layout_string(layout.video_layouts);
  std::string png = sandbox_->Path("/tmp/r.png");
  std::string renderer = sandbox_->Path("/usr/share/media/gen_layout_image");
  fs::create_directories(sandbox_->Path("/tmp"));
  ASSERT_EQ(std::system(("'" + renderer + "' -c '" + text + "' -f '" + png + "'").c_str()), 0);
  Picture picture;
  ASSERT_TRUE(Decode(png, &picture));
  EXPECT_EQ(picture.width * 9, picture.height * 16);
  uint32_t over = picture.At(0.5, 0.5), under = picture.At(0.1, 0.5), again = picture.At(0.1, 0.9);
  EXPECT_NE(over, under);
  EXPECT_EQ(under, again);

  for (const char* bad :
       {"{\"layout\":[{\"x\":1}]}", "[1,2", "{\"layout\":[{\"id\":1,\"w\":\"a\"}]}"}) {
    std::string command = "'" + renderer + "' -c '" + bad + "' -f '" + png + "' 2>/dev/null";
    EXPECT_NE(std::system(command.c_str()), 0) << bad;
  }
  std::string unwritable =
      "'" + renderer + "' -c '{\"layout\":[]}' -f /nonexistent/x.png 2>/dev/null";
  EXPECT_NE(std::system(unwritable.c_str()), 0);
  // Huge, negative and many windows still draw.
  std::vector<zm_video_layout> many(1000, {1, 1e308, -5, -1e308, 1e308, 0, 0});
  std::string big = "'" + renderer + "' -c '" + zm_get_layout_string(many) + "' -f '" + png + "'";
  EXPECT_EQ(std::system(big.c_str()), 0);
}

// Rendering tasks may outlive the library: release while several run, then every task
// still finishes, writes a PNG that decodes, and its thread ends.
TEST_F(LayoutsTest, ReleaseWhileRenderingTasksRun) {
  const int ids[] = {1, 2, 3, 4, 5, 6, 7, 8};
  for (int id : ids) ASSERT_EQ(zm_set_layout(id, kPip, true, true), 0);
  zm_release();
  initialized_ = false;
  ASSERT_TRUE(TasksDone(std::size(ids)));
  ASSERT_TRUE(sim_.WaitForRequests("change_media_data", std::size(ids), 10000));
  ASSERT_TRUE(WaitFor([&] { return ThreadCount() < threads_; })) << ThreadCount();
  for (int id : ids) {
    Picture picture;
    EXPECT_TRUE(Decode(Image(id), &picture)) << id;
    EXPECT_EQ(picture.width, 480);
  }
}

// zmctl drives the same calls from a shell and waits for the preview before it exits.
TEST_F(LayoutsTest, ZmctlAddsShowsRendersAndRefuses) {
  auto run = [&](const std::string& arguments, int* status) {
    std::string command = zolo::test::BinaryDir() + "/tools/zmctl/zmctl --sandbox " +
                          sandbox_->root() + " " + arguments + " 2>&1";
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    char buffer[4096];
    for (size_t n; pipe && (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    int raw = pipe ? pclose(pipe) : -1;
    *status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return out;
  };
  int status = 0;
  std::string out = run("--json layout add 0,0,1,1,0,0,1 0.7,0.7,0.25,0.25,1,0,2", &status);
  ASSERT_EQ(status, 0) << out;
  EXPECT_NE(out.find("16"), std::string::npos) << out;
  EXPECT_TRUE(fs::exists(Image(16)));
  EXPECT_EQ(Changes(), std::vector<std::string>{"0/8/16/Manual"});  // sent before it exited
  out = run("layout show 16", &status);
  EXPECT_NE(out.find("1       2       0.7  0.7  0.25  0.25  1  0"), std::string::npos) << out;
  out = run("layout render 16", &status);
  EXPECT_EQ(status, 0) << out;
  EXPECT_NE(out.find("path: " + Image(16)), std::string::npos) << out;
  out = run("layout remove 49", &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(out.find("failed: -2"), std::string::npos) << out;
}

}  // namespace
