#include "server/query/PredicateParser.h"

#include <fmt/format.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstring>

#include "core/StatusCode.h"
#include "foundation/Text.h"
#include "server/query/OperandValue.h"
#include "server/query/PredicateLexer.h"
#include "server/query/ScalarOrder.h"

namespace vornex::server {

namespace {

enum class Keyword {
  none,
  conjunction,
  disjunction,
  negation,
  any,
  all,
  noneOf,
  always,
  never,
  yes,
  no,
  nil,
  between,
  in,
  contains,
  beginsWith,
  endsWith,
  like,
  matches,
};

Keyword keyword(const Token& token) {
  static const std::unordered_map<std::string, Keyword> kKeywords = {{"and", Keyword::conjunction},
                                                                     {"or", Keyword::disjunction},
                                                                     {"not", Keyword::negation},
                                                                     {"any", Keyword::any},
                                                                     {"some", Keyword::any},
                                                                     {"all", Keyword::all},
                                                                     {"none", Keyword::noneOf},
                                                                     {"truepredicate", Keyword::always},
                                                                     {"falsepredicate", Keyword::never},
                                                                     {"true", Keyword::yes},
                                                                     {"yes", Keyword::yes},
                                                                     {"false", Keyword::no},
                                                                     {"no", Keyword::no},
                                                                     {"nil", Keyword::nil},
                                                                     {"null", Keyword::nil},
                                                                     {"between", Keyword::between},
                                                                     {"in", Keyword::in},
                                                                     {"contains", Keyword::contains},
                                                                     {"beginswith", Keyword::beginsWith},
                                                                     {"endswith", Keyword::endsWith},
                                                                     {"like", Keyword::like},
                                                                     {"matches", Keyword::matches}};
  if (token.kind != Token::Kind::word || token.escaped || token.path.size() != 1) return Keyword::none;
  auto found = kKeywords.find(lowercased(token.path.front()));
  return found == kKeywords.end() ? Keyword::none : found->second;
}

std::optional<Operator> operatorOf(const Token& token) {
  if (token.kind == Token::Kind::symbol) {
    if (token.text == "==") return Operator::equal;
    if (token.text == "!=") return Operator::notEqual;
    if (token.text == "<") return Operator::less;
    if (token.text == "<=") return Operator::lessOrEqual;
    if (token.text == ">") return Operator::greater;
    if (token.text == ">=") return Operator::greaterOrEqual;
    return std::nullopt;
  }
  switch (keyword(token)) {
    case Keyword::between:
      return Operator::between;
    case Keyword::in:
      return Operator::in;
    case Keyword::contains:
      return Operator::contains;
    case Keyword::beginsWith:
      return Operator::beginsWith;
    case Keyword::endsWith:
      return Operator::endsWith;
    case Keyword::like:
      return Operator::like;
    case Keyword::matches:
      return Operator::matches;
    default:
      return std::nullopt;
  }
}

// The operator that says the same with its sides exchanged.
std::optional<Operator> mirrored(Operator op) {
  switch (op) {
    case Operator::equal:
    case Operator::notEqual:
      return op;
    case Operator::less:
      return Operator::greater;
    case Operator::lessOrEqual:
      return Operator::greaterOrEqual;
    case Operator::greater:
      return Operator::less;
    case Operator::greaterOrEqual:
      return Operator::lessOrEqual;
    default:
      return std::nullopt;
  }
}

// What a function works out, and whether it takes several arguments.
struct Function {
  Formula::Kind kind;
  bool takesSeveral = false;
};

const Function* functionNamed(const std::string& name) {
  using Kind = Formula::Kind;
  static const std::unordered_map<std::string, Function> kFunctions = {
      {"count", {Kind::count}},         {"sum", {Kind::sum, true}},     {"average", {Kind::average, true}},
      {"min", {Kind::minimum, true}},   {"max", {Kind::maximum, true}}, {"lowercase", {Kind::lowercase}},
      {"uppercase", {Kind::uppercase}}, {"length", {Kind::length}},     {"abs", {Kind::absolute}},
      {"floor", {Kind::floor}},         {"ceiling", {Kind::ceiling}},   {"trunc", {Kind::truncated}},
      {"sqrt", {Kind::squareRoot}}};
  auto found = kFunctions.find(name);
  return found == kFunctions.end() ? nullptr : &found->second;
}

std::optional<Formula::Kind> collectionOperator(const std::string& name) {
  if (name == "@count") return Formula::Kind::count;
  if (name == "@sum") return Formula::Kind::sum;
  if (name == "@avg") return Formula::Kind::average;
  if (name == "@min") return Formula::Kind::minimum;
  if (name == "@max") return Formula::Kind::maximum;
  return std::nullopt;
}

// What was read so far: a condition, or an operand whose comparison may follow.
using Part = std::variant<Predicate, Operand>;

// Operands with a sign between each two.
struct Terms {
  std::vector<Operand> operands;
  std::string signs;
};

void normalize(Value& constant, TextOptions options) {
  if (const std::string* text = constant.ifString()) constant = normalizedText(*text, options);
  if (Array* array = constant.ifArray())
    for (Value& element : *array) normalize(element, options);
}

class Parser {
 public:
  Parser(std::string_view text, TimeLimit limit) : limit_(limit), lexer_(text), token_(lexer_.next()) {}

