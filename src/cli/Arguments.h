#pragma once

#include <vornex/Types.h>

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace vornex::cli {

struct ServeCommand {
  bool foreground = false;
};
struct StopCommand {};
struct StatusCommand {};

struct LibraryCreateCommand {
  /// Folders to be, or names of folders below "~/Vornex".
  std::vector<std::string> places;
  OptionalString name;
  OptionalString description;
};
struct LibraryListCommand {};
struct LibraryShowCommand {
  OptionalString library;
};
struct LibraryImportCommand {
  /// Package folders.
  std::vector<std::string> places;
  /// Also one that another computer has locked.
  bool force = false;
  bool yes = false;
};
struct LibraryRenameCommand {
  std::string library;
  std::string name;
};
struct LibraryDeleteCommand {
  std::string library;
  /// With the database and the package folder.
  bool everything = false;
  bool yes = false;
};
struct LibraryBackupCommand {
  OptionalString library;
};
struct LibraryRestoreCommand {
  OptionalString library;
  bool yes = false;
};
struct LibraryReloadCommand {
  OptionalString library;
};

struct ProjectAddCommand {
  /// "name" or "name/group/group"; missing levels are made.
  std::string path;
  OptionalString library;
};
struct ProjectGroupCommand {
  std::string parent;
  std::string name;
  OptionalString library;
};
struct ProjectListCommand {
  OptionalString library;
};
struct ProjectRenameCommand {
  std::string path;
  std::string name;
  OptionalString library;
};
struct ProjectMoveCommand {
  std::string path;
  /// Absent: it stays with its parent.
  OptionalString into;
  /// Counted before the move; absent: the end.
  std::optional<std::int64_t> position;
  OptionalString library;
};
struct ProjectRemoveCommand {
  std::string path;
  bool yes = false;
  OptionalString library;
};

struct ImportCommand {
  std::vector<std::string> paths;
  OptionalString library;
  OptionalString project;
  bool reference = false;
  OptionalString target;
  std::vector<std::string> tags;
  OptionalString importer;
  bool verify = false;
  bool resume = false;
  bool hidden = false;
};

struct SearchCommand {
  std::string text;
  std::vector<std::string> types;
  OptionalString library;
  std::int64_t page = 0;
  std::int64_t limit = 100;
  OptionalString sort;
  bool descending = false;
  bool trash = false;
};

struct AssetShowCommand {
  std::string id;
  OptionalString library;
};
struct AssetTagCommand {
  std::vector<std::string> ids;
  /// Begin with these instead of the tags that each has.
  std::optional<std::vector<std::string>> set;
  bool clear = false;
  std::vector<std::string> add;
  std::vector<std::string> remove;
  OptionalString library;
};
struct AssetLabelCommand {
  /// A colour's name, or "none".
  std::string color;
  std::vector<std::string> ids;
  OptionalString library;
};
struct AssetRateCommand {
  std::int64_t rating = 0;
  std::vector<std::string> ids;
  OptionalString library;
};
struct AssetFlagCommand {
  bool off = false;
  std::vector<std::string> ids;
  OptionalString library;
};
struct AssetOpenCommand {
  std::vector<std::string> ids;
  /// Print where the files are instead.
  bool path = false;
  OptionalString library;
};

using Command =
    std::variant<ServeCommand, StopCommand, StatusCommand, LibraryCreateCommand, LibraryListCommand,
                 LibraryShowCommand, LibraryImportCommand, LibraryRenameCommand, LibraryDeleteCommand,
                 LibraryBackupCommand, LibraryRestoreCommand, LibraryReloadCommand, ProjectAddCommand,
                 ProjectGroupCommand, ProjectListCommand, ProjectRenameCommand, ProjectMoveCommand,
                 ProjectRemoveCommand, ImportCommand, SearchCommand, AssetShowCommand, AssetTagCommand,
                 AssetLabelCommand, AssetRateCommand, AssetFlagCommand, AssetOpenCommand>;

/// What a command line asks for.
struct Arguments {
  OptionalString root;
  /// 0: any free port.
  std::int64_t port = 38317;
  bool json = false;
  /// Show the SDK's log lines.
  bool verbose = false;
  Command command;
};

/// What to print instead of running a command: help or version (exit code 0), or a mistake in usage (2).
struct EarlyEnd {
  std::string text;
  int exitCode = 0;
};

/// Reads the command line and $VORNEX_PORT.
std::variant<Arguments, EarlyEnd> parseArguments(int count, const char* const* values);

}  // namespace vornex::cli
