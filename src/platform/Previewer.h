#pragma once

#include <string>
#include <vector>

#include "foundation/Error.h"
#include "platform/Images.h"

namespace vornex {

/// The look of a document within the bounds (each for both sides, the largest first): still images, drawings
/// and PDF directly, other kinds by the desktop's installed thumbnailer for them, which gets 20 seconds and
/// no network. Sound and moving pictures are none of its business: they are an error, like every file that
/// nothing can show. What reads the file is contained. Domain "preview", "image" or "decoder". Blocks;
/// thread-safe.
[[nodiscard]] Result<std::vector<Image>> previewImages(const std::string& path,
                                                       const std::vector<int>& bounds);

}  // namespace vornex
