#include "zolo_model/media_setting.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "zolo_model/media_model.h"

int MediaSetting::Query(const std::string& name, MediaSetting** out) {
  return zolo::model::QueryRow(
      out, "SELECT id, value FROM setting WHERE name = ?",
      [&name](SQLite::Statement& row) {
        return new MediaSetting(row.getColumn(0).getInt(), name, row.getColumn(1).getString());
      },
      name);
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
