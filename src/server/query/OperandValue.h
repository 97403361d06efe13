#pragma once

#include <vornex/Value.h>

#include <optional>
#include <string>
#include <vector>

#include "server/query/Predicate.h"
#include "server/query/TimeLimit.h"

namespace vornex::server {

/// What the values that a comparison makes may take, in bytes; beyond it they are null.
inline constexpr std::size_t kRoomForValues = std::size_t{16} << 20;

/// What a value takes in memory, about.
std::size_t bytesOf(const Value& value);

/// The value of an operand in one document: one that the document or the operand has, or one that was made.
/// All of them must outlive it. The document itself counts as an empty one.
class OperandValue {
 public:
  /// Takes what it makes from the room. Throws TimeIsOver.
  OperandValue(const Operand& operand, const Dictionary& document, TimeLimit& limit, std::size_t& room);

  /// Null when there is none.
  const Value* get() const { return made_.isNull() ? found_ : &made_; }

 private:
  const Value* found_ = nullptr;
  Value made_;
};

/// The value at a path that leads through dictionaries only; null when a component is missing or the value
/// itself is null.
const Value* valueAt(const Dictionary& document, const std::vector<std::string>& path);

}  // namespace vornex::server
