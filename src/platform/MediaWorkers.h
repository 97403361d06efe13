#pragma once

#include <vornex/Value.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/Error.h"
#include "platform/MediaChannel.h"

namespace vornex {

/// A few processes that read media files for this one, so that a file that crashes a decoder, or keeps it
/// busy for ever, costs its own answer and nothing else. A process serves many files, one at a time; one that
/// dies or overruns is replaced, and one that is idle for a minute goes.
///
/// Thread-safety: safe on any thread.
class MediaWorkers {
 public:
  /// Those of this process, made of the installed program; live until it ends.
  static MediaWorkers& shared();

  MediaWorkers(std::string program, std::chrono::milliseconds timeLimit);
  ~MediaWorkers();
  MediaWorkers(const MediaWorkers&) = delete;
  MediaWorkers& operator=(const MediaWorkers&) = delete;

  /// The reader's answer or error; domain "decoder" when it died, overran or cannot be started. Blocks.
  [[nodiscard]] Result<MediaAnswer> ask(const Dictionary& request);

 private:
  class Worker;
  struct Place;

  std::unique_ptr<Worker> takeIdle();
  void giveBack(std::unique_ptr<Worker> worker);
  Result<MediaAnswer> askWorker(std::unique_ptr<Worker>& worker, const Dictionary& request);

  const std::string program_;
  const std::chrono::milliseconds timeLimit_;
  std::mutex mutex_;
  std::condition_variable freed_;
  std::vector<std::unique_ptr<Worker>> idle_;
  std::size_t busy_ = 0;
};

/// The program "vornex-media", which reads media files and runs others' programs, both contained:
/// `$VORNEX_MEDIA`, else the one beside the running program or installed with the library. It need not exist.
std::string mediaProgram();

}  // namespace vornex
