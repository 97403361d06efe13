#include "cli/Table.h"

#include <algorithm>

#include "cli/DisplayText.h"

namespace vornex::cli {
namespace {

constexpr std::size_t kGap = 2;
// As narrow as a column may become for the sake of others: one that may be left out, and one that may not.
constexpr std::size_t kUseful = 8;
constexpr std::size_t kReadable = 24;
constexpr std::size_t kNarrowest = 3;

std::size_t total(const std::vector<std::optional<std::size_t>>& widths) {
  std::size_t columns = 0, sum = 0;
  for (const auto& width : widths) {
    if (!width) continue;
    sum += *width + (columns++ > 0 ? kGap : 0);
  }
  return sum;
}

bool isFlexible(Table::Kind kind) {
  return kind == Table::Kind::text || kind == Table::Kind::path;
}

std::string fitted(const std::string& cell, Table::Kind kind, std::size_t width) {
  std::string cut = kind == Table::Kind::path ? shortenedAtStart(cell, width) : shortened(cell, width);
  return padded(std::move(cut), width, kind == Table::Kind::number);
}

}  // namespace

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

void Table::addRow(std::vector<std::string> cells) {
  cells.resize(columns_.size());
  for (std::string& cell : cells) cell = printable(cell);
  rows_.push_back(std::move(cells));
}

std::vector<std::string> Table::lines(std::size_t width) const {
  const Widths columnWidths = widths(width);
  std::vector<std::string> titles;
  for (const Column& column : columns_) titles.push_back(column.title);
  std::vector<std::string> result{line(titles, columnWidths)};
  for (const auto& row : rows_) result.push_back(line(row, columnWidths));
  return result;
}

Table::Widths Table::naturalWidths() const {
  Widths result;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    std::size_t widest = displayWidth(columns_[i].title);
    for (const auto& row : rows_) widest = std::max(widest, displayWidth(row[i]));
    result.emplace_back(widest);
  }
  return result;
}

Table::Widths Table::widths(std::size_t limit) const {
  Widths shown = naturalWidths();
  if (limit == 0) return shown;
  for (;;) {
    Widths narrowed = shown;
    narrow(narrowed, limit, false);
    if (total(narrowed) <= limit) return narrowed;
    if (leaveOneOut(shown)) continue;
    narrow(narrowed, limit, true);
    return narrowed;
  }
}

void Table::narrow(Widths& widths, std::size_t limit, bool anyhow) const {
  while (total(widths) > limit) {
    std::optional<std::size_t> next;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const std::size_t least = anyhow ? kNarrowest : columns_[i].expendable > 0 ? kUseful : kReadable;
      if (!isFlexible(columns_[i].kind) || !widths[i] || *widths[i] <= least) continue;
      const auto soonness = [&](std::size_t column) {
        return std::pair(columns_[column].expendable, *widths[column]);
      };
      if (!next || soonness(i) > soonness(*next)) next = i;
    }
    if (!next) return;
    --*widths[*next];
  }
}

bool Table::leaveOneOut(Widths& widths) const {
  std::size_t most = 0;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const bool isSooner = !widths[most] || columns_[i].expendable > columns_[most].expendable;
    if (widths[i] && isSooner) most = i;
  }
  if (!widths[most] || columns_[most].expendable == 0) return false;
  widths[most].reset();
  return true;
}

std::string Table::line(const std::vector<std::string>& cells, const Widths& widths) const {
  std::string result;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    if (!widths[i]) continue;
    if (!result.empty()) result.append(kGap, ' ');
    result += fitted(cells[i], columns_[i].kind, *widths[i]);
  }
  result.erase(result.find_last_not_of(' ') + 1);
  return result;
}

}  // namespace vornex::cli
