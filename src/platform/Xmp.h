#pragma once

#include <vornex/Value.h>

#include <string>

namespace vornex {

/// The XMP metadata of a file, EXIF and IPTC reconciled into it, as dictionaries by namespace prefix:
///   {"exif": {"GPSLatitude": "37,33.50N", ...}, "dc": {"title": {"x-default": "..."}, "subject": ["a",
///   "b"]}, ...}
/// Simple properties are strings, structures dictionaries, arrays arrays, language alternatives dictionaries
/// by language. A side-car (the same name with the extension xmp, or xmp appended) replaces properties of the
/// same name. "exif" "GPSLatitude" and "GPSLongitude" are always in the form DDD,MM.mmk with two or more
/// digits after the point. Absent when the file cannot be read or has no metadata at all. Blocks; thread-safe
/// (calls queue up behind each other).
std::optional<Dictionary> xmpMetadata(const std::string& path);

}  // namespace vornex
