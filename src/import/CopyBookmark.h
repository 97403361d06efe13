#pragma once

#include <vornex/TQCopyInterface.h>

namespace vornex {

/// Hands a copy to the process's copy service and makes its bookmark. The completion tells whether the job
/// was taken, before this returns; error 10011 with the reason when the source may not be read. Gives the
/// job, 0 when it was not taken.
TQCopyInterface::JobID startCopy(TQCopyInterface::Job job, Completion completion);

}  // namespace vornex
