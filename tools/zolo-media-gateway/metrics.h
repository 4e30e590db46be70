// Counters for /metrics (Prometheus text format). Safe from any thread: workers record the
// requests they answer.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace zolo::gateway {

class Metrics {
 public:
  void SetClients(size_t clients) { clients_ = clients; }
  // One finished request: its name (bounded by the caller to known names), result code and
  // time from arrival to response.
  void Request(const std::string& name, int code, double seconds);
  void EventSent() { ++events_sent_; }
  void EventDropped() { ++events_dropped_; }
  void EngineCallFailed() { ++engine_call_failures_; }
  void LiveRound() { ++live_rounds_; }
  void LiveRoundSkipped() { ++live_rounds_skipped_; }
  void Refused(const std::string& reason) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++refusals_[reason];
  }

  uint64_t refusals(const std::string& reason) const;
  uint64_t events_dropped() const { return events_dropped_; }

  std::string Text() const;

 private:
  static constexpr double kBuckets[] = {0.001, 0.005, 0.01, 0.05, 0.1, 0.5, 1, 5, 10, 35};
  static constexpr size_t kBucketCount = sizeof kBuckets / sizeof kBuckets[0];
  mutable std::mutex mutex_;  // guards the maps and the histogram
  std::atomic<size_t> clients_{0};
  std::map<std::pair<std::string, int>, uint64_t> requests_;
  uint64_t latency_buckets_[kBucketCount] = {};
  uint64_t latency_count_ = 0;
  double latency_sum_ = 0;
  std::atomic<uint64_t> events_sent_{0};
  std::atomic<uint64_t> events_dropped_{0};
  std::atomic<uint64_t> engine_call_failures_{0};
  std::atomic<uint64_t> live_rounds_{0};
  std::atomic<uint64_t> live_rounds_skipped_{0};
  std::map<std::string, uint64_t> refusals_;
};

}  // namespace zolo::gateway
