#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQAsset.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include "asset/KeyPaths.h"
#include "core/Coercion.h"
#include "core/SdkError.h"

namespace vornex {

namespace {

using Assets = std::vector<AssetPtr>;
using AssetIDs = std::optional<std::vector<std::string>>;

Value itemsBody(Array items) {
  return Dictionary{{"items", std::move(items)}};
}

TQErrorPtr errorWithFailedAssets(const OptionalString& domain, std::int64_t code,
                                 const std::vector<std::string>& failed) {
  return std::make_shared<TQError>(domain, code,
                                   Dictionary{{"failAssets", Array(failed.begin(), failed.end())}});
}

/// The error of a request, with the unconfirmed assets if it names any.
TQErrorPtr describedFailure(const TQErrorPtr& error, const AssetIDs& failed) {
  if (!failed || failed->empty()) return error;
  return errorWithFailedAssets(error->domain(), error->code(), *failed);
}

/// Applies a change to the assets whose identifier stands at their place in the answer.
AssetIDs applyConfirmed(const Assets& assets, const Value& response, const char* operation,
                        const std::function<void(TQAsset& asset)>& apply) {
  const Value* value = response.find("items");
  const Array* items = value ? value->ifArray() : nullptr;
  if (!items) return std::nullopt;
  std::vector<std::string> failed;
  for (std::size_t i = 0; i < assets.size(); ++i) {
    TQAsset& asset = *assets[i];
    OptionalString confirmed = i < items->size() ? coerce::string((*items)[i].find("_id")) : std::nullopt;
    if (confirmed && confirmed == asset.id) {
      apply(asset);
      continue;
    }
    logLine(LogLevel::warning, std::string("fail to ") + operation + ":" + asset.id.value_or(""));
    failed.push_back(asset.id.value_or(""));
  }
  return failed;
}

std::vector<std::string> strings(const Value& array) {
  std::vector<std::string> result;
  for (const Value& element : coerce::array(&array))
    if (const std::string* string = element.ifString()) result.push_back(*string);
  return result;
}

/// Some keys of a change are fields of the asset as well.
void setField(TQAsset& asset, const std::string& key, const Value& value) {
  if (key == "name")
    asset.setName(coerce::string(&value));
  else if (key == "colorlabel")
    asset.setColorType(coerce::integer(&value));
  else if (key == "flagged")
    asset.setFlagged(coerce::boolean(&value));
  else if (key == "rating")
    asset.setRating(coerce::integer(&value));
  else if (key == "tags")
    asset.setTags(strings(value));
  else if (key == "frameio_id")
    asset.frameioID = coerce::string(&value);
}

bool hasOwnerElsewhere(const TQAsset& asset) {
  return asset.isLiveFolder || asset.isFCPXLibrary;
}

ProjectPtr projectOf(const ProjectPtr& target) {
  return target->projectType == kProjectTypeGroup ? target->rootProject.lock() : target;
}

ProjectPtr groupOf(const ProjectPtr& target) {
  return target->projectType == kProjectTypeGroup ? target : nullptr;
}

std::string identifier(const ProjectPtr& node) {
  return node ? node->id.value_or("") : "";
}

}  // namespace

// Changing metadata

TQErrorPtr TQLibrary::assetUpdateError(const Assets& assets) const {
  bool canSend = !assets.empty() && connection && connection->user;
  return canSend ? nullptr : localizedError(10000, "request.error.param.nil");
}

AssetIDs TQLibrary::sendMetaData(const Assets& assets, const Dictionary& metaDict, TQErrorPtr& error) {
  Array items;
  for (const AssetPtr& asset : assets) {
    Dictionary item = metaDict;
    item.set("_id", asset->id);
    items.push_back(std::move(item));
  }
  const UserPtr user = connection->user;
  Value response = TQVornexUtil::syncRequestURL(serverURL("/assets/update"), user->id, user->password, "POST",
                                                itemsBody(std::move(items)), &error);
  return updateAssets(assets, metaDict, response);
}

bool TQLibrary::updateAssets(const Assets& assets, const Dictionary& metaDictionary, TQErrorPtr* error) {
  TQErrorPtr failure = assetUpdateError(assets);
  if (error) *error = failure;
  if (failure) return false;
  AssetIDs failed = sendMetaData(assets, metaDictionary, failure);
  if (!failure || !error || !failed || failed->empty()) return true;
  *error = describedFailure(failure, failed);
  return false;
}

void TQLibrary::updateAssets(const Assets& assets, const Dictionary& metaDictionary, Completion completion) {
  GlobalQueue::shared().async(
      [self = shared_from_this(), assets, metaDictionary, completion = std::move(completion)] {
        TQErrorPtr error = self->assetUpdateError(assets);
        if (error) return completion(false, error);
        AssetIDs failed = self->sendMetaData(assets, metaDictionary, error);
        completion(!error, error ? describedFailure(error, failed) : nullptr);
      });
}

AssetIDs TQLibrary::updateAssets(const Assets& assets, const Dictionary& metaDict, const Value& response) {
  std::vector<keypath::Leaf> leaves = keypath::leaves(metaDict);
  return applyConfirmed(assets, response, "updateAssets", [&](TQAsset& asset) {
    for (const auto& [path, value] : leaves) {
      setField(asset, path, *value);
      if (asset.metaDataDictionary) updateMetaDataWithKeyPath(path, *value, *asset.metaDataDictionary);
    }
  });
}

void TQLibrary::updateAssetsColor(const Assets& assets, std::int64_t color, Completion completion) {
  updateAssets(assets, {{"colorlabel", color}}, std::move(completion));
}

void TQLibrary::updateAssetsRating(const Assets& assets, std::int64_t rating, Completion completion) {
  updateAssets(assets, {{"rating", rating}}, std::move(completion));
}

void TQLibrary::updateAssetsFlagged(const Assets& assets, bool flagged, Completion completion) {
  updateAssets(assets, {{"flagged", flagged}}, std::move(completion));
}

void TQLibrary::parentKeyPath(const std::string& prefix, const Dictionary& dictionary,
                              std::vector<std::string>& keyPathArray) {
  for (const auto& [path, value] : keypath::leaves(dictionary, prefix)) keyPathArray.push_back(path);
}

void TQLibrary::updateMetaDataWithKeyPath(const std::string& keyPath, const Value& value,
                                          Dictionary& metaDict) {
  if (!keypath::store(metaDict, keyPath, value))
    logLine(LogLevel::error, "updateAssets exception :a level of " + keyPath + " is no dictionary");
}

// Deleting

bool TQLibrary::deleteAsset(const AssetPtr& asset, bool wantRemoveOrignalFile, TQErrorPtr* error) {
  if (!asset || !asset->id) return true;
  if (!connection || !connection->user) {
    logLine(LogLevel::error, "deleteAssetWithError param nil");
    return false;
  }
  const UserPtr user = connection->user;
  const std::string path =
      std::string("/assets/delete?deleteoriginal=") + (wantRemoveOrignalFile ? "YES" : "NO");
  Value response = TQVornexUtil::syncRequestURL(serverURL(path), user->id, user->password, "POST",
                                                itemsBody({Dictionary{{"_id", *asset->id}}}), error);
  return TQProject::extractAssetIDWithResponse(response).has_value();
}

// Moving

void TQLibrary::sendAssetUpdate(Array items, std::function<AssetIDs(const Value& response)> apply,
                                Completion completion) {
  if (!connection || !connection->user)
    return completion(false, localizedError(10000, "request.error.param.nil"));
  const UserPtr user = connection->user;
  TQVornexUtil::requestURL(
      serverURL("/assets/update"), user->id, user->password, "POST", itemsBody(std::move(items)),
      [apply = std::move(apply), completion = std::move(completion)](Value response, TQErrorPtr error) {
        AssetIDs failed = apply(response);
        completion(!error, error ? describedFailure(error, failed) : nullptr);
      });
}

void TQLibrary::moveAssetsToTrash(const Assets& assets, Completion completion) {
  GlobalQueue::shared().async([self = shared_from_this(), assets, completion = std::move(completion)] {
    if (assets.empty()) return completion(false, localizedError(10000, "request.error.param.nil"));
    Array items;
    for (const AssetPtr& asset : assets) {
      Dictionary item = {{"_id", asset->id}};
      if (hasOwnerElsewhere(*asset))
        item.merge({{"project", ""}, {"group", ""}});
      else
        item.set("trash", true);
      items.push_back(std::move(item));
    }
    auto apply = [self, assets](const Value& response) { return self->moveAssetsToTrash(assets, response); };
    self->sendAssetUpdate(std::move(items), apply, completion);
  });
}

AssetIDs TQLibrary::moveAssetsToTrash(const Assets& assets, const Value& response) {
  return applyConfirmed(assets, response, "moveAssetsToTrash", [](TQAsset& asset) {
    asset.setIsDeleted(true);
    if (hasOwnerElsewhere(asset)) asset.project = nullptr;
  });
}

void TQLibrary::restoreAssets(const Assets& assets, Completion completion) {
  GlobalQueue::shared().async([self = shared_from_this(), assets, completion = std::move(completion)] {
    Assets restorable;
    std::vector<std::string> homeless;
    Array items;
    for (const AssetPtr& asset : assets) {
      if (!asset->project || !asset->project->id || !self->projectWithID(*asset->project->id)) {
        logLine(LogLevel::warning, "invalid project:" + identifier(asset->project));
        homeless.push_back(asset->id.value_or(""));
        continue;
      }
      restorable.push_back(asset);
      items.push_back(Dictionary{{"_id", asset->id}, {"trash", false}});
    }
    if (assets.empty() || !self->connection || !self->connection->user)
      return completion(false, localizedError(10000, "request.error.param.nil"));
    if (items.empty()) return completion(false, errorWithFailedAssets(kVornexErrorDomain, 10007, homeless));
    auto failed = std::make_shared<std::vector<std::string>>(homeless);
    auto apply = [self, restorable, failed](const Value& response) {
      AssetIDs unconfirmed = self->restoreAssets(restorable, response);
      if (unconfirmed)
        failed->insert(failed->end(), unconfirmed->begin(), unconfirmed->end());
      else
        for (const AssetPtr& asset : restorable) failed->push_back(asset->id.value_or(""));
      return unconfirmed;
    };
    bool allSent = homeless.empty();
    self->sendAssetUpdate(std::move(items), apply, [completion, allSent, failed](bool ok, TQErrorPtr error) {
      if (allSent) return completion(ok, error);
      if (!error) return completion(false, errorWithFailedAssets(kVornexErrorDomain, 10007, *failed));
      completion(false, errorWithFailedAssets(error->domain(), 10008, *failed));
    });
  });
}

AssetIDs TQLibrary::restoreAssets(const Assets& assets, const Value& response) {
  return applyConfirmed(assets, response, "restoreAssets", [](TQAsset& asset) { asset.setIsDeleted(false); });
}

void TQLibrary::moveAssets(const Assets& assets, const ProjectPtr& toProject, Completion completion) {
  GlobalQueue::shared().async(
      [self = shared_from_this(), assets, toProject, completion = std::move(completion)] {
        ProjectPtr project = toProject ? projectOf(toProject) : nullptr;
        if (assets.empty() || !project)
          return completion(false, localizedError(10000, "request.error.param.nil"));
        Array items;
        for (const AssetPtr& asset : assets)
          items.push_back(Dictionary{{"_id", asset->id},
                                     {"trash", false},
                                     {"project", identifier(project)},
                                     {"group", identifier(groupOf(toProject))}});
        auto apply = [self, assets, toProject](const Value& response) {
          return self->moveAssets(assets, toProject, response);
        };
        self->sendAssetUpdate(std::move(items), apply, completion);
      });
}

AssetIDs TQLibrary::moveAssets(const Assets& assets, const ProjectPtr& toProject, const Value& response) {
  // The log names the trash for moves as well.
  return applyConfirmed(assets, response, "moveAssetsToTrash", [&](TQAsset& asset) {
    asset.project = projectOf(toProject);
    asset.group = groupOf(toProject);
    asset.setIsDeleted(false);
  });
}

}  // namespace vornex
