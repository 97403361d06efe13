#include "server/query/Predicate.h"

#include <algorithm>

namespace vornex::server {

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

static void collectKeys(const Operand& operand, std::vector<std::string>& keys) {
  if (const KeyPath* key = std::get_if<KeyPath>(&operand)) {
    if (!key->components.empty()) keys.push_back(key->components.front());
  } else if (const auto* formula = std::get_if<std::shared_ptr<const Formula>>(&operand)) {
    for (const Operand& argument : (*formula)->arguments) collectKeys(argument, keys);
  }
}

static void collectKeys(const Predicate& predicate, std::vector<std::string>& keys) {
  if (const Comparison* comparison = std::get_if<Comparison>(&predicate.node)) {
    collectKeys(comparison->left, keys);
    collectKeys(comparison->right, keys);
  } else if (const Compound* compound = std::get_if<Compound>(&predicate.node)) {
    for (const Predicate& operand : compound->operands) collectKeys(operand, keys);
  }
}

std::vector<std::string> topLevelKeys(const Predicate& predicate) {
  std::vector<std::string> keys;
  collectKeys(predicate, keys);
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

}  // namespace vornex::server
