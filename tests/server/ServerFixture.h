#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"
#include "server/FakeAssetStore.h"
#include "server/Service.h"
#include "server/http/Router.h"
#include "support/TemporaryFolder.h"

namespace vornex::server::testing {

/// A service over a temporary root folder. The databases of libraries named "damaged…" cannot be opened.
class ServerTest : public ::testing::Test {
 protected:
  static constexpr const char* kDbName = "4D2C8D5E-0000-4000-8000-000000000001";

  ServerTest() { ::setenv("VORNEX_ROOT", (folder_ / "root").c_str(), 1); }

  void openService() {
    auto opened = Service::open([this](const std::string& folder, bool) { return openFake(folder); });
    ASSERT_TRUE(opened) << opened.error().message;
    service_ = std::move(*opened);
  }

  Result<std::unique_ptr<AssetStore>> openFake(const std::string& folder) {
    std::string dbName = lastPathComponent(folder);
    if (dbName.starts_with("damaged"))
      return serverFailure(StatusCode::databaseFailed, "The database is damaged.");
    if (auto made = createDirectories(folder); !made) return tl::unexpected(made.error());
    auto store = std::make_unique<FakeAssetStore>();
    store->onSearch = [this] { onSearch_(); };
    store->onSnapshot = [this] { onSnapshot_(); };
    return std::unique_ptr<AssetStore>(std::move(store));
  }

  std::string packageFolder(const std::string& dbName) const { return folder_ / ("packages/" + dbName); }

  Dictionary record(const std::string& dbName) const {
    return {{"dbname", dbName},
            {"name", "Library " + dbName},
            {"packagefolder", packageFolder(dbName)},
            {"type", 0},
            {"shared", true},
            {"uploadable", true},
            {"editable", true}};
  }

  void writeListFile(const Array& records) {
    ASSERT_TRUE(createDirectories(layout::preferenceFolder()));
    ASSERT_TRUE(writePropertyListFile(layout::localLibraryPlist(), Dictionary{{"library", records}}));
  }

  void writeUsers(const Array& users) {
    ASSERT_TRUE(createDirectories(layout::preferenceFolder()));
    ASSERT_TRUE(writePropertyListFile(layout::userPlist(), Dictionary{{"users", users}}));
    ASSERT_TRUE(service_->users().reload());
  }

  Dictionary user(const std::string& id, const std::string& password, const std::string& dbName) const {
    return {{"id", id},
            {"name", "Name of " + id},
            {"password", md5Hex(password)},
            {"type", 0},
            {"libraries", Dictionary{{dbName, "assigned"}}}};
  }

  std::string ownerCredentials() const { return basic(kTQLocalUserID, service_->users().localPassword()); }

  static std::string basic(const std::string& id, const std::string& password) {
    return "Basic " + base64(id + ":" + md5Hex(password));
  }

  /// Writes a file below the package, with the folders above it.
  void writePackageFile(const std::string& relative, const std::string& content) {
    std::string path = appendPathComponent(packageFolder(kDbName), relative);
    ASSERT_TRUE(createDirectories(deletingLastPathComponent(path)));
    ASSERT_TRUE(writeFileAtomically(path, content));
  }
  bool packageHas(const std::string& relative) const {
    return itemExists(appendPathComponent(packageFolder(kDbName), relative));
  }

  vornex::testing::TemporaryFolder folder_;
  std::function<void()> onSearch_ = [] {};
  std::function<void()> onSnapshot_ = [] {};
  std::unique_ptr<Service> service_;
};

/// The same with one open library and a router.
class RouterTest : public ServerTest {
 protected:
  void SetUp() override {
    openService();
    ASSERT_TRUE(service_->libraries().add(record(kDbName), true));
    limits_.pageSize = 50;
    limits_.batchItems = 5;
    router_ = std::make_unique<Router>(*service_, limits_);
    authorization_ = ownerCredentials();
  }

  Response get(const std::string& path) { return send("GET", path, ""); }
  Response post(const std::string& path, const std::string& body) { return send("POST", path, body); }

  Response send(const std::string& method, const std::string& path, const std::string& body) {
    Request request;
    request.method = method;
    request.target = "/vornex/" + path;
    request.authorization = authorization_;
    request.device = device_;
    request.host = "10.0.0.1";
    request.server = "127.0.0.1:38317";
    if (method == "POST") request.contentType = "application/json";
    request.hasBody = !body.empty();
    request.body = body;
    return router_->answer(request);
  }

  static Value json(const Response& response) { return parseJson(response.body).value_or(Value()); }
  static std::int64_t code(const Response& response) {
    Value body = json(response);
    const Value* status = body.find("Status");
    return status ? coerce::integer(status->find("code")) : 0;
  }

  std::string library(const std::string& rest) const { return std::string("libraries/") + kDbName + rest; }

  /// Stores one asset; gives its identifier.
  std::string createAsset(Dictionary asset) {
    asset.set("name", "clip");
    Value reply = json(post(library("/assets/create"), writeJson(Dictionary{{"items", Array{asset}}})));
    return coerce::string(coerce::array(reply.find("items")).at(0).find("_id")).value();
  }

  Limits limits_;
  std::unique_ptr<Router> router_;
  std::string authorization_;
  std::string device_ = "device-1";
};

}  // namespace vornex::server::testing
