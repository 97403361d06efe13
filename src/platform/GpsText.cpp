#include "platform/GpsText.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>

namespace vornex {

namespace {

/// Takes the numbers off the front, each with the separator after it. Independent of the locale.
class NumberReader {
 public:
  explicit NumberReader(std::string_view text) : rest_(text) {}

  std::optional<double> number() {
    double value = 0;
    auto [end, error] =
        std::from_chars(rest_.data(), rest_.data() + rest_.size(), value, std::chars_format::fixed);
    if (error != std::errc() || !std::isfinite(value)) return std::nullopt;
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return value;
  }

  bool skip(char separator) {
    if (!rest_.starts_with(separator)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  char last() const { return rest_.size() == 1 ? rest_.front() : '\0'; }

 private:
  std::string_view rest_;
};

/// From degrees, minutes and seconds.
OptionalString gpsText(const std::array<double, 3>& parts, char hemisphere) {
  if (std::string_view("NSEW").find(hemisphere) == std::string_view::npos) return std::nullopt;
  double limit = hemisphere == 'N' || hemisphere == 'S' ? 90 : 180;
  double degrees = parts[0] + parts[1] / 60 + parts[2] / 3600;
  bool sane =
      parts[0] >= 0 && parts[1] >= 0 && parts[1] < 60 && parts[2] >= 0 && parts[2] < 60 && degrees <= limit;
  if (!sane) return std::nullopt;
  auto tenThousandths = std::llround(degrees * 60 * 10'000);
  return fmt::format("{},{:02}.{:04}{}", tenThousandths / 600'000, tenThousandths / 10'000 % 60,
                     tenThousandths % 10'000, hemisphere);
}

}  // namespace

OptionalString normalisedGpsText(const std::string& text) {
  NumberReader reader(text);
  std::array<double, 3> parts{};
  std::size_t count = 0;
  do {
    auto part = reader.number();
    if (!part) return std::nullopt;
    parts[count++] = *part;
  } while (count < parts.size() && reader.skip(','));
  return count >= 2 ? gpsText(parts, reader.last()) : std::nullopt;
}

OptionalString gpsTextFromExif(const std::string& rationals, const std::string& reference) {
  NumberReader reader(rationals);
  std::array<double, 3> parts{};
  std::size_t count = 0;
  do {
    auto numerator = reader.number();
    if (!numerator || !reader.skip('/')) break;
    auto denominator = reader.number();
    if (!denominator) break;
    // An unknown part is written as 0/0.
    parts[count++] = *denominator != 0 ? *numerator / *denominator : 0;
  } while (count < parts.size() && reader.skip(' '));
  return count >= 2 && !reference.empty() ? gpsText(parts, reference.front()) : std::nullopt;
}

}  // namespace vornex
