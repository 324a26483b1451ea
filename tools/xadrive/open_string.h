// Reads the options of an open string as the library does.
#pragma once

#include <string>
#include <string_view>

// The value that the library stores of the option with that capital letter; empty without any.
std::string option_of(std::string_view open_string, char letter);
