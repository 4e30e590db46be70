#include "zolo_model/mixer_config.h"

#include <algorithm>

#include "json_text.h"
#include "zolo_model/media_model.h"

using zolo::model::Json;
using zolo::model::ParseJson;
using zolo::model::PrintJson;

namespace {

// Longest content accepted: far above any real layout, small enough to keep in memory.
constexpr size_t kMaxContent = 1 << 20;

// The columns of a configuration with its group's type and name; also read after
// RETURNING, so a slot taken by a change comes back in the same form.
constexpr const char* kColumns =
    "id, type, COALESCE(group_id, 0), name, content, rank, enabled, custom, "
    "(SELECT g.type FROM mixer_config_group g WHERE g.id = mixer_config.group_id), "
    "(SELECT g.name FROM mixer_config_group g WHERE g.id = mixer_config.group_id) ";

std::string Select(const char* where) {
  return std::string("SELECT ") + kColumns + "FROM mixer_config " + where;
}

constexpr const char* kGroupColumns = "SELECT id, type, name FROM mixer_config_group ";

// The "layout" array of a video content, or null when the content is not a list of
// window objects.
cJSON* LayoutArray(cJSON* root) {
  cJSON* layout = cJSON_GetObjectItemCaseSensitive(root, "layout");
  if (!cJSON_IsArray(layout)) return nullptr;
  const cJSON* window = nullptr;
  cJSON_ArrayForEach(window, layout) {
    if (!cJSON_IsObject(window)) return nullptr;
  }
  return layout;
}

double Number(const cJSON* object, const char* key) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, key);
  return cJSON_IsNumber(item) ? item->valuedouble : 0.0;
}

int Integer(const cJSON* object, const char* key) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, key);
  return cJSON_IsNumber(item) ? item->valueint : 0;
}

// Sets `key` of `object` to a number, keeping its position when present.
bool SetNumber(cJSON* object, const char* key, double value) {
  cJSON* number = cJSON_CreateNumber(value);
  if (number == nullptr) return false;
  if (cJSON_GetObjectItemCaseSensitive(object, key) != nullptr)
    return cJSON_ReplaceItemInObjectCaseSensitive(object, key, number) != 0;
  if (!cJSON_AddItemToObject(object, key, number)) {
    cJSON_Delete(number);
    return false;
  }
  return true;
}

// Channel id of one "sources" element (a number or an object with "id"); 0 when none.
int SourceId(const cJSON* element) {
  return cJSON_IsNumber(element) ? element->valueint : Integer(element, "id");
}

bool ValidContent(const std::string& text) {
  if (text.empty()) return true;
  if (text.size() > kMaxContent) return false;
  Json root = ParseJson(text);
  return root && cJSON_IsObject(root.get());
}

}  // namespace

// Reads rows into objects; the friend of both classes.
class MixerConfigRow {
 public:
  static MixerConfig* Read(SQLite::Statement& st) {
    auto config = std::make_unique<MixerConfig>();
    config->id_ = st.getColumn(0).getInt();
    config->type_ = st.getColumn(1).getInt();
    config->group_id_ = st.getColumn(2).getInt();
    config->name_ = st.getColumn(3).getString();
    config->content_ = st.getColumn(4).getString();
    config->rank_ = st.getColumn(5).getInt();
    config->enabled_ = st.getColumn(6).getInt() != 0;
    config->custom_ = st.getColumn(7).getInt() != 0;
    // The group comes with the row, so listing layouts with their kinds costs one query.
    if (!st.getColumn(9).isNull()) {
      auto group = std::make_unique<MixerConfigGroup>();
      group->id_ = config->group_id_;
      group->type_ = st.getColumn(8).getInt();
      group->name_ = st.getColumn(9).getString();
      config->group_ = std::move(group);
    }
    return config.release();
  }

  static MixerConfigGroup* ReadGroup(SQLite::Statement& st) {
    auto* group = new MixerConfigGroup();
    group->id_ = st.getColumn(0).getInt();
    group->type_ = st.getColumn(1).getInt();
    group->name_ = st.getColumn(2).getString();
    return group;
  }
};

// --- MixerConfig -------------------------------------------------------------------

MixerConfig::MixerConfig() = default;
MixerConfig::~MixerConfig() = default;

