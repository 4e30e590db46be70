#include "protocol.h"

#include <glib.h>

namespace zolo::gateway {
namespace {

constexpr size_t kMaxRequestId = 256;

bool HasType(const cJSON* item, ParamType type) {
  switch (type) {
    case ParamType::kInteger:
      return cJSON_IsNumber(item) && item->valuedouble == static_cast<double>(item->valueint);
    case ParamType::kNumber:
      return cJSON_IsNumber(item);
    case ParamType::kBoolean:
      return cJSON_IsBool(item);
    case ParamType::kString:
      return cJSON_IsString(item);
    case ParamType::kObject:
      return cJSON_IsObject(item);
    case ParamType::kArray:
      return cJSON_IsArray(item);
  }
  return false;
}

}  // namespace

const char* ParamTypeName(ParamType type) {
  switch (type) {
    case ParamType::kInteger:
      return "integer";
    case ParamType::kNumber:
      return "number";
    case ParamType::kBoolean:
      return "boolean";
    case ParamType::kString:
      return "string";
    case ParamType::kObject:
      return "object";
    case ParamType::kArray:
      return "array";
  }
  return "?";
}

int NestingDepth(const char* text, size_t size, int limit) {
  int depth = 0, deepest = 0;
  bool in_string = false;
  for (size_t i = 0; i < size; ++i) {
    char c = text[i];
    if (in_string) {
      if (c == '\\')
        ++i;
      else if (c == '"')
        in_string = false;
    } else if (c == '"') {
      in_string = true;
    } else if (c == '{' || c == '[') {
      if (++depth > deepest) deepest = depth;
      if (deepest > limit) return deepest;
    } else if (c == '}' || c == ']') {
      --depth;
    }
  }
  return deepest;
}

Decoded DecodeMessage(const char* data, size_t size, const Limits& limits) {
  Decoded decoded;
  if (size > limits.max_bytes) {
    decoded.reason = close_reason::kTooLarge;
    return decoded;
  }
  if (!g_utf8_validate_len(data, size, nullptr)) {
    decoded.reason = close_reason::kInvalidUtf8;
    return decoded;
  }
  if (NestingDepth(data, size, limits.max_depth) > limits.max_depth) {
    decoded.reason = close_reason::kTooDeep;
    return decoded;
  }
  decoded.message.reset(cJSON_ParseWithLength(data, size));
  const cJSON* op = cJSON_GetObjectItemCaseSensitive(decoded.message.get(), "op");
  const cJSON* d = cJSON_GetObjectItemCaseSensitive(decoded.message.get(), "d");
  if (!cJSON_IsObject(decoded.message.get()) || !cJSON_IsNumber(op) || !cJSON_IsObject(d) ||
      op->valuedouble != static_cast<double>(op->valueint)) {
    decoded.reason = close_reason::kInvalidMessage;
    decoded.message.reset();
    return decoded;
  }
  decoded.ok = true;
  decoded.op = op->valueint;
  decoded.d = d;
  return decoded;
}

int CheckRequest(const cJSON* request, const RequestSpec** known, std::string* comment) {
  const cJSON* type = cJSON_GetObjectItemCaseSensitive(request, "requestType");
  if (!cJSON_IsString(type) || type->valuestring[0] == '\0') {
    *comment = "requestType must be a non-empty string";
    return kNoRequestType;
  }
  *known = FindRequest(type->valuestring);
  if (*known == nullptr) {
    *comment = std::string("unknown request \"") + type->valuestring + "\"";
    return kUnknownRequest;
  }
  const cJSON* args = cJSON_GetObjectItemCaseSensitive(request, "requestData");
  if (args != nullptr && !cJSON_IsObject(args) && !cJSON_IsNull(args)) {
    *comment = "requestData must be an object";
    return kDataNotObject;
  }
  for (const Param& param : (*known)->params) {
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(args, param.name);
    if (item == nullptr || cJSON_IsNull(item)) {
      if (!param.required) continue;
      *comment = std::string("missing argument \"") + param.name + "\"";
      return kMissingArgument;
    }
    if (!HasType(item, param.type)) {
      *comment =
          std::string("argument \"") + param.name + "\" must be " + ParamTypeName(param.type);
      return kWrongType;
    }
  }
  return 0;
}

std::string Message(int op, JsonHolder d) {
  return Message(op, static_cast<const cJSON*>(d.get()));
}

std::string Message(int op, const cJSON* d) {
  JsonHolder message(cJSON_CreateObject());
  cJSON_AddNumberToObject(message.get(), "op", op);
  cJSON_AddItemReferenceToObject(message.get(), "d", const_cast<cJSON*>(d));
  char* text = cJSON_PrintUnformatted(message.get());
  std::string result = text != nullptr ? text : "";
  cJSON_free(text);
  return result;
}

JsonHolder ResponseData(const std::string& type, const std::string& id, int code,
                        const std::string& comment, JsonHolder data) {
  JsonHolder d(cJSON_CreateObject());
  cJSON_AddStringToObject(d.get(), "requestType", type.c_str());
  cJSON_AddStringToObject(d.get(), "requestId", id.c_str());
  cJSON* status = cJSON_AddObjectToObject(d.get(), "requestStatus");
  cJSON_AddBoolToObject(status, "result", code >= 0);
  cJSON_AddNumberToObject(status, "code", code);
  cJSON_AddStringToObject(status, "comment", comment.c_str());
  if (data != nullptr) cJSON_AddItemToObject(d.get(), "responseData", data.release());
  return d;
}

std::string RequestId(const cJSON* request) {
  const cJSON* id = cJSON_GetObjectItemCaseSensitive(request, "requestId");
  if (!cJSON_IsString(id)) return "";
  std::string text = id->valuestring;
  if (text.size() > kMaxRequestId) {
    // Cut on a character boundary so the echoed id stays valid UTF-8.
    const char* end = g_utf8_find_prev_char(text.c_str(), text.c_str() + kMaxRequestId + 1);
    text.resize(end != nullptr ? static_cast<size_t>(end - text.c_str()) : 0);
  }
  return text;
}

std::string RequestType(const cJSON* request) {
  const cJSON* type = cJSON_GetObjectItemCaseSensitive(request, "requestType");
  return cJSON_IsString(type) ? type->valuestring : "";
}

}  // namespace zolo::gateway
