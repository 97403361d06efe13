#include <vornex/TQFCPXMulticam.h>
#include <vornex/TQLibrary.h>

#include "core/Coercion.h"
#include "model/Conversion.h"
#include "model/ProjectTree.h"

namespace vornex {

FCPXMulticamPtr TQFCPXMulticam::fcpxMulticamWithID(OptionalString ID, OptionalString name,
                                                   std::int64_t type) {
  if (!ID || !name) return nullptr;
  Ptr multicam(new TQFCPXMulticam);
  multicam->ID = std::move(ID);
  multicam->name = std::move(name);
  multicam->multicamType = type;
  return multicam;
}

FCPXMulticamPtr TQFCPXMulticam::fcpxMulticamWithDictionary(const Dictionary& dictionary) {
  return conversion::caught("fcpxMulticamWithDictionary : ", [&] {
    return fcpxMulticamWithID(coerce::string(dictionary.find("id")), coerce::string(dictionary.find("name")),
                              coerce::integer(dictionary.find("type")));
  });
}

std::optional<Dictionary> TQFCPXMulticam::fcpxMulticamDictionary() const {
  return conversion::caught("fcpxMulticamDictionary exception: ", [&]() -> std::optional<Dictionary> {
    return Dictionary{
        {"id", conversion::required(ID, "id")}, {"name", name.value_or("")}, {"type", multicamType.load()}};
  });
}

bool TQFCPXMulticam::rename(const OptionalString& newName, const LibraryPtr& library, TQErrorPtr* error) {
  const bool isKnown = library && library->holds(*this);
  TQErrorPtr failure =
      isKnown ? library->renameFCPX(name, newName) : tree::error(10000, "request.error.param.nil");
  if (error) *error = failure;
  return !failure;
}

}  // namespace vornex
