// Brings the library into a state in which its inner functions can be called by themselves.
#pragma once

namespace fuzz {

// The first call in a process opens the log where nothing is kept.
void use_library_without_log();

}  // namespace fuzz
