#include "server/store/AssetSchema.h"

#include <fmt/format.h>

#include <array>

#include "core/StatusCode.h"
#include "foundation/Text.h"

namespace vornex::server {

namespace {

struct Column {
  const char* key;
  const char* name;
};

constexpr std::array kExactColumns = {
    Column{"_id", "id"},
    Column{"type", "type"},
    Column{"project", "project"},
    Column{"group", "grp"},
    Column{"trash", "trash"},
    Column{"flagged", "flagged"},
    Column{"wantreview", "wantreview"},
    Column{"haslocation", "haslocation"},
    Column{"rating", "rating"},
    Column{"colorlabel", "colorlabel"},
    Column{"filesize", "filesize"},
    Column{"importtype", "importtype"},
    Column{"masterpath", "masterpath"},
    Column{"thumbnailpath", "thumbnailpath"},
    Column{"previewpath", "previewpath"},
    Column{"createdate", "createdate"},
    Column{"modifydate", "modifydate"},
    Column{"importdate", "importdate"},
    Column{"updatedate", "updatedate"},
    Column{"islivefolder", "islivefolder"},
    Column{"livefolder", "livefolder"},
    Column{"livesubfolder", "livesubfolder"},
    Column{"isfcpxlibrary", "isfcpxlibrary"},
    Column{"fcpx_library", "fcpx_library"},
    Column{"fcpx_event", "fcpx_event"},
    Column{"fcpx_multicam_uid", "fcpx_multicam_uid"},
};

constexpr std::array kTextColumns = {"name", "tags", "fileext", "importfrompath"};

constexpr std::int64_t kApplicationId = 0x56524e58;
constexpr std::int64_t kSchemaVersion = 1;

// Each ends with what orders the pages, so that one walk along the index gives them.
constexpr const char* kIndexes = R"(
CREATE INDEX assets_importdate ON assets(importdate, id);
CREATE INDEX assets_createdate ON assets(createdate, id);
CREATE INDEX assets_name ON assets(name, id);
CREATE INDEX assets_filesize ON assets(filesize, id);
CREATE INDEX assets_masterpath ON assets(masterpath, importdate, id);
CREATE INDEX assets_thumbnailpath ON assets(thumbnailpath, importdate, id);
CREATE INDEX assets_previewpath ON assets(previewpath, importdate, id);
CREATE INDEX assets_type ON assets(trash, type, importdate, id);
CREATE INDEX assets_project ON assets(project, grp, importdate, id);
CREATE INDEX assets_group ON assets(grp, importdate, id);
CREATE INDEX assets_flagged ON assets(flagged, importdate, id);
CREATE INDEX assets_wantreview ON assets(wantreview, importdate, id);
CREATE INDEX assets_haslocation ON assets(haslocation, importdate, id);
CREATE INDEX assets_livefolder ON assets(livefolder, livesubfolder, importdate, id);
CREATE INDEX assets_livesubfolder ON assets(livesubfolder, importdate, id);
CREATE INDEX assets_fcpx_library ON assets(fcpx_library, fcpx_event, importdate, id);
CREATE INDEX assets_fcpx_event ON assets(fcpx_event, importdate, id);
)";

std::string textColumns(const char* prefix) {
  return fmt::format("{}{}", prefix, fmt::join(kTextColumns, fmt::format(", {}", prefix)));
}

std::string schema() {
  std::string columns;
  for (const Column& column : kExactColumns)
    columns +=
        fmt::format("{}{}, ", column.name, std::string_view(column.name) == "id" ? " NOT NULL UNIQUE" : "");
  std::string changed;
  for (const char* column : kTextColumns)
    changed += fmt::format("{}old.{} IS NOT new.{}", changed.empty() ? "" : " OR ", column, column);
  std::string names = textColumns("");
  std::string removal =
      fmt::format("INSERT INTO asset_text(asset_text, rowid, {}) VALUES ('delete', old.n, {});", names,
                  textColumns("old."));
  std::string insertion =
      fmt::format("INSERT INTO asset_text(rowid, {}) VALUES (new.n, {});", names, textColumns("new."));
  std::string sql = fmt::format("CREATE TABLE assets(n INTEGER PRIMARY KEY, {}{}, document TEXT NOT NULL);",
                                columns, names);
  sql += kIndexes;
  sql += fmt::format(
      "CREATE VIRTUAL TABLE asset_text USING fts5({}, content='assets', content_rowid='n',"
      " tokenize='trigram case_sensitive 1');",
      names);
  sql += fmt::format("CREATE TRIGGER assets_inserted AFTER INSERT ON assets BEGIN {} END;", insertion);
  sql += fmt::format("CREATE TRIGGER assets_deleted AFTER DELETE ON assets BEGIN {} END;", removal);
  sql += fmt::format("CREATE TRIGGER assets_updated AFTER UPDATE OF {} ON assets WHEN {} BEGIN {} {} END;",
                     names, changed, removal, insertion);
  sql += fmt::format("PRAGMA application_id = {}; PRAGMA user_version = {};", kApplicationId, kSchemaVersion);
  return sql;
}

Value exactValue(const Value* value) {
  if (!value || value->isNull()) return nullptr;
  bool scalar = value->ifBool() || value->isNumber() || value->ifString();
  return scalar ? *value : Value(Data{1});
}

// The tokenizer ends at a NUL.
std::string indexedText(const std::string& text) {
  std::string folded = foldedText(text);
  std::replace(folded.begin(), folded.end(), '\0', '\n');
  return folded;
}

Value textValue(const Value* value) {
  if (!value) return nullptr;
  if (const std::string* text = value->ifString()) return indexedText(*text);
  const Array* array = value->ifArray();
  if (!array) return nullptr;
  std::string lines;
  for (const Value& element : *array)
    if (const std::string* text = element.ifString()) lines += indexedText(*text) + "\n";
  return lines;
}

tl::unexpected<Error> unusable(const std::string& path, const std::string& why) {
  return failure(kServerErrorDomain, static_cast<std::int64_t>(StatusCode::databaseFailed),
                 fmt::format("the database {} {}", path, why));
}

// Whether the file holds nothing yet.
Result<bool> inspect(Database& database, const std::string& path) {
  Result<std::int64_t> application = database.integer("PRAGMA application_id");
  Result<std::int64_t> version = database.integer("PRAGMA user_version");
  Result<std::int64_t> tables = database.integer("SELECT count(*) FROM sqlite_schema");
  for (const Result<std::int64_t>* result : {&application, &version, &tables})
    if (!*result) return tl::unexpected(result->error());
  if (*application == 0 && *version == 0 && *tables == 0) return true;
  if (*application != kApplicationId) return unusable(path, "holds something else than assets");
  if (*version > kSchemaVersion)
    return unusable(path, fmt::format("was made by a newer version ({})", *version));
  Result<Statement> probe = database.prepare(fmt::format(
      "SELECT n, document, {} FROM assets WHERE n IN (SELECT rowid FROM asset_text)", columnNames()));
  if (!probe) return tl::unexpected(probe.error());
  return false;
}

Result<void> makeSchema(Database& database) {
  return Transaction::begin(database, Transaction::Kind::write).and_then([&](Transaction transaction) {
    return database.run(schema()).and_then([&] { return transaction.commit(); });
  });
}

}  // namespace

