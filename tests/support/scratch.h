// The files that a test needs, in a folder that only its process has.
#pragma once

#include <string>

// A path in that folder, which is removed when the process ends.
std::string scratch(const std::string &name);
void write_text(const std::string &path, const std::string &text);
std::string text_of(const std::string &path);
