#include "zolo_model/mixer_asset.h"

#include <zolo/sysroot.h>

#include <memory>

#include "json_text.h"
#include "zolo_model/media_model.h"

using zolo::model::Json;
using zolo::model::ParseJson;
using zolo::model::PrintJson;

namespace {
// Also read after RETURNING, so a slot taken by a change comes back in the same form.
constexpr const char* kColumns =
    "id, type, name, path, origin, origins, location, content, enabled, rank ";

std::string Select(const char* where) {
  return std::string("SELECT ") + kColumns + "FROM mixer_asset " + where;
}
}  // namespace

class MixerAssetRow {
 public:
  static MixerAsset* Read(SQLite::Statement& st) {
    auto asset = std::make_unique<MixerAsset>();
    asset->id_ = st.getColumn(0).getInt();
    asset->type_ = st.getColumn(1).getInt();
    asset->name_ = st.getColumn(2).getString();
    asset->path_ = st.getColumn(3).getString();
    asset->origin_ = st.getColumn(4).getString();
    asset->origins_ = zolo::model::ParseNames(st.getColumn(5).getString());
    asset->location_ = st.getColumn(6).getString();
    asset->content_ = st.getColumn(7).getString();
    asset->enabled_ = st.getColumn(8).getInt() != 0;
    asset->rank_ = st.getColumn(9).getInt();
    return asset.release();
  }

  static int Update(MixerAsset* asset) {
    std::string origins;
    if (!zolo::model::PrintNames(asset->origins_, &origins)) return -1;
    return zolo::model::QueryInt(
        &asset->rank_,
        "UPDATE mixer_asset SET name = ?1, path = ?2, origin = ?3, origins = ?4, location = ?5, "
        "content = ?6, enabled = ?7, rank = CASE WHEN ?7 = 0 THEN -1 WHEN ?8 >= 1 THEN ?8 WHEN "
        "enabled = 1 THEN rank ELSE "
        "(SELECT COALESCE(MAX(o.rank), 0) + 1 FROM mixer_asset o WHERE o.type = ?10 AND "
        "o.enabled = 1 AND o.id <> ?9) END WHERE id = ?9 AND type = ?10 RETURNING rank",
        asset->name_, asset->path_, asset->origin_, origins, asset->location_, asset->content_,
        asset->enabled_ ? 1 : 0, asset->rank_, asset->id_, asset->type_);
  }
};

namespace {

// `path` without a "file://" scheme.
std::string PlainPath(const std::string& path) {
  static const std::string kScheme = "file://";
  return path.compare(0, kScheme.size(), kScheme) == 0 ? path.substr(kScheme.size()) : path;
}

// The file `name` inside `folder`, below the sandbox root; "" unless `name` is a plain
// file name and the folder an absolute path.
std::string FileIn(const std::string& folder, const std::string& name) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
      name.find('\0') != std::string::npos)
    return std::string();
  std::string dir = PlainPath(folder);
  if (dir.empty() || dir[0] != '/') return std::string();
  std::string joined = dir.back() == '/' ? dir + name : dir + "/" + name;
  return zolo::SysrootPath(joined);
}

bool ReadPosition(const cJSON* item, MixerAssetLocation* position) {
  if (!cJSON_IsObject(item)) return false;
  const cJSON* x = cJSON_GetObjectItemCaseSensitive(item, "x");
  const cJSON* y = cJSON_GetObjectItemCaseSensitive(item, "y");
  if (!cJSON_IsNumber(x) || !cJSON_IsNumber(y)) return false;
  position->x = x->valuedouble;
  position->y = y->valuedouble;
  return true;
}

}  // namespace

int MixerAsset::QueryById(int type, int id, MixerAsset** out) {
  static const std::string sql = Select("WHERE id = ? AND type = ?");
  return zolo::model::QueryRow(out, sql, MixerAssetRow::Read, id, type);
}

int MixerAsset::QueryByType(int type, std::vector<MixerAsset*>* out) {
  static const std::string sql = Select("WHERE type = ? ORDER BY rank < 1, rank, id");
  return zolo::model::QueryRows(out, sql, MixerAssetRow::Read, type);
}

