#include <vornex/TQConnection.h>
#include <vornex/TQFCPXEvent.h>
#include <vornex/TQFCPXLibrary.h>
#include <vornex/TQFCPXMulticam.h>
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

/// Those that no other list of the archive has claimed by becoming what is above them: a tree names each of
/// its nodes once.
template <typename Node, typename Above>
static std::vector<std::shared_ptr<Node>> claimed(std::vector<std::shared_ptr<Node>> nodes,
                                                  std::weak_ptr<Above> Node::*above,
                                                  const std::weak_ptr<Above>& owner) {
  std::erase_if(nodes, [&](const std::shared_ptr<Node>& node) {
    if (((*node).*above).lock()) return true;
    (*node).*above = owner;
    return false;
  });
  return nodes;
}

const ArchivedClass TQFCPXMulticam::archivedClass_("TQFCPXMulticam", [] { return Ptr(new TQFCPXMulticam); });

std::string TQFCPXMulticam::archivedClassName() const {
  return "TQFCPXMulticam";
}

void TQFCPXMulticam::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObject("event", event.lock());
  coder.encodeValue("ID", ID);
  coder.encodeValue("name", name);
}

void TQFCPXMulticam::initWithCoder(KeyedUnarchiver& coder) {
  ID = coder.decodeString("ID");
  name = coder.decodeString("name");
}

const ArchivedClass TQFCPXEvent::archivedClass_("TQFCPXEvent", [] { return Ptr(new TQFCPXEvent); });

std::string TQFCPXEvent::archivedClassName() const {
  return "TQFCPXEvent";
}

void TQFCPXEvent::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObject("library", library.lock());
  coder.encodeObject("fcpxLibrary", fcpxLibrary.lock());
  coder.encodeValue("ID", ID);
  coder.encodeValue("name", name);
  coder.encodeObjects<TQFCPXMulticam>("multicamItems", multicamItems);
}

void TQFCPXEvent::initWithCoder(KeyedUnarchiver& coder) {
  library = coder.decodeReference<TQLibrary>("library");
  ID = coder.decodeString("ID");
  name = coder.decodeString("name");
  multicamItems =
      claimed(coder.decodeObjects<TQFCPXMulticam>("multicamItems"), &TQFCPXMulticam::event, weak_from_this());
}

const ArchivedClass TQFCPXLibrary::archivedClass_("TQFCPXLibrary", [] { return Ptr(new TQFCPXLibrary); });

std::string TQFCPXLibrary::archivedClassName() const {
  return "TQFCPXLibrary";
}

void TQFCPXLibrary::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObject("library", library.lock());
  coder.encodeValue("ID", ID);
  coder.encodeValue("name", name);
  coder.encodeValue("path", path);
  coder.encodeObjects<TQFCPXEvent>("events", events);
}

void TQFCPXLibrary::initWithCoder(KeyedUnarchiver& coder) {
  ID = coder.decodeString("ID");
  name = coder.decodeString("name");
  path = coder.decodeString("path");
  events = claimed(coder.decodeObjects<TQFCPXEvent>("events"), &TQFCPXEvent::fcpxLibrary, weak_from_this());
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
  coder.encodeObjects<TQFCPXLibrary>("fcpxLibraryItems", fcpxLibraryItems);
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
  fcpxLibraryItems = claimed(coder.decodeObjects<TQFCPXLibrary>("fcpxLibraryItems"), &TQFCPXLibrary::library,
                             weak_from_this());
  fcpxLibraryDict = coder.decodeDictionary("fcpxLibraryDict");
  fromBrindle = coder.decodeInteger("fromBrindle") != 0;
}

}  // namespace vornex