int MixerConfig::QueryById(int type, int id, MixerConfig** out) {
  static const std::string sql = Select("WHERE id = ? AND type = ?");
  return zolo::model::QueryRow(out, sql, MixerConfigRow::Read, id, type);
}

int MixerConfig::QueryByType(int type, std::vector<MixerConfig*>* out) {
  static const std::string sql = Select("WHERE type = ? ORDER BY id");
  return zolo::model::QueryRows(out, sql, MixerConfigRow::Read, type);
}

int MixerConfig::QueryByType(int type, std::vector<MixerConfig*>* out, bool enabled, bool custom) {
  static const std::string sql =
      Select("WHERE type = ? AND enabled = ? AND custom = ? ORDER BY id");
  return zolo::model::QueryRows(out, sql, MixerConfigRow::Read, type, enabled ? 1 : 0,
                                custom ? 1 : 0);
}

int MixerConfig::TakeFreeSlot(int type, MixerConfig** out) {
  static const std::string sql =
      "UPDATE mixer_config SET enabled = 1, rank = (SELECT COALESCE(MAX(o.rank), 0) + 1 "
      "FROM mixer_config o WHERE o.enabled = 1 AND o.type = mixer_config.type AND "
      "o.group_id IS mixer_config.group_id) WHERE id = (SELECT id FROM mixer_config WHERE "
      "type = ? AND enabled = 0 AND custom = 0 ORDER BY id LIMIT 1) RETURNING " +
      std::string(kColumns);
  int result = zolo::model::QueryRow(out, sql, MixerConfigRow::Read, type);
  return result == -5 ? -2 : result;
}

int MixerConfig::Update(MixerConfig* config) {
  if (config == nullptr) return -3;
  int result = zolo::model::QueryInt(
      &config->rank_,
      "UPDATE mixer_config SET group_id = NULLIF(?1, 0), name = ?2, content = ?3, enabled = ?5, "
      "custom = ?6, rank = CASE WHEN ?5 = 0 THEN -1 WHEN ?4 >= 1 THEN ?4 WHEN enabled = 1 AND "
      "group_id IS NULLIF(?1, 0) THEN rank "
      "ELSE (SELECT "
      "COALESCE(MAX(o.rank), 0) + 1 FROM mixer_config o WHERE o.enabled = 1 AND o.type = ?8 "
      "AND o.group_id IS NULLIF(?1, 0) AND o.id <> ?7) END WHERE id = ?7 AND type = ?8 "
      "RETURNING rank",
      config->group_id_, config->name_, config->content_, config->rank_, config->enabled_ ? 1 : 0,
      config->custom_ ? 1 : 0, config->id_, config->type_);
  return result;
}

int MixerConfig::content(const std::string& value) {
  if (!ValidContent(value)) return -3;
  content_ = value;
  return 0;
}

int MixerConfig::content(const char* value) {
  if (value == nullptr) return -3;
  return content(std::string(value));
}

void MixerConfig::group_id(int value) {
  if (value == group_id_) return;
  group_id_ = value < 1 ? 0 : value;
  group_.reset();
}

MixerConfigGroup* MixerConfig::group(int reload) {
  if (reload != 0) group_.reset();
  return zolo::model::LoadOnce(group_id_, &group_, [this](MixerConfigGroup** out) {
    return MixerConfigGroup::QueryById(group_id_, out);
  });
}

int MixerConfig::GetVideoLayout(std::vector<MixerConfigVideoLayout*>* out) const {
  if (out == nullptr) return -3;
  if (content_.empty()) return 0;
  Json root = ParseJson(content_);
  cJSON* layout = root ? LayoutArray(root.get()) : nullptr;
  if (layout == nullptr) return -3;
  std::vector<std::unique_ptr<MixerConfigVideoLayout>> windows;
  const cJSON* window = nullptr;
  cJSON_ArrayForEach(window, layout) {
    windows.push_back(std::make_unique<MixerConfigVideoLayout>(
        Integer(window, "id"), Number(window, "w"), Number(window, "h"), Number(window, "x"),
        Number(window, "y"), static_cast<int>(Number(window, "z")), Integer(window, "crop")));
  }
  out->reserve(out->size() + windows.size());
  for (auto& each : windows) out->push_back(each.release());
  return 0;
}

