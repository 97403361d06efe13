#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "core/DatabaseFolder.h"
#include "core/SdkError.h"
#include "core/StorageLayout.h"
#include "library/DatabaseCopies.h"
#include "library/Work.h"

namespace vornex {
namespace {

namespace fs = std::filesystem;

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

std::vector<std::string> TQLibraryManager::keptDatabases(const LibraryPtr& library) const {
  std::vector<std::string> kept;
  if (!library || !library->dbName) return kept;
  std::error_code error;
  for (fs::directory_iterator entry(layout::databaseRoot(), error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (name.starts_with(*library->dbName + kFormerInfix)) kept.push_back(entry->path());
  }
  std::sort(kept.begin(), kept.end());
  return kept;
}

}  // namespace vornex
