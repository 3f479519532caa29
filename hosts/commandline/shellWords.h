// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace commandline {

// A line that a POSIX shell splits into these words: those of other characters than letters, digits
// and a few that mean nothing to it stand in single quotes.
std::string quoted(const std::vector<std::string>& words);

}  // namespace commandline
