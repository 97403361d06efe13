#include <fmt/format.h>
#include <vornex/Log.h>

#include <filesystem>
#include <future>

#include "core/DatabaseFolder.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "foundation/Text.h"
#include "server/ServerError.h"
#include "server/store/AssetSchema.h"
#include "server/store/AssetSearch.h"
#include "server/store/AssetStore.h"
#include "server/store/DocumentReader.h"
#include "server/store/ReaderPool.h"
#include "server/store/Sqlite.h"

namespace vornex::server {

namespace {

tl::unexpected<Error> unknownAsset(const std::string& id) {
  return serverFailure(StatusCode::itemNotFound, "there is no asset " + id);
}

constexpr const char* kIndexFolder = "index";
// How many documents are read at a time to be indexed, and of how many bytes.
constexpr std::size_t kIndexBatch = 16'384;
constexpr std::size_t kIndexBatchBytes = std::size_t{128} << 20;

// Gives identifiers of the time in seconds, random bits of the maker, and a count: later ones are greater.
class IdentifierMaker {
 public:
  std::string next() {
    auto now = std::chrono::system_clock::now().time_since_epoch();
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    return fmt::format("{:08x}{}{:06x}", static_cast<std::uint32_t>(seconds), maker_, ++count_ & 0xffffff);
  }

