#include "core/GpsCoordinate.h"

#include <vector>

#include "core/Coercion.h"

namespace vornex {
namespace {

double numberOf(std::string text) {
  Value value(std::move(text));
  return static_cast<double>(coerce::integer(&value));
}

/// The runs of digits, each with the sign directly before it.
std::vector<std::string> signedNumbers(const std::string& text) {
  std::vector<std::string> numbers;
  auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!isDigit(text[i])) continue;
    bool hasSign = i > 0 && (text[i - 1] == '+' || text[i - 1] == '-');
    std::size_t start = hasSign ? i - 1 : i;
    while (i < text.size() && isDigit(text[i])) ++i;
    numbers.push_back(text.substr(start, i - start));
  }
  return numbers;
}

}  // namespace

std::optional<double> decimalDegrees(const std::string& text) {
  std::vector<std::string> numbers = signedNumbers(text);
  if (numbers.size() < 3) return std::nullopt;
  double hundredths = numberOf(numbers[2].substr(0, 2));
  double value = (hundredths / 100.0 + numberOf(numbers[1])) / 60.0 + numberOf(numbers[0]);
  return text.find_first_of("WS") == std::string::npos ? value : -value;
}

}  // namespace vornex
