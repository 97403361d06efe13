// links: vornex
#include <vornex/KeyedArchive.h>
#include <vornex/Log.h>

#include <cstdint>

using namespace vornex;

// Whatever can be read can be written and read again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool isQuiet = (setLogSink([](LogLevel, const std::string&) {}), true);
  (void)isQuiet;
  auto root = KeyedUnarchiver::unarchivedObject<Archivable>(Data(data, data + size));
  if (!root) return 0;
  std::optional<Data> bytes = KeyedArchiver::archivedData(root);
  if (!bytes || !KeyedUnarchiver::unarchivedObject<Archivable>(*bytes)) __builtin_trap();
  return 0;
}
