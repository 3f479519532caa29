// SPDX-License-Identifier: MIT
// Watches the tasks of the parallel loop through the runtime's task hook, for as long as
// it lives. One at a time.
#pragma once

#include <HalideRuntime.h>
#include <tbb/info.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace support {

class TaskObserver {
public:
    TaskObserver() : previous_(halide_set_custom_do_task(observedTask)) { restart(); }
    ~TaskObserver() { halide_set_custom_do_task(previous_); }
    TaskObserver(const TaskObserver&) = delete;
    TaskObserver& operator=(const TaskObserver&) = delete;

    // Starts the counts again. With `meeting` above 1, every task waits until that many
    // threads have come to a task; the meeting is given up, without a hang, where they
    // do not come.
    void restart(int meeting = 1) {
        ++round_;
        tasks_ = threads_ = atOnce_ = 0;
        meetingSize_ = meeting;
    }

    int tasks() const { return tasks_; }
    int threads() const { return threads_; }  // distinct ones that ran a task
    // The most that ran one at a time: an idle thread may go and another come in its place.
    int atOnce() const { return atOnce_; }

    // Repeats a call until its tasks have met on `threads`, or on as many as there are
    // processors: TBB does not promise that more come, nor that they come at once, on a busy
    // machine least of all. Once they did not, no more than the processors are waited for.
    // Says whether they met.
    template <class F>
    bool meetOn(int threads, F call) {
        const int expected = std::min(threads, tbb::info::default_concurrency());
        for (int attempt = 0; attempt < 30; ++attempt) {
            const int meeting = moreCome_ ? threads : expected;
            restart(meeting);
            call();
            moreCome_ &= this->threads() >= meeting;
            if (this->threads() >= expected) return atOnce_ <= threads;
        }
        return false;
    }

private:
    static int observedTask(void* userContext, halide_task_t task, int number, uint8_t* closure) {
        thread_local int lastRound = -1;
        ++tasks_;
        if (lastRound != round_) {
            lastRound = round_;
            ++threads_;
        }
        const int running = ++running_;
        for (int most = atOnce_; most < running;) {
            if (atOnce_.compare_exchange_weak(most, running)) break;
        }
        if (meetingSize_ > 1) meet();
        const int status = task(userContext, number, closure);
        --running_;
        return status;
    }

    static void meet() {
        constexpr auto patience = std::chrono::seconds(1);
        std::unique_lock lock(meetingMutex_);
        meetingComplete_.notify_all();
        const auto allCame = [] { return threads_ >= meetingSize_; };
        if (!meetingComplete_.wait_for(lock, patience, allCame)) {
            meetingSize_ = 1;
            meetingComplete_.notify_all();
        }
    }

    static inline bool moreCome_ = true;
    static inline std::atomic<int> round_ = 0;
    static inline std::atomic<int> tasks_ = 0;
    static inline std::atomic<int> threads_ = 0;
    static inline std::atomic<int> running_ = 0;
    static inline std::atomic<int> atOnce_ = 0;
    static inline std::atomic<int> meetingSize_ = 1;
    static inline std::mutex meetingMutex_;
    static inline std::condition_variable meetingComplete_;
    halide_do_task_t previous_;
};

}  // namespace support
