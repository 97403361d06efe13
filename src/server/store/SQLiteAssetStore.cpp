#include <fmt/format.h>

#include <filesystem>

#include "core/StatusCode.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "foundation/Text.h"
#include "server/store/AssetSchema.h"
#include "server/store/AssetSearch.h"
#include "server/store/AssetStore.h"
#include "server/store/ReaderPool.h"
#include "server/store/Sqlite.h"

namespace vornex::server {

namespace {

tl::unexpected<Error> storeFailure(StatusCode code, std::string message) {
  return failure(kServerErrorDomain, static_cast<std::int64_t>(code), std::move(message));
}

tl::unexpected<Error> unknownAsset(const std::string& id) {
  return storeFailure(StatusCode::itemNotFound, "there is no asset " + id);
}

// The time in seconds and random bits: later assets have greater identifiers.
std::string makeIdentifier() {
  auto now = std::chrono::system_clock::now().time_since_epoch();
  auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
  return fmt::format("{:08x}{}", static_cast<std::uint32_t>(seconds), randomHex(8));
}

// The document as it is stored, or why it cannot be.
Result<std::string> storedText(const Dictionary& document) {
  const Value* name = document.find("name");
  if (!name || !name->ifString()) return storeFailure(StatusCode::invalidRequest, "an asset needs a name");
  std::string json = writeJson(document);
  if (json.size() > kMaximumDocumentSize)
    return storeFailure(StatusCode::limitExceeded,
                        fmt::format("an asset may take {} bytes, not {}", kMaximumDocumentSize, json.size()));
  return json;
}

void mergeInto(Dictionary& target, const Dictionary& changes) {
  for (const auto& [key, value] : changes) {
    Value& known = target[key];
    Dictionary* knownDictionary = known.ifDictionary();
    const Dictionary* changedDictionary = value.ifDictionary();
    if (knownDictionary && changedDictionary)
      mergeInto(*knownDictionary, *changedDictionary);
    else
      known = value;
  }
}

class SQLiteAssetStore final : public AssetStore {
 public:
  SQLiteAssetStore(std::string path, Database writer)
      : path_(std::move(path)), writer_(std::move(writer)), readers_(path_) {}

  Result<std::vector<Result<std::string>>> create(const Array& documents) override;
  Result<std::vector<Result<std::string>>> update(const Array& items) override;
  Result<std::vector<Result<Dictionary>>> remove(const std::vector<std::string>& ids) override;
  Result<std::optional<std::string>> document(const std::string& id) override;
  Result<SearchPage> search(const SearchRequest& request) override;
  Result<std::int64_t> count() override;
  Result<void> checkIntegrity() override;
  Result<void> snapshot(const std::string& folder) override;

 private:
  struct Row {
    std::int64_t number;
    Dictionary document;
  };

  /// Runs `change` on each item in one transaction. An item's own failure is its outcome; a failure of the
  /// database ends and undoes everything.
  template <typename Outcome, typename Items, typename Change>
  Result<std::vector<Result<Outcome>>> changeAll(const Items& items, Change change);

  static Result<std::optional<Row>> find(Statement& finding, const std::string& id);

