#include <vornex/TQFCPXEvent.h>
#include <vornex/TQFCPXLibrary.h>
#include <vornex/TQFCPXMulticam.h>
#include <vornex/TQLiveFolder.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>

namespace vornex {

// A project's assets name it under "project", and the group that they lie in under "group"; those of a live
// folder name it under "livefolder", and the folder below it under "livesubfolder"; those of a Final Cut Pro
// X library name it under "fcpx_library", and the event under "fcpx_event". The second key is empty for
// assets directly in the root. What belongs to a multicam clip names it under "fcpx_multicam_uid".

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

PredicatePtr inRoot(const TQProject& root, bool recursive) {
  if (!root.id) return nullptr;
  PredicatePtr inside = equals("project", *root.id);
  return recursive ? inside : both(inside, equals("group", ""));
}

PredicatePtr inRoot(const TQLiveFolder& root, bool recursive) {
  if (!root.ID) return nullptr;
  return recursive ? isBelow(root) : both(equals("livefolder", *root.ID), equals("livesubfolder", ""));
}

PredicatePtr inRoot(const TQFCPXLibrary& root, bool recursive) {
  if (!root.ID) return nullptr;
  PredicatePtr inside = equals("fcpx_library", *root.ID);
  return recursive ? inside : both(inside, equals("fcpx_event", ""));
}

PredicatePtr inSub(const TQSearchManager& manager, const ProjectPtr& group, bool recursive) {
  if (!group->id) return nullptr;
  return manager.createQueryWithGroup(recursive ? manager.groupIDs(group) : std::vector{*group->id}, "group");
}

PredicatePtr inSub(const TQSearchManager&, const LiveFolderPtr& folder, bool recursive) {
  if (!folder->ID) return nullptr;
  return recursive ? isBelow(*folder) : equals("livesubfolder", *folder->ID);
}

PredicatePtr inSub(const TQSearchManager&, const FCPXEventPtr& event, bool recursive) {
  if (!event->ID) return nullptr;
  PredicatePtr inside = equals("fcpx_event", *event->ID);
  return recursive ? inside : both(inside, equals("fcpx_multicam_uid", ""));
}

PredicatePtr inSub(const TQSearchManager&, const FCPXMulticamPtr& multicam, bool /*recursive*/) {
  if (!multicam->ID) return nullptr;
  return equals("fcpx_multicam_uid", TQSearchManager::replaceSearchString(*multicam->ID));
}

}  // namespace

TQSearchManager::Category TQSearchManager::category(const RootCategory& root, bool recursive) {
  return [=](const TQSearchManager&) {
    return std::visit([&](const auto& node) { return node ? inRoot(*node, recursive) : nullptr; }, root);
  };
}

TQSearchManager::Category TQSearchManager::category(const SubCategory& sub, bool recursive) {
  return [=](const TQSearchManager& manager) {
    return std::visit([&](const auto& node) { return node ? inSub(manager, node, recursive) : nullptr; },
                      sub);
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
                                                         const RootCategory& rootCategory, bool recursive,
                                                         const Terms& searchStrings,
                                                         std::int64_t operatorType, std::int64_t pageIndex,
                                                         std::int64_t /*pageLimit*/, std::int64_t tag,
                                                         SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit(), tag), category(rootCategory, recursive),
                 searchStrings, operatorType, std::move(completion));
}

void TQSearchManager::searchAssetWithLibraryRootCategory(const LibraryPtr& library,
                                                         const RootCategory& rootCategory, bool recursive,
                                                         Date fromDateTime, Date toDateTime,
                                                         std::int64_t pageIndex, std::int64_t /*pageLimit*/,
                                                         std::int64_t tag, SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit(), tag), category(rootCategory, recursive),
                 fromDateTime, toDateTime, std::move(completion));
}

void TQSearchManager::searchAssetWithLibrarySubCategory(const LibraryPtr& library,
                                                        const SubCategory& subCategory, bool recursive,
                                                        const Terms& searchStrings, std::int64_t operatorType,
                                                        std::int64_t pageIndex, std::int64_t pageLimit,
                                                        std::int64_t tag, SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit, tag), category(subCategory, recursive), searchStrings,
                 operatorType, std::move(completion));
}

void TQSearchManager::searchAssetWithLibrarySubCategory(const LibraryPtr& library,
                                                        const SubCategory& subCategory, bool recursive,
                                                        Date fromDateTime, Date toDateTime,
                                                        std::int64_t pageIndex, std::int64_t pageLimit,
                                                        std::int64_t tag, SearchCompletion completion) {
  searchCategory(request(library, pageIndex, pageLimit, tag), category(subCategory, recursive), fromDateTime,
                 toDateTime, std::move(completion));
}

}  // namespace vornex
