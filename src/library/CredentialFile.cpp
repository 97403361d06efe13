#include "library/CredentialFile.h"

#include "foundation/Files.h"
#include "foundation/PropertyList.h"

namespace vornex {

Result<void> writeCredentialFile(const std::string& path, const Value& value) {
  auto bytes = writePropertyList(value);
  if (!bytes) return tl::unexpected(bytes.error());
  return writeFileAtomically(path, *bytes, kCredentialFileMode);
}

}  // namespace vornex
