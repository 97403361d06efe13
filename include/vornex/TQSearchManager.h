#pragma once

#include <vornex/TQPredicate.h>
#include <vornex/TQSearchResponse.h>
#include <vornex/Types.h>

#include <map>
#include <mutex>
#include <variant>
#include <vector>

namespace vornex {

/// How the terms of a search are joined.
enum SearchOperator : std::int64_t { kSearchInvalid = -1, kSearchAND = 0, kSearchOR = 1 };

/// Turns what people type into queries, sends them to a library's server, and gives back pages of assets.
///
/// Thread-safety: safe on any thread. A search uses the settings as they are when it is called. Assets are
/// linked to the library's trees on the thread that reads the answer, so these must not change then.
class TQSearchManager {
 public:
  using Terms = std::vector<std::string>;
  /// Called once, before the operation returns. Without terms the operator is kSearchInvalid.
  using ParseCompletion =
      std::function<void(std::optional<Terms> terms, std::int64_t operatorType, TQErrorPtr error)>;
  /// Called once: on the main queue with an answer, on a worker thread with an error found before sending.
  using SearchCompletion = std::function<void(TQSearchResponse response)>;

  /// Made on first use; lives until the process ends.
  static TQSearchManager& sharedManager();

  // Settings

  /// The direction of sorting; at first true.
  bool ascending() const;
  void setAscending(bool ascending);
  /// Assets on a page where a search gives no number; at first 100.
  std::int64_t pageLimit() const;
  void setPageLimit(std::int64_t limit);
  /// The asset keys in which a term is looked for; at first "name", "tags", "fileext".
  std::vector<std::string> searchFields() const;
  void setSearchFields(std::vector<std::string> fields);
  /// Which of "video", "audio", "image", "document" and "extra" take part; at first all. Absent means all.
  std::optional<std::map<std::string, bool>> searchAssetTypes() const;
  void setSearchAssetTypes(std::optional<std::map<std::string, bool>> types);
  /// Changes one type; nothing while the types are absent.
  void setSearchAssetTypeKey(const std::string& key, bool useSearchField);
  /// The asset key to sort by; absent (at first) leaves the order to the server.
  OptionalString sortField() const;
  void setSortField(OptionalString field);

  // Search strings (TQSearchManagerParsing.cpp)

  /// Splits a search string into cleaned terms and says how they are joined. Phrases in double quotes stay
  /// whole; AND, OR and | between blanks are operators. Errors: 10013 not readable, or several terms joined
  /// by OR after the last phrase; 10014 an odd number of quotes; 10015 AND and OR mixed. An absent or empty
  /// string gives no terms, joined by OR.
  void parseSearchString(const OptionalString& string, const ParseCompletion& completion) const;
  /// The steps of parseSearchString: a string with quotes, and one without.
  void matchDoubleQuotSearchStringsFromString(const std::string& string,
                                              const ParseCompletion& completion) const;
  void matchSearchStringsFromString(const std::string& string, const ParseCompletion& completion) const;
  /// The cleaned, non-empty texts between the matches of a separator; absent when there is no match, or when
  /// the pattern (an ICU regular expression) is none.
  std::optional<Terms> matchSearchStringsFromString(const std::string& string,
                                                    const std::string& pattern) const;
  std::optional<Terms> matchANDSearchString(const std::string& string) const;
  std::optional<Terms> matchORSearchString(const std::string& string) const;
  std::optional<Terms> matchSpaceSearchString(const std::string& string) const;
  /// Whether the string is free of the other operator, written all in capitals or all in small letters.
  bool validSearchStringFromString(const std::string& string, std::int64_t operatorType) const;
  /// A term as it is sent: white space, then quotes, cut off at both ends, and the characters | $ ^ * + ( ) [
  /// ] escaped, because the server reads terms as regular expressions.
  static std::string replaceSearchString(const std::string& string);

  // Queries (TQSearchManagerQueries.cpp). Null means "no condition". Terms are cleaned ones.

