// Event subscriptions: which engine signals a client wants, filtered by object name and
// coalesced to a rate for the high-volume ones.
#pragma once

#include <cjson/cJSON.h>
#include <glib.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/json_holder.h"

namespace zolo::gateway {

struct EventGroup {
  const char* name;
  std::vector<const char*> signals;
};
// The signal groups a client may subscribe to by name; every signal is in exactly one.
const std::vector<EventGroup>& EventGroups();
// The signals delivered only when asked for: audio levels, streaming durations, status.
bool IsHighVolume(const std::string& signal);
// The object name a filter matches in a record of `signal` ("name", or "state" for status).
std::string ObjectName(const std::string& signal, const cJSON* record);

struct Subscriptions {
  bool all_normal = true;        // no "events" given: every signal but high-volume ones
  std::set<std::string> events;  // signals named or in a named group
  std::map<std::string, std::set<std::string>> filters;
  std::map<std::string, int> rates;  // Hz, 1..60

  bool Wants(const std::string& signal, const cJSON* record) const;
};

// Reads a "subscriptions" object (null: the default). False with `error` for an unknown
// name, a filter or rate on a signal that takes none, a rate outside 1..60 or too many names.
bool ParseSubscriptions(const cJSON* json, Subscriptions* out, std::string* error);

// Holds back records of rate-limited signals so that at most `rate` per second per object go
// out, each carrying the peak since the last one sent.
class Coalescer {
 public:
  // Takes `record` at `now_us`. True when it should go out at once (its slot was free);
  // false when it was merged into the pending one for later.
  bool Offer(const std::string& signal, int rate, JsonHolder* record, gint64 now_us);
  // Takes every pending record that is due at `now_us`, as (signal, record) pairs.
  std::vector<std::pair<std::string, JsonHolder>> TakeDue(gint64 now_us);
  // Microseconds until the next pending record is due, or -1 when none is pending.
  gint64 NextDue(gint64 now_us) const;
  void Clear() { slots_.clear(); }

 private:
  struct Slot {
    gint64 period_us = 0;
    gint64 last_sent = 0;
    JsonHolder pending;
  };
  static constexpr size_t kMaxSlots = 1024;
  std::map<std::pair<std::string, std::string>, Slot> slots_;
};

// Merges `incoming` into `peak` for coalescing: the largest value of each peak member of
// audio_level and streaming_duration, the latest record otherwise.
void MergePeak(const std::string& signal, JsonHolder* peak, JsonHolder incoming);

}  // namespace zolo::gateway
