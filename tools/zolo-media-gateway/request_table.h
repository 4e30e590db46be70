// The gateway's requests: one name -> handler table, filled by one file per family
// (<family>_requests.cc), read by the protocol layer, `get_request_list` and the generated
// request list of the protocol document.
//
// A request is a library function by its name without the "zm_" prefix. The protocol layer
// checks every declared parameter (present when required, of its declared JSON type) before
// the handler runs, so a handler reads its arguments without checking types again. Handlers
// run on a worker thread (library calls may block up to 32 s) and never touch sockets.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/json_holder.h"

namespace zolo::gateway {

enum class ParamType { kInteger, kNumber, kBoolean, kString, kObject, kArray };

struct Param {
  const char* name;
  ParamType type;
  bool required = true;
};

// A handler's answer: the library's result code (negative: failure, described to the client
// with zm_strerror) and the response data, a JSON object (may be null: no data).
struct Outcome {
  int code = 0;
  JsonHolder data;
};

// `args` is the request's "requestData" object, already checked against the parameters.
using Handler = Outcome (*)(const cJSON* args);

struct RequestSpec {
  const char* name;  // "get_channel"
  std::vector<Param> params;
  Handler handler;
  const char* description;  // one line, for get_request_list and the protocol document
};

using RequestTable = std::vector<RequestSpec>;

// The whole table, built once on first use (thread-safe), sorted by name.
const RequestTable& Requests();
// The request named `name`, or null.
const RequestSpec* FindRequest(const std::string& name);

// One function per family, each in its <family>_requests.cc.
void AddFrameRequests(RequestTable& table);
void AddStreamRequests(RequestTable& table);
void AddSourceRequests(RequestTable& table);
void AddAudioRequests(RequestTable& table);
void AddCodecRequests(RequestTable& table);
void AddMixerConfigRequests(RequestTable& table);
void AddMixerLiveRequests(RequestTable& table);
void AddRecordingRequests(RequestTable& table);
void AddStorageInfoRequests(RequestTable& table);

// Arguments the handlers refused (record arguments that did not decode, client paths
// outside the appliance's folders) since start, for the metrics. Each is also logged.
uint64_t RefusedArguments();

// Argument readers for handlers (the parameter was checked; optional ones give `fallback`).
int IntArg(const cJSON* args, const char* name, int fallback = 0);
double NumberArg(const cJSON* args, const char* name, double fallback = 0);
bool BoolArg(const cJSON* args, const char* name, bool fallback = false);
std::string StringArg(const cJSON* args, const char* name, const std::string& fallback = "");

}  // namespace zolo::gateway
