#pragma once

#include <vornex/Value.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/Error.h"

struct sqlite3;
struct sqlite3_stmt;

namespace vornex::server {

/// A prepared statement. Bindings fill its parameters from the first one on; what goes wrong with one is the
/// error of the next step.
///
/// Thread-safety: one thread at a time, the one that uses its database.
class Statement {
 public:
  Statement(Statement&& other) noexcept;
  Statement& operator=(Statement&&) = delete;
  ~Statement();

  /// Null, booleans (as 1 and 0), numbers, strings and data; unsigned integers beyond 64 signed bits as
  /// doubles.
  void bind(const Value& value);
  /// A text that stays where it is until the statement is reset.
  void bindText(std::string_view text);

  /// Whether there is a row.
  [[nodiscard]] Result<bool> step();
  /// Runs to the end, for statements that give nothing of interest.
  [[nodiscard]] Result<void> run();
  /// Makes the statement ready to be bound and run again.
  void reset();

  // Columns of the current row, from 0.

  std::int64_t integer(int column) const;
  std::string text(int column) const;
  bool isNull(int column) const;

 private:
  friend class Database;
  Statement(sqlite3* database, sqlite3_stmt* statement) : database_(database), statement_(statement) {}

  sqlite3* database_;
  sqlite3_stmt* statement_;
  int parameters_ = 0;
  int bindFailure_ = 0;
};

/// One connection to a database file.
///
/// Errors have the domain "VORNEX SERVER": `diskFull`, `limitExceeded` for
/// what is too large, else `databaseFailed`. The connection stays usable after them. Thread-safety: one
/// thread at a time.
class Database {
 public:
  enum class Mode { existing, create };

  [[nodiscard]] static Result<Database> open(const std::string& path, Mode mode);
  Database(Database&& other) noexcept;
  Database& operator=(Database&&) = delete;
  ~Database();

  [[nodiscard]] Result<Statement> prepare(std::string_view sql);
  /// Runs statements separated by semicolons and ignores their rows.
  [[nodiscard]] Result<void> run(const std::string& sql);
  /// The first column of the first row; 0 when there is none.
  [[nodiscard]] Result<std::int64_t> integer(std::string_view sql);

  /// Whether closing the last connection leaves the write-ahead log beside the file instead of working it in.
  void keepLogOnClose(bool keep);

  /// Writes all of this database, as it is at one moment, into a new file. Blocks nobody.
  [[nodiscard]] Result<void> copyTo(const std::string& path);

 private:
  friend class Transaction;
  explicit Database(sqlite3* handle);

  sqlite3* handle_;
};

/// Undoes what was written since its start unless it is committed.
class Transaction {
 public:
  enum class Kind { read, write };

  [[nodiscard]] static Result<Transaction> begin(Database& database, Kind kind);
  Transaction(Transaction&& other) noexcept;
  Transaction& operator=(Transaction&&) = delete;
  ~Transaction();

  /// What was written is durable when this succeeds, and undone when it fails.
  [[nodiscard]] Result<void> commit();

 private:
  explicit Transaction(Database& database) : database_(&database) {}
  Database* database_;
};

}  // namespace vornex::server
