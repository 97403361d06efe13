#pragma once

#include <gmock/gmock.h>

#include "core/StatusCode.h"
#include "foundation/Json.h"
#include "server/store/AssetStore.h"
#include "support/TemporaryFolder.h"

namespace vornex::server {

inline Value fromJson(const std::string& json) {
  return *parseJson(json);
}

inline StatusCode codeOf(const Error& error) {
  return static_cast<StatusCode>(error.code);
}

/// A store in a folder of its own.
class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override { reopen(); }

  void reopen() {
    store_.reset();
    Result<std::unique_ptr<AssetStore>> opened = openSQLiteAssetStore(folder());
    ASSERT_TRUE(opened) << opened.error().message;
    store_ = std::move(*opened);
  }

  std::string folder() const { return temporary_ / "db"; }
  std::string file() const { return folder() + "/library.sqlite"; }

  std::vector<std::string> create(const std::vector<std::string>& documents) {
    Array items;
    for (const std::string& document : documents) items.push_back(fromJson(document));
    Result<std::vector<Result<std::string>>> created = store_->create(items);
    EXPECT_TRUE(created) << created.error().message;
    std::vector<std::string> ids;
    for (const Result<std::string>& id : *created) ids.push_back(id.value());
    return ids;
  }

  SearchPage search(const SearchRequest& request) {
    Result<SearchPage> page = store_->search(request);
    EXPECT_TRUE(page) << request.query << ": " << page.error().message;
    return page ? *page : SearchPage();
  }

  /// The values under the key of what the query finds, in order.
  Array found(const std::string& query, const std::string& key = "name", const std::string& sortField = "",
              bool ascending = true) {
    SearchPage page = search({0, 1000, query, sortField, ascending});
    EXPECT_EQ(page.total, static_cast<std::int64_t>(page.documents.size())) << query;
    Array values;
    for (const std::string& document : page.documents) values.push_back(*fromJson(document).find(key));
    return values;
  }

  testing::TemporaryFolder temporary_;
  std::unique_ptr<AssetStore> store_;
};

}  // namespace vornex::server