  Predicate parse() {
    Predicate predicate = condition(disjunction());
    if (token_.kind != Token::Kind::end) unexpected("AND, OR or the end");
    return predicate;
  }

 private:
  // Counts how deep the parser has called itself.
  class Level {
   public:
    explicit Level(Parser& parser) : depth_(parser.depth_) {
      if (++depth_ > kMaximumPredicateDepth) throw tooDeep(parser.token_.position);
    }
    ~Level() { --depth_; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

   private:
    int& depth_;
  };

  [[noreturn]] void unexpected(const char* expected) const {
    throw QueryMistake{token_.position, fmt::format("{} is expected, not {}", expected, token_.shown())};
  }

  static QueryMistake tooDeep(std::size_t position) {
    return {position, fmt::format("nested deeper than {} levels", kMaximumPredicateDepth)};
  }

  Token advance() { return std::exchange(token_, lexer_.next()); }

  bool isSymbol(const char* symbol) const {
    return token_.kind == Token::Kind::symbol && token_.text == symbol;
  }

  bool accept(const char* symbol) {
    if (!isSymbol(symbol)) return false;
    advance();
    return true;
  }

  bool is(const char* symbol, Keyword word) const { return isSymbol(symbol) || keyword(token_) == word; }

  bool accept(const char* symbol, Keyword word) {
    if (!is(symbol, word)) return false;
    advance();
    return true;
  }

  void expect(const char* symbol, const char* expected) {
    if (!accept(symbol)) unexpected(expected);
  }

  Predicate condition(Part part) const {
    if (Predicate* predicate = std::get_if<Predicate>(&part)) return std::move(*predicate);
    unexpected("an operator");
  }

  static Operand operandOf(Part part, std::size_t position) {
    if (Operand* operand = std::get_if<Operand>(&part)) return std::move(*operand);
    throw QueryMistake{position, "a key or a constant is expected, not a condition"};
  }

  Part disjunction() {
    Part first = conjunction();
    if (!is("||", Keyword::disjunction)) return first;
    Compound compound{Compound::Kind::disjunction, {}};
    compound.operands.push_back(condition(std::move(first)));
    while (accept("||", Keyword::disjunction)) compound.operands.push_back(condition(conjunction()));
    return Predicate{std::move(compound)};
  }

  Part conjunction() {
    Part first = negation();
    if (!is("&&", Keyword::conjunction)) return first;
    Compound compound{Compound::Kind::conjunction, {}};
    compound.operands.push_back(condition(std::move(first)));
    while (accept("&&", Keyword::conjunction)) compound.operands.push_back(condition(negation()));
    return Predicate{std::move(compound)};
  }

  static Predicate negated(Predicate predicate) {
    Compound compound{Compound::Kind::negation, {}};
    compound.operands.push_back(std::move(predicate));
    return {std::move(compound)};
  }

  Part negation() {
    Level level(*this);
    if (accept("!", Keyword::negation)) return negated(condition(negation()));
    switch (keyword(token_)) {
      case Keyword::always:
        advance();
        return Predicate{true};
      case Keyword::never:
        advance();
        return Predicate{false};
      case Keyword::any:
        advance();
        return condition(comparison(Modifier::any));
      case Keyword::all:
        advance();
        return condition(comparison(Modifier::all));
      case Keyword::noneOf:
        advance();
        return negated(condition(comparison(Modifier::any)));
      default:
        return comparison(Modifier::direct);
    }
  }

