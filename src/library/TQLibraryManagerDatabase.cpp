#include <vornex/Queue.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>

#include <cerrno>

#include "core/DatabaseFolder.h"
#include "core/SdkError.h"
#include "library/AskService.h"
#include "library/DatabaseCopies.h"

namespace vornex {
namespace {

using Work = std::function<Result<void>(const DatabaseCopies& copies)>;

/// Runs the work on a worker; only local libraries have a database here.
void copyDatabase(const LibraryPtr& library, Completion completion, Work work) {
  GlobalQueue::shared().async([library, completion = std::move(completion), work = std::move(work)] {
    Result<void> done = library && library->libraryType == kLibraryTypeLocal
                            ? work(DatabaseCopies(*library))
                            : posixFailure(EINVAL, "find the database of a library that is not local");
    completion(done.has_value(), done ? nullptr : makeSdkError(done.error()));
  });
}

tl::unexpected<Error> refused(const TQErrorPtr& error) {
  return failure(error->domain().value_or(""), error->code(), error->message());
}

Result<void> replaceDatabase(const std::string& dbName, const DatabaseCopies& copies,
                             const DatabaseCopies::Progress& progress) {
  auto locked = copies.lock();
  if (!locked) return tl::unexpected(locked.error());
  if (auto staged = copies.stage(progress); !staged) return staged;
  if (TQErrorPtr error = askService(&ServiceProxy::terminateLibraryForDBName, dbName)) return refused(error);
  const bool hadWorking = copies.hasWorking();
  Result<void> done = copies.exchange();
  if (done) {
    TQErrorPtr error = askService(&ServiceProxy::launchLibraryForDBName, dbName);
    if (!error) {
      (void)copies.removeStaged();  // logged, and the next run does, too
      return {};
    }
    done = refused(error);
    askService(&ServiceProxy::terminateLibraryForDBName, dbName);
    Result<void> undone = hadWorking ? copies.exchange() : removeDatabaseFolder(dbName);
    if (!undone) return undone;
  }
  if (hadWorking) askService(&ServiceProxy::launchLibraryForDBName, dbName);
  (void)copies.removeStaged();
  return done;
}

}  // namespace

void TQLibraryManager::backupDatabaseWithLibrary(LibraryPtr library, Completion completion,
                                                 DatabaseProgress progress) {
  copyDatabase(library, std::move(completion),
               [progress = std::move(progress)](const DatabaseCopies& copies) {
                 return copies.backUp(false, progress);
               });
}

void TQLibraryManager::restoreDatabaseWithLibrary(LibraryPtr library, Completion completion,
                                                  DatabaseProgress progress) {
  copyDatabase(
      library, std::move(completion),
      [progress = std::move(progress)](const DatabaseCopies& copies) { return copies.restore(progress); });
}

void TQLibraryManager::replaceDatabaseWithLibrary(LibraryPtr library, Completion completion,
                                                  DatabaseProgress progress) {
  copyDatabase(library, std::move(completion),
               [library, progress = std::move(progress)](const DatabaseCopies& copies) {
                 return replaceDatabase(library->dbName.value_or(""), copies, progress);
               });
}

}  // namespace vornex
