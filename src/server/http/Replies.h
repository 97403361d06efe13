#pragma once

#include <vornex/Value.h>

#include <string>

#include "core/StatusCode.h"
#include "server/ServerError.h"
#include "server/http/Message.h"

namespace vornex::server {

/// The HTTP status that a status code travels under.
unsigned httpStatusFor(StatusCode code);

Response jsonReply(const Value& value);
/// The text must be a JSON document.
Response jsonTextReply(std::string json);

/// {"Status": {"code", "msg", "domain"}} under the fitting HTTP status.
Response errorReply(const Error& error);
Response errorReply(StatusCode code, const std::string& message);
/// The same body under a status that HTTP has a closer name for than the code's.
Response errorReply(unsigned httpStatus, StatusCode code, const std::string& message);

/// What stands for a failed item of a batch: {"Status": {...}}.
Dictionary statusDictionary(const Error& error);

/// "Sun, 06 Nov 1994 08:49:37 GMT".
std::string httpDate(std::int64_t secondsSince1970);

}  // namespace vornex::server
