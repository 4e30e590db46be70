// Shared pieces of the family request files: answers built from records, optional text
// arguments, decoding of record arguments and confinement of client-named paths.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "request_table.h"
#include "zolo/media_json/record_json.h"

namespace zolo::gateway {

// An answer with no data.
inline Outcome Code(int code) {
  return Outcome{code, nullptr};
}

// An answer whose data is {member: value}; takes `value`.
inline Outcome WithMember(int code, const char* member, cJSON* value) {
  Outcome outcome{code, JsonHolder(cJSON_CreateObject())};
  cJSON_AddItemToObject(outcome.data.get(), member, value);
  return outcome;
}
template <class C>
Outcome WithList(int code, const char* member, const C& list) {
  return WithMember(code, member, json::ListToJson(list).release());
}
template <class T>
Outcome WithRecord(int code, const char* member, const T& record) {
  return WithMember(code, member, json::ToJson(record).release());
}
inline Outcome WithText(int code, const char* member, const std::string& text) {
  return WithMember(code, member, cJSON_CreateString(text.c_str()));
}
inline Outcome WithNumber(int code, const char* member, double number) {
  return WithMember(code, member, cJSON_CreateNumber(number));
}
// A getter that returns its value: the value is the code when it is not negative.
inline Outcome Value(int result, const char* member) {
  return result < 0 ? Code(result) : WithNumber(0, member, result);
}

// Logs a refused argument and counts it (RefusedArguments).
void LogRefusal(const std::string& reason);

// A record argument that did not decode: -3 with {"error": message}.
Outcome BadArgument(const std::string& message);

// Decodes the record argument `name` into `record`; on failure fills `refusal`.
template <class T>
bool RecordArg(const cJSON* args, const char* name, T* record, Outcome* refusal) {
  std::string error = json::FromJson(cJSON_GetObjectItemCaseSensitive(args, name), name, record);
  if (error.empty()) return true;
  *refusal = BadArgument(error);
  return false;
}

// An optional text argument: absent (or JSON null) gives nullopt, which handlers pass on
// as a null pointer ("any").
std::optional<std::string> OptionalText(const cJSON* args, const char* name);
inline const char* CStr(const std::optional<std::string>& text) {
  return text ? text->c_str() : nullptr;
}
inline bool Has(const cJSON* args, const char* name) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, name);
  return item && !cJSON_IsNull(item);
}
// A non-negative integer argument as uint64 (times, positions), or -1 when it is not one.
double UnsignedArg(const cJSON* args, const char* name);

// Who opens a client-named file: the library itself (it names real paths, below the
// sandbox root when one is set) or the engine (it takes system paths and looks them up
// below the sandbox root itself).
enum class Opener { kLibrary, kEngine };

// The appliance's own folders (system paths) that client-named files may lie in:
// recordings, snapshot and layout images, mixer assets, and the storage mounts.
std::vector<std::string> AllowedFolders();
// The client-named file `path_or_uri` ("file://" URL or absolute path) with "..", "." and
// the symbolic links of its existing part resolved, when it lies inside one of the allowed
// folders: a real path for kLibrary, a system path for kEngine. Nullopt otherwise (logged
// as a refusal).
std::optional<std::string> ConfinedPath(const std::string& path_or_uri, Opener opener);

// An address the engine opens: one that names a file (a "file://" URL or a path) must lie
// in the allowed folders; network addresses ("rtmp://", "srt://" ...) are the engine's
// business.
inline bool NetworkOrConfined(const std::string& address) {
  bool is_file = address.rfind("file://", 0) == 0 || address.rfind('/', 0) == 0;
  return !is_file || ConfinedPath(address, Opener::kEngine).has_value();
}
// A file the engine opens, as the "file://" URL of its resolved system path, or nullopt.
inline std::optional<std::string> ConfinedFileUrl(const std::string& path_or_uri) {
  auto path = ConfinedPath(path_or_uri, Opener::kEngine);
  return path ? std::optional<std::string>("file://" + *path) : std::nullopt;
}

}  // namespace zolo::gateway
