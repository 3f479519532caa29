// SPDX-License-Identifier: MIT
// The options of a program, for shells and for a manual. All is taken from the table that parses
// them: names, groups, descriptions, and the words before the arguments, whose type names read
// FILE, DIR, or a|b where there are no other words.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace commandline {

// Functions that complete the program's command line.
std::string bashCompletion(const CLI::App& app);
std::string zshCompletion(const CLI::App& app);

// Sections of a manual page in mdoc, one for each group.
std::string manualOptions(const CLI::App& app);

}  // namespace commandline
