#include "server/query/PredicateSql.h"

#include <fmt/format.h>

#include "foundation/Text.h"

namespace vornex::server {

namespace {

// The database bounds the size and depth of an expression; what is larger is asked of the documents.
constexpr std::size_t kMaximumTerms = 500;
constexpr int kMaximumDepth = 12;
constexpr std::size_t kMaximumPhrases = 64;
constexpr int kMaximumNarrowingDepth = 6;
// What a trigram index can look up, in characters, and what is worth looking up, in bytes.
constexpr std::size_t kMinimumPhrase = 3;
constexpr std::size_t kMaximumPhrase = 64;

const std::string* singleKey(const Operand& operand) {
  const KeyPath* path = std::get_if<KeyPath>(&operand);
  return path && path->components.size() == 1 ? &path->components.front() : nullptr;
}

bool isNumeric(const Value& value) {
  return value.isNumber() || value.ifBool();
}
bool isScalar(const Value& value) {
  return isNumeric(value) || value.ifString();
}

Value bound(const Value& constant) {
  if (const bool* boolean = constant.ifBool()) return std::int64_t{*boolean};
  if (const std::uint64_t* integer = constant.ifUnsigned()) return static_cast<double>(*integer);
  return constant;
}

std::string placeholders(std::size_t count) {
  std::string text = "?";
  for (std::size_t i = 1; i < count; ++i) text += ",?";
  return text;
}

struct Fragment {
  std::string sql;
  std::vector<Value> bindings;
  std::size_t terms = 1;
};

class ConditionWriter {
 public:
  explicit ConditionWriter(const SqlVocabulary& vocabulary) : vocabulary_(vocabulary) {}

  // Absent when the columns cannot answer the predicate exactly.
  std::optional<Fragment> write(const Predicate& predicate, int depth = 0) const {
    if (depth > kMaximumDepth) return std::nullopt;
    if (const bool* constant = std::get_if<bool>(&predicate.node)) return Fragment{*constant ? "1" : "0", {}};
    if (const Comparison* comparison = std::get_if<Comparison>(&predicate.node)) return write(*comparison);
    const Compound& compound = std::get<Compound>(predicate.node);
    switch (compound.kind) {
      case Compound::Kind::negation:
        return writeNegation(compound.operands.front(), depth);
      case Compound::Kind::disjunction:
        return writeDisjunction(compound.operands, depth);
      case Compound::Kind::conjunction:
        return join(compound.operands, " AND ", {}, depth);
    }
    return std::nullopt;
  }

 private:
  struct Equality {
    std::string column;
    Value value;
  };

  const std::string* column(const Comparison& comparison) const {
    const std::string* key = singleKey(comparison.left);
    if (!key || comparison.modifier != Modifier::direct) return nullptr;
    auto found = vocabulary_.columns.find(*key);
    return found == vocabulary_.columns.end() ? nullptr : &found->second;
  }

  // A comparison that asks for one value of a column.
  std::optional<Equality> equality(const Comparison& comparison) const {
    const std::string* name = column(comparison);
    const Value* constant = std::get_if<Value>(&comparison.right);
    if (!name || !constant) return std::nullopt;
    if (comparison.op == Operator::matches && comparison.pattern && comparison.pattern->onlyText())
      return Equality{*name, *comparison.pattern->onlyText()};
    bool exact = isNumeric(*constant) || (constant->ifString() && !comparison.options.any());
    if (comparison.op != Operator::equal || !exact) return std::nullopt;
    return Equality{*name, bound(*constant)};
  }

  std::optional<Fragment> write(const Comparison& comparison) const {
    if (std::optional<Equality> found = equality(comparison))
      return Fragment{found->column + " = ?", {found->value}};
    const std::string* name = column(comparison);
    const Value* constant = std::get_if<Value>(&comparison.right);
    if (!name || !constant || comparison.options.any()) return std::nullopt;
    switch (comparison.op) {
      case Operator::equal:
        return constant->isNull() ? std::optional(Fragment{*name + " IS NULL", {}}) : std::nullopt;
      case Operator::notEqual:
        if (constant->isNull()) return Fragment{*name + " IS NOT NULL", {}};
        return isScalar(*constant) ? std::optional(Fragment{*name + " <> ?", {bound(*constant)}})
                                   : std::nullopt;
      case Operator::less:
        return writeOrder(*name, "<", *constant);
      case Operator::lessOrEqual:
        return writeOrder(*name, "<=", *constant);
      case Operator::greater:
        return writeOrder(*name, ">", *constant);
      case Operator::greaterOrEqual:
        return writeOrder(*name, ">=", *constant);
      case Operator::between:
        return writeBetween(*name, *constant->ifArray());
      case Operator::in:
        return writeIn(*name, *constant);
      default:
        return std::nullopt;
    }
  }

