#pragma once

#include <vornex/TQCopyInterface.h>

#include <string>

namespace vornex {

/// Hands a copy to the process's copy service. The completion tells whether the job was taken, before this
/// returns; error 10011 with the reason when the source may not be read. Gives the job, 0 when it was not
/// taken.
TQCopyInterface::JobID startCopy(const std::string& source, const std::string& target, bool verify,
                                 TQCopyInterface::ProgressHandler progress,
                                 TQCopyInterface::ReportHandler report, Completion completion);

}  // namespace vornex
