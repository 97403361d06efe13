#include "server/store/ProjectEdits.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/Coercion.h"
#include "core/ProjectRules.h"
#include "foundation/Text.h"
#include "server/ServerError.h"

namespace vornex::server::projects {
namespace {

constexpr const char* kGroup = "group";

/// Where a node stands: the list that holds it, and the node that holds the list (null for a project).
struct Place {
  Array* siblings = nullptr;
  std::size_t index = 0;
  Dictionary* parent = nullptr;
  std::int64_t level = 0;

  Dictionary& node() const { return *siblings->at(index).ifDictionary(); }
};

bool hasText(const Value& node, const char* key, const std::string& wanted) {
  const Value* text = node.find(key);
  return text && text->ifString() && *text->ifString() == wanted;
}

Array* groupsOf(Dictionary& node) {
  Value* groups = node.find(kGroup);
  return groups ? groups->ifArray() : nullptr;
}

std::optional<Place> findBelow(Array& list, Dictionary* parent, std::int64_t level, const std::string& id) {
  for (std::size_t i = 0; i < list.size(); ++i) {
    Dictionary* node = list[i].ifDictionary();
    if (!node) continue;
    if (hasText(list[i], "id", id)) return Place{&list, i, parent, level};
    if (Array* groups = groupsOf(*node))
      if (auto found = findBelow(*groups, node, level + 1, id)) return found;
  }
  return std::nullopt;
}

Array& rootsOf(Dictionary& content) {
  Value& projects = content["projects"];
  if (!projects.ifArray()) projects = Array();
  return *projects.ifArray();
}

Result<Place> find(Dictionary& content, const std::string& id) {
  Array& roots = rootsOf(content);
  for (std::size_t i = 0; i < roots.size(); ++i)
    if (hasText(roots[i], "id", id)) return Place{&roots, i};
  if (auto found = findBelow(roots, nullptr, 0, id)) return *found;
  return serverFailure(StatusCode::itemNotFound, fmt::format("There is no project or group {}.", id));
}

/// The groups of the node, which gets an empty list when it has none.
Array& makeGroups(Dictionary& node) {
  if (!groupsOf(node)) node.set(kGroup, Array());
  return *groupsOf(node);
}

const Array& groupsIn(const Value& node) {
  static const Array kNone;
  const Value* groups = node.find(kGroup);
  return groups && groups->ifArray() ? *groups->ifArray() : kNone;
}

Result<void> checkName(const Array& siblings, const std::string& name) {
  if (name.empty()) return serverFailure(StatusCode::invalidRequest, "A name is needed.");
  for (const Value& sibling : siblings) {
    if (hasText(sibling, "name", name))
      return serverFailure(StatusCode::itemExists, fmt::format("There is a \"{}\" already.", name));
  }
  return {};
}

Result<void> checkIndex(const Array& list, std::int64_t index) {
  if (isInsertionIndex(list, index)) return {};
  return serverFailure(StatusCode::invalidRequest,
                       fmt::format("The list has {} elements: {} is no place in it.", list.size(), index));
}

Result<void> checkLevel(std::int64_t level) {
  if (level <= kDeepestLevel) return {};
  return serverFailure(StatusCode::limitExceeded,
                       fmt::format("Groups lie at most {} levels below their project.", kDeepestLevel));
}

}  // namespace

Result<std::string> create(Dictionary& content, const std::string& name, const std::string& parentID,
                           const std::string& dbName) {
  Array* siblings = &rootsOf(content);
  if (!parentID.empty()) {
    auto parent = find(content, parentID);
    if (!parent) return tl::unexpected(parent.error());
    if (auto checked = checkLevel(parent->level + 1); !checked) return tl::unexpected(checked.error());
    siblings = groupsOf(parent->node());
    if (auto checked = checkName(siblings ? *siblings : Array(), name); !checked)
      return tl::unexpected(checked.error());
    siblings = &makeGroups(parent->node());
  } else if (auto checked = checkName(*siblings, name); !checked) {
    return tl::unexpected(checked.error());
  }
  std::string id = makeUUID();
  siblings->push_back(
      Dictionary{{"id", id}, {"name", name}, {"dbname", dbName}, {"type", parentID.empty() ? 0 : 1}});
  return id;
}

Result<void> rename(Dictionary& content, const std::string& id, const std::string& name) {
  auto place = find(content, id);
  if (!place) return tl::unexpected(place.error());
  if (auto checked = checkName(*place->siblings, name); !checked) return checked;
  place->node().set("name", name);
  return {};
}

Result<void> move(Dictionary& content, const std::string& id, const std::string& parentID,
                  std::int64_t toIndex) {
  auto place = find(content, id);
  if (!place) return tl::unexpected(place.error());
  const Value* parentOfNode = place->parent ? place->parent->find("id") : place->node().find("id");
  if (parentOfNode && *parentOfNode == Value(parentID)) {
    auto checked = checkIndex(*place->siblings, toIndex);
    if (checked) reorder(*place->siblings, static_cast<std::int64_t>(place->index), toIndex);
    return checked;
  }
  if (!place->parent) return serverFailure(StatusCode::invalidRequest, "A project stays at the top.");
  auto target = find(content, parentID);
  if (!target) return tl::unexpected(target.error());
  Array below{place->node()};
  if (findBelow(below, nullptr, 0, parentID))
    return serverFailure(StatusCode::invalidRequest, "A group cannot lie in itself.");
  if (auto checked = checkLevel(target->level + 1 + levelsBelow(below.front(), groupsIn)); !checked)
    return checked;
  Array* groups = groupsOf(target->node());
  if (auto checked = checkIndex(groups ? *groups : Array(), toIndex); !checked) return checked;

  Value moved = std::move(place->siblings->at(place->index));
  place->siblings->erase(place->siblings->begin() + static_cast<std::ptrdiff_t>(place->index));
  if (place->siblings->empty()) place->parent->erase(kGroup);
  // Taking the node out has shifted what lay behind it.
  target = find(content, parentID);
  Array& list = makeGroups(target->node());
  list.insert(list.begin() + toIndex, std::move(moved));
  return {};
}

}  // namespace vornex::server::projects
