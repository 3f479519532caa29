// What the finished library shows to the dynamic linker, against the stored list.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "support/Command.h"
#include "support/Pipelines.h"

namespace {

using support::linesOf;
using support::Words;

// "defined" or "needed" symbols as "kind type binding visibility name[@version]", and the
// dynamic section's libraries and path in their order.
std::set<std::string> surface() {
    std::set<std::string> lines;
    for (const Words& w : linesOf("readelf --dyn-syms -W " LIBRARY)) {
        if (w.size() < 8 || w[0].back() != ':' || w[0] == "0:" || w[0] == "Num:") continue;
        const bool defined = w[6] != "UND";
        lines.insert((defined ? "defined " : "imported ") + w[3] + " " + w[4] + " " + w[5] + " " +
                     w[7]);
    }
    return lines;
}

Words dynamicEntries(const std::string& tag) {
    Words values;
    for (const Words& w : linesOf("readelf -dW " LIBRARY)) {
        if (w.size() > 1 && w[1] == "(" + tag + ")") values.push_back(w.back());
    }
    return values;
}

TEST(Surface, SymbolsAreThoseOfTheList) {
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

TEST(Surface, LibrariesAndPathStandInTheirOrder) {
    const Words needed = dynamicEntries("NEEDED");
    if (IS_RELEASE) {
        EXPECT_EQ(needed, (Words{"[libtbb.so.12]", "[libtbbmalloc.so.2]", "[libstdc++.so.6]",
                                 "[libm.so.6]", "[libgcc_s.so.1]", "[libc.so.6]"}));
    }
    EXPECT_EQ(dynamicEntries("RPATH"), Words{"[$ORIGIN:$ORIGIN/../lib:$ORIGIN/../../lib]"});
    EXPECT_EQ(dynamicEntries("RUNPATH"), Words{});
    EXPECT_EQ(dynamicEntries("SONAME"), Words{});
}

// What the loader makes read-only, and what it never makes executable.
TEST(Surface, IsHardened) {
    std::set<std::string> segments;
    for (const Words& w : linesOf("readelf -lW " LIBRARY)) {
        if (w.size() > 6 && w[0].starts_with("GNU_")) segments.insert(w[0] + " " + w[6]);
    }
    EXPECT_TRUE(segments.contains("GNU_STACK RW"));
    EXPECT_TRUE(segments.contains("GNU_RELRO R"));
    EXPECT_EQ(dynamicEntries("BIND_NOW").size(), 1u);
    EXPECT_EQ(dynamicEntries("TEXTREL"), Words{});
}

// One initialiser of ours beside the compiler's own, and the runtime's four clean-ups.
TEST(Surface, InitialisersAndFinalisersAreKnown) {
    Words finalisers;
    for (const Words& w : linesOf("readelf -rW " LIBRARY)) {
        if (w.size() < 5 || w[2] != "R_X86_64_64") continue;
        if (w[4].ends_with("cleanup") || w[4].ends_with("shutdown")) finalisers.push_back(w[4]);
    }
    EXPECT_EQ(finalisers, (Words{"halide_profiler_shutdown", "halide_cache_cleanup",
                                 "halide_trace_cleanup", "halide_thread_pool_cleanup"}));
    if (!IS_RELEASE) return;  // sanitizers add their own
    EXPECT_EQ(dynamicEntries("INIT_ARRAYSZ").size(), 1u);
    for (const Words& w : linesOf("readelf -dW " LIBRARY)) {
        if (w.size() > 2 && w[1] == "(INIT_ARRAYSZ)") {
            EXPECT_EQ(w[2], "16");
        }
        if (w.size() > 2 && w[1] == "(FINI_ARRAYSZ)") {
            EXPECT_EQ(w[2], "40");
        }
    }
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
