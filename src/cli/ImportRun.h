#pragma once

#include <vornex/TQImportAsset.h>
#include <vornex/TQProject.h>

#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cli/FileWalk.h"
#include "cli/Progress.h"
#include "foundation/Error.h"

namespace vornex::cli {

class Host;
class Output;
struct ImportCommand;

struct ImportResult {
  std::uint64_t imported = 0;
  std::uint64_t importedBytes = 0;
  std::uint64_t failed = 0;
  /// Files that were not reached because the import was stopped.
  std::uint64_t notReached = 0;
  double seconds = 0;
  /// Reasons of failed files, and how many failed so.
  std::map<std::string, std::uint64_t> reasons;
  /// What ended the run before its end.
  std::optional<Error> error;
};

/// Brings a list of files into a project, and says how it goes while it goes.
///
/// Files that fail because the service was lost are tried once more, after everything else, by a service
/// started anew. Ctrl-C ends the run after the file in hand has been cleaned up.
///
/// Thread-safety: run() once, on a thread that may block; the rest is internal.
class ImportRun {
 public:
  ImportRun(Host& host, const Output& output, const ImportCommand& command, LibraryPtr library,
            ProjectPtr project);

  ImportResult run(const std::vector<FoundFile>& files);

 private:
  struct Task {
    FoundFile file;
    bool isSecondTry = false;
  };
  /// The file that the batch is working on.
  struct Current {
    ImportAssetPtr item;
    AssetPtr asset;
    TQErrorPtr error;
    double percent = 0;
  };

  /// Takes the tasks that were dealt with off the list.
  [[nodiscard]] Result<void> runBatch();
  std::vector<ImportAssetPtr> items() const;
  void progressed(const ImportAssetPtr& item, const AssetPtr& asset, double percent, bool* stop,
                  const TQErrorPtr& error);
  /// Books the current file, which the batch has left.
  void settle();
  void settleImported(const Task& task);
  void settleFailed(const Task& task, const std::string& reason);
  double secondsSoFar() const;
  void show();

  Host& host_;
  const Output& output_;
  const ImportCommand& command_;
  const LibraryPtr library_;
  const ProjectPtr project_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

  std::mutex mutex_;
  ProgressDisplay display_;
  ImportResult result_;
  ImportState state_;
  std::deque<Task> tasks_;
  std::deque<Task> secondTries_;
  Current current_;
  bool serviceLost_ = false;
  bool stopped_ = false;
};

}  // namespace vornex::cli
