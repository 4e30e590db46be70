// Records <-> typed JSON, described once per record by a table of fields.
//
// Each record type has one RecordType: its fields in declaration order, each with its JSON
// member name, an accessor and the value's kind. The same table builds the JSON of a record
// and reads a record back from JSON, so output and input never disagree. Numbers are JSON
// numbers, flags booleans, texts strings, lists arrays, nested records objects.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <type_traits>
#include <vector>

#include "common/json_holder.h"

namespace zolo::json {

enum class Kind {
  kInt32,
  kUInt32,
  kUInt64,
  kDouble,
  kBool,       // bool
  kByteFlag,   // uint8_t holding 0 / 1, a JSON boolean
  kIntFlag,    // int holding 0 / 1, a JSON boolean
  kText,       // char[N], zero-terminated
  kString,     // std::string
  kOwnedText,  // char*, output only
  kRecord,
  kList,  // std::vector or std::list
};

struct RecordType;

// Walks and grows a container member without knowing its type.
struct ListOps {
  void (*for_each)(const void* list, const std::function<void(const void*)>& visit);
  void* (*append)(void* list);  // a new default element at the end
};

struct ValueType {
  Kind kind;
  size_t capacity = 0;                 // kText: bytes including the terminator
  const RecordType* record = nullptr;  // kRecord
  const ListOps* list = nullptr;       // kList
  const ValueType* element = nullptr;  // kList
};

struct Field {
  const char* name;
  void* (*at)(void* record);
  ValueType type;
  bool required = false;  // reading JSON: the member must be present
};

struct RecordType {
  const char* name;
  std::vector<Field> fields;
};

// The description of record type T; one explicit specialisation per record, declared in
// its family's header and defined in its family's source.
template <class T>
const RecordType& RecordTypeOf();

template <class T>
struct IsList : std::false_type {};
template <class T>
struct IsList<std::vector<T>> : std::true_type {};
template <class T>
struct IsList<std::list<T>> : std::true_type {};

template <class C>
const ListOps& ListOpsOf() {
  static const ListOps ops{[](const void* list, const std::function<void(const void*)>& visit) {
                             for (const auto& element : *static_cast<const C*>(list))
                               visit(&element);
                           },
                           [](void* list) -> void* {
                             auto* container = static_cast<C*>(list);
                             container->emplace_back();
                             return &container->back();
                           }};
  return ops;
}

template <class T>
const ValueType& ValueTypeOf();

template <class T>
ValueType MakeValueType() {
  if constexpr (std::is_same_v<T, bool>) {
    return {Kind::kBool};
  } else if constexpr (std::is_same_v<T, uint8_t>) {
    return {Kind::kByteFlag};
  } else if constexpr (std::is_same_v<T, int32_t>) {
    return {Kind::kInt32};
  } else if constexpr (std::is_same_v<T, uint32_t>) {
    return {Kind::kUInt32};
  } else if constexpr (std::is_same_v<T, uint64_t>) {
    return {Kind::kUInt64};
  } else if constexpr (std::is_same_v<T, double>) {
    return {Kind::kDouble};
  } else if constexpr (std::is_same_v<T, std::string>) {
    return {Kind::kString};
  } else if constexpr (std::is_same_v<T, char*>) {
    return {Kind::kOwnedText};
  } else if constexpr (std::is_array_v<T>) {
    static_assert(std::is_same_v<std::remove_extent_t<T>, char>, "only char arrays");
    return {Kind::kText, sizeof(T)};
  } else if constexpr (IsList<T>::value) {
    return {Kind::kList, 0, nullptr, &ListOpsOf<T>(), &ValueTypeOf<typename T::value_type>()};
  } else {
    return {Kind::kRecord, 0, &RecordTypeOf<T>()};
  }
}

template <class T>
const ValueType& ValueTypeOf() {
  static const ValueType type = MakeValueType<T>();
  return type;
}

template <class R, class M, M R::*member>
void* MemberOf(void* record) {
  return &(static_cast<R*>(record)->*member);
}

// Field `m` of record type `R`, its kind taken from the member's type.
#define ZOLO_JSON_FIELD(R, m)                                \
  ::zolo::json::Field {                                      \
#m, &::zolo::json::MemberOf < R, decltype(R::m), &R::m>, \
        ::zolo::json::ValueTypeOf < decltype(R::m)>()        \
  }
// An int member holding 0 / 1, shown as a JSON boolean.
#define ZOLO_JSON_FLAG(R, m)                        \
  ::zolo::json::Field {                             \
#m, &::zolo::json::MemberOf < R, int, &R::m>, { \
      ::zolo::json::Kind::kIntFlag                  \
    }                                               \
  }

// The member is required when reading JSON.
inline Field Required(Field field) {
  field.required = true;
  return field;
}

// The JSON object of `record` described by `type`; never null.
JsonHolder RecordToJson(const RecordType& type, const void* record);
// Fills `record` (already holding its defaults) from the JSON object `json`, named `path`
// in messages. Members absent keep their defaults unless required; unknown members are
// refused. "" on success, else a message naming the member ("layout.video_layouts[1].w
// must be a number"); `record` may then be partly filled.
std::string RecordFromJson(const RecordType& type, const cJSON* json, void* record,
                           const std::string& path);

template <class T>
JsonHolder ToJson(const T& record) {
  return RecordToJson(RecordTypeOf<T>(), &record);
}
// A JSON array of the records of `list`.
template <class C>
JsonHolder ListToJson(const C& list) {
  JsonHolder array(cJSON_CreateArray());
  for (const auto& record : list) cJSON_AddItemToArray(array.get(), ToJson(record).release());
  return array;
}
template <class T>
std::string FromJson(const cJSON* json, const std::string& path, T* record) {
  return RecordFromJson(RecordTypeOf<T>(), json, record, path);
}
// Reads a JSON array of records into `out` (appended). "" or a message as above, the
// member named `name` ("windows[2].x must be a number").
template <class T>
std::string ListFromJson(const cJSON* json, const char* name, std::vector<T>* out) {
  if (!cJSON_IsArray(json)) return std::string(name) + " must be an array";
  int index = 0;
  for (const cJSON* item = json->child; item; item = item->next, ++index) {
    T record{};
    std::string error =
        FromJson(item, std::string(name) + "[" + std::to_string(index) + "]", &record);
    if (!error.empty()) return error;
    out->push_back(std::move(record));
  }
  return "";
}

}  // namespace zolo::json

// Shorthands for the record tables of the family sources: inside ZOLO_JSON_RECORD(T, ...)
// the record type is `R`.
#define ZOLO_JSON_RECORD(T, ...)                                       \
  template <>                                                          \
  const RecordType& RecordTypeOf<T>() {                                \
    using R = T;                                                       \
    static const RecordType type{#T, std::vector<Field>{__VA_ARGS__}}; \
    return type;                                                       \
  }
#define ZJ_FIELD(m) ZOLO_JSON_FIELD(R, m)
#define ZJ_FLAG(m) ZOLO_JSON_FLAG(R, m)
#define ZJ_REQUIRED(m) ::zolo::json::Required(ZOLO_JSON_FIELD(R, m))
