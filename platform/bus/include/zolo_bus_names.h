// D-Bus names of an appliance service: service "media" is "zolo.media" at "/zolo/media"
// with interfaces "zolo.Media" (methods) and "zolo.Media.Signal" (signals).
#pragma once

#include <cctype>
#include <string>

namespace zolo::bus {

struct ServiceNames {
  std::string bus_name;
  std::string object_path;
  std::string interface;
  std::string signal_interface;
};

inline ServiceNames NamesOf(const std::string& service) {
  std::string capitalised = service;
  if (!capitalised.empty())
    capitalised[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(capitalised[0])));
  return ServiceNames{"zolo." + service, "/zolo/" + service, "zolo." + capitalised,
                      "zolo." + capitalised + ".Signal"};
}

// D-Bus names allow letters, digits and "_" in each element.
inline bool IsValidElement(const std::string& text) {
  if (text.empty() || text.size() > 200 || std::isdigit(static_cast<unsigned char>(text[0])))
    return false;
  for (unsigned char c : text)
    if (!std::isalnum(c) && c != '_') return false;
  return true;
}

}  // namespace zolo::bus
