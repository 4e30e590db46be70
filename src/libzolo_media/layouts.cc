// Layouts: the layout string, queries, editing, and the task that renders a preview.
#include <cjson/cJSON.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <unistd.h>
#include <zolo/media/mixer_config.h>
#include <zolo/sysroot.h>
#include <zolo/utils.h>
#include <zolo_bus.h>
#include <zolo_model/media_model.h>
#include <zolo_model/mixer.h>
#include <zolo_model/mixer_config.h>
#include <zolo_model/theme.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>

#include "common/log.h"
#include "libzolo_media/media_call.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";
constexpr int kVideo = MixerConfig::kVideo;
constexpr const char* kRenderer = "/usr/share/media/gen_layout_image";
constexpr const char* kImageDir = "/var/lib/zolo/media/images/layout";
constexpr const char* kImageUrl = "file:///var/lib/zolo/media/images/layout/layout_%03d.png";

template <size_t N>
void CopyText(char (&field)[N], const std::string& text) {
  std::snprintf(field, N, "%s", text.c_str());
}

int GroupRank(const char* name) {
  static const std::unordered_map<std::string, int> kRanks = {
      {"Single", 1},  {"Dual", 2},     {"PIP", 2},      {"PBP", 2},      {"Triple", 3},
      {"Quad", 4},    {"Pentuple", 5}, {"Hextuple", 6}, {"Septuple", 7}, {"Octuple", 8},
      {"Nonuple", 9}, {"Manual", 10},  {"Display", 50}};
  auto it = kRanks.find(name);
  return it == kRanks.end() ? 100 : it->second;
}

// Sorts by the kind's rank, then the layout's rank. Records are large, so the keys are
// sorted first and each record is then moved once, along the cycles of the permutation;
// an already ordered vector (the usual case: candidates come pre-sorted) is left alone.
void SortLayouts(std::vector<zm_layout>* out) {
  using Key = std::pair<int, int>;
  std::vector<Key> keys;
  keys.reserve(out->size());
  for (const zm_layout& l : *out) keys.emplace_back(GroupRank(l.group), l.rank);
  if (std::is_sorted(keys.begin(), keys.end())) return;
  std::vector<size_t> order(out->size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return keys[a] < keys[b]; });
  // Position i receives the record at order[i].
  for (size_t start = 0; start < order.size(); ++start) {
    if (order[start] == start) continue;
    zm_layout held = std::move((*out)[start]);
    size_t at = start;
    while (order[at] != start) {
      size_t from = order[at];
      (*out)[at] = std::move((*out)[from]);
      order[at] = at;
      at = from;
    }
    (*out)[at] = std::move(held);
    order[at] = at;
  }
}

