// SPDX-License-Identifier: MIT
#include "describe.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

namespace commandline {

namespace {

using Words = std::vector<std::string>;

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
    return text;
}

// Those that are told of, in the order of the table.
std::vector<const CLI::Option*> optionsOf(const CLI::App& app) {
    std::vector<const CLI::Option*> options = app.get_options();
    std::erase_if(options, [](const CLI::Option* option) {
        return option->get_group().empty() || option->get_positional();
    });
    return options;
}

// -k, --threshold
Words namesOf(const CLI::Option& option) {
    Words names;
    for (const auto& name : option.get_snames()) names.push_back("-" + name);
    for (const auto& name : option.get_lnames()) names.push_back("--" + name);
    return names;
}

std::string argumentOf(const CLI::Option& option) {
    return option.get_type_size() == 0 ? "" : option.get_type_name();
}

// The words that the argument may be, as its type name lists them; capitals stand for others.
Words choicesOf(const CLI::Option& option) {
    Words choices;
    std::istringstream list(argumentOf(option));
    for (std::string word; std::getline(list, word, '|');) {
        if (std::islower(static_cast<unsigned char>(word.front())) != 0) choices.push_back(word);
    }
    return choices;
}

std::string joined(const Words& words, const std::string& separator) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
    return text;
}

bool takesFile(const CLI::Option& option) {
    return argumentOf(option) == "FILE" || argumentOf(option) == "DIR";
}

// Characters that begin a line or a command in mdoc.
std::string mdocText(const std::string& text) {
    std::string escaped = replaced(replaced(text, "\\", "\\e"), "-", "\\-");
    if (escaped.starts_with(".") || escaped.starts_with("'")) escaped.insert(0, "\\&");
    return replaced(escaped, ". ", ".\n");
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
    std::string cases;
    Words all;
    for (const CLI::Option* option : optionsOf(app)) {
        const Words names = namesOf(*option);
        all.insert(all.end(), names.begin(), names.end());
        if (argumentOf(*option).empty()) continue;
        const Words choices = choicesOf(*option);
        cases += "        " + joined(names, "|") + ")\n            " +
                 (!choices.empty()
                      ? "COMPREPLY=($(compgen -W '" + joined(choices, " ") + "' -- \"$word\"))"
                  : takesFile(*option)
                      ? std::string("compopt -o filenames; COMPREPLY=($(compgen ") +
                            (argumentOf(*option) == "DIR" ? "-d" : "-f") + " -- \"$word\"))"
                      : "COMPREPLY=()") +
                 "\n            return ;;\n";
    }
    const std::string& name = app.get_name();
    return "# Completes " + name + " in bash.\n_" + name +
           "() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]}\n"
           "    case ${COMP_WORDS[COMP_CWORD - 1]} in\n" +
           cases +
           "    esac\n"
           "    if [[ $word == -* ]]; then\n"
           "        COMPREPLY=($(compgen -W '" +
           joined(all, " ") +
           "' -- \"$word\"))\n"
           "    else\n"
           "        compopt -o filenames\n"
           "        COMPREPLY=($(compgen -f -- \"$word\"))\n"
           "    fi\n"
           "}\ncomplete -F _" +
           name + " " + name + "\n";
}

std::string zshCompletion(const CLI::App& app) {
    std::string lines;
    for (const CLI::Option* option : optionsOf(app)) {
        // The first clause tells enough; brackets and colons would end it.
        std::string words = option->get_description();
        words = words.substr(0, std::min(words.find_first_of(".;:"), words.find(", ")));
        words = replaced(replaced(words, "'", ""), "[", "(");
        const std::string argument = argumentOf(*option);
        const Words choices = choicesOf(*option);
        std::string action;
        if (!argument.empty()) {
            action = ":" + replaced(argument, ":", "\\:") + ":" +
                     (!choices.empty()     ? "(" + joined(choices, " ") + ")"
                      : argument == "DIR"  ? "_files -/"
                      : argument == "FILE" ? "_files"
                                           : " ");
        }
        const Words names = namesOf(*option);
        for (const std::string& name : names) {
            lines.append(" \\\n    '(").append(joined(names, " ")).append(")").append(name);
            lines.append("[").append(words).append("]").append(action).append("'");
        }
    }
    const std::string& name = app.get_name();
    return "#compdef " + name + "\n_arguments -s" + lines + " \\\n    '*:input:_files'\n";
}

std::string manualOptions(const CLI::App& app) {
    std::string text;
    std::string group;
    for (const CLI::Option* option : optionsOf(app)) {
        if (option->get_group() != group) {
            if (!group.empty()) text += ".El\n";
            group = option->get_group();
            text += ".Ss " + group + "\n.Bl -tag -width Ds\n";
        }
        Words names;
        for (const std::string& name : namesOf(*option))
            names.push_back("Fl " + replaced(name.substr(1), "-", "\\-"));
        const std::string argument = argumentOf(*option);
        text += ".It " + joined(names, " , ") + (argument.empty() ? "" : " Ar " + argument) + "\n" +
                mdocText(option->get_description()) + ".\n";
    }
    return text + ".El\n";
}

}  // namespace commandline
