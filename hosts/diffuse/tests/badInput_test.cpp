// What the program refuses, and what stays behind when it cannot finish.
#include <fcntl.h>
#include <pty.h>
#include <sys/prctl.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "DiffuseFolder.h"

namespace {

TEST_F(DiffuseFolder, RefusesBadInputInOneLineAndWritesNothing) {
    write("line.nrrd", "double", "4", "1 2 3 4");
    write("four.nrrd", "double", "2 1 1 2", "1 2 3 4");
    write("complex.nrrd", "double", "2 1 2", "1 2 3 4", "kinds: complex domain domain\n");
    write("wide.nrrd", "uint8", "3000000000 1", "1");
    write("deep.nrrd", "uint8", "70000 70000 2", "1");
    write("huge.nrrd", "uint8", "2000000000 1000", "1");
    std::ofstream(folder / "text.png") << "this is no picture\n";
    std::ofstream(folder / "empty.nrrd");
    std::ofstream(folder / "short.nrrd") << slurp(folder / "step.nrrd").substr(0, 75);
    fs::create_directory(folder / "taken.nrrd");
    fs::create_symlink("step.nrrd", folder / "link.nrrd");
    fs::create_hard_link(folder / "step.nrrd", folder / "again.nrrd");
    writePair("apart.mhd", "apart.nrrd");
    const struct {
        const char* arguments;
        int status;
        const char* words;
    } cases[] = {
        {"missing.png -k 1 -o out.nrrd", 1, "missing.png: No such file"},
        {"text.png -k 1 -o out.nrrd", 1, "text.png: damaged, or not PNG: "},
        {"empty.nrrd -k 1 -o out.nrrd", 1, "empty.nrrd"},
        {"short.nrrd -k 1 -o out.nrrd", 1, "short.nrrd"},
        {". -k 1 -o out.nrrd", 1, "no DICOM file"},
        {"line.nrrd -k 1 -o out.nrrd", 1, "1 dimensions"},
        {"four.nrrd -k 1 -o out.nrrd", 1, "4 dimensions"},
        {"complex.nrrd -k 1 -o out.nrrd", 1, "neither grey nor colours"},
        {"wide.nrrd -k 1 -o out.nrrd", 1, "an axis of 3000000000 samples"},
        {"deep.nrrd -k 1 -o out.nrrd", 1, "slices of more than 2147483647 samples"},
        {"huge.nrrd -k 1 -o out.nrrd", 1, "the file ends too early"},
        {"volume.nrrd -k 1 -o out.png", 1, "no volumes"},
        {"volume.nrrd -k 1 -o out.dcm", 1, "DICOM are read and not written"},
        {"volume.nrrd -k 1 -o out.nrrd --slice z:2", 1, "slices 0 to 1"},
        {"step.nrrd -k 1 -o out.nrrd --slice z:0", 1, "3 dimensions"},
        {"step.nrrd -k 1 -o out.unknown", 1, "out.unknown"},
        {"step.nrrd -k 1 -o out.png", 1, "out.png"},  // PNG has no floating point
        {"step.nrrd -k 1 -o no/out.nrrd", 1, "no/out.nrrd: No such file"},
        {"step.nrrd -k 1 -o taken.nrrd", 1, "taken.nrrd: Is a directory"},
        {"volume.nrrd -k 1 -o out.nrrd --slice z:-1", 2, "AXIS:INDEX"},
        {"volume.nrrd -k 1 -o out.nrrd --slice w:1", 2, "AXIS:INDEX"},
        {"volume.nrrd -k 1 -o out.nrrd --slice z:1x", 2, "AXIS:INDEX"},
        {"step.nrrd -k 1 -o out.nrrd -n -1", 2, "--iterations"},
        {"step.nrrd -k 1 -o out.nrrd -n 2.5", 2, "--iterations"},
        {"step.nrrd -k nan -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k inf -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k 0 -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k ten -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k 1 -o out.nrrd --threads 0", 2, "--threads"},
        {"step.nrrd -k 1 -o out.nrrd --type float16", 2, "--type"},
        {"step.nrrd -k 1 -o out.nrrd --connectivity some", 2, "--connectivity"},
        {"step.nrrd -k 1 -o out.nrrd --conduction linear", 2, "--conduction"},
        {"step.nrrd -k 1 -o out.nrrd --add-noise -3", 2, "--add-noise"},
        {"step.nrrd -k 1 -o out.nrrd --instruction-set sse", 2, "--instruction-set"},
        {"step.nrrd -k 1", 2, "nothing to do"},
        {"-k 1 -o out.nrrd", 2, "input"},
        {"step.nrrd -k 1 -o out.nrrd --unknown", 2, "--unknown"},
        {"step.nrrd -k 1 -o ./step.nrrd", 2, "is the input"},
        {"step.nrrd -k 1 --preview link.nrrd", 2, "is the input"},
        {"link.nrrd -k 1 -o again.nrrd", 2, "is the input"},
        {"apart.mhd -k 1 -o apart.nrrd", 2, "apart.nrrd is a part of the input"},
        {"step.nrrd -k 1 -o out.mhd", 1, "two files are read and not written"},
        {"step.nrrd -k 1 -o out.nrrd --preview ./out.nrrd", 2, "the same file"},
    };
    for (const auto& [arguments, status, words] : cases) expectRefusal(arguments, status, words);
}

TEST_F(DiffuseFolder, RefusesFilesThatEndTooEarly) {
    std::string zeros;
    for (int i = 0; i < 60 * 61; ++i) zeros += "0 ";
    write("flat.nrrd", "uint8", "61 60", zeros);
    for (const std::string name :
         {"a.png", "a.tif", "a.jpg", "a.nii", "a.nii.gz", "a.nrrd", "a.mha"}) {
        ASSERT_EQ(run("flat.nrrd -k 1 -n 0 --add-noise 90 -o " + name), 0) << complaint;
        ASSERT_EQ(run(name + " -k 1 -n 0 -o out.nrrd"), 0) << complaint;
        fs::remove(folder / "out.nrrd");
        const fs::path data = folder / name;
        for (const int cut : {2, 998}) {
            fs::resize_file(data, fs::file_size(data) - cut);
            expectRefusal(name + " -k 1 -o out.nrrd", 1, name + ": damaged, or not ");
        }
    }
}

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

}  // namespace
