#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"
#include "server/query/TextNormalization.h"

namespace re2 {
class RE2;
}

namespace vornex::server {

/// What a text operator looks for, ready to be applied to many texts. Time is linear in the text (see steps),
/// memory bounded.
///
/// Thread-safety: immutable, safe on any thread.
class TextPattern {
 public:
  enum class Kind {
    /// A regular expression, found anywhere, always without regard to case and composition. One that is
    /// malformed or too large stands for its own text.
    contains,
    /// Plain text.
    beginsWith,
    endsWith,
    /// "*" is any text and "?" any character; a backslash takes the meaning away. The whole text counts.
    like,
    /// A regular expression for the whole text, with regard to case. One that is malformed or too large is
    /// an error.
    matches,
  };

  [[nodiscard]] static Result<std::shared_ptr<const TextPattern>> make(Kind kind, std::string_view text,
                                                                       TextOptions options);
  ~TextPattern();

  enum class Place { anywhere, start, end, whole };

  bool matches(std::string_view text) const;
  /// The same for a text that is normalized by options() already.
  bool matchesNormalized(std::string_view text) const;

  TextOptions options() const { return options_; }
  /// Where in a text it must stand.
  Place place() const { return place_; }
  /// The normalized text to be found, when it takes no more than that.
  const std::string* literal() const { return expression_ ? nullptr : &text_; }

  /// Whether a regular-expression engine had to read it, which takes far longer than reading plain text.
  bool wasCompiled() const { return wasCompiled_; }

  /// The most steps (see TimeLimit) that matching a text of so many bytes takes.
  std::size_t steps(std::size_t bytes) const;

  /// The one text that matches, when there is only one.
  const std::string* onlyText() const;

  /// Pieces that the case-folded form (see foldedText) of every matching text contains.
  const std::vector<std::string>& requiredPieces() const { return required_; }

 private:
  explicit TextPattern(TextOptions options);

  void lookForText(Place place, std::string text);
  [[nodiscard]] Result<void> lookForExpression(Place place, const std::string& expression);
  void makeContains(std::string_view text);
  [[nodiscard]] Result<void> makeLike(std::string_view text);
  [[nodiscard]] Result<void> makeMatches(std::string_view text);

  TextOptions options_;
  Place place_ = Place::anywhere;
  std::string text_;
  std::unique_ptr<re2::RE2> expression_;
  bool wasCompiled_ = false;
  std::vector<std::string> required_;
};

/// The pieces of a text that stay together in the case-folded form of any text that contains it: a mark that
/// follows may change the last character, and composition anything beyond ASCII.
std::vector<std::string> stablePieces(std::string_view text);

}  // namespace vornex::server
