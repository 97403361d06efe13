#include "library/ListMerge.h"

#include <string>
#include <unordered_map>
#include <vector>

#include "core/Coercion.h"

namespace vornex {
namespace {

/// One row's identity: its name, and how many rows of that name stand before it. Empty without a name.
std::vector<std::string> identities(std::string_view key, const Array& rows) {
  std::vector<std::string> result;
  result.reserve(rows.size());
  std::unordered_map<std::string, std::size_t> seen;
  for (const Value& row : rows) {
    OptionalString name = coerce::string(row.find(key));
    result.push_back(name ? std::to_string(seen[*name]++) + ' ' + *name : "");
  }
  return result;
}

using RowsByIdentity = std::unordered_map<std::string, const Dictionary*>;

RowsByIdentity indexed(const Array& rows, const std::vector<std::string>& identities) {
  RowsByIdentity result;
  result.reserve(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i)
    if (!identities[i].empty()) result.emplace(identities[i], rows[i].ifDictionary());
  return result;
}

const Dictionary* find(const RowsByIdentity& rows, const std::string& identity) {
  auto found = rows.find(identity);
  return found == rows.end() ? nullptr : found->second;
}

/// The file's row with what has been set from `base` to `ours`.
Dictionary changedRow(const Dictionary* file, const Dictionary* base, const Dictionary& ours) {
  if (!file) return ours;
  Dictionary row = *file;
  for (const auto& [key, value] : ours) {
    const Value* before = base ? base->find(key) : nullptr;
    if (!before || !(*before == value)) row.set(key, value);
  }
  return row;
}

}  // namespace

Dictionary mergedEntries(const Dictionary& file, const Dictionary& base, const Dictionary& ours) {
  Dictionary merged = changedRow(&file, &base, ours);
  for (const auto& [key, value] : base)
    if (!ours.contains(key)) merged.erase(key);
  return merged;
}

Array mergedRows(std::string_view key, const Array& file, const Array& base, const Array& ours) {
  const std::vector<std::string> fileNames = identities(key, file);
  const std::vector<std::string> ourNames = identities(key, ours);
  const RowsByIdentity inFile = indexed(file, fileNames);
  const RowsByIdentity inBase = indexed(base, identities(key, base));
  const RowsByIdentity inOurs = indexed(ours, ourNames);

  Array result;
  result.reserve(ours.size());
  for (std::size_t i = 0; i < ours.size(); ++i) {
    const Dictionary* theirs = find(inFile, ourNames[i]);
    const Dictionary* before = find(inBase, ourNames[i]);
    const bool removedByOthers = before && !theirs;
    const Dictionary* row = ours[i].ifDictionary();
    if (row && !removedByOthers) result.emplace_back(changedRow(theirs, before, *row));
  }
  for (std::size_t i = 0; i < file.size(); ++i)
    if (!find(inOurs, fileNames[i]) && !find(inBase, fileNames[i])) result.push_back(file[i]);
  return result;
}

}  // namespace vornex
