/* scratch.h - the files that a test needs, in a folder that only its process has. */
#ifndef TESTS_SUPPORT_SCRATCH_H
#define TESTS_SUPPORT_SCRATCH_H

#include <string>

/* A path in that folder, which is removed when the process ends. */
std::string scratch(const std::string &name);
void write_text(const std::string &path, const std::string &text);
std::string text_of(const std::string &path);

#endif /* TESTS_SUPPORT_SCRATCH_H */
