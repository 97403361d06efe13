#pragma once

#include <vornex/Value.h>

#include <string>

namespace vornex {

/// ISO 8601 in UTC, "2024-03-05T14:07:09Z"; with a fraction of up to six digits where there is one.
std::string dateText(Date date);

}  // namespace vornex
