#pragma once

#include <string>

#include "foundation/Error.h"
#include "platform/Images.h"

namespace vornex {

/// The look of a document within maxSize x maxSize pixels: still images, drawings and PDF directly, other
/// kinds by the desktop's installed thumbnailer for them, which gets 20 seconds. Sound and moving pictures
/// are none of its business: they are an error, like every file that nothing can show. Domain "preview" or
/// "image". Blocks; thread-safe.
[[nodiscard]] Result<Image> previewImage(const std::string& path, int maxSize);

}  // namespace vornex
