/* library_state.h - brings the library into a state in which its inner functions can be called by themselves. */
#ifndef LIBRARY_STATE_H
#define LIBRARY_STATE_H

namespace fuzz {

/* The first call in a process opens the log where nothing is kept. */
void use_library_without_log();

}  // namespace fuzz

#endif /* LIBRARY_STATE_H */
