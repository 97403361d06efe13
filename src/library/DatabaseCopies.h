#pragma once

#include <vornex/Types.h>

#include <functional>
#include <string>

#include "foundation/Error.h"
#include "foundation/FileLock.h"

namespace vornex {

/// The two places of a local library's database, and the way from one to the other: the working database, in
/// the shared database folder, which the service uses, and the packaged one, in the package folder, which
/// goes where the package goes.
///
/// Every step is one that a kill may follow: a copy is made under another name and renamed, so the packaged
/// database, or while a backup ends the previous one beside it, is whole at every instant, and the next run
/// removes or puts back what was left.
///
/// Failures are logged where they happen. Domain "posix", or the service's. Everything blocks. Thread-safety:
/// one thread each; several, in any number of processes, exclude one another by lock().
class DatabaseCopies {
 public:
  /// Bytes copied of the bytes that there are; called on the copying thread or another one, one at a time.
  using Progress = std::function<void(std::int64_t done, std::int64_t total)>;

  /// A library without a valid database name or package folder makes every operation fail.
  explicit DatabaseCopies(const TQLibrary& library);

  bool hasWorking() const;
  /// Whether the package holds a whole database, be it the previous one of a backup that was cut short.
  bool hasPackaged() const;

  /// Copies the working database into the package. The service, if it runs, makes the copy, so that it is
  /// consistent however busy the database is; with `close` it then lets go of the database. Without a service
  /// the files are copied.
  [[nodiscard]] Result<void> backUp(bool close, const Progress& progress) const;

  /// Copies the packaged database to the place of the working one. Success, and nothing copied, when there is
  /// a working one.
  [[nodiscard]] Result<void> restore(const Progress& progress) const;

  /// The right to use the following ones.
  [[nodiscard]] Result<FileLock> lock() const;
  /// Copies the packaged database beside the working one.
  [[nodiscard]] Result<void> stage(const Progress& progress) const;
  /// Puts what is staged in the place of the working database, and that one, if there is one, in its: once
  /// more, and they are back. The service must have let go of the database.
  [[nodiscard]] Result<void> exchange() const;
  [[nodiscard]] Result<void> removeStaged() const;

 private:
  Result<void> check() const;
  OptionalString packagedSource() const;
  Result<void> repairBackup() const;
  Result<void> copyWorking(bool close, const Progress& progress) const;
  Result<void> copyUnserved(const Progress& progress) const;
  Result<void> snapshot(bool close, const Progress& progress) const;

  const std::string name_;
  const std::string working_;
  const std::string staging_;
  const std::string packagedFolder_;
  const std::string packaged_;
  const std::string previous_;
  const std::string fresh_;
};

}  // namespace vornex
