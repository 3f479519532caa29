// SPDX-License-Identifier: MIT
// What stays behind when the program cannot finish, or is short of something: nothing, and a line.
#include <fcntl.h>
#include <pty.h>
#include <sys/prctl.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "DiffuseFolder.h"

namespace {

TEST_F(DiffuseFolder, AFullDiskLeavesNoFile) {
    std::string values;
    for (int i = 0; i < 200 * 200; ++i) values += std::to_string(i * 7919 % 10007 * 1e-3) + " ";
    write("flat.nrrd", "double", "200 200", values);
    std::ofstream(folder / "out.nrrd") << "as before";
    for (const std::string output : {"-o out.nrrd", "-o out.nii.gz", "--preview out.png"}) {
        expectRefusal("flat.nrrd -k 1 " + output, 1, "too large", "ulimit -f 16 &&");
    }
    EXPECT_EQ(slurp(folder / "out.nrrd"), "as before");
    expectRefusal("step.nrrd -k 1 --json", 1, "standard output", "sh -c '\"$@\" >/dev/full' sh");

    fs::create_directory(folder / "disk");
    const std::string mount = "unshare -rm sh -c 'mount -t tmpfs -o size=64k none disk && ";
    if (std::system(("cd " + folder.string() + " && " + mount + "true' 2>/dev/null").c_str()) !=
        0) {
        GTEST_SKIP() << "no disk can be mounted here: a small one was not tried";
    }
    expectRefusal("flat.nrrd -k 1 -o disk/out.nrrd", 1, "No space left",
                  mount + R"("$@"; status=$?; ls -A disk; exit $status' sh)");
}

// The program as a shell starts it, until a signal ends it.
class Running {
public:
    Running(const fs::path& folder, std::vector<std::string> arguments, bool onTerminal) {
        arguments.insert(arguments.begin(), DIFFUSE_PROGRAM);
        std::vector<char*> words;
        for (std::string& argument : arguments) words.push_back(argument.data());
        words.push_back(nullptr);
        int pipes[2] = {-1, -1};
        if (!onTerminal && pipe(pipes) != 0) return;
        process_ = onTerminal ? forkpty(&output_, nullptr, nullptr, nullptr) : fork();
        if (process_ == 0) {
            if (!onTerminal) dup2(pipes[1], STDERR_FILENO);
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (int signal = 1; signal <= SIGSYS; ++signal) std::signal(signal, SIG_DFL);
            if (chdir(folder.c_str()) == 0) execv(words[0], words.data());
            _exit(127);
        }
        if (!onTerminal) output_ = pipes[0];
        close(pipes[1]);
    }
    // False where there is no terminal to be had.
    bool started() const { return process_ > 0; }
    ~Running() { close(output_); }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    // What it prints next, a line or a bar; less if it ends before.
    std::string readLine() const {
        std::string text;
        char byte = 0;
        while (!text.ends_with('\n') && !text.ends_with(" s left") &&
               read(output_, &byte, 1) == 1) {
            text += byte;
        }
        return text;
    }
    // Whether it has a file of the folder open that has no name there.
    bool writes(const fs::path& folder) const {
        std::error_code error;
        const fs::path open = "/proc/" + std::to_string(process_) + "/fd";
        for (const auto& entry : fs::directory_iterator(open, error)) {
            const std::string file = fs::read_symlink(entry.path(), error);
            if (file.starts_with(folder.string()) && file.ends_with(" (deleted)")) return true;
        }
        return false;
    }
    bool ended() const { return waitpid(process_, nullptr, WNOHANG) != 0; }
    // The signal that ended it, 0 for none.
    int endWith(int signal) const {
        int status = 0;
        if (!started()) return -1;  // kill(-1) would reach every process there is
        kill(process_, signal);
        waitpid(process_, &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

private:
    pid_t process_ = -1;
    int output_ = -1;
};

TEST_F(DiffuseFolder, LongWorkShowsHowFarItIsAndEndsAtASignalWithoutAFile) {
    const std::size_t before = files();
    const std::vector<std::string> endless = {"step.nrrd", "-k", "1",         "-o",
                                              "out.nrrd",  "-n", "2000000000"};
    for (const bool onTerminal : {false, true}) {
        const Running program(folder, endless, onTerminal);
        if (onTerminal && !program.started()) GTEST_SKIP() << "no terminal to be had here";
        const std::string line = program.readLine();
        EXPECT_EQ(line.find(onTerminal ? "\r[....." : "diffuse: step "), 0u) << line;
        EXPECT_EQ(program.endWith(SIGINT), SIGINT);
    }
    EXPECT_EQ(files(), before);
}

TEST_F(DiffuseFolder, ASignalWhileItWritesLeavesNothing) {
    std::ofstream(folder / "flat.nrrd")
        << "NRRD0004\ntype: double\ndimension: 2\nsizes: 2000 2000\n"
           "encoding: raw\nendian: little\n\n";
    fs::resize_file(folder / "flat.nrrd", fs::file_size(folder / "flat.nrrd") + 8 * 2000 * 2000);
    const std::size_t before = files();
    for (const int signal :
         {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGXCPU, SIGUSR1, SIGALRM, SIGABRT, SIGKILL}) {
        const Running program(
            folder, {"flat.nrrd", "-k", "1", "-n", "0", "--add-noise", "1", "-o", "out.nii.gz"},
            false);
        while (!program.writes(folder) && !program.ended()) usleep(100);
        EXPECT_EQ(program.endWith(signal), signal);
        EXPECT_EQ(files(), before);
    }
}

TEST_F(DiffuseFolder, ATargetKeepsItsPermissionsAndALeftoverGoes) {
    const auto mine = fs::perms::owner_read | fs::perms::owner_write;
    std::ofstream(folder / "out.nrrd") << "as before";
    fs::permissions(folder / "out.nrrd", mine);
    const std::size_t before = files();
    // Killed between two steps of putting a file in place, it leaves that.
    const std::string name = std::to_string(std::hash<std::string>{}("out.nrrd"));
    std::ofstream(folder / (".diffuse-" + name)) << "left behind";
    ASSERT_EQ(run("bytes.nrrd -n 0 -o out.nrrd"), 0) << complaint;
    EXPECT_EQ(files(), before);
    EXPECT_EQ(fs::status(folder / "out.nrrd").permissions(), mine);
    EXPECT_EQ(samples<unsigned char>("out.nrrd"), samples<unsigned char>("bytes.nrrd"));
}

// Where memory or threads are short, a line says so, or one thread does the work.
TEST_F(DiffuseFolder, ShortMemoryOrThreadsEndInOneLineOrInTheSameResult) {
    ASSERT_EQ(run("step.nrrd -k 1 -n 2 -o all.nrrd"), 0) << complaint;
    bool wasAlone = false;
    for (int limit = 700'000; limit < 1'500'000; limit += 50'000) {
        const int status = run("step.nrrd -k 1 -n 2 -o few.nrrd --threads 16",
                               "ulimit -v " + std::to_string(limit) + " &&");
        EXPECT_TRUE(status == 0 || status == 1) << limit << complaint;
        EXPECT_LE(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
        EXPECT_TRUE(status == 1 || slurp(folder / "few.nrrd") == slurp(folder / "all.nrrd"));
        wasAlone = wasAlone || complaint.find("only one thread") != std::string::npos;
    }
    EXPECT_TRUE(wasAlone);
}

}  // namespace
