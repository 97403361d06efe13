#include "Scan.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <map>

#include "Timing.h"
#include "foundation/Json.h"
#include "foundation/Text.h"

namespace vornex::bench {

namespace {

struct Column {
  std::string text;
  std::vector<std::size_t> ends;
  std::vector<bool> trash;
};

Column load(const std::string& path) {
  std::vector<std::tuple<std::int64_t, std::string, bool>> rows;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    Value document = parseJson(line).value();
    std::string text = *document.find("name")->ifString() + "\n";
    for (const Value& tag : *document.find("tags")->ifArray()) text += *tag.ifString() + "\n";
    text += *document.find("fileext")->ifString();
    rows.emplace_back(-*document.find("importdate")->ifInteger(), foldedText(text),
                      *document.find("trash")->ifBool());
  }
  std::sort(rows.begin(), rows.end());
  Column column;
  for (const auto& [date, text, trash] : rows) {
    column.text += text;
    column.text += '\0';
    column.ends.push_back(column.text.size());
    column.trash.push_back(trash);
  }
  return column;
}

bool isLiteral(const std::string& term) {
  return term.find_first_of(".?\\") == std::string::npos;
}

// How many documents have the term; each is looked at once.
std::int64_t scan(const Column& column, const std::string& term) {
  std::int64_t total = 0;
  if (isLiteral(term)) {
    std::size_t row = 0;
    for (std::size_t at = 0; at < column.text.size();) {
      const void* found =
          ::memmem(column.text.data() + at, column.text.size() - at, term.data(), term.size());
      if (!found) break;
      auto place = static_cast<std::size_t>(static_cast<const char*>(found) - column.text.data());
      while (column.ends[row] <= place) ++row;
      total += column.trash[row] ? 0 : 1;
      at = column.ends[row];
    }
    return total;
  }
  RE2 expression(term);
  std::size_t begin = 0;
  for (std::size_t row = 0; row < column.ends.size(); ++row) {
    std::size_t end = column.ends[row];
    if (!column.trash[row] &&
        RE2::PartialMatch(re2::StringPiece(column.text.data() + begin, end - begin - 1), expression))
      ++total;
    begin = end;
  }
  return total;
}

}  // namespace

void measureScans(const std::string& documents, const std::vector<Query>& queries) {
  Column column = load(documents);
  std::map<std::string, std::vector<double>> times;
  std::map<std::string, std::string> totals;
  for (const Query& query : queries) {
    if (query.terms.size() != 1) continue;
    std::int64_t total = 0;
    for (int i = 0; i < 10; ++i)
      times[query.name].push_back(milliseconds([&] { total = scan(column, query.terms.front()); }));
    totals[query.name] += fmt::format("{} ", total);
  }
  for (auto& [name, all] : times) printRow("scan in memory", name, all, totals[name]);
}

}  // namespace vornex::bench
