// Prints the generated parts of the protocol document (event groups, events, requests) and
// splices them into the document between its BEGIN/END GENERATED markers:
//   gateway_doc_lists <document.md> <output.md>
#include <zolo/media_json/signals_json.h>

#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include "events.h"
#include "live.h"
#include "protocol.h"
#include "request_table.h"

namespace {

std::string Groups() {
  std::ostringstream out;
  out << "| group | signals |\n|---|---|\n";
  for (const auto& group : zolo::gateway::EventGroups()) {
    out << "| `" << group.name << "` |";
    for (const char* signal : group.signals) out << " `" << signal << "`";
    out << " |\n";
  }
  return out.str();
}

std::string Events() {
  std::ostringstream out;
  for (const std::string& name : zolo::json::SignalNames())
    out << "- `" << name << "`" << (zolo::gateway::IsHighVolume(name) ? " (high-volume)" : "")
        << "\n";
  return out.str();
}

std::string RequestList() {
  std::ostringstream out;
  out << "| request | parameters | description |\n|---|---|---|\n";
  out << "| `get_request_list` | | Every request with its parameters (answered by the gateway) |\n";
  out << "| `" << zolo::gateway::kWatchLiveRequest << "` | `on`: boolean | "
      << zolo::gateway::kWatchLiveDescription << " |\n";
  for (const auto& known : zolo::gateway::Requests()) {
    out << "| `" << known.name << "` |";
    const char* separator = " ";
    for (const auto& param : known.params) {
      out << separator << "`" << param.name << "`: " << zolo::gateway::ParamTypeName(param.type)
          << (param.required ? "" : " (optional)");
      separator = ", ";
    }
    out << " | " << known.description << " |\n";
  }
  return out.str();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: gateway_doc_lists <document.md> <output.md>\n";
    return 2;
  }
  // Every signal is in exactly one group, so a new signal cannot go unsubscribable.
  std::map<std::string, int> grouped;
  for (const auto& group : zolo::gateway::EventGroups())
    for (const char* signal : group.signals) ++grouped[signal];
  for (const std::string& name : zolo::json::SignalNames())
    if (grouped[name] != 1) {
      std::cerr << "gateway_doc_lists: signal " << name << " is in " << grouped[name]
                << " event groups\n";
      return 1;
    }
  std::ifstream in(argv[1]);
  std::stringstream text;
  text << in.rdbuf();
  std::string document = text.str();
  const std::map<std::string, std::string> parts = {
      {"event groups", Groups()}, {"events", Events()}, {"requests", RequestList()}};
  for (const auto& [name, content] : parts) {
    std::string begin = "<!-- BEGIN GENERATED: " + name + " -->\n";
    std::string end = "<!-- END GENERATED: " + name + " -->";
    size_t from = document.find(begin);
    size_t to = document.find(end);
    if (from == std::string::npos || to == std::string::npos || to < from) {
      std::cerr << "gateway_doc_lists: no marker for " << name << "\n";
      return 1;
    }
    from += begin.size();
    document.replace(from, to - from, content);
  }
  std::ofstream out(argv[2]);
  out << document;
  return out ? 0 : 1;
}
