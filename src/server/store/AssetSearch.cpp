#include "server/store/AssetSearch.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <limits>

#include "core/StatusCode.h"
#include "foundation/Text.h"
#include "server/query/PredicateEvaluator.h"
#include "server/query/PredicateParser.h"
#include "server/store/AssetSchema.h"
#include "server/store/DocumentReader.h"

namespace vornex::server {

namespace {

// What the SQL function "document_holds" is asked about each document.
struct DocumentTest {
  static constexpr const char* kType = "DocumentTest";
  Predicate predicate;
  std::vector<std::string> keys;
};

// The key that the SQL function "sort_value" reads from each document.
struct SortKey {
  static constexpr const char* kType = "SortKey";
  std::vector<std::string> path;
  std::vector<std::string> keys;
};

std::string_view textArgument(sqlite3_value* value) {
  const void* bytes = sqlite3_value_text(value);
  return {static_cast<const char*>(bytes), bytes ? static_cast<std::size_t>(sqlite3_value_bytes(value)) : 0};
}

// The entries of the document given as first argument; reports the failure to the statement.
std::optional<Dictionary> entriesArgument(sqlite3_context* context, sqlite3_value* value,
                                          const std::vector<std::string>& keys) {
  Result<Dictionary> entries = readEntries(textArgument(value), keys);
  if (entries) return std::move(*entries);
  sqlite3_result_error(context, entries.error().message.c_str(), -1);
  return std::nullopt;
}

void documentHolds(sqlite3_context* context, int, sqlite3_value** arguments) {
  const void* pointer = sqlite3_value_pointer(arguments[1], DocumentTest::kType);
  const auto* test = static_cast<const DocumentTest*>(pointer);
  if (!test) return sqlite3_result_error(context, "document_holds needs a test", -1);
  if (std::optional<Dictionary> entries = entriesArgument(context, arguments[0], test->keys))
    sqlite3_result_int(context, holds(test->predicate, *entries) ? 1 : 0);
}

void giveResult(sqlite3_context* context, const Value& value) {
  if (const bool* boolean = value.ifBool())
    sqlite3_result_int(context, *boolean ? 1 : 0);
  else if (const std::int64_t* integer = value.ifInteger())
    sqlite3_result_int64(context, *integer);
  else if (const std::uint64_t* unsignedInteger = value.ifUnsigned())
    sqlite3_result_double(context, static_cast<double>(*unsignedInteger));
  else if (const double* real = value.ifReal())
    sqlite3_result_double(context, *real);
  else if (const std::string* text = value.ifString())
    sqlite3_result_text64(context, text->data(), text->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  else
    sqlite3_result_null(context);
}

void sortValueOfDocument(sqlite3_context* context, int, sqlite3_value** arguments) {
  const void* pointer = sqlite3_value_pointer(arguments[1], SortKey::kType);
  const auto* key = static_cast<const SortKey*>(pointer);
  if (!key) return sqlite3_result_error(context, "sort_value needs a key", -1);
  if (std::optional<Dictionary> entries = entriesArgument(context, arguments[0], key->keys))
    giveResult(context, sortValue(valueAt(*entries, key->path)));
}

template <void (*function)(sqlite3_context*, int, sqlite3_value**)>
void withoutExceptions(sqlite3_context* context, int count, sqlite3_value** arguments) noexcept {
  try {
    function(context, count, arguments);
  } catch (const std::exception& exception) {
    sqlite3_result_error(context, exception.what(), -1);
  }
}

SortKey sortKey(std::string_view key) {
  SortKey result;
  for (std::size_t begin = 0; begin <= key.size();) {
    std::size_t end = std::min(key.find('.', begin), key.size());
    result.path.emplace_back(key.substr(begin, end - begin));
    begin = end + 1;
  }
  result.keys = {result.path.front()};
  return result;
}

// One search, from its request to its page.
class Search {
 public:
  Search(Database& database, const SearchRequest& request, const Predicate& predicate)
      : database_(database),
        request_(request),
        compiled_(compilePredicate(predicate, assetVocabulary())),
        sortColumn_(sortColumn(request.sortField.empty() ? "importdate" : request.sortField)) {
    if (sortColumn_.empty()) sortKey_ = sortKey(request.sortField);
    if (compiled_.rest) test_ = DocumentTest{std::move(*compiled_.rest), {}};
    if (test_) test_->keys = topLevelKeys(test_->predicate);
  }

  // What indexes answer is counted and walked along them; everything else is found once and kept for both.
  Result<SearchPage> run() { return test_ || sortKey_ ? runOverHits() : runOverIndexes(); }

 private:
  Result<SearchPage> runOverIndexes() {
    Result<Statement> counting = database_.prepare("SELECT count(*) FROM " + source());
    if (!counting) return tl::unexpected(counting.error());
    bindSource(*counting);
    Result<bool> counted = counting->step();
    if (!counted) return tl::unexpected(counted.error());
    SearchPage page;
    page.total = counting->integer(0);

    // The inner query finds the rows of the page by an index alone; only these documents are read.
    Result<Statement> reading = database_.prepare(fmt::format(
        "SELECT document FROM (SELECT assets.n AS hit, {0} AS sortkey, assets.id AS sortid FROM {1}"
        " ORDER BY {0} {2}, assets.id {2} LIMIT ? OFFSET ?) CROSS JOIN assets ON assets.n = hit"
        " ORDER BY sortkey {2}, sortid {2}",
        sortColumn_, source(), direction()));
    if (!reading) return tl::unexpected(reading.error());
    bindSource(*reading);
    bindPage(*reading);
    return readDocuments(*reading, std::move(page), 0);
  }

  Result<SearchPage> runOverHits() {
    Result<Statement> reading = database_.prepare(fmt::format(
        "WITH hits AS MATERIALIZED (SELECT assets.n AS hit, {0} AS sortkey, assets.id AS sortid FROM {1})"
        " SELECT assets.document, (SELECT count(*) FROM hits) FROM (SELECT 1)"
        " LEFT JOIN (SELECT * FROM hits ORDER BY sortkey {2}, sortid {2} LIMIT ? OFFSET ?) AS page"
        " LEFT JOIN assets ON assets.n = page.hit ORDER BY page.sortkey {2}, page.sortid {2}",
        sortKey_ ? "sort_value(assets.document, ?)" : sortColumn_, source(), direction()));
    if (!reading) return tl::unexpected(reading.error());
    if (sortKey_) reading->bindPointer(&*sortKey_, SortKey::kType);
    bindSource(*reading);
    bindPage(*reading);
    return readDocuments(*reading, SearchPage(), 1);
  }

  // With a column for the total the page has at least one row, whose document is null when there is none.
  static Result<SearchPage> readDocuments(Statement& statement, SearchPage page, int totalColumn) {
    for (;;) {
      Result<bool> row = statement.step();
      if (!row) return tl::unexpected(row.error());
      if (!*row) return page;
      if (totalColumn > 0) page.total = statement.integer(totalColumn);
      if (!statement.isNull(0)) page.documents.push_back(statement.text(0));
    }
  }

  std::string source() const {
    bool narrowed = !compiled_.narrowing.empty();
    return fmt::format("{} WHERE {}{}{}",
                       narrowed ? "asset_text CROSS JOIN assets ON assets.n = asset_text.rowid" : "assets",
                       narrowed ? "asset_text MATCH ? AND " : "", compiled_.condition,
                       test_ ? " AND document_holds(assets.document, ?)" : "");
  }

  void bindSource(Statement& statement) const {
    if (!compiled_.narrowing.empty()) statement.bind(compiled_.narrowing);
    for (const Value& value : compiled_.bindings) statement.bind(value);
    if (test_) statement.bindPointer(&*test_, DocumentTest::kType);
  }

  void bindPage(Statement& statement) const {
    constexpr std::int64_t kBeyond = std::numeric_limits<std::int64_t>::max();
    bool overflows = request_.limit > 0 && request_.page > kBeyond / request_.limit;
    statement.bind(request_.limit);
    statement.bind(overflows ? kBeyond : request_.page * request_.limit);
  }

  const char* direction() const { return request_.ascending ? "ASC" : "DESC"; }

  Database& database_;
  const SearchRequest& request_;
  SqlPredicate compiled_;
  std::string sortColumn_;
  std::optional<SortKey> sortKey_;
  std::optional<DocumentTest> test_;
};

}  // namespace

Result<void> addSearchFunctions(Database& database) {
  return database.addFunction("document_holds", 2, withoutExceptions<documentHolds>).and_then([&] {
    return database.addFunction("sort_value", 2, withoutExceptions<sortValueOfDocument>);
  });
}

Result<SearchPage> searchAssets(Database& database, const SearchRequest& request) {
  if (request.page < 0 || request.limit < 0)
    return failure(kServerErrorDomain, static_cast<std::int64_t>(StatusCode::invalidRequest),
                   "neither page nor limit may be negative");
  bool everything = trimmedWhitespace(request.query).empty();
  Result<Predicate> predicate = everything ? Predicate{true} : parsePredicate(request.query);
  if (!predicate) return tl::unexpected(predicate.error());
  Result<Transaction> transaction = Transaction::begin(database, Transaction::Kind::read);
  if (!transaction) return tl::unexpected(transaction.error());
  database.setDeadline(std::chrono::steady_clock::now() + kSearchTimeLimit);
  std::shared_ptr<void> deadline(nullptr, [&database](void*) { database.clearDeadline(); });
  return Search(database, request, *predicate).run();
}

}  // namespace vornex::server
