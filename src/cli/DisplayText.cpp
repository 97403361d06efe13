#include "cli/DisplayText.h"

#include <fmt/format.h>
#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "foundation/Text.h"

namespace vornex::cli {
namespace {

constexpr std::string_view kEllipsis = "…";

std::size_t codePointWidth(UChar32 c) {
  constexpr UChar32 kEmojiPresentationSelector = 0xFE0F;
  if (c == kEmojiPresentationSelector || u_hasBinaryProperty(c, UCHAR_EMOJI_PRESENTATION)) return 2;
  switch (u_charType(c)) {
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
    case U_FORMAT_CHAR:
    case U_CONTROL_CHAR:
      return 0;
    default:
      break;
  }
  const int width = u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

struct Cluster {
  std::string text;
  std::size_t width;
};

std::size_t clusterWidth(const icu::UnicodeString& text) {
  std::size_t width = 0;
  for (int i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
    width = std::max(width, codePointWidth(text.char32At(i)));
  }
  return width;
}

std::vector<Cluster> clusters(std::string_view text) {
  const auto unicode =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int>(text.size())));
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::BreakIterator> boundaries(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  std::vector<Cluster> result;
  if (U_FAILURE(status)) return {{std::string(text), static_cast<std::size_t>(unicode.countChar32())}};
  boundaries->setText(unicode);
  int start = boundaries->first();
  for (int end = boundaries->next(); end != icu::BreakIterator::DONE; start = end, end = boundaries->next()) {
    const icu::UnicodeString cluster(unicode, start, end - start);
    std::string bytes;
    result.push_back({cluster.toUTF8String(bytes), clusterWidth(cluster)});
  }
  return result;
}

std::size_t totalWidth(const std::vector<Cluster>& all) {
  std::size_t width = 0;
  for (const Cluster& cluster : all) width += cluster.width;
  return width;
}

template <typename Iterator>
std::vector<std::string> fitting(Iterator first, Iterator last, std::size_t width) {
  std::vector<std::string> taken;
  for (; first != last && first->width <= width; ++first) {
    width -= first->width;
    taken.push_back(first->text);
  }
  return taken;
}

bool steersTheTerminal(UChar32 c) {
  constexpr UChar32 kZeroWidthNonJoiner = 0x200C, kZeroWidthJoiner = 0x200D;
  if (c == kZeroWidthJoiner || c == kZeroWidthNonJoiner) return false;
  const int type = u_charType(c);
  return type == U_CONTROL_CHAR || type == U_LINE_SEPARATOR || type == U_PARAGRAPH_SEPARATOR ||
         type == U_FORMAT_CHAR;
}

std::string escaped(UChar32 c) {
  if (c == '\n') return "\\n";
  if (c == '\r') return "\\r";
  if (c == '\t') return "\\t";
  return fmt::format("\\u{{{:x}}}", static_cast<unsigned>(c));
}

}  // namespace

std::size_t displayWidth(std::string_view text) {
  return totalWidth(clusters(text));
}

std::string printable(std::string_view text) {
  const std::string valid = validUtf8(text);
  std::string result;
  result.reserve(valid.size());
  for (std::size_t i = 0; i < valid.size();) {
    const std::size_t start = i;
    UChar32 c = 0;
    U8_NEXT(valid.data(), i, valid.size(), c);
    if (steersTheTerminal(c)) {
      result += escaped(c);
    } else {
      result.append(valid, start, i - start);
    }
  }
  return result;
}

std::string shortened(std::string_view text, std::size_t width) {
  const std::vector<Cluster> all = clusters(text);
  if (totalWidth(all) <= width) return std::string(text);
  if (width == 0) return "";
  std::string result;
  for (const std::string& cluster : fitting(all.begin(), all.end(), width - 1)) result += cluster;
  return result.append(kEllipsis);
}

std::string shortenedAtStart(std::string_view text, std::size_t width) {
  const std::vector<Cluster> all = clusters(text);
  if (totalWidth(all) <= width) return std::string(text);
  if (width == 0) return "";
  std::string result(kEllipsis);
  const auto taken = fitting(all.rbegin(), all.rend(), width - 1);
  for (auto cluster = taken.rbegin(); cluster != taken.rend(); ++cluster) result += *cluster;
  return result;
}

std::string padded(std::string text, std::size_t width, bool rightAligned) {
  const std::size_t taken = displayWidth(text);
  if (taken >= width) return text;
  return rightAligned ? std::string(width - taken, ' ') + text
                      : std::move(text) + std::string(width - taken, ' ');
}

}  // namespace vornex::cli
