// Standard input, output and error of a tool that was started without one of them.
#pragma once

#include <optional>
#include <string>

// Call it first: fills each that is closed with a place that can be neither read nor written, so that no log, socket or
// temporary file gets its number and with it what was meant for the user.
void occupy_standard_files();

// All that can be read from the file of this number; nothing when reading fails.
std::optional<std::string> text_of_file(int file);