int MixerAsset::QueryByType(int type, std::vector<MixerAsset*>* out, bool enabled) {
  static const std::string sql =
      Select("WHERE type = ? AND enabled = ? ORDER BY rank < 1, rank, id");
  return zolo::model::QueryRows(out, sql, MixerAssetRow::Read, type, enabled ? 1 : 0);
}

int MixerAsset::Count(int type, bool enabled) {
  int count = 0;
  int result = zolo::model::QueryInt(
      &count, "SELECT count(*) FROM mixer_asset WHERE type = ? AND enabled = ?", type,
      enabled ? 1 : 0);
  return result == 0 ? count : result;
}

int MixerAsset::TakeFreeSlot(int type, MixerAsset** out) {
  static const std::string sql =
      "UPDATE mixer_asset SET enabled = 1, rank = (SELECT COALESCE(MAX(o.rank), 0) + 1 FROM "
      "mixer_asset o WHERE o.type = mixer_asset.type AND o.enabled = 1) WHERE id = (SELECT id "
      "FROM mixer_asset WHERE type = ? AND enabled = 0 ORDER BY id LIMIT 1) RETURNING " +
      std::string(kColumns);
  int result = zolo::model::QueryRow(out, sql, MixerAssetRow::Read, type);
  return result == -5 ? -2 : result;
}

int MixerAsset::Update(MixerAsset* asset) {
  return asset != nullptr ? MixerAssetRow::Update(asset) : -3;
}

int MixerAsset::origins(std::vector<std::string>* out) const {
  if (out == nullptr) return -3;
  if (!origins_.empty())
    out->insert(out->end(), origins_.begin(), origins_.end());
  else if (!origin_.empty())
    out->push_back(origin_);
  return 0;
}

void MixerAsset::origins(const std::vector<std::string>& names) {
  origins_.clear();
  for (const auto& name : names)
    if (!name.empty()) origins_.push_back(name);
}

std::string MixerAsset::fullpath() const {
  return FileIn(path_, name_);
}

std::string MixerAsset::fullpath(const std::string& name) const {
  return FileIn(path_, name);
}

std::string MixerAsset::fullpath(const char* name) const {
  return name != nullptr ? FileIn(path_, name) : std::string();
}

std::string MixerAsset::fullorigin() const {
  return FileIn(path_, origin_);
}

int MixerAsset::ParseLocation(std::vector<MixerAssetLocation>* out) const {
  if (out == nullptr) return -3;
  if (location_.empty()) return 0;
  Json root = ParseJson(location_);
  if (!root) return -3;
  std::vector<MixerAssetLocation> positions;
  MixerAssetLocation position;
  if (cJSON_IsObject(root.get())) {
    if (!ReadPosition(root.get(), &position)) return -3;
    positions.push_back(position);
  } else if (cJSON_IsArray(root.get())) {
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, root.get()) {
      if (!ReadPosition(item, &position)) return -3;
      positions.push_back(position);
    }
  } else {
    return -3;
  }
  out->insert(out->end(), positions.begin(), positions.end());
  return 0;
}

int MixerAsset::ParseLocation(double* x, double* y) const {
  if (x == nullptr || y == nullptr) return -3;
  std::vector<MixerAssetLocation> positions;
  if (ParseLocation(&positions) != 0 || positions.empty()) return -3;
  *x = positions.front().x;
  *y = positions.front().y;
  return 0;
}

void MixerAsset::SetLocation(const std::vector<MixerAssetLocation>& positions) {
  Json root(cJSON_CreateArray());
  if (!root) return;
  for (const auto& position : positions) {
    cJSON* item = cJSON_CreateObject();
    if (item == nullptr || !cJSON_AddItemToArray(root.get(), item) ||
        cJSON_AddNumberToObject(item, "x", position.x) == nullptr ||
        cJSON_AddNumberToObject(item, "y", position.y) == nullptr)
      return;
  }
  std::string text = PrintJson(root.get());
  if (!text.empty()) location_ = std::move(text);
}

int MixerAsset::UpdateRank(int rank) {
  return zolo::model::MoveRank("mixer_asset", "o.type = m.type", id_, rank, &rank_);
}
