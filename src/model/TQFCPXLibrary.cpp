#include <vornex/Log.h>
#include <vornex/TQFCPXEvent.h>
#include <vornex/TQFCPXLibrary.h>
#include <vornex/TQLibrary.h>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "model/Conversion.h"
#include "model/NodeList.h"
#include "model/ProjectTree.h"

namespace vornex {

FCPXLibraryPtr TQFCPXLibrary::fcpxLibraryWithID(OptionalString ID, OptionalString path) {
  if (!ID || !path) return nullptr;
  Ptr record(new TQFCPXLibrary);
  record->ID = std::move(ID);
  record->name = deletingPathExtension(lastPathComponent(*path));
  record->path = std::move(path);
  return record;
}

FCPXLibraryPtr TQFCPXLibrary::fcpxLibraryWithDictionary(const Dictionary& dictionary) {
  return conversion::caught("fcpxLibraryWithDictionary : ", [&] {
    return fcpxLibraryWithID(coerce::string(dictionary.find("id")), coerce::string(dictionary.find("path")));
  });
}

FCPXLibraryPtr TQFCPXLibrary::undefinedFCPXLibraryWithLibrary(const LibraryPtr& library) {
  static std::mutex mutex;
  // Never destroyed: workers may search while the process ends.
  static const auto* undefined = [] {
    Ptr made(new TQFCPXLibrary);
    made->ID = "UnDefined FCPX Library UUID";
    made->name = "Undefined FCPX Library Name";
    return new Ptr(made);
  }();
  std::lock_guard lock(mutex);
  // What already holds is not written again: others may be reading it.
  if ((*undefined)->library.lock() != library || !library) (*undefined)->library = library;
  return *undefined;
}

void TQFCPXLibrary::setDictionary(const Dictionary& dictionary) {
  conversion::caught("setDictionary : ", [&] {
    OptionalString newID = coerce::string(dictionary.find("id"));
    OptionalString newName = coerce::string(dictionary.find("name"));
    OptionalString newPath = coerce::string(dictionary.find("path"));
    if (!newID || !newName || !newPath) return false;
    ID = std::move(newID);
    name = std::move(newName);
    path = std::move(newPath);
    return true;
  });
}

std::optional<Dictionary> TQFCPXLibrary::fcpxLibraryDictionary() const {
  using conversion::required;
  return conversion::caught("fcpXLibraryDictionary exception: ", [&]() -> std::optional<Dictionary> {
    return Dictionary{{"id", required(ID, "id")}, {"path", required(path, "path")}};
  });
}

FCPXEventPtr TQFCPXLibrary::fcpxEventWithID(const std::string& wanted) const {
  return nodes::withID(events, wanted);
}

std::vector<std::string> TQFCPXLibrary::eventIDs() const {
  std::vector<std::string> identifiers;
  for (const FCPXEventPtr& event : events)
    if (event && event->ID) identifiers.push_back(*event->ID);
  return identifiers;
}

std::int64_t TQFCPXLibrary::indexOfFCPXEvent(const FCPXEventPtr& event) const {
  return event ? nodes::indexOf(events, event->ID) : -1;
}

LibraryPtr TQFCPXLibrary::owner() const {
  LibraryPtr known = library.lock();
  return known && known->holds(*this) ? known : nullptr;
}

bool TQFCPXLibrary::rename(const OptionalString& newName, TQErrorPtr* error) {
  LibraryPtr known = owner();
  TQErrorPtr failure =
      known ? known->renameFCPX(name, newName) : tree::error(10000, "request.error.param.nil");
  if (error) *error = failure;
  return !failure;
}

FCPXEventPtr TQFCPXLibrary::addFCPXEventWithName(const OptionalString& newName,
                                                 const OptionalString& UUIDString, TQErrorPtr* error) {
  LibraryPtr known = owner();
  FCPXEventPtr added = TQFCPXEvent::fcpxEventWithID(UUIDString, newName);
  TQErrorPtr failure;
  if (!known || !added) {
    failure = tree::error(10000, "request.error.param.nil");
  } else if (known->libraryType == kLibraryTypeNetwork) {
    failure = tree::error(10005, "library.error.no.authority.network");
  } else {
    added->library = library;
    added->fcpxLibrary = weak_from_this();
    events.push_back(added);
    failure = known->saveFCPXTree();
    if (failure) events.pop_back();
  }
  if (error) *error = failure;
  return failure ? nullptr : added;
}

bool TQFCPXLibrary::moveFCPXEvent(const FCPXEventPtr& event, std::int64_t toIndex) {
  LibraryPtr known = owner();
  return known && event && nodes::move(events, event->ID, toIndex) && known->saveFCPXLibraryPlist();
}

bool TQFCPXLibrary::removeFCPXEvent(const FCPXEventPtr& event) {
  LibraryPtr known = owner();
  if (!known || !event) return false;
  if (known->libraryType == kLibraryTypeNetwork) {
    logLine(LogLevel::warning, "removeFCPXEvent library is network: " + known->name.value_or(""));
    return false;
  }
  nodes::removeWithID(events, event->ID);
  return known->saveFCPXLibraryPlist();
}

}  // namespace vornex
