// SPDX-License-Identifier: MIT
// What the program tells: thresholds that it finds, reports, the manual.
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "DiffuseFolder.h"

namespace {

class Reports : public DiffuseFolder {
protected:
    nlohmann::json report(const std::string& arguments) {
        EXPECT_EQ(run(arguments + " --json"), 0) << complaint;
        return nlohmann::json::parse(printed);
    }

    // A disc with a bright rim and a spot on a slope, in the middle of a background of zeros.
    void writeHead() const {
        std::string values;
        for (int y = 0; y < 128; ++y) {
            for (int x = 0; x < 128; ++x) {
                const double r = std::hypot(x - 64, y - 60);
                const bool spot = std::hypot(x - 50, y - 50) < 9;
                values += std::to_string(r > 52 ? 0 : r > 46 ? 200 : 60 + x / 2 + 50 * spot) + " ";
            }
        }
        write("head.nrrd", "uint8", "128 128", values);
    }
};

TEST_F(Reports, JsonTellsWhatWasDone) {
    namespace host = diffusefilt_host;
    const host::Axes axes{2, host::Connectivity(1), host::Conduction(1), host::ElementType::float32,
                          host::InstructionSet::none};
    auto json =
        report(std::string("step.nrrd -k 1 -n 2 --threads 2 --instruction-set none --type float32 "
                           "--connectivity maximal -o out.nrrd --conduction ") +
               wordOf(axes.conduction));
    EXPECT_EQ(json["pipeline"], axes.name());
    EXPECT_EQ(json["threads"], 2);
    EXPECT_EQ(json["output"], "out.nrrd");
    json = report("step.nrrd -k 1 -n 2");
    EXPECT_EQ(json["output"], nullptr);
    EXPECT_EQ(json["threshold"], 1);
    EXPECT_EQ(json["samples"]["extents"], (std::vector<int>{4, 3}));
    EXPECT_EQ(json["samples"]["type"], "float64");
    EXPECT_FALSE(json.contains("psnr"));
    ASSERT_EQ(json["steps"].size(), 2u);
    // The sample of 1 gives 1/8 to each of its four neighbours.
    EXPECT_EQ(json["steps"][0]["largest_change"], 0.5);
    EXPECT_NEAR(json["steps"][0]["rms_change"], std::sqrt((0.25 + 4.0 / 64) / 12), 1e-15);
    for (const char* part : {"read", "filter", "write"}) EXPECT_GE(json["seconds"][part], 0);
}

TEST_F(Reports, TheAutomaticThresholdIsAsGoodAsTheBest) {
    writeHead();
    const std::pair<int, double> cases[] = {{1, 40}, {3, 5}, {3, 20}, {10, 10}, {20, 20}};
    for (const std::string conduction : diffusefilt_host::wordsOf<diffusefilt_host::Conduction>()) {
        for (const auto& [steps, sigma] : cases) {
            const std::string call = "head.nrrd --conduction " + conduction + " -n " +
                                     std::to_string(steps) + " --add-noise " +
                                     std::to_string(sigma);
            const auto json = report(call);
            EXPECT_NEAR(json["noise_sigma"], sigma, 0.06 * sigma);
            EXPECT_FALSE(json["noise_is_correlated"]);
            double best = 0;
            for (double k = sigma / 4; k < 8 * sigma; k *= 1.25) {
                const auto fixed = report(call + " -k " + std::to_string(k));
                best = std::max(best, fixed["psnr"]["after"].get<double>());
            }
            EXPECT_GE(json["psnr"]["after"], best - 0.7) << conduction << steps << " " << sigma;
        }
    }
}

TEST_F(Reports, NoiseThatIsNotWhiteIsToldOf) {
    writeHead();
    ASSERT_EQ(run("head.nrrd -n 1 -k 1e9 -o smoothed.nrrd --add-noise 20"), 0);
    const auto json = report("smoothed.nrrd");
    EXPECT_TRUE(json["noise_is_correlated"]);
    EXPECT_GT(std::abs(json["noise_correlation"].get<double>()), 0.1);
    ASSERT_EQ(run("smoothed.nrrd -o out.nrrd"), 0);
    EXPECT_NE(printed.find("\nnoise: not white, correlation "), std::string::npos) << printed;
    ASSERT_EQ(run("head.nrrd --add-noise 20 -o out.nrrd"), 0);
    EXPECT_EQ(printed.find("white"), std::string::npos) << printed;
}

// A file cuts noise off at the ends of its sample type, which here hits all of the background.
TEST_F(Reports, NoiseThatWasCutOffIsFoundAndNoNoiseIsNoError) {
    writeHead();
    for (const double sigma : {5, 20}) {
        ASSERT_EQ(run("head.nrrd -n 0 -o noisy.nrrd --add-noise " + std::to_string(sigma)), 0);
        EXPECT_NEAR(report("noisy.nrrd")["noise_sigma"], sigma, 0.1 * sigma);
    }
    write("flat.nrrd", "float", "2 3", "7 7 7 7 nan inf");
    EXPECT_EQ(report("flat.nrrd -k auto --nan spread")["threshold"], 1);
    write("hole.nrrd", "float", "4 4", "nan 1 4 2  1 2 5 7  9 9 9 9  0 0 0 0");
    EXPECT_GT(report("hole.nrrd --nan spread")["noise_sigma"].get<double>(), 0);
    write("two.nrrd", "uint8", "2 2", "0 200 0 200");
    EXPECT_EQ(report("two.nrrd")["threshold"], 0.2);
    ASSERT_EQ(run("two.nrrd -o out.nrrd"), 0);
    EXPECT_EQ(printed, "threshold: 0.2, for noise of sigma 0 and 3 steps\n");
}

}  // namespace
