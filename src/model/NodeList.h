#pragma once

#include <vornex/Value.h>

#include <algorithm>
#include <cstdint>

#include "core/ProjectRules.h"

/// What lists of nodes that have an `ID` have in common.
namespace vornex::nodes {

/// The position of the first node with the identifier, or -1.
template <typename List>
std::int64_t indexOf(const List& list, const OptionalString& ID) {
  auto found =
      std::find_if(list.begin(), list.end(), [&](const auto& node) { return node && ID && node->ID == ID; });
  return found == list.end() ? -1 : found - list.begin();
}

/// That node, or null.
template <typename List>
typename List::value_type withID(const List& list, const OptionalString& ID) {
  const std::int64_t index = indexOf(list, ID);
  return index < 0 ? nullptr : list[static_cast<std::size_t>(index)];
}

/// Whether the very node is in the list.
template <typename List, typename Node>
bool holds(const List& list, const Node& node) {
  return std::any_of(list.begin(), list.end(), [&](const auto& each) { return each.get() == &node; });
}

template <typename List>
void removeWithID(List& list, const OptionalString& ID) {
  std::erase_if(list, [&](const auto& node) { return node && node->ID == ID; });
}

/// The index counts positions before the move. False, and nothing happens, for an unknown node or an index
/// out of range.
template <typename List>
bool move(List& list, const OptionalString& ID, std::int64_t toIndex) {
  const std::int64_t from = indexOf(list, ID);
  if (from < 0 || !isInsertionIndex(list, toIndex)) return false;
  reorder(list, from, toIndex);
  return true;
}

}  // namespace vornex::nodes
