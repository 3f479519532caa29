// Instruction sets do not leak: what the object files of each set define, import and
// execute, read from their symbol tables and their disassembly.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <string>

#include "support/Command.h"

namespace {

using support::linesOf;
using support::Words;

// Object files, blank-separated, of the three sets and of the frame.
const std::map<std::string, std::string> objects = {
    {"none", OBJECTS_NONE}, {"avx", OBJECTS_AVX}, {"avx2", OBJECTS_AVX2}, {"frame", OBJECTS_FRAME}};

// The kinds of instructions in a set's objects: the mnemonic, whether it names memory, and
// the vector and mask registers that it names, as in "vmulps ( %ymm".
std::set<std::string> instructionsOf(const std::string& set) {
    const std::set<std::string> prefixes = {"rep",     "repz",   "repnz", "lock",
                                            "notrack", "data16", "cs"};
    std::set<std::string> instructions;
    for (const Words& words : linesOf("objdump -d --no-show-raw-insn " + objects.at(set))) {
        if (words.size() < 2 || words[0].back() != ':' || words[0].size() > 9) continue;
        size_t at = 1;
        while (at + 1 < words.size() && prefixes.contains(words[at])) ++at;
        std::string text = words[at] + " ";
        for (const char* registers : {"(", "%xmm", "%ymm", "%zmm", "%k"}) {
            const bool named =
                at + 1 < words.size() && words[at + 1].find(registers) != std::string::npos;
            if (named) text += registers + std::string(" ");
        }
        instructions.insert(text);
    }
    return instructions;
}

// The first that matches, empty if none does.
std::string firstMatch(const std::string& set, const std::string& pattern) {
    static std::map<std::string, std::set<std::string>> known;
    if (!known.contains(set)) known[set] = instructionsOf(set);
    const std::regex forbidden(pattern);
    for (const std::string& instruction : known[set]) {
        if (std::regex_search(instruction, forbidden)) return instruction;
    }
    return {};
}

// Above SSE2: VEX and EVEX forms, SSE3, SSSE3, SSE4, and what came to the integer side.
const std::string aboveBaseline =
    "^(v[a-z]|addsubp|haddp|hsubp|movddup|movs[hl]dup|lddqu|fisttp|pshufb|palignr|pabs|phadd|phsub|"
    "psign|pmulhrsw|pmaddubsw|p?blend|dpp[sd]|extractps|insertps|movntdqa|mpsadbw|packusdw|pcmpeqq|"
    "pcmpgtq|pextr[bdq]|pinsr[bdq]|phminpos|p(max|min)(sb|sd|ud|uw)|pmov[sz]x|pmuldq|pmulld|ptest|"
    "round[ps][sd]|pcmp[ei]str|crc32|popcnt|andn |bextr|bls|[tl]zcnt|movbe|(sar|shl|shr|ror|mul)x|"
    "pdep|pext)";
const std::string aboveAVX =
    "^(vf(n?m|maddsub|msubadd)|v(extract|insert|broadcast)i|vbroadcasts[sd] %xmm|andn |bextr|bls|"
    "[tl]zcnt|(sar|shl|shr|ror|mul)x )|^vp(?!ermil|erm2f128)[a-z0-9]+ .*%ymm|%zmm|%k";
const std::string nowhere = "gather|^v?rcp|^v?rsqrt|%zmm|%k";

TEST(Isolation, DisassemblyIsRead) {
    for (const auto& [set, files] : objects) EXPECT_NE(firstMatch(set, "^mov"), "") << set;
    EXPECT_NE(firstMatch("none", "^divpd"), "");
    EXPECT_NE(firstMatch("avx", "^vdivpd .*%ymm"), "");
    EXPECT_NE(firstMatch("avx", aboveBaseline), "");
    EXPECT_NE(firstMatch("avx2", aboveAVX), "");
}

TEST(Isolation, SetsUseOnlyTheirInstructions) {
    EXPECT_EQ(firstMatch("none", aboveBaseline), "");
    EXPECT_EQ(firstMatch("frame", aboveBaseline), "");
    EXPECT_EQ(firstMatch("avx", aboveAVX), "");
    for (const auto& [set, files] : objects) EXPECT_EQ(firstMatch(set, nowhere), "") << set;
}

// The linker keeps one copy of a weak function: none may be defined for two sets.
TEST(Isolation, NoWeakSymbolIsDefinedTwice) {
    std::map<std::string, std::string> definedIn;
    for (const auto& [set, files] : objects) {
        for (const Words& words : linesOf("nm --defined-only " + files)) {
            if (words.size() != 3 || std::string("WwVvu").find(words[1]) == std::string::npos) {
                continue;
            }
            const auto [at, isNew] = definedIn.emplace(words[2], set);
            EXPECT_TRUE(isNew || at->second == set)
                << words[2] << " in " << set << " and " << at->second;
        }
    }
    EXPECT_GE(definedIn.size(), 48u);
}

// Nothing of the C library but exp and floorf: no memcpy, no memset, no stack check.
TEST(Isolation, ImportsAreThoseOfTheirWork) {
    const std::set<std::string> ofFrame = {"halide_do_par_for",
                                           "halide_error_buffer_argument_is_null",
                                           "halide_error_bad_type",
                                           "halide_error_access_out_of_bounds",
                                           "halide_error_buffer_extents_negative",
                                           "halide_error_constraint_violated",
                                           "halide_error_buffer_allocation_too_large",
                                           "halide_error_host_is_null"};
    const std::map<std::string, std::set<std::string>> expected = {
        {"none", {"exp", "floorf"}}, {"avx", {"exp"}}, {"avx2", {"exp"}}, {"frame", ofFrame}};
    for (const auto& [set, files] : objects) {
        std::set<std::string> imports;
        for (const Words& words : linesOf("nm --undefined-only " + files)) {
            if (words.size() != 2 || words[1] == "_GLOBAL_OFFSET_TABLE_") continue;
            const bool isOurs = words[1].find("diffusefilt") != std::string::npos;
            if (!isOurs) imports.insert(words[1]);
        }
        // The compiler may prove that a row of the ladder cannot fire.
        for (const std::string& name : imports) {
            EXPECT_TRUE(expected.at(set).contains(name)) << set << " imports " << name;
        }
        EXPECT_TRUE(imports.contains(set == "frame" ? "halide_do_par_for" : "exp")) << set;
    }
}

}  // namespace
