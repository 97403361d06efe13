#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include <stdexcept>

#include "core/DateNumber.h"
#include "core/SdkError.h"
#include "foundation/Text.h"

namespace vornex {

namespace {

// The duplicate search wants all references to a file at once.
constexpr std::int64_t kDuplicatePageLimit = 1000;

bool canSend(const LibraryPtr& library) {
  const ConnectionPtr connection = library ? library->connection : nullptr;
  const UserPtr user = connection ? connection->user : nullptr;
  return user && user->id && user->password && connection->address && library->dbName;
}

std::string assetPath(const std::string& assetID) {
  return "/assets/" + percentEncoded(assetID, "-._~");
}

/// One condition stands for itself, so that it is sent as it was made.
PredicatePtr allOf(const std::vector<PredicatePtr>& conditions) {
  return conditions.size() == 1 ? conditions.front() : TQPredicate::andPredicateWithSubpredicates(conditions);
}

/// Throws for a condition that could not be made.
std::string queryText(const PredicatePtr& query) {
  if (!query) throw std::invalid_argument("a condition of the search has no textual form");
  return query->predicateFormat();
}

TQErrorPtr exceptionError(const std::exception& exception) {
  logLine(LogLevel::error, std::string("searchAssetWithLibrary exception :") + exception.what());
  return TQVornexUtil::errorWithCode(10017, exception.what());
}

}  // namespace

std::optional<Dictionary> TQSearchManager::sortSetting() const {
  Settings now = settings();
  if (!now.sortField) return std::nullopt;
  return sortParamWithSortField(now.sortField, now.ascending);
}

TQSearchManager::Request TQSearchManager::request(const LibraryPtr& library, std::int64_t pageIndex,
                                                  std::int64_t pageLimit, std::int64_t tag) const {
  return {library, pageIndex, pageLimit, tag, sortSetting()};
}

void TQSearchManager::addTerms(std::vector<PredicatePtr>& conditions, const Terms& terms,
                               std::int64_t operatorType) const {
  if (!terms.empty()) conditions.push_back(createQueryWithSearchStrings(terms, operatorType));
}

void TQSearchManager::addTypes(std::vector<PredicatePtr>& conditions) const {
  if (PredicatePtr types = createAssetTypeQuery()) conditions.push_back(types);
}

void TQSearchManager::addNoTrash(std::vector<PredicatePtr>& conditions) const {
  conditions.push_back(createQueryWithTrash(false));
}

TQErrorPtr TQSearchManager::requestError(const Request& request) {
  if (!canSend(request.library)) return localizedError(10000, "request.error.param.nil");
  if (request.checksPage && request.pageIndex < 0)
    return localizedError(10001, "request.error.param.invalid");
  return nullptr;
}

Dictionary TQSearchManager::parameters(const Request& request, const OptionalString& query) {
  Dictionary parameters = {{"page", request.pageIndex}, {"limit", request.pageLimit}};
  if (query) parameters.set("query", *query);
  parameters.set("tag", request.tag);
  if (request.sort) parameters.set("sort", *request.sort);
  return parameters;
}

void TQSearchManager::send(Request request, AddConditions addConditions, SearchCompletion completion) const {
  // The worker uses the settings as they are now.
  std::shared_ptr<const TQSearchManager> frozen(new TQSearchManager(settings()));
  GlobalQueue::shared().async([frozen, request = std::move(request), addConditions = std::move(addConditions),
                               completion = std::move(completion)] {
    auto fail = [&](TQErrorPtr error) {
      completion(TQSearchResponse::searchResponseWithError(std::move(error), request.tag));
    };
    if (TQErrorPtr error = requestError(request)) return fail(error);
    OptionalString text;
    try {
      std::vector<PredicatePtr> conditions;
      if (request.category) {
        conditions.push_back(request.category(*frozen));
        if (!conditions.front()) return fail(localizedError(10000, "request.error.param.nil"));
      }
      addConditions(*frozen, conditions);
      if (!conditions.empty()) text = queryText(allOf(conditions));
    } catch (const std::exception& exception) {
      return fail(exceptionError(exception));
    }
    const UserPtr& user = request.library->connection->user;
    TQVornexUtil::requestURL(
        request.library->serverURL("/assets/search"), user->id, user->password, "POST",
        parameters(request, text),
        [frozen, library = request.library, tag = request.tag, completion](Value response, TQErrorPtr error) {
          frozen->assetResultWithResponse(response, library, error, tag, completion);
        });
  });
}

void TQSearchManager::searchAssetWithLibrary(const LibraryPtr& library, const OptionalString& metaKey,
                                             const Value& metaValue, const Terms& searchStrings,
                                             std::int64_t operatorType, std::int64_t pageIndex,
                                             std::int64_t pageLimit, std::int64_t tag,
                                             SearchCompletion completion) {
  bool hasCondition = metaKey && !metaValue.isNull();
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    if (hasCondition) conditions.push_back(manager.createPredicateWithKey(metaKey, metaValue));
    manager.addTerms(conditions, searchStrings, operatorType);
    manager.addNoTrash(conditions);
    if (hasCondition && *metaKey != "type") manager.addTypes(conditions);
  };
  send(request(library, pageIndex, pageLimit, tag), add, std::move(completion));
}

