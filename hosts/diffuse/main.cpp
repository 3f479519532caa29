// SPDX-License-Identifier: MIT
// diffuse: filters pictures and volumes with the library, from file to file.
#include <commandline/jobs.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include "startup.h"
#include "work.h"

namespace diffuse {

namespace {

// Returns the status of the program, after a complaint where it is not 0.
int attempt(const std::function<int()>& task) {
    const auto fail = [](const std::string& words, int status) {
        complain(words);
        return status;
    };
    try {
        return task();
    } catch (const UsageError& error) {
        return fail(error.what(), 2);
    } catch (const std::bad_alloc&) {
        return fail("not enough memory", 1);
    } catch (const std::exception& error) {
        return fail(error.what(), 1);
    }
}

int tell(const Plan& plan) {
    for (const Options& options : plan.files) {
        const bool isReplaced = std::filesystem::exists(options.output);
        print(options.input.string() +
              (options.output.empty() ? "" : " -> " + options.output.string()) +
              (isReplaced ? " (stands there and would be replaced)\n" : "\n"));
    }
    return 0;
}

std::string summary(const commandline::Outcome& outcome) {
    const int all = outcome.done + outcome.failed + outcome.untried;
    std::string text = std::to_string(all) + " files: " + std::to_string(outcome.done) + " done, " +
                       std::to_string(outcome.failed) + " failed";
    if (outcome.untried > 0) text += ", " + std::to_string(outcome.untried) + " not tried";
    return text + "\n";
}

// Each in a process of its own, for reading wants a process without threads.
int workOnAll(const Plan& plan) {
    std::vector<std::string> names;
    for (const Options& options : plan.files) names.push_back(options.input.string());
    const int share = static_cast<int>(std::thread::hardware_concurrency()) / plan.jobs;
    const auto work = [&](int number) {
        Options options = plan.files[number];
        if (plan.jobs > 1 && options.threads == 0) options.threads = std::max(1, share);
        return attempt([&] {
            workOn(options);
            return 0;
        });
    };
    const auto outcome = commandline::runJobs(names, {plan.jobs, plan.keepsGoing}, work, complain);
    const Options& common = plan.files.front();
    if (!common.json && (!common.quiet || outcome.failed > 0)) print(summary(outcome));
    return outcome.failed > 0 ? 1 : 0;
}

int carryOut(const Plan& plan) {
    if (plan.isDry) return tell(plan);
    std::error_code error;
    if (!plan.folder.empty()) std::filesystem::create_directories(plan.folder, error);
    if (error) {
        throw std::runtime_error("cannot make the folder " + plan.folder.string() + ": " +
                                 error.message());
    }
    if (plan.files.size() > 1) return workOnAll(plan);
    workOn(plan.files.front());
    return 0;
}

}  // namespace

}  // namespace diffuse

int main(int argc, char** argv) {
    return diffuse::attempt([&] {
        diffuse::secureStandardStreams();
        const auto plan = diffuse::parseOptions(argc, argv);
        if (plan) return diffuse::carryOut(*plan);
        diffuse::print("");
        return 0;
    });
}
