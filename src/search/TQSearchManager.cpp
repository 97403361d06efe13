#include <vornex/TQSearchManager.h>

namespace vornex {

TQSearchManager& TQSearchManager::sharedManager() {
  static TQSearchManager* manager = new TQSearchManager;
  return *manager;
}

TQSearchManager::Settings TQSearchManager::settings() const {
  std::lock_guard lock(mutex_);
  return settings_;
}

bool TQSearchManager::ascending() const {
  return settings().ascending;
}

void TQSearchManager::setAscending(bool ascending) {
  std::lock_guard lock(mutex_);
  settings_.ascending = ascending;
}

std::int64_t TQSearchManager::pageLimit() const {
  return settings().pageLimit;
}

void TQSearchManager::setPageLimit(std::int64_t limit) {
  std::lock_guard lock(mutex_);
  settings_.pageLimit = limit;
}

std::vector<std::string> TQSearchManager::searchFields() const {
  return settings().searchFields;
}

void TQSearchManager::setSearchFields(std::vector<std::string> fields) {
  std::lock_guard lock(mutex_);
  settings_.searchFields = std::move(fields);
}

std::optional<std::map<std::string, bool>> TQSearchManager::searchAssetTypes() const {
  return settings().searchAssetTypes;
}

void TQSearchManager::setSearchAssetTypes(std::optional<std::map<std::string, bool>> types) {
  std::lock_guard lock(mutex_);
  settings_.searchAssetTypes = std::move(types);
}

void TQSearchManager::setSearchAssetTypeKey(const std::string& key, bool useSearchField) {
  std::lock_guard lock(mutex_);
  if (settings_.searchAssetTypes) (*settings_.searchAssetTypes)[key] = useSearchField;
}

OptionalString TQSearchManager::sortField() const {
  return settings().sortField;
}

void TQSearchManager::setSortField(OptionalString field) {
  std::lock_guard lock(mutex_);
  settings_.sortField = std::move(field);
}

}  // namespace vornex
