#pragma once

#include <vornex/AtomicPtr.h>
#include <vornex/KeyedArchive.h>
#include <vornex/Types.h>

namespace vornex {

/// Where the server of a library is reached, and as whom.
///
/// Thread-safety: the user may be replaced at any time, and is never changed; the rest is changed by whoever
/// changes the library.
class TQConnection : public Archivable {
 public:
  /// Address "127.0.0.1", port 8080, no user.
  TQConnection() = default;

  /// Null when the address is absent.
  static ConnectionPtr connectionWithAddress(OptionalString address, std::int64_t port, UserPtr user);

  std::string archivedClassName() const override;
  void encodeWithCoder(KeyedArchiver& coder) const override;
  void initWithCoder(KeyedUnarchiver& coder) override;

  OptionalString address = "127.0.0.1";
  std::int64_t port = 8080;
  AtomicPtr<TQUser> user;
};

}  // namespace vornex
