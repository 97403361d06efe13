#include "server/index/SegmentSearch.h"

#include <map>

#include "server/index/FieldSearch.h"

namespace vornex::server {

namespace {

// How much a part of a predicate costs, so that what is cheap narrows what is dear.
enum class Cost { lookup, vocabulary, texts, documents };

std::optional<std::size_t> fieldNamed(const Operand& operand) {
  static const std::map<std::string, std::size_t, std::less<>> kFields = [] {
    std::map<std::string, std::size_t, std::less<>> fields;
    for (std::size_t i = 0; i < indexedFields().size(); ++i) fields[indexedFields()[i].key] = i;
    return fields;
  }();
  const KeyPath* path = std::get_if<KeyPath>(&operand);
  if (!path || path->components.size() != 1) return std::nullopt;
  auto found = kFields.find(path->components.front());
  return found == kFields.end() ? std::nullopt : std::optional(found->second);
}

bool asksIdentifier(const Operand& operand) {
  const KeyPath* path = std::get_if<KeyPath>(&operand);
  return path && path->components.size() == 1 && path->components.front() == "_id";
}

bool isConstant(const Operand& operand) {
  return std::holds_alternative<Value>(operand);
}

Cost cost(const Predicate& predicate) {
  if (std::holds_alternative<bool>(predicate.node)) return Cost::lookup;
  if (const Compound* compound = std::get_if<Compound>(&predicate.node)) {
    Cost most = Cost::lookup;
    for (const Predicate& operand : compound->operands) most = std::max(most, cost(operand));
    return most;
  }
  const Comparison& comparison = std::get<Comparison>(predicate.node);
  if (!isConstant(comparison.right)) return Cost::documents;
  if (asksIdentifier(comparison.left)) return Cost::lookup;
  std::optional<std::size_t> field = fieldNamed(comparison.left);
  if (!field) return Cost::documents;
  if (!comparison.pattern) return Cost::lookup;
  bool text = indexedFields()[*field].kind == IndexedField::Kind::text;
  return text && needsTexts(*comparison.pattern) ? Cost::texts : Cost::vocabulary;
}

class SegmentSearch {
 public:
  SegmentSearch(const Segment& segment, TimeLimit& limit) : segment_(segment), limit_(limit) {}

  SegmentAnswer answer(const Predicate& predicate, const DocumentSet& scope) {
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
    std::vector<const Predicate*> order;
    for (const Predicate& operand : operands) order.push_back(&operand);
    std::stable_sort(order.begin(), order.end(),
                     [](const Predicate* a, const Predicate* b) { return cost(*a) < cost(*b); });
    SegmentAnswer all{given, none()};
    for (const Predicate* operand : order) {
      if (all.open.empty()) {
        narrow(all, answer(*operand, all.yes));
      } else {
        DocumentSet scope = all.yes;
        scope |= all.open;
        narrow(all, answer(*operand, scope));
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

SegmentAnswer searchSegment(const Segment& segment, const DocumentSet& documents, const Predicate& predicate,
                            TimeLimit& limit) {
  SegmentAnswer answer = SegmentSearch(segment, limit).answer(predicate, documents);
  answer.yes &= documents;
  answer.open &= documents;
  return answer;
}

}  // namespace vornex::server
