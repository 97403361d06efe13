#include <vornex/TQConnection.h>

namespace vornex {

ConnectionPtr TQConnection::connectionWithAddress(OptionalString address, std::int64_t port, UserPtr user) {
  if (!address) return nullptr;
  auto connection = std::make_shared<TQConnection>();
  connection->address = std::move(address);
  connection->port = port;
  connection->user = std::move(user);
  return connection;
}

}  // namespace vornex
