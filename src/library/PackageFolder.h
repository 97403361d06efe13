#pragma once

#include <vornex/Types.h>

#include <string>

namespace vornex {

/// Whose package a folder is, as its "library.plist" says. Nobody's: there is no folder, or an empty one, as
/// an unmounted disk or a removal that was cut short leaves it.
enum class PackageHolder { nobody, library, other };

/// What cannot be read counts as another one's. Thread-safe.
PackageHolder holderOfPackage(const std::string& folder, const OptionalString& dbName);

/// Removes a package folder with all that is in it. The record goes last: a removal that was cut short can be
/// repeated. Of a link, what it leads to goes, too; a file system that is mounted here is emptied. Null on
/// success; else logged, and the file system's error. Thread-safe.
TQErrorPtr removePackageFolder(const std::string& folder);

/// Locked, see `FileLock`, while a package folder is made, and gone when it is. The lock's file, beside the
/// folder, names the database, so that the next creation there can clear up after one that was killed.
std::string creationOf(const std::string& folder);

/// Removes the file of a creation of the database that was killed: what it made has become a library, and no
/// later creation may take it for a rest. Does nothing while another creation is at it. Thread-safe.
void forgetCreation(const std::string& folder, const std::string& dbName);

}  // namespace vornex
