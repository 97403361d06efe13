#include "server/query/OperandValue.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "foundation/Text.h"
#include "server/query/ScalarOrder.h"

namespace vornex::server {

namespace {

using Path = std::span<const std::string>;

}  // namespace

std::size_t bytesOf(const Value& value) {
  std::size_t bytes = sizeof(Value);
  if (const std::string* text = value.ifString()) bytes += text->size();
  if (const Array* array = value.ifArray())
    for (const Value& element : *array) bytes += bytesOf(element);
  if (const Dictionary* dictionary = value.ifDictionary())
    for (const auto& [key, entry] : *dictionary) bytes += key.size() + bytesOf(entry);
  return bytes;
}

namespace {

std::optional<Number> exact(std::int64_t a, char sign, std::int64_t b) {
  std::int64_t result = 0;
  bool overflows = true;
  if (sign == '+') overflows = __builtin_add_overflow(a, b, &result);
  if (sign == '-') overflows = __builtin_sub_overflow(a, b, &result);
  if (sign == '*') overflows = __builtin_mul_overflow(a, b, &result);
  if (sign == '/' && b != 0 && b != -1 && a % b == 0) return a / b;
  return overflows ? std::nullopt : std::optional<Number>(result);
}

double real(Number number) {
  const std::int64_t* integer = std::get_if<std::int64_t>(&number);
  return integer ? static_cast<double>(*integer) : std::get<double>(number);
}

std::optional<Number> finite(double number) {
  return std::isfinite(number) ? std::optional<Number>(number) : std::nullopt;
}

// Integers stay integers where they can.
std::optional<Number> joined(Number a, char sign, Number b) {
  const std::int64_t* integerA = std::get_if<std::int64_t>(&a);
  const std::int64_t* integerB = std::get_if<std::int64_t>(&b);
  if (integerA && integerB)
    if (std::optional<Number> result = exact(*integerA, sign, *integerB)) return result;
  switch (sign) {
    case '+':
      return finite(real(a) + real(b));
    case '-':
      return finite(real(a) - real(b));
    case '*':
      return finite(real(a) * real(b));
    case '/':
      return real(b) == 0 ? std::nullopt : finite(real(a) / real(b));
    default:
      return finite(std::pow(real(a), real(b)));
  }
}

Value valueOf(std::optional<Number> number) {
  return number ? std::visit([](auto plain) { return Value(plain); }, *number) : Value();
}

// Works operands out of one document.
class Calculation {
 public:
  Calculation(const Dictionary& document, TimeLimit& limit, std::size_t& room)
      : document_(document), limit_(limit), room_(room) {}

  // Below the value; made of copies when the path leads through an array.
  Value below(const Value& value, Path path) {
    if (path.empty()) return copy(value);
    if (!value.ifArray()) {
      const Value* next = value.find(path.front());
      return next ? below(*next, path.subspan(1)) : Value();
    }
    Array elements;
    addBelow(value, path, elements);
    return elements;
  }

  Value result(const Formula& formula) {
    limit_.spend(formula.arguments.size());
    switch (formula.kind) {
      case Formula::Kind::list:
        return list(formula);
      case Formula::Kind::element:
        return element(formula);
      case Formula::Kind::member: {
        OperandValue base = argument(formula);
        return base.get() ? below(*base.get(), formula.path) : Value();
      }
      case Formula::Kind::arithmetic:
        return valueOf(arithmetic(formula));
      case Formula::Kind::count: {
        OperandValue base = argument(formula);
        const Array* array = base.get() ? base.get()->ifArray() : nullptr;
        return static_cast<std::int64_t>(array ? array->size() : base.get() ? 1 : 0);
      }
      case Formula::Kind::sum:
      case Formula::Kind::average:
      case Formula::Kind::minimum:
      case Formula::Kind::maximum:
        return valueOf(ofNumbers(formula));
      case Formula::Kind::lowercase:
      case Formula::Kind::uppercase:
      case Formula::Kind::length:
        return ofText(formula);
      default:
        return valueOf(ofNumber(formula));
    }
  }

 private:
  OperandValue argument(const Formula& formula, std::size_t place = 0) {
    return OperandValue(formula.arguments[place], document_, limit_, room_);
  }

  Value copy(const Value& value) {
    std::size_t bytes = bytesOf(value);
    limit_.spend(bytes);
    if (bytes > room_) return {};
    room_ -= bytes;
    return value;
  }

  void addBelow(const Value& value, Path path, Array& into) {
    limit_.spend(path.size());
    if (const Array* array = path.empty() ? nullptr : value.ifArray()) {
      for (const Value& element : *array) addBelow(element, path, into);
      return;
    }
    const Value* next = path.empty() ? nullptr : value.find(path.front());
    if (next) return addBelow(*next, path.subspan(1), into);
    if (room_ < sizeof(Value)) return;
    into.push_back(path.empty() ? copy(value) : copy({}));
  }

  Value list(const Formula& formula) {
    Array elements;
    for (std::size_t i = 0; i < formula.arguments.size(); ++i) {
      OperandValue element = argument(formula, i);
      elements.push_back(element.get() ? copy(*element.get()) : Value());
    }
    return elements;
  }

