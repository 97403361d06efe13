#pragma once

#include <vornex/Types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "import/FileFacts.h"

namespace vornex {

// How the record of a new file begins.

/// What its name tells; placed in the project or group. The file is not looked at.
AssetPtr assetNamedAfter(const std::string& path, const ProjectPtr& project);

/// What the file system tells. For a folder, the size is that of all that it holds.
void takeFacts(TQAsset& asset, const FileFacts& facts, std::uint64_t size);

/// The size to record of an item with these facts. Blocks for as long as a folder takes.
std::uint64_t recordedSize(const std::string& path, const FileFacts& facts);

}  // namespace vornex
