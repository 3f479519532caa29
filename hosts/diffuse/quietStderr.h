// Silence on standard error while libraries work that print there on their own.
#pragma once

namespace diffuse {

// While an object lives, what the process writes to standard error is dropped.
class QuietStderr {
public:
    QuietStderr();
    ~QuietStderr();
    QuietStderr(const QuietStderr&) = delete;
    QuietStderr& operator=(const QuietStderr&) = delete;

private:
    int kept_;
};

}  // namespace diffuse
