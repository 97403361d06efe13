#include "server/store/AssetSchema.h"

#include <fmt/format.h>

#include "server/ServerError.h"

namespace vornex::server {

namespace {

constexpr std::int64_t kApplicationId = 0x56524e58;
constexpr std::int64_t kSchemaVersion = 2;

constexpr const char* kSchema = R"(
CREATE TABLE assets(n INTEGER PRIMARY KEY, id TEXT NOT NULL UNIQUE, document TEXT NOT NULL);
CREATE TABLE changes(n INTEGER PRIMARY KEY, version INTEGER NOT NULL);
CREATE TABLE state(version INTEGER NOT NULL, next INTEGER NOT NULL, stamp INTEGER NOT NULL);
INSERT INTO state VALUES (0, 1, 0);
)";

// Version 1 searched in the database, with columns and indexes for it beside the documents.
constexpr const char* kUpgrade = R"(
DROP TRIGGER assets_inserted;
DROP TRIGGER assets_deleted;
DROP TRIGGER assets_updated;
DROP TABLE asset_text;
ALTER TABLE assets RENAME TO old_assets;
)";

constexpr const char* kUpgradeEnd = R"(
INSERT INTO assets SELECT n, id, document FROM old_assets;
UPDATE state SET next = (SELECT coalesce(max(n), 0) + 1 FROM assets);
DROP TABLE old_assets;
)";

tl::unexpected<Error> unusable(const std::string& path, const std::string& why) {
  return serverFailure(StatusCode::databaseFailed, fmt::format("the database {} {}", path, why));
}

// The version of the schema that the file has; 0 while it holds nothing.
Result<std::int64_t> inspect(Database& database, const std::string& path) {
  Result<std::int64_t> application = database.integer("PRAGMA application_id");
  Result<std::int64_t> version = database.integer("PRAGMA user_version");
  Result<std::int64_t> tables = database.integer("SELECT count(*) FROM sqlite_schema");
  for (const Result<std::int64_t>* result : {&application, &version, &tables})
    if (!*result) return tl::unexpected(result->error());
  if (*application == 0 && *version == 0 && *tables == 0) return 0;
  if (*application != kApplicationId) return unusable(path, "holds something else than assets");
  if (*version > kSchemaVersion)
    return unusable(path, fmt::format("was made by a newer version ({})", *version));
  const char* probe = *version == 1
                          ? "SELECT n, id, document FROM assets, asset_text LIMIT 1"
                          : "SELECT n, id, document, version, next, stamp FROM assets, state LIMIT 1";
  Result<Statement> readable = database.prepare(probe);
  if (!readable) return tl::unexpected(readable.error());
  return *version;
}

Result<void> makeSchema(Database& database, std::int64_t from) {
  std::string sql = from == 1 ? std::string(kUpgrade) + kSchema + kUpgradeEnd : kSchema;
  sql += fmt::format("PRAGMA application_id = {}; PRAGMA user_version = {};", kApplicationId, kSchemaVersion);
  return Transaction::begin(database, Transaction::Kind::write).and_then([&](Transaction transaction) {
    return database.run(sql).and_then([&] { return transaction.commit(); });
  });
}

Result<void> configure(Database& database, const std::string& pragmas) {
  return database.run("PRAGMA synchronous = FULL; PRAGMA temp_store = MEMORY; PRAGMA cache_size = -8192;" +
                      pragmas);
}

}  // namespace

Result<Database> openAssetDatabase(const std::string& path) {
  Result<Database> database = Database::open(path, Database::Mode::create);
  if (!database) return database;
  database->keepLogOnClose(true);
  Result<std::int64_t> version = inspect(*database, path);
  if (!version) return tl::unexpected(version.error());
  Result<void> ready = configure(
      *database, "PRAGMA page_size = 8192; PRAGMA journal_mode = WAL; PRAGMA journal_size_limit = 67108864");
  if (ready && *version < kSchemaVersion) ready = makeSchema(*database, *version);
  if (!ready) return tl::unexpected(ready.error());
  database->keepLogOnClose(false);
  return database;
}

Result<Database> openAssetReader(const std::string& path) {
  Result<Database> database = Database::open(path, Database::Mode::existing);
  if (!database) return database;
  Result<void> ready = configure(*database, "PRAGMA query_only = ON");
  if (!ready) return tl::unexpected(ready.error());
  return database;
}

}  // namespace vornex::server
