// Printing results as aligned tables (default) or JSON (--json), and result-code errors.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "zolo/media_json/record_json.h"

namespace zmctl {

using Row = std::vector<std::string>;

class Output {
 public:
  explicit Output(bool json) : json_(json) {}
  bool json() const { return json_; }
  // Rows under `headers`; as JSON an array of objects keyed by the headers. Cells that
  // look like integers are printed as JSON numbers.
  void Table(const Row& headers, const std::vector<Row>& rows) const;
  // One record of name/value pairs.
  void Record(const std::vector<std::pair<std::string, std::string>>& fields) const;
  // A plain message ("ok"); as JSON {"result": message}.
  void Message(const std::string& message) const;
  // With --json, prints the records as the record layer's JSON array (the same JSON the
  // gateway sends) and returns true; otherwise prints nothing and returns false, so the
  // caller prints its table.
  template <class C>
  bool Records(const C& records) const {
    if (!json_) return false;
    PrintJson(zolo::json::ListToJson(records));
    return true;
  }

 private:
  static void PrintJson(zolo::JsonHolder json);
  bool json_;
};

// Bytes in binary units with one decimal ("1.9 GiB"; plain bytes below 1 KiB).
std::string HumanSize(uint64_t bytes);
// Seconds since the epoch as local "YYYY-MM-DD HH:MM:SS"; "-" for 0 or less (no time).
std::string LocalTime(int64_t seconds);
// Prints "zmctl: <what> failed: <code> (<meaning>)" to stderr and returns exit status 1.
int Fail(const std::string& what, int code);

}  // namespace zmctl
