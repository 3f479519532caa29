// What a command prints, line by line, in words.
#pragma once

#include <cstdio>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace support {

using Words = std::vector<std::string>;

inline std::vector<Words> linesOf(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<Words> lines;
    char buffer[8192];
    while (pipe != nullptr && std::fgets(buffer, sizeof(buffer), pipe.get()) != nullptr) {
        std::istringstream words(buffer);
        lines.push_back({std::istream_iterator<std::string>(words), {}});
    }
    return lines;
}

}  // namespace support
