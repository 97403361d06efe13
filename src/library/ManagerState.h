#pragma once

#include <vornex/TQCopyInterface.h>
#include <vornex/TQLibraryManager.h>

#include <memory>
#include <mutex>
#include <vector>

#include "library/Published.h"

namespace vornex {

struct TQLibraryManager::State {
  /// Serialises the changes of the list; who changes it reads, copies and publishes while holding it.
  std::recursive_mutex monitor;
  Published<std::vector<LibraryPtr>> libraries;
  /// Guards the file, too.
  std::mutex networkUsersMutex;
  Dictionary networkUsers;
  TQCopyInterface copyInterface;

  void append(const LibraryPtr& library) {
    std::vector<LibraryPtr> next = *libraries.read();
    next.push_back(library);
    libraries.publish(std::move(next));
  }
};

/// Gives a local library's connection the local user and the port of the local service.
void connectLocally(const LibraryPtr& library);

}  // namespace vornex