  const std::string path_;
  std::mutex writing_;
  Database writer_;
  ReaderPool readers_;
};

// A failure that is the database's, not the item's.
bool endsBatch(const Error& error) {
  auto code = static_cast<StatusCode>(error.code);
  return code != StatusCode::invalidRequest && code != StatusCode::limitExceeded &&
         code != StatusCode::itemNotFound;
}

template <typename Outcome, typename Items, typename Change>
Result<std::vector<Result<Outcome>>> SQLiteAssetStore::changeAll(const Items& items, Change change) {
  Result<Transaction> transaction = Transaction::begin(writer_, Transaction::Kind::write);
  if (!transaction) return tl::unexpected(transaction.error());
  std::vector<Result<Outcome>> outcomes;
  outcomes.reserve(items.size());
  for (const auto& item : items) {
    outcomes.push_back(change(item));
    if (!outcomes.back() && endsBatch(outcomes.back().error()))
      return tl::unexpected(outcomes.back().error());
  }
  Result<void> committed = transaction->commit();
  if (!committed) return tl::unexpected(committed.error());
  return outcomes;
}

// The identifier of the stored asset that the same import made; absent when there is none.
static Result<OptionalString> findSameImport(Statement& finding, const Dictionary& document) {
  const Value* master = document.find("masterpath");
  const Value* imported = document.find("importdate");
  bool namesImport =
      master && master->ifString() && !master->ifString()->empty() && imported && imported->isNumber();
  if (!namesImport) return std::nullopt;
  finding.reset();
  finding.bind(*master);
  finding.bind(*imported);
  Result<bool> found = finding.step();
  if (!found) return tl::unexpected(found.error());
  OptionalString id;
  if (*found) id = finding.text(0);
  finding.reset();
  return id;
}

Result<std::vector<Result<std::string>>> SQLiteAssetStore::create(const Array& documents) {
  std::lock_guard lock(writing_);
  std::string places = "?";
  for (std::size_t i = 0; i < columnCount(); ++i) places += ", ?";
  Result<Statement> inserting =
      writer_.prepare(fmt::format("INSERT INTO assets({}, document) VALUES ({})", columnNames(), places));
  if (!inserting) return tl::unexpected(inserting.error());
  Result<Statement> finding =
      writer_.prepare("SELECT id FROM assets WHERE masterpath = ? AND importdate = ? ORDER BY n LIMIT 1");
  if (!finding) return tl::unexpected(finding.error());
  return changeAll<std::string>(documents, [&](const Value& item) -> Result<std::string> {
    const Dictionary* given = item.ifDictionary();
    if (!given) return storeFailure(StatusCode::invalidRequest, "an asset is an object");
    Result<OptionalString> known = findSameImport(*finding, *given);
    if (!known) return tl::unexpected(known.error());
    if (*known) return **known;
    std::string id = makeIdentifier();
    Dictionary document{{"_id", id}};
    document.merge(*given);
    document.set("_id", id);
    Result<std::string> json = storedText(document);
    if (!json) return json;
    inserting->reset();
    for (const Value& value : columnValues(document)) inserting->bind(value);
    inserting->bind(*json);
    return inserting->run().map([&] { return id; });
  });
}

Result<std::optional<SQLiteAssetStore::Row>> SQLiteAssetStore::find(Statement& finding,
                                                                    const std::string& id) {
  finding.reset();
  finding.bind(id);
  Result<bool> found = finding.step();
  if (!found) return tl::unexpected(found.error());
  if (!*found) return std::nullopt;
  Result<Value> value = parseJson(finding.text(1));
  Dictionary* document = value ? value->ifDictionary() : nullptr;
  if (!document)
    return storeFailure(StatusCode::databaseFailed, "the stored document of " + id + " is damaged");
  Row row{finding.integer(0), std::move(*document)};
  finding.reset();
  return row;
}

static constexpr const char* kFindRow = "SELECT n, document FROM assets WHERE id = ?";

Result<std::vector<Result<std::string>>> SQLiteAssetStore::update(const Array& items) {
  std::lock_guard lock(writing_);
  std::string places = "?";
  for (std::size_t i = 1; i < columnCount(); ++i) places += ", ?";
  Result<Statement> finding = writer_.prepare(kFindRow);
  Result<Statement> storing = writer_.prepare(
      fmt::format("UPDATE assets SET ({}) = ({}), document = ? WHERE n = ?", columnNames(), places));
  if (!finding) return tl::unexpected(finding.error());
  if (!storing) return tl::unexpected(storing.error());
  return changeAll<std::string>(items, [&](const Value& item) -> Result<std::string> {
    const Dictionary* changes = item.ifDictionary();
    const Value* id = changes ? changes->find("_id") : nullptr;
    if (!id || !id->ifString())
      return storeFailure(StatusCode::invalidRequest, "a change is an object with an \"_id\"");
    Result<std::optional<Row>> row = find(*finding, *id->ifString());
    if (!row) return tl::unexpected(row.error());
    if (!*row) return unknownAsset(*id->ifString());
    Dictionary& document = (*row)->document;
    mergeInto(document, *changes);
    Result<std::string> json = storedText(document);
    if (!json) return json;
    storing->reset();
    for (const Value& value : columnValues(document)) storing->bind(value);
    storing->bind(*json);
    storing->bind((*row)->number);
    return storing->run().map([&] { return *id->ifString(); });
  });
}

Result<std::vector<Result<Dictionary>>> SQLiteAssetStore::remove(const std::vector<std::string>& ids) {
  std::lock_guard lock(writing_);
  Result<Statement> finding = writer_.prepare(kFindRow);
  Result<Statement> removing = writer_.prepare("DELETE FROM assets WHERE n = ?");
  if (!finding) return tl::unexpected(finding.error());
  if (!removing) return tl::unexpected(removing.error());
  return changeAll<Dictionary>(ids, [&](const std::string& id) -> Result<Dictionary> {
    Result<std::optional<Row>> row = find(*finding, id);
    if (!row) return tl::unexpected(row.error());
    if (!*row) return unknownAsset(id);
    removing->reset();
    removing->bind((*row)->number);
    return removing->run().map([&] { return std::move((*row)->document); });
  });
}

Result<std::optional<std::string>> SQLiteAssetStore::document(const std::string& id) {
  return readers_.use([&](Database& reader) -> Result<std::optional<std::string>> {
    Result<Statement> finding = reader.prepare(kFindRow);
    if (!finding) return tl::unexpected(finding.error());
    finding->bind(id);
    Result<bool> found = finding->step();
    if (!found) return tl::unexpected(found.error());
    return *found ? std::optional(finding->text(1)) : std::nullopt;
  });
}

Result<SearchPage> SQLiteAssetStore::search(const SearchRequest& request) {
  return readers_.use([&](Database& reader) { return searchAssets(reader, request); });
}

Result<std::int64_t> SQLiteAssetStore::count() {
  return readers_.use([](Database& reader) { return reader.integer("SELECT count(*) FROM assets"); });
}

Result<void> SQLiteAssetStore::checkIntegrity() {
  Result<void> sound = readers_.use([&](Database& reader) -> Result<void> {
    Result<Statement> checking = reader.prepare("PRAGMA integrity_check(1)");
    if (!checking) return tl::unexpected(checking.error());
    Result<bool> row = checking->step();
    if (!row) return tl::unexpected(row.error());
    std::string answer = checking->text(0);
    if (answer == "ok") return {};
    return storeFailure(StatusCode::databaseFailed, "the database " + path_ + " is damaged: " + answer);
  });
  if (!sound) return sound;
  std::lock_guard lock(writing_);
  return writer_.run("INSERT INTO asset_text(asset_text, rank) VALUES ('integrity-check', 1)");
}

Result<void> SQLiteAssetStore::snapshot(const std::string& folder) {
  std::error_code unreadable;
  if (!std::filesystem::is_empty(folder, unreadable) || unreadable)
    return storeFailure(StatusCode::invalidRequest, "a snapshot needs an empty folder, not " + folder);
  std::string path = appendPathComponent(folder, kDatabaseFileName);
  Result<void> copied = readers_.use([&](Database& reader) { return reader.copyTo(path); });
  if (copied) return syncDirectory(folder);
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
    std::filesystem::remove(entry.path(), ignored);
  return copied;
}

}  // namespace

Result<std::unique_ptr<AssetStore>> openSQLiteAssetStore(const std::string& folder, bool mayCreate) {
  std::string path = appendPathComponent(folder, kDatabaseFileName);
  if (!mayCreate && !fileExists(path))
    return storeFailure(StatusCode::databaseNotFound, "the database is missing");
  Result<void> made = createDirectories(folder);
  if (!made) return tl::unexpected(made.error());
  Result<Database> writer = openAssetDatabase(path);
  if (!writer) return tl::unexpected(writer.error());
  Result<void> synced = syncDirectory(folder);
  if (!synced) return tl::unexpected(synced.error());
  return std::make_unique<SQLiteAssetStore>(std::move(path), std::move(*writer));
}

}  // namespace vornex::server
