#include <vornex/Queue.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>

#include <cerrno>

#include "core/SdkError.h"
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
               [progress = std::move(progress)](const DatabaseCopies& copies) {
                 return copies.replace(DatabaseCopies::Former::remove, progress);
               });
}

}  // namespace vornex
