#pragma once

#include <vornex/Types.h>

#include <vector>

namespace vornex {

class TQPredicate;
using PredicatePtr = std::shared_ptr<const TQPredicate>;

/// The operator of a comparison; the numbers are part of the interface.
enum PredicateOperator : std::int64_t {
  kPredicateLessThan = 0,
  kPredicateLessThanOrEqual = 1,
  kPredicateGreaterThan = 2,
  kPredicateGreaterThanOrEqual = 3,
  kPredicateEqual = 4,
  kPredicateNotEqual = 5,
  kPredicateMatches = 6,
  kPredicateBeginsWith = 8,
  kPredicateEndsWith = 9,
  kPredicateIn = 10,
  kPredicateContains = 99,
};

/// Options of a comparison of strings; they are added up.
enum PredicateOption : unsigned {
  kPredicateNoOption = 0,
  kPredicateCaseInsensitive = 1,
  kPredicateDiacriticInsensitive = 2,
};

/// A condition on assets: a comparison of one key with a constant, or a compound of conditions.
///
/// Thread-safety: immutable; every operation is safe on any thread.
class TQPredicate {
 public:
  /// The key is words of letters, digits and underscores, joined by dots; words that the format reserves are
  /// fine. Null when it is anything else, the number names no operator, or the constant has no textual form:
  /// data, dictionaries, numbers that are not finite, and arrays that hold one of those or null. A null
  /// constant is written `nil`, a date as its date number.
  static PredicatePtr comparisonPredicate(const std::string& key, const Value& constant,
                                          std::int64_t operatorType, unsigned options = kPredicateNoOption);
  /// Null when one of the parts is null. Without parts the first matches everything, the second nothing.
  static PredicatePtr andPredicateWithSubpredicates(const std::vector<PredicatePtr>& subpredicates);
  static PredicatePtr orPredicateWithSubpredicates(const std::vector<PredicatePtr>& subpredicates);
  static PredicatePtr notPredicateWithSubpredicate(const PredicatePtr& subpredicate);

  /// The text that the server reads, such as `type == 2 AND (name CONTAINS "a" OR tags CONTAINS "a")`.
  const std::string& predicateFormat() const { return format_; }

 private:
  TQPredicate(std::string format, bool isCompound) : format_(std::move(format)), isCompound_(isCompound) {}
  static PredicatePtr make(std::string format, bool isCompound);
  static PredicatePtr join(const std::vector<PredicatePtr>& parts, const char* word, const char* ofNothing);
  /// In parentheses when it is a compound.
  std::string asPart() const;

  const std::string format_;
  const bool isCompound_;
};

}  // namespace vornex
