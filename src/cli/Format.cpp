#include "cli/Format.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <array>
#include <cmath>
#include <ctime>

namespace vornex::cli {
namespace {

constexpr std::array<const char*, 5> kTypeNames{"video", "audio", "image", "document", "extra"};

}  // namespace

std::string formatBytes(std::uint64_t bytes) {
  constexpr std::array<const char*, 6> kUnits{"B", "kB", "MB", "GB", "TB", "PB"};
  if (bytes < 1000) return fmt::format("{} B", bytes);
  auto amount = static_cast<double>(bytes);
  std::size_t unit = 0;
  // A value that would be printed as 1000 is 1.0 of the next unit.
  while (amount >= 999.5 && unit + 1 < kUnits.size()) {
    amount /= 1000;
    ++unit;
  }
  return fmt::format("{:.{}f} {}", amount, amount < 9.95 ? 1 : 0, kUnits[unit]);
}

std::string formatDuration(double seconds) {
  constexpr double kLongest = 3600.0 * 24 * 365 * 10;
  const auto total = static_cast<std::int64_t>(seconds > 0 ? std::min(seconds, kLongest) + 0.5 : 0);
  const std::int64_t hours = total / 3600, minutes = total / 60 % 60, rest = total % 60;
  return hours > 0 ? fmt::format("{}:{:02}:{:02}", hours, minutes, rest)
                   : fmt::format("{}:{:02}", minutes, rest);
}

std::string formatDate(const std::optional<Date>& date) {
  if (!date) return "-";
  const std::time_t time = std::chrono::floor<std::chrono::seconds>(*date).time_since_epoch().count();
  std::tm local{};
  if (!localtime_r(&time, &local)) return "-";
  return fmt::format("{:%Y-%m-%d %H:%M}", local);
}

Value isoDate(const std::optional<Date>& date) {
  if (!date) return nullptr;
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(*date);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(milliseconds);
  const std::time_t time = seconds.time_since_epoch().count();
  std::tm utc{};
  if (!gmtime_r(&time, &utc)) return nullptr;
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", utc, (milliseconds - seconds).count());
}

std::string typeName(std::int64_t assetType) {
  if (assetType < 0 || assetType >= static_cast<std::int64_t>(kTypeNames.size())) return "unknown";
  return kTypeNames[static_cast<std::size_t>(assetType)];
}

std::optional<std::int64_t> typeNamed(const std::string& name) {
  for (std::size_t i = 0; i < kTypeNames.size(); ++i) {
    if (name == kTypeNames[i]) return static_cast<std::int64_t>(i);
  }
  return std::nullopt;
}

bool isBlank(const std::string& text) {
  return text.find_first_not_of(" \t\r\n\v\f") == std::string::npos;
}

std::string counted(std::uint64_t count, const std::string& noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

}  // namespace vornex::cli
