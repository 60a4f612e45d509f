#pragma once

#include "support/BuildFolder.h"
#include "support/Transcript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace qv::test {

/// Runs the command `qvcatalog` of this build, an unsigned one unless told otherwise.
inline ProgramRun qvcatalog(std::vector<std::string> arguments, std::string_view input = {},
                            const std::string& program = built("bin/qvcatalog")) {
    arguments.insert(arguments.begin(), program);
    return runProgram(arguments, input);
}

/// The command as a client that the service accepts.
inline const std::string kSigned = built("live/qvcatalog");

/// Follows tests/tools/transcripts/`name`.txt in the folder, which holds the command.
inline void expectTranscript(const std::string& name, const TemporaryDirectory& folder,
                             std::vector<std::string> environment = {}) {
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
    std::filesystem::copy_file(built("bin/qvcatalog"), folder / "qvcatalog");
    followTranscript(QV_TRANSCRIPTS "/" + name + ".txt", folder, std::move(environment));
}

// NOLINTBEGIN(readability-identifier-naming): matchers are named like types

/// A failure as it should look to a person: nothing on standard output, one line that says why.
MATCHER_P2(FailsWith, status, why,
           "ends with status " + testing::PrintToString(status) + " and one line with \"" +
               std::string(why) + "\"") {
    *result_listener << "status " << arg.status << ", output \"" << arg.output << "\", errors \""
                     << arg.errors << '"';
    return arg.status == status && arg.output.empty() && arg.errors.starts_with("qvcatalog: ") &&
           std::ranges::count(arg.errors, '\n') == 1 && arg.errors.ends_with('\n') &&
           arg.errors.find(why) != std::string::npos;
}

/// Success without a word on standard error.
MATCHER(Succeeds, "succeeds") {
    *result_listener << "status " << arg.status << ", errors \"" << arg.errors << '"';
    return arg.status == 0 && arg.errors.empty();
}

// NOLINTEND(readability-identifier-naming)

} // namespace qv::test
