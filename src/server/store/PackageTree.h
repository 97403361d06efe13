#pragma once

#include <vornex/Value.h>

#include <string>

#include "core/TreeForm.h"
#include "foundation/Error.h"

namespace vornex::server {

/// A tree that the server does not change, as its file in the package folder holds it: {"hash": text, and the
/// list of nodes under the form's key}. Without a file there are no nodes, and the hash is empty. Errors:
/// databaseNotFound when the package folder is missing; domain "plist" for a file that is not of the form;
/// domain "posix". Thread-safe.
[[nodiscard]] Result<Dictionary> readPackageTree(const std::string& packageFolder, const std::string& path,
                                                 const TreeForm& form);

}  // namespace vornex::server
