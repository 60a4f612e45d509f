#pragma once

#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace qv::test {

/// A command of a transcript, and what it prints.
struct TranscriptStep {
    int line;
    std::string command;
    std::string printed;
};

/// Lines "$ " begin a command of bash, lines "> " continue it; its output follows. Comments begin
/// with "# ". Empty lines do not count, neither here nor in the output.
inline std::vector<TranscriptStep> stepsOf(const std::filesystem::path& transcript) {
    std::vector<TranscriptStep> steps;
    std::ifstream lines(transcript);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (line.starts_with("$ ")) {
            steps.push_back({number, line.substr(2), ""});
        } else if (line.starts_with("> ")) {
            steps.back().command += "\n" + line.substr(2);
        } else if (!line.empty() && !line.starts_with("# ")) {
            steps.back().printed += line + "\n";
        }
    }
    return steps;
}

/// The output, the errors with "! " before each line, and a status other than 0 in brackets. The
/// path of the folder is "FOLDER".
inline std::string shown(const ProgramRun& run, const std::string& folder) {
    std::string text;
    for (const auto& [output, mark] : {std::pair(run.output, ""), {run.errors, "! "}}) {
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            for (std::size_t at = 0; (at = line.find(folder)) != std::string::npos;) {
                line.replace(at, folder.size(), "FOLDER");
            }
            text += line.empty() ? "" : mark + line + "\n";
        }
    }
    return text + (run.status == 0 ? "" : "[" + std::to_string(run.status) + "]\n");
}

/// Whether a text is what a transcript says, where "..." stands for any text.
inline bool isShownAs(std::string_view text, std::string_view pattern) {
    constexpr std::string_view kAnything = "...";
    const std::size_t fixed = std::min(pattern.find(kAnything), pattern.size());
    if (fixed == pattern.size() || !text.starts_with(pattern.substr(0, fixed))) {
        return text == pattern;
    }
    pattern.remove_prefix(fixed + kAnything.size());
    for (text.remove_prefix(fixed); !isShownAs(text, pattern); text.remove_prefix(1)) {
        if (text.empty()) {
            return false;
        }
    }
    return true;
}

/// Runs each command of a transcript in the folder, where the path begins.
inline void followTranscript(const std::filesystem::path& transcript,
                             const TemporaryDirectory& folder,
                             std::vector<std::string> environment) {
    environment.push_back("PATH=" + folder.path().native() + ":/usr/bin:/bin");
    const auto steps = stepsOf(transcript);
    EXPECT_FALSE(steps.empty());
    for (const TranscriptStep& step : steps) {
        const ProgramRun run = runProgram(
            {"/usr/bin/env", "--chdir=" + folder.path().native(), "/bin/bash", "-c", step.command},
            "", environment);
        const std::string text = shown(run, folder.path());
        EXPECT_TRUE(isShownAs(text, step.printed))
            << transcript.filename().native() << ":" << step.line << ": $ " << step.command << "\n"
            << text << "instead of\n"
            << step.printed;
    }
}

} // namespace qv::test
