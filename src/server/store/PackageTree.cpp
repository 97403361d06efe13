#include "server/store/PackageTree.h"

#include <fmt/format.h>
#include <vornex/Log.h>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "server/ServerError.h"

namespace vornex::server {

Result<Dictionary> readPackageTree(const std::string& packageFolder, const std::string& path,
                                   const TreeForm& form) {
  if (!itemExists(path)) {
    // A volume that is not there says nothing about what is on it.
    if (!itemExists(packageFolder))
      return serverFailure(StatusCode::databaseNotFound, "The library's package folder is missing.");
    return Dictionary{{"hash", ""}, {form.childrenKey, Array()}};
  }
  Result<Dictionary> content = readDictionaryFile(path);
  if (content && !isTree(content->find(form.childrenKey), *form.children))
    content = failure("plist", 0,
                      fmt::format("{}: the list of {} is missing or not whole", path, form.childrenKey));
  if (!content) {
    logLine(LogLevel::error, "Cannot read a tree: " + content.error().message);
    return content;
  }
  return Dictionary{{"hash", coerce::string(content->find("hash")).value_or("")},
                    {form.childrenKey, std::move(*content->find(form.childrenKey))}};
}

}  // namespace vornex::server
