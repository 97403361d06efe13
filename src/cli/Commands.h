#pragma once

#include "cli/Arguments.h"
#include "foundation/Error.h"

namespace vornex::cli {

class Host;
class Output;

// Each runs one command to its end and prints its data. A failure says why not all that was asked has
// happened.

[[nodiscard]] Result<void> run(const ServeCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const StopCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const StatusCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const LibraryCreateCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const LibraryListCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const LibraryShowCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const LibraryImportCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const LibraryRenameCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const LibraryDeleteCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const LibraryBackupCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const LibraryRestoreCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const LibraryReloadCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const ProjectAddCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const ProjectGroupCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const ProjectListCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const ProjectRenameCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const ProjectMoveCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const ProjectRemoveCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const ImportCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const SearchCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const AssetShowCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const AssetTagCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const AssetLabelCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const AssetRateCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const AssetFlagCommand& command, Host& host, const Output& output);
[[nodiscard]] Result<void> run(const AssetOpenCommand& command, Host& host, const Output& output);

}  // namespace vornex::cli
