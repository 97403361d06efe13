#include "server/store/Sqlite.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <cerrno>

#include "core/StatusCode.h"

namespace vornex::server {

static constexpr int kBusyTimeoutMilliseconds = 10'000;

static StatusCode statusOf(sqlite3* database, int result) {
  switch (result & 0xff) {
    case SQLITE_FULL:
      return StatusCode::diskFull;
    case SQLITE_TOOBIG:
      return StatusCode::limitExceeded;
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN: {
      int cause = database ? sqlite3_system_errno(database) : 0;
      return cause == ENOSPC || cause == EDQUOT ? StatusCode::diskFull : StatusCode::databaseFailed;
    }
    default:
      return StatusCode::databaseFailed;
  }
}

static tl::unexpected<Error> databaseFailure(sqlite3* database, int result, std::string_view what) {
  const char* reason = database ? sqlite3_errmsg(database) : sqlite3_errstr(result);
  const char* file = database ? sqlite3_db_filename(database, "main") : nullptr;
  return failure(kServerErrorDomain, static_cast<std::int64_t>(statusOf(database, result)),
                 fmt::format("{} ({}): {}", what, file ? file : "", reason));
}

Statement::Statement(Statement&& other) noexcept
    : database_(other.database_),
      statement_(std::exchange(other.statement_, nullptr)),
      parameters_(other.parameters_),
      bindFailure_(other.bindFailure_) {}

Statement::~Statement() {
  sqlite3_finalize(statement_);
}

void Statement::bind(const Value& value) {
  int result = SQLITE_OK;
  int at = ++parameters_;
  if (const bool* boolean = value.ifBool())
    result = sqlite3_bind_int64(statement_, at, *boolean ? 1 : 0);
  else if (const std::int64_t* integer = value.ifInteger())
    result = sqlite3_bind_int64(statement_, at, *integer);
  else if (const std::uint64_t* unsignedInteger = value.ifUnsigned())
    result = sqlite3_bind_double(statement_, at, static_cast<double>(*unsignedInteger));
  else if (const double* real = value.ifReal())
    result = sqlite3_bind_double(statement_, at, *real);
  else if (const std::string* text = value.ifString())
    result = sqlite3_bind_text64(statement_, at, text->data(), text->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  else if (const Data* data = value.ifData())
    result = sqlite3_bind_blob64(statement_, at, data->data(), data->size(), SQLITE_TRANSIENT);
  else
    result = sqlite3_bind_null(statement_, at);
  if (result != SQLITE_OK) bindFailure_ = result;
}

void Statement::bindText(std::string_view text) {
  int result =
      sqlite3_bind_text64(statement_, ++parameters_, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
  if (result != SQLITE_OK) bindFailure_ = result;
}

Result<bool> Statement::step() {
  if (bindFailure_ != 0) return databaseFailure(database_, bindFailure_, "cannot bind a value");
  int result = sqlite3_step(statement_);
  if (result == SQLITE_ROW) return true;
  if (result == SQLITE_DONE) return false;
  return databaseFailure(database_, result, "cannot run a statement");
}

Result<void> Statement::run() {
  for (;;) {
    Result<bool> row = step();
    if (!row) return tl::unexpected(row.error());
    if (!*row) return {};
  }
}

void Statement::reset() {
  // The result repeats the failure of the last step, which has been reported.
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
  parameters_ = 0;
  bindFailure_ = 0;
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(statement_, column);
}

std::string Statement::text(int column) const {
  const void* bytes = sqlite3_column_text(statement_, column);
  if (!bytes) return {};
  return {static_cast<const char*>(bytes),
          static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
}

bool Statement::isNull(int column) const {
  return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

Database::Database(sqlite3* handle) : handle_(handle) {}

Database::Database(Database&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}

Database::~Database() {
  sqlite3_close_v2(handle_);
}

Result<Database> Database::open(const std::string& path, Mode mode) {
  sqlite3* handle = nullptr;
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  if (mode == Mode::create) flags |= SQLITE_OPEN_CREATE;
  int result = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
  Database database(handle);
  if (result != SQLITE_OK) return databaseFailure(handle, result, "cannot open the database " + path);
  sqlite3_busy_timeout(handle, kBusyTimeoutMilliseconds);
  return database;
}

Result<Statement> Database::prepare(std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  int result = sqlite3_prepare_v2(handle_, sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
  if (result != SQLITE_OK) return databaseFailure(handle_, result, "cannot prepare a statement");
  return Statement(handle_, statement);
}

Result<void> Database::run(const std::string& sql) {
  int result = sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr);
  if (result != SQLITE_OK) return databaseFailure(handle_, result, "cannot run a statement");
  return {};
}

Result<std::int64_t> Database::integer(std::string_view sql) {
  return prepare(sql).and_then([](Statement statement) -> Result<std::int64_t> {
    return statement.step().map([&](bool row) { return row ? statement.integer(0) : 0; });
  });
}

void Database::keepLogOnClose(bool keep) {
  sqlite3_db_config(handle_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, keep ? 1 : 0, nullptr);
}

Result<void> Database::copyTo(const std::string& path) {
  Result<Database> target = open(path, Mode::create);
  if (!target) return tl::unexpected(target.error());
  sqlite3_backup* backup = sqlite3_backup_init(target->handle_, "main", handle_, "main");
  if (!backup)
    return databaseFailure(target->handle_, sqlite3_errcode(target->handle_), "cannot copy to " + path);
  int result = sqlite3_backup_step(backup, -1);
  int finished = sqlite3_backup_finish(backup);
  if (result == SQLITE_DONE && finished == SQLITE_OK) return {};
  return databaseFailure(target->handle_, finished != SQLITE_OK ? finished : result,
                         "cannot copy to " + path);
}

Result<Transaction> Transaction::begin(Database& database, Kind kind) {
  return database.run(kind == Kind::write ? "BEGIN IMMEDIATE" : "BEGIN").map([&] {
    return Transaction(database);
  });
}

Transaction::Transaction(Transaction&& other) noexcept : database_(std::exchange(other.database_, nullptr)) {}

Transaction::~Transaction() {
  // Some failures have ended the transaction already.
  if (database_ && !sqlite3_get_autocommit(database_->handle_))
    sqlite3_exec(database_->handle_, "ROLLBACK", nullptr, nullptr, nullptr);
}

Result<void> Transaction::commit() {
  return database_->run("COMMIT");
}

}  // namespace vornex::server
