// links: vornex_server
#include <cstdlib>
#include <filesystem>
#include <string>

#include "foundation/Json.h"
#include "foundation/Text.h"
#include "server/Service.h"
#include "server/http/ByteRange.h"
#include "server/http/Credentials.h"
#include "server/http/Router.h"

using namespace vornex;
using namespace vornex::server;

namespace {

/// A service over a folder of its own, with one library.
Service& service() {
  static std::unique_ptr<Service> shared = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "vornex-fuzz-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) std::abort();
    ::setenv("VORNEX_ROOT", pattern.c_str(), 1);
    auto opened = Service::open(openSQLiteAssetStore);
    if (!opened) std::abort();
    Dictionary library{
        {"dbname", "db"}, {"name", "Library"}, {"packagefolder", pattern + "/package"}, {"type", 0}};
    if (!(*opened)->libraries().add(library, true)) std::abort();
    return std::move(*opened);
  }();
  return *shared;
}

}  // namespace

// Method, target and further lines of headers, an empty line, the body: every request is answered, and with
// JSON when the answer has a body.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Limits limits;
  static const Router router(service(), limits);
  std::string text(reinterpret_cast<const char*>(data), size);
  auto nextLine = [&text] {
    std::size_t end = text.find('\n');
    std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? text.size() : end + 1);
    return line;
  };
  Request request;
  request.method = nextLine();
  request.target = nextLine();
  request.authorization = nextLine();
  request.range = nextLine();
  request.ifNoneMatch = nextLine();
  request.contentType = "application/json";
  request.hasBody = !text.empty();
  request.body = text;
  (void)parseBasicCredentials(request.authorization);
  (void)parseByteRange(request.range, 1000);
  (void)router.answer(request);

  request.authorization =
      "Basic " + base64(std::string(kTQLocalUserID) + ":" + md5Hex(service().users().localPassword()));
  Response response = router.answer(request);
  if (!response.file && response.status != 304 && !parseJson(response.body)) std::abort();
  return 0;
}