// Candidates in listing order, so that the records are appended already sorted.
void PreSort(std::vector<MixerConfig*>* configs) {
  std::vector<std::pair<std::pair<int, int>, MixerConfig*>> keyed;
  keyed.reserve(configs->size());
  for (MixerConfig* c : *configs) {
    MixerConfigGroup* group = c->group();
    keyed.push_back({{group != nullptr ? GroupRank(group->name().c_str()) : 0, c->rank()}, c});
  }
  std::stable_sort(keyed.begin(), keyed.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (size_t i = 0; i < keyed.size(); ++i) (*configs)[i] = keyed[i].second;
}

// Id of the video mixer's "Display" group, all ones when there is none. Groups at or above
// it (compared unsigned) are display layouts without a preview image.
unsigned DisplayBoundary() {
  MixerConfigGroup* group = nullptr;
  unsigned boundary = UINT_MAX;
  if (MixerConfigGroup::QueryByTypeName(kVideo, "Display", &group) == 0 && group != nullptr)
    boundary = static_cast<unsigned>(group->id());
  delete group;
  return boundary;
}

bool BelowBoundary(const MixerConfigGroup* group, unsigned boundary) {
  return static_cast<unsigned>(group->id()) < boundary;
}

void AppendRecord(MixerConfig* config, const std::string& group, bool with_image, bool with_name,
                  std::vector<zm_layout>* out) {
  zm_layout& record = out->emplace_back();
  record.id = config->id();
  if (with_name) CopyText(record.name, config->name());
  CopyText(record.group, group);
  zm_parse_layout_string(config->content().c_str(), &record.video_layouts);
  if (with_image) std::snprintf(record.image, sizeof record.image, kImageUrl, config->id());
  record.rank = config->rank();
  record.custom = config->custom() ? 1 : 0;
}

struct Candidates {
  std::vector<MixerConfig*> configs;
  ~Candidates() { MediaModel::CleanQuery(&configs); }
};

// The candidates of zm_get_layout / zm_get_record_layout: the slot `id` when it is in use
// and has a kind, or every slot in use. 0 or -5.
int QueryCandidates(int id, Candidates* found) {
  if (id != 0) {
    MixerConfig* config = nullptr;
    if (MixerConfig::QueryById(kVideo, id, &config) < 0 || config == nullptr) {
      delete config;
      return -5;
    }
    found->configs.push_back(config);
    if (!config->enabled() || config->group() == nullptr) return -5;
    return 0;
  }
  if (MixerConfig::QueryByType(kVideo, &found->configs) < 0) return -5;
  // Free and removed slots are never listed, whatever kind they were left in.
  auto unused = std::stable_partition(found->configs.begin(), found->configs.end(),
                                      [](MixerConfig* c) { return c->enabled(); });
  for (auto it = unused; it != found->configs.end(); ++it) delete *it;
  found->configs.erase(unused, found->configs.end());
  return 0;
}

void SendLayoutChange(bus_client* client, zolo::ChangeType type, int id, const std::string& group) {
  cJSON* payload = cJSON_CreateObject();
  if (payload == nullptr) return;
  cJSON_AddNumberToObject(payload, "type", static_cast<int>(type));
  cJSON_AddNumberToObject(payload, "data", static_cast<int>(zolo::DataKind::kLayout));
  cJSON_AddNumberToObject(payload, "id", id);
  cJSON_AddStringToObject(payload, "payload", group.c_str());
  if (client == nullptr) {
    zm_call_media_method("change_media_data", payload, nullptr, zolo::kCallTimeout);
  } else if (char* text = cJSON_PrintUnformatted(payload)) {
    bus_method_call(client, "media", "change_media_data", text, static_cast<int>(strlen(text)),
                    nullptr, nullptr, zolo::kCallTimeout);
    cJSON_free(text);
  }
  cJSON_Delete(payload);
}

struct LayoutImageTask {
  std::unique_ptr<MixerConfig> config;
  bool render = false;
  bool addition = false;
  bool notify = false;
  std::string group;
};

// Layout strings longer than this go to the renderer in a file: the kernel refuses a
// single argument over 128 KiB.
constexpr size_t kLongestLayoutArgument = 64 * 1024;

// Renders the preview of `config`. The renderer is started from an argument vector, never
// through a shell, so no stored text is interpreted. True when it succeeded; a failure is
// logged with its reason.
bool RenderPreview(const MixerConfig& config) {
  std::string dir = zolo::SysrootPath(kImageDir);
  g_mkdir_with_parents(dir.c_str(), 0755);
  char file[64];
  std::snprintf(file, sizeof file, "/layout_%03d.png", config.id());
  std::string renderer = zolo::SysrootPath(kRenderer);
  std::string output_path = dir + file;
  const std::string& content = config.content();
  std::string layout_file;
  std::string reason;
  std::vector<std::string> args = {renderer};
  if (content.size() <= kLongestLayoutArgument) {
    args.insert(args.end(), {"-c", content});
  } else {
    layout_file = dir + "/layout_XXXXXX.json";
    int fd = g_mkstemp(layout_file.data());
    bool written = fd >= 0 && write(fd, content.data(), content.size()) ==
                                  static_cast<ssize_t>(content.size());
    if (fd >= 0) close(fd);
    if (!written) reason = std::string("cannot write the layout file: ") + g_strerror(errno);
    args.insert(args.end(), {"--layout-file", layout_file});
  }
  args.insert(args.end(), {"-f", output_path});
  std::string command = args[0];
  for (size_t i = 1; i < args.size(); ++i)
    command += args[i] == content ? " '" + content + "'" : " " + args[i];

  int status = -1;
  if (reason.empty()) {
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    gchar* errors = nullptr;
    GError* error = nullptr;
    if (!g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_STDOUT_TO_DEV_NULL, nullptr, nullptr,
                      nullptr, &errors, &status, &error)) {
      reason = error->message;
      status = -1;
      g_error_free(error);
    } else if (!g_spawn_check_wait_status(status, nullptr)) {
      reason = errors != nullptr ? g_strchomp(errors) : "";
      if (reason.empty()) reason = "exit status " + std::to_string(status);
    } else {
      status = 0;
    }
    g_free(errors);
  }
  if (!layout_file.empty()) g_unlink(layout_file.c_str());
  if (status != 0) {
    ZLOG_AS("layout_image_task", 0, "layout_image_task: failed! command: %s", command.c_str());
    ZLOG_AS("layout_image_task", 0, "ret %d output: %s", status, reason.c_str());
  }
  ZLOG_AS("layout_image_task", 0, "layout_image_task: done! command: %s", command.c_str());
  return status == 0;
}