  /// Null for an absent key or a null value, and where TQPredicate::comparisonPredicate gives null.
  static PredicatePtr createPredicateWithKey(const OptionalString& key, const Value& value,
                                             std::int64_t operatorType);
  PredicatePtr createPredicateWithKey(const OptionalString& key, const Value& value) const;
  PredicatePtr createMathPrecidateWithKey(const OptionalString& key, const Value& value) const;
  PredicatePtr createQueryWithSearchString(const std::string& term) const;
  /// Null for an operator that is neither AND nor OR; so are the comment and note queries.
  PredicatePtr createQueryWithSearchStrings(const Terms& terms, std::int64_t searchOperatorType) const;
  /// Joins the terms by OR in spite of the name.
  PredicatePtr createANDQueryWithSearchStrings(const Terms& terms, const std::string& searchField) const;
  PredicatePtr createCommentQueryWithSearchStrings(const Terms& terms, std::int64_t searchOperatorType) const;
  PredicatePtr createNoteQueryWithSearchStrings(const Terms& terms, std::int64_t searchOperatorType) const;
  PredicatePtr createQueryWithGroup(const std::optional<std::vector<std::string>>& identifiers,
                                    const std::string& metaKey) const;
  /// Null when all types take part, or none.
  PredicatePtr createAssetTypeQuery() const;
  PredicatePtr createQueryWithTrash(bool trash) const;
  /// Asks for assets that want a review, whatever the argument.
  PredicatePtr createQueryWithWantReview(bool wantReview) const;
  PredicatePtr createQueryWithReviewerID(const OptionalString& reviewerID) const;
  PredicatePtr createQueryWithReviewStatus(std::int64_t status) const;
  /// Imported in the last so many times 24 hours.
  PredicatePtr createQueryWithDays(std::int64_t days) const;
  /// Imported between the two points in time, both included.
  PredicatePtr createQueryFromDate(Date fromDate, Date toDate) const;
  PredicatePtr createAssetsPredicate(const std::vector<std::string>& identifiers) const;
  PredicatePtr createFCPXEventPredicate(const std::vector<std::string>& identifiers) const;
  /// "sortfield" (unless empty or absent) and "ascending".
  Dictionary sortParamWithSortField(const OptionalString& sortField, bool ascending) const;
  /// "video" for a number that is no type; -1 for a key that is none.
  static std::string searchKeyFromAssetType(std::int64_t assetType);
  static std::int64_t assetTypeFromSearchKey(const std::string& key);
  /// The node's identifier and those of everything below it, a node before its children.
  std::vector<std::string> subFolderIDs(const LiveFolderPtr& liveFolder) const;
  std::vector<std::string> groupIDs(const ProjectPtr& group) const;

  // Searches (TQSearchManagerRequests.cpp). They leave out the trash and, where it says so, the types that do
  // not take part. Errors: 10000 no library, connection or user, or one without address, database
  // name, identifier or password; 10001 a negative page; 10017 no query can be
  // made, as for terms with an operator that is none; or the server's. A page limit of the manager is
  // pageLimit().

