#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

/// What holds for every project tree, in memory and in the file.
namespace vornex {

/// A project is level 0. Deeper trees do not fit the nesting that readers of property lists and JSON accept.
inline constexpr std::int64_t kDeepestLevel = 254;

/// How many levels lie below the node, whose list of children `childrenOf` gives.
template <typename Node, typename ChildrenOf>
std::int64_t levelsBelow(const Node& node, const ChildrenOf& childrenOf) {
  std::int64_t levels = 0;
  for (const Node& child : childrenOf(node)) levels = std::max(levels, levelsBelow(child, childrenOf) + 1);
  return levels;
}

/// Whether something can be inserted at the index.
template <typename List>
bool isInsertionIndex(const List& list, std::int64_t index) {
  return index >= 0 && index <= static_cast<std::int64_t>(list.size());
}

/// Moves the element at `from` to just before the one that stands at `to` now; `to` may be the end.
template <typename List>
void reorder(List& list, std::int64_t from, std::int64_t to) {
  typename List::value_type element = std::move(list[static_cast<std::size_t>(from)]);
  list.insert(list.begin() + to, std::move(element));
  list.erase(list.begin() + (from < to ? from : from + 1));
}

}  // namespace vornex
