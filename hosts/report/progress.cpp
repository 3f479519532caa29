// SPDX-License-Identifier: MIT
#include "progress.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace diffuse {

namespace {

using namespace std::chrono_literals;

constexpr auto quietTime = 1s;
constexpr auto barInterval = 100ms;
constexpr auto lineInterval = 30s;
constexpr int lines = 10;  // of a work that is quicker than one in every interval

}  // namespace

Progress::Progress(std::int64_t steps, bool isSilent)
    : steps_(steps), isSilent_(isSilent), onTerminal_(isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
    if (onTerminal_ && lastShown_ != Clock::time_point{}) std::fputs("\r\033[K", stderr);
}

void Progress::advance() {
    ++done_;
    const auto now = Clock::now();
    if (isSilent_ || now - start_ < quietTime || done_ == steps_) return;
    if (onTerminal_) {
        if (now - lastShown_ < barInterval) return;
        drawBar(now);
    } else {
        const bool isNext = shown_ == 0 || done_ - shown_ >= steps_ / lines;
        if (!isNext && now - lastShown_ < lineInterval) return;
        printLine();
    }
    shown_ = done_;
    lastShown_ = now;
}

void Progress::drawBar(Clock::time_point now) {
    constexpr std::int64_t width = 40;
    std::string bar(width, '.');
    bar.replace(0, done_ * width / steps_, done_ * width / steps_, '#');
    const std::chrono::duration<double> gone = now - start_;
    const double left =
        gone.count() / static_cast<double>(done_) * static_cast<double>(steps_ - done_);
    std::fprintf(stderr, "\r[%s] %3d %%, %.0f s left\033[K", bar.c_str(),
                 static_cast<int>(done_ * 100 / steps_), left);
    std::fflush(stderr);
}

void Progress::printLine() const {
    std::fprintf(stderr, "diffuse: step %lld of %lld\n", static_cast<long long>(done_),
                 static_cast<long long>(steps_));
}

}  // namespace diffuse
