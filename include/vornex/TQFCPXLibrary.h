#pragma once

#include <vornex/KeyedArchive.h>
#include <vornex/Types.h>

#include <vector>

namespace vornex {

/// A Final Cut Pro X library, a bundle on disk, that a library of this system has taken in: a list of events.
///
/// Thread-safety: none; changes to one library's trees are serialised by the caller.
class TQFCPXLibrary : public Archivable, public std::enable_shared_from_this<TQFCPXLibrary> {
 public:
  using Ptr = FCPXLibraryPtr;

  /// The name is the bundle's file name without its extension. Null without ID or path.
  static Ptr fcpxLibraryWithID(OptionalString ID, OptionalString path);
  /// The same. Null unless "id" and "path" are strings.
  static Ptr fcpxLibraryWithDictionary(const Dictionary& dictionary);
  /// The process's one record that stands for "no Final Cut Pro X library"; it describes the library of the
  /// latest call and has no events.
  static Ptr undefinedFCPXLibraryWithLibrary(const LibraryPtr& library);

  /// Changes nothing unless "id", "name" and "path" are strings. The events stay.
  void setDictionary(const Dictionary& dictionary);
  /// "id" and "path", without the events; the name is not written. Absent, and logged, when one is missing.
  std::optional<Dictionary> fcpxLibraryDictionary() const;

  /// The event with the identifier, or null.
  FCPXEventPtr fcpxEventWithID(const std::string& ID) const;
  /// In order.
  std::vector<std::string> eventIDs() const;
  /// By identifier; -1 when unknown.
  std::int64_t indexOfFCPXEvent(const FCPXEventPtr& event) const;

  // Changes. Each rewrites the list in the library's package folder. A record that is in its library's tree
  // no more cannot be changed: error 10000, or false. Error 10003, not saved, has the reason in its userInfo
  // (kLocalizedFailureReasonKey).

  /// Errors: 10000 no name or an empty one, 10003, and the name stays as it was. The new name lasts as long
  /// as this object: one that is read is named after its bundle.
  bool rename(const OptionalString& name, TQErrorPtr* error);
  /// Null with an error: 10000 no name or identifier, 10003, and the event is not there, 10005 a network
  /// library.
  FCPXEventPtr addFCPXEventWithName(const OptionalString& name, const OptionalString& UUIDString,
                                    TQErrorPtr* error);
  /// The index counts positions before the move. False for an unknown event or an index out of range, and
  /// when the move, which stays, is not saved.
  bool moveFCPXEvent(const FCPXEventPtr& event, std::int64_t toIndex);
  /// By identifier. False, and logged, in a network library, and when the removal, which stays, is not saved.
  bool removeFCPXEvent(const FCPXEventPtr& event);

  std::string archivedClassName() const override;
  void encodeWithCoder(KeyedArchiver& coder) const override;
  /// The library is the one whose list of an archive the record comes from. An event that several lists of an
  /// archive name comes back in one of them.
  void initWithCoder(KeyedUnarchiver& coder) override;

  std::weak_ptr<TQLibrary> library;
  OptionalString ID, name;
  /// Of the bundle, absolute.
  OptionalString path;
  std::vector<FCPXEventPtr> events;

 private:
  TQFCPXLibrary() = default;
  /// The library whose tree has the record; null when none has.
  LibraryPtr owner() const;

  static const ArchivedClass archivedClass_;
};

}  // namespace vornex
