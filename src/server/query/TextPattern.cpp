#include "server/query/TextPattern.h"

#include <re2/re2.h>

#include "core/StatusCode.h"
#include "foundation/Text.h"
#include "server/query/FoldedPattern.h"

namespace vornex::server {

static constexpr std::int64_t kExpressionMemory = 4 << 20;
// What matching takes for one byte of text, in the worst case, is in proportion to this.
static constexpr int kMaximumExpressionSize = 4'096;
// Reading one may take quadratic time.
static constexpr std::size_t kMaximumExpressionLength = 16'384;

static tl::unexpected<Error> unusableExpression(const std::string& reason) {
  return failure(kServerErrorDomain, static_cast<std::int64_t>(StatusCode::queryInvalid),
                 "the regular expression is not usable: " + reason);
}

TextPattern::TextPattern(TextOptions options) : options_(options) {}

TextPattern::~TextPattern() = default;

Result<std::shared_ptr<const TextPattern>> TextPattern::make(Kind kind, std::string_view text,
                                                             TextOptions options) {
  if (kind == Kind::contains) options.caseInsensitive = true;
  std::shared_ptr<TextPattern> pattern(new TextPattern(options));
  Result<void> made;
  switch (kind) {
    case Kind::contains:
      pattern->makeContains(text);
      break;
    case Kind::beginsWith:
      pattern->lookForText(Place::start, normalizedText(text, options));
      break;
    case Kind::endsWith:
      pattern->lookForText(Place::end, normalizedText(text, options));
      break;
    case Kind::like:
      made = pattern->makeLike(text);
      break;
    case Kind::matches:
      made = pattern->makeMatches(text);
      break;
  }
  if (!made) return tl::unexpected(made.error());
  // What is looked for without diacritics may be found where the folded text has them.
  if (options.diacriticInsensitive) pattern->required_.clear();
  return pattern;
}

void TextPattern::lookForText(Place place, std::string text) {
  place_ = place;
  text_ = std::move(text);
  required_ = place == Place::whole ? std::vector{foldedText(text_)} : stablePieces(text_);
}

Result<void> TextPattern::lookForExpression(Place place, const std::string& expression) {
  if (expression.size() > kMaximumExpressionLength) return unusableExpression("it is too long");
  RE2::Options options;
  options.set_case_sensitive(!options_.caseInsensitive);
  options.set_max_mem(kExpressionMemory);
  options.set_log_errors(false);
  wasCompiled_ = true;
  auto compiled = std::make_unique<RE2>(expression, options);
  if (!compiled->ok()) return unusableExpression(compiled->error());
  if (compiled->ProgramSize() > kMaximumExpressionSize) return unusableExpression("it is too large");
  place_ = place;
  expression_ = std::move(compiled);
  return {};
}

void TextPattern::makeContains(std::string_view text) {
  FoldedPattern folded = foldPattern(text, options_);
  if (folded.plain) {
    text_ = std::move(folded.literal);
    required_ = {text_};
  } else if (lookForExpression(Place::anywhere, folded.expression)) {
    required_ = std::move(folded.required);
  } else {
    text_ = normalizedText(unescapedPattern(text), options_);
    required_ = {text_};
  }
}

Result<void> TextPattern::makeLike(std::string_view text) {
  std::string expression = "(?s)";
  std::string literal;
  bool wild = false;
  auto endLiteral = [&] {
    expression += RE2::QuoteMeta(literal);
    for (std::string& piece : stablePieces(literal)) required_.push_back(std::move(piece));
    literal.clear();
  };
  std::string normalized = normalizedText(text, options_);
  for (std::size_t i = 0; i < normalized.size(); ++i) {
    char c = normalized[i];
    if (c == '\\' && i + 1 < normalized.size()) {
      literal += normalized[++i];
    } else if (c == '*' || c == '?') {
      wild = true;
      endLiteral();
      expression += c == '*' ? ".*" : ".";
    } else {
      literal += c;
    }
  }
  if (!wild) {
    lookForText(Place::whole, literal);
    return {};
  }
  endLiteral();
  return lookForExpression(Place::whole, expression);
}

Result<void> TextPattern::makeMatches(std::string_view text) {
  FoldedPattern folded = foldPattern(text, options_);
  if (!folded.plain) return lookForExpression(Place::whole, folded.expression);
  lookForText(Place::whole, std::move(folded.literal));
  return {};
}

bool TextPattern::matches(std::string_view text) const {
  return options_.any() ? matchesNormalized(normalizedText(text, options_)) : matchesNormalized(text);
}

std::size_t TextPattern::steps(std::size_t bytes) const {
  return expression_ ? bytes * static_cast<std::size_t>(expression_->ProgramSize()) : bytes;
}

bool TextPattern::matchesNormalized(std::string_view text) const {
  if (expression_)
    return place_ == Place::whole ? RE2::FullMatch(text, *expression_)
                                  : RE2::PartialMatch(text, *expression_);
  switch (place_) {
    case Place::anywhere:
      return containsText(text, text_);
    case Place::start:
      return text.starts_with(text_);
    case Place::end:
      return text.ends_with(text_);
    case Place::whole:
      return text == text_;
  }
  return false;
}

const std::string* TextPattern::onlyText() const {
  return !expression_ && place_ == Place::whole && !options_.any() ? &text_ : nullptr;
}

std::vector<std::string> stablePieces(std::string_view text) {
  std::vector<std::string> pieces;
  std::string run;
  auto endRun = [&] {
    if (run.size() > 1) pieces.push_back(foldedText(run.substr(0, run.size() - 1)));
    run.clear();
  };
  for (char c : text) {
    if (static_cast<unsigned char>(c) < 0x80)
      run += c;
    else
      endRun();
  }
  endRun();
  return pieces;
}

}  // namespace vornex::server
