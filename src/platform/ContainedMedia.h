#pragma once

#include <vornex/Value.h>

#include <string>
#include <vector>

#include "foundation/Error.h"
#include "platform/Images.h"

/// What FileKind.h, Images.h, Media.h, MediaInformation.h and Xmp.h read from files, read in a process of its
/// own: nothing in a file can harm the caller. The same results, and domain "decoder" when the reader died of
/// the file or took too long. Every function blocks and is thread-safe.
namespace vornex::contained {

/// See platform/FileKind.h.
[[nodiscard]] Result<std::string> mimeType(const std::string& path);
[[nodiscard]] Result<std::vector<Image>> loadThumbnails(const std::string& path,
                                                        const std::vector<int>& bounds);
/// The first embedded picture that decodes.
[[nodiscard]] Result<Image> artwork(const std::string& path);
[[nodiscard]] Result<Image> videoFrame(const std::string& path, double seconds);

std::optional<Dictionary> videoInformation(const std::string& path);
std::optional<Dictionary> audioInformation(const std::string& path);
std::optional<Dictionary> imageInformation(const std::string& path);
std::optional<Dictionary> redInformation(const std::string& path);
std::optional<Dictionary> xmpMetadata(const std::string& path);

}  // namespace vornex::contained