  /// Assets with the value under the key, terms and types (none for the key "type"); without key or value,
  /// those that match the terms.
  void searchAssetWithLibrary(const LibraryPtr& library, const OptionalString& metaKey,
                              const Value& metaValue, const Terms& searchStrings, std::int64_t operatorType,
                              std::int64_t pageIndex, std::int64_t pageLimit, std::int64_t tag,
                              SearchCompletion completion);
  void searchAssetWithLibraryAssetType(const LibraryPtr& library, std::int64_t assetType,
                                       const Terms& searchStrings, std::int64_t operatorType,
                                       std::int64_t pageIndex, std::int64_t pageLimit, std::int64_t tag,
                                       SearchCompletion completion);
  /// Assets with a place. The manager's page limit.
  void searchMapAssetWithLibrary(const LibraryPtr& library, const Terms& searchStrings,
                                 std::int64_t operatorType, std::int64_t pageIndex, std::int64_t tag,
                                 SearchCompletion completion);
  void searchFlaggedAssetWithLibrary(const LibraryPtr& library, const Terms& searchStrings,
                                     std::int64_t operatorType, std::int64_t pageIndex,
                                     std::int64_t pageLimit, std::int64_t tag, SearchCompletion completion);
  /// Inside or outside the trash; terms and types.
  void searchAssetWithLibraryTrash(const LibraryPtr& library, bool trash, const Terms& searchStrings,
                                   std::int64_t operatorType, std::int64_t pageIndex, std::int64_t pageLimit,
                                   std::int64_t tag, SearchCompletion completion);
  /// See createQueryWithDays; types and terms. The manager's page limit.
  void searchAssetWithLibraryDaysAgo(const LibraryPtr& library, std::int64_t daysAgo,
                                     const Terms& searchStrings, std::int64_t operatorType,
                                     std::int64_t pageIndex, std::int64_t tag, SearchCompletion completion);
  /// Without a reviewer the terms alone decide, and without terms the wish for a review. The manager's page
  /// limit.
  void searchReviewAssetWithLibrary(const LibraryPtr& library, const OptionalString& reviewerID,
                                    const Terms& searchStrings, std::int64_t operatorType,
                                    std::int64_t pageIndex, std::int64_t tag, SearchCompletion completion);
  void searchReviewAssetWithLibrary(const LibraryPtr& library, std::int64_t reviewJobStatus,
                                    const Terms& searchStrings, std::int64_t operatorType,
                                    std::int64_t pageIndex, std::int64_t tag, SearchCompletion completion);
  /// The predicate as it is; null finds everything, the trash included. The manager's page limit.
  void searchAssetWithLibrary(const LibraryPtr& library, const PredicatePtr& predicate,
                              std::int64_t pageIndex, std::int64_t tag, SearchCompletion completion);
  /// One cleaned term in the search fields, the trash included, in an order of its own. The manager's page
  /// limit.
  void searchAssetWithLibrary(const LibraryPtr& library, const std::string& searchString,
                              const OptionalString& sortField, bool ascending, std::int64_t pageIndex,
                              std::int64_t tag, SearchCompletion completion);

  // Assets directly in a category, or (recursive) anywhere below it, which for live folders is told by the
  // path that an asset came from. Directly in an event are those that belong to no multicam clip. The first
  // operation of each pair asks for terms and types, the second for import dates. Error 10000 for a category
  // without identifier, or without the path that is needed.

  using RootCategory = std::variant<ProjectPtr, LiveFolderPtr, FCPXLibraryPtr>;
  /// A group, a folder below a live folder, an event or a multicam clip.
  using SubCategory = std::variant<ProjectPtr, LiveFolderPtr, FCPXEventPtr, FCPXMulticamPtr>;

  /// The page limit is not used: the manager's is.
  void searchAssetWithLibraryRootCategory(const LibraryPtr& library, const RootCategory& rootCategory,
                                          bool recursive, const Terms& searchStrings,
                                          std::int64_t operatorType, std::int64_t pageIndex,
                                          std::int64_t pageLimit, std::int64_t tag,
                                          SearchCompletion completion);
  void searchAssetWithLibraryRootCategory(const LibraryPtr& library, const RootCategory& rootCategory,
                                          bool recursive, Date fromDateTime, Date toDateTime,
                                          std::int64_t pageIndex, std::int64_t pageLimit, std::int64_t tag,
                                          SearchCompletion completion);
  void searchAssetWithLibrarySubCategory(const LibraryPtr& library, const SubCategory& subCategory,
                                         bool recursive, const Terms& searchStrings,
                                         std::int64_t operatorType, std::int64_t pageIndex,
                                         std::int64_t pageLimit, std::int64_t tag,
                                         SearchCompletion completion);
  void searchAssetWithLibrarySubCategory(const LibraryPtr& library, const SubCategory& subCategory,
                                         bool recursive, Date fromDateTime, Date toDateTime,
                                         std::int64_t pageIndex, std::int64_t pageLimit, std::int64_t tag,
                                         SearchCompletion completion);

  /// Up to 1000 references to a file of that name, size and creation date.
  void searchDupulicatedAssetWithLibrary(const LibraryPtr& library, const std::string& fileName,
                                         std::int64_t fileSize, Date createDate, std::int64_t pageIndex,
                                         std::int64_t tag, SearchCompletion completion);