  // The database orders NULL, numbers, strings, blobs; only values of the constant's sort are to be found.
  static std::optional<Fragment> writeOrder(const std::string& name, const char* op, const Value& constant) {
    if (!isScalar(constant)) return std::nullopt;
    bool numeric = isNumeric(constant);
    bool upwards = op[0] == '>';
    std::string limit;
    if (upwards) limit = fmt::format(" AND {} < {}", name, numeric ? "''" : "x''");
    if (!upwards && !numeric) limit = fmt::format(" AND {} >= ''", name);
    return Fragment{fmt::format("({} {} ?{})", name, op, limit), {bound(constant)}};
  }

  static std::optional<Fragment> writeBetween(const std::string& name, const Array& bounds) {
    bool sameSort =
        (isNumeric(bounds[0]) && isNumeric(bounds[1])) || (bounds[0].ifString() && bounds[1].ifString());
    if (!sameSort) return std::nullopt;
    return Fragment{fmt::format("({0} >= ? AND {0} <= ?)", name), {bound(bounds[0]), bound(bounds[1])}};
  }

  static std::optional<Fragment> writeIn(const std::string& name, const Value& constant) {
    const Array* values = constant.ifArray();
    if (!values || !std::all_of(values->begin(), values->end(), isScalar)) return std::nullopt;
    if (values->empty()) return Fragment{"0", {}};
    Fragment fragment{fmt::format("{} IN ({})", name, placeholders(values->size())), {}};
    for (const Value& value : *values) fragment.bindings.push_back(bound(value));
    return fragment;
  }

  // What is unknown to SQL does not hold, so its negation does.
  std::optional<Fragment> writeNegation(const Predicate& operand, int depth) const {
    std::optional<Fragment> inner = write(operand, depth + 1);
    if (inner) inner->sql = fmt::format("(({}) IS NOT TRUE)", inner->sql);
    return inner;
  }

  // Many values for one column, as in a list of identifiers, become one IN.
  std::optional<Fragment> writeDisjunction(const std::vector<Predicate>& operands, int depth) const {
    std::map<std::string, std::vector<Value>> byColumn;
    std::vector<Predicate> others;
    for (const Predicate& operand : operands) {
      const Comparison* comparison = std::get_if<Comparison>(&operand.node);
      std::optional<Equality> found = comparison ? equality(*comparison) : std::nullopt;
      if (found)
        byColumn[found->column].push_back(std::move(found->value));
      else
        others.push_back(operand);
    }
    std::vector<Fragment> parts;
    for (auto& [name, values] : byColumn) {
      std::string sql = fmt::format("{} IN ({})", name, placeholders(values.size()));
      parts.push_back(Fragment{std::move(sql), std::move(values)});
    }
    return join(others, " OR ", std::move(parts), depth);
  }

  std::optional<Fragment> join(const std::vector<Predicate>& operands, const char* word,
                               std::vector<Fragment> parts, int depth) const {
    for (const Predicate& operand : operands) {
      std::optional<Fragment> part = write(operand, depth + 1);
      if (!part) return std::nullopt;
      parts.push_back(std::move(*part));
    }
    Fragment all{"", {}, 0};
    for (Fragment& part : parts) {
      all.sql += (all.sql.empty() ? "(" : word) + part.sql;
      all.bindings.insert(all.bindings.end(), part.bindings.begin(), part.bindings.end());
      all.terms += part.terms;
    }
    all.sql += ")";
    if (all.terms > kMaximumTerms) return std::nullopt;
    return all;
  }

  const SqlVocabulary& vocabulary_;
};

class NarrowingWriter {
 public:
  explicit NarrowingWriter(const SqlVocabulary& vocabulary) : vocabulary_(vocabulary) {}

  std::string write(const Predicate& predicate) {
    std::string expression = write(predicate, 0);
    return phrases_ <= kMaximumPhrases ? expression : "";
  }

 private:
  struct Phrases {
    std::string key;
    /// One of them is in the text.
    std::vector<std::string> alternatives;
  };

  std::string write(const Predicate& predicate, int depth) {
    if (depth > kMaximumNarrowingDepth || phrases_ > kMaximumPhrases) return "";
    if (std::optional<Phrases> found = phrases(predicate)) return write({{*found}});
    const Compound* compound = std::get_if<Compound>(&predicate.node);
    if (!compound || compound->kind == Compound::Kind::negation) return "";
    return compound->kind == Compound::Kind::conjunction ? writeAll(compound->operands, depth)
                                                         : writeAny(compound->operands, depth);
  }

  std::string writeAll(const std::vector<Predicate>& operands, int depth) {
    std::string all;
    for (const Predicate& operand : operands) {
      std::string part = write(operand, depth + 1);
      if (!part.empty()) all += (all.empty() ? "(" : " AND ") + part;
    }
    return all.empty() ? "" : all + ")";
  }

