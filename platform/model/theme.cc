#include "zolo_model/theme.h"

#include "zolo_model/media_model.h"

namespace {
// Also read after RETURNING, so a slot taken by a change comes back in the same form.
constexpr const char* kColumns =
    "id, name, COALESCE(layout_id, 0), COALESCE(background_id, 0), COALESCE(overlay_id, 0), "
    "enabled, rank ";

std::string Select(const char* where) {
  return std::string("SELECT ") + kColumns + "FROM theme " + where;
}
}  // namespace

class ThemeRow {
 public:
  static Theme* Read(SQLite::Statement& st) {
    auto theme = std::make_unique<Theme>();
    theme->id_ = st.getColumn(0).getInt();
    theme->name_ = st.getColumn(1).getString();
    theme->layout_id_ = st.getColumn(2).getInt();
    theme->background_id_ = st.getColumn(3).getInt();
    theme->overlay_id_ = st.getColumn(4).getInt();
    theme->enabled_ = st.getColumn(5).getInt() != 0;
    theme->rank_ = st.getColumn(6).getInt();
    return theme.release();
  }

  static int Update(Theme* theme) {
    return zolo::model::QueryInt(
        &theme->rank_,
        "UPDATE theme SET name = ?1, layout_id = NULLIF(?2, 0), background_id = NULLIF(?3, 0), "
        "overlay_id = NULLIF(?4, 0), enabled = ?5, rank = CASE WHEN ?5 = 0 THEN -1 WHEN ?6 >= 1 "
        "THEN ?6 WHEN enabled = 1 THEN rank ELSE (SELECT COALESCE(MAX(o.rank), 0) + 1 FROM theme o "
        "WHERE o.enabled = 1 AND "
        "o.id <> ?7) END WHERE id = ?7 RETURNING rank",
        theme->name_, theme->layout_id_, theme->background_id_, theme->overlay_id_,
        theme->enabled_ ? 1 : 0, theme->rank_, theme->id_);
  }
};

namespace {
// Clears a binding from every theme: 0 also when no theme used it.
int Unbind(const char* sql, int id) {
  int changed = zolo::model::ChangeRows({sql}, id);
  return changed < 0 ? changed : 0;
}
}  // namespace

Theme::Theme() = default;
Theme::~Theme() = default;

int Theme::QueryById(int id, Theme** out) {
  static const std::string sql = Select("WHERE id = ?");
  return zolo::model::QueryRow(out, sql, ThemeRow::Read, id);
}

int Theme::QueryEnabled(std::vector<Theme*>* out, bool enabled) {
  static const std::string sql = Select("WHERE enabled = ? ORDER BY rank < 1, rank, id");
  return zolo::model::QueryRows(out, sql, ThemeRow::Read, enabled ? 1 : 0);
}

int Theme::QueryByLayout(int id, std::vector<Theme*>* out) {
  static const std::string sql = Select("WHERE layout_id = ? ORDER BY id");
  return zolo::model::QueryRows(out, sql, ThemeRow::Read, id);
}

int Theme::QueryByBackground(int id, std::vector<Theme*>* out) {
  static const std::string sql = Select("WHERE background_id = ? ORDER BY id");
  return zolo::model::QueryRows(out, sql, ThemeRow::Read, id);
}

int Theme::QueryByOverlay(int id, std::vector<Theme*>* out) {
  static const std::string sql = Select("WHERE overlay_id = ? ORDER BY id");
  return zolo::model::QueryRows(out, sql, ThemeRow::Read, id);
}

int Theme::RemoveLayout(int id) {
  return Unbind("UPDATE theme SET layout_id = NULL WHERE layout_id = ?", id);
}

int Theme::RemoveBackground(int id) {
  return Unbind("UPDATE theme SET background_id = NULL WHERE background_id = ?", id);
}

int Theme::RemoveOverlay(int id) {
  return Unbind("UPDATE theme SET overlay_id = NULL WHERE overlay_id = ?", id);
}

int Theme::TakeFreeSlot(Theme** out) {
  static const std::string sql =
      "UPDATE theme SET enabled = 1, rank = (SELECT COALESCE(MAX(o.rank), 0) + 1 FROM theme o "
      "WHERE o.enabled = 1) WHERE id = (SELECT id FROM theme WHERE enabled = 0 ORDER BY id "
      "LIMIT 1) RETURNING " +
      std::string(kColumns);
  int result = zolo::model::QueryRow(out, sql, ThemeRow::Read);
  return result == -5 ? -2 : result;
}

int Theme::Update(Theme* theme) {
  return theme != nullptr ? ThemeRow::Update(theme) : -3;
}

MixerConfig* Theme::layout() const {
  return zolo::model::LoadOnce(layout_id_, &layout_, [this](MixerConfig** out) {
    return MixerConfig::QueryById(MixerConfig::kVideo, layout_id_, out);
  });
}

void Theme::layout(MixerConfig* config) {
  layout_id_ = config != nullptr ? config->id() : 0;
  layout_.reset();
}

MixerAsset* Theme::background() const {
  return zolo::model::LoadOnce(background_id_, &background_, [this](MixerAsset** out) {
    return MixerAsset::QueryById(MixerAsset::kBackground, background_id_, out);
  });
}

void Theme::background(MixerAsset* asset) {
  background_id_ = asset != nullptr ? asset->id() : 0;
  background_.reset();
}

MixerAsset* Theme::overlay() const {
  return zolo::model::LoadOnce(overlay_id_, &overlay_, [this](MixerAsset** out) {
    return MixerAsset::QueryById(MixerAsset::kOverlay, overlay_id_, out);
  });
}

void Theme::overlay(MixerAsset* asset) {
  overlay_id_ = asset != nullptr ? asset->id() : 0;
  overlay_.reset();
}

int Theme::UpdateRank(int rank) {
  return zolo::model::MoveRank("theme", "1", id_, rank, &rank_);
}
