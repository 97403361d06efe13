#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/TQConnection.h>
#include <vornex/TQImportAsset.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQUser.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQVornexUtil.h>

#include <algorithm>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "foundation/PropertyList.h"
#include "foundation/SharedDictionaryFile.h"
#include "model/Conversion.h"
#include "model/ProjectIndex.h"

namespace vornex {
namespace {

constexpr const char* kFormatVersion = "1.1";

}  // namespace

TQLibrary::TQLibrary() : projectIndex_(std::make_shared<ProjectIndex>()) {}

TQLibrary::Ptr TQLibrary::libraryWithName(OptionalString name, OptionalString desc, std::int64_t libType,
                                          bool shared, bool creatable, bool editable,
                                          OptionalString packageFolder, OptionalString mountPath,
                                          ConnectionPtr connection) {
  if (!name || !packageFolder || !connection) return nullptr;
  Ptr library(new TQLibrary);
  library->dbName = TQVornexUtil::UUIDString();
  library->name = std::move(name);
  library->desc = std::move(desc);
  library->libraryType = libType;
  library->isShared = shared;
  library->storedIsCreatable = creatable;
  library->storedIsEditable = editable;
  library->packageFolder = std::move(packageFolder);
  library->mountPath = std::move(mountPath);
  library->connection = std::move(connection);
  return library;
}

static LibraryPtr readLibrary(const Dictionary& dictionary) {
  auto text = [&](const char* key) { return coerce::string(dictionary.find(key)); };
  auto number = [&](const char* key) { return coerce::integer(dictionary.find(key)); };
  auto flag = [&](const char* key) { return coerce::boolean(dictionary.find(key)); };

  OptionalString dbName = text("dbname");
  if (!dbName) return nullptr;
  LibraryPtr library = TQLibrary::libraryWithName(
      text("name"), text("desc"), number("type"), flag("shared"), flag("uploadable"), flag("editable"),
      text("packagefolder"), text("mountpath"),
      TQConnection::connectionWithAddress(text("address"), number("port"), nullptr));
  if (!library) return nullptr;
  library->dbName = std::move(dbName);
  library->projectHashValue = text("projecthash");
  library->versionNumber = text("version");
  library->hasReferenceFile = flag("hasreffile");
  library->liveFolderHashValue = text("livefolderhash");
  library->fcpxLibraryHashValue = text("fcpxlibraryhash");
  if (library->libraryType == kLibraryTypeLocal)
    library->onlineStatus = fileExists(*library->packageFolder);
  else
    library->bonjourName = text("bonjourname");
  return library;
}

TQLibrary::Ptr TQLibrary::libraryWithDictionary(const Dictionary& dictionary) {
  return conversion::caught("libraryWithDictionary exception:", [&] { return readLibrary(dictionary); });
}

std::optional<Dictionary> TQLibrary::libDictionary() const {
  using conversion::required;
  std::lock_guard lock(fields_);
  return conversion::caught("libDictionary exception: ", [&]() -> std::optional<Dictionary> {
    return Dictionary{{"dbname", required(dbName, "dbname")},
                      {"name", required(name, "name")},
                      {"desc", desc.value_or("")},
                      {"packagefolder", required(packageFolder, "packagefolder")},
                      {"mountpath", mountPath.value_or("")},
                      {"type", libraryType},
                      {"address", required(connection ? connection->address : std::nullopt, "address")},
                      {"port", connection->port},
                      {"shared", isShared},
                      {"projecthash", projectHashValue.value_or("")},
                      {"version", versionNumber.value_or(kFormatVersion)},
                      {"hasreffile", hasReferenceFile.load()},
                      {"uploadable", storedIsCreatable},
                      {"editable", storedIsEditable},
                      {"livefolderhash", liveFolderHashValue.value_or("")},
                      {"bonjourname", bonjourName.value_or("")},
                      {"fcpxlibraryhash", fcpxLibraryHashValue.value_or("")}};
  });
}

bool TQLibrary::writeToFile() const {
  if (!packageFolder || !fileExists(*packageFolder)) return false;
  auto row = libDictionary();
  if (!row) return false;
  auto written = writePropertyListFile(*TQVornexUtil::libraryPlistWithPackageFolder(packageFolder), *row);
  if (!written) logLine(LogLevel::error, written.error().message);
  return written.has_value();
}

/// The library's row in the saved list, which has the changes of other processes, too. Empty without one.
static Dictionary listedRow(std::int64_t type, const Value& dbName) {
  auto list = readDictionaryFile(type == kLibraryTypeLocal ? TQVornexUtil::localLibraryPlist()
                                                           : TQVornexUtil::networkLibraryPlist());
  if (!list) return {};
  for (const Value& row : coerce::array(list->find("library")))
    if (const Value* name = row.find("dbname"); name && *name == dbName) return *row.ifDictionary();
  return {};
}

bool TQLibrary::writeListedRow() const {
  auto ours = packageFolder && fileExists(*packageFolder) ? libDictionary() : std::nullopt;
  if (!ours) return false;
  auto merge = [&](std::optional<Dictionary> present) {
    Dictionary record = std::move(present).value_or(Dictionary());
    const Dictionary listed = listedRow(libraryType, *ours->find("dbname"));
    for (const auto& [key, value] : *ours) {
      // The list's version tells where the database is, the package's is the format's.
      const Value* saved = key == "version" ? nullptr : listed.find(key);
      record.set(key, saved ? *saved : value);
    }
    return record;
  };
  auto written = changeDictionaryFile(*TQVornexUtil::libraryPlistWithPackageFolder(packageFolder), merge);
  if (!written) logLine(LogLevel::error, written.error().message);
  return written.has_value();
}

bool TQLibrary::saveFieldChange(const char* operation, bool sorts, const std::function<void()>& change) {
  {
    std::lock_guard lock(fields_);
    change();
  }
  TQLibraryManager& manager = TQLibraryManager::sharedManager();
  if (!manager.saveLibrariesFileWithType(libraryType)) {
    logLine(LogLevel::error, fmt::format("TQLibrary::{}, Can't save Library Plist", operation));
    return false;
  }
  if (sorts) manager.sortLibraries();
  return libraryType != kLibraryTypeLocal || writeListedRow();
}

bool TQLibrary::updateName(OptionalString value) {
  if (!value) return false;
  return saveFieldChange("updateName", true, [&] { name = std::move(value); });
}

bool TQLibrary::updateDesc(OptionalString value) {
  if (!value) return false;
  return saveFieldChange("updateDesc", false, [&] { desc = std::move(value); });
}

bool TQLibrary::updateMountPath(OptionalString value) {
  if (!value) return false;
  return saveFieldChange("updateMountPath", false, [&] { mountPath = std::move(value); });
}

bool TQLibrary::updateShared(bool value) {
  return saveFieldChange("updateShared", false, [&] { isShared = value; });
}

bool TQLibrary::updateCreatable(bool value) {
  return saveFieldChange("updateCreatable", false, [&] { storedIsCreatable = value; });
}

bool TQLibrary::updateEditable(bool value) {
  return saveFieldChange("updateEditable", false, [&] { storedIsEditable = value; });
}

bool TQLibrary::updateNewName(OptionalString newName, OptionalString newDesc, OptionalString newMountPath,
                              bool shared, TQErrorPtr* error) {
  {
    std::lock_guard lock(fields_);
    if (newName) name = std::move(newName);
    if (newDesc) desc = std::move(newDesc);
    if (newMountPath) mountPath = std::move(newMountPath);
    isShared = shared;
  }
  TQLibraryManager& manager = TQLibraryManager::sharedManager();
  if (!manager.saveLibrariesFileWithType(libraryType)) {
    logLine(LogLevel::error, "TQLibrary::updateNewName, Can't save Library Plist");
    if (error) *error = TQVornexUtil::errorWithCode(10003, LocalizedString("library.error.cannot.save"));
    return false;
  }
  bool written = writeListedRow();
  manager.sortLibraries();
  return written;
}

void TQLibrary::updateNewName(OptionalString newName, OptionalString newDesc, OptionalString newMountPath,
                              bool shared, Completion completion) {
  TQErrorPtr error;
  updateNewName(std::move(newName), std::move(newDesc), std::move(newMountPath), shared, &error);
  completion(!error, error);
}

std::pair<std::int64_t, OptionalString> TQLibrary::listOrder() const {
  std::lock_guard lock(fields_);
  return {libraryType, name};
}

void TQLibrary::setProjectHash(OptionalString hash) {
  std::lock_guard lock(fields_);
  projectHashValue = std::move(hash);
}

void TQLibrary::setFCPXLibraryHash(OptionalString hash) {
  std::lock_guard lock(fields_);
  fcpxLibraryHashValue = std::move(hash);
}

OptionalString TQLibrary::serverURL(const std::string& path) const {
  if (!connection || !connection->address || !dbName) return std::nullopt;
  return fmt::format("http://{}:{}/vornex/libraries/{}{}", *connection->address, connection->port, *dbName,
                     path);
}

// The server is asked each time: the answer is not kept.
bool TQLibrary::serverRight(const char* key) const {
  UserPtr user = connection ? connection->user : nullptr;
  if (!user) return false;
  Value response =
      TQVornexUtil::syncRequestURL(serverURL(""), user->id, user->password, "GET", std::nullopt, nullptr);
  Array items = coerce::array(response.find("items"));
  return !items.empty() && coerce::boolean(items.front().find(key));
}

bool TQLibrary::isCreatable() const {
  if (libraryType == kLibraryTypeNetwork) return serverRight("uploadable");
  return libraryType == kLibraryTypeLocal && storedIsCreatable;
}

bool TQLibrary::isEditable() const {
  if (libraryType == kLibraryTypeNetwork) return serverRight("editable");
  return libraryType == kLibraryTypeLocal && storedIsEditable;
}

std::string TQLibrary::libraryTypeString() const {
  if (libraryType == kLibraryTypeLocal) return LocalizedString("library.desc.local");
  if (libraryType == kLibraryTypeNetwork) return LocalizedString("library.desc.shared");
  return "";
}

std::string TQLibrary::description() const {
  auto row = libDictionary();
  return row ? writeJson(*row, JsonStyle::pretty) : "(null)";
}

bool TQLibrary::findLibrary(const Dictionary& libraries) const {
  return dbName && libraries.contains(*dbName);
}

std::vector<UserPtr> TQLibrary::users() const {
  std::vector<UserPtr> result = TQUserManager::sharedManager().users();
  std::erase_if(result, [this](const UserPtr& user) { return !dbName || !user->findLibraryName(*dbName); });
  return result;
}

std::vector<UserPtr> TQLibrary::reviewers() const {
  std::vector<UserPtr> result = TQUserManager::sharedManager().reviewers();
  std::erase_if(result, [this](const UserPtr& user) { return !dbName || !user->findLibraryName(*dbName); });
  return result;
}

void TQLibrary::addUsers(const std::vector<UserPtr>& added) {
  if (libraryType == kLibraryTypeNetwork) return logLine(LogLevel::info, "library type is network");
  for (const UserPtr& user : added)
    if (user) user->addLibraries({shared_from_this()});
}

void TQLibrary::removeUsers(const std::vector<UserPtr>& removed) {
  if (libraryType == kLibraryTypeNetwork) return logLine(LogLevel::info, "library type is network");
  for (const UserPtr& user : removed)
    if (user) user->removeLibraries({shared_from_this()});
}

AssetFolderPtr TQLibrary::makeAssetFolder(const std::string& group, const char* operation) const {
  OptionalString folder = TQVornexUtil::assetFolderWithGroupName(group);
  if (!packageFolder || !folder) return nullptr;
  std::string master =
      appendPathComponent(*TQVornexUtil::assetMasterFolderWithPackageFolder(packageFolder), *folder);
  std::string thumbnail =
      appendPathComponent(*TQVornexUtil::assetThumbnailFolderWithPackageFolder(packageFolder), *folder);
  std::string preview =
      appendPathComponent(*TQVornexUtil::assetPreviewFolderWithPackageFolder(packageFolder), *folder);
  std::string catalog =
      appendPathComponent(*TQVornexUtil::assetCatalogFolderWithPackageFolder(packageFolder), *folder);
  for (const std::string& path : {master, thumbnail, preview}) {
    if (createDirectories(path)) continue;
    logLine(LogLevel::error, fmt::format("TQLibrary::{}, Can't create directory:{}", operation, path));
    return nullptr;
  }
  return TQAssetFolder::assetFolderWithMasterpath(master, thumbnail, preview, catalog);
}

AssetFolderPtr TQLibrary::createAssetFolder() const {
  return makeAssetFolder(TQVornexUtil::assetGroupFolder(), "createAssetFolder");
}

AssetFolderPtr TQLibrary::createAssetLiveFolder() const {
  return makeAssetFolder(TQVornexUtil::assetLiveFolder(), "createAssetLiveFolder");
}

}  // namespace vornex
