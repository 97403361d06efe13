#pragma once

#include <vornex/KeyedArchive.h>
#include <vornex/Types.h>

#include <atomic>

namespace vornex {

/// A multicam clip inside an event of a Final Cut Pro X library.
///
/// Thread-safety: none; changes to one library's trees are serialised by the caller.
class TQFCPXMulticam : public Archivable, public std::enable_shared_from_this<TQFCPXMulticam> {
 public:
  using Ptr = FCPXMulticamPtr;

  /// Null without ID or name.
  static Ptr fcpxMulticamWithID(OptionalString ID, OptionalString name, std::int64_t type);
  /// Null unless "id" and "name" are strings. A missing "type" reads as -1.
  static Ptr fcpxMulticamWithDictionary(const Dictionary& dictionary);

  /// "id", "name" (empty when absent) and "type". Absent, and logged, without ID.
  std::optional<Dictionary> fcpxMulticamDictionary() const;

  /// Saves the library's tree. Errors: 10000 no name or an empty one, or a clip that is not in that library's
  /// tree any more; 10003 not saved, and the name stays as it was.
  bool rename(const OptionalString& name, const LibraryPtr& library, TQErrorPtr* error);

  std::string archivedClassName() const override;
  /// The type is not archived.
  void encodeWithCoder(KeyedArchiver& coder) const override;
  /// The event is the one whose list of an archive the clip comes from.
  void initWithCoder(KeyedUnarchiver& coder) override;

  std::weak_ptr<TQFCPXEvent> event;
  OptionalString ID, name;
  /// The kind of clip, as the importer gave it. Searches set it, from any thread, to what an asset tells.
  std::atomic<std::int64_t> multicamType = 0;

 private:
  TQFCPXMulticam() = default;

  static const ArchivedClass archivedClass_;
};

}  // namespace vornex
