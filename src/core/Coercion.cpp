#include "core/Coercion.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>

namespace vornex::coerce {
namespace {

using IntegerLimits = std::numeric_limits<std::int64_t>;

/// The text from its sign or first digit on; a plus sign, which std::from_chars does not know, is dropped.
std::string_view numericText(std::string_view text) {
  std::size_t start = text.find_first_not_of(" \t\n\v\f\r");
  text.remove_prefix(start == std::string_view::npos ? text.size() : start);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  return text;
}

bool isNegative(std::string_view numeric) {
  return numeric.starts_with('-');
}

std::int64_t integerFromText(std::string_view text) {
  text = numericText(text);
  std::int64_t number = 0;
  auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  if (parsed.ec == std::errc::result_out_of_range)
    return isNegative(text) ? IntegerLimits::min() : IntegerLimits::max();
  return number;
}

double realFromText(std::string_view text) {
  text = numericText(text);
  std::string_view digits = text.substr(isNegative(text) ? 1 : 0);
  bool isDecimal = !digits.empty() && (digits[0] == '.' || (digits[0] >= '0' && digits[0] <= '9'));
  if (!isDecimal) return 0;  // std::from_chars would read "inf" and "nan"
  double number = 0;
  auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  if (parsed.ec != std::errc::result_out_of_range) return number;
  // Too small or too large: a stream tells which, and gives the nearest number.
  std::istringstream stream(std::string(text.data(), parsed.ptr));
  stream.imbue(std::locale::classic());
  stream >> number;
  return number;
}

bool booleanFromText(std::string_view text) {
  text = numericText(text);
  if (!text.empty() && std::string_view("YyTt").find(text[0]) != std::string_view::npos) return true;
  if (isNegative(text)) text.remove_prefix(1);
  std::size_t digit = text.find_first_not_of('0');
  return digit != std::string_view::npos && text[digit] >= '1' && text[digit] <= '9';
}

std::int64_t integerFromReal(double number) {
  if (std::isnan(number)) return 0;
  if (number >= 0x1p63) return IntegerLimits::max();
  if (number < -0x1p63) return IntegerLimits::min();
  return static_cast<std::int64_t>(number);
}

}  // namespace

OptionalString string(const Value* object) {
  const std::string* text = object ? object->ifString() : nullptr;
  return text ? OptionalString(*text) : std::nullopt;
}

Array array(const Value* object) {
  const Array* elements = object ? object->ifArray() : nullptr;
  return elements ? *elements : Array();
}

std::int64_t integer(const Value* object) {
  if (!object) return -1;
  if (const std::int64_t* number = object->ifInteger()) return *number;
  if (object->ifUnsigned()) return IntegerLimits::max();
  if (const double* number = object->ifReal()) return integerFromReal(*number);
  if (const bool* flag = object->ifBool()) return *flag ? 1 : 0;
  if (const std::string* text = object->ifString()) return integerFromText(*text);
  return -1;
}

double real(const Value* object) {
  if (!object) return -1;
  if (const double* number = object->ifReal()) return *number;
  if (const std::int64_t* number = object->ifInteger()) return static_cast<double>(*number);
  if (const std::uint64_t* number = object->ifUnsigned()) return static_cast<double>(*number);
  if (const bool* flag = object->ifBool()) return *flag ? 1 : 0;
  if (const std::string* text = object->ifString()) return realFromText(*text);
  return -1;
}

bool boolean(const Value* object) {
  if (!object) return false;
  if (const bool* flag = object->ifBool()) return *flag;
  if (const std::int64_t* number = object->ifInteger()) return *number != 0;
  if (object->ifUnsigned()) return true;
  if (const double* number = object->ifReal()) return *number != 0;
  const std::string* text = object->ifString();
  return text && booleanFromText(*text);
}

}  // namespace vornex::coerce
