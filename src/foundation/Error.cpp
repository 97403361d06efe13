#include "foundation/Error.h"

#include <system_error>

namespace vornex {

tl::unexpected<Error> posixFailure(int errorNumber, const std::string& what) {
  return failure("posix", errorNumber, what + ": " + std::generic_category().message(errorNumber));
}

}  // namespace vornex
