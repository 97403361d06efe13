#include "server/query/PredicateEvaluator.h"

#include "server/query/OperandValue.h"
#include "server/query/ScalarOrder.h"

namespace vornex::server {

namespace {

std::size_t sizeOf(const Value& value) {
  const std::string* text = value.ifString();
  return text ? text->size() : 0;
}

// Evaluates predicates and says how long it takes.
class Evaluator {
 public:
  explicit Evaluator(TimeLimit& limit) : limit_(limit) {}

  bool holds(const Predicate& predicate, const Dictionary& document) {
    if (const bool* constant = std::get_if<bool>(&predicate.node)) return *constant;
    if (const Comparison* comparison = std::get_if<Comparison>(&predicate.node))
      return holds(*comparison, document);
    return holds(std::get<Compound>(predicate.node), document);
  }

  bool holdsDirectly(const Comparison& comparison, const Value* left, const Value* right) {
    bool nilConstant = !right && std::holds_alternative<Value>(comparison.right);
    if (left && right) return compare(comparison, *left, *right);
    if (comparison.op == Operator::equal) return !left && !right;
    return comparison.op == Operator::notEqual && left && nilConstant;
  }

 private:
  bool holds(const Compound& compound, const Dictionary& document) {
    auto operandHolds = [&](const Predicate& operand) { return holds(operand, document); };
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

  bool holds(const Comparison& comparison, const Dictionary& document) {
    std::size_t room = kRoomForValues;
    OperandValue left(comparison.left, document, limit_, room);
    OperandValue right(comparison.right, document, limit_, room);
    const Array* elements = left.get() ? left.get()->ifArray() : nullptr;
    if (comparison.modifier == Modifier::direct || !elements)
      return holdsDirectly(comparison, left.get(), right.get());
    limit_.spend(elements->size());
    auto elementHolds = [&](const Value& element) {
      return holdsDirectly(comparison, element.isNull() ? nullptr : &element, right.get());
    };
    return comparison.modifier == Modifier::any
               ? std::any_of(elements->begin(), elements->end(), elementHolds)
               : std::all_of(elements->begin(), elements->end(), elementHolds);
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
        return order(left, right, options) < 0;
      case Operator::lessOrEqual:
        return order(left, right, options) <= 0;
      case Operator::greater:
        return order(left, right, options) > 0;
      case Operator::greaterOrEqual:
        return order(left, right, options) >= 0;
      case Operator::between: {
        const Array* bounds = right.ifArray();
        return bounds && bounds->size() == 2 && order(left, (*bounds)[0], options) >= 0 &&
               order(left, (*bounds)[1], options) <= 0;
      }
      case Operator::in:
        return isIn(comparison, left, right);
      default:
        break;
    }
    if (comparison.pattern) return textMatches(left, *comparison.pattern);
    if (const std::string* text = right.ifString()) return textMatches(left, comparison, *text);
    const Array* array = comparison.op == Operator::contains ? left.ifArray() : nullptr;
    return array && isElement(right, array->begin(), array->end(), options);
  }

  std::partial_ordering order(const Value& a, const Value& b, TextOptions options) {
    limit_.spend(sizeOf(a) + sizeOf(b));
    const std::string* textA = a.ifString();
    const std::string* textB = b.ifString();
    if (!options.any() || !textA || !textB) return compareScalars(a, b);
    return normalizedText(*textA, options) <=> normalizedText(*textB, options);
  }

  bool equal(const Value& a, const Value& b, TextOptions options) {
    limit_.spend(1);
    const Array* arrayA = a.ifArray();
    const Array* arrayB = b.ifArray();
    if (arrayA && arrayB)
      return std::equal(arrayA->begin(), arrayA->end(), arrayB->begin(), arrayB->end(),
                        [&](const Value& x, const Value& y) { return equal(x, y, options); });
    if (a.isNull() || b.isNull()) return a.isNull() && b.isNull();
    if (a.ifDictionary()) {
      limit_.spend(bytesOf(a));
      return a == b;
    }
    return order(a, b, options) == 0;
  }

  bool isElement(const Value& value, Array::const_iterator begin, Array::const_iterator end,
                 TextOptions options) {
    return std::any_of(begin, end, [&](const Value& element) { return equal(value, element, options); });
  }

  bool isIn(const Comparison& comparison, const Value& left, const Value& right) {
    TextOptions options = comparison.options;
    if (const Array* array = right.ifArray()) {
      bool sorted = std::holds_alternative<Value>(comparison.right);
      return sorted ? isInConstants(left, *array, options)
                    : isElement(left, array->begin(), array->end(), options);
    }
    const std::string* part = left.ifString();
    const std::string* whole = right.ifString();
    if (!part || !whole) return false;
    limit_.spend(part->size() + whole->size());
    return containsText(normalizedText(*whole, options), normalizedText(*part, options));
  }

  bool isInConstants(const Value& value, const Array& sorted, TextOptions options) {
    limit_.spend(sizeOf(value));
    if (const std::string* text = value.ifString(); text && options.any())
      return isInSortedList(normalizedText(*text, options), sorted);
    if (!value.ifArray() && !value.ifDictionary()) return isInSortedList(value, sorted);
    return isElement(value, othersInSortedList(sorted), sorted.end(), options);
  }

  bool textMatches(const Value& value, const TextPattern& pattern) {
    return anyText(value, [&](const std::string& text) {
      limit_.spend(pattern.steps(text.size()));
      return pattern.matches(text);
    });
  }

  // With a text that is no constant.
  bool textMatches(const Value& value, const Comparison& comparison, const std::string& text) {
    if (comparison.op == Operator::contains) {
      TextOptions options = comparison.options;
      options.caseInsensitive = true;
      std::string part = normalizedText(text, options);
      return anyText(value, [&](const std::string& whole) {
        limit_.spend(whole.size() + part.size());
        return containsText(normalizedText(whole, options), part);
      });
    }
    // A short expression may take this long to read.
    constexpr std::size_t kStepsToRead = 100'000;
    bool isPlain = comparison.op == Operator::beginsWith || comparison.op == Operator::endsWith;
    limit_.spend(text.size() * 10 + (isPlain ? 0 : kStepsToRead));
    auto pattern = TextPattern::make(*patternKind(comparison.op), text, comparison.options);
    return pattern && textMatches(value, **pattern);
  }

  // Whether the value is, or one of its elements is, a text that fits.
  template <typename Fits>
  bool anyText(const Value& value, Fits fits) {
    auto textFits = [&](const Value& candidate) {
      const std::string* text = candidate.ifString();
      limit_.spend(1);
      return text && fits(*text);
    };
    const Array* array = value.ifArray();
    return array ? std::any_of(array->begin(), array->end(), textFits) : textFits(value);
  }

  TimeLimit& limit_;
};

}  // namespace

bool holds(const Comparison& comparison, const Value* left, TimeLimit& limit) {
  const Value& right = std::get<Value>(comparison.right);
  return Evaluator(limit).holdsDirectly(comparison, left, right.isNull() ? nullptr : &right);
}

bool holds(const Predicate& predicate, const Dictionary& document, TimeLimit& limit) {
  return Evaluator(limit).holds(predicate, document);
}

}  // namespace vornex::server
