#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vornex::cli {

/// A table that fits the width it is printed for. Flexible columns are narrowed, the least important first,
/// as long as they stay readable; then columns that may be missing are left out; then the rest is cut.
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
    /// How soon the column gives way to others; 0 for one that is never left out.
    int expendable = 0;
  };

  explicit Table(std::vector<Column> columns);

  /// One cell per column; control characters are escaped.
  void addRow(std::vector<std::string> cells);
  bool empty() const { return rows_.empty(); }

  /// The lines of the table, the titles first. A width of 0 is unlimited. No line ends in blanks.
  std::vector<std::string> lines(std::size_t width) const;

 private:
  /// Of the columns; absent for those that are left out.
  using Widths = std::vector<std::optional<std::size_t>>;

  Widths naturalWidths() const;
  Widths widths(std::size_t limit) const;
  void narrow(Widths& widths, std::size_t limit, bool anyhow) const;
  bool leaveOneOut(Widths& widths) const;
  std::string line(const std::vector<std::string>& cells, const Widths& widths) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace vornex::cli
