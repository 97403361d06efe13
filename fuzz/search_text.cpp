// links: vornex
#include <vornex/TQSearchManager.h>

#include <cstdint>
#include <cstdlib>

// Every text gives one answer: terms with an operator that can be sent, or an error.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vornex;
  const TQSearchManager& manager = TQSearchManager::sharedManager();
  int answers = 0;
  manager.parseSearchString(
      std::string(reinterpret_cast<const char*>(data), size),
      [&](std::optional<TQSearchManager::Terms> terms, std::int64_t operatorType, const TQErrorPtr& error) {
        ++answers;
        if (terms.has_value() == (error != nullptr)) std::abort();
        if (terms && !manager.createQueryWithSearchStrings(*terms, operatorType)) std::abort();
      });
  if (answers != 1) std::abort();
  return 0;
}