// Runs detached. The notification goes through a bus client of the task's own, so a caller
// that releases the library meanwhile does not pull the shared client from under it.
void RunLayoutImageTask(std::unique_ptr<LayoutImageTask> task) {
  if (!task || !task->config) return;
  bool rendered = !task->render || RenderPreview(*task->config);
  if (task->notify && rendered) {
    bus_client* client = bus_client_new("libzolo_media-layout");
    if (client != nullptr && bus_connect(client, 0) == 0)
      SendLayoutChange(client,
                       task->addition ? zolo::ChangeType::kAdded : zolo::ChangeType::kChanged,
                       task->config->id(), task->group);
    bus_client_free(client);
  }
}

bool ValidWindows(const std::vector<zm_video_layout>& windows) {
  for (const zm_video_layout& w : windows) {
    if (!std::isfinite(w.x) || !std::isfinite(w.y) || !std::isfinite(w.w) || !std::isfinite(w.h) ||
        w.w < 0 || w.h < 0)
      return false;
  }
  return true;
}

// Query of a configuration for the source re-assigning forms. Returns 0 with the object,
// or the result code.
int LoadForSources(int id, bool custom, std::unique_ptr<MixerConfig>* out,
                   std::vector<zm_video_layout>* windows) {
  MixerConfig* config = nullptr;
  if (MixerConfig::QueryById(kVideo, id, &config) < 0 || config == nullptr) {
    delete config;
    return -5;
  }
  out->reset(config);
  if (custom) {
    config->custom(true);
  } else if (!config->custom()) {
    return -5;
  }
  config->enabled(true);
  if (zm_parse_layout_string(config->content().c_str(), windows) != 0) return -1;
  return 0;
}

int StoreSources(MixerConfig* config, const std::vector<zm_video_layout>& windows, bool notify) {
  if (config->content(zm_get_layout_string(windows)) < 0) return -3;
  MixerConfigGroup* group = config->group();
  std::string group_name = group != nullptr ? group->name() : "";
  if (MixerConfig::Update(config) < 0) return -1;
  if (notify) SendLayoutChange(nullptr, zolo::ChangeType::kChanged, config->id(), group_name);
  return 0;
}

}  // namespace

int zm_render_layout_preview(int id) {
  Candidates found;
  if (id < 1 || QueryCandidates(id, &found) != 0 || found.configs.empty()) return -5;
  MixerConfig* config = found.configs.front();
  MixerConfigGroup* group = config->group();
  if (group == nullptr) return -5;
  if (!BelowBoundary(group, DisplayBoundary())) return -2;
  return RenderPreview(*config) ? 0 : -1;
}

int zm_get_layout(int id, std::vector<zm_layout>* out) {
  if (out == nullptr) return -3;
  Candidates found;
  if (QueryCandidates(id, &found) != 0) return -5;
  unsigned boundary = DisplayBoundary();
  PreSort(&found.configs);
  out->reserve(out->size() + found.configs.size());
  for (MixerConfig* config : found.configs) {
    MixerConfigGroup* group = config->group();
    if (group == nullptr) continue;
    AppendRecord(config, group->name(), BelowBoundary(group, boundary), true, out);
  }
  SortLayouts(out);
  return 0;
}

