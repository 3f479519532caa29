// SPDX-License-Identifier: MIT
// What the program refuses. Kinds of files that it refuses stand in formats_table.py, damaged ones
// in damaged_files.py.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "DiffuseFolder.h"

namespace {

TEST_F(DiffuseFolder, RefusesBadInputInOneLineAndWritesNothing) {
    write("line.nrrd", "double", "4", "1 2 3 4");
    write("five.nrrd", "double", "2 1 1 1 2", "1 2 3 4");
    write("wide.nrrd", "uint8", "3000000000 1", "1");
    write("deep.nrrd", "uint8", "70000 70000 2", "1");
    write("huge.nrrd", "uint8", "2000000000 1000", "1");
    write("hole.nrrd", "float", "2 2", "1 nan 3 4");
    write("big.nrrd", "double", "2 2", "1e300 -1e300 3 4");
    std::ofstream(folder / "text.png") << "this is no picture\n";
    std::ofstream(folder / "new\nline.png") << "no picture\n";
    std::ofstream(folder / "empty.nrrd");
    fs::create_directory(folder / "taken.nrrd");
    fs::create_symlink("step.nrrd", folder / "link.nrrd");
    fs::create_hard_link(folder / "step.nrrd", folder / "again.nrrd");
    mkfifo((folder / "fifo.png").c_str(), 0600);
    writePair("apart.mhd", "apart.nrrd");
    writePair("far.mhd", "far.raw");
    const std::string other = "../" + folder.filename().string() + ".raw";
    fs::rename(folder / "far.raw", folder / other);
    fs::create_symlink(other, folder / "far.raw");
    const struct {
        const char* arguments;
        int status;
        const char* words;
    } cases[] = {
        {"missing.png -o out.nrrd", 1, "missing.png: No such file"},
        {"text.png -o out.nrrd", 1, "text.png: damaged, or not PNG: "},
        {"new*line.png -o out.nrrd", 1, "new?line.png"},
        {"empty.nrrd -o out.nrrd", 1, "empty.nrrd"},
        {"fifo.png -o out.nrrd", 1, "neither a file nor a folder"},
        {"/dev/zero -o out.nrrd", 1, "neither a file nor a folder"},
        {". -o out.nrrd", 1, "no DICOM file"},
        {"/proc -o out.nrrd", 1, "no DICOM file"},
        {"far.mhd -o out.nrrd", 1, "outside its folder"},
        {"line.nrrd -o out.nrrd", 1, "1 dimensions"},
        {"five.nrrd -o out.nrrd", 1, "5 dimensions"},
        {"wide.nrrd -o out.nrrd", 1, "an axis of 3000000000 samples"},
        {"deep.nrrd -o out.nrrd", 1, "slices of more than 2147483647 samples"},
        {"huge.nrrd -o out.nrrd", 1, "the file ends too early"},
        {"hole.nrrd -o out.nrrd", 1, "infinite or no numbers"},
        {"big.nrrd -k 1 --type float32 -o out.nrrd", 1, "too large for the arithmetic of float32"},
        {"volume.nrrd -o out.nrrd --slice z:2", 1, "slices 0 to 1"},
        {"step.nrrd -o out.nrrd --slice z:0", 1, "3 dimensions"},
        {"volume.nrrd -o out.png", 1, "no volumes"},
        {"volume.nrrd -o out.dcm", 1, "DICOM are read and not written"},
        {"step.nrrd -o out.mhd", 1, "two files are read and not written"},
        {"step.nrrd -o out.unknown", 1, "out.unknown"},
        {"step.nrrd -o out.png", 1, "PNG holds no samples of float64"},
        {"step.nrrd -o no/out.nrrd", 1, "no/out.nrrd: No such file"},
        {"step.nrrd -o taken.nrrd", 1, "taken.nrrd: Is a directory"},
        {"step.nrrd -o fifo.png", 1, "fifo.png"},
        {"volume.nrrd -o out.nrrd --slice z:-1", 2, "AXIS:INDEX"},
        {"volume.nrrd -o out.nrrd --slice w:1", 2, "AXIS:INDEX"},
        {"volume.nrrd -o out.nrrd --slice z:1x", 2, "AXIS:INDEX"},
        {"step.nrrd -o out.nrrd -n -1", 2, "--iterations"},
        {"step.nrrd -o out.nrrd -n 2.5", 2, "--iterations"},
        {"step.nrrd -k nan -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k inf -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k 0 -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k ten -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k 1e-50 --type float32 -o a.nrrd", 2, "beyond what float32 can divide by"},
        {"step.nrrd -k 1e-310 -o out.nrrd", 2, "beyond what float64 can divide by"},
        {"step.nrrd -o out.nrrd --threads 0", 2, "--threads"},
        {"step.nrrd -o out.nrrd --type float16", 2, "--type"},
        {"step.nrrd -o out.nrrd --connectivity some", 2, "--connectivity"},
        {"step.nrrd -o out.nrrd --conduction linear", 2, "--conduction"},
        {"step.nrrd -o out.nrrd --add-noise -3", 2, "--add-noise"},
        {"step.nrrd -o out.nrrd --instruction-set sse", 2, "--instruction-set"},
        {"step.nrrd -k 1", 2, "nothing to do"},
        {"-k 1 -o out.nrrd", 2, "input"},
        {"step.nrrd -o out.nrrd --unknown", 2, "--unknown"},
        {"step.nrrd -o ./step.nrrd", 2, "is the input"},
        {"step.nrrd --preview link.nrrd", 2, "is the input"},
        {"link.nrrd -o again.nrrd", 2, "is the input"},
        {"apart.mhd -o apart.nrrd", 2, "apart.nrrd is a part of the input"},
        {"step.nrrd -o out.nrrd --preview ./out.nrrd", 2, "the same file"},
    };
    for (const auto& [arguments, status, words] : cases) expectRefusal(arguments, status, words);
    expectRefusal("--help", 1, "standard output", "sh -c '\"$@\" >/dev/full' sh");
    EXPECT_EQ(run("hole.nrrd -n 1 -k 1 --nan spread -o out.nrrd"), 0) << complaint;
    fs::remove(folder / other);
}

}  // namespace
