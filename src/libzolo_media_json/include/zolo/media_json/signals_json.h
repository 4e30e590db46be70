// Typed JSON of the engine's signal records (<zolo/signals.h>): numbers as numbers, flags as
// booleans, lists as arrays, nested records as objects.
#pragma once

#include <cjson/cJSON.h>

#include <string>
#include <vector>

#include "common/json_holder.h"

namespace zolo::json {

// The JSON object of `record`, the parsed record of signal `name` as a zm_signal_callback
// receives it; null for an unknown name or a null record. Thread-safe.
JsonHolder SignalToJson(const std::string& name, const void* record);
// The names of the engine's signals, in a stable order.
const std::vector<std::string>& SignalNames();

}  // namespace zolo::json
