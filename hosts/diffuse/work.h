// SPDX-License-Identifier: MIT
// The work on one file, from reading to the last report.
#pragma once

#include <string>

#include "options.h"

namespace diffuse {

// One line on standard error, whatever the names of files hold.
void complain(std::string words);

// Throws std::runtime_error if standard output takes no text.
void print(const std::string& text);

// Reads, filters and writes, and prints the reports. To be called before the process has other
// threads. Throws UsageError, and any other exception with one line, in which case no file was
// changed.
void workOn(const Options& options);

}  // namespace diffuse
