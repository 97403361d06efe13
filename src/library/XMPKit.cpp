#include <vornex/Log.h>
#include <vornex/XMPKit.h>

#include "foundation/Files.h"
#include "platform/ContainedMedia.h"
#include "platform/MediaWorkers.h"

namespace vornex {

void XMPKit::XMPKitInit() {
  if (!fileExists(mediaProgram()))
    logLine(LogLevel::warning, "XMPKitInit, no reader of media files at " + mediaProgram());
}

std::optional<Dictionary> XMPKit::metadataWithPath(const std::string& path) const {
  return contained::xmpMetadata(path);
}

}  // namespace vornex
