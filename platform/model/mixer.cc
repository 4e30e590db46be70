#include "zolo_model/mixer.h"

#include "json_text.h"
#include "zolo_model/media_model.h"

namespace {
// A mixer with its outputs, in order, as a JSON array of names: one query per listing.
constexpr const char* kSelect =
    "SELECT m.id, m.type, m.name, COALESCE(m.config_id, 0), COALESCE(m.background_id, 0), "
    "COALESCE(m.foreground_id, 0), COALESCE(m.overlay_id, 0), "
    "COALESCE(m.system_overlay_id, 0), COALESCE(m.theme_id, 0), (SELECT json_group_array(stream) "
    "FROM (SELECT o.stream FROM mixer_output o WHERE o.mixer_id = m.id ORDER BY o.position)) "
    "FROM mixer m ";

std::string Select(const char* where) {
  return std::string(kSelect) + where;
}

}  // namespace

class MixerRow {
 public:
  static Mixer* Read(SQLite::Statement& st) {
    auto mixer = std::make_unique<Mixer>();
    mixer->id_ = st.getColumn(0).getInt();
    mixer->type_ = st.getColumn(1).getInt();
    mixer->name_ = st.getColumn(2).getString();
    mixer->config_id_ = st.getColumn(3).getInt();
    for (int kind = 0; kind < MixerAsset::kKinds; ++kind)
      mixer->asset_id_[kind] = st.getColumn(4 + kind).getInt();
    mixer->theme_id_ = st.getColumn(8).getInt();
    mixer->outputs_ = zolo::model::ParseNames(st.getColumn(9).getString());
    return mixer.release();
  }

  // The bindings, then the outputs replaced from a JSON list, in one transaction.
  static int Update(const Mixer& mixer) {
    std::string outputs;
    if (!zolo::model::PrintNames(mixer.outputs_, &outputs)) return -1;
    int changed = zolo::model::ChangeRows(
        {"UPDATE mixer SET config_id = NULLIF(?3, 0), background_id = NULLIF(?4, 0), "
         "foreground_id = NULLIF(?5, 0), overlay_id = NULLIF(?6, 0), "
         "system_overlay_id = NULLIF(?7, 0), theme_id = NULLIF(?8, 0) WHERE id = ?1",
         "DELETE FROM mixer_output WHERE mixer_id = ?1",
         "INSERT INTO mixer_output (mixer_id, position, stream) SELECT ?1, key, value "
         "FROM json_each(?2) WHERE EXISTS (SELECT 1 FROM mixer WHERE id = ?1)"},
        mixer.id_, outputs, mixer.config_id_, mixer.asset_id_[MixerAsset::kBackground],
        mixer.asset_id_[MixerAsset::kForeground], mixer.asset_id_[MixerAsset::kOverlay],
        mixer.asset_id_[MixerAsset::kSystemOverlay], mixer.theme_id_);
    return changed == 0 ? -5 : (changed < 0 ? changed : 0);
  }
};

Mixer::Mixer() = default;
Mixer::~Mixer() = default;

int Mixer::QueryByName(int type, const std::string& name, Mixer** out) {
  static const std::string sql = Select("WHERE m.type = ? AND m.name = ?");
  return zolo::model::QueryRow(out, sql, MixerRow::Read, type, name);
}

int Mixer::QueryByName(int type, const char* name, Mixer** out) {
  if (name == nullptr) return -3;
  return QueryByName(type, std::string(name), out);
}

int Mixer::QueryById(int id, Mixer** out) {
  static const std::string sql = Select("WHERE m.id = ?");
  return zolo::model::QueryRow(out, sql, MixerRow::Read, id);
}

int Mixer::QueryByOutput(int type, const std::string& stream, Mixer** out) {
  static const std::string sql = Select(
      "WHERE m.type = ? AND m.id IN (SELECT mixer_id FROM mixer_output WHERE stream = ?) "
      "ORDER BY m.id LIMIT 1");
  return zolo::model::QueryRow(out, sql, MixerRow::Read, type, stream);
}

int Mixer::QueryByType(int type, std::vector<Mixer*>* out) {
  static const std::string sql = Select("WHERE m.type = ? ORDER BY m.id");
  return zolo::model::QueryRows(out, sql, MixerRow::Read, type);
}

int Mixer::Update(Mixer* mixer) {
  return mixer != nullptr ? MixerRow::Update(*mixer) : -3;
}

void Mixer::outputs(const std::vector<std::string>& streams) {
  outputs_.clear();
  for (const auto& stream : streams)
    if (!stream.empty()) outputs_.push_back(stream);
}

MixerConfig* Mixer::config() const {
  return zolo::model::LoadOnce(config_id_, &config_, [this](MixerConfig** out) {
    return MixerConfig::QueryById(type_, config_id_, out);
  });
}

void Mixer::config(MixerConfig* config) {
  config_id_ = config != nullptr ? config->id() : 0;
  config_.reset();
}

MixerAsset* Mixer::asset(int kind) const {
  return zolo::model::LoadOnce(asset_id_[kind], &asset_[kind], [this, kind](MixerAsset** out) {
    return MixerAsset::QueryById(kind, asset_id_[kind], out);
  });
}

void Mixer::asset(int kind, MixerAsset* value) {
  asset_id_[kind] = value != nullptr ? value->id() : 0;
  asset_[kind].reset();
}

Theme* Mixer::theme() const {
  return zolo::model::LoadOnce(theme_id_, &theme_,
                               [this](Theme** out) { return Theme::QueryById(theme_id_, out); });
}

void Mixer::theme(Theme* theme) {
  theme_id_ = theme != nullptr ? theme->id() : 0;
  theme_.reset();
}

Mixer* query_mixer_from_audio_stream(const std::string& stream) {
  Mixer* mixer = nullptr;
  return Mixer::QueryByOutput(Mixer::kAudio, stream, &mixer) == 0 ? mixer : nullptr;
}

Mixer* query_mixer_from_audio_stream(const char* stream) {
  return stream != nullptr ? query_mixer_from_audio_stream(std::string(stream)) : nullptr;
}
