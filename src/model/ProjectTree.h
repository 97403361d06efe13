#pragma once

#include <vornex/Types.h>

#include <vector>

/// What a library's list of projects and a node's list of groups have in common.
namespace vornex::tree {

using Nodes = std::vector<ProjectPtr>;

/// The error of a structural change, with the localised message of the key.
TQErrorPtr error(std::int64_t code, const std::string& key);

/// The position of the first node with the identifier, or -1.
std::int64_t indexOf(const Nodes& nodes, const OptionalString& id);
/// Exact and case-sensitive.
bool hasName(const Nodes& nodes, const OptionalString& name);
/// Whether something can be inserted at the index.
bool isInsertionIndex(const Nodes& nodes, std::int64_t index);

/// Moves the node at `from` to just before the one that stands at `to` now; `to` may be the end.
void reorder(Nodes& nodes, std::int64_t from, std::int64_t to);

}  // namespace vornex::tree
