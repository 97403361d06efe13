#include <unicode/unistr.h>

#include <bit>
#include <limits>

#include "foundation/BinaryPropertyList.h"
#include "foundation/ReferenceDate.h"
#include "foundation/Text.h"

namespace vornex {

namespace {

constexpr std::string_view kMagic = "bplist0";
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;
constexpr int kMaximumDepth = 512;

// Thrown inside this file only.
struct Malformed {
  const char* reason;
};

class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {
    if (bytes.size() < kHeaderSize + kTrailerSize || !isBinaryPropertyList(bytes)) throw Malformed{"not one"};
    std::size_t trailer = bytes.size() - kTrailerSize;
    offsetSize_ = byte(trailer + 6);
    referenceSize_ = byte(trailer + 7);
    objectCount_ = number(trailer + 8, 8);
    topObject_ = number(trailer + 16, 8);
    offsetTable_ = number(trailer + 24, 8);
    end_ = trailer;
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8)
      throw Malformed{"impossible sizes"};
    if (offsetTable_ > end_ || objectCount_ == 0 || objectCount_ > (end_ - offsetTable_) / offsetSize_)
      throw Malformed{"the offset table lies outside"};
    remainingValues_ = std::max<std::size_t>(1'000'000, bytes.size() * 64);
  }

  Value readTop() { return readObject(topObject_, 0); }

 private:
  std::uint8_t byte(std::size_t at) const { return static_cast<std::uint8_t>(bytes_[at]); }

  std::uint64_t number(std::size_t at, std::size_t size) const {
    std::uint64_t result = 0;
    for (std::size_t i = 0; i < size; ++i) result = result << 8 | byte(at + i);
    return result;
  }

  // Throws unless `size` bytes from `at` lie among the objects.
  void require(std::size_t at, std::uint64_t size) const {
    if (at > offsetTable_ || size > offsetTable_ - at) throw Malformed{"an object lies outside"};
  }

  Value readObject(std::uint64_t index, int depth) {
    if (index >= objectCount_) throw Malformed{"a reference leads nowhere"};
    if (depth > kMaximumDepth) throw Malformed{"nested too deep"};
    if (remainingValues_-- == 0) throw Malformed{"its objects unfold to an immense tree"};
    std::uint64_t at = number(offsetTable_ + index * offsetSize_, offsetSize_);
    if (at < kHeaderSize) throw Malformed{"an object lies outside"};
    require(at, 1);
    std::uint8_t marker = byte(at);
    std::size_t low = marker & 0x0f;
    switch (marker >> 4) {
      case 0x0:
        return readSimple(marker);
      case 0x1:
        return readInteger(at + 1, std::size_t{1} << low);
      case 0x2:
        return readReal(at + 1, std::size_t{1} << low);
      case 0x3:
        return readDate(at + 1, marker);
      case 0x8:
        return readIdentifier(at + 1, low + 1);
      default:
        return readCounted(marker, at, depth);
    }
  }

  static Value readSimple(std::uint8_t marker) {
    switch (marker) {
      case 0x00:
        return Value();
      case 0x08:
        return Value(false);
      case 0x09:
        return Value(true);
      default:
        throw Malformed{"an object of unknown kind"};
    }
  }

  Value readInteger(std::size_t at, std::size_t size) const {
    if (size > 16) throw Malformed{"an integer too large"};
    require(at, size);
    if (size < 8) return Value(number(at, size));
    if (size == 8) return Value(static_cast<std::int64_t>(number(at, 8)));
    std::uint64_t high = number(at, 8);
    std::uint64_t low = number(at + 8, 8);
    if (high == 0) return Value(low);
    if (high == std::numeric_limits<std::uint64_t>::max()) return Value(static_cast<std::int64_t>(low));
    throw Malformed{"an integer too large"};
  }

  double real(std::size_t at, std::size_t size) const {
    require(at, size);
    if (size == 4) return std::bit_cast<float>(static_cast<std::uint32_t>(number(at, 4)));
    if (size == 8) return std::bit_cast<double>(number(at, 8));
    throw Malformed{"a real of unknown size"};
  }

