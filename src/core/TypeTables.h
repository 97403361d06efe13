#pragma once

#include <vornex/Value.h>

#include <cstdint>
#include <optional>
#include <string>

namespace vornex {

/// The extension and metadata tables ("fileext.plist", "metatype.plist"), loaded once from the resource
/// folder.
///
/// Thread-safety: immutable after loading.
class TypeTables {
 public:
  static const TypeTables& shared();

  /// The folder of the resources: `$VORNEX_RESOURCES`, else the installed one, else that of the build.
  static std::string resourceFolder();

  /// A table whose file cannot be read is absent, and logged.
  explicit TypeTables(const std::string& folder);

  /// Asset type 0 to 4; letter case does not count. 4 without a table.
  std::int64_t assetType(const std::string& extension) const;
  /// As listed for exactly this spelling; empty when it is not.
  std::string description(const OptionalString& extension) const;
  /// 0 string, 1 boolean, 2 integer, 3 long long, 4 date. An unknown key is a string; without a table every
  /// key is a date.
  std::int64_t metadataType(const std::string& key) const;

  /// Category, then extension in lower case, to description; absent when it could not be read.
  const std::optional<Dictionary>& extensions() const { return extensions_; }
  /// Metadata key to "string", "boolean", "integer", "longlong" or "date"; absent when it could not be read.
  const std::optional<Dictionary>& metadata() const { return metadata_; }

 private:
  std::optional<Dictionary> extensions_;
  std::optional<Dictionary> metadata_;
};

}  // namespace vornex
