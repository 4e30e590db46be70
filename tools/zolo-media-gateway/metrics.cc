#include "metrics.h"

#include <sstream>

#include "request_table.h"

namespace zolo::gateway {

void Metrics::Request(const std::string& name, int code, double seconds) {
  std::lock_guard<std::mutex> lock(mutex_);
  ++requests_[{name, code}];
  for (size_t i = 0; i < kBucketCount; ++i)
    if (seconds <= kBuckets[i]) ++latency_buckets_[i];
  ++latency_count_;
  latency_sum_ += seconds;
}

uint64_t Metrics::refusals(const std::string& reason) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = refusals_.find(reason);
  return it == refusals_.end() ? 0 : it->second;
}

std::string Metrics::Text() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::ostringstream out;
  out << "# HELP zolo_gateway_clients Connected WebSocket clients.\n"
      << "# TYPE zolo_gateway_clients gauge\n"
      << "zolo_gateway_clients " << clients_ << "\n";
  out << "# HELP zolo_gateway_requests_total Requests answered, by request and result code.\n"
      << "# TYPE zolo_gateway_requests_total counter\n";
  for (const auto& [key, count] : requests_)
    out << "zolo_gateway_requests_total{request=\"" << key.first << "\",code=\"" << key.second
        << "\"} " << count << "\n";
  out << "# HELP zolo_gateway_request_duration_seconds Time from a request's arrival to its "
         "response.\n"
      << "# TYPE zolo_gateway_request_duration_seconds histogram\n";
  for (size_t i = 0; i < kBucketCount; ++i)
    out << "zolo_gateway_request_duration_seconds_bucket{le=\"" << kBuckets[i] << "\"} "
        << latency_buckets_[i] << "\n";
  out << "zolo_gateway_request_duration_seconds_bucket{le=\"+Inf\"} " << latency_count_ << "\n"
      << "zolo_gateway_request_duration_seconds_sum " << latency_sum_ << "\n"
      << "zolo_gateway_request_duration_seconds_count " << latency_count_ << "\n";
  out << "# HELP zolo_gateway_events_sent_total Events queued to clients.\n"
      << "# TYPE zolo_gateway_events_sent_total counter\n"
      << "zolo_gateway_events_sent_total " << events_sent_ << "\n"
      << "# HELP zolo_gateway_events_dropped_total Events dropped for clients that do not read.\n"
      << "# TYPE zolo_gateway_events_dropped_total counter\n"
      << "zolo_gateway_events_dropped_total " << events_dropped_ << "\n"
      << "# HELP zolo_gateway_engine_call_failures_total Engine state queries that failed.\n"
      << "# TYPE zolo_gateway_engine_call_failures_total counter\n"
      << "zolo_gateway_engine_call_failures_total " << engine_call_failures_ << "\n"
      << "# HELP zolo_gateway_live_rounds_total Rounds of live pictures started.\n"
      << "# TYPE zolo_gateway_live_rounds_total counter\n"
      << "zolo_gateway_live_rounds_total " << live_rounds_ << "\n"
      << "# HELP zolo_gateway_live_rounds_skipped_total Rounds of live pictures skipped because "
         "the last one was still running.\n"
      << "# TYPE zolo_gateway_live_rounds_skipped_total counter\n"
      << "zolo_gateway_live_rounds_skipped_total " << live_rounds_skipped_ << "\n";
  out << "# HELP zolo_gateway_refusals_total Connections, messages and files refused, by "
         "reason.\n"
      << "# TYPE zolo_gateway_refusals_total counter\n";
  for (const auto& [reason, count] : refusals_)
    out << "zolo_gateway_refusals_total{reason=\"" << reason << "\"} " << count << "\n";
  // Arguments the request handlers refused (records that did not decode, paths outside the
  // appliance's folders), counted by the handlers themselves.
  out << "zolo_gateway_refusals_total{reason=\"refused_argument\"} " << RefusedArguments() << "\n";
  return out.str();
}

}  // namespace zolo::gateway
