// SPDX-License-Identifier: MIT
// The words of the help.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace diffuse {

std::string introduction();
std::string closing();

// Lays the help out for a terminal of 80 columns.
class ManualFormatter : public CLI::Formatter {
public:
    ManualFormatter() {
        column_width(nameColumn);
        label("Positionals", "Arguments");
    }

    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_option_desc(const CLI::Option* option) const override;

private:
    static constexpr int nameColumn = 26;
    static constexpr int width = 80;
};

}  // namespace diffuse
