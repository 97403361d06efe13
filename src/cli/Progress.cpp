#include "cli/Progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

#include "cli/DisplayText.h"
#include "cli/Format.h"
#include "cli/Output.h"

namespace vornex::cli {
namespace {

constexpr double kEffortPerFile = 1'000'000;
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
constexpr auto kLineInterval = std::chrono::seconds(5);

std::string timeLeft(const ImportState& state) {
  const double seconds = state.secondsLeft();
  return seconds < 0 ? "" : formatDuration(seconds) + " left";
}

}  // namespace

double ImportState::fraction() const {
  const double total = static_cast<double>(totalBytes) + kEffortPerFile * static_cast<double>(totalFiles);
  if (total <= 0) return 1;
  const double done = static_cast<double>(bytes) + kEffortPerFile * static_cast<double>(files);
  return std::clamp(done / total, 0.0, 1.0);
}

double ImportState::bytesPerSecond() const {
  return seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
}

double ImportState::secondsLeft() const {
  const double done = fraction();
  return done > 0 ? seconds * (1 - done) / done : -1;
}

std::string progressBar(const ImportState& state, std::size_t width) {
  std::string facts = state.totalFiles > 0 ? fmt::format(" {}/{} files ", state.files, state.totalFiles) : "";
  facts += fmt::format(" {}/{}  {}/s", formatBytes(state.bytes), formatBytes(state.totalBytes),
                       formatBytes(static_cast<std::uint64_t>(state.bytesPerSecond())));
  if (const std::string left = timeLeft(state); !left.empty()) facts += "  " + left;

  const std::size_t barWidth = std::clamp<std::size_t>(width / 4, 10, 40);
  if (width < barWidth + 2 + facts.size()) return shortened(facts.substr(1), width);
  const auto filled = static_cast<std::size_t>(state.fraction() * static_cast<double>(barWidth));
  std::string line = "[" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "]" + facts;
  constexpr std::size_t kShortestName = 8;
  if (width >= line.size() + 2 + kShortestName) {
    const std::string percent =
        state.currentPercent > 0 ? fmt::format("{:.0f} % ", state.currentPercent) : "";
    line += "  " + shortened(percent + printable(state.current), width - line.size() - 2);
  }
  return line;
}

std::string progressLine(const ImportState& state) {
  std::string line =
      state.totalFiles > 0 ? fmt::format("{} of {} files, ", state.files, state.totalFiles) : "";
  line += fmt::format("{} of {}, {}/s", formatBytes(state.bytes), formatBytes(state.totalBytes),
                      formatBytes(static_cast<std::uint64_t>(state.bytesPerSecond())));
  if (const std::string left = timeLeft(state); !left.empty()) line += ", " + left;
  return line;
}

ProgressDisplay::ProgressDisplay() : terminal_(isatty(STDERR_FILENO) == 1), lastShown_(Clock::now()) {}

ProgressDisplay::~ProgressDisplay() {
  clearBar();
}

void ProgressDisplay::update(const ImportState& state) {
  const std::lock_guard lock(mutex_);
  const auto now = Clock::now();
  if (now - lastShown_ < (terminal_ ? Clock::duration(kRedrawInterval) : Clock::duration(kLineInterval)))
    return;
  lastShown_ = now;
  if (terminal_) {
    // The last column stays free: a terminal may break the line when it is filled.
    std::fputs(("\r\033[K" + progressBar(state, terminalWidth(STDERR_FILENO) - 1)).c_str(), stderr);
    barShown_ = true;
  } else {
    writeLine(stderr, progressLine(state));
  }
  std::fflush(stderr);
}

void ProgressDisplay::note(const std::string& line) {
  const std::lock_guard lock(mutex_);
  clearBar();
  writeLine(stderr, line);
}

void ProgressDisplay::clearBar() {
  if (barShown_) std::fputs("\r\033[K", stderr);
  barShown_ = false;
}

}  // namespace vornex::cli
