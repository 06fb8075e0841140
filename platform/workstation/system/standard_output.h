// Standard output. In a replay whoever shows something waits until it has been shown, and nothing is lost; where
// it cannot be written, the process says so once and ends with status 1. Live, a
// reader who has stopped (Ctrl-S, a pager) keeps nobody from watching the patient: what does not fit is counted.
#pragma once

#include <string>

namespace workstation {

/// Whole lines, so that a reader never sees half of one. From any thread.
void showLines(const std::string& lines);

/// From here on the C library's stream `stdout` (printf) shows its lines in this way too; nothing in a replay. The
/// process's end waits up to 2 s for what has not been shown.
void keepStandardOutputFromBlocking();

}  // namespace workstation
