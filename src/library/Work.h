#pragma once

#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/Types.h>

#include <exception>
#include <functional>
#include <string>
#include <utility>

#include "core/StatusCode.h"

namespace vornex {

/// How an operation has ended.
struct Ending {
  bool ok = false;
  TQErrorPtr error;

  static Ending of(TQErrorPtr failure) { return {!failure, std::move(failure)}; }
};

/// Does the work on a worker and calls back there, once, also when the work throws.
inline void workThenTell(Completion completion, std::function<Ending()> work) {
  GlobalQueue::shared().async([completion = std::move(completion), work = std::move(work)] {
    Ending ending;
    try {
      ending = work();
    } catch (const std::exception& exception) {
      logLine(LogLevel::error, std::string("exception:") + exception.what());
      ending = Ending::of(TQVornexUtil::errorWithCode(static_cast<std::int64_t>(StatusCode::internalError),
                                                      exception.what(), kServerErrorDomain));
    }
    completion(ending.ok, ending.error);
  });
}

}  // namespace vornex