  std::string writeAny(const std::vector<Predicate>& operands, int depth) {
    std::vector<Phrases> direct;
    std::string any;
    for (const Predicate& operand : operands) {
      if (std::optional<Phrases> found = phrases(operand)) {
        direct.push_back(std::move(*found));
        continue;
      }
      std::string part = write(operand, depth + 1);
      if (part.empty()) return "";
      any += (any.empty() ? "" : " OR ") + part;
    }
    if (!direct.empty()) any += (any.empty() ? "" : " OR ") + write(direct);
    return any.empty() ? "" : "(" + any + ")";
  }

  // A phrase that may stand in several keys is looked up once.
  std::string write(const std::vector<Phrases>& all) {
    std::map<std::string, std::set<std::string>> keysByPhrase;
    for (const Phrases& one : all)
      for (const std::string& phrase : one.alternatives) keysByPhrase[phrase].insert(one.key);
    phrases_ += keysByPhrase.size();
    std::string text;
    for (const auto& [phrase, keys] : keysByPhrase)
      text += fmt::format("{}{{{}}} : {}", text.empty() ? "(" : " OR ", fmt::join(keys, " "), quoted(phrase));
    return text + ")";
  }

  static std::string quoted(const std::string& phrase) {
    std::string text = "\"";
    for (char c : phrase) text += c == '"' ? "\"\"" : std::string(1, c);
    return text + "\"";
  }

  std::optional<Phrases> phrases(const Predicate& predicate) const {
    const Comparison* comparison = std::get_if<Comparison>(&predicate.node);
    const std::string* key = comparison ? singleKey(comparison->left) : nullptr;
    const Value* constant = comparison ? std::get_if<Value>(&comparison->right) : nullptr;
    if (!key || !constant || comparison->modifier != Modifier::direct || !vocabulary_.textKeys.contains(*key))
      return std::nullopt;
    Phrases result{*key, {}};
    if (comparison->pattern) {
      result.alternatives = {longest(comparison->pattern->requiredPieces())};
    } else if (comparison->options.diacriticInsensitive) {
      return std::nullopt;
    } else if (comparison->op == Operator::equal && constant->ifString()) {
      result.alternatives = {usable(foldedText(*constant->ifString()))};
    } else if (comparison->op == Operator::in && constant->ifArray()) {
      for (const Value& value : *constant->ifArray())
        result.alternatives.push_back(value.ifString() ? usable(foldedText(*value.ifString())) : "");
    }
    bool certain =
        !result.alternatives.empty() &&
        std::find(result.alternatives.begin(), result.alternatives.end(), "") == result.alternatives.end();
    return certain ? std::optional(std::move(result)) : std::nullopt;
  }

  static std::string longest(const std::vector<std::string>& pieces) {
    std::string best;
    for (const std::string& piece : pieces) {
      std::string candidate = usable(piece);
      if (candidate.size() > best.size()) best = std::move(candidate);
    }
    return best;
  }

  // The piece as a phrase for the index; empty when it is too short or the index would cut it.
  static std::string usable(std::string_view piece) {
    if (codePointCount(piece) < kMinimumPhrase || piece.find('\0') != std::string_view::npos) return "";
    if (piece.size() <= kMaximumPhrase) return std::string(piece);
    return std::string(piece.substr(0, lastCodePoint(piece.substr(0, kMaximumPhrase))));
  }

  const SqlVocabulary& vocabulary_;
  std::size_t phrases_ = 0;
};

// The operands of the conjunctions at the top, however they are nested.
void collectOperands(const Predicate& predicate, std::vector<Predicate>& operands) {
  const Compound* compound = std::get_if<Compound>(&predicate.node);
  if (!compound || compound->kind != Compound::Kind::conjunction) {
    operands.push_back(predicate);
    return;
  }
  for (const Predicate& operand : compound->operands) collectOperands(operand, operands);
}

}  // namespace

SqlPredicate compilePredicate(const Predicate& predicate, const SqlVocabulary& vocabulary) {
  SqlPredicate result;
  std::vector<Predicate> operands;
  collectOperands(predicate, operands);
  Compound rest{Compound::Kind::conjunction, {}};
  std::size_t terms = 0;
  for (Predicate& operand : operands) {
    std::optional<Fragment> fragment = ConditionWriter(vocabulary).write(operand);
    if (!fragment || terms + fragment->terms > kMaximumTerms) {
      rest.operands.push_back(std::move(operand));
      continue;
    }
    terms += fragment->terms;
    result.condition += " AND " + fragment->sql;
    result.bindings.insert(result.bindings.end(), fragment->bindings.begin(), fragment->bindings.end());
  }
  if (rest.operands.empty()) return result;
  result.rest = Predicate{std::move(rest)};
  result.narrowing = NarrowingWriter(vocabulary).write(predicate);
  return result;
}

}  // namespace vornex::server
