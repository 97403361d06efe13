#include <vornex/TQLiveFolder.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>

namespace vornex {

// A project's assets name it under "project", and the group that they lie in under "group"; those of a live
// folder name it under "livefolder", and the folder below it under "livesubfolder". The second key is empty
// for assets directly in the root.

namespace {

PredicatePtr equals(const char* key, const Value& value) {
  return TQSearchManager::createPredicateWithKey(key, value, kPredicateEqual);
}

PredicatePtr both(PredicatePtr first, PredicatePtr second) {
  return TQPredicate::andPredicateWithSubpredicates({std::move(first), std::move(second)});
}

/// Assets that came from anywhere below the folder.
PredicatePtr isBelow(const TQLiveFolder& folder) {
  if (!folder.path) return nullptr;
  std::string path = TQSearchManager::replaceSearchString(*folder.path);
  if (!path.ends_with('/')) path += '/';
  return both(TQSearchManager::createPredicateWithKey("importfrompath", path, kPredicateContains),
              equals("islivefolder", true));
}

}  // namespace

TQSearchManager::Category TQSearchManager::rootCategory(const ProjectPtr& root, bool recursive) {
  return [=](const TQSearchManager&) -> PredicatePtr {
    if (!root || !root->id) return nullptr;
    PredicatePtr inside = equals("project", *root->id);
    return recursive ? inside : both(inside, equals("group", ""));
  };
}

TQSearchManager::Category TQSearchManager::rootCategory(const LiveFolderPtr& root, bool recursive) {
  return [=](const TQSearchManager&) -> PredicatePtr {
    if (!root || !root->ID) return nullptr;
    return recursive ? isBelow(*root) : both(equals("livefolder", *root->ID), equals("livesubfolder", ""));
  };
}

TQSearchManager::Category TQSearchManager::subCategory(const ProjectPtr& group, bool recursive) {
  return [=](const TQSearchManager& manager) -> PredicatePtr {
    if (!group || !group->id) return nullptr;
    return manager.createQueryWithGroup(recursive ? manager.groupIDs(group) : std::vector{*group->id},
                                        "group");
  };
}

TQSearchManager::Category TQSearchManager::subCategory(const LiveFolderPtr& folder, bool recursive) {
  return [=](const TQSearchManager&) -> PredicatePtr {
    if (!folder || !folder->ID) return nullptr;
    return recursive ? isBelow(*folder) : equals("livesubfolder", *folder->ID);
  };
}

void TQSearchManager::searchCategory(Request request, Category category, const Terms& searchStrings,
                                     std::int64_t operatorType, SearchCompletion completion) const {
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    manager.addTerms(conditions, searchStrings, operatorType);
    manager.addTypes(conditions);
    manager.addNoTrash(conditions);
  };
  request.category = std::move(category);
  send(std::move(request), add, std::move(completion));
}

void TQSearchManager::searchCategory(Request request, Category category, Date fromDateTime, Date toDateTime,
                                     SearchCompletion completion) const {
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    conditions.push_back(manager.createQueryFromDate(fromDateTime, toDateTime));
    manager.addNoTrash(conditions);
  };
  request.category = std::move(category);
  send(std::move(request), add, std::move(completion));
}

void TQSearchManager::searchAssetWithLibraryRootCategory(const LibraryPtr& library,
                                                         const ProjectPtr& category, bool recursive,
                                                         const Terms& searchStrings,
                                                         std::int64_t operatorType, std::int64_t pageIndex,
                                                         std::int64_t /*pageLimit*/, std::int64_t tag,
                                                         SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit(), tag), rootCategory(category, recursive),
                 searchStrings, operatorType, std::move(completion));
}

void TQSearchManager::searchAssetWithLibraryRootCategory(const LibraryPtr& library,
                                                         const ProjectPtr& category, bool recursive,
                                                         Date fromDateTime, Date toDateTime,
                                                         std::int64_t pageIndex, std::int64_t /*pageLimit*/,
                                                         std::int64_t tag, SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit(), tag), rootCategory(category, recursive),
                 fromDateTime, toDateTime, std::move(completion));
}

void TQSearchManager::searchAssetWithLibraryRootCategory(const LibraryPtr& library,
                                                         const LiveFolderPtr& category, bool recursive,
                                                         const Terms& searchStrings,
                                                         std::int64_t operatorType, std::int64_t pageIndex,
                                                         std::int64_t /*pageLimit*/, std::int64_t tag,
                                                         SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit(), tag), rootCategory(category, recursive),
                 searchStrings, operatorType, std::move(completion));
}

void TQSearchManager::searchAssetWithLibraryRootCategory(const LibraryPtr& library,
                                                         const LiveFolderPtr& category, bool recursive,
                                                         Date fromDateTime, Date toDateTime,
                                                         std::int64_t pageIndex, std::int64_t /*pageLimit*/,
                                                         std::int64_t tag, SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit(), tag), rootCategory(category, recursive),
                 fromDateTime, toDateTime, std::move(completion));
}

void TQSearchManager::searchAssetWithLibrarySubCategory(const LibraryPtr& library, const ProjectPtr& category,
                                                        bool recursive, const Terms& searchStrings,
                                                        std::int64_t operatorType, std::int64_t pageIndex,
                                                        std::int64_t pageLimit, std::int64_t tag,
                                                        SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit, tag), subCategory(category, recursive), searchStrings,
                 operatorType, std::move(completion));
}

void TQSearchManager::searchAssetWithLibrarySubCategory(const LibraryPtr& library, const ProjectPtr& category,
                                                        bool recursive, Date fromDateTime, Date toDateTime,
                                                        std::int64_t pageIndex, std::int64_t pageLimit,
                                                        std::int64_t tag, SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit, tag), subCategory(category, recursive), fromDateTime,
                 toDateTime, std::move(completion));
}

void TQSearchManager::searchAssetWithLibrarySubCategory(const LibraryPtr& library,
                                                        const LiveFolderPtr& category, bool recursive,
                                                        const Terms& searchStrings, std::int64_t operatorType,
                                                        std::int64_t pageIndex, std::int64_t pageLimit,
                                                        std::int64_t tag, SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit, tag), subCategory(category, recursive), searchStrings,
                 operatorType, std::move(completion));
}

void TQSearchManager::searchAssetWithLibrarySubCategory(const LibraryPtr& library,
                                                        const LiveFolderPtr& category, bool recursive,
                                                        Date fromDateTime, Date toDateTime,
                                                        std::int64_t pageIndex, std::int64_t pageLimit,
                                                        std::int64_t tag, SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit, tag), subCategory(category, recursive), fromDateTime,
                 toDateTime, std::move(completion));
}

}  // namespace vornex
