#include "server/query/PredicateEvaluator.h"

#include <cmath>
#include <compare>

namespace vornex::server {

const Value* valueAt(const Dictionary& document, const std::vector<std::string>& path) {
  const Value* value = document.find(path.front());
  for (std::size_t i = 1; value && i < path.size(); ++i) value = value->find(path[i]);
  return value && !value->isNull() ? value : nullptr;
}

namespace {

// Integers beyond 64 signed bits count as doubles, as they do in the database.
using Number = std::variant<std::int64_t, double>;

std::optional<Number> numberOf(const Value& value) {
  if (const bool* boolean = value.ifBool()) return std::int64_t{*boolean};
  if (const std::int64_t* integer = value.ifInteger()) return *integer;
  if (const std::uint64_t* integer = value.ifUnsigned()) return static_cast<double>(*integer);
  if (const double* real = value.ifReal()) return *real;
  return std::nullopt;
}

std::partial_ordering compareNumbers(std::int64_t a, double b) {
  constexpr double kLimit = 9223372036854775808.0;
  if (b >= kLimit) return std::partial_ordering::less;
  if (b < -kLimit) return std::partial_ordering::greater;
  double whole = std::trunc(b);
  auto order = a <=> static_cast<std::int64_t>(whole);
  return order != 0 ? std::partial_ordering(order) : 0.0 <=> b - whole;
}

std::partial_ordering compareNumbers(Number a, Number b) {
  const std::int64_t* integerA = std::get_if<std::int64_t>(&a);
  const std::int64_t* integerB = std::get_if<std::int64_t>(&b);
  if (integerA && integerB) return *integerA <=> *integerB;
  if (integerA) return compareNumbers(*integerA, std::get<double>(b));
  if (integerB) return 0 <=> compareNumbers(*integerB, std::get<double>(a));
  return std::get<double>(a) <=> std::get<double>(b);
}

// Numbers with numbers and strings with strings; everything else is unordered.
std::partial_ordering compareScalars(const Value& a, const Value& b, TextOptions options) {
  std::optional<Number> numberA = numberOf(a);
  std::optional<Number> numberB = numberOf(b);
  if (numberA && numberB) return compareNumbers(*numberA, *numberB);
  const std::string* textA = a.ifString();
  const std::string* textB = b.ifString();
  if (!textA || !textB) return std::partial_ordering::unordered;
  if (!options.any()) return *textA <=> *textB;
  return normalizedText(*textA, options) <=> normalizedText(*textB, options);
}

bool equal(const Value& a, const Value& b, TextOptions options) {
  const Array* arrayA = a.ifArray();
  const Array* arrayB = b.ifArray();
  if (arrayA && arrayB)
    return std::equal(arrayA->begin(), arrayA->end(), arrayB->begin(), arrayB->end(),
                      [&](const Value& x, const Value& y) { return equal(x, y, options); });
  if (a.isNull() || b.isNull()) return a.isNull() && b.isNull();
  if (a.ifDictionary()) return a == b;
  return compareScalars(a, b, options) == 0;
}

bool isElement(const Value& value, const Array& array, TextOptions options) {
  return std::any_of(array.begin(), array.end(),
                     [&](const Value& element) { return equal(value, element, options); });
}

bool textMatches(const Value& value, const TextPattern& pattern) {
  auto matches = [&](const Value& candidate) {
    const std::string* text = candidate.ifString();
    return text && pattern.matches(*text);
  };
  const Array* array = value.ifArray();
  return array ? std::any_of(array->begin(), array->end(), matches) : matches(value);
}

bool isPart(const std::string& part, const std::string& whole, TextOptions options) {
  return normalizedText(whole, options).find(normalizedText(part, options)) != std::string::npos;
}

// Both sides are present.
bool compare(const Comparison& comparison, const Value& left, const Value& right) {
  TextOptions options = comparison.options;
  switch (comparison.op) {
    case Operator::equal:
      return equal(left, right, options);
    case Operator::notEqual:
      return !equal(left, right, options);
    case Operator::less:
      return compareScalars(left, right, options) < 0;
    case Operator::lessOrEqual:
      return compareScalars(left, right, options) <= 0;
    case Operator::greater:
      return compareScalars(left, right, options) > 0;
    case Operator::greaterOrEqual:
      return compareScalars(left, right, options) >= 0;
    case Operator::between: {
      const Array& bounds = *right.ifArray();
      return compareScalars(left, bounds[0], options) >= 0 && compareScalars(left, bounds[1], options) <= 0;
    }
    case Operator::in: {
      if (const Array* array = right.ifArray()) return isElement(left, *array, options);
      const std::string* part = left.ifString();
      const std::string* whole = right.ifString();
      return part && whole && isPart(*part, *whole, options);
    }
    default:
      break;
  }
  if (comparison.pattern) return textMatches(left, *comparison.pattern);
  const Array* array = left.ifArray();
  return array && isElement(right, *array, options);
}

bool holdsDirectly(const Comparison& comparison, const Value* left, const Value* right) {
  bool nilConstant = !right && std::holds_alternative<Value>(comparison.right);
  if (left && right) return compare(comparison, *left, *right);
  if (comparison.op == Operator::equal) return !left && !right;
  return comparison.op == Operator::notEqual && left && nilConstant;
}

const Value* resolve(const Operand& operand, const Dictionary& document) {
  if (const KeyPath* key = std::get_if<KeyPath>(&operand)) return valueAt(document, key->components);
  const Value& constant = std::get<Value>(operand);
  return constant.isNull() ? nullptr : &constant;
}

bool holds(const Comparison& comparison, const Dictionary& document) {
  const Value* left = resolve(comparison.left, document);
  const Value* right = resolve(comparison.right, document);
  const Array* elements = left ? left->ifArray() : nullptr;
  if (comparison.modifier == Modifier::direct || !elements) return holdsDirectly(comparison, left, right);
  auto elementHolds = [&](const Value& element) {
    return holdsDirectly(comparison, element.isNull() ? nullptr : &element, right);
  };
  return comparison.modifier == Modifier::any ? std::any_of(elements->begin(), elements->end(), elementHolds)
                                              : std::all_of(elements->begin(), elements->end(), elementHolds);
}

bool holds(const Compound& compound, const Dictionary& document) {
  auto operandHolds = [&](const Predicate& operand) { return server::holds(operand, document); };
  switch (compound.kind) {
    case Compound::Kind::conjunction:
      return std::all_of(compound.operands.begin(), compound.operands.end(), operandHolds);
    case Compound::Kind::disjunction:
      return std::any_of(compound.operands.begin(), compound.operands.end(), operandHolds);
    case Compound::Kind::negation:
      return !operandHolds(compound.operands.front());
  }
  return false;
}

void collectKey(const Operand& operand, std::vector<std::string>& keys) {
  if (const KeyPath* key = std::get_if<KeyPath>(&operand)) keys.push_back(key->components.front());
}

void collectKeys(const Predicate& predicate, std::vector<std::string>& keys) {
  if (const Comparison* comparison = std::get_if<Comparison>(&predicate.node)) {
    collectKey(comparison->left, keys);
    collectKey(comparison->right, keys);
  } else if (const Compound* compound = std::get_if<Compound>(&predicate.node)) {
    for (const Predicate& operand : compound->operands) collectKeys(operand, keys);
  }
}

}  // namespace

bool holds(const Comparison& comparison, const Value* left) {
  const Value& right = std::get<Value>(comparison.right);
  return holdsDirectly(comparison, left, right.isNull() ? nullptr : &right);
}

bool holds(const Predicate& predicate, const Dictionary& document) {
  if (const bool* constant = std::get_if<bool>(&predicate.node)) return *constant;
  if (const Comparison* comparison = std::get_if<Comparison>(&predicate.node))
    return holds(*comparison, document);
  return holds(std::get<Compound>(predicate.node), document);
}

std::vector<std::string> topLevelKeys(const Predicate& predicate) {
  std::vector<std::string> keys;
  collectKeys(predicate, keys);
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

}  // namespace vornex::server
