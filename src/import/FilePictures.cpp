#include "import/FilePictures.h"

#include <vornex/Queue.h>

namespace vornex {

FilePictures::FilePictures(std::string source, bool withPreview)
    : source_(std::move(source)), withPreview_(withPreview), before_(fileFacts(source_)) {}

std::shared_ptr<FilePictures> FilePictures::start(const std::string& source, bool withPreview) {
  std::shared_ptr<FilePictures> pictures(new FilePictures(source, withPreview));
  GlobalQueue::shared().async([pictures] {
    try {
      pictures->promise_.set_value(picturesOfFile(pictures->source_, pictures->withPreview_));
    } catch (...) {
      pictures->promise_.set_exception(std::current_exception());
    }
  });
  return pictures;
}

Pictures FilePictures::get() const {
  Pictures pictures = coming_.get();
  return fileFacts(source_) == before_ ? pictures : picturesOfFile(source_, withPreview_);
}

}  // namespace vornex
