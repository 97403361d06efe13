#pragma once

#include <vornex/Value.h>

#include <string>
#include <string_view>
#include <vector>

namespace vornex::server {

/// What is wrong with a query and where, in bytes from its start. Thrown inside the parser only; it never
/// leaves parsePredicate.
struct QueryMistake {
  std::size_t position;
  std::string message;
};

struct Token {
  enum class Kind { end, word, string, number, symbol };
  Kind kind = Kind::end;
  std::size_t position = 0;
  /// The text of a string; the sign of a symbol, of spellings that mean the same the first one: "==" "=",
  /// "!=" "<>", "<=" "=<", ">=" "=>".
  std::string text;
  /// A word's components between its dots. One that begins with "@" is a collection operator.
  std::vector<std::string> path;
  /// Whether a "#" says that the first of them is a key, whatever it reads.
  bool escaped = false;
  /// A number's value; its sign is a symbol before it.
  Value number;
  /// The token as a message shows it.
  std::string shown() const;
};

/// The text, or its beginning with dots after it, so that a message stays short.
std::string shortened(const std::string& text, std::size_t characters);

/// Splits the text of a predicate into tokens. The text must be valid UTF-8 and outlive the lexer.
///
/// Thread-safety: one thread at a time.
class PredicateLexer {
 public:
  explicit PredicateLexer(std::string_view text) : text_(text) {}

  /// The next token, of kind `end` when there is none. Throws QueryMistake.
  Token next();

 private:
  Token word();
  std::string wordComponent();
  void skipWord();
  Token string();
  void readStringEscape(std::string& into);
  char16_t readUnicodeEscape();
  Token number();
  Token symbol();

  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace vornex::server
