#pragma once

#include <vornex/Value.h>

#include <string>
#include <string_view>

/// Where everything is stored: the one place that decides. No function creates anything.
///
/// Thread-safety: safe on any thread as long as no thread changes the environment.
namespace vornex::layout {

/// This user's home in the user database, whatever the environment says; absent for an unknown user.
OptionalString accountHomeFolder();

/// `$VORNEX_ROOT` when set; else the application group's container under `$XDG_DATA_HOME` (default
/// "~/.local/share"), then "Vornex".
std::string rootFolder();
std::string preferenceFolder();
std::string localLibraryPlist();
std::string networkLibraryPlist();
std::string networkUserPlist();
std::string userPlist();
std::string bookmarkPlist();
/// The shared database folder, and the folder of one library's database in it.
std::string databaseRoot();
std::string databaseFolder(std::string_view dbName);

/// The local service's own files, below "Service" in the root folder: its lock, the local account (mode
/// 0600), its log.
std::string serviceFolder();
std::string serviceLockFile();
std::string localAccountFile();
std::string serviceLogFile();
/// Unix socket of the control channel. Beside the lock, so that whoever knows the root folder finds the
/// service, by whatever name and with whatever environment.
std::string controlSocket();

// Inside a package folder.

std::string libraryPlist(std::string_view packageFolder);
std::string projectPlist(std::string_view packageFolder);
std::string liveFolderPlist(std::string_view packageFolder);
std::string fcpxLibraryPlist(std::string_view packageFolder);
std::string mediaFolder(std::string_view packageFolder);
std::string masterFolder(std::string_view packageFolder);
std::string thumbnailFolder(std::string_view packageFolder);
std::string previewFolder(std::string_view packageFolder);
std::string catalogFolder(std::string_view packageFolder);
std::string extraFolder(std::string_view packageFolder);
std::string packagedDatabaseFolder(std::string_view packageFolder);

}  // namespace vornex::layout
