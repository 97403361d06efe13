#include <gmock/gmock.h>

#include <set>
#include <thread>

#include "server/ServerFixture.h"
#include "server/http/Replies.h"

using ::testing::ElementsAre;

namespace vornex::server::testing {
namespace {

TEST(StatusTable, GivesEachCodeItsHttpStatus) {
  const std::pair<int, unsigned> expected[] = {
      {0, 200},  {1, 500},  {2, 500},  {3, 400},  {4, 403},  {5, 404},  {6, 409},  {7, 413},  {8, 404},
      {9, 504},  {10, 409}, {11, 503}, {12, 404}, {13, 409}, {14, 403}, {15, 400}, {16, 507}, {26, 401},
      {27, 403}, {31, 502}, {35, 424}, {38, 409}, {39, 429}, {40, 426}, {99, 500},
  };
  for (auto [code, status] : expected)
    EXPECT_EQ(httpStatusFor(static_cast<StatusCode>(code)), status) << code;
}

TEST(StatusTable, HidesTheDetailsOfLowerFloors) {
  Response full = errorReply(Error{"posix", ENOSPC, "Cannot write /home/ann/secret"});
  EXPECT_EQ(full.status, 507u);
  EXPECT_EQ(full.body.find("secret"), std::string::npos);
  EXPECT_EQ(errorReply(Error{"plist", 0, "bad"}).status, 500u);
}

// Authentication and sessions

TEST_F(RouterTest, RefusesEverybodyWithoutTheRightPassword) {
  std::string password = service_->users().localPassword();
  const std::string refused[] = {
      "",
      "Basic",
      "Basic !!!!",
      "Bearer " + base64(kTQLocalUserID + (":" + md5Hex(password))),
      "Basic " + base64(kTQLocalUserID + (":" + password)),
      "Basic " + base64(kTQLocalUserID + (":" + lowercased(md5Hex(password)))),
      "Basic " + base64(kTQLocalUserID),
      "Basic " + base64("nobody:" + md5Hex(password)),
      "Basic " + base64("nobody:--------------------------------"),
  };
  for (const std::string& header : refused) {
    authorization_ = header;
    // An address that does not exist says no more than one that does.
    for (const char* path : {"version", "no/such/path"}) {
      Response response = get(path);
      EXPECT_EQ(response.status, 401u) << header;
      EXPECT_EQ(code(response), 26) << header;
    }
  }
  authorization_ = basic(std::string(1000, 'a'), "p");
  EXPECT_EQ(get("version").status, 400u);
  authorization_ = ownerCredentials();
  device_ = std::string(1000, 'd');
  EXPECT_EQ(get("version").status, 400u);
  device_ = "";
  EXPECT_EQ(get("version").status, 200u);
}

TEST_F(RouterTest, SlowsGuessingDownWithoutHoldingAnybodyUp) {
  using namespace std::chrono_literals;
  writeUsers({user("ann", "p", kDbName)});
  authorization_ = basic("ann", "guess");
  for (int i = 0; i < 4; ++i) EXPECT_EQ(get("version").status, 401u);
  authorization_ = basic("ann", "p");
  Response refusal = get("version");
  EXPECT_EQ(refusal.status, 429u) << "not even the right password is looked at";
  EXPECT_EQ(code(refusal), 26);
  std::this_thread::sleep_for(250ms);
  EXPECT_EQ(get("version").status, 200u);

  FailedLogins logins;
  auto now = FailedLogins::Clock::now();
  for (int i = 0; i < 30; ++i) logins.count("ann", "h", now);
  EXPECT_FALSE(logins.mayTry("ann", "h", now + 4900ms));
  EXPECT_TRUE(logins.mayTry("ann", "h", now + 5000ms));
  EXPECT_TRUE(logins.mayTry("ann", "elsewhere", now));

  authorization_ = basic(kTQLocalUserID, "guess");
  for (int i = 0; i < 10; ++i) EXPECT_EQ(get("version").status, 401u);
  authorization_ = ownerCredentials();
  EXPECT_EQ(get("version").status, 200u) << "the owner cannot be kept out";
}

TEST_F(RouterTest, RefusesWhatPagesInABrowserSend) {
  Request request;
  request.method = "POST";
  request.target = "/vornex/" + library("/assets/search");
  request.authorization = authorization_;
  request.server = "127.0.0.1:38317";
  request.body = "{}";
  request.hasBody = true;
  struct {
    std::string contentType, origin, fetchSite;
    unsigned status;
  } cases[] = {
      {"application/json; charset=utf-8", "", "", 200},
      {"application/json", "http://127.0.0.1:38317", "same-origin", 200},
      {"", "", "", 415},
      {"text/plain", "", "", 415},
      {"application/x-www-form-urlencoded", "", "", 415},
      {"application/json", "http://evil.example", "", 403},
      {"application/json", "http://127.0.0.1:8000", "", 403},
      {"application/json", "null", "", 403},
      {"application/json", "", "cross-site", 403},
  };
  for (const auto& [contentType, origin, fetchSite, status] : cases) {
    request.contentType = contentType;
    request.origin = origin;
    request.fetchSite = fetchSite;
    EXPECT_EQ(router_->answer(request).status, status) << contentType << " " << origin << " " << fetchSite;
  }
  // An image of a foreign page could log the user out.
  request = {};
  request.method = "GET";
  request.target = "/vornex/logout";
  request.authorization = authorization_;
  request.fetchSite = "cross-site";
  EXPECT_EQ(code(router_->answer(request)), 14);
}

TEST_F(RouterTest, TakesUsersFromTheirFileAndKeepsTheAccountOfTheOwner) {
  Dictionary impostor = user("eve", "p", kDbName);
  impostor.set("type", 2);
  writeUsers({user("ann:b", "p", kDbName), user(kTQLocalUserID, "p", kDbName), impostor});
  authorization_ = basic("ann:b", "p");
  EXPECT_EQ(get("login/check").status, 200u);
  for (const char* id : {kTQLocalUserID, "eve"}) {
    authorization_ = basic(id, "p");
    EXPECT_EQ(get("login/check").status, 401u) << id;
  }

  struct stat info {};
  ASSERT_EQ(::stat(layout::localAccountFile().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  std::string password = service_->users().localPassword();
  router_.reset();
  service_.reset();
  ASSERT_EQ(::chmod(layout::localAccountFile().c_str(), 0644), 0);
  openService();
  EXPECT_EQ(service_->users().localPassword(), password);
  ASSERT_EQ(::stat(layout::localAccountFile().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(RouterTest, LetsANetworkUserWorkOnOneDevice) {
  writeUsers({user("ann", "p", kDbName)});
  authorization_ = basic("ann", "p");
  EXPECT_EQ(post("login", R"({"forcelogin": false})").status, 200u);
  device_ = "device-2";
  EXPECT_EQ(code(post("login", R"({"forcelogin": false})")), 38);
  EXPECT_EQ(post("login", R"({"forcelogin": true})").status, 200u);
  EXPECT_EQ(get("libraries?type=0").status, 200u);
  Array sessions = service_->sessions().list();
  ASSERT_EQ(sessions.size(), 1u);
  EXPECT_EQ(coerce::string(sessions[0].find("deviceuuid")), "device-2");
  EXPECT_EQ(coerce::string(sessions[0].find("username")), "Name of ann");
  EXPECT_EQ(coerce::string(sessions[0].find("host")), "10.0.0.1");
  EXPECT_GT(coerce::integer(sessions[0].find("logindate")), 20000101000000000);

  device_ = "device-1";
  EXPECT_EQ(code(get("libraries?type=0")), 38);
  EXPECT_EQ(get("login/check").status, 200u);
  EXPECT_EQ(get("logout").status, 200u);
  EXPECT_EQ(code(get("libraries?type=0")), 38) << "without a login the rules are the same";
  device_ = "device-2";
  EXPECT_EQ(get("logout").status, 200u);
  device_ = "device-3";
  EXPECT_EQ(get("libraries?type=0").status, 200u);
  EXPECT_EQ(service_->sessions().list().size(), 1u) << "who works has a session";
}

TEST(Sessions, EndWhenIdleAndAreLimited) {
  using namespace std::chrono_literals;
  Sessions sessions(2);
  User ann{"ann", "Ann", 0, "", {}};
  User bob{"bob", "Bob", 0, "", {}};
  User eve{"eve", "Eve", 0, "", {}};
  auto start = Sessions::Clock::now();
  ASSERT_TRUE(sessions.login(ann, {"h", "d1", "Mac"}, false, start));
  ASSERT_TRUE(sessions.login(bob, {"h", "d1", "Mac"}, false, start));
  auto refused = sessions.login(eve, {"h", "d1", "Mac"}, false, start);
  ASSERT_FALSE(refused);
  EXPECT_EQ(statusCodeOf(refused.error()), StatusCode::tooManySessions);
  EXPECT_TRUE(sessions.login(ann, {"h", "d2", "Mac"}, true, start))
      << "a displaced session gives its place up";
  EXPECT_FALSE(sessions.admit(eve, {"h", "d1", "Mac"}, start)) << "nor is there room without a login";
  EXPECT_TRUE(sessions.admit({"owner", "", kUserTypeLocalOwner, "", {}}, {"h", "d1", "Mac"}, start));
  EXPECT_TRUE(sessions.admit(bob, {"h", "d1", "Mac"}, start + 11h));
  EXPECT_TRUE(sessions.login(eve, {"h", "d1", "Mac"}, false, start + 13h)) << "Ann's session has ended";
  EXPECT_EQ(sessions.list().size(), 2u);
}

// Rights

TEST_F(RouterTest, GivesNetworkUsersOnlyWhatIsSharedAndAssigned) {
  Dictionary hidden = record("hidden");
  hidden.set("shared", false);
  Dictionary readOnly = record("readonly");
  readOnly.set("uploadable", false);
  readOnly.set("editable", false);
  for (const Dictionary& library : {hidden, readOnly, record("foreign")}) {
    ASSERT_TRUE(service_->libraries().add(library, true));
  }
  Dictionary ann = user("ann", "p", kDbName);
  ann.set("libraries", Dictionary{{kDbName, ""}, {"hidden", ""}, {"readonly", ""}});
  writeUsers({ann});
  EXPECT_EQ(coerce::array(json(get("libraries?type=0")).find("items")).size(), 4u);
  EXPECT_EQ(coerce::array(json(get("libraries?type=1")).find("items")).size(), 0u);

  authorization_ = basic("ann", "p");
  std::set<std::string> seen;
  for (const Value& item : coerce::array(json(get("libraries?type=0")).find("items"))) {
    seen.insert(coerce::string(item.find("dbname")).value());
  }
  EXPECT_EQ(seen, (std::set<std::string>{kDbName, "readonly"}));

  struct {
    const char* method;
    std::string path;
    int code;
  } cases[] = {
      {"GET", "libraries/hidden", 27},
      {"GET", "libraries/foreign/projects", 4},
      {"POST", "libraries/foreign/assets/search", 4},
      {"GET", "libraries/foreign/master/a.mov", 4},
      {"GET", "libraries/unknown", 8},
      {"GET", "libraries/..", 8},
      {"POST", "libraries/readonly/assets/search", 0},
      {"POST", "libraries/readonly/assets/create", 4},
      {"POST", "libraries/readonly/assets/update", 4},
      {"POST", "libraries/readonly/assets/delete", 4},
      {"POST", library("/assets/search"), 0},
  };
  for (const auto& [method, path, expected] : cases) {
    EXPECT_EQ(code(send(method, path, R"({"items": []})")), expected) << path;
  }
}

TEST_F(RouterTest, KnowsWhichOperationsThereAre) {
  EXPECT_EQ(code(get("nothing")), 12);
  EXPECT_EQ(get(library("/master")).status, 404u);
  Response wrongMethod = send("DELETE", library("/assets/search"), "");
  EXPECT_EQ(wrongMethod.status, 405u);
  EXPECT_THAT(wrongMethod.headers, ::testing::Contains(std::pair<std::string, std::string>("Allow", "POST")));
  EXPECT_EQ(get(library("/assets/search")).status, 405u) << "\"search\" is no identifier";
  EXPECT_EQ(send("HEAD", "version", "").status, 200u);
  EXPECT_EQ(get("libraries/a%2Fb").status, 400u);
  EXPECT_EQ(get("libraries/%ff").status, 400u);
  EXPECT_EQ(get("libraries?type=x").status, 400u);
}

TEST_F(RouterTest, AnswersForClosedAndFailedDatabases) {
  writeListFile({record(kDbName)});
  ASSERT_TRUE(service_->libraries().readList());
  service_->libraries().close(kDbName);
  EXPECT_EQ(code(post(library("/assets/search"), "{}")), 8);
  EXPECT_EQ(get(library("")).status, 200u);
  ASSERT_FALSE(service_->libraries().add(record("damaged"), true));
  EXPECT_EQ(code(post("libraries/damaged/assets/search", "{}")), 8);
  writeListFile({record(kDbName), record("damaged-listed")});
  ASSERT_TRUE(createDirectories(layout::databaseFolder("damaged-listed")));
  ASSERT_TRUE(service_->libraries().load());
  EXPECT_EQ(code(post("libraries/damaged-listed/assets/search", "{}")), 2);
  EXPECT_EQ(post(library("/assets/search"), "{}").status, 200u);
}

// Assets

TEST_F(RouterTest, StoresAndFindsAssets) {
  Response created =
      post(library("/assets/create"), R"({"items": [{"name": "a", "extra": {"x": 1}}, {}, {"name": "b"}]})");
  ASSERT_EQ(created.status, 200u);
  Array items = coerce::array(json(created).find("items"));
  ASSERT_EQ(items.size(), 3u);
  std::string first = coerce::string(items[0].find("_id")).value();
  EXPECT_EQ(coerce::integer(items[1].find("Status")->find("code")), 3);
  EXPECT_TRUE(items[2].find("_id"));

  Response updated =
      post(library("/assets/update"),
           writeJson(Dictionary{{"items", Array{Dictionary{{"_id", first}, {"rating", 3}},
                                                Dictionary{{"_id", "unknown"}, {"rating", 3}}}}}));
  EXPECT_EQ(coerce::string(coerce::array(json(updated).find("items")).at(0).find("_id")), first);
  Value asset = coerce::array(json(get(library("/assets/" + first))).find("items")).at(0);
  EXPECT_EQ(coerce::integer(asset.find("rating")), 3);
  EXPECT_EQ(coerce::integer(asset.find("extra")->find("x")), 1);

  Value page = json(post(library("/assets/search"),
                         R"({"page": 1, "limit": 1, "tag": 7, "query": "", "sort": {"ascending": 1}})"));
  EXPECT_EQ(coerce::array(page.find("items")).size(), 1u);
  EXPECT_EQ(coerce::integer(page.find("total")), 2);
  EXPECT_EQ(coerce::integer(page.find("page")), 1);
  EXPECT_EQ(coerce::integer(page.find("limit")), 1);
  EXPECT_EQ(coerce::integer(page.find("tag")), 7);
  EXPECT_GE(coerce::real(page.find("elapsed")), 0.0);
  EXPECT_EQ(coerce::string(page.find("version")), serverVersion());
  EXPECT_EQ(coerce::array(json(post(library("/assets/search"), R"({"page": 9})")).find("items")).size(), 0u);

  // Half a surrogate pair is no text; the other items are stored.
  Response mixed =
      post(library("/assets/update"), R"({"items": [{"_id": ")" + first + R"(", "name": "\udc80"},
                                                                 {"_id": ")" +
                                          first + R"(", "rating": 4}]})");
  EXPECT_EQ(coerce::integer(coerce::array(json(mixed).find("items")).at(0).find("Status")->find("code")), 3);
  asset = coerce::array(json(get(library("/assets/" + first))).find("items")).at(0);
  EXPECT_EQ(coerce::string(asset.find("name")), "a");
  EXPECT_EQ(coerce::integer(asset.find("rating")), 4);

  EXPECT_EQ(code(get(library("/assets/unknown"))), 5);
  EXPECT_EQ(code(post(library("/assets/update"), R"({"items": [{"_id": "unknown"}]})")), 5)
      << "nothing could be done";
  EXPECT_EQ(post(library("/assets/create"), R"({"items": []})").status, 200u);
}

TEST_F(RouterTest, CarriesTheHashesOfTheTrees) {
  auto hashes = [this] {
    Value page = json(post(library("/assets/search"), "{}"));
    return std::vector<std::string>{coerce::string(page.find("projecthash")).value(),
                                    coerce::string(page.find("livefolderhash")).value(),
                                    coerce::string(page.find("fcpxlibraryhash")).value()};
  };
  EXPECT_THAT(hashes(), ElementsAre("", "", ""));
  auto writeTree = [](const std::string& path, const Dictionary& tree) {
    ASSERT_TRUE(createDirectories(deletingLastPathComponent(path)));
    ASSERT_TRUE(writePropertyListFile(path, tree));
  };
  std::string package = packageFolder(kDbName);
  Dictionary group{{"id", "g1"}, {"name", "Group"}, {"dbname", kDbName}, {"type", 1}};
  Dictionary node{{"id", "p1"}, {"name", "One"}, {"dbname", kDbName}, {"type", 0}, {"group", Array{group}}};
  writeTree(layout::projectPlist(package), {{"hash", "A"}, {"projects", Array{node}}, {"other", 1}});
  writeTree(layout::liveFolderPlist(package), {{"hash", "B"}});
  EXPECT_EQ(json(get(library("/fcpxlibraries"))),
            Value(Dictionary{{"hash", ""}, {"fcpxlibraries", Array()}}));
  Dictionary clip{{"id", "m"}, {"name", "Clip"}, {"type", 2}};
  Dictionary event{{"id", "e"}, {"name", "Event"}, {"multicams", Array{clip}}};
  Dictionary bundle{{"id", "l"}, {"path", "/Show.fcpbundle"}, {"events", Array{event}}};
  writeTree(layout::fcpxLibraryPlist(package),
            {{"hash", "C"}, {"fcpxlibraries", Array{bundle}}, {"other", 1}});
  EXPECT_THAT(hashes(), ElementsAre("A", "B", "C"));
  EXPECT_EQ(json(get(library("/fcpxlibraries"))),
            Value(Dictionary{{"hash", "C"}, {"fcpxlibraries", Array{bundle}}}));
  EXPECT_EQ(json(get(library("/projects"))), Value(Dictionary{{"hash", "A"}, {"projects", Array{node}}}));
  writeTree(layout::projectPlist(package), {{"hash", "D"}, {"projects", Array{}}});
  writeTree(layout::fcpxLibraryPlist(package), {{"hash", "E"}, {"fcpxlibraries", Array{clip}}});
  EXPECT_THAT(hashes(), ElementsAre("D", "B", "E"));
  EXPECT_EQ(get(library("/fcpxlibraries")).status, 500u) << "the bundle has no path";
  ASSERT_TRUE(writeFileAtomically(layout::projectPlist(package), "garbage"));
  EXPECT_EQ(get(library("/projects")).status, 500u);
}

TEST_F(RouterTest, RefusesMalformedAndOversizedRequests) {
  struct {
    std::string path;
    std::string body;
    unsigned status;
    int code;
  } cases[] = {
      {"/assets/create", "", 400, 3},
      {"/assets/create", "{\"items\": [", 400, 3},
      {"/assets/create", "[]", 400, 3},
      {"/assets/create", R"({"items": {}})", 400, 3},
      {"/assets/create", R"({"items": [1]})", 400, 3},
      {"/assets/create", R"({"x": }, "items": [{"name": "a"}]})", 400, 3},
      {"/assets/create", R"({"items": [{"name": "a"}], "x": tru})", 400, 3},
      {"/assets/create", R"({"items": [{"a": "b": 1}], {"name": "x"}]})", 400, 3},
      {"/assets/create", R"({"items": [{},{},{},{},{},{}]})", 413, 7},
      {"/assets/delete", R"({"items": [{}]})", 400, 3},
      {"/assets/delete?deleteoriginal=MAYBE", R"({"items": []})", 400, 3},
      {"/assets/search", R"({"page": -1})", 400, 3},
      {"/assets/search", R"({"limit": 0})", 400, 3},
      {"/assets/search", R"({"limit": "10"})", 400, 3},
      {"/assets/search", R"({"limit": 51})", 413, 7},
      {"/assets/search", R"({"query": 1})", 400, 3},
      {"/assets/search", R"({"query": "name =="})", 400, 15},
      {"/assets/search", std::string(100000, '['), 400, 3},
  };
  for (const auto& [path, body, status, expected] : cases) {
    Response response = post(library(path), body);
    EXPECT_EQ(response.status, status) << path << body.substr(0, 50);
    EXPECT_EQ(code(response), expected) << path << body.substr(0, 50);
  }
  EXPECT_NE(post(library("/assets/search"), R"({"query": "name =="})").body.find("byte 7"),
            std::string::npos);
}

// Deleting

TEST_F(RouterTest, DeletesTheFilesOfAnAssetWithIt) {
  auto remove = [this](const std::string& id, const char* original) {
    return post(library(std::string("/assets/delete?deleteoriginal=") + original),
                writeJson(Dictionary{{"items", Array{Dictionary{{"_id", id}}}}}));
  };
  for (const char* original : {"NO", "YES"}) {
    writePackageFile("Media/Master/1/a.jpg", "master");
    writePackageFile("Media/Thumbnail/1/a.jpg.jpg", "thumbnail");
    writePackageFile("Media/Preview/1/a.jpg", "preview");
    std::string id = createAsset({{"masterpath", "/Media/Master/1/a.jpg"},
                                  {"thumbnailpath", "/Media/Thumbnail/1/a.jpg.jpg"},
                                  {"previewpath", "Media/Preview/1/a.jpg"}});
    Value reply = json(remove(id, original));
    EXPECT_EQ(reply, Value(Dictionary{{"items", Array{Dictionary{{"_id", id}}}}}));
    EXPECT_FALSE(packageHas("Media/Thumbnail/1/a.jpg.jpg"));
    EXPECT_FALSE(packageHas("Media/Preview/1/a.jpg"));
    EXPECT_EQ(packageHas("Media/Master/1/a.jpg"), std::string(original) == "NO");
  }
  EXPECT_EQ(code(remove("unknown", "YES")), 5);
}

TEST_F(RouterTest, DeletesLinksAndFoldersButNothingElse) {
  std::string source = folder_ / "source.mov";
  ASSERT_TRUE(writeFileAtomically(source, "precious"));
  writePackageFile("Media/Master/2025/03/07/140709/folder.rdc/one.r3d", "x");
  writePackageFile("Media/Master/2025/03/07/150000/used.rdc/two.r3d", "x");
  writePackageFile("Media/Thumbnail/shared.jpg", "shared");
  writePackageFile("Media/Master/shared.mov", "shared");
  writePackageFile("library.plist", "record");
  std::string masters = layout::masterFolder(packageFolder(kDbName));
  std::filesystem::create_symlink(source, masters + "/link.mov");
  std::filesystem::create_directory_symlink(folder_.path(), masters + "/outside");
  (void)createAsset(
      {{"masterpath", "/Media/Master/shared.mov"}, {"thumbnailpath", "/Media/Thumbnail/shared.jpg"}});
  (void)createAsset({{"masterpath", "/Media/Master/2025/03/07/150000/used.rdc/two.r3d"}});

  Array items;
  for (const char* path :
       {"/Media/Master/link.mov", "/Media/Master/2025/03/07/140709/folder.rdc", "/Media/Master/gone.mov"}) {
    items.push_back(Dictionary{{"_id", createAsset({{"masterpath", path}})}});
  }
  Value reply =
      json(post(library("/assets/delete?deleteoriginal=YES"), writeJson(Dictionary{{"items", items}})));
  EXPECT_EQ(reply, Value(Dictionary{{"items", items}}));
  EXPECT_FALSE(packageHas("Media/Master/link.mov"));
  EXPECT_FALSE(packageHas("Media/Master/2025/03/07/140709/folder.rdc"));
  EXPECT_TRUE(fileExists(source));

  const char* kept[] = {"/Media/Master/shared.mov",
                        "/Media/Master/../../library.plist",
                        "/library.plist",
                        "/Media/Master/outside/source.mov",
                        "/Media/Master",
                        "/Media/Master/2025",
                        "/Media/Master/2025/03/07/140709",
                        "/Media/Master/2025/03/07/150000/used.rdc",
                        "/Media/Masters/x"};
  for (const char* path : kept) {
    std::string id = createAsset({{"masterpath", path}, {"thumbnailpath", "/Media/Thumbnail/shared.jpg"}});
    Response response = post(library("/assets/delete?deleteoriginal=YES"),
                             writeJson(Dictionary{{"items", Array{Dictionary{{"_id", id}}}}}));
    EXPECT_EQ(response.status, 200u) << path;
    EXPECT_EQ(code(get(library("/assets/" + id))), 5) << path;
    Value item = coerce::array(json(response).find("items")).at(0);
    EXPECT_FALSE(coerce::array(item.find("remaining")).empty()) << path;
  }
  EXPECT_TRUE(packageHas("Media/Master/shared.mov"));
  EXPECT_TRUE(packageHas("Media/Master/2025/03/07/150000/used.rdc/two.r3d"));
  EXPECT_TRUE(packageHas("Media/Thumbnail/shared.jpg"));
  EXPECT_TRUE(packageHas("library.plist"));
  EXPECT_TRUE(fileExists(source));
}

}  // namespace
}  // namespace vornex::server::testing
