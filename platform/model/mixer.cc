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
    mixer->background_id_ = st.getColumn(4).getInt();
    mixer->foreground_id_ = st.getColumn(5).getInt();
    mixer->overlay_id_ = st.getColumn(6).getInt();
    mixer->system_overlay_id_ = st.getColumn(7).getInt();
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
        mixer.id_, outputs, mixer.config_id_, mixer.background_id_, mixer.foreground_id_,
        mixer.overlay_id_, mixer.system_overlay_id_, mixer.theme_id_);
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

// The asset bound to a mixer under `slot`, read once.
static MixerAsset* Asset(int type, int id, std::unique_ptr<MixerAsset>* cache) {
  return zolo::model::LoadOnce(
      id, cache, [type, id](MixerAsset** out) { return MixerAsset::QueryById(type, id, out); });
}

static void Bind(MixerAsset* asset, int* id, std::unique_ptr<MixerAsset>* cache) {
  *id = asset != nullptr ? asset->id() : 0;
  cache->reset();
}

MixerAsset* Mixer::background() const {
  return Asset(MixerAsset::kBackground, background_id_, &background_);
}

void Mixer::background(MixerAsset* asset) {
  Bind(asset, &background_id_, &background_);
}

MixerAsset* Mixer::foreground() const {
  return Asset(MixerAsset::kForeground, foreground_id_, &foreground_);
}

void Mixer::foreground(MixerAsset* asset) {
  Bind(asset, &foreground_id_, &foreground_);
}

MixerAsset* Mixer::overlay() const {
  return Asset(MixerAsset::kOverlay, overlay_id_, &overlay_);
}

void Mixer::overlay(MixerAsset* asset) {
  Bind(asset, &overlay_id_, &overlay_);
}

MixerAsset* Mixer::system_overlay() const {
  return Asset(MixerAsset::kSystemOverlay, system_overlay_id_, &system_overlay_);
}

void Mixer::system_overlay(MixerAsset* asset) {
  Bind(asset, &system_overlay_id_, &system_overlay_);
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
