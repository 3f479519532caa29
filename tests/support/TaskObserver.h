// Watches the tasks of the parallel loop through the runtime's task hook, for as long as
// it lives. One at a time.
#pragma once

#include <HalideRuntime.h>
#include <tbb/info.h>

#include <algorithm>

namespace support {

class TaskObserver {
public:
    TaskObserver();
    ~TaskObserver();
    TaskObserver(const TaskObserver&) = delete;
    TaskObserver& operator=(const TaskObserver&) = delete;

    // Starts the counts again. With `meeting` above 1, every task waits until that many
    // threads have come to a task; the meeting is given up, without a hang, where they
    // do not come.
    void restart(int meeting = 1);

    int tasks() const;
    int threads() const;  // distinct ones that ran a task

    // Repeats a call until its tasks have met on `threads`, or on as many as there are
    // processors: TBB does not promise that more come, nor that they come at once, on a busy
    // machine least of all. Once they did not, no more than the processors are waited for.
    // Says whether they met.
    template <class F>
    bool meetOn(int threads, F call) {
        const int expected = std::min(threads, tbb::info::default_concurrency());
        for (int attempt = 0; attempt < 6; ++attempt) {
            const int meeting = moreCome_ ? threads : expected;
            restart(meeting);
            call();
            moreCome_ &= this->threads() >= meeting;
            if (this->threads() >= expected) return this->threads() <= threads;
        }
        return false;
    }

private:
    static inline bool moreCome_ = true;
    halide_do_task_t previous_;
};

}  // namespace support
