#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vornex::bench {

/// Makes the asset documents of a library that is worked with for five years: names and tags of words whose
/// frequencies follow Zipf's law, a third of them images, 200 projects, a tenth from live folders; about 1.8
/// KB each. The same number gives the same document in every run.
class Documents {
 public:
  explicit Documents(std::size_t count);

  std::size_t count() const { return count_; }
  /// One JSON object without a line break.
  std::string json(std::size_t number) const;

  /// A word that names have, the most frequent one first.
  const std::string& nameWord(std::size_t rank) const { return nameWords_[rank]; }
  const std::string& folderWord(std::size_t rank) const { return folderWords_[rank]; }
  const std::string& project(std::size_t rank) const { return projects_[rank]; }
  /// The import date of a document, as a date number.
  std::int64_t importDate(std::size_t number) const;

 private:
  std::size_t count_;
  std::vector<std::string> nameWords_;
  std::vector<std::string> tagWords_;
  std::vector<std::string> folderWords_;
  std::vector<std::string> projects_;
  std::vector<std::string> groups_;
};

}  // namespace vornex::bench
