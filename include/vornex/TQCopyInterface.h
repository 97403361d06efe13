#pragma once

#include <vornex/Types.h>

namespace vornex {

/// The process's copy service: one job runs at a time, later ones wait their turn.
///
/// A copy appears at its destination at once and whole, after it has reached the disk; nothing is ever
/// replaced. A symbolic link given as source is followed. A source that does not answer for half a minute,
/// and a target that does not store for five (cancelled: both a second), end the job with ETIMEDOUT
/// (ECANCELED).
///
/// Thread-safety: safe on any thread. Handlers are called on the copying thread, one at a time, without a
/// lock held.
class TQCopyInterface {
 public:
  /// Percent (below 100: the report tells the end) and bytes copied so far.
  using ProgressHandler = std::function<void(double percent, std::int64_t bytes)>;
  /// The end of a job, exactly once: {"bytes": number} with "checksum" for a verified copy (the digest, named
  /// by its kind: "xxh128:..."), or null and the error.
  using ReportHandler = std::function<void(Value result, TQErrorPtr error)>;
  /// Names one job; 0 is never given to one.
  using JobID = std::uint64_t;

  struct Job {
    std::string source;
    std::string toPath;
    Data bookmarkData;
    /// Compares the copy with its source, read back from the disk, before it appears; EIO when they differ.
    bool verify = false;
    ProgressHandler progress = {};
    ReportHandler report = {};
    /// The copy is whole and appears at its destination next: what is at this path now will be there.
    std::function<void(const std::string& path)> willAppear = {};
    /// The copy was given up, and its disk does not let go of the hidden file that there is of it; the report
    /// comes next.
    std::function<void()> leavesRemains = {};
  };

  TQCopyInterface();
  /// Cancels the jobs and waits for their reports.
  ~TQCopyInterface();
  TQCopyInterface(const TQCopyInterface&) = delete;
  TQCopyInterface& operator=(const TQCopyInterface&) = delete;

  /// Handlers of the jobs given from now on; may be empty.
  void setProgressHandler(ProgressHandler handler);
  void setReportHandler(ReportHandler handler);

  /// Copies a file or folder. The completion comes on the caller's thread before this returns: (true, null)
  /// when the job was taken, which is then reported; or (false, error) and no report, when the source named
  /// by the bookmark is gone, was replaced or may not be read (domain "posix", code errno). Errors reported
  /// (domain "posix"): EEXIST, ECANCELED, ENOSPC and whatever the file system says.
  void copyFileAtPath(const std::string& source, const std::string& toPath, const Data& bookmarkData,
                      Completion completion);
  /// The same for a job with its own handlers; 0 when it was not taken.
  JobID copy(Job job, Completion completion);

  /// Stops the running job; its report carries ECANCELED. Returns at once.
  void cancel();
  /// Stops this job, whether it runs or waits. Ignored once the job has ended.
  void cancel(JobID job);

  /// Wakes the bookmarked folders and their volumes.
  void startAllBookmarks();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace vornex
