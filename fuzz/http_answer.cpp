// links: vornex
#include <vornex/TQError.h>

#include <cstdint>
#include <cstdlib>

#include "core/ServerRequest.h"

// The HTTP status, the content type and the body, each on a line of its own: what is no success has an error
// with a code, and what has no error is a decoded answer.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vornex;
  std::string text(reinterpret_cast<const char*>(data), size);
  auto nextLine = [&text] {
    std::size_t end = text.find('\n');
    std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? text.size() : end + 1);
    return line;
  };
  HttpAnswer answer;
  answer.status = std::strtol(nextLine().c_str(), nullptr, 10) % 1000;
  answer.contentType = nextLine();
  answer.body = text;
  ServerReply reply = replyFromAnswer(answer);
  bool isSuccess = answer.status >= 200 && answer.status < 300;
  if (!isSuccess && !reply.error) std::abort();
  if (reply.error && reply.error->code() == 0) std::abort();
  (void)reply.response.find("items");
  return 0;
}
