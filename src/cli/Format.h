#pragma once

#include <vornex/Types.h>

#include <cstdint>
#include <string>

namespace vornex::cli {

/// "999 B", "1.2 kB", "85 MB": decimal units, one decimal below ten.
std::string formatBytes(std::uint64_t bytes);

/// "0:07", "12:05", "3:04:05"; negative and not-a-number read as zero.
std::string formatDuration(double seconds);

/// "2024-05-01 10:00" in local time; "-" for an absent date.
std::string formatDate(const std::optional<Date>& date);

/// "2024-05-01T10:00:00.000Z"; null for an absent date.
Value isoDate(const std::optional<Date>& date);

/// "video", "audio", "image", "document", "extra"; "unknown" for any other number.
std::string typeName(std::int64_t assetType);

/// The asset type of a name above; absent for any other text.
std::optional<std::int64_t> typeNamed(const std::string& name);

/// Whether nothing can be seen of the text: it is empty, or white space alone.
bool isBlank(const std::string& text);

/// "1 file", "2 files".
std::string counted(std::uint64_t count, const std::string& noun);

}  // namespace vornex::cli
