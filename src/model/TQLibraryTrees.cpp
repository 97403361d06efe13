#include <vornex/TQLibrary.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "model/ProjectTree.h"
#include "model/TreeFile.h"

// What the trees of a library have in common.

namespace vornex {

static TreeFile& fileOf(std::shared_ptr<TreeFile>& file, const OptionalString& path, const TreeForm& form) {
  if (!file || file->path() != path.value_or("")) file = std::make_shared<TreeFile>(path.value_or(""), form);
  return *file;
}

TreeFile& TQLibrary::projectFile() {
  return fileOf(projectFile_, TQVornexUtil::projectPlistWithPackageFolder(packageFolder), kProjectFileForm);
}

TreeFile& TQLibrary::fcpxFile() {
  return fileOf(fcpxFile_, TQVornexUtil::fcpxLibraryPlistWithPackageFolder(packageFolder), kFCPXFileForm);
}

std::optional<TQLibrary::TreeAnswer> TQLibrary::loadTree(const std::string& path, TreeFile& file,
                                                         TQErrorPtr& error) const {
  error = nullptr;
  const UserPtr user = requestUser(error);
  if (!user) return std::nullopt;
  FileStamp state;
  Value response = askForTree(path, file, *user, state, error);
  if (error) return std::nullopt;
  Dictionary* answer = response.ifDictionary();
  Value* nodes = answer ? answer->find(file.listKey()) : nullptr;
  if (!nodes || !nodes->ifArray()) {
    // Taking this for an empty tree would lose the known one with the next save.
    error = tree::error(10004, "response.error.invalid");
    return std::nullopt;
  }
  file.setBase(state);
  return TreeAnswer{std::move(*nodes->ifArray()), coerce::string(response.find("hash"))};
}

Value TQLibrary::askForTree(const std::string& path, const TreeFile& file, const TQUser& user,
                            FileStamp& state, TQErrorPtr& error) const {
  auto ask = [&] {
    return TQVornexUtil::syncRequestURL(serverURL(path), user.id, user.password, "GET", std::nullopt, &error);
  };
  if (libraryType != kLibraryTypeLocal) return ask();
  // The answer is of the file as it is before and after. While others keep changing it, the state before is
  // the safe one: what came later is taken for not loaded yet.
  constexpr int kMostTries = 10;
  for (int tries = 1;; ++tries) {
    Result<FileStamp> before = file.stamp();
    Value response = ask();
    Result<FileStamp> after = file.stamp();
    if (!error && tries < kMostTries && before && after && !(*before == *after)) continue;
    state = before.value_or(FileStamp());
    return response;
  }
}

}  // namespace vornex
