// SPDX-License-Identifier: MIT
// Many files, series, streams, and what the program tells: each option from end to end.
#include <nlohmann/json.hpp>

#include "DiffuseFolder.h"

namespace {

class CommandLine : public DiffuseFolder {
protected:
    void SetUp() override {
        DiffuseFolder::SetUp();
        std::ofstream(folder / "bad.nrrd") << "no picture\n";
    }

    // The samples that a call writes to out.nrrd.
    std::string result(const std::string& arguments) {
        EXPECT_EQ(run(arguments + " -o out.nrrd"), 0) << arguments << ": " << complaint;
        const std::string text = slurp(folder / "out.nrrd");
        return text.substr(text.find("\n\n") + 2);
    }

    std::size_t lines(const std::string& text) const {
        return std::count(text.begin(), text.end(), '\n');
    }
};

TEST_F(CommandLine, ManyFilesAreFilteredAsEachAlone) {
    const std::string filter = " -k 9 -n 2 --output-dir ";
    ASSERT_EQ(run("bytes.nrrd step.nrrd volume.nrrd" + filter + "a --suffix _s"), 0) << complaint;
    EXPECT_EQ(lines(printed), 4u) << printed;
    EXPECT_NE(printed.find("bytes.nrrd -> a/bytes_s.nrrd: threshold 9, 2 steps"), printed.npos);
    EXPECT_NE(printed.find("3 files: 3 done, 0 failed"), printed.npos);
    ASSERT_EQ(run("bytes.nrrd step.nrrd volume.nrrd" + filter + "b --jobs 3 --quiet"), 0);
    EXPECT_EQ(printed + complaint, "");
    for (const std::string name : {"bytes", "step", "volume"}) {
        ASSERT_EQ(run(name + ".nrrd -k 9 -n 2 -o alone.nrrd"), 0);
        EXPECT_EQ(slurp(folder / "a" / (name + "_s.nrrd")), slurp(folder / "alone.nrrd"));
        EXPECT_EQ(slurp(folder / "b" / (name + ".nrrd")), slurp(folder / "alone.nrrd"));
    }
    // Beside the input, and in another format where that is read only.
    ASSERT_EQ(run("bytes.nrrd --suffix _t -k 9 -n 2"), 0);
    EXPECT_TRUE(fs::exists(folder / "bytes_t.nrrd"));
    writePair("pair.mhd", "pair.raw");
    ASSERT_EQ(run("pair.mhd --output-dir a -k 9"), 0) << complaint;
    EXPECT_TRUE(fs::exists(folder / "a/pair.nrrd"));
    ASSERT_EQ(run("bytes.nrrd step.nrrd --json -k 1 -n 1"), 0);
    EXPECT_EQ(nlohmann::json::parse(printed.substr(0, printed.find("\n{")))["input"], "bytes.nrrd");
}

TEST_F(CommandLine, AFailureAmongManyIsCountedAndTheRestIsDoneIfWanted) {
    const std::string files = "step.nrrd bad.nrrd bytes.nrrd -k 1 --output-dir ";
    EXPECT_EQ(run(files + "a"), 1);
    EXPECT_NE(printed.find("3 files: 1 done, 1 failed, 1 not tried"), printed.npos) << printed;
    EXPECT_EQ(lines(complaint), 1u);
    EXPECT_FALSE(fs::exists(folder / "a/bytes.nrrd"));
    EXPECT_EQ(run(files + "b --keep-going"), 1);
    EXPECT_NE(printed.find("3 files: 2 done, 1 failed\n"), printed.npos) << printed;
    EXPECT_TRUE(fs::exists(folder / "b/bytes.nrrd"));
    EXPECT_EQ(run(files + "b --keep-going --quiet"), 1);
    EXPECT_EQ(printed, "3 files: 2 done, 1 failed\n");
}

TEST_F(CommandLine, ADryRunTellsWhatWouldBeWritten) {
    const std::size_t before = files();
    ASSERT_EQ(run("step.nrrd bytes.nrrd --output-dir new --dry-run"), 0);
    EXPECT_EQ(printed, "step.nrrd -> new/step.nrrd\nbytes.nrrd -> new/bytes.nrrd\n");
    ASSERT_EQ(run("step.nrrd -o bytes.nrrd --dry-run"), 0);
    EXPECT_EQ(printed, "step.nrrd -> bytes.nrrd (stands there and would be replaced)\n");
    EXPECT_EQ(files(), before);
}

TEST_F(CommandLine, StreamsHoldWhatFilesHold) {
    ASSERT_EQ(run("bytes.nrrd -k 1 -n 0 -o bytes.png"), 0);
    ASSERT_EQ(run("volume.nrrd -k 1 -n 0 -o volume.nii -q"), 0);
    ASSERT_EQ(run("volume.nrrd -k 1 -n 0 -o volume.nii.gz -q"), 0);
    for (const std::string name : {"step.nrrd", "bytes.png", "volume.nii", "volume.nii.gz"}) {
        ASSERT_EQ(run(name + " -k 9 -n 2 -o wanted-" + name), 0) << complaint;
        ASSERT_EQ(run("- -k 9 -n 2 -o - <" + name), 0) << name << complaint;
        EXPECT_EQ(printed, slurp(folder / ("wanted-" + name))) << name;
    }
    ASSERT_EQ(run("step.nrrd -n 1 -o -"), 0);
    EXPECT_NE(complaint.find("threshold: "), complaint.npos);  // not among the samples
}

// Four volumes of 3 x 2 x 2 in one file, each unlike the others.
TEST_F(CommandLine, ASeriesIsFilteredVolumeByVolume) {
    const std::string place =
        "space: left-posterior-superior\nspace origin: (5,6,7)\n"
        "space directions: (-2,0,0) (0,2,0) (0,0,2) none\nkinds: domain domain domain time\n";
    std::string all, wanted;
    for (int t = 0; t < 4; ++t) {
        std::string one;
        for (int i = 0; i < 12; ++i) one += std::to_string((i * 7 + t * i * i) % 50) + " ";
        write("one.nrrd", "int16", "3 2 2", one);
        wanted += result("one.nrrd -k 9 -n 2");
        all += one;
    }
    write("series.nrrd", "int16", "3 2 2 4", all, place);
    EXPECT_EQ(result("series.nrrd -k 9 -n 2"), wanted);
    const std::string header = slurp(folder / "out.nrrd");
    EXPECT_NE(header.find("kinds: domain domain domain time\n"), header.npos) << header;
    EXPECT_NE(header.find("none\n"), header.npos);
    ASSERT_EQ(run("series.nrrd -k 9 -n 0 -o series.nii.gz"), 0) << complaint;
    ASSERT_EQ(run("series.nii.gz -k 9 -n 2 -o series.nii"), 0) << complaint;
    EXPECT_EQ(result("series.nii -k 9 -n 0"), wanted);
    write("times.nrrd", "int16", "3 2 2 4", all, "spacings: 1 1 1 2.5\n");
    EXPECT_EQ(result("times.nrrd -k 9 -n 2"), wanted);
    EXPECT_NE(slurp(folder / "out.nrrd").find("spacings: 1 1 1 2.5\n"), std::string::npos);
    ASSERT_EQ(run("times.nrrd --json -k 1 -n 1"), 0);
    EXPECT_EQ(nlohmann::json::parse(printed)["samples"]["pictures"], 4);
}

TEST_F(CommandLine, PagesArePicturesOrAVolume) {
    ASSERT_EQ(run("volume.nrrd -k 1 -n 0 -o pages.tif -q"), 0) << complaint;
    const std::string volume = result("volume.nrrd -k 5 -n 2 -q");
    const std::string planes = result("volume.nrrd -k 5 -n 2 --slice-wise");
    EXPECT_NE(volume, planes);
    EXPECT_EQ(result("pages.tif -k 5 -n 2 --volume"), volume);
    EXPECT_EQ(result("pages.tif -k 5 -n 2"), planes);
    std::string slices;
    for (const std::string z : {"0", "1"}) slices += result("volume.nrrd -k 5 -n 2 --slice z:" + z);
    EXPECT_EQ(slices, planes);
    ASSERT_EQ(run("pages.tif -k 5 -n 2 -o other.tif"), 0) << complaint;
    EXPECT_EQ(result("other.tif -k 1 -n 0"), planes);
}

TEST_F(CommandLine, UnevenSpacingIsToldOfAndWordsAreFewOrMany) {
    ASSERT_EQ(run("volume.nrrd -k 5 -o out.nrrd"), 0);
    EXPECT_NE(complaint.find("the samples are 2, 3 and 4 apart"), complaint.npos) << complaint;
    ASSERT_EQ(run("volume.nrrd -k 5 --json"), 0);
    EXPECT_EQ(nlohmann::json::parse(printed)["remarks"].size(), 1u);
    for (const std::string silent : {"volume.nrrd --quiet", "volume.nrrd -k 5 --slice-wise"}) {
        ASSERT_EQ(run(silent + " -o out.nrrd"), 0);
        EXPECT_EQ(printed + complaint, "") << silent;
    }
    ASSERT_EQ(run("step.nrrd -k 5 -o out.nrrd --verbose"), 0);
    EXPECT_NE(complaint.find("step.nrrd: 4 x 3 samples of float64"), complaint.npos) << complaint;
    EXPECT_NE(complaint.find("diffusefilt2_minimal_quadratic_float64_"), complaint.npos);
    EXPECT_NE(complaint.find("writes out.nrrd"), complaint.npos);
    ASSERT_EQ(run("--version"), 0);
    EXPECT_EQ(printed, "diffuse " DIFFUSEFILT_VERSION "\n");
}

TEST_F(CommandLine, AWindowChoosesTheGreysAndVolumesAreShownInTrueProportions) {
    ASSERT_EQ(run("bytes.nrrd -k 1 -n 0 --preview sheet.nrrd --window 30:20"), 0) << complaint;
    const auto sheet = samples<std::uint8_t>("sheet.nrrd");
    EXPECT_EQ((std::vector<std::uint8_t>{sheet.begin(), sheet.begin() + 3}),
              (std::vector<std::uint8_t>{0, 0, 128}));
    ASSERT_EQ(run("volume.nrrd -k 1 -n 0 --preview sheet.nrrd -q"), 0);
    // 3 x 2 x 2 samples of 2, 3 and 4 mm: 3 x 3 x 4 pixels, three panels and gaps of 4.
    const std::string header = slurp(folder / "sheet.nrrd");
    EXPECT_NE(header.find("sizes: 17 12\n"), header.npos) << header.substr(0, 200);
}

TEST_F(CommandLine, ThePageHoldsItsCommandLines) {
    fs::rename(folder / "bytes.nrrd", folder / "it's.nrrd");
    ASSERT_EQ(run("\"it's.nrrd\" --report page.html -k 9 -n 2 --conduction exponential "
                  "--window 30:20"),
              0)
        << complaint;
    const std::string page = slurp(folder / "page.html");
    const std::string start = "id=\"data\">";
    const std::size_t begin = page.find(start) + start.size();
    const auto data =
        nlohmann::json::parse(page.substr(begin, page.find("</script>", begin) - begin));
    EXPECT_EQ(data["title"], "it's.nrrd");
    EXPECT_EQ(data["greys"], (std::vector<double>{20, 40}));
    const auto& cell = data["sheet"]["cells"][7];
    EXPECT_EQ(cell["isChosen"], true);
    const std::string line = cell["commands"][0]["line"];
    EXPECT_EQ(line,
              "diffuse 'it'\\''s.nrrd' --conduction exponential --threshold 9 --iterations 2 "
              "--suffix _smooth");
    EXPECT_EQ(cell["commands"][1]["line"],
              "diffuse *.nrrd --conduction exponential --threshold 9 --iterations 2 "
              "--output-dir filtered");
    ASSERT_EQ(run(line.substr(8)), 0) << complaint;
    EXPECT_TRUE(fs::exists(folder / "it's_smooth.nrrd"));
}

TEST_F(CommandLine, ShellsAndTheManualKnowEveryOption) {
    ASSERT_EQ(run("--help"), 0);
    std::string manual = slurp(DIFFUSE_DOCUMENTS "/diffuse.1");
    std::erase(manual, '\\');
    const std::string zsh = slurp(DIFFUSE_DOCUMENTS "/_diffuse");
    std::istringstream words(printed);
    int options = 0;
    for (std::string word; words >> word;) {
        const std::size_t dashes = word.find("--");
        if (dashes == word.npos || (dashes > 0 && dashes != 3)) continue;
        const std::string name = word.substr(
            dashes, word.find_first_not_of("-abcdefghijklmnopqrstuvwxyz", dashes) - dashes);
        ++options;
        EXPECT_NE(zsh.find(name + "["), zsh.npos) << name;
        EXPECT_NE(manual.find(std::string("Fl ").append(name, 1)), manual.npos) << name;
    }
    EXPECT_GE(options, 26);
    const struct {
        const char *before, *word, *wanted;
    } cases[] = {{"diffuse", "--output-", "--output-dir"},
                 {"--conduction", "e", "exponential"},
                 {"-k", "", "auto"},
                 {"--preview", "byt", "bytes.nrrd"},
                 {"diffuse", "vol", "volume.nrrd"}};
    for (const auto& [before, word, wanted] : cases) {
        const std::string script = "compopt() { :; }; source " DIFFUSE_DOCUMENTS
                                   "/diffuse.bash; COMP_WORDS=(diffuse '" +
                                   std::string(before) + "' '" + word +
                                   "'); COMP_CWORD=2; _diffuse; echo \"${COMPREPLY[*]}\"";
        std::ofstream(folder / "script") << script;
        ASSERT_EQ(std::system(("cd " + folder.string() + " && bash script >completed").c_str()), 0);
        EXPECT_EQ(slurp(folder / "completed"), wanted + "\n"s);
    }
}

TEST_F(CommandLine, RefusesWhatMakesNoSense) {
    fs::create_directory(folder / "other");
    fs::copy(folder / "step.nrrd", folder / "other/step.nrrd");
    write("list.nrrd", "uint8", "1 1 1 2", "1 2", "kinds: domain domain domain RGB-color\n");
    ASSERT_EQ(run("volume.nrrd -k 1 -n 0 -o series.nrrd -q"), 0);
    write("series.nrrd", "uint8", "2 1 2 2", "1 2 3 4 5 6 7 8");
    const struct {
        const char* arguments;
        int status;
        const char* words;
    } cases[] = {
        {"step.nrrd bytes.nrrd -o out.nrrd", 2, "take one input"},
        {"step.nrrd bytes.nrrd --report out.html", 2, "take one input"},
        {"step.nrrd bytes.nrrd -k 1", 2, "nothing to do"},
        {"step.nrrd -o out.nrrd --suffix _s", 2, "either --output"},
        {"step.nrrd other/step.nrrd --output-dir out", 2, "would both become out/step.nrrd"},
        {"step.nrrd --output-dir .", 2, "is the input"},
        {"step.nrrd --report step.nrrd", 2, "is the input"},
        {"step.nrrd --report a.png --preview a.png", 2, "the same file"},
        {"step.nrrd --report no/page.html", 1, "No such file"},
        {"step.nrrd --output-dir bytes.nrrd", 1, "cannot make the folder bytes.nrrd"},
        {"- --output-dir out", 2, "standard input has no name"},
        {"- step.nrrd --output-dir out", 2, "standard input is the only input"},
        {"- -k 1 -o out.nrrd </dev/null", 1, "unknown format"},
        {"step.nrrd -o - --json", 2, "either the result or the report"},
        {"step.nrrd -o out.nrrd --jobs 0", 2, "--jobs"},
        {"step.nrrd -o out.nrrd --window 3", 2, "LEVEL:WIDTH"},
        {"step.nrrd -o out.nrrd --window 3:0", 2, "LEVEL:WIDTH"},
        {"step.nrrd -o out.nrrd --window nan:1", 2, "LEVEL:WIDTH"},
        {"step.nrrd -o out.nrrd -q -v", 2, "--quiet"},
        {"step.nrrd -o out.nrrd --seed -1", 2, "--seed"},
        {"step.nrrd -o out.nrrd --nan keep", 2, "--nan"},
        {"list.nrrd -k 1 -o out.nrrd", 1, "neither time nor a list"},
        {"series.nrrd -k 1 -o out.png", 1, "volumes"},
        {"series.nrrd -k 1 -o out.tif", 1, "series"},
        {"series.nrrd -k 1 -o out.nrrd --slice z:0", 1, "not of a series"},
    };
    for (const auto& [arguments, status, words] : cases) expectRefusal(arguments, status, words);
}

}  // namespace
