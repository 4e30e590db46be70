#include "zolo/media_json/record_json.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace zolo::json {
namespace {

cJSON* ValueToJson(const ValueType& type, const void* value);

cJSON* ListToJsonArray(const ValueType& type, const void* list) {
  cJSON* array = cJSON_CreateArray();
  type.list->for_each(list, [&](const void* element) {
    cJSON_AddItemToArray(array, ValueToJson(*type.element, element));
  });
  return array;
}

cJSON* ValueToJson(const ValueType& type, const void* value) {
  switch (type.kind) {
    case Kind::kInt32:
      return cJSON_CreateNumber(*static_cast<const int32_t*>(value));
    case Kind::kUInt32:
      return cJSON_CreateNumber(*static_cast<const uint32_t*>(value));
    case Kind::kUInt64:
      return cJSON_CreateNumber(static_cast<double>(*static_cast<const uint64_t*>(value)));
    case Kind::kDouble: {
      double number = *static_cast<const double*>(value);
      return std::isfinite(number) ? cJSON_CreateNumber(number) : cJSON_CreateNull();
    }
    case Kind::kBool:
      return cJSON_CreateBool(*static_cast<const bool*>(value));
    case Kind::kByteFlag:
      return cJSON_CreateBool(*static_cast<const uint8_t*>(value) != 0);
    case Kind::kIntFlag:
      return cJSON_CreateBool(*static_cast<const int*>(value) != 0);
    case Kind::kText: {
      // Stop at the capacity even when a record lacks its terminator.
      const char* text = static_cast<const char*>(value);
      return cJSON_CreateString(std::string(text, strnlen(text, type.capacity)).c_str());
    }
    case Kind::kString:
      return cJSON_CreateString(static_cast<const std::string*>(value)->c_str());
    case Kind::kOwnedText: {
      const char* text = *static_cast<char* const*>(value);
      return text ? cJSON_CreateString(text) : cJSON_CreateNull();
    }
    case Kind::kRecord:
      return RecordToJson(*type.record, value).release();
    case Kind::kList:
      return ListToJsonArray(type, value);
  }
  return cJSON_CreateNull();
}

// An integer JSON number within [low, high], or false.
bool ReadInteger(const cJSON* json, double low, double high, double* out) {
  if (!cJSON_IsNumber(json)) return false;
  double number = json->valuedouble;
  if (!std::isfinite(number) || std::floor(number) != number || number < low || number > high)
    return false;
  *out = number;
  return true;
}

std::string ValueFromJson(const ValueType& type, const cJSON* json, void* value,
                          const std::string& path) {
  double number = 0;
  switch (type.kind) {
    case Kind::kInt32:
      if (!ReadInteger(json, std::numeric_limits<int32_t>::min(),
                       std::numeric_limits<int32_t>::max(), &number))
        return path + " must be a 32-bit integer";
      *static_cast<int32_t*>(value) = static_cast<int32_t>(number);
      return "";
    case Kind::kUInt32:
      if (!ReadInteger(json, 0, std::numeric_limits<uint32_t>::max(), &number))
        return path + " must be an unsigned 32-bit integer";
      *static_cast<uint32_t*>(value) = static_cast<uint32_t>(number);
      return "";
    case Kind::kUInt64:
      // JSON numbers hold integers exactly up to 2^53.
      if (!ReadInteger(json, 0, 9007199254740992.0, &number))
        return path + " must be an unsigned integer below 2^53";
      *static_cast<uint64_t*>(value) = static_cast<uint64_t>(number);
      return "";
    case Kind::kDouble:
      if (!cJSON_IsNumber(json) || !std::isfinite(json->valuedouble))
        return path + " must be a number";
      *static_cast<double*>(value) = json->valuedouble;
      return "";
    case Kind::kBool:
    case Kind::kByteFlag:
    case Kind::kIntFlag: {
      if (!cJSON_IsBool(json)) return path + " must be a boolean";
      bool flag = cJSON_IsTrue(json);
      if (type.kind == Kind::kBool) *static_cast<bool*>(value) = flag;
      if (type.kind == Kind::kByteFlag) *static_cast<uint8_t*>(value) = flag ? 1 : 0;
      if (type.kind == Kind::kIntFlag) *static_cast<int*>(value) = flag ? 1 : 0;
      return "";
    }
    case Kind::kText: {
      if (!cJSON_IsString(json)) return path + " must be a string";
      size_t length = std::strlen(json->valuestring);
      if (length >= type.capacity)
        return path + " must be shorter than " + std::to_string(type.capacity) + " bytes";
      std::memcpy(value, json->valuestring, length + 1);
      return "";
    }
    case Kind::kString:
      if (!cJSON_IsString(json)) return path + " must be a string";
      *static_cast<std::string*>(value) = json->valuestring;
      return "";
    case Kind::kOwnedText:
      return path + " cannot be set";
    case Kind::kRecord:
      return RecordFromJson(*type.record, json, value, path);
    case Kind::kList: {
      if (!cJSON_IsArray(json)) return path + " must be an array";
      int index = 0;
      for (const cJSON* item = json->child; item; item = item->next, ++index) {
        std::string error = ValueFromJson(*type.element, item, type.list->append(value),
                                          path + "[" + std::to_string(index) + "]");
        if (!error.empty()) return error;
      }
      return "";
    }
  }
  return path + " has an unknown kind";
}

}  // namespace

JsonHolder RecordToJson(const RecordType& type, const void* record) {
  JsonHolder object(cJSON_CreateObject());
  void* mutable_record = const_cast<void*>(record);  // accessors are shared with reading
  for (const Field& field : type.fields)
    cJSON_AddItemToObject(object.get(), field.name,
                          ValueToJson(field.type, field.at(mutable_record)));
  return object;
}

std::string RecordFromJson(const RecordType& type, const cJSON* json, void* record,
                           const std::string& path) {
  std::string name = path.empty() ? std::string(type.name) : path;
  if (!cJSON_IsObject(json)) return name + " must be an object";
  std::string prefix = path.empty() ? "" : path + ".";
  for (const cJSON* member = json->child; member; member = member->next) {
    bool known = false;
    for (const Field& field : type.fields)
      known = known || std::strcmp(field.name, member->string) == 0;
    if (!known) return prefix + member->string + " is not a member of " + type.name;
  }
  for (const Field& field : type.fields) {
    const cJSON* member = cJSON_GetObjectItemCaseSensitive(json, field.name);
    if (!member) {
      if (field.required) return prefix + field.name + " is missing";
      continue;
    }
    std::string error = ValueFromJson(field.type, member, field.at(record), prefix + field.name);
    if (!error.empty()) return error;
  }
  return "";
}

}  // namespace zolo::json
