#include "platform/TiffFacts.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/ByteReader.h"

namespace vornex {

namespace {

enum Tag : unsigned {
  kWidth = 0x0100,
  kHeight = 0x0101,
  kOrientation = 0x0112,
  kSubDirectories = 0x014A,
  kExifDirectory = 0x8769,
  kExifWidth = 0xA002,
  kExifHeight = 0xA003,
  kCropSize = 0xC620,
};

constexpr std::size_t kMostDirectories = 32;
constexpr unsigned kMostSubDirectories = 16;
constexpr unsigned kShort = 3;
constexpr unsigned kRational = 5;
// No picture has more pixels a side.
constexpr unsigned kLongestSide = 200'000;

class Walk {
 public:
  explicit Walk(ByteReader reader) : reader_(reader) {}

  TiffFacts facts() {
    directories_ = {reader_.four(4)};
    // Each may name more; a circle ends at the limit.
    for (std::size_t i = 0; i < directories_.size() && i < kMostDirectories; ++i) readDirectory(i);
    return facts_;
  }

 private:
  void readDirectory(std::size_t index) {
    const std::size_t start = directories_[index];
    const unsigned entries = reader_.two(start);
    unsigned width = 0, height = 0, exifWidth = 0, exifHeight = 0;
    for (unsigned entry = 0; entry < entries; ++entry) {
      const std::size_t at = start + 2 + std::size_t{entry} * 12;
      const unsigned value = reader_.two(at + 2) == kShort ? reader_.two(at + 8) : reader_.four(at + 8);
      switch (reader_.two(at)) {
        case kWidth:
          width = value;
          break;
        case kHeight:
          height = value;
          break;
        case kExifWidth:
          exifWidth = value;
          break;
        case kExifHeight:
          exifHeight = value;
          break;
        case kOrientation:
          if (index == 0 && value >= 1 && value <= 8) facts_.orientation = static_cast<int>(value);
          break;
        case kExifDirectory:
          directories_.push_back(value);
          break;
        case kSubDirectories:
          addSubDirectories(at);
          break;
        case kCropSize:
          takeCropSize(at);
          break;
        default:
          break;
      }
    }
    take(width, height);
    take(exifWidth, exifHeight);
    if (unsigned next = reader_.four(start + 2 + std::size_t{entries} * 12)) directories_.push_back(next);
  }

  void addSubDirectories(std::size_t at) {
    const unsigned count = std::min(reader_.four(at + 4), kMostSubDirectories);
    const std::size_t list = count == 1 ? at + 8 : reader_.four(at + 8);
    for (unsigned i = 0; i < count; ++i) directories_.push_back(reader_.four(list + std::size_t{i} * 4));
  }

  /// What is left of the sensor's values when the camera's borders are cut off: that is the picture.
  void takeCropSize(std::size_t at) {
    const unsigned type = reader_.two(at + 2);
    const std::size_t list = reader_.four(at + 8);
    if (type == kShort) {
      setSize(reader_.two(at + 8), reader_.two(at + 10));
    } else if (type == kRational) {
      const unsigned widthBase = reader_.four(list + 4), heightBase = reader_.four(list + 12);
      if (widthBase != 0 && heightBase != 0)
        setSize(reader_.four(list) / widthBase, reader_.four(list + 8) / heightBase);
    } else {
      setSize(reader_.four(list), reader_.four(list + 4));
    }
    isCropped_ = facts_.width > 0;
  }

  void take(unsigned width, unsigned height) {
    auto area = [](std::int64_t a, std::int64_t b) { return a * b; };
    if (!isCropped_ && area(width, height) > area(facts_.width, facts_.height)) setSize(width, height);
  }

  void setSize(unsigned width, unsigned height) {
    if (width == 0 || height == 0 || width > kLongestSide || height > kLongestSide) return;
    facts_.width = static_cast<int>(width);
    facts_.height = static_cast<int>(height);
  }

  ByteReader reader_;
  std::vector<std::size_t> directories_;
  TiffFacts facts_;
  bool isCropped_ = false;
};

}  // namespace

TiffFacts tiffFacts(std::string_view bytes) {
  const bool bigEndian = bytes.starts_with("MM");
  if (!bigEndian && !bytes.starts_with("II")) return {};
  return Walk(ByteReader(bytes, bigEndian)).facts();
}

}  // namespace vornex
