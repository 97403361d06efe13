#include <fmt/format.h>
#include <sys/stat.h>
#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLiveFolder.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "foundation/Text.h"
#include "model/Conversion.h"

namespace vornex {

static OptionalString fileNumber(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return std::to_string(status.st_ino);
}

LiveFolderPtr TQLiveFolder::liveFolderWithPath(OptionalString path, OptionalString dbName) {
  OptionalString fileID = path ? fileNumber(*path) : std::nullopt;
  return liveFolderWithPath(std::move(path), std::move(fileID), std::move(dbName));
}

LiveFolderPtr TQLiveFolder::liveFolderWithPath(OptionalString path, OptionalString fileID,
                                               OptionalString dbName) {
  if (!path || !dbName || !fileID) {
    logLine(LogLevel::error, "LiveFolder fileID is nil");
    return nullptr;
  }
  return liveFolderWithID(TQVornexUtil::UUIDString(), std::move(path), std::move(fileID), std::move(dbName),
                          false, std::nullopt);
}

LiveFolderPtr TQLiveFolder::liveFolderWithID(OptionalString ID, OptionalString path, OptionalString fileID,
                                             OptionalString dbName, bool useFCPXAudioRoles,
                                             OptionalString audioRole) {
  if (!path || !dbName) return nullptr;
  Ptr node(new TQLiveFolder);
  node->ID = std::move(ID);
  node->name = lastPathComponent(*path);
  node->path = std::move(path);
  node->fileID = std::move(fileID);
  node->dbName = std::move(dbName);
  node->useFCPXAudioRoles = useFCPXAudioRoles;
  node->audioRoles = std::move(audioRole);
  return node;
}

static LiveFolderPtr readNode(const Dictionary& dictionary) {
  auto text = [&](const char* key) { return coerce::string(dictionary.find(key)); };
  OptionalString id = text("id"), name = text("name"), fileID = text("fileID");
  if (!id || !name || !fileID) return nullptr;
  LiveFolderPtr node = TQLiveFolder::liveFolderWithID(
      std::move(id), text("path"), std::move(fileID), text("dbname"),
      coerce::boolean(dictionary.find("useFCPXAudioRoles")), text("audioRole"));
  if (node) node->name = std::move(name);
  return node;
}

LiveFolderPtr TQLiveFolder::liveFolderWithDictionary(const Dictionary& dictionary) {
  return conversion::caught("liveFolderWithDictionary : ", [&] { return readNode(dictionary); });
}

LiveFolderPtr TQLiveFolder::undefinedLiveFolderWithLibrary(const LibraryPtr& library) {
  static std::mutex mutex;
  // Never destroyed: workers may search while the process ends.
  static const auto* shared = new Ptr(new TQLiveFolder);
  const Ptr& undefined = *shared;
  std::lock_guard lock(mutex);
  if (!undefined->ID) {
    undefined->ID = "UnDefined LiveFolder UUID";
    undefined->name = "Undefined LiveFolder Name";
    undefined->rootLiveFolder = undefined;
  }
  // Readers need no lock as long as one library is searched: nothing is written twice.
  if (undefined->library.lock() != library || !library) {
    undefined->dbName = library ? library->dbName : std::nullopt;
    undefined->library = library;
  }
  return undefined;
}

void TQLiveFolder::sortWithSubFolders(std::vector<Ptr>& folders) {
  auto key = [](const Ptr& folder) { return foldedText(folder->name.value_or("")); };
  std::stable_sort(folders.begin(), folders.end(),
                   [&](const Ptr& a, const Ptr& b) { return key(a) < key(b); });
}

void TQLiveFolder::setDictionary(const Dictionary& dictionary) {
  Ptr read = liveFolderWithDictionary(dictionary);
  if (!read) return;
  ID = std::move(read->ID);
  name = std::move(read->name);
  dbName = std::move(read->dbName);
  path = std::move(read->path);
  fileID = std::move(read->fileID);
  useFCPXAudioRoles = read->useFCPXAudioRoles;
  audioRoles = std::move(read->audioRoles);
}

std::optional<Dictionary> TQLiveFolder::liveFolderDictionary() const {
  using conversion::required;
  return conversion::caught("liveFolderDictionary exception: ", [&]() -> std::optional<Dictionary> {
    Dictionary dictionary{{"id", required(ID, "id")},
                          {"name", required(name, "name")},
                          {"dbname", required(dbName, "dbname")},
                          {"path", required(path, "path")},
                          {"fileID", required(fileID, "fileID")},
                          {"useFCPXAudioRoles", useFCPXAudioRoles}};
    if (audioRoles) dictionary.set("audioRole", *audioRoles);
    return dictionary;
  });
}

std::int64_t TQLiveFolder::indexOfSubFolder(const Ptr& folder) const {
  for (std::size_t i = 0; folder && i < subFolders.size(); ++i)
    if (subFolders[i]->ID == folder->ID) return static_cast<std::int64_t>(i);
  return -1;
}

LiveFolderPtr TQLiveFolder::nodeWith(OptionalString TQLiveFolder::*field, const std::string& text) {
  if (this->*field == text) return shared_from_this();
  for (const Ptr& child : subFolders)
    if (Ptr found = child ? child->nodeWith(field, text) : nullptr) return found;
  return nullptr;
}

LiveFolderPtr TQLiveFolder::subFolderWithID(const std::string& wanted) {
  return nodeWith(&TQLiveFolder::ID, wanted);
}
LiveFolderPtr TQLiveFolder::subFolderWithFileID(const std::string& wanted) {
  return nodeWith(&TQLiveFolder::fileID, wanted);
}
LiveFolderPtr TQLiveFolder::subFolderWithPath(const std::string& wanted) {
  return nodeWith(&TQLiveFolder::path, wanted);
}

std::int64_t TQLiveFolder::descendantCount() const {
  auto count = static_cast<std::int64_t>(subFolders.size());
  for (const Ptr& child : subFolders) count += child->descendantCount();
  return count;
}

void TQLiveFolder::scanStatusWithSubFolder(const Ptr& subFolder, const std::string& folderPath,
                                           std::int64_t status) {
  if (!subFolder) return;
  subFolder->scanStatus = status;
  for (const Ptr& child : subFolder->subFolders)
    if (child->path && child->path->find(folderPath) != std::string::npos)
      scanStatusWithSubFolder(child, folderPath, status);
}

const ArchivedClass TQLiveFolder::archivedClass_("TQLiveFolder", [] { return Ptr(new TQLiveFolder); });

std::string TQLiveFolder::archivedClassName() const {
  return "TQLiveFolder";
}

void TQLiveFolder::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObject("library", library.lock());
  coder.encodeObject("rootLiveFolder", rootLiveFolder.lock());
  coder.encodeObject("parent", parent.lock());
  coder.encodeValue("id", ID);
  coder.encodeValue("name", name);
  coder.encodeValue("dbName", dbName);
  coder.encodeObjects<TQLiveFolder>("subFolders", subFolders);
  coder.encodeValue("fileID", fileID);
  coder.encodeValue("path", path);
  coder.encodeBool("useFCPXAudioRoles", useFCPXAudioRoles);
  coder.encodeValue("audioRole", audioRoles);
}

void TQLiveFolder::initWithCoder(KeyedUnarchiver& coder) {
  library = coder.decodeReference<TQLibrary>("library");
  rootLiveFolder = coder.decodeReference<TQLiveFolder>("rootLiveFolder");
  parent = coder.decodeReference<TQLiveFolder>("parent");
  ID = coder.decodeString("id");
  name = coder.decodeString("name");
  dbName = coder.decodeString("dbName");
  subFolders = coder.decodeObjects<TQLiveFolder>("subFolders");
  fileID = coder.decodeString("fileID");
  path = coder.decodeString("path");
  useFCPXAudioRoles = coder.decodeBool("useFCPXAudioRoles");
  audioRoles = coder.decodeString("audioRole");
}

}  // namespace vornex
