#include "server/query/PredicateParser.h"

#include <fmt/format.h>
#include <unicode/utf8.h>

#include "core/StatusCode.h"
#include "foundation/Text.h"
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

std::optional<TextPattern::Kind> patternKind(Operator op) {
  switch (op) {
    case Operator::contains:
      return TextPattern::Kind::contains;
    case Operator::beginsWith:
      return TextPattern::Kind::beginsWith;
    case Operator::endsWith:
      return TextPattern::Kind::endsWith;
    case Operator::like:
      return TextPattern::Kind::like;
    case Operator::matches:
      return TextPattern::Kind::matches;
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

void normalize(Value& constant, TextOptions options) {
  if (const std::string* text = constant.ifString()) constant = normalizedText(*text, options);
  if (Array* array = constant.ifArray())
    for (Value& element : *array) normalize(element, options);
}

class Parser {
 public:
  explicit Parser(std::string_view text) : lexer_(text), token_(lexer_.next()) {}

  Predicate parse() {
    Predicate predicate = disjunction();
    if (token_.kind != Token::Kind::end) unexpected("AND, OR or the end");
    return predicate;
  }

 private:
  // Counts how deep the parser has called itself.
  class Level {
   public:
    explicit Level(Parser& parser) : depth_(parser.depth_) {
      if (++depth_ > kMaximumPredicateDepth)
        throw QueryMistake{parser.token_.position,
                           fmt::format("nested deeper than {} levels", kMaximumPredicateDepth)};
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

  Token advance() { return std::exchange(token_, lexer_.next()); }

  bool isSymbol(const char* symbol) const {
    return token_.kind == Token::Kind::symbol && token_.text == symbol;
  }

  bool accept(const char* symbol) {
    if (!isSymbol(symbol)) return false;
    advance();
    return true;
  }

  bool accept(const char* symbol, Keyword word) {
    if (!isSymbol(symbol) && keyword(token_) != word) return false;
    advance();
    return true;
  }

  void expect(const char* symbol, const char* expected) {
    if (!accept(symbol)) unexpected(expected);
  }

  static Predicate joined(Compound::Kind kind, std::vector<Predicate> operands) {
    if (operands.size() == 1) return std::move(operands.front());
    return {Compound{kind, std::move(operands)}};
  }

  Predicate disjunction() {
    std::vector<Predicate> operands;
    do operands.push_back(conjunction());
    while (accept("||", Keyword::disjunction));
    return joined(Compound::Kind::disjunction, std::move(operands));
  }

  Predicate conjunction() {
    std::vector<Predicate> operands;
    do operands.push_back(negation());
    while (accept("&&", Keyword::conjunction));
    return joined(Compound::Kind::conjunction, std::move(operands));
  }

  static Predicate negated(Predicate predicate) {
    Compound compound{Compound::Kind::negation, {}};
    compound.operands.push_back(std::move(predicate));
    return {std::move(compound)};
  }

  Predicate negation() {
    Level level(*this);
    if (accept("!", Keyword::negation)) return negated(negation());
    if (accept("(")) {
      Predicate inner = disjunction();
      expect(")", "\")\"");
      return inner;
    }
    switch (keyword(token_)) {
      case Keyword::always:
        advance();
        return {true};
      case Keyword::never:
        advance();
        return {false};
      case Keyword::any:
        advance();
        return {comparison(Modifier::any)};
      case Keyword::all:
        advance();
        return {comparison(Modifier::all)};
      case Keyword::noneOf:
        advance();
        return negated({comparison(Modifier::any)});
      default:
        return {comparison(Modifier::direct)};
    }
  }

  Comparison comparison(Modifier modifier) {
    Comparison result;
    result.modifier = modifier;
    result.left = operand();
    std::optional<Operator> op = operatorOf(token_);
    if (isSymbol("(")) throw QueryMistake{token_.position, "functions are not supported"};
    if (isSymbol("[")) throw QueryMistake{token_.position, "indexes are not supported"};
    if (!op) unexpected("an operator");
    result.op = *op;
    advance();
    result.options = options();
    std::size_t rightPosition = token_.position;
    result.right = operand();
    complete(result, rightPosition);
    return result;
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
      else
        unexpected("c, d or cd");
    }
    advance();
    expect("]", "\"]\"");
    return options;
  }

  Operand operand() {
    if (token_.kind == Token::Kind::word && constantKeyword() == nullptr) {
      if (keyword(token_) != Keyword::none) unexpected("a key or a constant");
      return key();
    }
    return constant();
  }

  // "SELF.key" says the same as "key".
  KeyPath key() {
    bool startsWithSelf = !token_.escaped && lowercased(token_.path.front()) == "self";
    if (startsWithSelf && token_.path.size() == 1)
      throw QueryMistake{token_.position, "SELF is not supported without a key"};
    KeyPath key{advance().path};
    if (startsWithSelf) key.components.erase(key.components.begin());
    return key;
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

  Value constant() {
    Level level(*this);
    if (token_.kind == Token::Kind::string) return advance().text;
    if (token_.kind == Token::Kind::number) return advance().number;
    if (const Value* value = constantKeyword()) {
      advance();
      return *value;
    }
    if (!accept("{")) unexpected("a key or a constant");
    Array elements;
    if (accept("}")) return elements;
    do elements.push_back(constant());
    while (accept(","));
    expect("}", "\",\" or \"}\"");
    return elements;
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
    if (comparison.op == Operator::between && (!right || !right->ifArray() || right->ifArray()->size() != 2))
      throw QueryMistake{rightPosition, "BETWEEN takes a list of two constants"};
    if (comparison.op == Operator::in && right && !right->ifArray() && !right->ifString())
      throw QueryMistake{rightPosition, "IN takes a list, a string or a key"};
    if (std::optional<TextPattern::Kind> kind = patternKind(comparison.op)) {
      if (right && right->ifString())
        comparison.pattern = pattern(*kind, *right->ifString(), comparison.options, rightPosition);
      else if (comparison.op != Operator::contains || !right)
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

  PredicateLexer lexer_;
  Token token_;
  int depth_ = 0;
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

Result<Predicate> parsePredicate(std::string_view text) {
  if (text.size() > kMaximumPredicateSize)
    return queryFailure(kMaximumPredicateSize, fmt::format("longer than {} bytes", kMaximumPredicateSize));
  std::size_t valid = validPrefix(text);
  if (valid < text.size()) return queryFailure(valid, "not valid UTF-8");
  try {
    return Parser(text).parse();
  } catch (const QueryMistake& mistake) {
    return queryFailure(mistake.position, mistake.message);
  }
}

}  // namespace vornex::server
