#pragma once

#include <string>

#include "server/store/AssetStore.h"

namespace vornex::server {

/// Whether an asset that was imported by reference has its master at this path of the package
/// ("/Media/Master/…").
[[nodiscard]] Result<bool> isReferencedMaster(AssetStore& store, const std::string& recordPath);

/// A link is followed for an asset that was imported by reference, so only the owner says which assets are.
/// Fails with `noAuthority` for an item of somebody else that makes such an asset, or that leads its master
/// elsewhere. What an item leaves as it is does no harm.
[[nodiscard]] Result<void> checkMayReference(AssetStore& store, const Dictionary& item);

/// Whether any asset has its master at the path or below it.
[[nodiscard]] Result<bool> isAnyMaster(AssetStore& store, const std::string& recordPath);

/// Whether any asset has its thumbnail or its preview at the path.
[[nodiscard]] Result<bool> isAnyPicture(AssetStore& store, const std::string& recordPath);

}  // namespace vornex::server
