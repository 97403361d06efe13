#pragma once

#include <string>
#include <vector>

namespace vornex::cli {

/// A table that fits the width it is printed for: columns marked as flexible give way first, the widest
/// first.
///
/// Thread-safety: none.
class Table {
 public:
  enum class Kind {
    fixed,
    /// Right-aligned; never cut.
    number,
    /// Cut at the end when the table is too wide.
    text,
    /// Cut at the start when the table is too wide.
    path,
  };
  struct Column {
    std::string title;
    Kind kind = Kind::fixed;
  };

  explicit Table(std::vector<Column> columns);

  /// One cell per column; control characters are escaped.
  void addRow(std::vector<std::string> cells);
  bool empty() const { return rows_.empty(); }

  /// The lines of the table, the titles first. A width of 0 is unlimited. No line ends in blanks.
  std::vector<std::string> lines(std::size_t width) const;

 private:
  std::vector<std::size_t> widths(std::size_t limit) const;
  std::string line(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace vornex::cli
