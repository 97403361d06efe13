#include <vornex/TQPredicate.h>

#include <cmath>
#include <set>

#include "core/DateNumber.h"
#include "core/QueryKeys.h"
#include "foundation/Text.h"

namespace vornex {

static const char* operatorWord(std::int64_t operatorType) {
  switch (operatorType) {
    case kPredicateLessThan:
      return "<";
    case kPredicateLessThanOrEqual:
      return "<=";
    case kPredicateGreaterThan:
      return ">";
    case kPredicateGreaterThanOrEqual:
      return ">=";
    case kPredicateEqual:
      return "==";
    case kPredicateNotEqual:
      return "!=";
    case kPredicateMatches:
      return "MATCHES";
    case kPredicateBeginsWith:
      return "BEGINSWITH";
    case kPredicateEndsWith:
      return "ENDSWITH";
    case kPredicateIn:
      return "IN";
    case kPredicateContains:
      return "CONTAINS";
    default:
      return nullptr;
  }
}

static std::string optionText(unsigned options) {
  std::string letters;
  if (options & kPredicateCaseInsensitive) letters += 'c';
  if (options & kPredicateDiacriticInsensitive) letters += 'd';
  return letters.empty() ? letters : "[" + letters + "]";
}

static std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (char c : text) {
    if (c == '\\' || c == '"') result += '\\';
    result += c;
  }
  return result + '"';
}

/// Whether the reader would take the word for something else than a key.
static bool isReserved(const std::string& word) {
  // Never destroyed: workers may write predicates while the process ends.
  static const auto* reserved = new std::set<std::string>{"and",
                                                          "or",
                                                          "in",
                                                          "not",
                                                          "all",
                                                          "any",
                                                          "some",
                                                          "none",
                                                          "like",
                                                          "caseinsensitive",
                                                          "ci",
                                                          "matches",
                                                          "contains",
                                                          "beginswith",
                                                          "endswith",
                                                          "between",
                                                          "null",
                                                          "nil",
                                                          "self",
                                                          "true",
                                                          "yes",
                                                          "false",
                                                          "no",
                                                          "first",
                                                          "last",
                                                          "size",
                                                          "anykey",
                                                          "subquery",
                                                          "fetch",
                                                          "cast",
                                                          "truepredicate",
                                                          "falsepredicate"};
  return reserved->contains(foldedText(word));
}

/// A key path as the reader takes it: a "#" says that what follows is a key. Absent when it cannot be
/// written.
static OptionalString keyText(const std::string& key) {
  std::string result;
  for (std::size_t begin = 0; begin <= key.size();) {
    std::size_t end = std::min(key.find('.', begin), key.size());
    std::string word = key.substr(begin, end - begin);
    if (!isQueryKey(word)) return std::nullopt;
    if (begin > 0) result += '.';
    if (std::isdigit(static_cast<unsigned char>(word.front())) || isReserved(word)) result += '#';
    result += word;
    begin = end + 1;
  }
  return result;
}

static OptionalString constantText(const Value& constant);

static OptionalString listText(const Array& list) {
  std::string result = "{";
  for (const Value& element : list) {
    OptionalString text = element.isNull() ? std::nullopt : constantText(element);
    if (!text) return std::nullopt;
    if (result.size() > 1) result += ", ";
    result += *text;
  }
  return result + "}";
}

static OptionalString constantText(const Value& constant) {
  switch (constant.kind()) {
    case Value::Kind::null:
      return "nil";
    case Value::Kind::boolean:
      return *constant.ifBool() ? "1" : "0";
    case Value::Kind::integer:
      return std::to_string(*constant.ifInteger());
    case Value::Kind::unsignedInteger:
      return std::to_string(*constant.ifUnsigned());
    case Value::Kind::real:
      if (!std::isfinite(*constant.ifReal())) return std::nullopt;
      return fmt::format("{}", *constant.ifReal());
    case Value::Kind::string:
      return quoted(*constant.ifString());
    case Value::Kind::date:
      return std::to_string(dateNumber(*constant.ifDate()));
    case Value::Kind::array:
      return listText(*constant.ifArray());
    case Value::Kind::data:
    case Value::Kind::dictionary:
      break;
  }
  return std::nullopt;
}

PredicatePtr TQPredicate::make(std::string format, bool isCompound) {
  return PredicatePtr(new TQPredicate(std::move(format), isCompound));
}

PredicatePtr TQPredicate::comparisonPredicate(const std::string& key, const Value& constant,
                                              std::int64_t operatorType, unsigned options) {
  const char* word = operatorWord(operatorType);
  OptionalString path = keyText(key);
  OptionalString text = constantText(constant);
  if (!path || !word || !text) return nullptr;
  return make(*path + " " + word + optionText(options) + " " + *text, false);
}

std::string TQPredicate::asPart() const {
  return isCompound_ ? "(" + format_ + ")" : format_;
}

PredicatePtr TQPredicate::join(const std::vector<PredicatePtr>& parts, const char* word,
                               const char* ofNothing) {
  if (std::find(parts.begin(), parts.end(), nullptr) != parts.end()) return nullptr;
  if (parts.empty()) return make(ofNothing, true);
  std::string format;
  for (const PredicatePtr& part : parts) {
    if (!format.empty()) format += word;
    format += part->asPart();
  }
  return make(std::move(format), true);
}

PredicatePtr TQPredicate::andPredicateWithSubpredicates(const std::vector<PredicatePtr>& subpredicates) {
  return join(subpredicates, " AND ", "TRUEPREDICATE");
}

PredicatePtr TQPredicate::orPredicateWithSubpredicates(const std::vector<PredicatePtr>& subpredicates) {
  return join(subpredicates, " OR ", "FALSEPREDICATE");
}

PredicatePtr TQPredicate::notPredicateWithSubpredicate(const PredicatePtr& subpredicate) {
  return subpredicate ? make("NOT " + subpredicate->asPart(), true) : nullptr;
}

}  // namespace vornex
