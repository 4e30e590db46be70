// The wire format (docs/gateway-protocol.md): decoding a client's message, checking a
// request's arguments against its declared parameters, and building the server's messages.
// Pure functions, shared by the daemon and the fuzz target.
#pragma once

#include <cjson/cJSON.h>

#include <string>

#include "common/json_holder.h"
#include "request_table.h"

namespace zolo::gateway {

enum Op {
  kHello = 0,
  kIdentify = 1,
  kIdentified = 2,
  kReidentify = 3,
  kEvent = 5,
  kRequest = 6,
  kRequestResponse = 7,
  kRequestBatch = 8,
  kRequestBatchResponse = 9,
};

// Why the gateway closes a connection: the close code and the reason's name (also the
// metric label).
struct CloseReason {
  int code;
  const char* name;
};
namespace close_reason {
inline constexpr CloseReason kInvalidMessage{4000, "invalid_message"};
inline constexpr CloseReason kBinaryFrame{4001, "binary_frame"};
inline constexpr CloseReason kInvalidUtf8{4002, "invalid_utf8"};
inline constexpr CloseReason kTooLarge{4003, "too_large"};
inline constexpr CloseReason kTooDeep{4004, "too_deep"};
inline constexpr CloseReason kUnknownOp{4005, "unknown_op"};
inline constexpr CloseReason kNotIdentified{4006, "not_identified"};
inline constexpr CloseReason kAlreadyIdentified{4007, "already_identified"};
inline constexpr CloseReason kAuthenticationFailed{4008, "authentication_failed"};
inline constexpr CloseReason kUnsupportedVersion{4009, "unsupported_version"};
inline constexpr CloseReason kTooManyInFlight{4010, "too_many_in_flight"};
inline constexpr CloseReason kSlowConsumer{4011, "slow_consumer"};
inline constexpr CloseReason kTooManyClients{4012, "too_many_clients"};
inline constexpr CloseReason kIdentifyTimeout{4013, "identify_timeout"};
inline constexpr CloseReason kLockedOut{4014, "locked_out"};
inline constexpr CloseReason kInvalidSubscriptions{4015, "invalid_subscriptions"};
inline constexpr CloseReason kBatchTooLong{4016, "batch_too_long"};
inline constexpr CloseReason kOriginNotAllowed{4017, "origin_not_allowed"};
}  // namespace close_reason

// Result codes of requests the gateway refuses before any library call.
enum RequestError {
  kUnknownRequest = -100,
  kMissingArgument = -101,
  kWrongType = -102,
  kDataNotObject = -103,
  kHandlerFailed = -104,
  kNotRun = -105,
  kNoRequestType = -106,
  kAnswerTooLarge = -107,
  kNotReady = -108,
  kNotInBatch = -109,
};

struct Decoded {
  bool ok = false;
  CloseReason reason{0, ""};
  int op = -1;
  JsonHolder message;        // the whole message
  const cJSON* d = nullptr;  // its "d" object, owned by `message`
};

struct Limits {
  size_t max_bytes = 1 << 20;
  int max_depth = 32;
};

// Decodes one text frame: size, UTF-8, nesting depth (checked before parsing, so a deep
// text never reaches the recursive parser), JSON object with an integer "op" and an object "d".
Decoded DecodeMessage(const char* data, size_t size, const Limits& limits);

// The deepest nesting of arrays and objects in `text` (strings skipped), stopping early
// once it exceeds `limit`.
int NestingDepth(const char* text, size_t size, int limit);

// A request's check before it runs: 0 when `request` (a Request "d" or one batch entry) names
// a known request whose arguments match its parameters; otherwise the RequestError with
// `comment` set. `known` receives the request found.
int CheckRequest(const cJSON* request, const RequestSpec** known, std::string* comment);

const char* ParamTypeName(ParamType type);

// {"op": op, "d": d} as text; takes `d`.
std::string Message(int op, JsonHolder d);
// The same for a `d` the caller keeps.
std::string Message(int op, const cJSON* d);
// A RequestResponse "d" object.
JsonHolder ResponseData(const std::string& type, const std::string& id, int code,
                        const std::string& comment, JsonHolder data);
// The request's "requestId" (cut to 256 bytes) and "requestType" ("" when absent).
std::string RequestId(const cJSON* request);
std::string RequestType(const cJSON* request);

}  // namespace zolo::gateway