int zm_get_record_layout(int id, std::vector<zm_layout>* out) {
  if (out == nullptr) return -3;
  Candidates found;
  if (QueryCandidates(id, &found) != 0) return -5;
  unsigned boundary = DisplayBoundary();
  MixerConfigGroup* manual = nullptr;
  int manual_id = -1;
  if (MixerConfigGroup::QueryByTypeName(kVideo, "Manual", &manual) == 0 && manual != nullptr)
    manual_id = manual->id();
  delete manual;
  PreSort(&found.configs);
  out->reserve(out->size() + found.configs.size());
  for (MixerConfig* config : found.configs) {
    MixerConfigGroup* group = config->group();
    if (group == nullptr) continue;
    bool ordinary = BelowBoundary(group, boundary);
    if (group->id() != manual_id && !ordinary) continue;
    AppendRecord(config, group->name(), ordinary, false, out);
  }
  SortLayouts(out);
  return 0;
}

int zm_get_layout_by_group(const char* name, std::vector<zm_layout>* out) {
  if (out == nullptr || name == nullptr) return -3;
  MixerConfigGroup* found = nullptr;
  if (MixerConfigGroup::QueryByTypeName(kVideo, name, &found) < 0 || found == nullptr) {
    delete found;
    return -5;
  }
  std::unique_ptr<MixerConfigGroup> group(found);
  if (group->id() < 1) return -5;  // ids below 1 are "no group" everywhere
  bool with_image = BelowBoundary(group.get(), DisplayBoundary());
  out->reserve(out->size() + group->configs().size());
  for (MixerConfig* config : group->configs()) {
    if (!config->enabled()) continue;
    AppendRecord(config, name, with_image, false, out);
  }
  SortLayouts(out);
  return 0;
}

namespace {

// Stores the windows of layout `id` and renders its preview. `adding`: the slot was just
// taken from the free pool, has no kind yet and is filed under "Manual"; an edit keeps the
// layout's group and rank as they are.
int StoreLayout(int id, const zm_layout& layout, bool custom, bool notify, bool adding) {
  MixerConfig* found = nullptr;
  if (MixerConfig::QueryById(kVideo, id, &found) < 0 || found == nullptr) {
    delete found;
    return -5;
  }
  auto task = std::unique_ptr<LayoutImageTask>(new (std::nothrow) LayoutImageTask);
  std::unique_ptr<MixerConfig> config(found);
  bool was_custom = config->custom();
  config->enabled(true);
  config->custom(custom);
  unsigned boundary = DisplayBoundary();
  if (!ValidWindows(layout.video_layouts)) return -3;
  if (config->content(zm_get_layout_string(layout.video_layouts)) < 0) return -3;
  // A slot taken from the free pool has no kind yet: it becomes a manual layout.
  if (adding && config->group() == nullptr) {
    MixerConfigGroup* manual = nullptr;
    if (MixerConfigGroup::QueryByTypeName(kVideo, "Manual", &manual) == 0 && manual != nullptr) {
      config->group_id(manual->id());
      config->rank(-1);  // last of its new group
    }
    delete manual;
  }
  MixerConfigGroup* group = config->group();
  std::string group_name = group != nullptr ? group->name() : "";
  if (MixerConfig::Update(config.get()) < 0) return -1;
  bool render = group == nullptr || BelowBoundary(group, boundary);
  if (!task) {
    ZLOG(0, "fail to allocate zm_layout_image_task_data.");
    return -1;
  }
  task->render = render;
  task->addition = render && !was_custom;
  task->notify = notify;
  task->group = group_name;
  // The task renders what the database now holds, read back once more.
  MixerConfig* stored = nullptr;
  if (MixerConfig::QueryById(kVideo, id, &stored) == 0 && stored != nullptr)
    config.reset(stored);
  else
    delete stored;
  task->config = std::move(config);
  try {
    std::thread(RunLayoutImageTask, std::move(task)).detach();
  } catch (const std::exception&) {
    return -1;
  }
  return 0;
}

}  // namespace

