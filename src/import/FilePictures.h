#pragma once

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "import/FileFacts.h"
#include "import/Thumbnail.h"

namespace vornex {

/// The pictures of one source file, made on a worker thread while the file is still on its way.
///
/// Thread-safety: safe on any thread.
class FilePictures : public std::enable_shared_from_this<FilePictures> {
 public:
  /// Starts at once, and never waits for the file. With a preview both come from one decoding.
  static std::shared_ptr<FilePictures> start(const std::string& source, bool withPreview);

  const std::string& source() const { return source_; }

  /// Waits; made anew when the file has changed since the start. Absent for a source that keeps it waiting
  /// for four times the usual patience, or when `goOn`, asked twice a second, says so; from then on at
  /// once.
  std::optional<Pictures> get(const std::function<bool()>& goOn) const;

 private:
  struct Made {
    std::optional<FileFacts> before;
    Pictures pictures;
  };

  FilePictures(std::string source, bool withPreview);
  Pictures wait() const;

  const std::string source_;
  const bool withPreview_;
  mutable std::atomic<bool> givenUp_ = false;
  std::promise<Made> promise_;
  const std::shared_future<Made> coming_ = promise_.get_future().share();
};

}  // namespace vornex
