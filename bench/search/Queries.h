#pragma once

#include <string>
#include <vector>

#include "Documents.h"

namespace vornex::bench {

/// One search as each engine takes it.
struct Query {
  std::string name;
  /// In the textual predicate format.
  std::string predicate;
  std::int64_t page = 0;
  /// The condition in SQL.
  std::string sql;
  /// What a scan looks for in the text of name, tags and extension: one of these expressions. Empty: nothing.
  std::vector<std::string> terms;
};

/// Some variants of each class of searches.
std::vector<Query> queriesFor(const Documents& documents);

}  // namespace vornex::bench
