// The parts of the check's report: the open string, the configuration, and where the log goes.
//
// What the library passes over silently is found by its rules; what it complains about is taken from what it said.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config_file.h"
#include "discretion.h"
#include "open_string.h"
#include "private_log.h"

// What is checked, and what is known about it once it has been tried.
struct Findings {
  const std::string &open_string;
  const std::string &flavour;
  const std::vector<OptionGiven> &options;
  const ConfigFile &config;
  const std::vector<Heard> &heard;
  const Discretion &discretion;
  bool settings_read;  // xa_open came as far as to take the configuration's settings, or to complain of them
};

void report_options(const Findings &findings);
void report_config(const Findings &findings);
void report_server(const Findings &findings);
// False when the log cannot be opened, which makes xa_open fail.
bool report_log(const Findings &findings);
