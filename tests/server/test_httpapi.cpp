#include <gmock/gmock.h>

#include <fstream>
#include <set>

#include "server/http/Router.h"

namespace vornex::server {
namespace {

/// "GET /vornex/version" for each method of each path: paths are indented by two blanks, methods by four.
std::set<std::string> describedOperations() {
  std::set<std::string> operations;
  std::ifstream file(VORNEX_HTTP_API);
  std::string path;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("  /", 0) == 0) path = line.substr(2, line.find(':') - 2);
    for (const char* method : {"get", "post", "put", "patch", "delete"}) {
      if (line != "    " + std::string(method) + ":") continue;
      std::string name(method);
      for (char& c : name) c = static_cast<char>(std::toupper(c));
      operations.insert(name + " " + path);
    }
  }
  return operations;
}

TEST(HttpApi, IsDescribedAsItIsServed) {
  std::set<std::string> served;
  for (const Route& route : routes()) served.insert(std::string(route.method) + " " + route.pattern);
  EXPECT_THAT(describedOperations(), ::testing::ContainerEq(served));
}

}  // namespace
}  // namespace vornex::server
