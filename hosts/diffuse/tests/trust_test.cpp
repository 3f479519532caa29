// What once crashed, hung, lost data or fooled the program: refused in one line, or done right.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "DiffuseFolder.h"

namespace {

class Trust : public DiffuseFolder {
protected:
    // The file with bytes of it replaced.
    void spoil(const std::string& name, std::size_t at, const std::string& bytes) const {
        std::fstream stream(folder / name, std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(static_cast<std::streamoff>(at));
        stream << bytes;
    }
    // A picture of 61 x 60 in the format of the name, then cut.
    void writeCut(const std::string& name, std::uintmax_t length) {
        std::string values;
        for (int i = 0; i < 61 * 60; ++i) values += std::to_string(i * i % 251) + " ";
        write("rough.nrrd", "uint8", "61 60", values);
        ASSERT_EQ(run("rough.nrrd -n 0 -o " + name), 0) << complaint;
        fs::resize_file(folder / name, length);
    }
};

TEST_F(Trust, DamagedAndForeignFilesAreRefusedInOneLine) {
    writeCut("cut.jpg", 300);
    writeCut("cut.png", 300);
    ASSERT_EQ(run("rough.nrrd -n 0 -o crc.png"), 0) << complaint;
    spoil("crc.png", 29, "XXXX");
    ASSERT_EQ(run("volume.nrrd -n 0 -o nan.nii"), 0) << complaint;
    spoil("nan.nii", 280, std::string("\0\0\xc0\x7f", 4));
    ASSERT_EQ(run("volume.nrrd -n 0 -o pages.tif"), 0) << complaint;
    fs::resize_file(folder / "pages.tif", fs::file_size(folder / "pages.tif") - 200);
    writePair("far.mhd", "far.raw");
    fs::rename(folder / "far.raw", folder.parent_path() / (folder.filename().string() + ".raw"));
    fs::create_symlink("../" + folder.filename().string() + ".raw", folder / "far.raw");
    writePair("absolute.mhd", "absolute.raw", "ElementDataFile = /etc/passwd\n");
    writePair("twice.mhd", "twice.raw", "NDims = 65536\n");
    writePair("colon.mhd", "colon.raw", "Comment : words\nName = words\n");
    write("hole.nrrd", "float", "2 2", "1 nan 3 4");
    write("big.nrrd", "double", "2 2", "1e300 -1e300 3 4");
    write("turned.nrrd", "int16", "2 2 1", "1 2 3 4",
          "space: scanner-xyz\nspace directions: (1,0,0) (0,1,0) (0,0,1)\n");
    write("flat.nrrd", "int16", "2 2 1", "1 2 3 4",
          "space: LPS\nspace directions: (1,0,0) (1,0,0) (0,0,1)\n");
    write("micron.nrrd", "int16", "2 2 1", "1 2 3 4",
          "space: LPS\nspace units: \"um\" \"um\" \"um\"\n"
          "space directions: (1,0,0) (0,1,0) (0,0,1)\n");
    mkfifo((folder / "fifo.png").c_str(), 0600);
    std::ofstream(folder / "new\nline.png") << "no picture\n";
    const struct {
        const char* arguments;
        int status;
        const char* words;
    } cases[] = {
        {"cut.jpg", 1, "damaged, or not JPEG"},
        {"cut.png", 1, "damaged, or not PNG"},
        {"crc.png", 1, "damaged, or not PNG"},
        {"nan.nii", 1, "makes no sense"},
        {"pages.tif", 1, "pages.tif: "},
        {"far.mhd", 1, "outside its folder"},
        {"absolute.mhd", 1, "outside its folder"},
        {"twice.mhd", 1, "tells ndims twice"},
        {"colon.mhd", 1, "the field name"},
        {"hole.nrrd", 1, "infinite or no numbers"},
        {"big.nrrd -k 1 --type float32", 1, "too large for the arithmetic of float32"},
        {"turned.nrrd", 1, "its space is 'scanner-xyz'"},
        {"flat.nrrd", 1, "makes no sense"},
        {"micron.nrrd", 1, "not in mm"},
        {"fifo.png", 1, "neither a file nor a folder"},
        {"/proc", 1, "is no DICOM file"},
        {"/dev/zero", 1, "neither a file nor a folder"},
        {"new*line.png", 1, "new?line.png"},
        {"step.nrrd -k 1e-50 --type float32", 2, "beyond what float32 can divide by"},
        {"step.nrrd -k 1e-310", 2, "beyond what float64 can divide by"},
    };
    for (const auto& [arguments, status, words] : cases) {
        expectRefusal(std::string(arguments) + " -o out.nrrd", status, words);
    }
    expectRefusal("step.nrrd -o fifo.png", 1, "fifo.png");
    expectRefusal("--help", 1, "standard output", "sh -c '\"$@\" >/dev/full' sh");
    EXPECT_EQ(run("hole.nrrd -n 1 -k 1 --nan spread -o out.nrrd"), 0) << complaint;
    fs::remove(folder.parent_path() / (folder.filename().string() + ".raw"));
}

TEST_F(Trust, TargetsKeepTheirPermissionsAndLeftoversGo) {
    std::ofstream(folder / "out.nrrd") << "as before";
    fs::permissions(folder / "out.nrrd", fs::perms::owner_read | fs::perms::owner_write);
    const std::size_t before = files();
    // Killed while it writes, it leaves its folder.
    run("bytes.nrrd -n 0 -o out.nrrd", "sh -c '\"$@\" & sleep 0.05; kill -9 $!; wait' sh");
    ASSERT_EQ(run("bytes.nrrd -n 0 -o out.nrrd"), 0) << complaint;
    EXPECT_EQ(files(), before);
    EXPECT_EQ(fs::status(folder / "out.nrrd").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(samples<unsigned char>("out.nrrd"), samples<unsigned char>("bytes.nrrd"));
}

// Where memory or threads are short, a line says so, or one thread does the work.
TEST_F(Trust, ShortMemoryEndsInOneLineOrInTheSameResult) {
    ASSERT_EQ(run("step.nrrd -k 1 -n 2 -o all.nrrd"), 0) << complaint;
    for (const char* limit : {"700000", "1000000", "2000000"}) {
        const int status = run("step.nrrd -k 1 -n 2 -o few.nrrd --threads 16",
                               "ulimit -v " + std::string(limit) + " &&");
        EXPECT_TRUE(status == 0 || status == 1) << limit << complaint;
        EXPECT_LE(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
        EXPECT_TRUE(status == 1 || slurp(folder / "few.nrrd") == slurp(folder / "all.nrrd"));
    }
}

}  // namespace
