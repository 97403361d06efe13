#include <vornex/Log.h>
#include <vornex/TQFCPXEvent.h>
#include <vornex/TQFCPXLibrary.h>
#include <vornex/TQFCPXMulticam.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQVornexUtil.h>

#include <unordered_map>

#include "core/Coercion.h"
#include "core/SdkError.h"
#include "model/NodeList.h"
#include "model/ProjectTree.h"
#include "model/TreeFile.h"

namespace vornex {

static constexpr const char* kCannotSavePlist = "Can't save FCPX Library plist : ";
static constexpr const char* kCannotSaveNewLibrary = "Can't save fcpx library pfile : ";

// Loading

std::optional<std::vector<FCPXLibraryPtr>> TQLibrary::loadFCPXLibrariesWithError(TQErrorPtr* error) {
  TQErrorPtr ignored;
  std::optional<TreeAnswer> tree = loadTree("/fcpxlibraries", fcpxFile(), error ? *error : ignored);
  if (!tree) return std::nullopt;
  setFCPXLibraryHash(std::move(tree->hash));
  takeFCPXLibraries(tree->nodes);
  isFCPXTreeLoaded_ = true;
  return fcpxLibraryItems;
}

void TQLibrary::takeFCPXLibraries(const Array& records) {
  std::unordered_map<std::string, FCPXLibraryPtr> known;
  for (const FCPXLibraryPtr& record : fcpxLibraryItems)
    if (record && record->ID) known.emplace(*record->ID, record);
  std::vector<FCPXLibraryPtr> taken;
  for (const Value& value : records) {
    const Dictionary* dictionary = value.ifDictionary();
    if (!dictionary) continue;
    // Each object once, should an identifier occur twice.
    auto found = known.extract(coerce::string(dictionary->find("id")).value_or(""));
    FCPXLibraryPtr record = found ? found.mapped() : TQFCPXLibrary::fcpxLibraryWithDictionary(*dictionary);
    if (!record) continue;
    if (found) record->setDictionary(*dictionary);
    record->library = weak_from_this();
    loadFCPXEventsWithlibraryDict(*dictionary, record);
    taken.push_back(std::move(record));
  }
  fcpxLibraryItems = std::move(taken);
}

void TQLibrary::loadFCPXEventsWithlibraryDict(const Dictionary& libraryDict,
                                              const FCPXLibraryPtr& fcpxLibrary) {
  fcpxLibrary->events.clear();
  for (const Value& value : coerce::array(libraryDict.find("events"))) {
    const Dictionary* dictionary = value.ifDictionary();
    FCPXEventPtr event = dictionary ? TQFCPXEvent::fcpxEventWithDictionary(*dictionary) : nullptr;
    if (!event) continue;
    event->library = weak_from_this();
    event->fcpxLibrary = fcpxLibrary;
    loadFCPXMulticamsWithDict(*dictionary, event);
    fcpxLibrary->events.push_back(std::move(event));
  }
}

void TQLibrary::loadFCPXMulticamsWithDict(const Dictionary& eventDict, const FCPXEventPtr& fcpxEvent) {
  fcpxEvent->multicamItems.clear();
  for (const Value& value : coerce::array(eventDict.find("multicams"))) {
    const Dictionary* dictionary = value.ifDictionary();
    FCPXMulticamPtr multicam = dictionary ? TQFCPXMulticam::fcpxMulticamWithDictionary(*dictionary) : nullptr;
    if (!multicam) continue;
    multicam->event = fcpxEvent;
    fcpxEvent->multicamItems.push_back(std::move(multicam));
  }
}

// Looking up

std::int64_t TQLibrary::indexOfFCPXLibrary(const FCPXLibraryPtr& fcpxLibrary) const {
  return fcpxLibrary ? nodes::indexOf(fcpxLibraryItems, fcpxLibrary->ID) : -1;
}

FCPXLibraryPtr TQLibrary::fcpxLibraryWithID(const std::string& ID) const {
  return nodes::withID(fcpxLibraryItems, ID);
}

FCPXEventPtr TQLibrary::fcpxEventWithID(const std::string& ID) const {
  for (const FCPXLibraryPtr& record : fcpxLibraryItems)
    if (FCPXEventPtr found = record ? record->fcpxEventWithID(ID) : nullptr) return found;
  return nullptr;
}

FCPXMulticamPtr TQLibrary::fcpxMulticamWithID(const std::string& ID) const {
  for (const FCPXLibraryPtr& record : fcpxLibraryItems) {
    if (!record) continue;
    for (const FCPXEventPtr& event : record->events)
      if (FCPXMulticamPtr found = event ? event->fcpxMulticamWithID(ID) : nullptr) return found;
  }
  return nullptr;
}

bool TQLibrary::holds(const TQFCPXLibrary& node) const {
  return nodes::holds(fcpxLibraryItems, node);
}

bool TQLibrary::holds(const TQFCPXEvent& node) const {
  FCPXLibraryPtr above = node.fcpxLibrary.lock();
  return above && nodes::holds(above->events, node) && holds(*above);
}

bool TQLibrary::holds(const TQFCPXMulticam& node) const {
  FCPXEventPtr above = node.event.lock();
  return above && nodes::holds(above->multicamItems, node) && holds(*above);
}

// Saving

/// Puts what the nodes' dictionary forms make under the key. False when a node has none.
template <typename Node, typename Form>
static bool setForms(Dictionary& parent, const char* key, const std::vector<std::shared_ptr<Node>>& nodes,
                     Form form) {
  Array forms;
  for (const std::shared_ptr<Node>& node : nodes) {
    std::optional<Dictionary> made = node ? form(*node) : std::nullopt;
    if (!made) return false;
    forms.push_back(std::move(*made));
  }
  parent.set(key, std::move(forms));
  return true;
}

static std::optional<Dictionary> formOf(const TQFCPXEvent& event) {
  std::optional<Dictionary> form = event.fcpxEventDictionary();
  auto multicamForm = [](const TQFCPXMulticam& multicam) { return multicam.fcpxMulticamDictionary(); };
  if (form && !setForms(*form, "multicams", event.multicamItems, multicamForm)) return std::nullopt;
  return form;
}

static std::optional<Dictionary> formOf(const TQFCPXLibrary& record) {
  std::optional<Dictionary> form = record.fcpxLibraryDictionary();
  auto eventForm = [](const TQFCPXEvent& event) { return formOf(event); };
  if (form && !setForms(*form, "events", record.events, eventForm)) return std::nullopt;
  return form;
}

TQErrorPtr TQLibrary::fcpxNotSaved(const char* complaint, const std::string& reason) const {
  logLine(LogLevel::error, complaint + packageFolder.value_or("") + ", " + reason);
  return withReason(tree::error(10003, "project.error.cannot.save"), reason);
}

TQErrorPtr TQLibrary::prepareFCPXChange(const char* complaint) {
  if (!packageFolder || packageFolder->empty())
    return fcpxNotSaved(complaint, "the library has no package folder");
  if (isFCPXTreeLoaded_) return nullptr;
  if (fcpxLibraryItems.empty()) {
    Result<std::optional<TreeFile::Tree>> tree = fcpxFile().read();
    if (!tree) return fcpxNotSaved(complaint, tree.error().message);
    // Without a file there is still nothing: a tree that appears later is not written over.
    if (!*tree) return nullptr;
    takeFCPXLibraries((*tree)->nodes);
    setFCPXLibraryHash(std::move((*tree)->hash));
  }
  isFCPXTreeLoaded_ = true;
  return nullptr;
}

TQErrorPtr TQLibrary::saveFCPXTree(const char* complaint) {
  if (TQErrorPtr error = prepareFCPXChange(complaint)) return error;
  TreeFile& file = fcpxFile();
  Dictionary content;
  auto form = [](const TQFCPXLibrary& record) { return formOf(record); };
  if (!setForms(content, file.listKey(), fcpxLibraryItems, form))
    return fcpxNotSaved(complaint, "a record has no identifier, path or name");
  std::string hash = MD5String(TQVornexUtil::UUIDString());
  Result<TreeFile::Saved> saved =
      file.save(*content.find(file.listKey())->ifArray(), fcpxLibraryHashValue.value_or(""), hash);
  if (!saved) return fcpxNotSaved(complaint, saved.error().message);
  if (*saved == TreeFile::Saved::overtaken)
    return fcpxNotSaved(complaint, "another program has changed " + file.path());
  content.set("hash", hash);
  fcpxLibraryDict.merge(content);
  setFCPXLibraryHash(std::move(hash));
  return nullptr;
}

bool TQLibrary::saveFCPXLibraryPlist() {
  return !saveFCPXTree(kCannotSavePlist);
}

// Changes

FCPXLibraryPtr TQLibrary::addFCPXLibraryWithPath(const OptionalString& path, const OptionalString& UUIDString,
                                                 TQErrorPtr* error) {
  auto refuse = [&](std::int64_t code, const char* key) {
    if (error) *error = tree::error(code, key);
    return nullptr;
  };
  if (!path) {
    logLine(LogLevel::error, "Library not found: " + dbName.value_or(""));
    return refuse(10000, "request.error.param.nil");
  }
  if (libraryType == kLibraryTypeNetwork) {
    logLine(LogLevel::warning, "Library is network: " + name.value_or(""));
    return refuse(10005, "library.error.no.authority.network");
  }
  FCPXLibraryPtr added = TQFCPXLibrary::fcpxLibraryWithID(UUIDString, path);
  if (!added) return refuse(10000, "request.error.param.nil");
  added->library = weak_from_this();
  TQErrorPtr failure = prepareFCPXChange(kCannotSaveNewLibrary);
  if (!failure) {
    fcpxLibraryItems.push_back(added);
    failure = saveFCPXTree(kCannotSaveNewLibrary);
    if (failure) fcpxLibraryItems.pop_back();
  }
  if (error) *error = failure;
  return failure && error ? nullptr : added;
}

bool TQLibrary::moveFCPXLibrary(const FCPXLibraryPtr& fcpxLibrary, std::int64_t toIndex) {
  return fcpxLibrary && nodes::move(fcpxLibraryItems, fcpxLibrary->ID, toIndex) && saveFCPXLibraryPlist();
}

bool TQLibrary::removeFCPXLibrary(const FCPXLibraryPtr& fcpxLibrary) {
  if (!fcpxLibrary) {
    logLine(LogLevel::error, "fcpxLibrary is nil");
    return false;
  }
  if (libraryType == kLibraryTypeNetwork) {
    logLine(LogLevel::warning, "removeLiveFolder's library is network: " + name.value_or(""));
    return false;
  }
  if (prepareFCPXChange(kCannotSavePlist)) return false;
  nodes::removeWithID(fcpxLibraryItems, fcpxLibrary->ID);
  return saveFCPXLibraryPlist();
}

TQErrorPtr TQLibrary::renameFCPX(OptionalString& nodeName, const OptionalString& newName) {
  if (!newName || newName->empty()) return tree::error(10000, "request.error.param.nil");
  OptionalString oldName = std::exchange(nodeName, newName);
  TQErrorPtr failure = saveFCPXTree();
  if (failure) nodeName = std::move(oldName);
  return failure;
}

}  // namespace vornex
