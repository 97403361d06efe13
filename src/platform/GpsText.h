#pragma once

#include <vornex/Value.h>

#include <string>

namespace vornex {

/// A coordinate as XMP writes it, "DDD,MM.mmk" or "DDD,MM,SSk" with k one of N S E W, in the form
/// "D,MM.mmmmk". Absent for anything else, also for degrees or minutes out of range.
OptionalString normalisedGpsText(const std::string& text);

/// The same from what an EXIF field tells, "37/1 33/1 30/1 (...)", and its reference field, "N (...)".
OptionalString gpsTextFromExif(const std::string& rationals, const std::string& reference);

}  // namespace vornex
