// Watches the tasks of the parallel loop through the runtime's task hook, for as long as
// it lives. One at a time.
#pragma once

#include <HalideRuntime.h>

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

private:
    halide_do_task_t previous_;
};

}  // namespace support
