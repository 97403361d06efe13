#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>

namespace vornex {

// The kinds of category differ in their keys: a project's assets name it under "project", and the group that
// they lie in under "group", which is empty for those directly in the project.

PredicatePtr TQSearchManager::createRootCategoryQuery(const TQProject& root, bool recursive) const {
  PredicatePtr inside = createPredicateWithKey("project", root.id);
  if (recursive) return inside;
  return TQPredicate::andPredicateWithSubpredicates({inside, createPredicateWithKey("group", "")});
}

PredicatePtr TQSearchManager::createSubCategoryQuery(const ProjectPtr& group, bool recursive) const {
  std::vector<std::string> identifiers = groupIDs(group);
  if (!recursive) identifiers.resize(std::min<std::size_t>(identifiers.size(), 1));
  return createQueryWithGroup(identifiers, "group");
}

void TQSearchManager::searchAssetWithLibraryRootCategory(const LibraryPtr& library,
                                                         const ProjectPtr& rootCategory, bool recursive,
                                                         const Terms& searchStrings,
                                                         std::int64_t operatorType, std::int64_t pageIndex,
                                                         std::int64_t /*pageLimit*/, std::int64_t tag,
                                                         SearchCompletion completion) {
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    conditions.push_back(manager.createRootCategoryQuery(*rootCategory, recursive));
    manager.addTerms(conditions, searchStrings, operatorType);
    manager.addTypes(conditions);
    manager.addNoTrash(conditions);
  };
  send(categoryRequest(library, rootCategory, pageIndex, pageLimit(), tag), add, std::move(completion));
}

void TQSearchManager::searchAssetWithLibraryRootCategory(const LibraryPtr& library,
                                                         const ProjectPtr& rootCategory, bool recursive,
                                                         Date fromDateTime, Date toDateTime,
                                                         std::int64_t pageIndex, std::int64_t /*pageLimit*/,
                                                         std::int64_t tag, SearchCompletion completion) {
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    conditions.push_back(manager.createRootCategoryQuery(*rootCategory, recursive));
    conditions.push_back(manager.createQueryFromDate(fromDateTime, toDateTime));
    manager.addNoTrash(conditions);
  };
  send(categoryRequest(library, rootCategory, pageIndex, pageLimit(), tag), add, std::move(completion));
}

void TQSearchManager::searchAssetWithLibrarySubCategory(const LibraryPtr& library,
                                                        const ProjectPtr& subCategory, bool recursive,
                                                        const Terms& searchStrings, std::int64_t operatorType,
                                                        std::int64_t pageIndex, std::int64_t pageLimit,
                                                        std::int64_t tag, SearchCompletion completion) {
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    conditions.push_back(manager.createSubCategoryQuery(subCategory, recursive));
    manager.addTerms(conditions, searchStrings, operatorType);
    manager.addTypes(conditions);
    manager.addNoTrash(conditions);
  };
  send(categoryRequest(library, subCategory, pageIndex, pageLimit, tag), add, std::move(completion));
}

void TQSearchManager::searchAssetWithLibrarySubCategory(const LibraryPtr& library,
                                                        const ProjectPtr& subCategory, bool recursive,
                                                        Date fromDateTime, Date toDateTime,
                                                        std::int64_t pageIndex, std::int64_t pageLimit,
                                                        std::int64_t tag, SearchCompletion completion) {
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    conditions.push_back(manager.createSubCategoryQuery(subCategory, recursive));
    conditions.push_back(manager.createQueryFromDate(fromDateTime, toDateTime));
    manager.addNoTrash(conditions);
  };
  send(categoryRequest(library, subCategory, pageIndex, pageLimit, tag), add, std::move(completion));
}

}  // namespace vornex
