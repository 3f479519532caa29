#include "TaskObserver.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace support {
namespace {

std::atomic<int> round{0};
std::atomic<int> taskCount{0};
std::atomic<int> threadCount{0};
std::atomic<int> meetingSize{1};
std::mutex meetingMutex;
std::condition_variable meetingComplete;
thread_local int lastRound = -1;

void meet() {
    constexpr auto patience = std::chrono::seconds(1);
    std::unique_lock lock(meetingMutex);
    meetingComplete.notify_all();
    if (!meetingComplete.wait_for(lock, patience, [] { return threadCount >= meetingSize; })) {
        meetingSize = 1;
        meetingComplete.notify_all();
    }
}

int observedTask(void* userContext, halide_task_t task, int number, uint8_t* closure) {
    ++taskCount;
    if (lastRound != round) {
        lastRound = round;
        ++threadCount;
    }
    if (meetingSize > 1) meet();
    return task(userContext, number, closure);
}

}  // namespace

TaskObserver::TaskObserver() : previous_(halide_set_custom_do_task(observedTask)) {
    restart();
}

TaskObserver::~TaskObserver() {
    halide_set_custom_do_task(previous_);
}

void TaskObserver::restart(int meeting) {
    ++round;
    taskCount = 0;
    threadCount = 0;
    meetingSize = meeting;
}

int TaskObserver::tasks() const {
    return taskCount;
}

int TaskObserver::threads() const {
    return threadCount;
}

}  // namespace support
