#pragma once

#include <xxhash.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex::server {

/// Writes arrays one after the other, each aligned to 8 bytes, into memory or a new file. They are read back
/// in the same order. The end carries a table of the arrays, the version of what they mean and a checksum.
///
/// Thread-safety: one thread at a time.
class SectionWriter {
 public:
  /// Into memory.
  SectionWriter();
  /// Into a file, which is made; replaces one of the name.
  [[nodiscard]] static Result<SectionWriter> toFile(const std::string& path);
  SectionWriter(SectionWriter&&) noexcept = default;
  ~SectionWriter();

  template <typename T>
  void add(const std::vector<T>& array) {
    static_assert(std::is_trivially_copyable_v<T>);
    addBytes(array.data(), array.size() * sizeof(T));
  }
  void add(const std::string& bytes) { addBytes(bytes.data(), bytes.size()); }
  void addBytes(const void* bytes, std::size_t size);

  /// Ends the table. A file is on disk when this succeeds; the first failure of any write is its error.
  [[nodiscard]] Result<void> finish(std::uint32_t version);

  /// What was written, for a writer into memory.
  std::vector<std::uint64_t> takeMemory() { return std::move(memory_); }

 private:
  struct HashState {
    void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
  };

  void write(const void* bytes, std::size_t size);
  void flush();

  std::string path_;
  FileDescriptor file_;
  std::string buffer_;
  int failure_ = 0;
  std::vector<std::uint64_t> memory_;
  std::size_t written_ = 0;
  std::vector<std::uint64_t> table_;
  std::unique_ptr<XXH3_state_t, HashState> hash_;
};

/// Bytes that stay where they are: in memory, or mapped from a file.
///
/// Thread-safety: immutable, safe on any thread.
class SectionBytes {
 public:
  explicit SectionBytes(std::vector<std::uint64_t> memory);
  /// Maps a file after checking it: `version` and checksum must fit. Domain "VORNEX SERVER".
  [[nodiscard]] static Result<SectionBytes> map(const std::string& path, std::uint32_t version);
  SectionBytes(SectionBytes&& other) noexcept;
  SectionBytes& operator=(SectionBytes&&) = delete;
  ~SectionBytes();

  std::span<const char> bytes() const { return bytes_; }
  bool isMapped() const { return mapped_ != nullptr; }
  /// Lets the system take back the memory of a mapped file that was read to be merged.
  void forgetPages() const;

 private:
  SectionBytes() = default;

  std::vector<std::uint64_t> memory_;
  void* mapped_ = nullptr;
  std::span<const char> bytes_;
};

/// Gives the arrays in the order in which they were added.
class SectionReader {
 public:
  explicit SectionReader(std::span<const char> bytes);

  template <typename T>
  std::span<const T> next() {
    std::span<const char> section = nextBytes();
    return {static_cast<const T*>(static_cast<const void*>(section.data())), section.size() / sizeof(T)};
  }
  std::span<const char> nextBytes();

 private:
  std::span<const char> bytes_;
  std::span<const std::uint64_t> table_;
  std::size_t at_ = 0;
};

}  // namespace vornex::server
