#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLiveFolder.h>
#include <vornex/TQProject.h>

// The archived forms of libraries and their trees.

namespace vornex {

const ArchivedClass TQProject::archivedClass_("TQProject", [] { return Ptr(new TQProject); });

std::string TQProject::archivedClassName() const {
  return "TQProject";
}

void TQProject::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObject("library", library.lock());
  coder.encodeObject("rootProject", rootProject.lock());
  coder.encodeObject("parent", parent.lock());
  coder.encodeValue("id", id);
  coder.encodeValue("name", name);
  coder.encodeValue("dbName", dbName);
  coder.encodeInteger("projectType", projectType);
  coder.encodeObjects<TQProject>("childGroups", childGroups);
}

void TQProject::initWithCoder(KeyedUnarchiver& coder) {
  library = coder.decodeReference<TQLibrary>("library");
  rootProject = coder.decodeReference<TQProject>("rootProject");
  id = coder.decodeString("id");
  name = coder.decodeString("name");
  dbName = coder.decodeString("dbName");
  projectType = coder.decodeInteger("projectType");
  childGroups = decodeNodes(coder, "childGroups");
  for (const Ptr& child : childGroups) child->parent = weak_from_this();
}

ProjectList TQProject::decodeNodes(KeyedUnarchiver& coder, std::string_view key) {
  std::vector<Ptr> nodes = coder.decodeObjects<TQProject>(key);
  std::erase_if(nodes, [](const Ptr& node) { return std::exchange(node->isClaimed_, true); });
  return nodes;
}

const ArchivedClass TQLibrary::archivedClass_("TQLibrary", [] { return Ptr(new TQLibrary); });

std::string TQLibrary::archivedClassName() const {
  return "TQLibrary";
}

void TQLibrary::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeInteger("libraryType", libraryType);
  coder.encodeInteger("isShared", isShared ? 1 : 0);
  coder.encodeInteger("onlineStatus", onlineStatus ? 1 : 0);
  coder.encodeValue("dbName", dbName);
  coder.encodeValue("name", name);
  coder.encodeValue("desc", desc);
  coder.encodeValue("packageFolder", packageFolder);
  coder.encodeValue("mountPath", mountPath);
  coder.encodeObjects<TQProject>("projects", projects);
  coder.encodeObject("connection", connection);
  coder.encodeValue("projectHashValue", projectHashValue);
  coder.encodeValue("versionNumber", versionNumber);
  coder.encodeBool("hasReferenceFile", hasReferenceFile);
  coder.encodeBool("isCreatable", storedIsCreatable);
  coder.encodeBool("isEditable", storedIsEditable);
  coder.encodeValue("bonjourName", bonjourName);
  coder.encodeValue("liveFolderHashValue", liveFolderHashValue);
  coder.encodeObjects<TQLiveFolder>("liveFolders", liveFolders);
  coder.encodeMutableValue("liveFolderDict", liveFolderDict);
  coder.encodeValue("fcpxLibraryHashValue", fcpxLibraryHashValue);
  coder.encodeMutableValue("fcpxLibraryItems", Array());
  coder.encodeMutableValue("fcpxLibraryDict", fcpxLibraryDict);
  coder.encodeInteger("fromBrindle", fromBrindle ? 1 : 0);
}

void TQLibrary::initWithCoder(KeyedUnarchiver& coder) {
  libraryType = coder.decodeInteger("libraryType");
  isShared = coder.decodeInteger("isShared") != 0;
  onlineStatus = coder.decodeInteger("onlineStatus") != 0;
  dbName = coder.decodeString("dbName");
  name = coder.decodeString("name");
  desc = coder.decodeString("desc");
  packageFolder = coder.decodeString("packageFolder");
  mountPath = coder.decodeString("mountPath");
  projects = TQProject::decodeNodes(coder, "projects");
  connection = coder.decodeObject<TQConnection>("connection");
  projectHashValue = coder.decodeString("projectHashValue");
  versionNumber = coder.decodeString("versionNumber");
  hasReferenceFile = coder.decodeBool("hasReferenceFile");
  storedIsCreatable = coder.decodeBool("isCreatable");
  storedIsEditable = coder.decodeBool("isEditable");
  bonjourName = coder.decodeString("bonjourName");
  liveFolderHashValue = coder.decodeString("liveFolderHashValue");
  liveFolders = coder.decodeObjects<TQLiveFolder>("liveFolders");
  liveFolderDict = coder.decodeDictionary("liveFolderDict");
  fcpxLibraryHashValue = coder.decodeString("fcpxLibraryHashValue");
  fcpxLibraryDict = coder.decodeDictionary("fcpxLibraryDict");
  fromBrindle = coder.decodeInteger("fromBrindle") != 0;
}

}  // namespace vornex
