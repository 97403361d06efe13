// links: vornex_server
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "foundation/Json.h"
#include "server/index/Fields.h"
#include "server/store/DocumentReader.h"

using namespace vornex;

// What is stored can be read back, whole and in part.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view body(reinterpret_cast<const char*>(data), size);
  auto texts = server::objectsInArray(body, "items").value_or(std::vector{body});
  for (std::string_view text : texts) {
    auto sent = server::readSentDocument(text, server::indexedKeys());
    if (!sent) continue;
    std::string stored = "{" + sent->rest;
    if (!parseJson(stored) || !server::readEntries(stored, server::indexedKeys())) std::abort();
  }
  return 0;
}
