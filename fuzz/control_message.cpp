// links: vornex_server
#include <cstdlib>
#include <filesystem>
#include <string>

#include "foundation/Json.h"
#include "server/Service.h"
#include "server/control/ControlProtocol.h"

using namespace vornex;
using namespace vornex::server;

namespace {

struct Server {
  Server() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vornex-fuzz-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) std::abort();
    ::setenv("VORNEX_ROOT", pattern.c_str(), 1);
    auto opened = Service::open(openSQLiteAssetStore);
    if (!opened) std::abort();
    service = std::move(*opened);
    router = std::make_unique<Router>(*service, limits);
    webServer = std::make_unique<HttpServer>(*router, "127.0.0.1", limits);
  }

  Limits limits;
  std::unique_ptr<Service> service;
  std::unique_ptr<Router> router;
  std::unique_ptr<HttpServer> webServer;
};

}  // namespace

// Every answer is a JSON object on one line.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Server server;
  // One input must not end the service for the next ones.
  ControlProtocol protocol(*server.service, *server.webServer);
  auto outcome = protocol.handle(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!outcome.reply) return 0;
  auto reply = parseJson(*outcome.reply);
  if (!reply || !reply->ifDictionary() || outcome.reply->find('\n') != std::string::npos) std::abort();
  return 0;
}
