#include "zolo_model/media_setting.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "zolo_model/media_model.h"

int MediaSetting::Query(const std::string& name, MediaSetting** out) {
  if (out == nullptr) return -3;
  zolo::model::Database* db = MediaModel::Instance()->database();
  if (db == nullptr) return -1;
  try {
    auto lock = db->Lock();
    SQLite::Statement& query = db->Prepared("SELECT id, value FROM setting WHERE name = ?");
    query.bind(1, name);
    if (!query.executeStep()) return -5;
    *out = new MediaSetting(query.getColumn(0).getInt(), name, query.getColumn(1).getString());
    query.reset();
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}

int MediaSetting::QueryValue(const std::string& name, std::string* value) {
  if (value == nullptr) return -3;
  MediaSetting* setting = nullptr;
  int result = Query(name, &setting);
  if (result != 0) return result;
  *value = setting->value();
  delete setting;
  return 0;
}

int MediaSetting::QueryValue(const std::string& name, int* value) {
  if (value == nullptr) return -3;
  std::string text;
  int result = QueryValue(name, &text);
  if (result != 0) return result;
  char* end = nullptr;
  errno = 0;
  long number = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str() || *end != '\0' || errno == ERANGE || number < INT_MIN ||
      number > INT_MAX)
    return -3;
  *value = static_cast<int>(number);
  return 0;
}

int MediaSetting::Save() {
  int result = zolo::model::ChangeOneRow("UPDATE setting SET value = ? WHERE id = ?", value_, id_);
  return result == 0 ? 0 : -1;
}
