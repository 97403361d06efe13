#pragma once

#include <vornex/ProjectList.h>

/// What a library's list of projects and a node's list of groups have in common.
namespace vornex::tree {

/// The error of a structural change, with the localised message of the key.
TQErrorPtr error(std::int64_t code, const std::string& key);

/// The position of the first node with the identifier, or -1.
std::int64_t indexOf(const ProjectList& nodes, const OptionalString& id);
/// Whether the very node is in the list.
bool holds(const ProjectList& nodes, const TQProject& node);
/// Exact and case-sensitive.
bool hasName(const ProjectList& nodes, const OptionalString& name);
/// How many nodes lie above this one, and how many levels below it.
std::int64_t depthOf(const TQProject& node);
std::int64_t heightOf(const ProjectPtr& node);
/// Whether the node is the top or lies below it.
bool isWithin(const TQProject& node, const TQProject& top);

}  // namespace vornex::tree
