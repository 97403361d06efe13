// links: vornex
#include <vornex/TQLibrary.h>
#include <vornex/TQWorkflowItem.h>

#include <cstdint>

#include "core/Coercion.h"
#include "foundation/PropertyList.h"
#include "library/ListMerge.h"

using namespace vornex;

// The record of a package folder, a job, or a list of records that is merged with its own first half.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto value = parsePropertyList(std::string_view(reinterpret_cast<const char*>(data), size));
  const Dictionary* file = value ? value->ifDictionary() : nullptr;
  if (!file) return 0;
  if (LibraryPtr library = TQLibrary::libraryWithDictionary(*file)) {
    auto written = library->libDictionary();
    if (!written || TQLibrary::libraryWithDictionary(*written)->libDictionary() != written) __builtin_trap();
  }
  if (auto item = TQWorkflowAssetItem::workflowAssetItemWithDictionary(*file)) (void)item->infoDescription();

  const Array rows = coerce::array(file->find("library"));
  Array half;
  for (std::size_t i = 0; i < rows.size() / 2; ++i)
    if (rows[i].ifDictionary() && coerce::string(rows[i].find("dbname"))) half.push_back(rows[i]);
  // Who has changed nothing changes nothing in the file.
  if (mergedRows("dbname", rows, half, half).size() != rows.size()) __builtin_trap();
  (void)mergedRows("dbname", half, rows, half);
  (void)mergedRows("dbname", half, half, rows);
  return 0;
}
