#pragma once

#include <vornex/TQCopyInterface.h>
#include <vornex/TQImportAsset.h>
#include <vornex/TQProject.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/FileDescriptor.h"
#include "import/FileFacts.h"
#include "import/FileNames.h"
#include "import/FilePictures.h"
#include "import/ImportJournal.h"
#include "import/REDFolders.h"
#include "import/SilentFolders.h"

namespace vornex {

/// The import of one file: record, file in the package, server record, thumbnail. It keeps itself alive until
/// it has ended, and ends exactly once, with a callback that says finished.
///
/// Thread-safety: start() once; cancel() and the accessors on any thread. Callbacks come one at a time, on
/// the caller's thread of start() or on worker threads.
class FileImport : public std::enable_shared_from_this<FileImport> {
 public:
  struct Request {
    ProjectPtr project;
    LibraryPtr library;
    AssetFolderPtr folder;
    OptionalString source;
    OptionalString targetFolder;
    bool shouldIndexing = false;
    bool doCopy = true;
    ImportType type = ImportType::copy;
    ImportAssetPtr item;
    /// What the files of one batch share; each may be null.
    std::shared_ptr<REDFolders> redFolders = nullptr;
    std::shared_ptr<NameSearch> names = nullptr;
    std::shared_ptr<SilentFolders> silentFolders = nullptr;
    /// The source's pictures on their way.
    std::shared_ptr<FilePictures> pictures = nullptr;
  };

  /// The journal gets an entry before a file is placed; ending the entry is the owner's part.
  FileImport(Request request, std::shared_ptr<ImportJournal> journal, TQProject::FileCallback callback);
  ~FileImport();
  FileImport(const FileImport&) = delete;
  FileImport& operator=(const FileImport&) = delete;

  void start();

  /// Ends the file with ECANCELED before its next step; a running copy is stopped.
  void cancel();

  /// Removes what this import has placed, in the package and outside. Whether it is gone.
  bool removeFiles();
  /// Whether the server may hold a record of which no identifier has arrived.
  bool mayHaveLostRecord() const { return mayHaveLostRecord_; }

 private:
  // The steps, in order. Each gives false when it has ended the file.
  bool lookAtSource();
  bool nameFiles();
  bool checkPaths();
  bool masterNameIsFree();
  void describe();
  bool readMetadata();
  void rememberSource(Dictionary& metadata) const;
  bool isTravellingSideFile() const;
  OptionalString folderOfSideFile() const;
  bool chooseTarget();
  bool recordInJournal();
  void place();

  // What the work gives that touches the disk of the source, or of the target; absent when the disk did not
  // answer or the import was cancelled, which has ended the file. The work may be left alone at any time.
  template <typename Work>
  std::optional<std::invoke_result_t<Work>> fromSource(Work work, std::chrono::milliseconds patience);
  template <typename Work>
  std::optional<std::invoke_result_t<Work>> fromTarget(Work work, std::chrono::milliseconds patience);
  template <typename Work>
  std::optional<std::invoke_result_t<Work>> fromDisk(const std::string& path, Work work,
                                                     std::chrono::milliseconds patience);
  bool chooseREDFolder();
  bool chooseREDTarget();
  void noteReference();
  void placeByCopy(const std::string& target);
  void placeByLink();
  bool claimFolders();
  void dropClaims();
  bool mayChooseAnotherTarget(const TQErrorPtr& error);
  void linkToTarget();
  void copyEnded(const Value& result, const TQErrorPtr& error);
  void createRecordOfLink();
  void createRecord();
  void recordEnded(const TQErrorPtr& error);
  void makeThumbnail();
  void writePicture();

  bool isReference() const { return request_.type != ImportType::copy; }
  bool copiesToTarget() const { return isReference() && request_.shouldIndexing; }
  std::string freeMasterName(const std::string& name) const;
  std::string freeNameBeside(const std::string& directory, const char* suffix) const;

  void progress(double percent, std::int64_t bytes);
  void end(double percent, std::int64_t bytes, const TQErrorPtr& error);
  void fail(const TQErrorPtr& error) { end(0, 0, error); }
  void fail(std::int64_t code, const char* messageKey);
  /// For a file, there or to be, on a disk that does not answer.
  void failSilent(const std::string& path);
  bool failedBySilence(const std::string& path);
  /// Ends the file when it was cancelled, and says so.
  bool endedByCancel();
  /// Runs a step; what it throws ends the file.
  void guarded(const std::function<void()>& step);

  const Request request_;
  const std::shared_ptr<ImportJournal> journal_;
  const TQProject::FileCallback callback_;

  AssetPtr asset_;
  /// Absent for a source that is not there.
  std::optional<FileFacts> sourceFacts_;
  /// What the master links to, and what the thumbnail is made of.
  std::string linkSource_;
  OptionalString masterName_;
  OptionalString masterFull_, thumbnailFull_, previewFull_;
  /// The copy outside the package that a reference points at.
  OptionalString target_;
  OptionalString redTarget_, redFile_;
  int targetsChosen_ = 0;
  /// The copy outside the package, once it is whole.
  std::string placedTarget_;
  /// Shared locks that tell recovery, in this process and others, that unfinished files in these folders may
  /// be alive.
  std::vector<FileDescriptor> claims_;

  std::atomic<bool> cancelled_ = false;
  std::atomic<bool> ended_ = false;
  /// Whether what is at the asset's paths in the package was put there by this import.
  std::atomic<bool> placedFiles_ = false;
  /// Whether an unfinished copy stays where it is.
  std::atomic<bool> leavesRemains_ = false;
  std::atomic<bool> mayHaveLostRecord_ = false;
  std::atomic<TQCopyInterface::JobID> copyJob_ = 0;
};

}  // namespace vornex
