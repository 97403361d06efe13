#pragma once

#include <vornex/Value.h>

#include <optional>
#include <string>

namespace vornex {

/// The XMP metadata toolkit. It reads each file in a process of its own, "vornex-media", so that a hostile
/// file harms nothing but its own answer.
///
/// Thread-safety: safe on any thread.
class XMPKit {
 public:
  /// Looks for the program that reads the files, and logs when it is missing: no file has any metadata then.
  /// Starts nothing.
  static void XMPKitInit();

  /// The metadata of a file, EXIF and IPTC reconciled into it and its side-car read, by namespace prefix:
  /// {"exif": {"GPSLatitude": "37,33.50N"}, "dc": {"subject": ["a", "b"]}}. Simple properties are strings,
  /// language alternatives dictionaries by language. Absent, and logged where the reader failed, when the
  /// file cannot be read or has none. Blocks, at most the reader's time limit.
  std::optional<Dictionary> metadataWithPath(const std::string& path) const;
};

}  // namespace vornex
