#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace qv::test {

/// One line of a file of cases.
struct Case {
    std::string place; ///< file and line, for messages
    std::vector<std::string> fields;
};

/// The text between backquotes, with the escapes \n, \r, \t, \\ and \xHH resolved.
[[nodiscard]] inline std::string unescaped(std::string_view text) {
    static constexpr std::string_view kLetters = "nrt\\";
    static constexpr std::string_view kMeanings = "\n\r\t\\";
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            result += text[i];
        } else if (text[++i] == 'x') {
            result += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else {
            result += kMeanings.at(kLetters.find(text[i]));
        }
    }
    return result;
}

/// The cases of a file, one a line: fields between " | ", without the blanks around them. A field
/// in backquotes keeps its blanks and may hold escapes. A line "# ..." is a comment.
[[nodiscard]] inline std::vector<Case> casesOf(const std::filesystem::path& file,
                                               std::size_t fields) {
    static constexpr std::string_view kSeparator = " | ";
    std::vector<Case> cases;
    std::ifstream stream(file);
    std::string line;
    for (int number = 1; std::getline(stream, line); ++number) {
        if (line.empty() || line.starts_with("# ")) {
            continue;
        }
        Case& row = cases.emplace_back();
        row.place = file.filename().string() + ":" + std::to_string(number);
        for (std::size_t begin = 0; begin <= line.size();) {
            const std::size_t end = std::min(line.find(kSeparator, begin), line.size());
            std::string_view field = std::string_view(line).substr(begin, end - begin);
            field.remove_prefix(std::min(field.find_first_not_of(' '), field.size()));
            field = field.substr(0, field.find_last_not_of(' ') + 1);
            const bool quoted = field.size() > 1 && field.front() == '`' && field.back() == '`';
            row.fields.push_back(quoted ? unescaped(field.substr(1, field.size() - 2))
                                        : std::string(field));
            begin = end == line.size() ? end + 1 : end + kSeparator.size();
        }
        EXPECT_EQ(row.fields.size(), fields) << row.place << ": " << line;
        row.fields.resize(fields);
    }
    EXPECT_FALSE(cases.empty()) << "no cases in " << file;
    return cases;
}

} // namespace qv::test
