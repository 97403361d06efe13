#pragma once

#include <functional>
#include <map>
#include <mutex>

#include "core/Coercion.h"
#include "foundation/Json.h"
#include "foundation/Text.h"
#include "server/ServerError.h"
#include "server/query/PredicateEvaluator.h"
#include "server/query/PredicateParser.h"
#include "server/store/AssetStore.h"

namespace vornex::server::testing {

/// Assets in memory. Queries: none, or a path compared with "masterpath", alone or "AND importtype == 0".
class FakeAssetStore : public AssetStore {
 public:
  /// Called at the start of each search.
  std::function<void()> onSearch = [] {};
  /// Called at the start of each copy.
  std::function<void()> onSnapshot = [] {};

  Result<std::vector<Result<std::string>>> create(const std::vector<std::string_view>& documents) override {
    std::vector<Result<std::string>> ids;
    for (std::string_view json : documents) {
      Value document = parseJson(json).value();
      if (!document.find("name")) {
        ids.push_back(serverFailure(StatusCode::invalidRequest, "An asset needs a name."));
        continue;
      }
      std::string id = makeUUID();
      std::lock_guard lock(mutex_);
      documents_[id] = *document.ifDictionary();
      documents_[id].set("_id", id);
      ids.push_back(id);
    }
    return ids;
  }

  Result<std::vector<Result<std::string>>> update(const Array& items) override {
    std::vector<Result<std::string>> ids;
    for (const Value& item : items) {
      std::lock_guard lock(mutex_);
      auto found = documents_.find(coerce::string(item.find("_id")).value_or(""));
      if (found == documents_.end()) {
        ids.push_back(serverFailure(StatusCode::itemNotFound, "There is no such asset."));
      } else {
        found->second.merge(*item.ifDictionary());
        ids.push_back(found->first);
      }
    }
    return ids;
  }

  Result<std::vector<Result<Dictionary>>> remove(const std::vector<std::string>& ids) override {
    std::vector<Result<Dictionary>> removed;
    for (const std::string& id : ids) {
      std::lock_guard lock(mutex_);
      auto node = documents_.extract(id);
      if (node) {
        removed.push_back(node.mapped());
      } else {
        removed.push_back(serverFailure(StatusCode::itemNotFound, "There is no such asset."));
      }
    }
    return removed;
  }

  Result<std::optional<std::string>> document(const std::string& id) override {
    std::lock_guard lock(mutex_);
    auto found = documents_.find(id);
    if (found == documents_.end()) return std::optional<std::string>();
    return writeJson(found->second);
  }

  Result<SearchPage> search(const SearchRequest& request) override {
    onSearch();
    Result<Predicate> predicate = request.query.empty() ? Predicate{true} : parsePredicate(request.query);
    if (!predicate) return tl::unexpected(predicate.error());
    SearchPage page;
    TimeLimit limit;
    std::lock_guard lock(mutex_);
    for (const auto& [id, document] : documents_) {
      if (!holds(*predicate, document, limit)) continue;
      std::int64_t index = page.total++;
      if (index / request.limit == request.page) page.documents.push_back(writeJson(document));
    }
    return page;
  }

  Result<std::int64_t> count() override { return static_cast<std::int64_t>(documents_.size()); }
  Result<void> checkIntegrity() override { return {}; }
  Result<void> snapshot(const std::string&) override {
    onSnapshot();
    return {};
  }

 private:
  std::mutex mutex_;
  std::map<std::string, Dictionary> documents_;
};

}  // namespace vornex::server::testing
