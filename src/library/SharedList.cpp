#include "library/SharedList.h"

#include <algorithm>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "foundation/SharedDictionaryFile.h"
#include "library/ListMerge.h"

namespace vornex {

Result<void> SharedList::load(const std::function<bool(const Value& row)>& take) {
  known_.clear();
  if (!itemExists(form_.path)) return {};
  Result<Dictionary> file = readDictionaryFile(form_.path);
  if (!file) return tl::unexpected(file.error());
  for (Value& row : coerce::array(file->find(form_.rows)))
    if (take(row)) known_.push_back(std::move(row));
  return {};
}

Result<void> SharedList::save(Array ours, const Dictionary& otherEntries) {
  Result<void> written = changeDictionaryFile(
      form_.path,
      [&](std::optional<Dictionary> present) {
        Dictionary file = std::move(present).value_or(Dictionary());
        for (const auto& [key, value] : otherEntries) file.set(key, value);
        const Value* list = file.find(form_.rows);
        const bool isList = list && list->ifArray();
        Array rows = coerce::array(list);
        if (!form_.keepsNamelessRows)
          std::erase_if(rows, [&](const Value& row) { return !coerce::string(row.find(form_.identity)); });
        file.set(form_.rows, mergedRows(form_.identity, rows, isList ? known_ : Array(), ours));
        return file;
      },
      form_.mode);
  if (written) known_ = std::move(ours);
  return written;
}

void SharedList::claim(const std::string& name) {
  std::erase_if(known_, [&](const Value& row) { return coerce::string(row.find(form_.identity)) == name; });
}

const Value* SharedList::knownRow(const std::string& name) const {
  auto found = std::find_if(known_.begin(), known_.end(), [&](const Value& row) {
    return coerce::string(row.find(form_.identity)) == name;
  });
  return found == known_.end() ? nullptr : &*found;
}

}  // namespace vornex
