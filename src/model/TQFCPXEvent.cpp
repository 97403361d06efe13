#include <vornex/Log.h>
#include <vornex/TQFCPXEvent.h>
#include <vornex/TQFCPXLibrary.h>
#include <vornex/TQFCPXMulticam.h>
#include <vornex/TQLibrary.h>

#include "core/Coercion.h"
#include "foundation/Text.h"
#include "model/Conversion.h"
#include "model/NodeList.h"
#include "model/ProjectTree.h"

namespace vornex {

FCPXEventPtr TQFCPXEvent::fcpxEventWithID(OptionalString ID, OptionalString name) {
  if (!ID || !name) return nullptr;
  Ptr event(new TQFCPXEvent);
  event->ID = std::move(ID);
  event->name = std::move(name);
  return event;
}

FCPXEventPtr TQFCPXEvent::fcpxEventWithDictionary(const Dictionary& dictionary) {
  return conversion::caught("fcpxEventWithDictionary : ", [&] {
    return fcpxEventWithID(coerce::string(dictionary.find("id")), coerce::string(dictionary.find("name")));
  });
}

FCPXEventPtr TQFCPXEvent::undefinedFCPXEventWithLibrary(const LibraryPtr& library,
                                                        const FCPXLibraryPtr& fcpxLibrary) {
  static std::mutex mutex;
  // Never destroyed: workers may search while the process ends.
  static const auto* undefined =
      new Ptr(fcpxEventWithID("UnDefined FCPX Event UUID", "UnDefined FCPX Event Name"));
  std::lock_guard lock(mutex);
  (*undefined)->library = library;
  (*undefined)->fcpxLibrary = fcpxLibrary;
  return *undefined;
}

std::optional<Dictionary> TQFCPXEvent::fcpxEventDictionary() const {
  using conversion::required;
  return conversion::caught("fcpxEventDictionary exception: ", [&]() -> std::optional<Dictionary> {
    return Dictionary{{"id", required(ID, "id")}, {"name", required(name, "name")}};
  });
}

FCPXMulticamPtr TQFCPXEvent::fcpxMulticamWithID(const std::string& wanted) const {
  return nodes::withID(multicamItems, wanted);
}

FCPXMulticamPtr TQFCPXEvent::fcpxMulticamWithName(const OptionalString& wanted, std::int64_t multicamType,
                                                  const OptionalString& eventUUID) const {
  if (!wanted || !eventUUID) return nullptr;
  auto matches = [&, form = decomposed(*wanted)](const FCPXMulticamPtr& multicam) {
    FCPXEventPtr above = multicam ? multicam->event.lock() : nullptr;
    return above && above->ID == eventUUID && multicam->multicamType == multicamType && multicam->name &&
           decomposed(*multicam->name) == form;
  };
  auto found = std::find_if(multicamItems.begin(), multicamItems.end(), matches);
  return found == multicamItems.end() ? nullptr : *found;
}

std::int64_t TQFCPXEvent::indexOfFCPXMulticam(const FCPXMulticamPtr& multicam) const {
  return multicam ? nodes::indexOf(multicamItems, multicam->ID) : -1;
}

LibraryPtr TQFCPXEvent::owner() const {
  LibraryPtr known = library.lock();
  return known && known->holds(*this) ? known : nullptr;
}

bool TQFCPXEvent::rename(const OptionalString& newName, TQErrorPtr* error) {
  LibraryPtr known = owner();
  TQErrorPtr failure =
      known ? known->renameFCPX(name, newName) : tree::error(10000, "request.error.param.nil");
  if (error) *error = failure;
  return !failure;
}

FCPXMulticamPtr TQFCPXEvent::addFCPXMulticamWithName(const OptionalString& newName,
                                                     const OptionalString& UUIDString, std::int64_t type,
                                                     TQErrorPtr* error) {
  LibraryPtr known = owner();
  FCPXMulticamPtr added = TQFCPXMulticam::fcpxMulticamWithID(UUIDString, newName, type);
  TQErrorPtr failure;
  if (!known || !added) {
    failure = tree::error(10000, "request.error.param.nil");
  } else {
    added->event = weak_from_this();
    multicamItems.push_back(added);
    failure = known->saveFCPXTree();
    if (failure) multicamItems.pop_back();
  }
  if (error) *error = failure;
  return failure ? nullptr : added;
}

bool TQFCPXEvent::moveFCPXMulticam(const FCPXMulticamPtr& multicam, std::int64_t toIndex) {
  LibraryPtr known = owner();
  return known && multicam && nodes::move(multicamItems, multicam->ID, toIndex) &&
         known->saveFCPXLibraryPlist();
}

bool TQFCPXEvent::removeFCPXMulticam(const FCPXMulticamPtr& multicam) {
  LibraryPtr known = owner();
  if (!known || !multicam) return false;
  if (known->libraryType == kLibraryTypeNetwork) {
    logLine(LogLevel::warning, "removeFCPXMulticam library is network: " + known->name.value_or(""));
    return false;
  }
  nodes::removeWithID(multicamItems, multicam->ID);
  return known->saveFCPXLibraryPlist();
}

}  // namespace vornex
