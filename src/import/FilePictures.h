#pragma once

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
class FilePictures {
 public:
  /// Starts at once. With a preview both come from one decoding.
  static std::shared_ptr<FilePictures> start(const std::string& source, bool withPreview);

  const std::string& source() const { return source_; }

  /// Waits; made anew when the file has changed since the start.
  Pictures get() const;

 private:
  FilePictures(std::string source, bool withPreview);

  const std::string source_;
  const bool withPreview_;
  const std::optional<FileFacts> before_;
  std::promise<Pictures> promise_;
  const std::shared_future<Pictures> coming_ = promise_.get_future().share();
};

}  // namespace vornex
