#include <vornex/Queue.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQCopyInterface.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>

#include "core/SdkError.h"
#include "foundation/Patience.h"
#include "foundation/RunTask.h"
#include "platform/FileCopy.h"
#include "platform/FolderAccess.h"

namespace vornex {

struct CopyJob {
  TQCopyInterface::JobID id;
  TQCopyInterface::Job what;
  std::atomic<bool> cancelled = false;
};
using CopyJobPtr = std::shared_ptr<CopyJob>;

struct TQCopyInterface::State {
  std::mutex mutex;
  std::condition_variable idle;
  ProgressHandler progress;
  ReportHandler report;
  JobID lastID = 0;
  // The running job is the first one.
  std::deque<CopyJobPtr> jobs;
};

// How often a running copy is looked at.
static constexpr std::chrono::milliseconds kLook{50};

static Result<Copied> copy(CopyJob& job, CopyWatch& watch) {
  const TQCopyInterface::Job& what = job.what;
  if (job.cancelled) return posixFailure(ECANCELED, "copy " + what.source);
  auto progress = [&](std::uint64_t done, std::uint64_t total) {
    if (what.progress && (done < total || done == 0)) {
      double percent = total == 0 ? 0.0 : 100.0 * static_cast<double>(done) / static_cast<double>(total);
      std::uint64_t size = what.verify ? total / 3 : total;
      what.progress(percent, static_cast<std::int64_t>(std::min(done, size)));
    }
    return !job.cancelled;
  };
  auto willAppear = [&](const std::string& path) {
    if (what.willAppear) what.willAppear(path);
  };
  try {
    return copyItem(what.source, what.toPath, CopyOptions{progress, &watch, what.verify, willAppear});
  } catch (const std::exception& exception) {
    return failure("posix", ECANCELED, "copy " + what.source + ": " + exception.what());
  }
}

/// The job's end, or what a person should hear about a disk that does not answer any more. The thread that
/// waits for such a disk is left to it.
static Result<Copied> watchedCopy(const CopyJobPtr& job, const std::shared_ptr<CopyWatch>& watch) {
  auto promise = std::make_shared<std::promise<Result<Copied>>>();
  auto ended = promise->get_future();
  GlobalQueue::shared().async([job, watch, promise] { promise->set_value(copy(*job, *watch)); });
  // A slow disk may need minutes to store what it was given.
  const CopyWatch::Patience patience{sourcePatience(), 10 * sourcePatience()};
  constexpr CopyWatch::Patience kWhenCancelled{std::chrono::seconds(1), std::chrono::seconds(1)};
  while (ended.wait_for(kLook) != std::future_status::ready) {
    bool cancelled = job->cancelled;
    if (!watch->abandonIfStuck(cancelled ? kWhenCancelled : patience)) continue;
    return posixFailure(cancelled ? ECANCELED : ETIMEDOUT, "copy " + job->what.source);
  }
  return ended.get();
}

static void run(const CopyJobPtr& job) {
  auto watch = std::make_shared<CopyWatch>();
  Result<Copied> copied;
  try {
    copied = watchedCopy(job, watch);
  } catch (const std::exception& exception) {
    copied = failure("posix", EAGAIN, "copy " + job->what.source + ": " + exception.what());
  }
  if (job->what.leavesRemains && watch->leavesRemains())
    runTask(job->what.leavesRemains, "remains of a copy");
  if (!job->what.report) return;
  auto tell = [&] {
    if (!copied) return job->what.report(nullptr, makeSdkError(copied.error()));
    Dictionary result{{"bytes", copied->bytes}};
    if (copied->digest) result.set("checksum", *copied->digest);
    job->what.report(std::move(result), nullptr);
  };
  runTask(tell, "report of a copy");
}

TQCopyInterface::TQCopyInterface() : state_(std::make_shared<State>()) {}

TQCopyInterface::~TQCopyInterface() {
  std::unique_lock lock(state_->mutex);
  for (const CopyJobPtr& job : state_->jobs) job->cancelled = true;
  state_->idle.wait(lock, [this] { return state_->jobs.empty(); });
}

void TQCopyInterface::setProgressHandler(ProgressHandler handler) {
  std::lock_guard lock(state_->mutex);
  std::swap(state_->progress, handler);
}

void TQCopyInterface::setReportHandler(ReportHandler handler) {
  std::lock_guard lock(state_->mutex);
  std::swap(state_->report, handler);
}

void TQCopyInterface::copyFileAtPath(const std::string& source, const std::string& toPath,
                                     const Data& bookmarkData, Completion completion) {
  std::unique_lock lock(state_->mutex);
  ProgressHandler progress = state_->progress;
  ReportHandler report = state_->report;
  lock.unlock();
  copy({source, toPath, bookmarkData, false, std::move(progress), std::move(report)}, std::move(completion));
}

TQCopyInterface::JobID TQCopyInterface::copy(Job what, Completion completion) {
  auto reached =
      patiently([token = what.bookmarkData] { return resolveAccessToken(token); }, sourcePatience());
  if (!reached) reached = posixFailure(ETIMEDOUT, "copy " + what.source);
  if (!*reached) {
    if (completion) completion(false, makeSdkError(reached->error()));
    return 0;
  }
  auto job = std::make_shared<CopyJob>();
  job->what = std::move(what);

  std::unique_lock lock(state_->mutex);
  job->id = ++state_->lastID;
  lock.unlock();
  if (completion) completion(true, nullptr);

  lock.lock();
  state_->jobs.push_back(job);
  if (state_->jobs.size() > 1) return job->id;
  lock.unlock();
  auto runJobs = [state = state_] {
    std::unique_lock jobsLock(state->mutex);
    while (!state->jobs.empty()) {
      CopyJobPtr next = state->jobs.front();
      jobsLock.unlock();
      run(next);
      // What the handlers hold must not be released under the lock. A copy that was given up may live on; it
      // calls none of them any more.
      next->what.progress = nullptr;
      next->what.report = nullptr;
      next->what.willAppear = nullptr;
      next->what.leavesRemains = nullptr;
      jobsLock.lock();
      state->jobs.pop_front();
    }
    state->idle.notify_all();
  };
  try {
    GlobalQueue::shared().async(runJobs);
  } catch (const std::exception&) {
    // Without a thread the jobs fail, here.
    runJobs();
  }
  return job->id;
}

void TQCopyInterface::cancel() {
  std::lock_guard lock(state_->mutex);
  if (!state_->jobs.empty()) state_->jobs.front()->cancelled = true;
}

void TQCopyInterface::cancel(JobID id) {
  std::lock_guard lock(state_->mutex);
  for (const CopyJobPtr& job : state_->jobs)
    if (job->id == id) job->cancelled = true;
}

void TQCopyInterface::startAllBookmarks() {
  TQBookmarkUtil::startAllBookmarks();
}

}  // namespace vornex