void TQSearchManager::searchAssetWithLibraryAssetType(const LibraryPtr& library, std::int64_t assetType,
                                                      const Terms& searchStrings, std::int64_t operatorType,
                                                      std::int64_t pageIndex, std::int64_t pageLimit,
                                                      std::int64_t tag, SearchCompletion completion) {
  searchAssetWithLibrary(library, "type", assetType, searchStrings, operatorType, pageIndex, pageLimit, tag,
                         std::move(completion));
}

void TQSearchManager::searchMapAssetWithLibrary(const LibraryPtr& library, const Terms& searchStrings,
                                                std::int64_t operatorType, std::int64_t pageIndex,
                                                std::int64_t tag, SearchCompletion completion) {
  searchAssetWithLibrary(library, "haslocation", true, searchStrings, operatorType, pageIndex, pageLimit(),
                         tag, std::move(completion));
}

void TQSearchManager::searchFlaggedAssetWithLibrary(const LibraryPtr& library, const Terms& searchStrings,
                                                    std::int64_t operatorType, std::int64_t pageIndex,
                                                    std::int64_t pageLimit, std::int64_t tag,
                                                    SearchCompletion completion) {
  searchAssetWithLibrary(library, "flagged", true, searchStrings, operatorType, pageIndex, pageLimit, tag,
                         std::move(completion));
}

void TQSearchManager::searchAssetWithLibraryTrash(const LibraryPtr& library, bool trash,
                                                  const Terms& searchStrings, std::int64_t operatorType,
                                                  std::int64_t pageIndex, std::int64_t pageLimit,
                                                  std::int64_t tag, SearchCompletion completion) {
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    manager.addTerms(conditions, searchStrings, operatorType);
    conditions.push_back(manager.createQueryWithTrash(trash));
    manager.addTypes(conditions);
  };
  send(request(library, pageIndex, pageLimit, tag), add, std::move(completion));
}

void TQSearchManager::searchAssetWithLibraryDaysAgo(const LibraryPtr& library, std::int64_t daysAgo,
                                                    const Terms& searchStrings, std::int64_t operatorType,
                                                    std::int64_t pageIndex, std::int64_t tag,
                                                    SearchCompletion completion) {
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    conditions.push_back(manager.createQueryWithDays(daysAgo));
    manager.addNoTrash(conditions);
    manager.addTypes(conditions);
    manager.addTerms(conditions, searchStrings, operatorType);
  };
  send(request(library, pageIndex, pageLimit(), tag), add, std::move(completion));
}

void TQSearchManager::searchReviewAssetWithLibrary(const LibraryPtr& library,
                                                   const OptionalString& reviewerID,
                                                   const Terms& searchStrings, std::int64_t operatorType,
                                                   std::int64_t pageIndex, std::int64_t tag,
                                                   SearchCompletion completion) {
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    if (reviewerID)
      conditions.push_back(manager.createQueryWithReviewerID(reviewerID));
    else if (searchStrings.empty())
      conditions.push_back(manager.createQueryWithWantReview(true));
    manager.addTerms(conditions, searchStrings, operatorType);
    manager.addNoTrash(conditions);
  };
  send(request(library, pageIndex, pageLimit(), tag), add, std::move(completion));
}

void TQSearchManager::searchReviewAssetWithLibrary(const LibraryPtr& library, std::int64_t reviewJobStatus,
                                                   const Terms& searchStrings, std::int64_t operatorType,
                                                   std::int64_t pageIndex, std::int64_t tag,
                                                   SearchCompletion completion) {
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    conditions.push_back(manager.createQueryWithReviewStatus(reviewJobStatus));
    manager.addTerms(conditions, searchStrings, operatorType);
    manager.addNoTrash(conditions);
  };
  send(request(library, pageIndex, pageLimit(), tag), add, std::move(completion));
}

void TQSearchManager::searchAssetWithLibrary(const LibraryPtr& library, const PredicatePtr& predicate,
                                             std::int64_t pageIndex, std::int64_t tag,
                                             SearchCompletion completion) {
  auto add = [=](const TQSearchManager&, std::vector<PredicatePtr>& conditions) {
    if (predicate) conditions.push_back(predicate);
  };
  send(request(library, pageIndex, pageLimit(), tag), add, std::move(completion));
}

