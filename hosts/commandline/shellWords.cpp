// SPDX-License-Identifier: MIT
#include "shellWords.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace commandline {

namespace {

bool isPlain(const std::string& word) {
    constexpr std::string_view harmless = "-_./:,=+@%";
    return !word.empty() && std::ranges::all_of(word, [&](unsigned char c) {
        return c >= 0x80 || std::isalnum(c) != 0 ||
               harmless.find(static_cast<char>(c)) != std::string_view::npos;
    });
}

}  // namespace

std::string quoted(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        if (!line.empty()) line += ' ';
        if (isPlain(word)) {
            line += word;
            continue;
        }
        line += '\'';
        for (const char c : word) {
            if (c == '\'') {
                line += "'\\''";
            } else {
                line += c;
            }
        }
        line += '\'';
    }
    return line;
}

}  // namespace commandline
