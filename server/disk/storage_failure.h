// The end of a process that cannot know any more what its disk holds.
#pragma once

#include <string>

namespace zdb {

// Ends the process at once, with a line on standard error. After a sync that failed nothing of the file is known: what
// was written may be on the disk or not, and a second sync that succeeds would prove nothing. What was answered by then
// is true, and what is asked now stays without an answer; the next start goes by what the disk holds.
[[noreturn]] void end_after_storage_failure(const std::string &what);

// Its exit status.
inline constexpr int storage_failure_status = 74;

}  // namespace zdb