  // Whatever stands in parentheses may turn out to be a condition or an operand, and an operand to be one
  // side of a comparison or no more than that.
  Part comparison(Modifier modifier) {
    std::size_t position = token_.position;
    Part left = terms();
    if (modifier != Modifier::direct) left = operandOf(std::move(left), position);
    std::optional<Operator> op = operatorOf(token_);
    if (!op || std::holds_alternative<Predicate>(left)) return left;
    Comparison result;
    result.modifier = modifier;
    result.left = std::move(std::get<Operand>(left));
    result.op = *op;
    advance();
    result.options = options();
    std::size_t rightPosition = token_.position;
    result.right = operandOf(terms(), rightPosition);
    complete(result, rightPosition);
    return Predicate{std::move(result)};
  }

  TextOptions options() {
    TextOptions options;
    if (!accept("[")) return options;
    if (token_.kind != Token::Kind::word || token_.path.size() != 1) unexpected("c, d or cd");
    for (char c : lowercased(token_.path.front())) {
      if (c == 'c')
        options.caseInsensitive = true;
      else if (c == 'd')
        options.diacriticInsensitive = true;
      else if (c == 'l')
        throw QueryMistake{token_.position, "the option l is not supported: a server has no language"};
      else if (c != 'n')
        unexpected("c, d or cd");
    }
    advance();
    expect("]", "\"]\"");
    return options;
  }

  // The sign of arithmetic at hand; 0 when there is none.
  char sign() const {
    if (token_.kind != Token::Kind::symbol) return 0;
    if (token_.text == "**") return '^';
    return token_.text.size() == 1 && std::strchr("+-*/", token_.text[0]) ? token_.text[0] : '\0';
  }

  Part terms() {
    std::size_t position = token_.position;
    Part first = term();
    if (sign() == 0) return first;
    Terms all{{operandOf(std::move(first), position)}, {}};
    while (char next = sign()) {
      advance();
      all.signs += next;
      std::size_t at = token_.position;
      all.operands.push_back(operandOf(term(), at));
    }
    for (const char* signs : {"^", "*/", "+-"}) all = joined(std::move(all), signs, position);
    return std::move(all.operands.front());
  }

  // Every row of terms that have one of the signs between them becomes one.
  Terms joined(Terms all, const char* signs, std::size_t position) {
    Terms result;
    for (std::size_t i = 0; i < all.operands.size();) {
      if (i > 0) result.signs += all.signs[i - 1];
      Formula formula{Formula::Kind::arithmetic, {std::move(all.operands[i])}, {}, 0, {}};
      for (; i < all.signs.size() && std::strchr(signs, all.signs[i]); ++i) {
        formula.signs += all.signs[i];
        formula.arguments.push_back(std::move(all.operands[i + 1]));
      }
      ++i;
      result.operands.push_back(formula.signs.empty() ? std::move(formula.arguments.front())
                                                      : made(std::move(formula), position));
    }
    return result;
  }

  // Of constants a constant is made.
  Operand made(Formula formula, std::size_t position) {
    bool constant = true;
    for (const Operand& argument : formula.arguments) {
      constant = constant && std::holds_alternative<Value>(argument);
      if (const auto* inner = std::get_if<std::shared_ptr<const Formula>>(&argument))
        formula.depth = std::max(formula.depth, (*inner)->depth + 1);
    }
    if (formula.depth > kMaximumPredicateDepth) throw tooDeep(position);
    if (!constant) return std::make_shared<const Formula>(std::move(formula));
    Value value = constantValue(std::move(formula));
    if (value.isNull()) throw QueryMistake{position, "these constants have no such value"};
    return value;
  }

  Value constantValue(Formula formula) {
    if (formula.kind == Formula::Kind::list) {
      Array elements;
      for (Operand& argument : formula.arguments) elements.push_back(std::move(std::get<Value>(argument)));
      return elements;
    }
    std::size_t room = kRoomForValues;
    Operand operand = std::make_shared<const Formula>(std::move(formula));
    const Dictionary none;
    OperandValue value(operand, none, limit_, room);
    return value.get() ? *value.get() : Value();
  }

  Part term() {
    std::size_t position = token_.position;
    if (isSymbol("-") || isSymbol("+")) {
      Level level(*this);
      std::string sign = advance().text;
      std::size_t at = token_.position;
      Operand operand = operandOf(term(), at);
      return made({Formula::Kind::arithmetic, {Value(0), std::move(operand)}, sign, 0, {}}, position);
    }
    Part part = primary();
    while (std::holds_alternative<Operand>(part) && (isSymbol("[") || isSymbol(".")))
      part = member(std::move(std::get<Operand>(part)));
    return part;
  }

