// SPDX-License-Identifier: MIT
#include "startup.h"

#include <HalideRuntime.h>
#include <fcntl.h>
#include <tbb/info.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <future>
#include <system_error>
#include <thread>
#include <vector>

namespace diffuse {

namespace {

// All at once, besides the calling one.
bool canStart(int threads) {
    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    std::vector<std::jthread> all;
    try {
        for (int i = 0; i < threads; ++i) all.emplace_back([ended] { ended.wait(); });
    } catch (const std::system_error&) {
        threads = -1;
    }
    end.set_value();
    return threads >= 0;
}

}  // namespace

void secureStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The lowest number that is free is taken; to write there still fails.
        if (fcntl(stream, F_GETFD) < 0) open("/dev/null", O_RDONLY);
    }
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    std::signal(SIGXFSZ, SIG_IGN);
}

int startThreads(int wanted) {
    const int all = tbb::info::default_concurrency();
    const int threads = wanted > 0 ? std::min(wanted, 8 * all) : all;
    if (canStart(threads - 1)) return threads;
    halide_set_num_threads(1);
    halide_set_custom_do_par_for(halide_default_do_par_for);
    return 1;
}

}  // namespace diffuse
