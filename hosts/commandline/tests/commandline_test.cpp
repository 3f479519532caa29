// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "commandline/jobs.h"
#include "commandline/shellWords.h"

namespace commandline {
namespace {

TEST(ShellWords, ComeBackFromAShell) {
    const std::vector<std::string> words = {
        "plain-1.5:x=y,/z", "",  "two words", "it's",    "$HOME*?",
        "a\nb\\c\"d`e`",    "~", "#x",        "\xc3\xa4"};
    const std::string command = "printf '%s\\1' " + quoted(words);
    std::FILE* const shell = popen(command.c_str(), "r");
    ASSERT_NE(shell, nullptr);
    std::string wanted;
    std::string found;
    for (const std::string& word : words) wanted += word + '\1';
    for (int c = 0; (c = std::fgetc(shell)) != EOF;) found += static_cast<char>(c);
    EXPECT_EQ(pclose(shell), 0);
    EXPECT_EQ(found, wanted);
    EXPECT_EQ(quoted({"plain-1.5:x=y,/z"}), "plain-1.5:x=y,/z");
}

// Each letter is a job: . does its work, x fails, k is killed.
struct Trial {
    Outcome outcome;
    std::string printed;
    std::vector<std::string> complaints;

    Trial(const std::string& letters, const JobSettings& settings) {
        std::vector<std::string> names;
        for (const char letter : letters) names.push_back(std::string("job ") + letter);
        testing::internal::CaptureStdout();
        outcome = runJobs(
            names, settings,
            [&](int number) {
                std::cout << number << " begins, ";
                usleep(2000);
                std::cout << number << " ends\n";
                if (letters[number] == 'k') std::raise(SIGKILL);
                return letters[number] == 'x' ? 2 : 0;
            },
            [&](const std::string& words) { complaints.push_back(words); });
        printed = testing::internal::GetCapturedStdout();
    }
};

TEST(Jobs, AreCountedAndPrintWhole) {
    const struct {
        const char* letters;
        JobSettings settings;
        int done, failed, untried;
    } cases[] = {{"....", {1, false}, 4, 0, 0},  {"......", {4, false}, 6, 0, 0},
                 {".x..", {1, false}, 1, 1, 2},  {".x.x.", {1, true}, 3, 2, 0},
                 {"xxx...", {9, true}, 3, 3, 0}, {"..k", {2, true}, 2, 1, 0}};
    for (const auto& [letters, settings, done, failed, untried] : cases) {
        const Trial trial(letters, settings);
        EXPECT_EQ(trial.outcome.done, done) << letters;
        EXPECT_EQ(trial.outcome.failed, failed) << letters;
        EXPECT_EQ(trial.outcome.untried, untried) << letters;
        for (int i = 0; i < done; ++i) {
            const std::string number = std::to_string(i);
            if (letters[i] != '.') continue;
            EXPECT_NE(trial.printed.find(number + " begins, " + number + " ends\n"),
                      std::string::npos)
                << letters << ": " << trial.printed;
        }
    }
    EXPECT_EQ(Trial("k", {1, false}).complaints,
              std::vector<std::string>{"job k: ended by signal 9 (Killed)"});
}

TEST(Jobs, RunAtOnceAsManyAsAreAllowed) {
    // Two that wait for each other.
    int ways[2][2];
    ASSERT_EQ(pipe(ways[0]) + pipe(ways[1]), 0);
    const auto meet = [&](int number) {
        char byte = 0;
        alarm(20);
        return write(ways[number][1], "x", 1) == 1 && read(ways[1 - number][0], &byte, 1) == 1 ? 0
                                                                                               : 1;
    };
    EXPECT_EQ(runJobs({"a", "b"}, {2, false}, meet, [](const auto&) {}).done, 2);
}

}  // namespace
}  // namespace commandline
