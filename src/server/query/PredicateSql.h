#pragma once

#include <vornex/Value.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "server/query/Predicate.h"

namespace vornex::server {

/// What of a document the database can compare by itself.
struct SqlVocabulary {
  /// Top-level keys whose values stand in columns of their own, with the columns as SQL writes them. A column
  /// has no affinity and holds numbers (booleans as 1 and 0) and strings as they are, NULL for what is
  /// missing or null, and a blob for anything else.
  std::map<std::string, std::string, std::less<>> columns;
  /// Top-level keys whose case-folded text a trigram index of the same column names covers.
  std::set<std::string, std::less<>> textKeys;
};

/// A predicate as the database takes it: `condition AND rest` decides, `narrowing` only leaves out documents
/// that cannot fulfil it.
struct SqlPredicate {
  /// An SQL expression with a "?" for each of the bindings, which are null, integers, doubles or strings.
  std::string condition = "1";
  std::vector<Value> bindings;
  /// What must be asked of each document itself.
  std::optional<Predicate> rest;
  /// A full-text expression for the trigram index; empty when nothing is certain.
  std::string narrowing;
};

/// No text of the predicate gets into the condition; it stands in the bindings. (Keys get there as the
/// columns of the vocabulary only.)
SqlPredicate compilePredicate(const Predicate& predicate, const SqlVocabulary& vocabulary);

}  // namespace vornex::server
