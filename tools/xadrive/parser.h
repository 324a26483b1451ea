// Reads a script's text; nothing runs before the whole of it has been read.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "script.h"

// Bad lines are added to errors, one "LINE: what is wrong and what to write" each; the script is whole without any.
Script parse_script(const std::string &file, std::string_view text, std::vector<std::string> &errors);

// The forms of all lines, one a row, for the help text.
std::string script_forms();

bool is_flavour(std::string_view name);
