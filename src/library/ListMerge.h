#pragma once

#include <vornex/Value.h>

#include <string_view>

namespace vornex {

/// What a list of records that several processes change is to hold.
///
/// `file` is what the file holds now, `base` what this process's records were when it last read or wrote
/// them, `ours` what they are. Rows stand for the same record when they have the same text under `key` (the
/// second of a name is told from the first). What this process has added, changed (key by key) or removed
/// since `base` is carried over to the file's rows; everything else stays as others have left it: unknown
/// keys, rows without a name, and changes of other processes. A row that another process has removed stays
/// removed. Our rows come first, in their order. Thread-safe.
Array mergedRows(std::string_view key, const Array& file, const Array& base, const Array& ours);

/// The same for a dictionary, entry by entry: what this process has set or removed since `base` is carried
/// over to the file's entries. Thread-safe.
Dictionary mergedEntries(const Dictionary& file, const Dictionary& base, const Dictionary& ours);

}  // namespace vornex
