#include "import/FilePictures.h"

#include <vornex/Queue.h>

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

Pictures FilePictures::get() const {
  const auto& [before, pictures] = coming_.get();
  return fileFacts(source_) == before ? pictures : picturesOfFile(source_, withPreview_);
}

}  // namespace vornex
