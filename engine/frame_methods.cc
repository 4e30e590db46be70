// The engine's frame methods: state, service commands, settings follow-ups, notifications.
#include <utility>

#include "engine_methods.h"

namespace zolo::sim {

void RegisterFrameMethods(MediaSimulator& sim) {
  auto ok = [](const std::string&, MediaSimulator&) { return Reply(0); };
  sim.Handle("get_state", [](const std::string&, MediaSimulator& engine) {
    cJSON* reply = cJSON_CreateObject();
    int state = engine.engine_state();
    cJSON_AddNumberToObject(reply, "id", state);
    cJSON_AddStringToObject(reply, "name", MediaSimulator::StateName(state));
    return Reply(0, reply);
  });
  for (const char* method : {"start", "restart", "check_storage_status", "set_framerate_mode",
                             "set_backup_mode", "set_interactive_mode"})
    sim.Handle(method, ok);
  // A configuration change is taken over and announced to every front end, so that each
  // shows it without reading everything again.
  sim.Handle("change_media_data", [](const std::string& payload, MediaSimulator& engine) {
    JsonPtr request = ParsePayload(payload);
    cJSON* announced = cJSON_CreateObject();
    for (const auto& [from, to] : {std::pair{"type", "Type"}, {"data", "Data"}, {"id", "Id"}}) {
      const cJSON* value = cJSON_GetObjectItemCaseSensitive(request.get(), from);
      cJSON_AddNumberToObject(announced, to, cJSON_IsNumber(value) ? value->valuedouble : 0);
    }
    const cJSON* extra = cJSON_GetObjectItemCaseSensitive(request.get(), "payload");
    if (extra != nullptr) {
      char* text = cJSON_IsString(extra) ? nullptr : cJSON_PrintUnformatted(extra);
      cJSON_AddStringToObject(announced, "Payload", text != nullptr ? text : extra->valuestring);
      cJSON_free(text);
    }
    char* text = cJSON_PrintUnformatted(announced);
    engine.Signal("media_data_changed", text != nullptr ? text : "{}");
    cJSON_free(text);
    cJSON_Delete(announced);
    return Reply(0);
  });
  sim.Handle("stop", [](const std::string&, MediaSimulator& engine) {
    engine.set_engine_state(kIdle);
    return Reply(0);
  });
}

}  // namespace zolo::sim
