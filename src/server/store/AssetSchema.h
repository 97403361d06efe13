#pragma once

#include <string>

#include "foundation/Error.h"
#include "server/store/Sqlite.h"

namespace vornex::server {

// The database is the truth about the documents and nothing else:
//
//  - "assets" holds each document whole, as JSON. "n" is the number of its row, which no other document ever
//    gets, "id" its "_id".
//  - "state" has one row: "version" counts the writes, "next" is the next row's number, "stamp" names the
//    checkpoint of the search index that counts, 0 for none.
//  - "changes" has the rows up to the checkpoint's last one that were changed or removed since, each with the
//    version of that write. Together with the rows beyond they are what the checkpoint does not know.

inline constexpr const char* kDatabaseFileName = "library.sqlite";

/// Opens the file for writing, making it when it is missing or empty. A file that is no asset database,
/// damaged or made by a newer version is an error and is left as it is; an older one is brought up to date.
[[nodiscard]] Result<Database> openAssetDatabase(const std::string& path);
/// A further connection that only reads.
[[nodiscard]] Result<Database> openAssetReader(const std::string& path);

}  // namespace vornex::server
