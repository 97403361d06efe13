#include "server/index/SegmentSearch.h"

#include <map>

#include "server/index/FieldSearch.h"

namespace vornex::server {

namespace {

// How much a part of a predicate costs, so that what is cheap narrows what is dear.
enum class Cost { lookup, vocabulary, texts, documents };

std::optional<std::size_t> fieldNamed(const Operand& operand) {
  const KeyPath* path = std::get_if<KeyPath>(&operand);
  if (!path || path->components.size() != 1) return std::nullopt;
  return fieldWithKey(path->components.front());
}

bool asksIdentifier(const Operand& operand) {
  const KeyPath* path = std::get_if<KeyPath>(&operand);
  return path && path->components.size() == 1 && path->components.front() == "_id";
}

bool isConstant(const Operand& operand) {
  return std::holds_alternative<Value>(operand);
}

Cost cost(const Comparison& comparison) {
  if (!isConstant(comparison.right)) return Cost::documents;
  if (asksIdentifier(comparison.left)) return Cost::lookup;
  std::optional<std::size_t> field = fieldNamed(comparison.left);
  if (!field) return Cost::documents;
  if (!comparison.pattern) return Cost::lookup;
  bool text = indexedFields()[*field].kind == IndexedField::Kind::text;
  return text && needsTexts(*comparison.pattern) ? Cost::texts : Cost::vocabulary;
}

// Puts operands in the order of their costs, and gives the greatest.
Cost arrange(Predicate& predicate) {
  if (const Comparison* comparison = std::get_if<Comparison>(&predicate.node)) return cost(*comparison);
  Compound* compound = std::get_if<Compound>(&predicate.node);
  if (!compound) return Cost::lookup;
  Cost most = Cost::lookup;
  std::map<Cost, std::vector<Predicate>> ordered;
  for (Predicate& operand : compound->operands) {
    Cost own = arrange(operand);
    most = std::max(most, own);
    ordered[own].push_back(std::move(operand));
  }
  compound->operands.clear();
  for (auto& [own, operands] : ordered)
    std::move(operands.begin(), operands.end(), std::back_inserter(compound->operands));
  return most;
}

class SegmentSearch {
 public:
  SegmentSearch(const Segment& segment, TimeLimit& limit) : segment_(segment), limit_(limit) {}

  SegmentAnswer answer(const Predicate& predicate, const DocumentSet& scope) {
    limit_.spend(segment_.size() / 64);
    if (const bool* constant = std::get_if<bool>(&predicate.node))
      return {*constant ? scope : none(), none()};
    if (const Comparison* comparison = std::get_if<Comparison>(&predicate.node))
      return answer(*comparison, scope);
    const Compound& compound = std::get<Compound>(predicate.node);
    switch (compound.kind) {
      case Compound::Kind::conjunction:
        return conjunction(compound.operands, scope);
      case Compound::Kind::disjunction:
        return disjunction(compound.operands, scope);
      case Compound::Kind::negation:
        break;
    }
    SegmentAnswer inner = answer(compound.operands.front(), scope);
    inner.yes |= inner.open;
    inner.yes.complement();
    return inner;
  }

 private:
  DocumentSet none() const { return DocumentSet(segment_.size()); }

  SegmentAnswer conjunction(const std::vector<Predicate>& operands, const DocumentSet& given) {
    SegmentAnswer all{given, none()};
    for (const Predicate& operand : operands) {
      if (all.open.empty()) {
        narrow(all, answer(operand, all.yes));
      } else {
        DocumentSet scope = all.yes;
        scope |= all.open;
        narrow(all, answer(operand, scope));
      }
      if (all.yes.empty() && all.open.empty()) break;
    }
    return all;
  }

  // What two answers say together.
  static void narrow(SegmentAnswer& all, SegmentAnswer part) {
    if (all.open.empty() && part.open.empty()) {
      all.yes &= part.yes;
      return;
    }
    all.open |= all.yes;
    part.open |= part.yes;
    all.open &= part.open;
    all.yes &= part.yes;
    all.open -= all.yes;
  }

  SegmentAnswer disjunction(const std::vector<Predicate>& operands, const DocumentSet& scope) {
    SegmentAnswer any{none(), none()};
    for (const Predicate& operand : operands) {
      limit_.spend(0);
      if (addLookup(operand, any.yes)) continue;
      SegmentAnswer part = answer(operand, scope);
      any.yes |= std::move(part.yes);
      any.open |= std::move(part.open);
    }
    any.open -= any.yes;
    return any;
  }

  bool addLookup(const Predicate& predicate, DocumentSet& found) {
    const Comparison* comparison = std::get_if<Comparison>(&predicate.node);
    if (!comparison || !isConstant(comparison->right)) return false;
    if (asksIdentifier(comparison->left)) return addIdentifier(segment_, *comparison, found);
    std::optional<std::size_t> field = fieldNamed(comparison->left);
    return field && indexedFields()[*field].kind == IndexedField::Kind::exact &&
           addExactText(segment_.exact(*field), *comparison, found);
  }

  SegmentAnswer answer(const Comparison& comparison, const DocumentSet& scope) {
    limit_.spend(segment_.size());
    if (isConstant(comparison.right)) {
      if (asksIdentifier(comparison.left)) return searchIdentifiers(segment_, comparison, limit_);
      if (std::optional<std::size_t> field = fieldNamed(comparison.left))
        return search(*field, comparison, scope);
    }
    return {none(), scope};
  }

  SegmentAnswer search(std::size_t field, const Comparison& comparison, const DocumentSet& scope) {
    switch (indexedFields()[field].kind) {
      case IndexedField::Kind::text:
        return searchText(segment_.text(field), comparison, scope, limit_);
      case IndexedField::Kind::exact:
        return searchExact(segment_, field, comparison, scope, limit_);
      case IndexedField::Kind::path:
        return searchDigests(segment_.exact(field), true, comparison, scope);
      case IndexedField::Kind::digest:
        return searchDigests(segment_.exact(field), false, comparison, scope);
    }
    return {none(), scope};
  }

  const Segment& segment_;
  TimeLimit& limit_;
};

}  // namespace

void arrangeByCost(Predicate& predicate) {
  arrange(predicate);
}

SegmentAnswer searchSegment(const Segment& segment, const DocumentSet& documents, const Predicate& predicate,
                            TimeLimit& limit) {
  SegmentAnswer answer = SegmentSearch(segment, limit).answer(predicate, documents);
  answer.yes &= documents;
  answer.open &= documents;
  return answer;
}

}  // namespace vornex::server
