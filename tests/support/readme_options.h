// The options of the README's "Options that act" table, which the usage text and the man page must
// name, and the test of a name standing as a word of its own.
#pragma once
#include <cctype>
#include <regex>
#include <string>
#include <vector>

#include "support/run_ravel.h"

namespace testsupport {

// The first word of each code span in the first column of the table.
inline std::vector<std::string> readme_options() {
    const std::string readme = read_file(std::string(RAVEL_SOURCE_DIR) + "/README.md");
    const size_t start = readme.find("Options that act:");
    if (start == std::string::npos) return {};
    const std::string table = readme.substr(start, readme.find("\n\n", readme.find("| ---", start)) - start);
    // A cell ends at a "|" that isn't escaped.
    static const std::regex row("\n\\| ((?:[^|\\\\]|\\\\.)*) \\|");
    static const std::regex span("`([^ `]+)[^`]*`");
    std::vector<std::string> options;
    for (std::sregex_iterator it(table.begin(), table.end(), row), end; it != end; ++it) {
        const std::string cell = (*it)[1];
        for (std::sregex_iterator s(cell.begin(), cell.end(), span); s != end; ++s) options.push_back((*s)[1]);
    }
    return options;
}

// Whether `option` stands in `text` as a word of its own, not inside a longer option ("-csv" in
// "-csvgen", "-help" in "--help").
inline bool names_option(const std::string& text, const std::string& option) {
    auto word_byte = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-'; };
    for (size_t at = text.find(option); at != std::string::npos; at = text.find(option, at + 1)) {
        const size_t after = at + option.size();
        if ((at == 0 || !word_byte(text[at - 1])) && (after == text.size() || !word_byte(text[after]))) return true;
    }
    return false;
}

}  // namespace testsupport
