#include <unicode/unistr.h>

#include <algorithm>
#include <bit>

#include "foundation/BinaryPropertyList.h"
#include "foundation/ReferenceDate.h"

namespace vornex {

namespace {

constexpr std::string_view kHeader = "bplist00";
constexpr int kMaximumDepth = 512;

// Thrown inside this file only.
struct Unwritable {
  const char* reason;
};

void appendNumber(std::string& bytes, std::uint64_t number, std::size_t size) {
  for (std::size_t i = size; i-- > 0;) bytes += static_cast<char>(i < 8 ? number >> (8 * i) : 0);
}

// In bytes; any power of two for integers, any count for the others.
std::size_t sizeOf(std::uint64_t number) {
  return std::max<std::size_t>(1, (std::bit_width(number) + 7) / 8);
}

void appendInteger(std::string& bytes, std::uint64_t number) {
  std::size_t power = std::bit_width(sizeOf(number) - 1);
  bytes += static_cast<char>(0x10 | power);
  appendNumber(bytes, number, std::size_t{1} << power);
}

void appendCount(std::string& bytes, int kind, std::size_t count) {
  bytes += static_cast<char>(kind << 4 | static_cast<int>(std::min<std::size_t>(count, 15)));
  if (count >= 15) appendInteger(bytes, count);
}

void appendEightBytes(std::string& bytes, int marker, double number) {
  bytes += static_cast<char>(marker);
  appendNumber(bytes, std::bit_cast<std::uint64_t>(number), 8);
}

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

void appendText(std::string& bytes, std::string_view text) {
  if (isAscii(text)) {
    appendCount(bytes, 0x5, text.size());
    bytes += text;
    return;
  }
  icu::UnicodeString wide =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  appendCount(bytes, 0x6, static_cast<std::size_t>(wide.length()));
  for (int32_t i = 0; i < wide.length(); ++i) appendNumber(bytes, static_cast<std::uint16_t>(wide[i]), 2);
}

// Absent for what is no object identifier.
std::optional<std::uint64_t> identifier(const Dictionary& dictionary) {
  const Value* index = dictionary.size() == 1 ? dictionary.find("CF$UID") : nullptr;
  const std::int64_t* number = index ? index->ifInteger() : nullptr;
  return number && *number >= 0 ? std::optional(static_cast<std::uint64_t>(*number)) : std::nullopt;
}

class Writer {
 public:
  std::string write(const Value& value) {
    add(value, 0);
    referenceSize_ = sizeOf(objects_.size());
    std::string bytes(kHeader);
    std::vector<std::size_t> offsets;
    for (const Object& object : objects_) {
      offsets.push_back(bytes.size());
      append(bytes, object);
    }
    std::size_t table = bytes.size();
    std::size_t offsetSize = sizeOf(table);
    for (std::size_t offset : offsets) appendNumber(bytes, offset, offsetSize);
    bytes.append(6, '\0');
    bytes += static_cast<char>(offsetSize);
    bytes += static_cast<char>(referenceSize_);
    for (std::size_t number : {objects_.size(), std::size_t{0}, table}) appendNumber(bytes, number, 8);
    return bytes;
  }

 private:
  // A key or text when value is null.
  struct Object {
    const Value* value;
    std::string_view text;
    std::vector<std::size_t> references;
  };

  std::size_t add(const Value& value, int depth) {
    if (depth > kMaximumDepth) throw Unwritable{"a value is nested too deep for a property list"};
    if (value.isNull()) throw Unwritable{"a property list cannot hold null"};
    if (const std::string* text = value.ifString()) return addText(*text);
    std::size_t index = objects_.size();
    objects_.push_back({&value, {}, {}});
    std::vector<std::size_t> references;
    if (const Array* array = value.ifArray()) {
      for (const Value& element : *array) references.push_back(add(element, depth + 1));
    } else if (const Dictionary* dictionary = value.ifDictionary(); dictionary && !identifier(*dictionary)) {
      for (const auto& [key, element] : *dictionary) references.push_back(addText(key));
      for (const auto& [key, element] : *dictionary) references.push_back(add(element, depth + 1));
    }
    objects_[index].references = std::move(references);
    return index;
  }

  // Equal texts are one object.
  std::size_t addText(std::string_view text) {
    auto [known, isNew] = texts_.try_emplace(text, objects_.size());
    if (isNew) objects_.push_back({nullptr, text, {}});
    return known->second;
  }

  void append(std::string& bytes, const Object& object) const {
    if (!object.value) return appendText(bytes, object.text);
    const Value& value = *object.value;
    if (const bool* flag = value.ifBool())
      bytes += *flag ? '\x09' : '\x08';
    else if (const std::int64_t* number = value.ifInteger())
      appendInteger(bytes, static_cast<std::uint64_t>(*number));
    else if (const std::uint64_t* large = value.ifUnsigned()) {
      bytes += '\x14';
      appendNumber(bytes, *large, 16);
    } else if (const double* real = value.ifReal())
      appendEightBytes(bytes, 0x23, *real);
    else if (const Date* date = value.ifDate())
      appendEightBytes(bytes, 0x33, secondsSinceReference(*date));
    else if (const Data* data = value.ifData()) {
      appendCount(bytes, 0x4, data->size());
      bytes.append(data->begin(), data->end());
    } else {
      appendContainer(bytes, object);
    }
  }

  void appendContainer(std::string& bytes, const Object& object) const {
    const Dictionary* dictionary = object.value->ifDictionary();
    if (auto index = dictionary ? identifier(*dictionary) : std::nullopt) {
      bytes += static_cast<char>(0x80 | (sizeOf(*index) - 1));
      return appendNumber(bytes, *index, sizeOf(*index));
    }
    if (dictionary)
      appendCount(bytes, 0xd, dictionary->size());
    else
      appendCount(bytes, 0xa, object.references.size());
    for (std::size_t reference : object.references) appendNumber(bytes, reference, referenceSize_);
  }

  std::vector<Object> objects_;
  std::unordered_map<std::string_view, std::size_t> texts_;
  std::size_t referenceSize_ = 1;
};

}  // namespace

Result<std::string> writeBinaryPropertyList(const Value& value) {
  try {
    return Writer().write(value);
  } catch (const Unwritable& unwritable) {
    return failure("plist", 1, unwritable.reason);
  }
}

}  // namespace vornex
