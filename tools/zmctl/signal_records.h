// The parsed record of each engine signal as "key=value" text or a JSON object, and the
// names of every signal the engine sends.
#pragma once

#include <string>
#include <vector>

namespace zmctl {

// The 39 signal names, in a stable order.
const std::vector<std::string>& SignalNames();

// The record the library parsed for signal `name`, as `key=value` pairs separated by
// spaces, or (with `json`) as one JSON object. "" for an unknown name or a null record.
std::string DescribeRecord(const std::string& name, const void* record, bool json);

}  // namespace zmctl
