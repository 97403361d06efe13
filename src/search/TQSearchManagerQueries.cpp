#include <vornex/TQLiveFolder.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>

#include "core/DateNumber.h"

namespace vornex {

namespace {

// The asset type numbers are the positions.
constexpr std::array<std::string_view, 5> kTypeKeys = {"video", "audio", "image", "document", "extra"};

using Conditions = std::vector<PredicatePtr>;

template <typename MakeCondition>
Conditions conditionsForEach(const std::vector<std::string>& texts, MakeCondition make) {
  Conditions conditions;
  conditions.reserve(texts.size());
  for (const std::string& text : texts) conditions.push_back(make(text));
  return conditions;
}

PredicatePtr joined(const Conditions& conditions, std::int64_t searchOperatorType) {
  if (searchOperatorType == kSearchOR) return TQPredicate::orPredicateWithSubpredicates(conditions);
  if (searchOperatorType == kSearchAND) return TQPredicate::andPredicateWithSubpredicates(conditions);
  return nullptr;
}

PredicatePtr fieldContains(const std::string& field, const std::string& term) {
  return TQSearchManager::createPredicateWithKey(field, term, kPredicateContains);
}

PredicatePtr anyFieldContains(const std::vector<std::string>& fields, const std::string& term) {
  return TQPredicate::orPredicateWithSubpredicates(
      conditionsForEach(fields, [&](const std::string& field) { return fieldContains(field, term); }));
}

Conditions fieldContainsEach(const std::string& field, const TQSearchManager::Terms& terms) {
  return conditionsForEach(terms, [&](const std::string& term) { return fieldContains(field, term); });
}

void appendGroupIDs(const TQProject& group, std::vector<std::string>& identifiers) {
  if (group.id) identifiers.push_back(*group.id);
  for (const ProjectPtr& child : group.childGroups) appendGroupIDs(*child, identifiers);
}

void appendSubFolderIDs(const TQLiveFolder& folder, std::vector<std::string>& identifiers) {
  if (folder.ID) identifiers.push_back(*folder.ID);
  for (const LiveFolderPtr& child : folder.subFolders)
    if (child) appendSubFolderIDs(*child, identifiers);
}

}  // namespace

PredicatePtr TQSearchManager::createPredicateWithKey(const OptionalString& key, const Value& value,
                                                     std::int64_t operatorType) {
  if (!key || value.isNull()) return nullptr;
  return TQPredicate::comparisonPredicate(*key, value, operatorType);
}

PredicatePtr TQSearchManager::createPredicateWithKey(const OptionalString& key, const Value& value) const {
  return createPredicateWithKey(key, value, kPredicateEqual);
}

PredicatePtr TQSearchManager::createMathPrecidateWithKey(const OptionalString& key,
                                                         const Value& value) const {
  return createPredicateWithKey(key, value, kPredicateMatches);
}

PredicatePtr TQSearchManager::createQueryWithSearchString(const std::string& term) const {
  return anyFieldContains(searchFields(), term);
}

PredicatePtr TQSearchManager::createQueryWithSearchStrings(const Terms& terms,
                                                           std::int64_t searchOperatorType) const {
  std::vector<std::string> fields = searchFields();
  Conditions conditions =
      conditionsForEach(terms, [&](const std::string& term) { return anyFieldContains(fields, term); });
  return joined(conditions, searchOperatorType);
}

PredicatePtr TQSearchManager::createANDQueryWithSearchStrings(const Terms& terms,
                                                              const std::string& searchField) const {
  return joined(fieldContainsEach(searchField, terms), kSearchOR);
}

PredicatePtr TQSearchManager::createCommentQueryWithSearchStrings(const Terms& terms,
                                                                  std::int64_t searchOperatorType) const {
  return joined(fieldContainsEach("comment", terms), searchOperatorType);
}

PredicatePtr TQSearchManager::createNoteQueryWithSearchStrings(const Terms& terms,
                                                               std::int64_t searchOperatorType) const {
  return joined(fieldContainsEach("note", terms), searchOperatorType);
}

PredicatePtr TQSearchManager::createQueryWithGroup(const std::optional<std::vector<std::string>>& identifiers,
                                                   const std::string& metaKey) const {
  if (!identifiers) return nullptr;
  return TQPredicate::orPredicateWithSubpredicates(conditionsForEach(
      *identifiers, [&](const std::string& id) { return createPredicateWithKey(metaKey, id); }));
}

PredicatePtr TQSearchManager::createAssetTypeQuery() const {
  std::optional<std::map<std::string, bool>> types = searchAssetTypes();
  if (!types) return nullptr;
  Conditions conditions;
  for (const auto& [key, takesPart] : *types)
    if (takesPart) conditions.push_back(createPredicateWithKey("type", assetTypeFromSearchKey(key)));
  if (conditions.empty() || conditions.size() == kTypeKeys.size()) return nullptr;
  return TQPredicate::orPredicateWithSubpredicates(conditions);
}

PredicatePtr TQSearchManager::createQueryWithTrash(bool trash) const {
  return createPredicateWithKey("trash", trash);
}

PredicatePtr TQSearchManager::createQueryWithWantReview(bool /*wantReview*/) const {
  return createPredicateWithKey("wantreview", true);
}

PredicatePtr TQSearchManager::createQueryWithReviewerID(const OptionalString& reviewerID) const {
  return TQPredicate::andPredicateWithSubpredicates(
      {createPredicateWithKey("extensis.ApprovedBy", reviewerID), createQueryWithWantReview(true)});
}

PredicatePtr TQSearchManager::createQueryWithReviewStatus(std::int64_t status) const {
  return TQPredicate::andPredicateWithSubpredicates(
      {createPredicateWithKey("JobStatus", status), createQueryWithWantReview(true)});
}

PredicatePtr TQSearchManager::createQueryWithDays(std::int64_t days) const {
  // Far beyond the years that date numbers reach, and far from overflowing.
  constexpr std::int64_t kMostDays = 10'000'000;
  auto now = std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now());
  Date from = now - std::chrono::seconds(std::clamp(days, -kMostDays, kMostDays) * 86400);
  return createPredicateWithKey("importdate", dateNumber(from), kPredicateGreaterThanOrEqual);
}

