// Runs the registered benchmarks and prints, for each (library, baseline) pair, both times
// per iteration and the ratio library / baseline. A benchmark run with repetitions counts by
// its median, which a burst of noise on a shared machine moves least.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace zolo::bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      const std::string& name = run.run_name.function_name;
      bool median = run.aggregate_name == "median";
      if ((run.run_type == Run::RT_Iteration && medians_.count(name) == 0) || median)
        seconds_[name] =
            run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
      if (median) medians_.insert(name);
    }
    ConsoleReporter::ReportRuns(runs);
  }
  double Seconds(const std::string& name) const {
    auto it = seconds_.find(name);
    return it == seconds_.end() ? 0 : it->second;
  }

 private:
  std::map<std::string, double> seconds_;
  std::set<std::string> medians_;
};

// Call from main after benchmark::Initialize. Returns 0.
inline int RunWithRatios(const std::vector<std::pair<std::string, std::string>>& pairs) {
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\n%-40s %14s %14s %8s\n", "library vs baseline", "library ms", "baseline ms",
              "ratio");
  for (const auto& [library, baseline] : pairs) {
    double a = reporter.Seconds(library) * 1e3;
    double b = reporter.Seconds(baseline) * 1e3;
    std::printf("%-40s %14.3f %14.3f %8.3f\n", library.c_str(), a, b, b > 0 ? a / b : 0.0);
  }
  benchmark::Shutdown();
  return 0;
}

}  // namespace zolo::bench
