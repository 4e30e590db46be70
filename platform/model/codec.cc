#include "zolo_model/codec.h"

#include <cjson/cJSON.h>

#include <memory>

#include "json_text.h"
#include "query_support.h"

namespace {

using zolo::model::QueryRowsByKey;
using zolo::model::TakeFirst;

constexpr const char* kCodecTypes[] = {"video", "audio"};

// The objects of the JSON array `text` as name/value entries.
std::vector<CodecParameter> ParseParameters(const std::string& text) {
  std::vector<CodecParameter> entries;
  zolo::model::Json list = zolo::model::ParseJson(text);
  const cJSON* array = cJSON_IsArray(list.get()) ? list.get() : nullptr;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, array) {
    if (!cJSON_IsObject(item)) continue;
    const char* name = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(item, "name"));
    const char* value = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(item, "value"));
    entries.push_back({name ? name : "", value ? value : ""});
  }
  return entries;
}

}  // namespace

int Codec::StringToType(const std::string& type) {
  for (int i = 0; i < 2; ++i)
    if (type == kCodecTypes[i]) return i;
  return -1;
}

std::string Codec::TypeToString(int type) {
  return type == 0 || type == 1 ? kCodecTypes[type] : "unknown";
}

int Codec::QueryList(const char* where, const std::string* text, int number,
                     std::vector<Codec*>* out) {
  auto read = [](SQLite::Statement& row) {
    auto* codec = new Codec();
    codec->id_ = row.getColumn(0).getInt();
    codec->name_ = row.getColumn(1).getString();
    codec->type_ = TypeToString(row.getColumn(2).getInt());
    codec->parameters_ = ParseParameters(row.getColumn(3).getString());
    return codec;
  };
  return QueryRowsByKey(
      out,
      std::string("SELECT id, name, type, parameters FROM codec WHERE ") + where + " ORDER BY id",
      read, text, number);
}

int Codec::QueryAll(std::vector<Codec*>* out) {
  return QueryList("1", nullptr, 0, out);
}

int Codec::QueryById(int id, Codec** out) {
  if (out == nullptr) return -3;
  std::vector<Codec*> found;
  return TakeFirst(&found, QueryList("id = ?", nullptr, id, &found), out);
}

int Codec::QueryByName(const std::string& name, Codec** out) {
  if (out == nullptr) return -3;
  std::vector<Codec*> found;
  return TakeFirst(&found, QueryList("name = ?", &name, 0, &found), out);
}

int Codec::QueryByTypeName(const char* type, const char* name, std::vector<Codec*>* out) {
  if (out == nullptr) return -3;
  if (type != nullptr && StringToType(type) < 0) return 0;
  int type_number = type ? StringToType(type) : 0;
  if (type != nullptr && name != nullptr) {
    std::string text = name;
    // The type is a number from a fixed list, never caller text.
    return QueryList(type_number == 0 ? "type = 0 AND name = ?" : "type = 1 AND name = ?", &text, 0,
                     out);
  }
  if (type != nullptr) return QueryList("type = ?", nullptr, type_number, out);
  if (name != nullptr) {
    std::string text = name;
    return QueryList("name = ?", &text, 0, out);
  }
  return QueryAll(out);
}
