#pragma once

#include <vornex/Value.h>

#include <string>

#include "foundation/Error.h"

/// Changes of a project list's content, whose "projects" is a list of nodes as ProjectTree describes them, by
/// the rules that local libraries are changed by. What fails leaves the content as it was.
///
/// Errors: invalidRequest, itemNotFound, itemExists, limitExceeded.
namespace vornex::server::projects {

/// Adds a group at the end of the parent's, or a project when the parent is empty; gives its identifier. No
/// sibling may have the name.
[[nodiscard]] Result<std::string> create(Dictionary& content, const std::string& name,
                                         const std::string& parentID, const std::string& dbName);

/// No sibling may have the name, nor the node itself.
[[nodiscard]] Result<void> rename(Dictionary& content, const std::string& id, const std::string& name);

/// Moves a node among its siblings, when its parent (for a project: itself) is given, the index counting
/// positions before the move; or a group into another parent, at an index of that parent's list.
[[nodiscard]] Result<void> move(Dictionary& content, const std::string& id, const std::string& parentID,
                                std::int64_t toIndex);

}  // namespace vornex::server::projects
