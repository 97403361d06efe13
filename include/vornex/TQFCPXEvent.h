#pragma once

#include <vornex/KeyedArchive.h>
#include <vornex/Types.h>

#include <vector>

namespace vornex {

/// An event of a Final Cut Pro X library: it holds assets, and the multicam clips made of them.
///
/// Thread-safety: none; changes to one library's trees are serialised by the caller.
class TQFCPXEvent : public Archivable, public std::enable_shared_from_this<TQFCPXEvent> {
 public:
  using Ptr = FCPXEventPtr;

  /// Null without ID or name.
  static Ptr fcpxEventWithID(OptionalString ID, OptionalString name);
  /// Null unless "id" and "name" are strings.
  static Ptr fcpxEventWithDictionary(const Dictionary& dictionary);
  /// The process's one event that stands for "no event"; it describes the libraries of the latest call.
  static Ptr undefinedFCPXEventWithLibrary(const LibraryPtr& library, const FCPXLibraryPtr& fcpxLibrary);

  /// "id" and "name", without the multicam clips. Absent, and logged, when one is missing.
  std::optional<Dictionary> fcpxEventDictionary() const;

  /// The clip with the identifier, or null.
  FCPXMulticamPtr fcpxMulticamWithID(const std::string& ID) const;
  /// The first clip with the name, in whatever composition of its letters, and the type, if its event has the
  /// identifier; else null.
  FCPXMulticamPtr fcpxMulticamWithName(const OptionalString& name, std::int64_t multicamType,
                                       const OptionalString& eventUUID) const;
  /// By identifier; -1 when unknown.
  std::int64_t indexOfFCPXMulticam(const FCPXMulticamPtr& multicam) const;

  // Changes. Each rewrites the list in the library's package folder. An event that is in its library's tree
  // no more (it was removed, or a load has made new events) cannot be changed: error 10000, or false. Error
  // 10003, not saved, has the reason in its userInfo (kLocalizedFailureReasonKey).

  /// Errors: 10000 no name or an empty one, 10003, and the name stays as it was.
  bool rename(const OptionalString& name, TQErrorPtr* error);
  /// Null with an error: 10000 no name or identifier, 10003, and the clip is not there.
  FCPXMulticamPtr addFCPXMulticamWithName(const OptionalString& name, const OptionalString& UUIDString,
                                          std::int64_t type, TQErrorPtr* error);
  /// The index counts positions before the move. False for an unknown clip or an index out of range, and when
  /// the move, which stays, is not saved.
  bool moveFCPXMulticam(const FCPXMulticamPtr& multicam, std::int64_t toIndex);
  /// By identifier. False, and logged, in a network library, and when the removal, which stays, is not saved.
  bool removeFCPXMulticam(const FCPXMulticamPtr& multicam);

  std::string archivedClassName() const override;
  void encodeWithCoder(KeyedArchiver& coder) const override;
  /// The Final Cut Pro X library is the one whose list of an archive the event comes from. A clip that
  /// several lists of an archive name comes back in one of them.
  void initWithCoder(KeyedUnarchiver& coder) override;

  std::weak_ptr<TQLibrary> library;
  std::weak_ptr<TQFCPXLibrary> fcpxLibrary;
  OptionalString ID, name;
  std::vector<FCPXMulticamPtr> multicamItems;

 private:
  TQFCPXEvent() = default;
  /// The library whose tree has the event; null when none has.
  LibraryPtr owner() const;

  static const ArchivedClass archivedClass_;
};

}  // namespace vornex
