#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "server/query/TextNormalization.h"

namespace vornex::server {

/// A regular expression rewritten so that it applies to normalized text: its literal stretches are
/// normalized, everything with a meaning of its own (classes, escapes, groups, flags) stays as it was
/// written. Without options the text stays as it is.
struct FoldedPattern {
  std::string expression;
  /// Whether the pattern is nothing but literal text, which then is `literal`.
  bool plain = true;
  std::string literal;
  /// Literal texts that every match contains, normalized. Empty when none is certain.
  std::vector<std::string> required;
};

FoldedPattern foldPattern(std::string_view pattern, TextOptions options);

/// The text that a pattern stands for once the backslashes before | $ ^ * + ( ) [ ] are taken away.
std::string unescapedPattern(std::string_view pattern);

}  // namespace vornex::server
