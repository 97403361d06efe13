#include "foundation/Json.h"

#include <cstdint>
#include <cstdlib>

// What can be read can be written, and reads back as the same value.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto value = vornex::parseJson(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!value) return 0;
  auto again = vornex::parseJson(vornex::writeJson(*value, vornex::JsonStyle::pretty));
  if (!again || !(*again == *value)) std::abort();
  return 0;
}
