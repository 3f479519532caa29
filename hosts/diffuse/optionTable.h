// SPDX-License-Identifier: MIT
// The table of all options.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "options.h"

namespace diffuse {

// What the command line says besides, as it stands there.
struct CommandLine {
    std::vector<std::string> inputs;
    std::string suffix;
    std::string described;  // what is to be printed of the options: for bash, zsh or a manual
};

// Adds all options, in groups. Those of the groups Input, Filter and Trial decide on the result.
// They are put into the first file of the plan, which it must have.
void addOptions(CLI::App& app, Plan& plan, CommandLine& line);

}  // namespace diffuse