 private:
  const std::string maker_ = randomHex(5);
  std::uint32_t count_ = 0;
};

// Why a document cannot be stored, if it cannot.
Result<void> checkDocument(const std::vector<Value>& values, std::size_t size) {
  static const std::size_t kName = placeOfIndexedKey("name");
  const std::string* name = values[kName].ifString();
  if (!name) return serverFailure(StatusCode::invalidRequest, "an asset needs a name");
  if (name->size() > kMaximumIndexedText)
    return serverFailure(StatusCode::limitExceeded,
                         fmt::format("a name may take {} bytes, not {}", kMaximumIndexedText, name->size()));
  if (size <= kMaximumDocumentSize) return {};
  return serverFailure(StatusCode::limitExceeded,
                       fmt::format("an asset may take {} bytes, not {}", kMaximumDocumentSize, size));
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

// What tells one import from another: the time and the file.
using ImportKey = std::pair<NumberKey, std::string>;

std::optional<ImportKey> importKey(const Value& imported, const Value& master) {
  bool known = master.ifString() && !master.ifString()->empty() && imported.isNumber();
  return known ? std::optional(ImportKey(*numberKey(imported), *master.ifString())) : std::nullopt;
}

std::optional<ImportKey> importKey(const std::vector<Value>& values) {
  static const std::size_t kImported = placeOfIndexedKey("importdate");
  static const std::size_t kMaster = placeOfIndexedKey("masterpath");
  return importKey(values[kImported], values[kMaster]);
}

struct NewRow {
  std::int64_t number;
  std::string id;
  std::string json;
};

// What a batch does: rows that are still to be inserted, and the changes of the index, by identifier.
struct BatchChanges {
  std::vector<NewRow> rows;
  std::map<std::string, IndexedDocument> added;
  std::set<std::string> removed;
  std::map<ImportKey, std::string> imports;

  void add(std::int64_t row, const std::string& id, std::vector<Value> values) {
    // New identifiers are mostly the greatest.
    added.insert_or_assign(added.end(), id, IndexedDocument{row, id, std::move(values)});
  }

  std::vector<IndexedDocument> takeAdded() {
    std::vector<IndexedDocument> documents;
    documents.reserve(added.size());
    for (auto& [id, document] : added) documents.push_back(std::move(document));
    return documents;
  }
};

// Whether work on so many documents is worth a thread of its own.
std::launch policyFor(std::size_t documents) {
  constexpr std::size_t kLargeBatch = 64;
  return documents < kLargeBatch ? std::launch::deferred : std::launch::async;
}

// Half of a large batch is read in another thread.
std::vector<Result<SentDocument>> readDocuments(const std::vector<std::string_view>& documents) {
  std::vector<Result<SentDocument>> read(documents.size());
  auto readRange = [&](std::size_t begin, std::size_t end) {
    DocumentReader reader(indexedKeys());
    for (std::size_t i = begin; i < end; ++i) read[i] = reader.sent(documents[i]);
  };
  const std::size_t middle = documents.size() / 2;
  std::future<void> half = std::async(policyFor(documents.size()), [&] { readRange(0, middle); });
  readRange(middle, documents.size());
  half.get();
  return read;
}

// Searches and single documents share a few connections; what reads the whole database has one of its own.
class SQLiteAssetStore final : public AssetStore {
 public:
  SQLiteAssetStore(std::string path, Database writer)
      : path_(std::move(path)),
        writer_(std::move(writer)),
        readers_(path_),
        index_(appendPathComponent(deletingLastPathComponent(path_), kIndexFolder)) {}
  ~SQLiteAssetStore() override { index_.stop(); }

  /// Opens the index, brings it up to date or makes it anew.
  Result<void> openIndex();

  Result<std::vector<Result<std::string>>> create(const std::vector<std::string_view>& documents) override;
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
    Result<Value> document;
  };

  /// Runs `change` on each item in one transaction and tells the index what it noted. An item's own failure
  /// is its outcome; a failure of the database ends and undoes everything.
  template <typename Outcome, typename Items, typename Change>
  Result<std::vector<Result<Outcome>>> changeAll(Items& items, Change change);
  [[nodiscard]] Result<void> store(Transaction& transaction, BatchChanges& changes);
  [[nodiscard]] Result<void> insert(const std::vector<NewRow>& rows);
  void publish(const std::vector<std::string>& removed, std::future<SegmentPtr> added) noexcept;

  [[nodiscard]] Result<void> noteChange(std::int64_t row);
  [[nodiscard]] Result<OptionalString> findSameImport(const IndexSnapshot& snapshot,
                                                      const BatchChanges& changes, const ImportKey& key);
  static Result<std::optional<Row>> find(Statement& finding, const std::string& id);

  [[nodiscard]] Result<void> rebuildIndex(std::int64_t version);
  [[nodiscard]] Result<void> catchUp(std::int64_t version);
  [[nodiscard]] Result<void> indexRows(const std::string& condition, std::int64_t bound,
                                       std::int64_t version);
  [[nodiscard]] Result<void> recordCheckpoint(const CheckpointRecord& record);

  const std::string path_;
  std::mutex writing_;
  Database writer_;
  // Of the last write, and the next row's number.
  std::int64_t version_ = 0;
  std::int64_t nextRow_ = 1;
  IdentifierMaker identifiers_;
  ReaderPool readers_;
  AssetIndex index_;
};

// A failure that is the database's, not the item's.
bool endsBatch(const Error& error) {
  auto code = static_cast<StatusCode>(error.code);
  return code != StatusCode::invalidRequest && code != StatusCode::limitExceeded &&
         code != StatusCode::itemNotFound;
}

template <typename Outcome, typename Items, typename Change>
Result<std::vector<Result<Outcome>>> SQLiteAssetStore::changeAll(Items& items, Change change) {
  Result<Transaction> transaction = Transaction::begin(writer_, Transaction::Kind::write);
  if (!transaction) return tl::unexpected(transaction.error());
  std::int64_t firstRow = nextRow_;
  std::shared_ptr<void> undone(nullptr, [&](void*) { nextRow_ = firstRow; });
  std::vector<Result<Outcome>> outcomes;
  outcomes.reserve(items.size());
  BatchChanges changes;
  for (auto& item : items) {
    outcomes.push_back(change(item, changes));
    if (!outcomes.back() && endsBatch(outcomes.back().error()))
      return tl::unexpected(outcomes.back().error());
  }
  if (changes.added.empty() && changes.removed.empty()) return outcomes;
  if (Result<void> done = store(*transaction, changes); !done) return tl::unexpected(done.error());
  firstRow = nextRow_;
  return outcomes;
}

// A large batch is stored while it is indexed.
Result<void> SQLiteAssetStore::store(Transaction& transaction, BatchChanges& changes) {
  std::future<SegmentPtr> segment =
      std::async(policyFor(changes.added.size()), [&] { return makeSegment(changes.takeAdded()); });
  Result<void> done = insert(changes.rows);
  if (done)
    done = writer_.run(fmt::format("UPDATE state SET version = {}, next = {}", version_ + 1, nextRow_));
  if (done) done = transaction.commit();
  if (done) publish({changes.removed.begin(), changes.removed.end()}, std::move(segment));
  return done;
}

// What is stored must be found: without the memory for that the process ends, and the next one indexes the
// rows when it opens the library.
void SQLiteAssetStore::publish(const std::vector<std::string>& removed,
                               std::future<SegmentPtr> added) noexcept {
  index_.prepare(removed, added.get(), version_ + 1).publish();
  ++version_;
}

// The identifier of the asset that the same import made, stored or in the same batch; absent when there is
// none. Mostly nothing was imported at the same instant, and no document must be looked at.
Result<OptionalString> SQLiteAssetStore::findSameImport(const IndexSnapshot& snapshot,
                                                        const BatchChanges& changes, const ImportKey& key) {
  if (auto same = changes.imports.find(key); same != changes.imports.end()) return same->second;
  static const std::size_t kField = *fieldWithKey("importdate");
  static const std::vector<std::string> kKeys{"importdate", "masterpath"};
  DocumentReader reader(kKeys);
  for (std::int64_t row : rowsWithNumber(snapshot, kField, key.first)) {
    Result<Statement> reading = writer_.prepare("SELECT id, document FROM assets WHERE n = ?");
    if (!reading) return tl::unexpected(reading.error());
    reading->bind(row);
    Result<bool> found = reading->step();
    if (!found) return tl::unexpected(found.error());
    Result<Dictionary> stored = reader.entries(reading->text(1));
    auto entry = [&](const char* name) { return stored->find(name) ? *stored->find(name) : Value(); };
    if (stored && importKey(entry("importdate"), entry("masterpath")) == key) return reading->text(0);
  }
  return std::nullopt;
}

Result<std::vector<Result<std::string>>> SQLiteAssetStore::create(
    const std::vector<std::string_view>& documents) {
  std::vector<Result<SentDocument>> read = readDocuments(documents);
  std::lock_guard lock(writing_);
  std::shared_ptr<const IndexSnapshot> snapshot = index_.snapshot();
  auto change = [&](Result<SentDocument>& document, BatchChanges& changes) -> Result<std::string> {
    if (!document) return serverFailure(StatusCode::invalidRequest, document.error().message);
    std::optional<ImportKey> key = importKey(document->values);
    if (key) {
      Result<OptionalString> known = findSameImport(*snapshot, changes, *key);
      if (!known) return tl::unexpected(known.error());
      if (*known) return **known;
    }
    std::string id = identifiers_.next();
    bool empty = document->rest.front() == '}';
    std::string json = fmt::format(R"({{"_id":"{}"{}{})", id, empty ? "" : ",", document->rest);
    Result<void> sound = checkDocument(document->values, json.size());
    if (!sound) return tl::unexpected(sound.error());
    if (key) changes.imports.emplace(std::move(*key), id);
    changes.rows.push_back({nextRow_, id, std::move(json)});
    changes.add(nextRow_++, id, std::move(document->values));
    return id;
  };
  return changeAll<std::string>(read, change);
}

Result<void> SQLiteAssetStore::insert(const std::vector<NewRow>& rows) {
  if (rows.empty()) return {};
  Result<Statement> inserting = writer_.prepare("INSERT INTO assets(n, id, document) VALUES (?, ?, ?)");
  if (!inserting) return tl::unexpected(inserting.error());
  for (const NewRow& row : rows) {
    inserting->reset();
    inserting->bind(row.number);
    inserting->bindText(row.id);
    inserting->bindText(row.json);
    if (Result<void> inserted = inserting->run(); !inserted) return inserted;
  }
  return {};
}

Result<std::optional<SQLiteAssetStore::Row>> SQLiteAssetStore::find(Statement& finding,
                                                                    const std::string& id) {
  finding.reset();
  finding.bindText(id);
  Result<bool> found = finding.step();
  if (!found) return tl::unexpected(found.error());
  if (!*found) return std::nullopt;
  Row row{finding.integer(0), parseJson(withValidText(finding.text(1)))};
  finding.reset();
  return row;
}

// Until when somebody who asks for little waits for a connection.
static ReaderPool::Deadline soon() {
  return std::chrono::steady_clock::now() + std::chrono::seconds(10);
}

static constexpr const char* kFindRow = "SELECT n, document FROM assets WHERE id = ?";

Result<void> SQLiteAssetStore::noteChange(std::int64_t row) {
  return writer_.run(fmt::format("INSERT OR REPLACE INTO changes VALUES ({}, {})", row, version_ + 1));
}

Result<std::vector<Result<std::string>>> SQLiteAssetStore::update(const Array& items) {
  std::lock_guard lock(writing_);
  Result<Statement> finding = writer_.prepare(kFindRow);
  Result<Statement> storing = writer_.prepare("UPDATE assets SET document = ? WHERE n = ?");
  if (!finding) return tl::unexpected(finding.error());
  if (!storing) return tl::unexpected(storing.error());
  auto change = [&](const Value& item, BatchChanges& noted) -> Result<std::string> {
    const Dictionary* changes = item.ifDictionary();
    const Value* id = changes ? changes->find("_id") : nullptr;
    if (!id || !id->ifString())
      return serverFailure(StatusCode::invalidRequest, "a change is an object with an \"_id\"");
    Result<std::optional<Row>> row = find(*finding, *id->ifString());
    if (!row) return tl::unexpected(row.error());
    if (!*row) return unknownAsset(*id->ifString());
    Result<Value>& stored = (*row)->document;
    Dictionary* document = stored ? stored->ifDictionary() : nullptr;
    if (!document)
      return serverFailure(StatusCode::databaseFailed,
                           "the stored document of " + *id->ifString() + " is damaged");
    mergeInto(*document, *changes);
    std::string json = writeJson(*document);
    std::vector<Value> values = indexedValues(*document);
    if (Result<void> sound = checkDocument(values, json.size()); !sound) return tl::unexpected(sound.error());
    storing->reset();
    storing->bindText(json);
    storing->bind((*row)->number);
    Result<void> changed = storing->run().and_then([&] { return noteChange((*row)->number); });
    if (!changed) return tl::unexpected(changed.error());
    noted.removed.insert(*id->ifString());
    noted.add((*row)->number, *id->ifString(), std::move(values));
    return *id->ifString();
  };
  return changeAll<std::string>(items, change);
}

Result<std::vector<Result<Dictionary>>> SQLiteAssetStore::remove(const std::vector<std::string>& ids) {
  std::lock_guard lock(writing_);
  Result<Statement> finding = writer_.prepare(kFindRow);
  Result<Statement> removing = writer_.prepare("DELETE FROM assets WHERE n = ?");
  if (!finding) return tl::unexpected(finding.error());
  if (!removing) return tl::unexpected(removing.error());
  auto change = [&](const std::string& id, BatchChanges& changes) -> Result<Dictionary> {
    Result<std::optional<Row>> row = find(*finding, id);
    if (!row) return tl::unexpected(row.error());
    if (!*row) return unknownAsset(id);
    removing->reset();
    removing->bind((*row)->number);
    Result<void> removed = removing->run().and_then([&] { return noteChange((*row)->number); });
    if (!removed) return tl::unexpected(removed.error());
    changes.removed.insert(id);
    const Dictionary* document = (*row)->document ? (*row)->document->ifDictionary() : nullptr;
    return document ? *document : Dictionary{{"_id", id}};
  };
  return changeAll<Dictionary>(ids, change);
}

Result<void> SQLiteAssetStore::openIndex() {
  Result<std::int64_t> version = writer_.integer("SELECT version FROM state");
  Result<std::int64_t> next = writer_.integer("SELECT next FROM state");
  Result<std::int64_t> stamp = writer_.integer("SELECT stamp FROM state");
  for (const Result<std::int64_t>* result : {&version, &next, &stamp})
    if (!*result) return tl::unexpected(result->error());
  version_ = *version;
  nextRow_ = *next;
  Result<void> made = createDirectories(index_.folder());
  if (!made) return made;
  Result<void> ready;
  Result<IndexSnapshot> stored = readCheckpoint(index_.folder(), *stamp);
  if (stored) {
    index_.restore(std::move(*stored));
    ready = catchUp(*version);
  } else {
    if (*version > 0)
      logLine(LogLevel::warning, fmt::format("The search index of {} is made anew: {}", path_,
                                             *stamp == 0 ? "there is none" : stored.error().message));
    ready = rebuildIndex(*version);
  }
  if (ready) index_.start([this](const CheckpointRecord& record) { return recordCheckpoint(record); });
  return ready;
}

Result<void> SQLiteAssetStore::rebuildIndex(std::int64_t version) {
  return indexRows("n > ?", 0, version);
}

// Takes over what was written since the checkpoint.
Result<void> SQLiteAssetStore::catchUp(std::int64_t version) {
  std::set<std::int64_t> changed;
  Result<Statement> reading = writer_.prepare("SELECT n FROM changes");
  if (!reading) return tl::unexpected(reading.error());
  for (;;) {
    Result<bool> row = reading->step();
    if (!row) return tl::unexpected(row.error());
    if (!*row) break;
    changed.insert(reading->integer(0));
  }
  if (!changed.empty()) index_.removeRows(changed);
  return indexRows("n IN (SELECT n FROM changes UNION SELECT n FROM assets WHERE n > ?)",
                   index_.snapshot()->lastRow, version);
}

Result<void> SQLiteAssetStore::indexRows(const std::string& condition, std::int64_t bound,
                                         std::int64_t version) {
  Result<Statement> reading =
      writer_.prepare("SELECT n, id, document FROM assets WHERE " + condition + " ORDER BY n");
  if (!reading) return tl::unexpected(reading.error());
  reading->bind(bound);
  DocumentReader reader(indexedKeys());
  for (bool more = true; more;) {
    std::vector<IndexedDocument> batch;
    std::size_t bytes = 0;
    while (more && batch.size() < kIndexBatch && bytes < kIndexBatchBytes) {
      Result<bool> row = reading->step();
      if (!row) return tl::unexpected(row.error());
      more = *row;
      if (!more) break;
      // A damaged document has no keys; whoever reads it learns about it.
      std::string document = reading->text(2);
      bytes += document.size();
      Result<Dictionary> entries = reader.entries(document);
      batch.push_back({reading->integer(0), reading->text(1), indexedValues(entries.value_or(Dictionary()))});
    }
    index_.prepare({}, makeSegment(std::move(batch)), version).publish();
    Result<void> merged = index_.mergeAll();
    if (!merged) return merged;
  }
  return {};
}

Result<void> SQLiteAssetStore::recordCheckpoint(const CheckpointRecord& record) {
  std::lock_guard lock(writing_);
  return Transaction::begin(writer_, Transaction::Kind::write).and_then([&](Transaction transaction) {
    std::string sql = fmt::format("UPDATE state SET stamp = {}; DELETE FROM changes WHERE version <= {}",
                                  record.stamp, record.version);
    return writer_.run(sql).and_then([&] { return transaction.commit(); });
  });
}

Result<std::optional<std::string>> SQLiteAssetStore::document(const std::string& id) {
  return readers_.use(soon(), [&](Database& reader) -> Result<std::optional<std::string>> {
    Result<Statement> finding = reader.prepare(kFindRow);
    if (!finding) return tl::unexpected(finding.error());
    finding->bindText(id);
    Result<bool> found = finding->step();
    if (!found) return tl::unexpected(found.error());
    return *found ? std::optional(withValidText(finding->text(1))) : std::nullopt;
  });
}

Result<SearchPage> SQLiteAssetStore::search(const SearchRequest& request) {
  auto deadline = TimeLimit::Clock::now() + request.timeLimit;
  return readers_.use(deadline,
                      [&](Database& reader) { return searchAssets(reader, index_, request, deadline); });
}

Result<std::int64_t> SQLiteAssetStore::count() {
  return readers_.use(soon(), [](Database& reader) { return reader.integer("SELECT count(*) FROM assets"); });
}

Result<void> SQLiteAssetStore::checkIntegrity() {
  Result<Database> reader = openAssetReader(path_);
  if (!reader) return tl::unexpected(reader.error());
  Result<Statement> checking = reader->prepare("PRAGMA integrity_check(1)");
  if (!checking) return tl::unexpected(checking.error());
  Result<bool> row = checking->step();
  if (!row) return tl::unexpected(row.error());
  std::string answer = checking->text(0);
  if (answer == "ok") return {};
  return serverFailure(StatusCode::databaseFailed, "the database " + path_ + " is damaged: " + answer);
}

Result<void> SQLiteAssetStore::snapshot(const std::string& folder) {
  std::error_code unreadable;
  if (!std::filesystem::is_empty(folder, unreadable) || unreadable)
    return serverFailure(StatusCode::invalidRequest, "a snapshot needs an empty folder, not " + folder);
  std::string path = appendPathComponent(folder, kDatabaseFileName);
  Result<void> copied = openAssetReader(path_).and_then([&](Database reader) { return reader.copyTo(path); });
  if (copied) return syncDirectory(folder);
  std::error_code ended;
  for (std::filesystem::directory_iterator entry(folder, ended), end; !ended && entry != end;
       entry.increment(ended)) {
    std::error_code ignored;
    std::filesystem::remove(entry->path(), ignored);
  }
  return copied;
}

}  // namespace

Result<std::vector<Result<std::string>>> AssetStore::create(const Array& documents) {
  std::vector<std::string> texts;
  for (const Value& document : documents) texts.push_back(writeJson(document));
  return create(std::vector<std::string_view>(texts.begin(), texts.end()));
}

Result<std::unique_ptr<AssetStore>> openSQLiteAssetStore(const std::string& folder, bool mayCreate) {
  std::string path = appendPathComponent(folder, kDatabaseFileName);
  if (!mayCreate && !isDatabaseFolder(folder))
    return serverFailure(StatusCode::databaseNotFound, "the database is missing");
  Result<void> made = createDirectories(folder);
  if (!made) return tl::unexpected(made.error());
  Result<Database> writer = openAssetDatabase(path);
  if (!writer) return tl::unexpected(writer.error());
  Result<void> synced = syncDirectory(folder);
  if (!synced) return tl::unexpected(synced.error());
  auto store = std::make_unique<SQLiteAssetStore>(std::move(path), std::move(*writer));
  Result<void> ready = store->openIndex();
  if (!ready) return tl::unexpected(ready.error());
  return store;
}

}  // namespace vornex::server
