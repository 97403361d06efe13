#include "cli/Table.h"

#include <algorithm>
#include <numeric>

#include "cli/DisplayText.h"

namespace vornex::cli {
namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 8;

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
  const std::vector<std::size_t> columnWidths = widths(width);
  std::vector<std::string> titles;
  for (const Column& column : columns_) titles.push_back(column.title);
  std::vector<std::string> result{line(titles, columnWidths)};
  for (const auto& row : rows_) result.push_back(line(row, columnWidths));
  return result;
}

std::vector<std::size_t> Table::widths(std::size_t limit) const {
  std::vector<std::size_t> result;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    std::size_t widest = displayWidth(columns_[i].title);
    for (const auto& row : rows_) widest = std::max(widest, displayWidth(row[i]));
    result.push_back(widest);
  }
  if (limit == 0) return result;
  const std::size_t gaps = kGap * (columns_.size() - 1);
  const auto total = [&] { return std::accumulate(result.begin(), result.end(), gaps); };
  while (total() > limit) {
    std::size_t* widest = nullptr;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      if (isFlexible(columns_[i].kind) && result[i] > kNarrowest && (!widest || result[i] > *widest)) {
        widest = &result[i];
      }
    }
    if (!widest) break;
    --*widest;
  }
  return result;
}

std::string Table::line(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) const {
  std::string result;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    if (i > 0) result.append(kGap, ' ');
    result += fitted(cells[i], columns_[i].kind, widths[i]);
  }
  result.erase(result.find_last_not_of(' ') + 1);
  return result;
}

}  // namespace vornex::cli
