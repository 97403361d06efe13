#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace vornex::bench {

template <typename Work>
double milliseconds(Work work) {
  auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

inline double percentile(std::vector<double> times, double part) {
  std::sort(times.begin(), times.end());
  return times[std::min(times.size() - 1,
                        static_cast<std::size_t>(part * static_cast<double>(times.size())))];
}

/// Engine, class, runs, median, 99th percentile, totals; separated by tabs.
inline void printRow(const std::string& engine, const std::string& name, const std::vector<double>& times,
                     const std::string& totals) {
  fmt::print("{}\t{}\t{}\t{:.3f}\t{:.3f}\t{}\n", engine, name, times.size(), percentile(times, 0.5),
             percentile(times, 0.99), totals);
  std::fflush(stdout);
}

}  // namespace vornex::bench
