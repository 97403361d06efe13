// links: vornex_server
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "foundation/Json.h"
#include "server/index/Fields.h"
#include "server/store/DocumentReader.h"

using namespace vornex;

// What is stored is what was sent, can be read back, and is what the other reader understands.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view body(reinterpret_cast<const char*>(data), size);
  auto items = server::objectsInArray(body, "items");
  auto texts = items.value_or(std::vector{body});
  bool allSent = true;
  server::DocumentReader reader(server::indexedKeys());
  for (std::string_view text : texts) {
    auto sent = reader.sent(text);
    auto value = parseJson(text);
    if (!sent) {
      if (value && value->ifDictionary() && sent.error().message != "nested too deeply") std::abort();
      allSent = false;
      continue;
    }
    if (!value || !value->ifDictionary()) std::abort();
    value->ifDictionary()->erase("_id");
    std::string stored = "{" + sent->rest;
    auto again = parseJson(stored);
    auto entries = reader.entries(stored);
    if (!again || *again != *value || !entries) std::abort();
    for (std::size_t i = 0; i < sent->values.size(); ++i) {
      const std::string& key = server::indexedKeys()[i];
      const Value* expected = value->ifDictionary()->find(key);
      const Value* read = entries->find(key);
      if (sent->values[i] != (expected ? *expected : Value())) std::abort();
      if ((read != nullptr) != (expected != nullptr) || (read && *read != *expected)) std::abort();
    }
  }
  if (items && allSent && !parseJson(body)) std::abort();
  return 0;
}