PredicatePtr TQSearchManager::createQueryFromDate(Date fromDate, Date toDate) const {
  return TQPredicate::andPredicateWithSubpredicates(
      {createPredicateWithKey("importdate", dateNumber(fromDate), kPredicateGreaterThanOrEqual),
       createPredicateWithKey("importdate", dateNumber(toDate), kPredicateLessThanOrEqual)});
}

PredicatePtr TQSearchManager::createAssetsPredicate(const std::vector<std::string>& identifiers) const {
  return TQPredicate::orPredicateWithSubpredicates(conditionsForEach(
      identifiers, [&](const std::string& id) { return createMathPrecidateWithKey("_id", id); }));
}

PredicatePtr TQSearchManager::createFCPXEventPredicate(const std::vector<std::string>& identifiers) const {
  return TQPredicate::orPredicateWithSubpredicates(conditionsForEach(
      identifiers, [&](const std::string& id) { return createMathPrecidateWithKey("fcpx_event", id); }));
}

Dictionary TQSearchManager::sortParamWithSortField(const OptionalString& sortField, bool ascending) const {
  Dictionary sort;
  if (sortField && !sortField->empty()) sort.set("sortfield", *sortField);
  sort.set("ascending", ascending);
  return sort;
}

std::string TQSearchManager::searchKeyFromAssetType(std::int64_t assetType) {
  bool known = assetType >= 0 && assetType < static_cast<std::int64_t>(kTypeKeys.size());
  return std::string(kTypeKeys[known ? static_cast<std::size_t>(assetType) : 0]);
}

std::int64_t TQSearchManager::assetTypeFromSearchKey(const std::string& key) {
  auto found = std::find(kTypeKeys.begin(), kTypeKeys.end(), key);
  return found == kTypeKeys.end() ? -1 : found - kTypeKeys.begin();
}

std::vector<std::string> TQSearchManager::subFolderIDs(const LiveFolderPtr& liveFolder) const {
  std::vector<std::string> identifiers;
  if (liveFolder) appendSubFolderIDs(*liveFolder, identifiers);
  return identifiers;
}

std::vector<std::string> TQSearchManager::groupIDs(const ProjectPtr& group) const {
  std::vector<std::string> identifiers;
  if (group) appendGroupIDs(*group, identifiers);
  return identifiers;
}

}  // namespace vornex