  Part primary() {
    if (++operands_ > kMaximumPredicateOperands)
      throw QueryMistake{token_.position, fmt::format("more than {} operands", kMaximumPredicateOperands)};
    if (accept("(")) {
      Part inner = disjunction();
      expect(")", "\")\"");
      return inner;
    }
    if (token_.kind != Token::Kind::word || constantKeyword() != nullptr) return constant();
    if (keyword(token_) != Keyword::none) unexpected("a key or a constant");
    Token word = advance();
    if (isSymbol("(") && word.path.size() == 1 && !word.escaped) return call(word);
    // "SELF.key" says the same as "key".
    bool startsWithSelf = !word.escaped && lowercased(word.path.front()) == "self";
    if (startsWithSelf) word.path.erase(word.path.begin());
    return below(KeyPath{}, word);
  }

  Operand call(const Token& name) {
    const Function* function = functionNamed(lowercased(name.path.front()));
    if (!function) throw QueryMistake{name.position, fmt::format("there is no function {}", name.shown())};
    Formula formula{function->kind, {}, {}, 0, {}};
    expect("(", "\"(\"");
    do {
      std::size_t position = token_.position;
      formula.arguments.push_back(operandOf(disjunction(), position));
    } while (function->takesSeveral && accept(","));
    expect(")", "\")\"");
    return made(std::move(formula), name.position);
  }

  Operand member(Operand base) {
    std::size_t position = token_.position;
    if (accept(".")) {
      if (token_.kind != Token::Kind::word) unexpected("a key");
      return below(std::move(base), advance());
    }
    expect("[", "\"[\"");
    Formula formula{Formula::Kind::element, {}, {}, 0, {}};
    formula.arguments.push_back(std::move(base));
    std::string word = token_.kind == Token::Kind::word ? lowercased(token_.path.front()) : "";
    const std::int64_t* number = token_.number.ifInteger();
    if (word == "size")
      formula.kind = Formula::Kind::count;
    else if (word == "last")
      formula.index = Formula::kLast;
    else if (number)
      formula.index = static_cast<std::size_t>(*number);
    else if (word != "first")
      unexpected("a number, FIRST, LAST or SIZE");
    advance();
    expect("]", "\"]\"");
    return made(std::move(formula), position);
  }

  // What the word's path leads to: keys, and a collection operator that asks for the rest of the path.
  Operand below(Operand base, const Token& word) {
    std::vector<std::string> path;
    std::optional<Formula::Kind> kind;
    for (const std::string& component : word.path) {
      if (!component.starts_with('@')) {
        path.push_back(component);
        continue;
      }
      if (kind) throw QueryMistake{word.position, "one collection operator is expected"};
      kind = collectionOperator(component);
      if (!kind) throw QueryMistake{word.position, fmt::format("{} is not supported", component)};
    }
    if (KeyPath* key = std::get_if<KeyPath>(&base))
      key->components.insert(key->components.end(), path.begin(), path.end());
    else if (!path.empty())
      base = made({Formula::Kind::member, {std::move(base)}, {}, 0, std::move(path)}, word.position);
    return kind ? made({*kind, {std::move(base)}, {}, 0, {}}, word.position) : base;
  }

  // The value of a constant that is written as a word, else null.
  const Value* constantKeyword() const {
    static const Value kYes(true), kNo(false), kNil;
    switch (keyword(token_)) {
      case Keyword::yes:
        return &kYes;
      case Keyword::no:
        return &kNo;
      case Keyword::nil:
        return &kNil;
      default:
        return nullptr;
    }
  }

  Operand constant() {
    if (token_.kind == Token::Kind::string) return Value(advance().text);
    if (token_.kind == Token::Kind::number) return advance().number;
    if (const Value* value = constantKeyword()) {
      advance();
      return *value;
    }
    if (!isSymbol("{")) unexpected("a key or a constant");
    return list();
  }

  Operand list() {
    Level level(*this);
    Formula formula{Formula::Kind::list, {}, {}, 0, {}};
    std::size_t position = advance().position;
    if (accept("}")) return Value(Array());
    do {
      std::size_t at = token_.position;
      formula.arguments.push_back(operandOf(terms(), at));
    } while (accept(","));
    expect("}", "\",\" or \"}\"");
    return made(std::move(formula), position);
  }