  /// Blocking. A page limit below 1 is the manager's. A null predicate finds everything, the trash included.
  TQSearchResponse searchAssetWithLibrary(const LibraryPtr& library, const PredicatePtr& predicate,
                                          std::int64_t pageIndex, std::int64_t pageLimit, std::int64_t tag);
  /// Blocking: keys equal to values, joined by OR for kSearchOR and by AND otherwise.
  TQSearchResponse searchAssetWithLibrary(const LibraryPtr& library, const Dictionary& searchKeyValues,
                                          std::int64_t operatorType, std::int64_t pageIndex,
                                          std::int64_t pageLimit, std::int64_t tag);
  /// Blocking: the asset with the identifier. Null without an error when an argument is missing or the server
  /// gives no asset.
  AssetPtr searchAssetWithLibrary(const LibraryPtr& library, const OptionalString& assetID,
                                  TQErrorPtr* error);
  /// The same, called back as the searches are; a missing library, connection or user is error 10000.
  void searchAssetWithLibrary(const LibraryPtr& library, const OptionalString& assetID,
                              std::function<void(AssetPtr asset, TQErrorPtr error)> completion);

  // Answers (TQSearchManagerAnswers.cpp)

  /// The assets of an answer, each linked to its project and group, its live folder, or its Final Cut Pro X
  /// library, event and multicam clip; for an unknown owner stands the undefined one of its
  /// kind. A clip takes over the type that an item tells of it. An item that is no asset is logged and ends
  /// the list.
  std::vector<AssetPtr> extractAssetInfo(const Value& response, const LibraryPtr& library) const;
  /// Makes the page of an answer or error, posts the error's notification, and calls back.
  void assetResultWithResponse(const Value& response, const LibraryPtr& library, const TQErrorPtr& error,
                               std::int64_t currentTag, const SearchCompletion& completion) const;
  /// The page of an answer to a blocking search; the tag is the request's.
  TQSearchResponse syncSearchResponseWithLibrary(const LibraryPtr& library, const Value& response,
                                                 std::int64_t tag) const;

 private:
  struct Settings {
    bool ascending = true;
    std::int64_t pageLimit = 100;
    std::vector<std::string> searchFields = {"name", "tags", "fileext"};
    std::optional<std::map<std::string, bool>> searchAssetTypes = std::map<std::string, bool>{
        {"video", true}, {"audio", true}, {"image", true}, {"document", true}, {"extra", true}};
    OptionalString sortField;
  };
  /// Adds the conditions of one search; null for one that cannot be made.
  using AddConditions =
      std::function<void(const TQSearchManager& manager, std::vector<PredicatePtr>& conditions)>;
  /// Gives the condition of a category; null when the category lacks what it needs.
  using Category = std::function<PredicatePtr(const TQSearchManager& manager)>;
  /// What one search sends besides its conditions.
  struct Request {
    LibraryPtr library;
    std::int64_t pageIndex = 0;
    std::int64_t pageLimit = 0;
    std::int64_t tag = 0;
    std::optional<Dictionary> sort;
    /// The duplicate search takes any page number.
    bool checksPage = true;
    /// The first condition, if the search is in a category.
    Category category = {};
  };

  TQSearchManager() = default;
  /// A copy that later changes of the shared manager's settings do not reach.
  explicit TQSearchManager(Settings settings) : settings_(std::move(settings)) {}
  Settings settings() const;
  std::optional<Dictionary> sortSetting() const;
  Request request(const LibraryPtr& library, std::int64_t pageIndex, std::int64_t pageLimit,
                  std::int64_t tag) const;
  void addTerms(std::vector<PredicatePtr>& conditions, const Terms& terms, std::int64_t operatorType) const;
  void addTypes(std::vector<PredicatePtr>& conditions) const;
  void addNoTrash(std::vector<PredicatePtr>& conditions) const;
  static Category category(const RootCategory& root, bool recursive);
  static Category category(const SubCategory& sub, bool recursive);
  void searchCategory(Request request, Category category, const Terms& searchStrings,
                      std::int64_t operatorType, SearchCompletion completion) const;
  void searchCategory(Request request, Category category, Date fromDateTime, Date toDateTime,
                      SearchCompletion completion) const;
  static TQErrorPtr requestError(const Request& request);
  static Dictionary parameters(const Request& request, const OptionalString& query);
  void send(Request request, AddConditions addConditions, SearchCompletion completion) const;

  mutable std::mutex mutex_;
  Settings settings_;
};

}  // namespace vornex
