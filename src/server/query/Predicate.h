#pragma once

#include <vornex/Value.h>

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "server/query/TextPattern.h"

namespace vornex::server {

/// The keys that lead to a value from the top of a document: "custom.owner" is two.
struct KeyPath {
  std::vector<std::string> components;
};

using Operand = std::variant<KeyPath, Value>;

enum class Operator {
  equal,
  notEqual,
  less,
  lessOrEqual,
  greater,
  greaterOrEqual,
  between,
  in,
  contains,
  beginsWith,
  endsWith,
  like,
  matches,
};

/// What a comparison asks of a left side that is an array: to fulfil it itself, with any element, or with
/// all.
enum class Modifier { direct, any, all };

/// `modifier left operator[options] right`. A constant that faces a key stands on the right wherever the
/// operator can be turned around. String constants are normalized by the options already; a constant list of
/// IN is sorted (see ScalarOrder.h).
struct Comparison {
  Modifier modifier = Modifier::direct;
  Operand left;
  Operator op = Operator::equal;
  TextOptions options;
  Operand right;
  /// Present for the text operators when the right side is a string.
  std::shared_ptr<const TextPattern> pattern;
};

struct Predicate;

struct Compound {
  enum class Kind { conjunction, disjunction, negation };
  Kind kind = Kind::conjunction;
  /// One for a negation.
  std::vector<Predicate> operands;
};

/// A search condition as a tree; a bare boolean is a condition that always or never holds.
///
/// Thread-safety: concurrent reads are safe; a write excludes everything else.
struct Predicate {
  std::variant<bool, Comparison, Compound> node = true;
};

}  // namespace vornex::server
