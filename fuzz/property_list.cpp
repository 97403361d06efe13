#include <cstdint>

#include "foundation/PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto value = vornex::parsePropertyList(std::string_view(reinterpret_cast<const char*>(data), size));
  if (value) (void)vornex::writePropertyList(*value);
  return 0;
}
