#include "import/PackagePath.h"

#include "core/StorageLayout.h"
#include "foundation/Files.h"

namespace vornex {

OptionalString packageRelativePath(const std::string& path, const std::string& packageFolder) {
  std::size_t found = path.find(packageFolder);
  if (found == std::string::npos) return std::nullopt;
  return path.substr(found + packageFolder.size());
}

std::string importJournalFolder(const std::string& packageFolder) {
  return appendPathComponent(layout::extraFolder(packageFolder), "Import");
}

}  // namespace vornex
