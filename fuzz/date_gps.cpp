// links: vornex_core vornex_platform
#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/Coercion.h"
#include "core/DateNumber.h"
#include "core/GpsCoordinate.h"
#include "platform/GpsText.h"

using namespace vornex;

static void require(bool holds) {
  if (!holds) __builtin_trap();
}

static void dates(std::int64_t number) {
  if (auto date = dateFromDateNumber(number)) require(dateNumber(*date) == number);
  std::int64_t written = dateNumber(Date(std::chrono::microseconds(number)));
  if (auto date = dateFromDateNumber(written))
    require(*date == std::chrono::floor<std::chrono::milliseconds>(Date(std::chrono::microseconds(number))));
}

static void texts(const std::string& text) {
  Value value(text);
  std::int64_t integer = coerce::integer(&value);
  Value digits(std::to_string(integer));
  require(coerce::integer(&digits) == integer);
  require(std::isfinite(coerce::real(&value)));
  (void)coerce::boolean(&value);
  require(std::isfinite(decimalDegrees(text).value_or(0)));
  // What is normalised stays as it is.
  if (OptionalString gps = normalisedGpsText(text)) require(normalisedGpsText(*gps) == gps);
  std::string::size_type middle = text.find('|');
  if (middle != std::string::npos) (void)gpsTextFromExif(text.substr(0, middle), text.substr(middle + 1));
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::int64_t number = 0;
  std::memcpy(&number, data, std::min(size, sizeof number));
  dates(number);
  double real = 0;
  std::memcpy(&real, data, std::min(size, sizeof real));
  Value value(real);
  (void)coerce::integer(&value);
  texts(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
