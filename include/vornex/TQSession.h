#pragma once

#include <vornex/Types.h>

namespace vornex {

/// One login session that the local service reports.
///
/// Thread-safety: a plain value.
struct TQSession {
  OptionalString userID;
  OptionalString userName;
  OptionalString host;
  OptionalString deviceUUID;
  OptionalString clientType;
  std::optional<Date> loginDate;

  /// "session userID:…, userName:…, deviceUUID:…, host:…, clientType:…, loginDate:…"
  std::string description() const;
};

}  // namespace vornex
