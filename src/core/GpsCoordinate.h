#pragma once

#include <optional>
#include <string>

namespace vornex {

/// Signed decimal degrees from degrees, whole minutes, hundredths of a minute and a hemisphere letter with
/// any separators ("37,33.50N"); W and S are negative. Of the third number two characters count. Absent with
/// fewer than three numbers. Thread-safe.
std::optional<double> decimalDegrees(const std::string& text);

}  // namespace vornex
