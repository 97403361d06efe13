#pragma once

#include <vornex/Value.h>

#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"
#include "server/query/PredicateSql.h"
#include "server/store/Sqlite.h"

namespace vornex::server {

// The table "assets" holds each document whole, as JSON, and beside it what searches ask for most:
//
//  - columns for exact comparison and order, as SqlVocabulary describes them;
//  - columns with the case-folded text of some keys (an array's strings one a line), which the trigram index
//    "asset_text" covers and which order by name.
//
// "n" is the row's number, "id" the document's "_id".

inline constexpr const char* kDatabaseFileName = "library.sqlite";

const SqlVocabulary& assetVocabulary();

/// The column that orders documents by the key as sortValue() would; empty when there is none.
std::string sortColumn(std::string_view key);
/// What a document's value under a key counts as in an order: numbers, booleans as 1 and 0, strings
/// case-folded; everything else is null.
Value sortValue(const Value* value);

/// The names of all columns besides "n" and "document", joined by commas, and a document's values for them.
const std::string& columnNames();
std::size_t columnCount();
std::vector<Value> columnValues(const Dictionary& document);

/// Opens the file for writing, making it when it is missing or empty. A file that is no asset database,
/// damaged or made by a newer version is an error and is left as it is.
[[nodiscard]] Result<Database> openAssetDatabase(const std::string& path);
/// A further connection that only reads.
[[nodiscard]] Result<Database> openAssetReader(const std::string& path);

}  // namespace vornex::server
