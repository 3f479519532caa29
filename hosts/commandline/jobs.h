// SPDX-License-Identifier: MIT
// Many pieces of work, each in a process of its own.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace commandline {

struct JobSettings {
    int atOnce = 1;
    bool keepsGoing = false;  // whether others are begun after one has failed
};

struct Outcome {
    int done = 0, failed = 0, untried = 0;
};

// Runs `work` with the numbers 0 to names.size() - 1, each in a forked child, whose exit status it
// returns; another than 0 means a failure. What a child prints on standard output appears whole
// when it ends. `complain` is told the name and the signal of one that ended by a signal. Children
// end with their parent. To be called before the process has other threads; standard output must be
// flushed.
// Throws std::system_error if there is no process to be had.
Outcome runJobs(const std::vector<std::string>& names, const JobSettings& settings,
                const std::function<int(int number)>& work,
                const std::function<void(const std::string& words)>& complain);

}  // namespace commandline
