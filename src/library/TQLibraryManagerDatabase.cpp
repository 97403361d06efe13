#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>

#include <cerrno>

#include "core/SdkError.h"
#include "library/DatabaseCopies.h"
#include "library/Work.h"

namespace vornex {
namespace {

using Work = std::function<Result<void>(const DatabaseCopies& copies)>;

/// Only local libraries have a database here.
void copyDatabase(const LibraryPtr& library, Completion completion, Work work) {
  workThenTell(std::move(completion), [library, work = std::move(work)] {
    Result<void> done = library && library->libraryType == kLibraryTypeLocal
                            ? work(DatabaseCopies(*library))
                            : posixFailure(EINVAL, "find the database of a library that is not local");
    return Ending::of(done ? nullptr : makeSdkError(done.error()));
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
  copyDatabase(
      library, std::move(completion),
      [progress = std::move(progress)](const DatabaseCopies& copies) { return copies.replace(progress); });
}

}  // namespace vornex