  Value element(const Formula& formula) {
    OperandValue base = argument(formula);
    const Array* array = base.get() ? base.get()->ifArray() : nullptr;
    if (!array || array->empty()) return {};
    std::size_t index = formula.index == Formula::kLast ? array->size() - 1 : formula.index;
    return index < array->size() ? copy((*array)[index]) : Value();
  }

  std::optional<Number> number(const Formula& formula, std::size_t place) {
    OperandValue value = argument(formula, place);
    return value.get() ? numberOf(*value.get()) : std::nullopt;
  }

  std::optional<Number> arithmetic(const Formula& formula) {
    std::optional<Number> result = number(formula, 0);
    for (std::size_t i = 1; result && i < formula.arguments.size(); ++i) {
      std::optional<Number> next = number(formula, i);
      result = next ? joined(*result, formula.signs[i - 1], *next) : std::nullopt;
    }
    return result;
  }

  std::optional<Number> ofNumbers(const Formula& formula) {
    std::vector<Number> numbers;
    auto add = [&](const Value& value) {
      limit_.spend(1);
      if (std::optional<Number> one = numberOf(value)) numbers.push_back(*one);
    };
    for (std::size_t i = 0; i < formula.arguments.size(); ++i) {
      OperandValue value = argument(formula, i);
      const Array* array = value.get() ? value.get()->ifArray() : nullptr;
      if (array)
        std::for_each(array->begin(), array->end(), add);
      else if (value.get())
        add(*value.get());
    }
    return ofNumbers(formula.kind, numbers);
  }

  static std::optional<Number> ofNumbers(Formula::Kind kind, const std::vector<Number>& numbers) {
    auto less = [](Number a, Number b) { return compareScalars(valueOf(a), valueOf(b)) < 0; };
    if (numbers.empty())
      return kind == Formula::Kind::sum ? std::optional<Number>(std::int64_t{0}) : std::nullopt;
    if (kind == Formula::Kind::minimum) return *std::min_element(numbers.begin(), numbers.end(), less);
    if (kind == Formula::Kind::maximum) return *std::max_element(numbers.begin(), numbers.end(), less);
    std::optional<Number> sum = numbers.front();
    for (std::size_t i = 1; sum && i < numbers.size(); ++i) sum = joined(*sum, '+', numbers[i]);
    if (kind == Formula::Kind::sum || !sum) return sum;
    return joined(*sum, '/', static_cast<std::int64_t>(numbers.size()));
  }

  Value ofText(const Formula& formula) {
    OperandValue value = argument(formula);
    const std::string* text = value.get() ? value.get()->ifString() : nullptr;
    if (!text) return {};
    limit_.spend(text->size() * 8);
    if (formula.kind == Formula::Kind::length) return static_cast<std::int64_t>(codePointCount(*text));
    return formula.kind == Formula::Kind::lowercase ? lowercased(*text) : uppercased(*text);
  }

  std::optional<Number> ofNumber(const Formula& formula) {
    std::optional<Number> value = number(formula, 0);
    if (!value) return std::nullopt;
    if (formula.kind == Formula::Kind::squareRoot) return finite(std::sqrt(real(*value)));
    if (const std::int64_t* integer = std::get_if<std::int64_t>(&*value))
      return formula.kind == Formula::Kind::absolute && *integer < 0 ? joined(std::int64_t{0}, '-', *value)
                                                                     : value;
    double plain = real(*value);
    switch (formula.kind) {
      case Formula::Kind::absolute:
        return std::abs(plain);
      case Formula::Kind::floor:
        return std::floor(plain);
      case Formula::Kind::ceiling:
        return std::ceil(plain);
      default:
        return std::trunc(plain);
    }
  }

  const Dictionary& document_;
  TimeLimit& limit_;
  std::size_t& room_;
};

}  // namespace

OperandValue::OperandValue(const Operand& operand, const Dictionary& document, TimeLimit& limit,
                           std::size_t& room) {
  Calculation calculation(document, limit, room);
  if (const Value* constant = std::get_if<Value>(&operand)) {
    if (!constant->isNull()) found_ = constant;
  } else if (const KeyPath* key = std::get_if<KeyPath>(&operand)) {
    Path path(key->components);
    const Value* value = path.empty() ? nullptr : document.find(path.front());
    if (path.empty()) made_ = Dictionary();
    while (value && path.size() > 1 && !value->ifArray()) {
      path = path.subspan(1);
      value = value->find(path.front());
    }
    if (value && path.size() > 1)
      made_ = calculation.below(*value, path.subspan(1));
    else if (value && !value->isNull())
      found_ = value;
  } else {
    made_ = calculation.result(*std::get<std::shared_ptr<const Formula>>(operand));
  }
}

const Value* valueAt(const Dictionary& document, const std::vector<std::string>& path) {
  const Value* value = document.find(path.front());
  for (std::size_t i = 1; value && i < path.size(); ++i) value = value->find(path[i]);
  return value && !value->isNull() ? value : nullptr;
}

}  // namespace vornex::server
