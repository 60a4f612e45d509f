#pragma once

#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace qv::test {

/// The lines of a file of cases, without comments.
inline std::vector<std::string> linesOfCases(const std::filesystem::path& file) {
    std::vector<std::string> lines;
    std::istringstream stream(contentOf(file));
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && !line.starts_with('#')) {
            lines.push_back(line);
        }
    }
    return lines;
}

/// %XX stands for a byte, a lone % for nothing.
inline std::string unescaped(std::string_view text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            bytes += text[at];
        } else if (text.size() > 1) {
            bytes += static_cast<char>(std::stoi(std::string(text.substr(at + 1, 2)), nullptr, 16));
            at += 2;
        }
    }
    return bytes;
}

struct TextCase {
    std::string text;
    std::string outcome;
};

/// The cases of a file: a line of text, and below it, indented, what comes of it.
inline std::vector<TextCase> textCasesOf(const std::filesystem::path& file) {
    std::vector<TextCase> cases;
    for (const std::string& line : linesOfCases(file)) {
        if (line.starts_with(' ')) {
            cases.back().outcome = unescaped(line.substr(4));
        } else {
            cases.push_back({unescaped(line), ""});
        }
    }
    return cases;
}

/// Runs a command of the shell in a folder.
inline void runIn(const std::filesystem::path& folder, const std::string& command) {
    const ProgramRun run =
        runProgram({"/bin/sh", "-euc", "cd \"$1\"; umask 022; " + command, "sh", folder}, "",
                   {"PATH=/usr/bin:/bin"});
    EXPECT_EQ(run.status, 0) << command << run.errors;
}

} // namespace qv::test
