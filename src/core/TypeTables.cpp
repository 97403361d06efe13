#include "core/TypeTables.h"

#include <vornex/Log.h>

#include <cstdlib>

#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"

namespace vornex {
namespace {

/// The position of a category is the asset type of its extensions.
constexpr const char* kCategories[] = {"Video", "Audio", "Image", "Document", "Extra"};
constexpr std::int64_t kOther = 4;

/// The position of a kind is its number.
constexpr const char* kMetadataKinds[] = {"string", "boolean", "integer", "longlong", "date"};
constexpr std::int64_t kString = 0;
constexpr std::int64_t kDate = 4;

std::optional<Dictionary> loadTable(const std::string& folder, const char* fileName) {
  Result<Dictionary> table = readDictionaryFile(appendPathComponent(folder, fileName));
  if (table) return std::move(*table);
  logLine(LogLevel::error, "Can't load " + std::string(fileName) + ": " + table.error().message);
  return std::nullopt;
}

const Value* findInCategory(const Dictionary& extensions, const char* category,
                            const std::string& extension) {
  const Value* entries = extensions.find(category);
  return entries ? entries->find(extension) : nullptr;
}

}  // namespace

const TypeTables& TypeTables::shared() {
  // Never destroyed: workers may ask while the process ends.
  static const auto* tables = new TypeTables(resourceFolder());
  return *tables;
}

std::string TypeTables::resourceFolder() {
  const char* chosen = std::getenv("VORNEX_RESOURCES");
  if (chosen && *chosen) return chosen;
  return isDirectory(VORNEX_INSTALLED_RESOURCES) ? VORNEX_INSTALLED_RESOURCES : VORNEX_BUILD_RESOURCES;
}

TypeTables::TypeTables(const std::string& folder)
    : extensions_(loadTable(folder, "fileext.plist")), metadata_(loadTable(folder, "metatype.plist")) {}

std::int64_t TypeTables::assetType(const std::string& extension) const {
  if (!extensions_) return kOther;
  std::string lower = lowercased(extension);
  for (std::int64_t type = 0; type < kOther; ++type)
    if (findInCategory(*extensions_, kCategories[type], lower)) return type;
  return kOther;
}

std::string TypeTables::description(const OptionalString& extension) const {
  if (!extensions_ || !extension) return "";
  for (const char* category : kCategories) {
    const Value* found = findInCategory(*extensions_, category, *extension);
    if (const std::string* text = found ? found->ifString() : nullptr) return *text;
  }
  return "";
}

std::int64_t TypeTables::metadataType(const std::string& key) const {
  if (!metadata_) return kDate;
  const Value* found = metadata_->find(key);
  const std::string* kind = found ? found->ifString() : nullptr;
  for (std::int64_t type = 0; kind && type < std::ssize(kMetadataKinds); ++type)
    if (*kind == kMetadataKinds[type]) return type;
  return kString;
}

}  // namespace vornex
