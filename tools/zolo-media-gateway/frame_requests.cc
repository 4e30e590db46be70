// Engine state, commands and media settings.
#include <zolo/media/frame.h>

#include "request_helpers.h"

namespace zolo::gateway {

void AddFrameRequests(RequestTable& table) {
  table.push_back({"get_state",
                   {},
                   [](const cJSON*) {
                     std::string name;
                     int state = zm_get_state(&name);
                     if (state < 0) return Code(state);
                     Outcome outcome = WithNumber(0, "state", state);
                     cJSON_AddStringToObject(outcome.data.get(), "name", name.c_str());
                     return outcome;
                   },
                   "The engine's state id (1 idle, 3 recording, 4 paused) and name."});
  table.push_back(
      {"start", {}, [](const cJSON*) { return Code(zm_start()); }, "Starts the media engine."});
  table.push_back(
      {"stop", {}, [](const cJSON*) { return Code(zm_stop()); }, "Stops the media engine."});
  table.push_back({"restart",
                   {},
                   [](const cJSON*) { return Code(zm_restart()); },
                   "Restarts the media engine."});
  table.push_back({"get_setting",
                   {{"name", ParamType::kString}},
                   [](const cJSON* args) {
                     std::string value;
                     int code = zm_get_setting(StringArg(args, "name").c_str(), &value);
                     return code < 0 ? Code(code) : WithText(code, "value", value);
                   },
                   "The value of the media setting `name`."});
  table.push_back({"set_setting",
                   {{"name", ParamType::kString}, {"value", ParamType::kString}},
                   [](const cJSON* args) {
                     return Code(
                         zm_set_setting(StringArg(args, "name").c_str(), StringArg(args, "value")));
                   },
                   "Stores the media setting `name` (engine idle only)."});
}

}  // namespace zolo::gateway
