#include "import/FilePictures.h"

#include <vornex/Log.h>
#include <vornex/Queue.h>

#include "foundation/Patience.h"

namespace vornex {

FilePictures::FilePictures(std::string source, bool withPreview)
    : source_(std::move(source)), withPreview_(withPreview) {}

std::shared_ptr<FilePictures> FilePictures::start(const std::string& source, bool withPreview) {
  std::shared_ptr<FilePictures> pictures(new FilePictures(source, withPreview));
  GlobalQueue::shared().async([pictures] {
    try {
      std::optional<FileFacts> before = fileFacts(pictures->source_);
      pictures->promise_.set_value({before, picturesOfFile(pictures->source_, pictures->withPreview_)});
    } catch (...) {
      pictures->promise_.set_exception(std::current_exception());
    }
  });
  return pictures;
}

Pictures FilePictures::wait() const {
  const auto& [before, pictures] = coming_.get();
  return fileFacts(source_) == before ? pictures : picturesOfFile(source_, withPreview_);
}

std::optional<Pictures> FilePictures::get(const std::function<bool()>& goOn) const {
  if (givenUp_) return std::nullopt;
  try {
    auto pictures =
        patiently([self = shared_from_this()] { return self->wait(); }, 4 * sourcePatience(), goOn);
    if (pictures) return pictures;
    givenUp_ = true;
    logLine(LogLevel::warning, "no pictures in time of " + source_);
  } catch (const std::exception& exception) {
    logLine(LogLevel::error, "no pictures of " + source_ + ": " + exception.what());
  }
  return std::nullopt;
}

}  // namespace vornex
