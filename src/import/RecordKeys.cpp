#include "import/RecordKeys.h"

#include <vornex/TQAsset.h>

#include <set>

#include "import/SourceKeys.h"

namespace vornex {

static std::set<std::string> recordKeys() {
  std::set<std::string> keys{"_id",
                             "checksum",
                             "haspreview",
                             "importdisklabel",
                             "importvolume",
                             "latitude",
                             "longitude",
                             "importfrompath",
                             "red",
                             kSourcePath,
                             kSourceSize,
                             kSourceDate,
                             "versionthumbnail"};
  AssetPtr blank = TQAsset::assetWithName("");
  blank->mediaInfo.emplace();
  const std::optional<Dictionary> record = blank->assetDictionary();
  for (const auto& [key, value] : record.value_or(Dictionary())) keys.insert(key);
  return keys;
}

bool isRecordKey(const std::string& key) {
  static const auto* const keys = new std::set<std::string>(recordKeys());
  return keys->contains(key);
}

}  // namespace vornex
