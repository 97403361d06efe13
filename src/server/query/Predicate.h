#pragma once

#include <vornex/Value.h>

#include <limits>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "server/query/TextPattern.h"

namespace vornex::server {

/// The keys that lead to a value from the top of a document: "custom.owner" is two. None at all is the
/// document. Through an array it leads to the array of what the elements have there, null for those that have
/// nothing.
struct KeyPath {
  std::vector<std::string> components;
};

struct Formula;

/// One side of a comparison. A formula has a key somewhere: what is made of constants alone is a constant.
using Operand = std::variant<KeyPath, Value, std::shared_ptr<const Formula>>;

/// What is worked out of other operands. It is null where they do not have what it takes, such as numbers for
/// a sum, or where a number is too large.
struct Formula {
  enum class Kind {
    /// The arguments as an array.
    list,
    /// Of the array that the only argument is, the element at `index`.
    element,
    /// What `path` leads to from the only argument.
    member,
    /// The arguments with one of `signs`, + - * / ^, between each two, from the left.
    arithmetic,
    /// How many elements the only argument has: none if it is null, one if it is no array.
    count,
    // Of the numbers among the arguments and their elements; the sum of none is 0.
    sum,
    average,
    minimum,
    maximum,
    // Of a text.
    lowercase,
    uppercase,
    length,
    // Of a number.
    absolute,
    floor,
    ceiling,
    truncated,
    squareRoot,
  };
  static constexpr std::size_t kLast = std::numeric_limits<std::size_t>::max();

  Kind kind = Kind::list;
  std::vector<Operand> arguments;
  std::string signs;
  std::size_t index = 0;
  std::vector<std::string> path;
  /// How deep formulas are nested here, this one included.
  int depth = 1;
};

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
  /// Present for the text operators when the right side is a constant string.
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

/// What a text operator makes of its right side; absent for the other operators.
std::optional<TextPattern::Kind> patternKind(Operator op);

/// The first components of every key the predicate looks at, each once, sorted.
std::vector<std::string> topLevelKeys(const Predicate& predicate);

}  // namespace vornex::server
