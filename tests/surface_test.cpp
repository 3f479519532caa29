// What the finished library shows to the dynamic linker, against the stored list.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "support/Command.h"
#include "support/Pipelines.h"

namespace {

using support::linesOf;
using support::Words;

// One line for each symbol: "defined" or "imported", kind, binding, visibility, name; for each
// entry of the dynamic section that binds, protects or runs code, the libraries numbered in
// their order; and for each segment that protects, with what it allows.
std::set<std::string> surface() {
    std::set<std::string> lines;
    for (const Words& w : linesOf("readelf --dyn-syms -W " LIBRARY)) {
        if (w.size() < 8 || w[0].back() != ':' || w[0] == "0:" || w[0] == "Num:") continue;
        const bool defined = w[6] != "UND";
        lines.insert((defined ? "defined " : "imported ") + w[3] + " " + w[4] + " " + w[5] + " " +
                     w[7]);
    }
    const std::set<std::string> kept = {"(RPATH)",   "(RUNPATH)",      "(SONAME)",
                                        "(TEXTREL)", "(INIT_ARRAYSZ)", "(FINI_ARRAYSZ)"};
    int libraries = 0;
    for (const Words& w : linesOf("readelf -dW " LIBRARY)) {
        if (w.size() < 2) continue;
        if (w[1] == "(BIND_NOW)") lines.insert("dynamic (BIND_NOW)");
        if (kept.contains(w[1]))
            lines.insert("dynamic " + w[1] + " " + (w[2] == "Library" ? w.back() : w[2]));
        if (w[1] == "(NEEDED)") {
            lines.insert("dynamic (NEEDED) " + std::to_string(++libraries) + " " + w.back());
        }
    }
    for (const Words& w : linesOf("readelf -lW " LIBRARY)) {
        if (w.size() > 6 && (w[0] == "GNU_STACK" || w[0] == "GNU_RELRO")) {
            lines.insert("segment " + w[0] + " " + w[6]);
        }
    }
    return lines;
}

TEST(Surface, IsThatOfTheList) {
    if (!IS_RELEASE) GTEST_SKIP() << "other builds import more";
    std::ifstream file(STORED_SURFACE);
    std::set<std::string> stored;
    for (std::string line; std::getline(file, line);) stored.insert(line);
    const std::set<std::string> found = surface();
    for (const std::string& line : found) {
        EXPECT_TRUE(stored.contains(line)) << "not in the list: " << line;
    }
    for (const std::string& line : stored) {
        EXPECT_TRUE(found.contains(line)) << "not in the library: " << line;
    }
}

// The runtime's four clean-ups beside the compiler's own finaliser.
TEST(Surface, FinalisersAreKnown) {
    Words finalisers;
    for (const Words& w : linesOf("readelf -rW " LIBRARY)) {
        if (w.size() < 5 || w[2] != "R_X86_64_64") continue;
        if (w[4].ends_with("cleanup") || w[4].ends_with("shutdown")) finalisers.push_back(w[4]);
    }
    EXPECT_EQ(finalisers, (Words{"halide_profiler_shutdown", "halide_cache_cleanup",
                                 "halide_trace_cleanup", "halide_thread_pool_cleanup"}));
}

// What a profiler calls the tasks; the list has no such name.
TEST(Surface, TasksAreNamedLocalFunctions) {
    std::set<std::string> locals;
    for (const Words& w : linesOf("nm " LIBRARY)) {
        if (w.size() == 3 && w[1] == "t") locals.insert(w[2]);
    }
    for (const support::Pipeline& pipeline : support::pipelines()) {
        const std::string loop =
            pipeline.variant.dimensions == 3 ? "_diffusefilt3.s0.z" : "_diffusefilt2.s0.y";
        EXPECT_TRUE(locals.contains("par_for_" + (pipeline.name + loop))) << pipeline.name;
    }
}

}  // namespace
