#include <vornex/TQConnection.h>
#include <vornex/TQUser.h>

namespace vornex {

static const ArchivedClass archivedClass("TQConnection", [] { return std::make_shared<TQConnection>(); });

std::string TQConnection::archivedClassName() const {
  return "TQConnection";
}

void TQConnection::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeValue("address", address);
  coder.encodeInteger("port", port);
  coder.encodeObject("user", user.load());
}

void TQConnection::initWithCoder(KeyedUnarchiver& coder) {
  address = coder.decodeString("address");
  port = coder.decodeInteger("port");
  user = coder.decodeObject<TQUser>("user");
}

ConnectionPtr TQConnection::connectionWithAddress(OptionalString address, std::int64_t port, UserPtr user) {
  if (!address) return nullptr;
  auto connection = std::make_shared<TQConnection>();
  connection->address = std::move(address);
  connection->port = port;
  connection->user = std::move(user);
  return connection;
}

}  // namespace vornex