  Value readReal(std::size_t at, std::size_t size) const { return Value(real(at, size)); }

  Value readDate(std::size_t at, std::uint8_t marker) const {
    if (marker != 0x33) throw Malformed{"a date of unknown size"};
    std::optional<Date> date = dateFromReferenceSeconds(real(at, 8));
    if (!date) throw Malformed{"an impossible date"};
    return Value(*date);
  }

  Value readIdentifier(std::size_t at, std::size_t size) const {
    if (size > 8) throw Malformed{"an identifier too large"};
    require(at, size);
    return Dictionary{{"CF$UID", Value(number(at, size))}};
  }

  // Objects that carry a count: data, texts and containers.
  Value readCounted(std::uint8_t marker, std::size_t at, int depth) {
    std::uint64_t count = marker & 0x0f;
    std::size_t content = at + 1;
    if (count == 0x0f) {
      require(content, 1);
      std::size_t size = std::size_t{1} << (byte(content) & 0x0f);
      if (byte(content) >> 4 != 1 || size > 8) throw Malformed{"a count of unknown kind"};
      require(content + 1, size);
      count = number(content + 1, size);
      content += 1 + size;
    }
    if (count > bytes_.size()) throw Malformed{"a count beyond the file"};
    switch (marker >> 4) {
      case 0x4:
        return readData(content, count);
      case 0x5:
      case 0x7:
        return readText(content, count);
      case 0x6:
        return readWideText(content, count);
      case 0xa:
      case 0xc:
        return readArray(content, count, depth);
      case 0xd:
        return readDictionary(content, count, depth);
      default:
        throw Malformed{"an object of unknown kind"};
    }
  }

  Value readData(std::size_t at, std::uint64_t count) const {
    require(at, count);
    std::string_view content = bytes_.substr(at, count);
    return Value(Data(content.begin(), content.end()));
  }

  Value readText(std::size_t at, std::uint64_t count) const {
    require(at, count);
    return Value(validUtf8(bytes_.substr(at, count)));
  }

  Value readWideText(std::size_t at, std::uint64_t count) const {
    require(at, count * 2);
    icu::UnicodeString text;
    for (std::size_t i = 0; i < count; ++i) text.append(static_cast<char16_t>(number(at + i * 2, 2)));
    std::string utf8;
    text.toUTF8String(utf8);
    return Value(std::move(utf8));
  }

  Value readReference(std::size_t at, int depth) { return readObject(number(at, referenceSize_), depth + 1); }

  Value readArray(std::size_t at, std::uint64_t count, int depth) {
    require(at, count * referenceSize_);
    Array elements;
    for (std::uint64_t i = 0; i < count; ++i)
      elements.push_back(readReference(at + i * referenceSize_, depth));
    return elements;
  }

  Value readDictionary(std::size_t at, std::uint64_t count, int depth) {
    require(at, count * 2 * referenceSize_);
    Dictionary dictionary;
    for (std::uint64_t i = 0; i < count; ++i) {
      Value key = readReference(at + i * referenceSize_, depth);
      if (!key.ifString()) throw Malformed{"a key that is no text"};
      dictionary.set(*key.ifString(), readReference(at + (count + i) * referenceSize_, depth));
    }
    return dictionary;
  }

  std::string_view bytes_;
  std::size_t offsetSize_;
  std::size_t referenceSize_;
  std::uint64_t objectCount_;
  std::uint64_t topObject_;
  std::uint64_t offsetTable_;
  std::size_t end_;
  std::size_t remainingValues_;
};

}  // namespace

bool isBinaryPropertyList(std::string_view bytes) {
  return bytes.starts_with(kMagic);
}

Result<Value> parseBinaryPropertyList(std::string_view bytes) {
  try {
    return Reader(bytes).readTop();
  } catch (const Malformed& malformed) {
    return failure("plist", 1, std::string("malformed binary property list: ") + malformed.reason);
  }
}

}  // namespace vornex
