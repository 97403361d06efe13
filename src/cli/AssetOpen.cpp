#include <fmt/format.h>
#include <sys/wait.h>
#include <vornex/TQAsset.h>
#include <vornex/TQLibrary.h>

#include <thread>

#include "cli/Commands.h"
#include "cli/Host.h"
#include "cli/Output.h"
#include "cli/Search.h"
#include "foundation/Files.h"
#include "platform/Processes.h"

namespace vornex::cli {
namespace {

/// Where the asset's file can be had: a path, or an address at its server.
Result<std::string> placeOf(const TQAsset& asset) {
  const bool isLocal = asset.library() && asset.library()->libraryType == kLibraryTypeLocal;
  const OptionalString place = isLocal ? asset.originMasterPath() : asset.masterURL();
  if (place && (!isLocal || itemExists(*place))) return *place;
  return failure("vornex", 0,
                 fmt::format("the file of the asset {} is missing{}", asset.id.value_or(""),
                             place ? ": " + *place : ""));
}

/// Starts the desktop's program for the file. The opener may stay as long as that program runs: only an early
/// end tells a failure.
Result<void> openFile(const std::string& opener, const std::string& place) {
  Result<pid_t> process = startProcess(opener, {place});
  if (!process) return tl::unexpected(process.error());
  constexpr int kMostChecks = 40;
  for (int check = 0; check < kMostChecks; ++check) {
    int status = 0;
    if (::waitpid(*process, &status, WNOHANG) == *process) {
      if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
      return failure("vornex", 0, fmt::format("no program can open {}", place));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return {};
}

}  // namespace

Result<void> run(const AssetOpenCommand& command, Host& host, const Output& output) {
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  auto assets = assetsWithIDs(*library, command.ids);
  if (!assets) return tl::unexpected(assets.error());
  const OptionalString opener = findProgram("xdg-open");
  if (!command.path && !opener)
    return failure("vornex", 0, "xdg-open is not installed; --path prints where the files are");
  for (const AssetPtr& asset : *assets) {
    auto place = placeOf(*asset);
    if (!place) return tl::unexpected(place.error());
    auto opened = command.path ? Result<void>() : openFile(*opener, *place);
    if (!opened) return opened;
    output.record("file", {{"id", asset->id}, {"path", *place}});
    output.text(*place);
  }
  return {};
}

}  // namespace vornex::cli
