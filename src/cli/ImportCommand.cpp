#include <fmt/format.h>
#include <vornex/TQAsset.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>

#include <unordered_set>

#include "cli/Commands.h"
#include "cli/DisplayText.h"
#include "cli/FileWalk.h"
#include "cli/Format.h"
#include "cli/Host.h"
#include "cli/ImportRun.h"
#include "cli/Interrupt.h"
#include "cli/Output.h"
#include "cli/Paths.h"
#include "cli/Search.h"
#include "core/Coercion.h"
#include "import/FileNames.h"
#include "import/SourceKeys.h"

namespace vornex::cli {
namespace {

/// One version of a file: equal keys mean that the library holds what lies on disk.
std::string versionKey(const std::string& path, std::uint64_t size, std::int64_t modified) {
  return fmt::format("{}\n{}\n{}", size, modified, path);
}

std::int64_t milliseconds(Date date) {
  return std::chrono::floor<std::chrono::milliseconds>(date).time_since_epoch().count();
}

/// Of the file that the asset was imported from: a reference to a copy tells of it apart from the copy.
OptionalString versionHeld(const TQAsset& asset) {
  const Dictionary none;
  const Dictionary& record = asset.metaDataDictionary ? *asset.metaDataDictionary : none;
  if (const OptionalString source = TQVornexUtil::stringValueFromObject(record.find(kSourcePath))) {
    const auto date = TQVornexUtil::dateFromNumber(coerce::integer(record.find(kSourceDate)));
    const auto size = static_cast<std::uint64_t>(coerce::integer(record.find(kSourceSize)));
    return date ? OptionalString(versionKey(*source, size, milliseconds(*date))) : std::nullopt;
  }
  if (!asset.importFromPath || !asset.modifyDate) return std::nullopt;
  return versionKey(*asset.importFromPath, asset.fileSize, milliseconds(*asset.modifyDate));
}

/// Takes the files that the library holds in the version on disk off the list; gives how many.
Result<std::uint64_t> removeHeld(const LibraryPtr& library, std::vector<FoundFile>& files) {
  std::unordered_set<std::string> held;
  auto read = forEachAsset(library, [&](const AssetPtr& asset) {
    if (const OptionalString key = versionHeld(*asset)) held.insert(*key);
  });
  if (!read) return tl::unexpected(read.error());
  return std::erase_if(files, [&](const FoundFile& file) {
    return held.contains(versionKey(recordText(file.path), file.size, file.modified));
  });
}

/// What no import should enter: the service's own data and the libraries.
std::vector<std::string> ownFolders() {
  std::vector<std::string> folders{TQVornexUtil::rootFolder()};
  for (const LibraryPtr& library : TQLibraryManager::sharedManager().localLibraries()) {
    if (library->packageFolder) folders.push_back(*library->packageFolder);
  }
  return folders;
}

void reportWalk(const WalkResult& walk, const Output& output) {
  for (const WalkNote& note : walk.skipped) {
    writeLine(stderr, fmt::format("{}: skipped: {}", printable(note.path), note.reason));
    output.record("file", {{"path", recordText(note.path)}, {"result", "skipped"}, {"reason", note.reason}});
  }
  for (const WalkNote& note : walk.failures) {
    writeLine(stderr, fmt::format("{}: not imported: {}", printable(note.path), note.reason));
    output.record("file", {{"path", recordText(note.path)}, {"result", "failed"}, {"reason", note.reason}});
  }
}

void reportSummary(const ImportResult& result, std::uint64_t held, std::size_t hidden, std::size_t passedOver,
                   const Output& output) {
  const double filesPerSecond =
      result.seconds > 0 ? static_cast<double>(result.imported) / result.seconds : 0;
  Dictionary reasons;
  for (const auto& [reason, count] : result.reasons) reasons.set(reason, count);
  output.record("summary", {{"imported", result.imported},
                            {"skipped", held + hidden + passedOver},
                            {"held", held},
                            {"hidden", hidden},
                            {"failed", result.failed},
                            {"notreached", result.notReached},
                            {"reasons", reasons},
                            {"bytes", result.importedBytes},
                            {"seconds", result.seconds},
                            {"filespersecond", filesPerSecond}});
  output.text(fmt::format("Imported {} ({}) in {}, {:.1f} files/s.", counted(result.imported, "file"),
                          formatBytes(result.importedBytes), formatDuration(result.seconds), filesPerSecond));
  if (held + hidden + passedOver > 0) {
    output.text(fmt::format("Skipped {}: {} held already, {} hidden, {} other.", held + hidden + passedOver,
                            held, hidden, passedOver));
  }
  if (result.failed > 0) {
    output.text(fmt::format("Failed {}:", result.failed));
    for (const auto& [reason, count] : result.reasons)
      output.text(fmt::format("  {}  {}", count, printable(reason)));
  }
  if (result.notReached > 0) output.text(fmt::format("Not reached: {}.", counted(result.notReached, "file")));
}

}  // namespace

Result<void> run(const ImportCommand& command, Host& host, const Output& output) {
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  auto project = Host::project(*library, command.project);
  if (!project) return tl::unexpected(project.error());
  ImportCommand absolute = command;
  if (command.target) absolute.target = absolutePath(*command.target);

  WalkResult walk = findFiles(command.paths, {.hidden = command.hidden,
                                              .clipFoldersWhole = command.target.has_value(),
                                              .excludedFolders = ownFolders()});
  reportWalk(walk, output);
  std::uint64_t held = 0;
  if (command.resume) {
    auto removed = removeHeld(*library, walk.files);
    if (!removed) return tl::unexpected(removed.error());
    held = *removed;
  }

  const InterruptGuard guard;
  ImportRun importRun(host, output, absolute, *library, *project);
  ImportResult result = importRun.run(walk.files);
  result.failed += walk.failures.size();
  for (const WalkNote& note : walk.failures) ++result.reasons[note.reason];
  reportSummary(result, held, walk.hiddenCount, walk.skipped.size(), output);
  if (result.error) return tl::unexpected(*result.error);
  const std::uint64_t missing = result.failed + result.notReached;
  if (missing == 0) return {};
  return failure("vornex", 0, counted(missing, "file") + " not imported");
}

}  // namespace vornex::cli
