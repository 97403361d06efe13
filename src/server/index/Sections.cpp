#include "server/index/Sections.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "core/StatusCode.h"
#include "server/ServerError.h"

namespace vornex::server {

namespace {

constexpr std::uint64_t kMagic = 0x31584449584e5256;  // "VRNXIDX1"
constexpr std::size_t kBufferSize = std::size_t{1} << 20;

// What a file ends with. The checksum is of everything before it.
struct Footer {
  std::uint64_t sections;
  std::uint64_t version;
  std::uint64_t magic;
  std::uint64_t checksum;
};

tl::unexpected<Error> unusable(const std::string& path, std::string_view why) {
  return serverFailure(StatusCode::databaseFailed, fmt::format("the index file {} {}", path, why));
}

}  // namespace

SectionWriter::SectionWriter() = default;

SectionWriter::~SectionWriter() = default;

Result<SectionWriter> SectionWriter::toFile(const std::string& path) {
  SectionWriter writer;
  writer.path_ = path;
  writer.file_ = FileDescriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!writer.file_) return posixFailure(errno, "cannot write " + path);
  writer.hash_.reset(XXH3_createState());
  XXH3_64bits_reset(writer.hash_.get());
  return writer;
}

void SectionWriter::addBytes(const void* bytes, std::size_t size) {
  table_.push_back(written_);
  table_.push_back(size);
  write(bytes, size);
  static constexpr std::array<char, 8> kPadding{};
  write(kPadding.data(), (8 - size % 8) % 8);
}

void SectionWriter::write(const void* bytes, std::size_t size) {
  if (size == 0) return;
  if (!file_) {
    memory_.resize((written_ + size + 7) / 8);
    void* target = memory_.data();
    std::memcpy(static_cast<char*>(target) + written_, bytes, size);
  } else {
    XXH3_64bits_update(hash_.get(), bytes, size);
    buffer_.append(static_cast<const char*>(bytes), size);
    if (buffer_.size() >= kBufferSize) flush();
  }
  written_ += size;
}

void SectionWriter::flush() {
  std::string_view rest = buffer_;
  while (!rest.empty() && failure_ == 0) {
    ssize_t count = ::write(file_.get(), rest.data(), rest.size());
    if (count > 0)
      rest.remove_prefix(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      failure_ = errno;
  }
  buffer_.clear();
}

Result<void> SectionWriter::finish(std::uint32_t version) {
  std::vector<std::uint64_t> table = table_;
  write(table.data(), table.size() * sizeof(std::uint64_t));
  Footer footer{table.size() / 2, version, kMagic, 0};
  write(&footer, offsetof(Footer, checksum));
  footer.checksum = file_ ? XXH3_64bits_digest(hash_.get()) : XXH3_64bits(memory_.data(), written_);
  write(&footer.checksum, sizeof footer.checksum);
  if (!file_) return {};
  flush();
  if (failure_ == 0 && ::fsync(file_.get()) != 0) failure_ = errno;
  if (file_.close() != 0 && failure_ == 0) failure_ = errno;
  if (failure_ != 0) return posixFailure(failure_, "cannot write " + path_);
  return {};
}

SectionBytes::SectionBytes(std::vector<std::uint64_t> memory) : memory_(std::move(memory)) {
  const void* bytes = memory_.data();
  bytes_ = {static_cast<const char*>(bytes), memory_.size() * sizeof(std::uint64_t)};
}

SectionBytes::SectionBytes(SectionBytes&& other) noexcept
    : memory_(std::move(other.memory_)),
      mapped_(std::exchange(other.mapped_, nullptr)),
      bytes_(other.bytes_) {}

SectionBytes::~SectionBytes() {
  if (mapped_) ::munmap(mapped_, bytes_.size());
}

// Read rather than touched through the mapping, so that a check makes nothing resident.
static Result<std::uint64_t> checksum(int file, std::size_t size, const std::string& path) {
  std::unique_ptr<XXH3_state_t, decltype(&XXH3_freeState)> hash(XXH3_createState(), XXH3_freeState);
  XXH3_64bits_reset(hash.get());
  std::string buffer(kBufferSize, '\0');
  for (std::size_t at = 0; at < size;) {
    ssize_t count = ::pread(file, buffer.data(), std::min(buffer.size(), size - at), static_cast<off_t>(at));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return posixFailure(count < 0 ? errno : EIO, "cannot read " + path);
    XXH3_64bits_update(hash.get(), buffer.data(), static_cast<std::size_t>(count));
    at += static_cast<std::size_t>(count);
  }
  return XXH3_64bits_digest(hash.get());
}

// Offsets and sizes lie inside of the file when the checksum is right; a file that says otherwise was not
// written by SectionWriter.
static bool tableFits(const Footer& footer, std::span<const char> bytes) {
  std::size_t whole = bytes.size() - sizeof(Footer);
  if (footer.sections > whole / 16) return false;
  std::size_t end = whole - footer.sections * 16;
  for (std::size_t i = 0; i < footer.sections; ++i) {
    std::array<std::uint64_t, 2> entry{};
    std::memcpy(entry.data(), bytes.data() + end + i * 16, 16);
    if (entry[0] > end || entry[1] > end - entry[0]) return false;
  }
  return true;
}

Result<SectionBytes> SectionBytes::map(const std::string& path, std::uint32_t version) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) return posixFailure(errno, "cannot read " + path);
  auto size = static_cast<std::size_t>(status.st_size);
  if (size < sizeof(Footer) || size % 8 != 0) return unusable(path, "is cut off");
  SectionBytes result;
  void* mapped = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file.get(), 0);
  if (mapped == MAP_FAILED) return posixFailure(errno, "cannot map " + path);
  result.mapped_ = mapped;
  result.bytes_ = {static_cast<const char*>(mapped), size};
  Footer footer{};
  std::memcpy(&footer, result.bytes_.data() + size - sizeof footer, sizeof footer);
  if (footer.magic != kMagic) return unusable(path, "is no index or is cut off");
  if (footer.version != version) return unusable(path, "was made by another version");
  Result<std::uint64_t> sum = checksum(file.get(), size - sizeof footer.checksum, path);
  if (!sum) return tl::unexpected(sum.error());
  if (*sum != footer.checksum || !tableFits(footer, result.bytes_)) return unusable(path, "is damaged");
  return result;
}

void SectionBytes::forgetPages() const {
  if (mapped_) ::madvise(mapped_, bytes_.size(), MADV_DONTNEED);
}

SectionReader::SectionReader(std::span<const char> bytes) : bytes_(bytes) {
  Footer footer{};
  std::size_t end = bytes.size() - sizeof footer;
  std::memcpy(&footer, bytes.data() + end, sizeof footer);
  const void* table = bytes.data() + end - footer.sections * 16;
  table_ = {static_cast<const std::uint64_t*>(table), footer.sections * 2};
}

std::span<const char> SectionReader::nextBytes() {
  if (at_ + 2 > table_.size()) return {};
  std::span<const char> section = bytes_.subspan(table_[at_], table_[at_ + 1]);
  at_ += 2;
  return section;
}

}  // namespace vornex::server