int MixerConfig::SetVideoLayoutContent(int index, const MixerConfigVideoLayout& window) {
  if (index < 0) return -3;
  Json root = ParseJson(content_);
  cJSON* layout = root ? LayoutArray(root.get()) : nullptr;
  cJSON* target = layout != nullptr ? cJSON_GetArrayItem(layout, index) : nullptr;
  if (target == nullptr) return -3;
  bool ok = (window.id() < 1 || SetNumber(target, "id", window.id())) &&
            SetNumber(target, "x", window.x()) && SetNumber(target, "y", window.y()) &&
            SetNumber(target, "z", window.z()) && SetNumber(target, "w", window.w()) &&
            SetNumber(target, "h", window.h()) && SetNumber(target, "crop", window.crop());
  std::string text = ok ? PrintJson(root.get()) : std::string();
  if (text.empty()) return -1;
  int result = zolo::model::ChangeOneRow(
      "UPDATE mixer_config SET content = ? WHERE id = ? AND type = ?", text, id_, type_);
  if (result == 0) content_ = std::move(text);
  return result;
}

bool MixerConfig::IsAudioSourceContain(int channel_id) const {
  std::vector<int> ids;
  if (GetAudioSources(&ids) != 0) return false;
  return std::find(ids.begin(), ids.end(), channel_id) != ids.end();
}

int MixerConfig::GetAudioSources(std::vector<int>* out) const {
  if (out == nullptr) return -3;
  if (content_.empty()) return 0;
  Json root = ParseJson(content_);
  cJSON* sources = root ? cJSON_GetObjectItemCaseSensitive(root.get(), "sources") : nullptr;
  if (!cJSON_IsArray(sources)) return -3;
  const cJSON* element = nullptr;
  cJSON_ArrayForEach(element, sources) {
    int id = SourceId(element);
    if (id >= 1) out->push_back(id);
  }
  return 0;
}

void MixerConfig::SetAudioSources(const std::vector<int>& channel_ids) {
  Json root(cJSON_CreateObject());
  cJSON* sources = root ? cJSON_AddArrayToObject(root.get(), "sources") : nullptr;
  if (sources == nullptr) return;
  for (int id : channel_ids) {
    if (id < 1) continue;
    cJSON* source = cJSON_CreateObject();
    if (source == nullptr || !cJSON_AddItemToArray(sources, source) ||
        cJSON_AddNumberToObject(source, "id", id) == nullptr)
      return;
  }
  std::string text = PrintJson(root.get());
  if (!text.empty()) content_ = std::move(text);
}

int MixerConfig::UpdateRank(int rank) {
  return zolo::model::MoveRank("mixer_config", "o.type = m.type AND o.group_id IS m.group_id", id_,
                               rank, &rank_);
}

// --- MixerConfigGroup --------------------------------------------------------------

MixerConfigGroup::MixerConfigGroup() = default;

MixerConfigGroup::~MixerConfigGroup() {
  MediaModel::CleanQuery(&configs_);
}

int MixerConfigGroup::QueryByTypeName(int type, const std::string& name, MixerConfigGroup** out) {
  static const std::string sql = std::string(kGroupColumns) + "WHERE type = ? AND name = ?";
  return zolo::model::QueryRow(out, sql, MixerConfigRow::ReadGroup, type, name);
}

int MixerConfigGroup::QueryByTypeName(int type, const char* name, MixerConfigGroup** out) {
  if (name == nullptr) return -3;
  return QueryByTypeName(type, std::string(name), out);
}

int MixerConfigGroup::QueryById(int id, MixerConfigGroup** out) {
  static const std::string sql = std::string(kGroupColumns) + "WHERE id = ?";
  return zolo::model::QueryRow(out, sql, MixerConfigRow::ReadGroup, id);
}

int MixerConfigGroup::QueryByType(int type, std::vector<MixerConfigGroup*>* out) {
  static const std::string sql = std::string(kGroupColumns) + "WHERE type = ? ORDER BY id";
  return zolo::model::QueryRows(out, sql, MixerConfigRow::ReadGroup, type);
}

const std::vector<MixerConfig*>& MixerConfigGroup::configs() {
  if (configs_loaded_) return configs_;
  static const std::string sql = Select("WHERE group_id = ? ORDER BY rank < 1, rank, id");
  configs_loaded_ = zolo::model::QueryRows(&configs_, sql, MixerConfigRow::Read, id_) == 0;
  return configs_;
}
