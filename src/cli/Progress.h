#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

namespace vornex::cli {

/// How far an import, or the copying of a database, has come.
struct ImportState {
  std::uint64_t files = 0;
  /// 0 where no files are counted.
  std::uint64_t totalFiles = 0;
  std::uint64_t bytes = 0;
  std::uint64_t totalBytes = 0;
  double seconds = 0;
  /// Name of the file in hand, and how much of it is done.
  std::string current = {};
  double currentPercent = 0;

  /// 0 to 1. Every file counts as its bytes and a fixed effort, so that many small files advance the bar too.
  double fraction() const;
  double bytesPerSecond() const;
  /// At the pace so far; negative while that is unknown.
  double secondsLeft() const;
};

/// "[#####-----] 5/10 files  1.0/2.0 GB  85 MB/s  0:12 left  40 % name", never wider than `width` columns.
/// The files are left out where none are counted, as in the next.
std::string progressBar(const ImportState& state, std::size_t width);

/// "5 of 10 files, 1.0 GB of 2.0 GB, 85 MB/s, 0:12 left"
std::string progressLine(const ImportState& state);

/// Shows progress on standard error: one bar that redraws itself on a terminal, else a line every few
/// seconds.
///
/// Thread-safety: safe on any thread.
class ProgressDisplay {
 public:
  ProgressDisplay();
  /// Removes the bar.
  ~ProgressDisplay();
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  /// Shows the state when enough time has passed since the last time.
  void update(const ImportState& state);

  /// Prints a line above the bar.
  void note(const std::string& line);

 private:
  using Clock = std::chrono::steady_clock;

  void clearBar();

  std::mutex mutex_;
  const bool terminal_;
  bool barShown_ = false;
  Clock::time_point lastShown_;
};

}  // namespace vornex::cli
