#include "cli/ImportRun.h"

#include <fmt/format.h>
#include <vornex/TQAsset.h>
#include <vornex/TQLibrary.h>

#include "cli/Arguments.h"
#include "cli/Await.h"
#include "cli/DisplayText.h"
#include "cli/Format.h"
#include "cli/Host.h"
#include "cli/Interrupt.h"
#include "cli/Output.h"
#include "foundation/Files.h"
#include "foundation/Text.h"
#include "import/FileNames.h"

namespace vornex::cli {
namespace {

constexpr auto kNoLimit = std::chrono::hours(24 * 365);

/// A side file that would travel with its clip if the clip's folder were imported as one; here every file
/// stands for itself.
bool isSideFile(const std::string& path) {
  return lowercased(pathExtension(path)) == "rmd";
}

/// What a person should know about a file that was imported all the same.
OptionalString warningFor(const FoundFile& file, const TQAsset& asset, const TQLibrary& library) {
  if (file.size == 0) return "the file is empty";
  if (asset.type != kAssetTypeVideo && asset.type != kAssetTypeImage) return std::nullopt;
  const std::string thumbnail =
      appendPathComponent(library.packageFolder.value_or(""), asset.thumbnailPath.value_or(""));
  if (fileExists(thumbnail)) return std::nullopt;
  return "no thumbnail could be made; the file may be damaged";
}

}  // namespace

ImportRun::ImportRun(Host& host, const Output& output, const ImportCommand& command, LibraryPtr library,
                     ProjectPtr project)
    : host_(host),
      output_(output),
      command_(command),
      library_(std::move(library)),
      project_(std::move(project)) {}

ImportResult ImportRun::run(const std::vector<FoundFile>& files) {
  for (const FoundFile& file : files) {
    tasks_.push_back({file});
    state_.totalBytes += file.size;
  }
  state_.totalFiles = files.size();

  Result<void> ended;
  while (ended && !tasks_.empty() && !stopped_) {
    ended = runBatch();
    if (ended && serviceLost_) {
      display_.note("The service was lost; starting it again.");
      serviceLost_ = false;
      ended = host_.restoreService();
    }
    if (tasks_.empty()) tasks_.swap(secondTries_);
  }
  if (!ended) result_.error = ended.error();
  library_->recoverInterruptedImports(nullptr);
  result_.notReached = tasks_.size() + secondTries_.size();
  result_.seconds = secondsSoFar();
  return result_;
}

Result<void> ImportRun::runBatch() {
  const auto ended = await<bool, TQErrorPtr>(kNoLimit, [this](Completion done) {
    project_->createAssetsWithImportAssets(
        items(), command_.reference ? ImportType::reference : ImportType::copy, command_.target,
        command_.target.has_value(),
        [this](const ImportAssetPtr& item, const AssetPtr& asset, double percent, std::int64_t, std::int64_t,
               bool* stop, const TQErrorPtr& error) { progressed(item, asset, percent, stop, error); },
        std::move(done));
  });
  const std::lock_guard lock(mutex_);
  settle();
  if (!ended) return failure("vornex", 0, "the import does not end");
  if (const auto& [ok, error] = *ended; !ok) return tl::unexpected(fromSDK(error));
  return {};
}

std::vector<ImportAssetPtr> ImportRun::items() const {
  std::vector<ImportAssetPtr> items;
  Array tags;
  for (const std::string& tag : command_.tags) tags.emplace_back(tag);
  for (const Task& task : tasks_) {
    items.push_back(TQImportAsset::importAssetWithPath(task.file.path));
    items.back()->isSeparateRMDFile = isSideFile(task.file.path);
    items.back()->isREDFile = task.file.isClipFolder;
    items.back()->fileSize = static_cast<std::int64_t>(task.file.size);
    items.back()->verifiesCopy = command_.verify;
    if (!tags.empty()) items.back()->metaData.set("tags", tags);
    if (command_.importer) items.back()->metaData.set("importer", *command_.importer);
  }
  return items;
}

void ImportRun::progressed(const ImportAssetPtr& item, const AssetPtr& asset, double percent, bool* stop,
                           const TQErrorPtr& error) {
  const std::lock_guard lock(mutex_);
  if (item != current_.item) settle();
  current_.item = item;
  if (asset) current_.asset = asset;
  if (error) current_.error = error;
  current_.percent = percent;
  if (error && isServiceLost(fromSDK(error))) serviceLost_ = true;
  if (InterruptGuard::requested() && !stopped_) {
    stopped_ = true;
    display_.note("Stopping after the file in hand is cleaned up; Ctrl-C again leaves at once.");
  }
  if (serviceLost_ || stopped_) *stop = true;
  show();
}

void ImportRun::settle() {
  if (!current_.item || tasks_.empty()) return;
  const Task task = std::move(tasks_.front());
  tasks_.pop_front();
  const bool recorded = current_.asset && current_.asset->id && !current_.error;
  if (recorded && !stopped_) {
    settleImported(task);
  } else if (current_.error && isServiceLost(fromSDK(current_.error)) && !task.isSecondTry) {
    secondTries_.push_back({task.file, true});
  } else if (stopped_ && !current_.error) {
    settleFailed(task, "stopped");
  } else {
    settleFailed(task,
                 current_.error ? fromSDK(current_.error).message : "it could not be placed in the library");
  }
  current_ = {};
}

void ImportRun::settleImported(const Task& task) {
  ++result_.imported;
  result_.importedBytes += task.file.size;
  ++state_.files;
  state_.bytes += task.file.size;
  const OptionalString warning = warningFor(task.file, *current_.asset, *library_);
  if (warning) display_.note(fmt::format("{}: {}", printable(task.file.path), *warning));
  output_.record("file", {{"path", recordText(task.file.path)},
                          {"result", "imported"},
                          {"id", current_.asset->id},
                          {"size", task.file.size},
                          {"warning", warning}});
}

void ImportRun::settleFailed(const Task& task, const std::string& reason) {
  ++result_.failed;
  ++result_.reasons[reason];
  ++state_.files;
  state_.bytes += task.file.size;
  display_.note(fmt::format("{}: not imported: {}", printable(task.file.path), printable(reason)));
  output_.record("file", {{"path", recordText(task.file.path)}, {"result", "failed"}, {"reason", reason}});
}

double ImportRun::secondsSoFar() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void ImportRun::show() {
  ImportState now = state_;
  // Comparing a copy takes its time after the last byte was copied: what counts is the file's own progress.
  const double size = tasks_.empty() ? 0 : static_cast<double>(tasks_.front().file.size);
  now.bytes += static_cast<std::uint64_t>(size * current_.percent / 100);
  now.currentPercent = current_.percent;
  now.seconds = secondsSoFar();
  now.current = lastPathComponent(current_.item->path.value_or(""));
  display_.update(now);
}

}  // namespace vornex::cli
