#pragma once

#include <vornex/Value.h>

#include <array>

namespace vornex {

/// What the nodes of one level of a tree are made of, in property lists and in answers.
struct TreeForm {
  /// The keys under which a node must have a text; unused ones are null.
  std::array<const char*, 3> texts = {};
  /// The key of the list of nodes below, and what those are made of; null at the lowest level.
  const char* childrenKey = nullptr;
  const TreeForm* children = nullptr;
};

/// Whether the value is a list of nodes of this form, and below each, where it has a list, again. Nodes may
/// have keys that the form does not name.
///
/// Thread-safety: safe on any thread.
bool isTree(const Value* list, const TreeForm& form);

// A file that holds a tree is the node above its topmost list.

inline constexpr TreeForm kProjectForm{{"id", "name", "dbname"}, "group", &kProjectForm};
inline constexpr TreeForm kProjectFileForm{{}, "projects", &kProjectForm};

inline constexpr TreeForm kFCPXMulticamForm{{"id", "name"}};
inline constexpr TreeForm kFCPXEventForm{{"id", "name"}, "multicams", &kFCPXMulticamForm};
inline constexpr TreeForm kFCPXLibraryForm{{"id", "path"}, "events", &kFCPXEventForm};
inline constexpr TreeForm kFCPXFileForm{{}, "fcpxlibraries", &kFCPXLibraryForm};

}  // namespace vornex