  void complete(Comparison& comparison, std::size_t rightPosition) {
    bool constantLeft = std::holds_alternative<Value>(comparison.left);
    bool keyRight = std::holds_alternative<KeyPath>(comparison.right);
    std::optional<Operator> turned = mirrored(comparison.op);
    if (constantLeft && keyRight && turned && comparison.modifier == Modifier::direct) {
      std::swap(comparison.left, comparison.right);
      comparison.op = *turned;
    }
    const Value* right = std::get_if<Value>(&comparison.right);
    const auto* made = std::get_if<std::shared_ptr<const Formula>>(&comparison.right);
    const Formula* list = made && (*made)->kind == Formula::Kind::list ? made->get() : nullptr;
    bool isPair =
        right ? right->ifArray() && right->ifArray()->size() == 2 : !list || list->arguments.size() == 2;
    if (comparison.op == Operator::between && !isPair)
      throw QueryMistake{rightPosition, "BETWEEN takes a list of two"};
    if (comparison.op == Operator::in && right && !right->ifArray() && !right->ifString())
      throw QueryMistake{rightPosition, "IN takes a list, a string or a key"};
    if (std::optional<TextPattern::Kind> kind = patternKind(comparison.op); kind && right) {
      if (right->ifString())
        comparison.pattern = pattern(*kind, *right->ifString(), comparison.options, rightPosition);
      else if (comparison.op != Operator::contains)
        throw QueryMistake{rightPosition, "a string is expected"};
    }
    Value* constants = std::get_if<Value>(&comparison.right);
    if (comparison.options.any()) {
      if (Value* value = std::get_if<Value>(&comparison.left)) normalize(*value, comparison.options);
      if (constants) normalize(*constants, comparison.options);
    }
    if (comparison.op == Operator::in && constants && constants->ifArray()) sortList(*constants->ifArray());
  }

  // The same term is often looked for in several keys: its pattern is made once.
  std::shared_ptr<const TextPattern> pattern(TextPattern::Kind kind, const std::string& text,
                                             TextOptions options, std::size_t position) {
    PatternKey key{kind, options.caseInsensitive, options.diacriticInsensitive, text};
    auto known = patterns_.find(key);
    if (known != patterns_.end()) return known->second;
    Result<std::shared_ptr<const TextPattern>> made = TextPattern::make(kind, text, options);
    if (!made) throw QueryMistake{position, made.error().message};
    if ((*made)->wasCompiled() && ++expressions_ > kMaximumPredicateExpressions)
      throw QueryMistake{position,
                         fmt::format("more than {} regular expressions", kMaximumPredicateExpressions)};
    patterns_.emplace(std::move(key), *made);
    return *made;
  }

  using PatternKey = std::tuple<TextPattern::Kind, bool, bool, std::string>;

  TimeLimit limit_;
  PredicateLexer lexer_;
  Token token_;
  int depth_ = 0;
  std::size_t operands_ = 0;
  std::map<PatternKey, std::shared_ptr<const TextPattern>> patterns_;
  std::size_t expressions_ = 0;
};

}  // namespace

static tl::unexpected<Error> queryFailure(std::size_t position, const std::string& message) {
  return failure(kServerErrorDomain, static_cast<std::int64_t>(StatusCode::queryInvalid),
                 fmt::format("query, byte {}: {}", position, shortened(message, 200)));
}

static std::size_t validPrefix(std::string_view text) {
  auto length = static_cast<std::int32_t>(text.size());
  std::int32_t at = 0;
  for (std::int32_t next = 0; next < length; at = next) {
    UChar32 c = 0;
    U8_NEXT(text.data(), next, length, c);
    if (c < 0) break;
  }
  return static_cast<std::size_t>(at);
}

Result<Predicate> parsePredicate(std::string_view text, TimeLimit limit) {
  if (text.size() > kMaximumPredicateSize)
    return queryFailure(kMaximumPredicateSize, fmt::format("longer than {} bytes", kMaximumPredicateSize));
  std::size_t valid = validPrefix(text);
  if (valid < text.size()) return queryFailure(valid, "not valid UTF-8");
  try {
    return Parser(text, limit).parse();
  } catch (const QueryMistake& mistake) {
    return queryFailure(mistake.position, mistake.message);
  }
}

}  // namespace vornex::server
