#include "server/query/PredicateLexer.h"

#include <fmt/format.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <array>
#include <charconv>

#include "core/QueryKeys.h"

namespace vornex::server {

// No document goes deeper.
static constexpr std::size_t kMaximumPathLength = 512;

static bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

std::string shortened(const std::string& text, std::size_t characters) {
  std::int32_t end = 0;
  auto size = static_cast<std::int32_t>(text.size());
  U8_FWD_N(text.data(), end, size, static_cast<std::int32_t>(characters));
  return end == size ? text : text.substr(0, static_cast<std::size_t>(end)) + "...";
}

std::string Token::shown() const {
  switch (kind) {
    case Kind::end:
      return "the end";
    case Kind::string:
      return "a string";
    case Kind::number:
      return "a number";
    case Kind::symbol:
      return fmt::format("\"{}\"", text);
    case Kind::word:
      break;
  }
  return fmt::format("\"{}\"", shortened(fmt::format("{}", fmt::join(path, ".")), 40));
}

Token PredicateLexer::next() {
  while (at_ < text_.size() && std::string_view(" \t\r\n\v\f").find(text_[at_]) != std::string_view::npos)
    ++at_;
  if (at_ == text_.size()) {
    Token end;
    end.position = at_;
    return end;
  }
  char c = text_[at_];
  char following = at_ + 1 < text_.size() ? text_[at_ + 1] : '\0';
  if (c == '"' || c == '\'') return string();
  if (isDigit(c) || (c == '.' && isDigit(following))) return number();
  bool isMember = c == '@' && at_ > 0 && text_[at_ - 1] == '.';
  if (c == '#' || isMember || keyCharacterLength(text_.substr(at_)) > 0) return word();
  if (c == '$') throw QueryMistake{at_, "a variable has no value here"};
  if (c == '%') throw QueryMistake{at_, "a placeholder has no value here"};
  if (c == '@') throw QueryMistake{at_, "a collection operator stands behind a key"};
  return symbol();
}

Token PredicateLexer::word() {
  Token token;
  token.kind = Token::Kind::word;
  token.position = at_;
  for (;;) {
    if (at_ < text_.size() && text_[at_] == '#') {
      token.escaped = token.escaped || token.path.empty();
      ++at_;
    }
    if (token.path.size() == kMaximumPathLength) throw QueryMistake{at_, "the key path is too long"};
    token.path.push_back(wordComponent());
    if (at_ == text_.size() || text_[at_] != '.') return token;
    ++at_;
  }
}

void PredicateLexer::skipWord() {
  while (std::size_t length = keyCharacterLength(text_.substr(at_))) at_ += length;
}

std::string PredicateLexer::wordComponent() {
  std::size_t begin = at_;
  bool isOperator = at_ < text_.size() && text_[at_] == '@' && begin > 0 && text_[begin - 1] == '.';
  if (isOperator) ++at_;
  std::size_t start = at_;
  skipWord();
  if (at_ == start) throw QueryMistake{at_, "a key is expected"};
  return std::string(text_.substr(begin, at_ - begin));
}

Token PredicateLexer::string() {
  Token token;
  token.kind = Token::Kind::string;
  token.position = at_;
  char quote = text_[at_++];
  while (at_ < text_.size() && text_[at_] != quote) {
    if (text_[at_] == '\\')
      readStringEscape(token.text);
    else
      token.text += text_[at_++];
  }
  if (at_ == text_.size()) throw QueryMistake{token.position, "the string is not closed"};
  ++at_;
  return token;
}

static void appendCodePoint(std::string& text, UChar32 c) {
  std::array<char, 4> bytes{};
  std::int32_t length = 0;
  U8_APPEND_UNSAFE(bytes.data(), length, c);
  text.append(bytes.data(), static_cast<std::size_t>(length));
}

// A backslash before a character without a meaning of its own just stands for that character.
void PredicateLexer::readStringEscape(std::string& into) {
  std::size_t start = at_++;
  if (at_ == text_.size()) return;
  char c = text_[at_++];
  switch (c) {
    case 'n':
      into += '\n';
      return;
    case 't':
      into += '\t';
      return;
    case 'r':
      into += '\r';
      return;
    case 'u':
    case 'U':
      break;
    default:
      into += c;
      return;
  }
  UChar32 code = readUnicodeEscape();
  if (U16_IS_LEAD(code)) {
    bool pair =
        at_ + 1 < text_.size() && text_[at_] == '\\' && (text_[at_ + 1] == 'u' || text_[at_ + 1] == 'U');
    if (!pair) throw QueryMistake{start, "half of a surrogate pair"};
    at_ += 2;
    char16_t trail = readUnicodeEscape();
    if (!U16_IS_TRAIL(trail)) throw QueryMistake{start, "half of a surrogate pair"};
    code = U16_GET_SUPPLEMENTARY(code, trail);
  } else if (U16_IS_TRAIL(code)) {
    throw QueryMistake{start, "half of a surrogate pair"};
  }
  appendCodePoint(into, code);
}

char16_t PredicateLexer::readUnicodeEscape() {
  std::string_view digits = text_.substr(at_, 4);
  unsigned code = 0;
  auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
  if (digits.size() < 4 || error != std::errc() || end != digits.data() + 4)
    throw QueryMistake{at_, "four hexadecimal digits are expected"};
  at_ += 4;
  return static_cast<char16_t>(code);
}

// An integer that fits no 64-bit kind becomes a double.
static bool parseInteger(std::string_view digits, int base, Value& into) {
  const char* last = digits.data() + digits.size();
  std::uint64_t value = 0;
  auto [end, error] = std::from_chars(digits.data(), last, value, base);
  into = value;
  return error == std::errc() && end == last;
}

// The base that a number's first two characters tell; 0 when they tell none.
static int baseOf(std::string_view start) {
  if (start.size() < 2 || start[0] != '0') return 0;
  switch (start[1] | 0x20) {
    case 'x':
      return 16;
    case 'o':
      return 8;
    case 'b':
      return 2;
    default:
      return 0;
  }
}

Token PredicateLexer::number() {
  Token token;
  token.kind = Token::Kind::number;
  token.position = at_;
  std::size_t begin = at_;
  if (int base = baseOf(text_.substr(at_, 2))) {
    skipWord();
    if (!parseInteger(text_.substr(begin + 2, at_ - begin - 2), base, token.number))
      throw QueryMistake{token.position, "the number is malformed"};
    return token;
  }
  bool integer = true;
  while (at_ < text_.size()) {
    char c = text_[at_];
    bool sign = (c == '-' || c == '+') && (text_[at_ - 1] | 0x20) == 'e' && at_ > begin;
    std::size_t length = c == '.' || sign ? 1 : keyCharacterLength(text_.substr(at_));
    if (length == 0) break;
    integer = integer && isDigit(c);
    at_ += length;
  }
  std::string_view digits = text_.substr(begin, at_ - begin);
  if (integer && parseInteger(digits, 10, token.number)) return token;
  double value = 0;
  auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || end != digits.data() + digits.size() ||
      !(isDigit(digits[0]) || digits[0] == '.'))
    throw QueryMistake{token.position, "the number is malformed"};
  token.number = value;
  return token;
}

Token PredicateLexer::symbol() {
  static constexpr std::pair<std::string_view, std::string_view> kSymbols[] = {
      {"==", "=="}, {"=>", ">="}, {"=<", "<="}, {"=", "=="}, {"!=", "!="}, {"<>", "!="}, {"<=", "<="},
      {">=", ">="}, {"&&", "&&"}, {"||", "||"}, {"<", "<"},  {">", ">"},   {"!", "!"},   {"(", "("},
      {")", ")"},   {"{", "{"},   {"}", "}"},   {"[", "["},  {"]", "]"},   {",", ","},   {"**", "**"},
      {"*", "*"},   {"/", "/"},   {"+", "+"},   {"-", "-"},  {".", "."}};
  for (const auto& [spelling, meaning] : kSymbols) {
    if (text_.substr(at_, spelling.size()) != spelling) continue;
    Token token;
    token.kind = Token::Kind::symbol;
    token.position = at_;
    token.text = meaning;
    at_ += spelling.size();
    return token;
  }
  std::size_t end = at_;
  U8_FWD_1(text_.data(), end, text_.size());
  throw QueryMistake{at_, fmt::format("\"{}\" has no meaning here", text_.substr(at_, end - at_))};
}

}  // namespace vornex::server