const SqlVocabulary& assetVocabulary() {
  static const SqlVocabulary vocabulary = [] {
    SqlVocabulary made;
    for (const Column& column : kExactColumns)
      made.columns[column.key] = fmt::format("assets.{}", column.name);
    made.textKeys.insert(kTextColumns.begin(), kTextColumns.end());
    return made;
  }();
  return vocabulary;
}

std::string sortColumn(std::string_view key) {
  // Of the text columns, the one of an array is no order.
  static const std::vector<Column> kColumns = {{"_id", "id"},
                                               {"name", "name"},
                                               {"fileext", "fileext"},
                                               {"importfrompath", "importfrompath"},
                                               {"type", "type"},
                                               {"rating", "rating"},
                                               {"filesize", "filesize"},
                                               {"createdate", "createdate"},
                                               {"modifydate", "modifydate"},
                                               {"importdate", "importdate"},
                                               {"updatedate", "updatedate"}};
  for (const Column& column : kColumns)
    if (key == column.key) return fmt::format("assets.{}", column.name);
  return {};
}

Value sortValue(const Value* value) {
  if (!value) return nullptr;
  if (const std::string* text = value->ifString()) return foldedText(*text);
  return value->ifBool() || value->isNumber() ? *value : Value();
}

const std::string& columnNames() {
  static const std::string names = [] {
    std::string joined;
    for (const Column& column : kExactColumns) joined += fmt::format("{}, ", column.name);
    return joined + textColumns("");
  }();
  return names;
}

std::size_t columnCount() {
  return kExactColumns.size() + kTextColumns.size();
}

std::vector<Value> columnValues(const Dictionary& document) {
  std::vector<Value> values;
  values.reserve(columnCount());
  for (const Column& column : kExactColumns) values.push_back(exactValue(document.find(column.key)));
  for (const char* key : kTextColumns) values.push_back(textValue(document.find(key)));
  return values;
}

static Result<void> configure(Database& database, const std::string& pragmas) {
  return database.run("PRAGMA synchronous = FULL; PRAGMA temp_store = MEMORY; PRAGMA cache_size = -32768;" +
                      pragmas);
}

Result<Database> openAssetDatabase(const std::string& path) {
  Result<Database> database = Database::open(path, Database::Mode::create);
  if (!database) return database;
  database->keepLogOnClose(true);
  Result<bool> empty = inspect(*database, path);
  if (!empty) return tl::unexpected(empty.error());
  Result<void> ready = configure(
      *database, "PRAGMA page_size = 8192; PRAGMA journal_mode = WAL; PRAGMA journal_size_limit = 67108864");
  if (ready && *empty) ready = makeSchema(*database);
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