int zm_set_layout(int id, const zm_layout& layout, bool custom, bool notify) {
  return StoreLayout(id, layout, custom, notify, false);
}

int zm_add_layout(const zm_layout& layout) {
  // Taking the slot is one step in the database, so two callers adding at once never
  // write into the same slot.
  MixerConfig* slot = nullptr;
  if (MixerConfig::TakeFreeSlot(kVideo, &slot) != 0 || slot == nullptr) {
    delete slot;
    return -2;
  }
  std::unique_ptr<MixerConfig> taken(slot);
  if (StoreLayout(taken->id(), layout, true, true, true) == 0) return taken->id();
  // Nothing was stored: the slot goes back to the pool.
  taken->enabled(false);
  MixerConfig::Update(taken.get());
  return -1;
}

int zm_set_layout(int id, const std::vector<int>& source_ids, bool custom, bool notify) {
  std::unique_ptr<MixerConfig> config;
  std::vector<zm_video_layout> windows;
  if (int result = LoadForSources(id, custom, &config, &windows)) return result;
  if (source_ids.size() > windows.size()) return -3;
  for (size_t i = 0; i < source_ids.size(); ++i) windows[i].id = source_ids[i];
  return StoreSources(config.get(), windows, notify);
}

int zm_set_layout(int id, int old_source, int new_source, bool custom, bool notify) {
  std::unique_ptr<MixerConfig> config;
  std::vector<zm_video_layout> windows;
  if (int result = LoadForSources(id, custom, &config, &windows)) return result;
  for (zm_video_layout& window : windows)
    if (window.id == old_source) window.id = new_source;
  return StoreSources(config.get(), windows, notify);
}

int zm_remove_layout(int id) {
  if (id < 1) return -3;
  unsigned boundary = DisplayBoundary();
  MixerConfig* found = nullptr;
  if (MixerConfig::QueryById(kVideo, id, &found) < 0 || found == nullptr) {
    delete found;
    return -5;
  }
  std::unique_ptr<MixerConfig> config(found);
  if (!config->enabled()) return -5;
  MixerConfigGroup* group = config->group();
  if (group != nullptr && !BelowBoundary(group, boundary)) return -2;
  std::string group_name = group != nullptr ? group->name() : "";
  config->custom(false);
  config->enabled(false);
  config->content(std::string());
  // The slot goes back to the free pool, which has no kind, so that no listing shows it.
  config->group_id(0);
  int result = MixerConfig::Update(config.get()) < 0 ? -1 : 0;
  std::vector<Theme*> themes;
  if (result == 0) {
    Theme::QueryByLayout(id, &themes);
    Theme::RemoveLayout(id);
    SendLayoutChange(nullptr, zolo::ChangeType::kRemoved, id, group_name);
  }
  for (Theme* theme : themes)
    zolo::NotifyMediaDataChange(zolo::ChangeType::kChanged, zolo::DataKind::kTheme, theme->id());
  MediaModel::CleanQuery(&themes);
  return result;
}

int zm_set_video_layout_content(int id, int index, zm_video_layout* window) {
  if (window == nullptr) return -3;
  MixerConfig* found = nullptr;
  if (MixerConfig::QueryById(kVideo, id, &found) < 0 || found == nullptr) {
    delete found;
    return -5;
  }
  std::unique_ptr<MixerConfig> config(found);
  if (!config->custom()) return -5;
  return config->SetVideoLayoutContent(
      index, MixerConfigVideoLayout(0, window->w, window->h, window->x, window->y, window->z,
                                    window->crop));
}

int zm_get_display_layout() {
  Mixer* mixer = nullptr;
  if (Mixer::QueryByName(Mixer::kVideo, "zolo://video/display_mixer/0", &mixer) < 0 ||
      mixer == nullptr) {
    delete mixer;
    return -5;
  }
  int id = mixer->config_id();
  delete mixer;
  return id;
}
