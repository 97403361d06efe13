#pragma once

#include <vornex/Types.h>

#include <functional>
#include <optional>
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
/// one thread each. Operations on one database exclude one another, in any number of processes, and so do
/// those on one package, on any number of computers where its file system has locks.
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
  /// the files are copied. ESTALE, domain "posix", when the package folder is not this library's.
  [[nodiscard]] Result<void> backUp(bool close, const Progress& progress) const;

  /// Copies the packaged database to the place of the working one. Success, and nothing copied, when there is
  /// a working one.
  [[nodiscard]] Result<void> restore(const Progress& progress) const;

  /// Puts a copy of the packaged database in the place of the working one, which is removed. The service,
  /// which must run, tries the copy first and refuses what it cannot open; the working database stays then.
  [[nodiscard]] Result<void> replace(const Progress& progress) const;

  struct BroughtIn {
    bool isNew = false;
    /// Where the former working database is, if it has lost its place.
    std::string former;
  };
  /// Makes the working database what an import of the package needs: restored when there is none, kept when
  /// the package was not backed up elsewhere since, else replaced and the former one kept. ESTALE, domain
  /// "posix", when both sides went on and nothing is forced. `copies` is called before anything is, and by
  /// force.
  [[nodiscard]] Result<BroughtIn> bringIn(bool force, const std::function<void()>& copies,
                                          const Progress& progress) const;
  /// Undoes that.
  [[nodiscard]] Result<void> putBack(const BroughtIn& done) const;

  /// The database's lock, and the package's where one can be made or is needed.
  struct Locks {
    FileLock database;
    std::optional<FileLock> package;
  };
  enum class Use { read, write };
  /// Keeps every other operation away from the database and the package.
  [[nodiscard]] Result<Locks> lock(Use ofPackage) const;

 private:
  /// Whether the package was backed up elsewhere since the working database was last in step with it.
  enum class Standing { inStep, packagedIsNewer, apart };
  Standing standing() const;
  enum class Former { remove, keep };
  Result<void> restoreLocked(const Progress& progress) const;
  Result<std::string> replaceLocked(Former former, const Progress& progress) const;
  Result<void> stage(const Progress& progress) const;
  Result<void> exchange(const char* operation) const;
  Result<void> exchangeByService(const char* operation, Former former) const;
  Result<std::string> putStagedAway() const;
  Result<void> markGeneration() const;
  Result<void> check() const;
  Result<void> checkPackage() const;
  OptionalString packagedSource() const;
  Result<void> repairBackup() const;
  Result<void> copyWorking(bool close, const Progress& progress) const;
  Result<void> copyUnserved(const Progress& progress) const;
  Result<void> snapshot(bool close, const Progress& progress) const;

  const std::string name_;
  const std::string working_;
  const std::string staging_;
  const std::string unfinished_;
  const std::string packagedFolder_;
  const std::string packaged_;
  const std::string previous_;
  const std::string fresh_;
};

}  // namespace vornex
