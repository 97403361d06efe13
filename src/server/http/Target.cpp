#include "server/http/Target.h"

#include <algorithm>

#include "foundation/Text.h"
#include "server/ServerError.h"

namespace vornex::server {
namespace {

tl::unexpected<Error> badAddress() {
  return serverFailure(StatusCode::invalidRequest, "The request's address is malformed.");
}

/// Calls take() with each piece between separators.
template <typename Take>
void split(std::string_view text, char separator, Take take) {
  while (true) {
    std::size_t end = text.find(separator);
    take(text.substr(0, end));
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

std::string decodedField(std::string_view text) {
  std::string spaced(text);
  std::replace(spaced.begin(), spaced.end(), '+', ' ');
  return percentDecoded(spaced);
}

}  // namespace

Result<std::vector<std::string>> parsePath(std::string_view text) {
  std::vector<std::string> segments;
  bool valid = true;
  split(text, '/', [&](std::string_view piece) {
    if (piece.empty()) return;
    std::string segment = percentDecoded(piece);
    valid = valid && isValidUtf8(segment) && segment.find('/') == std::string::npos &&
            segment.find('\0') == std::string::npos;
    segments.push_back(std::move(segment));
  });
  if (!valid) return badAddress();
  return segments;
}

Result<Target> parseTarget(std::string_view text) {
  if (!text.starts_with('/')) return badAddress();
  std::size_t question = text.find('?');
  auto segments = parsePath(text.substr(0, question));
  if (!segments) return tl::unexpected(segments.error());
  Target target{std::move(*segments), {}, ""};
  if (question == std::string_view::npos) return target;
  target.rawQuery = text.substr(question);
  bool valid = true;
  split(text.substr(question + 1), '&', [&](std::string_view field) {
    if (field.empty()) return;
    std::size_t equals = field.find('=');
    std::string name = decodedField(field.substr(0, equals));
    std::string value = equals == std::string_view::npos ? "" : decodedField(field.substr(equals + 1));
    valid = valid && isValidUtf8(name) && isValidUtf8(value);
    target.query.insert_or_assign(std::move(name), std::move(value));
  });
  if (!valid) return badAddress();
  return target;
}

}  // namespace vornex::server
