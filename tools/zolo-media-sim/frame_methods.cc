// The engine's frame methods: state, service commands, settings follow-ups, notifications.
#include "sim_methods.h"

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
  for (const char* method : {"start", "restart", "change_media_data", "check_storage_status",
                             "set_framerate_mode", "set_backup_mode", "set_interactive_mode"})
    sim.Handle(method, ok);
  sim.Handle("stop", [](const std::string&, MediaSimulator& engine) {
    engine.set_engine_state(kIdle);
    return Reply(0);
  });
}

}  // namespace zolo::sim
