#include "platform/MachineIdentity.h"

#include "foundation/Files.h"

namespace vornex {

namespace {

constexpr std::size_t kSizeLimit = 4096;
constexpr std::size_t kDigits = 32;

/// The UUID in the file, with or without dashes; a file of zeros holds none.
OptionalString uuidInFile(const std::string& path) {
  auto content = readFile(path, kSizeLimit);
  if (!content) return std::nullopt;
  std::string digits;
  for (char c : *content) {
    if (std::isxdigit(static_cast<unsigned char>(c))) {
      digits += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    } else if (c != '-' && !std::isspace(static_cast<unsigned char>(c))) {
      return std::nullopt;
    }
  }
  if (digits.size() != kDigits || digits.find_first_not_of('0') == std::string::npos) return std::nullopt;
  std::string_view all = digits;
  return fmt::format("{}-{}-{}-{}-{}", all.substr(0, 8), all.substr(8, 4), all.substr(12, 4),
                     all.substr(16, 4), all.substr(20));
}

}  // namespace

OptionalString machineIdentifier() {
  for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id", "/sys/class/dmi/id/product_uuid"}) {
    if (auto identifier = uuidInFile(path)) return identifier;
  }
  return std::nullopt;
}

}  // namespace vornex
