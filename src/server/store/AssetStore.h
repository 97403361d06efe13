#pragma once

#include <vornex/Value.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"

namespace vornex::server {

/// The largest document, in bytes of compact JSON.
inline constexpr std::size_t kMaximumDocumentSize = std::size_t{16} << 20;

/// The largest page of a search, in bytes of its documents.
inline constexpr std::size_t kMaximumPageBytes = std::size_t{256} << 20;

/// One page of a search.
struct SearchPage {
  /// Complete asset documents as compact JSON, "_id" included, in order.
  std::vector<std::string> documents;
  /// How many assets match in all.
  std::int64_t total = 0;
};

struct SearchRequest {
  std::int64_t page = 0;
  std::int64_t limit = 100;
  /// A predicate in its textual format (see PredicateParser.h); empty matches everything.
  std::string query;
  /// A key, nested ones with dots. Empty: by import date. Documents without the key come first, then numbers
  /// (booleans as 1 and 0), then text without regard to case; ties are broken by identifier. Descending is
  /// exactly the reverse.
  std::string sortField;
  bool ascending = true;
  /// How long it may take, waiting for its turn included.
  std::chrono::milliseconds timeLimit{20'000};
};

/// The assets of one library: documents with every key they were given, addressed by "_id".
///
/// Errors carry the domain "VORNEX SERVER" and a StatusCode as code.
/// Thread-safety: safe on any thread; writes are serialised, reads run beside them.
class AssetStore {
 public:
  virtual ~AssetStore() = default;

  /// Stores each document, given as JSON, under a fresh identifier and gives the identifiers by position. A
  /// document whose "masterpath" and "importdate" are those of a stored one is the same import, sent again
  /// because its answer was lost: it gets the identifier that it has. One transaction: all that succeeded is
  /// durable when the call returns. An item that cannot be stored gives its error at its place.
  [[nodiscard]] virtual Result<std::vector<Result<std::string>>> create(
      const std::vector<std::string_view>& documents) = 0;
  /// The same for documents that are values.
  [[nodiscard]] Result<std::vector<Result<std::string>>> create(const Array& documents);

  /// Merges the keys of each item into the document named by its "_id" (dictionaries by key, everything else
  /// replaced) and gives the identifiers by position. Items fail as in create(), and with `itemNotFound`.
  [[nodiscard]] virtual Result<std::vector<Result<std::string>>> update(const Array& items) = 0;

  /// Removes the documents and gives what each was, by position; `itemNotFound` for those there were none of.
  /// Of a damaged one only the "_id" is known.
  [[nodiscard]] virtual Result<std::vector<Result<Dictionary>>> remove(
      const std::vector<std::string>& ids) = 0;

  /// The document as compact JSON, "_id" included; absent when unknown.
  [[nodiscard]] virtual Result<std::optional<std::string>> document(const std::string& id) = 0;

  /// `queryInvalid` with the mistake's position, `invalidRequest` for negative paging, `timedOut` for a
  /// search that takes too long, `limitExceeded` for a page of more than kMaximumPageBytes.
  [[nodiscard]] virtual Result<SearchPage> search(const SearchRequest& request) = 0;

  [[nodiscard]] virtual Result<std::int64_t> count() = 0;

  /// Whether the database is sound. Reads all of it.
  [[nodiscard]] virtual Result<void> checkIntegrity() = 0;

  /// Writes a consistent copy of the database into the folder, which must exist and be empty.
  [[nodiscard]] virtual Result<void> snapshot(const std::string& folder) = 0;
};

/// Opens the database in the folder, making both if they are missing. A database made by a newer version, or
/// one that is damaged, is an error and is left as it is.
/// A missing one is made only when `mayCreate`.
[[nodiscard]] Result<std::unique_ptr<AssetStore>> openSQLiteAssetStore(const std::string& folder,
                                                                       bool mayCreate = true);

}  // namespace vornex::server
