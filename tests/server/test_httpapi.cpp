#include <gmock/gmock.h>

#include <cstring>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "server/ServerFixture.h"

namespace vornex::server::testing {
namespace {

/// The description of the interface, read as far as this test needs it: by indentation.
class Document {
 public:
  Document() : text_(readFile(VORNEX_HTTP_API).value_or("")) {}

  /// "GET /vornex/version" for each method of each path.
  std::set<std::string> operations() const {
    std::set<std::string> operations;
    std::istringstream lines(text_);
    std::string path;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("  /")) path = line.substr(2, line.find(':') - 2);
      for (const char* method : {"GET", "POST", "PUT", "PATCH", "DELETE"})
        if (line == "    " + lowercased(method) + ":") operations.insert(std::string(method) + " " + path);
    }
    return operations;
  }

  std::string operation(const Route& route) const {
    std::string found =
        below(below(text_, std::string("  ") + route.pattern + ":"), "    " + lowercased(route.method) + ":");
    std::smatch alias;
    if (!std::regex_search(found, alias, std::regex(R"(responses: \*(\w+))"))) return found;
    return below(text_, "      responses: &" + alias[1].str());
  }

  /// Whether the operation may answer so: by itself, or as every one may.
  bool allows(const std::string& operation, unsigned status) const {
    std::string number = std::to_string(status);
    return operation.find("\"" + number + "\":") != std::string::npos ||
           std::regex_search(below(text_, "  description: |"), std::regex("\\b" + number + "\\b"));
  }

  /// The keys that a JSON answer of this status must have.
  std::vector<std::string> requiredKeys(const std::string& operation, unsigned status) const {
    return keysOf(below(operation, "        \"" + std::to_string(status) + "\":"));
  }

 private:
  /// The rest of the line that starts so, and the lines that are indented more.
  static std::string below(const std::string& text, const std::string& start) {
    std::size_t found = ("\n" + text).find("\n" + start);
    if (found == std::string::npos) return "";
    std::istringstream lines(text.substr(found + start.size()));
    std::string block, line;
    std::getline(lines, block);
    std::size_t indentation = start.find_first_not_of(' ');
    while (std::getline(lines, line) && (line.empty() || line.find_first_not_of(' ') > indentation))
      block += "\n" + line;
    return block + "\n";
  }

  std::vector<std::string> keysOf(const std::string& block) const {
    std::smatch match;
    if (!std::regex_search(block, match, std::regex(R"((required: \[(.*)\])|(#/(\w+)/(\w+)/(\w+)))")))
      return {};
    if (match[1].matched) {
      std::vector<std::string> keys;
      std::istringstream names(match[2]);
      for (std::string name; std::getline(names, name, ',');) keys.push_back(trimmedWhitespace(name));
      return keys;
    }
    std::string section = below(below(text_, match[4].str() + ":"), "  " + match[5].str() + ":");
    return keysOf(below(section, "    " + match[6].str() + ":"));
  }

  const std::string text_;
};

class HttpApiTest : public RouterTest {
 protected:
  /// A request that should succeed.
  Response call(const Route& route, const std::string& id) {
    static const std::map<std::string, std::string> kFirstItem{
        {"assets/create", R"({"name": "clip"})"},
        {"assets/update", R"({"_id": "ID", "name": "n"})"},
        {"assets/delete", R"({"_id": "ID"})"},
        {"assets/access", R"({"path": "/"})"},
        {"assets/download", R"({"_id": "ID"})"},
        {"assets/preview", R"({"_id": "ID"})"},
        {"projects/update", R"({"id": "P", "name": "of ID"})"},
        {"projects/move", R"({"id": "P", "parentid": "P", "toindex": 0})"},
        {"projects/create", R"({"name": "Project ID", "parentid": "", "type": 0})"}};
    std::string path = std::string(route.pattern).substr(std::strlen("/vornex/"));
    auto fill = [](std::string text, const std::string& name, const std::string& value) {
      std::size_t found = text.find(name);
      return found == std::string::npos ? text : text.replace(found, name.size(), value);
    };
    auto item = kFirstItem.find(path.substr(std::min(path.size(), std::strlen("libraries/{db}/"))));
    std::string body =
        item == kFirstItem.end() ? "{}" : "{\"items\": [" + fill(item->second, "ID", id) + "]}";
    path = fill(fill(fill(path, "{db}", kDbName), "{id}", id), "{path}", "1/a.jpg");
    return send(route.method, path, std::string(route.method) == "POST" ? body : "");
  }

  Document document_;
};

TEST_F(HttpApiTest, DescribesEveryOperation) {
  std::set<std::string> served;
  for (const Route& route : routes()) served.insert(std::string(route.method) + " " + route.pattern);
  EXPECT_THAT(document_.operations(), ::testing::ContainerEq(served));
}

TEST_F(HttpApiTest, AnswersAsItIsDescribed) {
  for (const char* kind : {"Master", "Thumbnail", "Preview"})
    writePackageFile(std::string("Media/") + kind + "/1/a.jpg", "picture");
  const std::string projects = layout::projectPlist(packageFolder(kDbName));
  ASSERT_TRUE(createDirectories(deletingLastPathComponent(projects)));
  const Dictionary project = {{"id", "P"}, {"name", "p"}, {"dbname", kDbName}, {"type", 0}};
  ASSERT_TRUE(writePropertyListFile(projects, Dictionary{{"projects", Array{project}}}));
  writeUsers({user("ann", "p", "another")});
  int succeeded = 0;
  for (const std::string& credentials : {ownerCredentials(), basic("ann", "p"), basic("ann", "wrong")}) {
    for (const Route& route : routes()) {
      authorization_ = ownerCredentials();  // the assets are the owner's
      std::string id =
          createAsset({{"masterpath", "/Media/Master/1/a.jpg"}, {"previewpath", "/Media/Preview/1/a.jpg"}});
      authorization_ = credentials;
      Response response = call(route, id);
      std::string operation = document_.operation(route);
      SCOPED_TRACE(std::string(route.method) + " " + route.pattern + " " + std::to_string(response.status));
      EXPECT_TRUE(document_.allows(operation, response.status));
      if (response.file) continue;
      Value body = json(response);
      std::vector<std::string> keys = document_.requiredKeys(operation, response.status);
      if (response.status != 200) keys = {"Status"};
      for (const std::string& key : keys)
        EXPECT_TRUE(body.find(key)) << key << " is missing: " << response.body;
      succeeded += response.status == 200 ? 1 : 0;
    }
  }
  EXPECT_GE(succeeded, 19 + 5) << "the owner may do everything, others may log in and out";
}

}  // namespace
}  // namespace vornex::server::testing
