// SPDX-License-Identifier: MIT
// How far a long work has come.
#pragma once

#include <chrono>
#include <cstdint>

namespace diffuse {

// Work of less than a second stays silent, and all of it where that is wanted. Longer one shows a
// bar on standard error if that is a terminal, which goes with the object, and otherwise a line now
// and then.
class Progress {
public:
    explicit Progress(std::int64_t steps, bool isSilent = false);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // One more step is done.
    void advance();

private:
    using Clock = std::chrono::steady_clock;

    void drawBar(Clock::time_point now);
    void printLine() const;

    std::int64_t steps_;
    std::int64_t done_ = 0;
    std::int64_t shown_ = 0;  // the steps that were done when it was last shown
    bool isSilent_, onTerminal_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point lastShown_ = {};  // the epoch: never
};

}  // namespace diffuse
