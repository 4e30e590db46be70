#include "events.h"

#include <zolo/media_json/signals_json.h>

#include <algorithm>
#include <cstring>

namespace zolo::gateway {
namespace {

constexpr size_t kMaxFilterNames = 64;
constexpr int kMaxRate = 60;

// The members whose peak a coalesced message carries.
const std::map<std::string, std::vector<const char*>>& PeakMembers() {
  static const std::map<std::string, std::vector<const char*>> members = {
      {"audio_level", {"level", "left", "right"}},
      {"streaming_duration", {"duration"}},
  };
  return members;
}

bool IsSignal(const std::string& name) {
  const auto& names = json::SignalNames();
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

const std::vector<EventGroup>& EventGroups() {
  static const std::vector<EventGroup> groups = {
      {"high_volume", {"audio_level", "status", "streaming_duration"}},
      {"streams",
       {"recorder_file_stream_changed", "stream_error", "stream_status", "streaming_state",
        "webrtc_content"}},
      {"recordings",
       {"bookmark_added", "bookmark_removed", "record_limit_reached", "recording_bookmark_updated",
        "recording_created", "recording_ready", "storage_status", "video_file_status",
        "video_file_updated"}},
      {"audio",
       {"audio_gain", "audio_mixer", "audio_noise_reduction", "audio_output_monitor_changed",
        "audio_output_monitor_warning", "audio_type", "audio_volume", "audio_xlr_channel",
        "audio_xlr_power"}},
      {"mixer",
       {"mixer_resolution_changed", "video_background", "video_foreground", "video_layout",
        "video_overlay", "video_system_overlay"}},
      {"sources", {"channel_source_error", "channel_status", "hardware_error"}},
      {"system",
       {"display_changed", "media_crashed", "media_data_changed", "output_color_changed"}},
  };
  return groups;
}

bool IsHighVolume(const std::string& signal) {
  return signal == "audio_level" || signal == "streaming_duration" || signal == "status";
}

std::string ObjectName(const std::string& signal, const cJSON* record) {
  const cJSON* name =
      cJSON_GetObjectItemCaseSensitive(record, signal == "status" ? "state" : "name");
  return cJSON_IsString(name) ? name->valuestring : "";
}

bool Subscriptions::Wants(const std::string& signal, const cJSON* record) const {
  if (all_normal ? IsHighVolume(signal) : events.count(signal) == 0) return false;
  auto filter = filters.find(signal);
  return filter == filters.end() || filter->second.count(ObjectName(signal, record)) != 0;
}

bool ParseSubscriptions(const cJSON* json, Subscriptions* out, std::string* error) {
  *out = Subscriptions();
  if (json == nullptr || cJSON_IsNull(json)) return true;
  if (!cJSON_IsObject(json)) {
    *error = "subscriptions must be an object";
    return false;
  }
  const cJSON* events = cJSON_GetObjectItemCaseSensitive(json, "events");
  if (events != nullptr) {
    if (!cJSON_IsArray(events)) {
      *error = "events must be an array";
      return false;
    }
    out->all_normal = false;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, events) {
      if (!cJSON_IsString(item)) {
        *error = "events must be names";
        return false;
      }
      std::string name = item->valuestring;
      auto group = std::find_if(EventGroups().begin(), EventGroups().end(),
                                [&](const EventGroup& g) { return name == g.name; });
      if (group != EventGroups().end()) {
        out->events.insert(group->signals.begin(), group->signals.end());
      } else if (IsSignal(name)) {
        out->events.insert(name);
      } else {
        *error = "unknown event \"" + name + "\"";
        return false;
      }
    }
  }
  const cJSON* filters = cJSON_GetObjectItemCaseSensitive(json, "filters");
  const cJSON* entry = nullptr;
  if (filters != nullptr && !cJSON_IsObject(filters)) {
    *error = "filters must be an object";
    return false;
  }
  cJSON_ArrayForEach(entry, filters) {
    if (!IsHighVolume(entry->string) || !cJSON_IsArray(entry) ||
        cJSON_GetArraySize(entry) > static_cast<int>(kMaxFilterNames)) {
      *error = std::string("bad filter for \"") + entry->string + "\"";
      return false;
    }
    std::set<std::string>& names = out->filters[entry->string];
    const cJSON* name = nullptr;
    cJSON_ArrayForEach(name, entry) {
      if (!cJSON_IsString(name)) {
        *error = "filter names must be texts";
        return false;
      }
      names.insert(name->valuestring);
    }
  }
  const cJSON* rates = cJSON_GetObjectItemCaseSensitive(json, "rates");
  if (rates != nullptr && !cJSON_IsObject(rates)) {
    *error = "rates must be an object";
    return false;
  }
  cJSON_ArrayForEach(entry, rates) {
    if (!IsHighVolume(entry->string) || !cJSON_IsNumber(entry) || entry->valuedouble < 1 ||
        entry->valuedouble > kMaxRate) {
      *error = std::string("bad rate for \"") + entry->string + "\" (1..60)";
      return false;
    }
    out->rates[entry->string] = entry->valueint;
  }
  return true;
}

void MergePeak(const std::string& signal, JsonHolder* peak, JsonHolder incoming) {
  auto members = PeakMembers().find(signal);
  if (*peak == nullptr || members == PeakMembers().end()) {
    *peak = std::move(incoming);
    return;
  }
  // The newest record, with each peak member at its largest value since the last message.
  for (const char* member : members->second) {
    const cJSON* old_value = cJSON_GetObjectItemCaseSensitive(peak->get(), member);
    cJSON* new_value = cJSON_GetObjectItemCaseSensitive(incoming.get(), member);
    if (cJSON_IsNumber(old_value) && cJSON_IsNumber(new_value) &&
        old_value->valuedouble > new_value->valuedouble)
      cJSON_SetNumberValue(new_value, old_value->valuedouble);
  }
  *peak = std::move(incoming);
}

bool Coalescer::Offer(const std::string& signal, int rate, JsonHolder* record, gint64 now_us) {
  auto key = std::make_pair(signal, ObjectName(signal, record->get()));
  auto it = slots_.find(key);
  if (it == slots_.end()) {
    if (slots_.size() >= kMaxSlots) return true;  // too many objects to track: pass through
    it = slots_.emplace(key, Slot()).first;
    it->second.last_sent = now_us - G_USEC_PER_SEC;
  }
  Slot& slot = it->second;
  slot.period_us = G_USEC_PER_SEC / rate;
  if (slot.pending == nullptr && now_us - slot.last_sent >= slot.period_us) {
    slot.last_sent = now_us;
    return true;
  }
  MergePeak(signal, &slot.pending, std::move(*record));
  return false;
}

std::vector<std::pair<std::string, JsonHolder>> Coalescer::TakeDue(gint64 now_us) {
  std::vector<std::pair<std::string, JsonHolder>> due;
  for (auto& [key, slot] : slots_)
    if (slot.pending != nullptr && now_us - slot.last_sent >= slot.period_us) {
      slot.last_sent = now_us;
      due.emplace_back(key.first, std::move(slot.pending));
    }
  return due;
}

gint64 Coalescer::NextDue(gint64 now_us) const {
  gint64 next = -1;
  for (const auto& [key, slot] : slots_) {
    if (slot.pending == nullptr) continue;
    gint64 wait = std::max<gint64>(0, slot.last_sent + slot.period_us - now_us);
    if (next < 0 || wait < next) next = wait;
  }
  return next;
}

}  // namespace zolo::gateway
