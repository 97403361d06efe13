#pragma once

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace vornex::bench {

/// Runs the registered benchmarks, then prints how many times its reference's time each subject took.
/// `pairs` are names: subject, reference.
inline int runWithRatios(int argc, char** argv,
                         const std::vector<std::pair<const char*, const char*>>& pairs) {
  struct Reporter : benchmark::ConsoleReporter {
    std::map<std::string, double> nanoseconds;
    void ReportRuns(const std::vector<Run>& runs) override {
      for (const Run& run : runs) nanoseconds[run.run_name.function_name] = run.GetAdjustedCPUTime();
      ConsoleReporter::ReportRuns(runs);
    }
  } reporter;
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  for (auto [subject, reference] : pairs)
    if (reporter.nanoseconds.contains(subject) && reporter.nanoseconds.contains(reference))
      fmt::print("{} / {}: {:.2f}\n", subject, reference,
                 reporter.nanoseconds[subject] / reporter.nanoseconds[reference]);
  return 0;
}

}  // namespace vornex::bench