void TQSearchManager::searchAssetWithLibrary(const LibraryPtr& library, const std::string& searchString,
                                             const OptionalString& sortField, bool ascending,
                                             std::int64_t pageIndex, std::int64_t tag,
                                             SearchCompletion completion) {
  Request prepared = request(library, pageIndex, pageLimit(), tag);
  prepared.sort = sortField ? std::optional(sortParamWithSortField(sortField, ascending)) : std::nullopt;
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    conditions.push_back(manager.createQueryWithSearchString(searchString));
  };
  send(std::move(prepared), add, std::move(completion));
}

void TQSearchManager::searchDupulicatedAssetWithLibrary(const LibraryPtr& library,
                                                        const std::string& fileName, std::int64_t fileSize,
                                                        Date createDate, std::int64_t pageIndex,
                                                        std::int64_t tag, SearchCompletion completion) {
  Request prepared = request(library, pageIndex, kDuplicatePageLimit, tag);
  prepared.checksPage = false;
  auto add = [=](const TQSearchManager& manager, std::vector<PredicatePtr>& conditions) {
    conditions.push_back(
        createPredicateWithKey("importfrompath", replaceSearchString(fileName), kPredicateContains));
    conditions.push_back(manager.createPredicateWithKey("filesize", fileSize));
    conditions.push_back(manager.createPredicateWithKey("createdate", dateNumber(createDate)));
    conditions.push_back(manager.createPredicateWithKey("importtype", 0));
    manager.addNoTrash(conditions);
  };
  send(std::move(prepared), add, std::move(completion));
}

TQSearchResponse TQSearchManager::searchAssetWithLibrary(const LibraryPtr& library,
                                                         const PredicatePtr& predicate,
                                                         std::int64_t pageIndex, std::int64_t limit,
                                                         std::int64_t tag) {
  Request prepared = request(library, pageIndex, limit < 1 ? pageLimit() : limit, tag);
  if (TQErrorPtr error = requestError(prepared)) return TQSearchResponse::searchResponseWithError(error, tag);
  OptionalString query = predicate ? OptionalString(predicate->predicateFormat()) : std::nullopt;
  const UserPtr& user = library->connection->user;
  TQErrorPtr error;
  Value response = TQVornexUtil::syncRequestURL(library->serverURL("/assets/search"), user->id,
                                                user->password, "POST", parameters(prepared, query), &error);
  if (error) return TQSearchResponse::searchResponseWithError(error, tag);
  return syncSearchResponseWithLibrary(library, response, tag);
}

TQSearchResponse TQSearchManager::searchAssetWithLibrary(const LibraryPtr& library,
                                                         const Dictionary& searchKeyValues,
                                                         std::int64_t operatorType, std::int64_t pageIndex,
                                                         std::int64_t pageLimit, std::int64_t tag) {
  if (TQErrorPtr error = requestError(request(library, pageIndex, pageLimit, tag)))
    return TQSearchResponse::searchResponseWithError(error, tag);
  PredicatePtr query;
  try {
    std::vector<PredicatePtr> conditions;
    for (const auto& [key, value] : searchKeyValues) conditions.push_back(createPredicateWithKey(key, value));
    query = operatorType == kSearchOR ? TQPredicate::orPredicateWithSubpredicates(conditions)
                                      : TQPredicate::andPredicateWithSubpredicates(conditions);
    (void)queryText(query);
  } catch (const std::exception& exception) {
    return TQSearchResponse::searchResponseWithError(exceptionError(exception), tag);
  }
  return searchAssetWithLibrary(library, query, pageIndex, pageLimit, tag);
}

AssetPtr TQSearchManager::searchAssetWithLibrary(const LibraryPtr& library, const OptionalString& assetID,
                                                 TQErrorPtr* error) {
  if (!canSend(library) || !assetID) return nullptr;
  const UserPtr& user = library->connection->user;
  TQErrorPtr requestFailure;
  Value response = TQVornexUtil::syncRequestURL(library->serverURL(assetPath(*assetID)), user->id,
                                                user->password, "GET", std::nullopt, &requestFailure);
  if (requestFailure) {
    if (error) *error = requestFailure;
    return nullptr;
  }
  std::vector<AssetPtr> assets = extractAssetInfo(response, library);
  return assets.empty() ? nullptr : assets.back();
}

void TQSearchManager::searchAssetWithLibrary(
    const LibraryPtr& library, const OptionalString& assetID,
    std::function<void(AssetPtr asset, TQErrorPtr error)> completion) {
  GlobalQueue::shared().async([this, library, assetID, completion = std::move(completion)] {
    if (!canSend(library) || !assetID)
      return completion(nullptr, localizedError(10000, "request.error.param.nil"));
    const UserPtr& user = library->connection->user;
    TQVornexUtil::requestURL(library->serverURL(assetPath(*assetID)), user->id, user->password, "GET",
                             std::nullopt, [this, library, completion](Value response, TQErrorPtr error) {
                               if (error) return completion(nullptr, error);
                               std::vector<AssetPtr> assets = extractAssetInfo(response, library);
                               completion(assets.empty() ? nullptr : assets.back(), nullptr);
                             });
  });
}

}  // namespace vornex
